#include "services/dhcp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/netif.h"
#include "core/regular_file.h"
#include "core/sessions.h"
#include "services/interface_process.h"

using tessel::CommandLine;
using tessel::ComposeCommand;

namespace {

// No shell is involved: the "&" reaches the program as its last argument, which it ignores.
constexpr char kStart[] = "udhcpd udhcpd -fS %s &";
constexpr char kKillAll[] = "killall killall -9 udhcpd";
constexpr char kRemovePidFiles[] = "rm /usr/etc/udhcpd*.pid";
constexpr char kRemoveConfigurations[] = "rm /usr/etc/udhcpd*.conf";

constexpr char kLeaseFile[] = "/usr/etc/udhcpd4.leases";
constexpr mode_t kFileMode = 0644;
constexpr std::size_t kServersMax = 8;

// The files of an interface's server.
struct ServerFiles {
    explicit ServerFiles(const char* interfaceName) {
        snprintf(configuration, sizeof(configuration), "/usr/etc/udhcpd4_%s.conf", interfaceName);
        snprintf(pid, sizeof(pid), "/usr/etc/udhcpd4_%s.pid", interfaceName);
    }
    void Remove() const {
        unlink(configuration);
        unlink(pid);
    }
    char configuration[64];
    char pid[64];
};

struct DhcpServer {
    char interfaceName[TESSEL_NAME_SIZE];
    u16 family;
};

}  // namespace

class tessel::DhcpServerTable : public tessel::Sessions<DhcpServer, kServersMax> {};

tessel::DhcpServerTable* g_ptDaeDhcpSInfo = nullptr;

