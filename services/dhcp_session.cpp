#include "services/dhcp_session.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/exec.h"
#include "core/log.h"
#include "core/notify.h"
#include "core/regular_file.h"

namespace tessel {

namespace {

constexpr std::chrono::seconds kSecond(1);

}  // namespace

i32 KillProcess(const InterfaceProcess& wanted, pid_t pid, CallSite where) {
    if (KillByTool(wanted, pid) == 0) return 0;
    TESSEL_ERR_AT(where, "the child process error!");
    TESSEL_ERR_AT(where, "kill -9 %d", pid);
    return -1;
}

i32 StartWorker(TDhcpcInfo& info, const char* name, Worker::Body body, CallSite where) {
    if (info.worker.IsRunning() && !info.worker.IsWanted()) EndWorker(info, where);
    info.isRunning = 1;
    if (info.worker.IsRunning()) return 0;
    if (info.worker.Start(name, body, &info)) return 0;
    TESSEL_ERR_AT(where, "DhcpcProcessThread created error!");
    info.isRunning = 0;
    return -1;
}

void EndWorker(TDhcpcInfo& info, CallSite where) {
    info.worker.AskToEnd();
    while (!info.worker.AwaitEnd(std::chrono::milliseconds(0))) {
        TESSEL_PRT_AT(where, "%s, %d,waiting thread exit, sleep a while", InterfaceOf(info), info.nApipid.load());
        if (info.worker.AwaitEnd(kSecond)) break;
    }
}

i32 StartClient(const CommandLine& line) {
    return StartDetached(line, {SIGUSR1, SIGUSR2, SIGTERM});
}

void RenewFromScratch(const InterfaceProcess& client, pid_t pid) {
    Signal(client, pid, SIGUSR2);  // release
    Signal(client, pid, SIGUSR1);  // renew
    sleep(1);
}

bool AwaitClient(const InterfaceProcess& client, int looks) {
    for (; looks > 0; --looks) {
        if (client.Find() > 0) return true;
        sleep(1);
    }
    return false;
}

bool HasScript(const char* path, CallSite where) {
    if (access(path, R_OK) == 0) return true;
    const int error = errno;
    TESSEL_ERR_AT(where, "%s is not existed, errno %d : %s", path, error, strerror(error));
    return false;
}

ResultFile::ResultFile(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(path_, sizeof(path_), format, arguments);
    va_end(arguments);
}

bool ResultFile::IsThere(const FileIdentity& known, CallSite where) {
    struct stat status {};
    if (lstat(path_, &status) != 0) return false;
    if (S_ISREG(status.st_mode) && status.st_uid == geteuid()) return FileIdentity(status) != known;
    const bool isRemoved = remove(path_) == 0;  // an empty folder, too
    if (!isForeignKnown_) {
        TESSEL_ERR_AT(where, "%s is no result file, it is %s", path_, isRemoved ? "removed" : "left alone");
    }
    isForeignKnown_ = true;
    return false;
}

ResultFile::Removal ResultFile::Remove(const FileIdentity& read) const {
    struct stat status {};
    if (lstat(path_, &status) != 0) return errno == ENOENT ? Removal::kGone : Removal::kFailed;
    if (!FileIdentity(status).IsSameFile(read)) return Removal::kReplaced;
    if (unlink(path_) == 0) return Removal::kDone;
    return errno == ENOENT ? Removal::kGone : Removal::kFailed;
}

UniqueFd OpenResultFile(const char* path, FileIdentity& identity) {
    UniqueFd file = OpenRegularFile(path, O_RDONLY);
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return UniqueFd();
    if (status.st_uid != geteuid()) {
        file.Reset();
        errno = EPERM;
        return file;
    }
    identity = FileIdentity(status);
    return file;
}

TNetGateway* NextDns(TNetDhcpcLease& lease, const char* text, CallSite where) {
    if (lease.dwDnsNum >= TESSEL_DHCP_DNS_MAX) {
        TESSEL_ERR_AT(where, "more than %d dns servers, %s is left out", TESSEL_DHCP_DNS_MAX, text);
        return nullptr;
    }
    TNetGateway* const place = &lease.atDns[lease.dwDnsNum];
    ++lease.dwDnsNum;
    return place;
}

void ReportLease(TDhcpcInfo& info, const char* socketName, const char* infix, u32 event, CallSite where) {
    if (info.wDnsDynmic == 0) {
        info.tLease.dwDnsNum = 0;
        memset(info.tLease.atDns, 0, sizeof(info.tLease.atDns));
    }
    const NoticeSocket socket("%s_%s%s_%d", socketName, InterfaceOf(info), infix, info.nApipid.load());
    TESSEL_PRT_AT(where, "server_path %s %s", infix[0] == '\0' ? "=" : ":", socket.name);
    if (Notify(socket, event, info.tLease) != TESSEL_IPC_OK) {
        TESSEL_ERR_AT(where, "IpcCallbackSendAndRecv error!");
    }
}

}  // namespace tessel
