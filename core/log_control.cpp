#include "core/log_control.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/file_rights.h"
#include "core/log.h"
#include "core/log_state.h"
#include "core/regular_file.h"
#include "core/text.h"
#include "core/unique_fd.h"

using tessel::CallSite;
using tessel::FieldText;
using tessel::g_logFileLock;
using tessel::UniqueFd;

const char g_achLogLevel[4][16] = {"err", "warning", "notice", "info"};

namespace {

// Time for writers to finish before a file is closed. The lock alone makes closing safe; applications expect it to take
// a second.
constexpr unsigned kCloseDelaySeconds = 1;

// One of the two files, the codes that concern it, and its default path.
struct FileRole {
    std::FILE*& file;
    std::atomic<i32>& flag;
    u32 openCode;
    u32 closeCode;
    const char* defaultPath;
};

// Replaces the role's file with `file` and returns the old one for the caller to close: the disk may take its time over
// that, and no line waits for it.
std::FILE* Exchange(const FileRole& role, std::FILE* file) {
    const std::lock_guard lock(g_logFileLock);
    return std::exchange(role.file, file);
}

void CloseLogFile(const FileRole& role) {
    role.flag.store(0, std::memory_order_relaxed);
    sleep(kCloseDelaySeconds);
    std::FILE* const file = Exchange(role, nullptr);
    if (file == nullptr) return;
    fflush(file);
    fsync(fileno(file));
    fclose(file);
}

// A file that somebody else put there, or a second name of another file, is not emptied.
bool IsOurs(int file, uid_t client) {
    struct stat status {};
    if (fstat(file, &status) != 0) return false;
    return status.st_nlink == 1 && (status.st_uid == geteuid() || status.st_uid == client);
}

// Opens or creates what the client itself could; the default file, which no client chooses, with this process's rights.
UniqueFd OpenFor(const ucred& client, const FileRole& role, const char* path) {
    constexpr mode_t kMode = 0666;
    constexpr int kFlags = O_RDWR | O_CREAT;
    if (strcmp(path, role.defaultPath) == 0) return tessel::OpenRegularFile(path, kFlags, kMode);
    const tessel::FileRights rights(client);
    return rights.AreTaken() ? tessel::OpenRegularFile(path, kFlags, kMode) : UniqueFd();
}

// An empty regular file; null when that fails. A FIFO or a device could block whoever writes a line.
std::FILE* OpenEmpty(const ucred& client, const FileRole& role, const char* path) {
    UniqueFd fd = OpenFor(client, role, path);
    if (!fd.IsOpen()) return nullptr;
    if (!IsOurs(fd.Get(), client.uid)) {
        TESSEL_ERR("%s is somebody else's", path);
        errno = EPERM;
        return nullptr;
    }
    std::FILE* file = ftruncate(fd.Get(), 0) == 0 ? fdopen(fd.Get(), "w+") : nullptr;
    if (file == nullptr) return nullptr;
    (void)fd.Release();
    // People follow the file while the process runs: a line is there as soon as it is written.
    setvbuf(file, nullptr, _IOLBF, BUFSIZ);
    return file;
}

i32 OpenLogFile(const ucred& client, const FileRole& role, const char* path, CallSite where) {
    if (path[0] != '\0') {
        TESSEL_PRT_AT(where, "config lib log file %s", path);
    } else {
        path = role.defaultPath;
        TESSEL_PRT_AT(where, "have not config lib log file, use default %s", path);
    }
    std::FILE* opened = OpenEmpty(client, role, path);
    if (opened == nullptr) {
        TESSEL_ERR_AT(where, "%s open fail", path);
        return -1;
    }
    // Left open, previous files would have used up all descriptors after some hundred commands.
    if (std::FILE* const previous = Exchange(role, opened); previous != nullptr) fclose(previous);
    role.flag.store(1, std::memory_order_relaxed);
    return 0;
}

i32 ManageLogFile(const ucred& client, const FileRole& role, u32 code, const char* path, CallSite where) {
    if (code < TESSEL_LOG_OPEN_LIB || code > TESSEL_LOG_CLOSE_BOTH) {
        TESSEL_ERR_AT(where, "eCmd is error %d", static_cast<i32>(code));
        return -1;
    }
    if (code == role.closeCode || code == TESSEL_LOG_CLOSE_BOTH) CloseLogFile(role);
    if (code == role.openCode || code == TESSEL_LOG_OPEN_BOTH) return OpenLogFile(client, role, path, where);
    return 0;
}

ucred ThisProcess() {
    return {.pid = getpid(), .uid = geteuid(), .gid = getegid()};
}

}  // namespace

i32 TesselDebugLevelSet(i32 level) {
    tessel::g_logLevel.store(level, std::memory_order_relaxed);
    return 0;
}

i32 LogLibFileManage(const LogFileCtl* ctl) {
    if (ctl == nullptr) {
        TESSEL_ERR("params error");
        return -1;
    }
    const FileRole role{.file = pLogLibFd,
                        .flag = nLogLibFlag,
                        .openCode = TESSEL_LOG_OPEN_LIB,
                        .closeCode = TESSEL_LOG_CLOSE_LIB,
                        .defaultPath = "/tmp/tessel_lib.log"};
    return ManageLogFile(ThisProcess(), role, ctl->eCmd, FieldText(ctl->achLibPath).Get(), CallSite::Current());
}

i32 LogDaemonFileManage(const LogFileCtl* ctl) {
    if (ctl != nullptr) return tessel::ManageDaemonLogFile(*ctl, ThisProcess());
    TESSEL_ERR("params error");
    return -1;
}

i32 tessel::ManageDaemonLogFile(const LogFileCtl& ctl, const ucred& client) {
    const FileRole role{.file = pLogDaemonFd,
                        .flag = nLogDaemonFlag,
                        .openCode = TESSEL_LOG_OPEN_DAEMON,
                        .closeCode = TESSEL_LOG_CLOSE_DAEMON,
                        .defaultPath = "/tmp/tessel_daemon.log"};
    const i32 result = ManageLogFile(client, role, ctl.eCmd, FieldText(ctl.achDaemonPath).Get(),
                                     CallSite::Current("LogDaemonFileManage"));
    if (ctl.eCmd == TESSEL_LOG_CLOSE_DAEMON || ctl.eCmd == TESSEL_LOG_CLOSE_BOTH) {
        // Closing this file forgets the library's as well, without closing it: that one belongs to whoever opened it.
        const std::lock_guard lock(g_logFileLock);
        pLogLibFd = nullptr;
    }
    return result;
}