namespace {

using TableLock = tessel::DhcpServerTable::Lock;

// Without a table there is no lock either.
TableLock HoldTable() {
    return g_ptDaeDhcpSInfo != nullptr ? g_ptDaeDhcpSInfo->Hold() : TableLock();
}

// Null when the interface is not served over this family, with a log line when there is no table.
DhcpServer* FamilyMapDhcpsInfo(const TableLock& lock, const char* interfaceName, u16 family) {
    if (!lock) {
        TESSEL_ERR("the tessel is not init!");
        return nullptr;
    }
    return g_ptDaeDhcpSInfo->Find(lock, [&](const DhcpServer& server) {
        return server.family == family && strncmp(server.interfaceName, interfaceName, TESSEL_NAME_SIZE) == 0;
    });
}

// The first free one, to be filled in or given back; null when there is none, with a log line when there is no table.
DhcpServer* FamilyMapDhcpsFreeInfo(const TableLock& lock) {
    if (!lock) {
        TESSEL_ERR("the tessel is not init!");
        return nullptr;
    }
    return g_ptDaeDhcpSInfo->Take(lock);
}

// The record's family field is ignored.
tessel::AddressText Text(const TNetGateway& address) {
    return {tessel::kInet.code, address.abyAddr};
}

i32 WriteDhcps4Conf(const char* path, const char* interfaceName, const TNetDhcpsConf& conf) {
    // Written beside the old one and renamed: a server that starts meanwhile never reads half of it.
    char newPath[72];
    snprintf(newPath, sizeof(newPath), "%s.new", path);
    tessel::UniqueFd fd = tessel::OpenRegularFile(newPath, O_WRONLY | O_CREAT | O_TRUNC, kFileMode);
    std::FILE* const file = fd.IsOpen() ? fdopen(fd.Get(), "w") : nullptr;
    if (file == nullptr) {
        TESSEL_ERR("open file %s failed!", path);
        return -1;
    }
    (void)fd.Release();
    fprintf(file, "start %s\nend %s\ninterface %s\n", Text(conf.tStart).text, Text(conf.tEnd).text, interfaceName);
    for (u32 i = 0; i < conf.dwDnsNum; ++i)
        fprintf(file, "option dns  %s\n", Text(conf.atDns[i]).text);
    if (conf.dwDnsNum == 0) fprintf(file, "option dns 8.8.8.8\n");
    char mask[INET_ADDRSTRLEN];
    fprintf(file, "option subnet %s\noption router %s\n",
            PrefixToString(tessel::kInet.code, conf.dwPrefixLen, mask, sizeof(mask)), Text(conf.tRouter).text);
    fprintf(file, "option lease 86400\nmax_leases 100\nlease_file %s\npidfile %s\n", kLeaseFile,
            ServerFiles(interfaceName).pid);
    const bool isWritten = ferror(file) == 0;
    if (fclose(file) == 0 && isWritten && rename(newPath, path) == 0) return 0;
    TESSEL_PERROR("write error");
    unlink(newPath);
    return -1;
}

// False with a log line for numbers that mean nothing.
bool IsConfiguration(const TNetDhcpsConf& conf, tessel::CallSite where = tessel::CallSite::Current()) {
    const u32 prefixBits = conf.dwPrefixLen;
    const u32 dnsServers = conf.dwDnsNum;
    if (prefixBits <= static_cast<u32>(tessel::kInet.hostPrefixLength) && dnsServers <= TESSEL_DHCP_DNS_MAX)
        return true;
    TESSEL_ERR_AT(where, "the prefix length %u or the number of dns servers %u is invalid!", prefixBits, dnsServers);
    return false;
}

i32 StartDhcpServer4(const char* interfaceName, const TNetDhcpsConf& conf) {
    CommandLine command;
    if (!tessel::ComposeDhcpServer(command, interfaceName, conf)) return -1;
    if (!tessel::OpenRegularFile(kLeaseFile, O_RDWR | O_CREAT, kFileMode).IsOpen()) {
        TESSEL_ERR("open file %s failed", kLeaseFile);
        TESSEL_PERROR("fopen error");
        return -1;
    }
    const ServerFiles files(interfaceName);
    if (WriteDhcps4Conf(files.configuration, interfaceName, conf) != 0) {
        TESSEL_ERR("DHCPS write into configure ERROR!");
        return -1;
    }
    return StartDetached(command, {SIGUSR1, SIGUSR2, SIGTERM});
}

i32 StartDhcpServer6() {
    TESSEL_ERR("StartDhcpServer6 is not realized!");
    return -1;
}

i32 StartDhcpServer(const char* interfaceName, u16 family, const TNetDhcpsConf& conf) {
    if (family == tessel::kInet.code) return StartDhcpServer4(interfaceName, conf);
    if (family == tessel::kInet6.code) return StartDhcpServer6();
    TESSEL_ERR("the wSinFamiy %d is invalid!", family);
    return -1;
}

// The interface's server, which has the path of its configuration as a word: "eth1" alone is also part of what the
// server of eth10 has. A blank follows the program's name, unlike in the path, which an editor may have as well.
tessel::InterfaceProcess ServerOf(const ServerFiles& files) {
    return {.pattern = "udhcpd ", .word = files.configuration};
}

i32 DhcpsStop4(const char* interfaceName) {
    const i32 status = tessel::EndDhcpServer(interfaceName, tessel::CallSite::Current());
    if (status == 0) ServerFiles(interfaceName).Remove();
    return status;
}

i32 DhcpsStop6() {
    TESSEL_ERR("DhcpsStop6 is not realized!");
    return -1;
}

}  // namespace

void DaemonDhcpsInit() {
    g_ptDaeDhcpSInfo = new (std::nothrow) tessel::DhcpServerTable;
    if (g_ptDaeDhcpSInfo == nullptr) TESSEL_PERROR("XMALLOC MTYPE_DHCPS error");
}

i32 DhcpsStart(const char* interfaceName, u16 family, const TNetDhcpsConf* conf) {
    if (interfaceName == nullptr || conf == nullptr) {
        TESSEL_ERR("ptDhcpsConfInfo or pchIfaceName is NULL!");
        return -1;
    }
    const TableLock lock = HoldTable();
    if (FamilyMapDhcpsInfo(lock, interfaceName, family) != nullptr) {
        TESSEL_ERR("the interface %s Family %d has startted!", interfaceName, family);
        return -1;
    }
    DhcpServer* const server = FamilyMapDhcpsFreeInfo(lock);
    if (server == nullptr) {
        TESSEL_ERR("the dhcp server has up to maxmium!");
        return -1;
    }
    if (StartDhcpServer(interfaceName, family, *conf) != 0) {
        TESSEL_ERR("StartDhcps error!");
        g_ptDaeDhcpSInfo->GiveBack(lock, *server);
        return -1;
    }
    *server = {.interfaceName = {}, .family = family};
    strncpy(server->interfaceName, interfaceName, sizeof(server->interfaceName) - 1);
    return 0;
}

i32 DhcpsStop(const char* interfaceName, u16 family) {
    if (FamilyMapDhcpsInfo(HoldTable(), interfaceName, family) == nullptr) {
        TESSEL_PRT("the interface %s SinFamily %d dhcp server has been stopped", interfaceName, family);
        return 0;
    }
    // The name is one that a start has checked.
    if (family == tessel::kInet.code && DhcpsStop4(interfaceName) != 0) return -1;
    if (family == tessel::kInet6.code && DhcpsStop6() != 0) return -1;
    const TableLock lock = HoldTable();
    const DhcpServer* const server = FamilyMapDhcpsInfo(lock, interfaceName, family);
    if (server != nullptr) g_ptDaeDhcpSInfo->GiveBack(lock, *server);
    return 0;
}

i32 DhcpsGetStatus(const char* interfaceName, u16 family, i32* status) {
    *status = FamilyMapDhcpsInfo(HoldTable(), interfaceName, family) != nullptr ? 1 : 0;
    return 0;
}

i32 DhcpsStopAll() {
    CommandLine command;
    if (!ComposeCommand(command, kKillAll)) return -1;
    const i32 status = RunForStatus(command);
    if (status != 0) TESSEL_ERR("the child process error:ret=%d!", status);  // also when none ran
    // What is not there cannot be removed: these can report nothing else.
    (void)tessel::RunShell(kRemovePidFiles);
    (void)tessel::RunShell(kRemoveConfigurations);
    const TableLock lock = HoldTable();
    if (!lock) {
        TESSEL_ERR("the tessel is not init!");
        return -1;
    }
    while (const DhcpServer* const server = g_ptDaeDhcpSInfo->Find(lock, [](const DhcpServer&) { return true; }))
        g_ptDaeDhcpSInfo->GiveBack(lock, *server);
    return 0;
}

const char* PrefixToString(u16 family, u32 prefixBits, char* buffer, u32 size) {
    if (family != tessel::kInet.code) {
        TESSEL_ERR("PrefixToString ipv6 is not realized!");
        return nullptr;
    }
    const u32 mask = htonl(static_cast<u32>(~u64{0} << (32 - prefixBits)));
    return inet_ntop(family, &mask, buffer, size);
}

namespace tessel {

bool ComposeDhcpServer(CommandLine& line, const char* interfaceName, const TNetDhcpsConf& conf) {
    return IsInterfaceName(interfaceName, line.where) && IsConfiguration(conf, line.where) &&
           ComposeCommand(line, kStart, ServerFiles(interfaceName).configuration);
}

i32 EndDhcpServer(const char* interfaceName, CallSite where) {
    const ServerFiles files(interfaceName);
    const InterfaceProcess server = ServerOf(files);
    const pid_t pid = server.Find();
    if (pid <= 0) {
        TESSEL_PRT_AT(where, "*****not found udhcpd process, remove pid_file:%s,  config_file:%s*****", files.pid,
                      files.configuration);
        return 0;
    }
    TESSEL_PRT_AT(where, "*****found udhcpd process, pid_file:%s, config_file:%s, will kill process %d*****", files.pid,
                  files.configuration, pid);
    const i32 status = KillByTool(server, pid);
    if (status != 0) TESSEL_ERR_AT(where, "the child process error:ret=%d!", status);
    return status;
}

}  // namespace tessel
