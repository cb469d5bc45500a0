#include "services/dhcp_v6.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "core/exec.h"
#include "core/log.h"
#include "core/netif.h"
#include "core/text.h"
#include "core/wait.h"
#include "route/gateway.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using tessel::CallSite;
using tessel::ClientV6;
using tessel::InterfaceOf;
using tessel::InterfaceProcess;
using tessel::ResultFile;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kStart[] = "udhcpc6 udhcpc6 -i %s -s %s -p /tmp/udhcpc6%s.pid";
constexpr char kStartWithoutDns[] = "udhcpc6 udhcpc6 -i %s -s %s -o -p /tmp/udhcpc6%s.pid";
constexpr char kShowLinkLocal[] = "ip ip -6 addr show dev %s scope link";

constexpr u32 kLinkLocalBytes = 256;
constexpr char kScript[] = "/etc/scripts/udhcpc6.script";
constexpr char kResultPath[] = "/tmp/udhcpc6.conf%s";
constexpr u32 kResultBytesMax = 65536;  // of a file that is read
constexpr std::size_t kLineBytes = 256;

constexpr milliseconds kLook(100);
constexpr seconds kAfterFailure(1);
constexpr seconds kAfterReport(2);  // the file stays that long for whoever looks at it

// The route that stands for the interface's default gateway.
constexpr char kCurrentGateway[] = "0::0";

// An event that is not reported.
constexpr u32 kNothingToReport = 4;

// The file of such an event stays until the script replaces it. It is read again and again, but ever more seldom: each
// time costs log lines and a tool.
struct Unreported {
    tessel::FileIdentity file;
    milliseconds pause{0};
    tessel::Deadline next{milliseconds(0)};

    void Note(const tessel::FileIdentity& read) {
        constexpr milliseconds kAtMost(60'000);
        pause = read == file ? std::min(2 * pause, kAtMost) : kLook;
        file = read;
        next = tessel::Deadline(pause);
    }
};

// Waits until the link is there or cannot be queried, four seconds at most.
void WaitForLink(const char* interfaceName, CallSite where) {
    constexpr int kQueries = 4;
    for (int query = 1; query <= kQueries; ++query) {
        u32 hasLink = 0;
        const bool isAnswered = IfethGetLineStatus(interfaceName, &hasLink) == 0;
        if (!isAnswered) {
            TESSEL_ERR_AT(where, "check interface on/off line fail, still try to start dhcpv6");
        } else {
            TESSEL_PRT_AT(where, "interface %s is %s", interfaceName, hasLink != 0 ? "online" : "offline");
        }
        sleep(1);
        if (!isAnswered || hasLink != 0) return;
        TESSEL_PRT_AT(where, "continue check");
    }
}

// True once the interface has a link-local address: without one the client cannot speak.
bool AwaitLinkLocalAddress(const char* interfaceName, CallSite where) {
    constexpr int kChecks = 4;
    for (int check = 1; CheckLinkAddrExist(interfaceName) != 0; ++check) {
        if (check == 1) WaitForLink(interfaceName, where);
        if (check == kChecks) {
            TESSEL_ERR_AT(where, "fe80::/64 not exist on %s", interfaceName);
            return false;
        }
        sleep(1);
    }
    return true;
}

void StoreAddress(TNetGateway& field, const char* text) {
    TNetGateway address{};
    address.wSinFamily = TESSEL_FAMILY_INET6;
    (void)inet_pton(AF_INET6, text, address.abyAddr);
    field = address;
}

// A lease that is being read, and in whose name that is logged.
struct Reading {
    TNetDhcpcLease& lease;
    u32& event;
    CallSite where;
};

// Takes the interface's default gateway for the lease's. False with a log line.
bool TakeCurrentGateway(const Reading& reading) {
    TNetGateway gateway{};
    const tessel::FieldText name(reading.lease.achDevName);
    if (GetGateWayV6(name.Get(), &gateway) != 0) {
        TESSEL_ERR_AT(reading.where, "GetGateWayV6 error!");
        return false;
    }
    reading.lease.tRouter = gateway;
    return true;
}

// Sets the event for a line that is one.
bool TakeEvent(const char* line, const Reading& reading) {
    if (strstr(line, "leasesuccess") != nullptr) {
        reading.event = TESSEL_DHCPC_LEASE;
    } else if (strstr(line, "leasefail") != nullptr) {
        reading.event = TESSEL_DHCPC_FAILED;
        if (strstr(line, "leasefailbydad") != nullptr) TESSEL_ERR_AT(reading.where, "lease failed caused by dad fail");
    } else if (strstr(line, "nak") != nullptr) {
        reading.event = kNothingToReport;
        TESSEL_ERR_AT(reading.where, "maybe dhcp server has no ip to offer");
    } else if (strstr(line, "timeout") != nullptr) {
        reading.event = kNothingToReport;
    } else {
        return false;
    }
    return true;
}

// Takes a line with a keyword, anywhere in it, and a value. False when it fails.
bool TakeItem(char* line, const Reading& reading) {
    constexpr const char* kKeywords[] = {"local", "leasetime", "prefix", "dnsserver", "route"};
    enum Item { kLocal, kLeaseTime, kPrefix, kDnsServer, kRoute };  // their indexes
    const auto* const found = std::find_if(std::begin(kKeywords), std::end(kKeywords),
                                           [&](const char* keyword) { return strstr(line, keyword) != nullptr; });
    if (found == std::end(kKeywords)) return true;
    char* rest = nullptr;
    if (strtok_r(line, " ", &rest) == nullptr) {
        TESSEL_ERR_AT(reading.where, "strtok error : %s", line);
        return false;
    }
    const char* const value = strtok_r(nullptr, " ", &rest);
    if (value == nullptr) return true;
    switch (static_cast<Item>(found - std::begin(kKeywords))) {
        case kLocal:
            TESSEL_PRT_AT(reading.where, "local tmp : %s", value);
            StoreAddress(reading.lease.tAddr, value);
            return true;
        case kLeaseTime:
            reading.lease.dwLeaseTime = static_cast<u32>(atoi(value));
            return true;
        case kPrefix:
            reading.lease.dwPrefixLen = static_cast<u32>(atoi(value));
            return true;
        case kDnsServer:
            if (TNetGateway* const place = tessel::NextDns(reading.lease, value, reading.where); place != nullptr)
                StoreAddress(*place, value);
            return true;
        case kRoute:
            if (strcmp(value, kCurrentGateway) == 0) return TakeCurrentGateway(reading);
            StoreAddress(reading.lease.tRouter, value);
            return true;
    }
    return true;
}

bool TakeLine(char* line, const Reading& reading) {
    return TakeEvent(line, reading) || TakeItem(line, reading);
}

// Reads and reports the file that is there.
void TakeResult(TDhcpcInfo& info, const ResultFile& file, u32& event, Unreported& unreported,
                const tessel::Worker& self, CallSite where) {
    tessel::FileIdentity read;
    if (DhcpcReadDhcpcConfFileV6(&info, &event, &read) != 0) {
        TESSEL_ERR_AT(where, "read config file error");
        // A newer one stays, and so does one that could not be opened for want of a descriptor.
        if (self.IsWanted()) (void)file.Remove(read);
        (void)self.Sleep(kAfterFailure);
        return;
    }
    TESSEL_PRT_AT(where, "nMsgType : %d", static_cast<i32>(event));
    if (event == kNothingToReport) {
        unreported.Note(read);
        return;
    }
    tessel::ReportLease(info, TESSEL_SOCKET_DHCPCV6, "_6", event, where);
    (void)self.Sleep(kAfterReport);
    const ResultFile::Removal removal = file.Remove(read);
    if (removal == ResultFile::Removal::kGone || removal == ResultFile::Removal::kFailed)
        TESSEL_ERR_AT(where, "remove %s error", file.Path());
}

void DhcpcProcessThreadV6(tessel::Worker& self, void* session) {
    TDhcpcInfo& info = *static_cast<TDhcpcInfo*>(session);
    ResultFile file(kResultPath, InterfaceOf(info));
    Unreported unreported;
    u32 event = 0;
    while (info.isRunning != 0 && self.IsWanted()) {
        if (file.IsThere(unreported.next.HasPassed() ? tessel::FileIdentity() : unreported.file)) {
            TakeResult(info, file, event, unreported, self, CallSite::Current());
        } else {
            (void)self.Sleep(kLook);
        }
    }
    TESSEL_PRT("DhcpcProcessThread exit, %s, family %d", file.Path(), info.wSinFamily);
}

}  // namespace

namespace tessel {

bool ComposeClientV6(CommandLine& line, const char* interfaceName, u16 wDnsDynmic) {
    return wDnsDynmic != 0 ? ComposeCommand(line, kStart, interfaceName, kScript, interfaceName)
                           : ComposeCommand(line, kStartWithoutDns, interfaceName, kScript, interfaceName);
}

}  // namespace tessel

// NOLINTNEXTLINE(readability-non-const-parameter): it is written through the reference in Reading
i32 ParseAddr(char* line, TNetDhcpcLease* lease, u32* pnMsgType) {
    if (line == nullptr) {
        TESSEL_ERR("the address is invalid!");
        return -1;
    }
    return TakeLine(line, {*lease, *pnMsgType, CallSite::Current()}) ? 0 : -1;
}

i32 DhcpcReadDhcpcConfFileV6(TDhcpcInfo* ptDhcpcInfo, u32* pnMsgType, tessel::FileIdentity* identity) {
    if (ptDhcpcInfo == nullptr || pnMsgType == nullptr) {
        TESSEL_ERR("ptDhcpcInfo or pnMsgType is NULL!");
        return -1;
    }
    const ResultFile result(kResultPath, InterfaceOf(*ptDhcpcInfo));
    tessel::UniqueFd file = tessel::OpenResultFile(result.Path(), *identity);
    if (!file.IsOpen()) {
        const int error = errno;
        TESSEL_ERR("fopen %s error", result.Path());
        errno = error;
        TESSEL_PERROR("fopen error");
        return -1;
    }
    TNetDhcpcLease& lease = ptDhcpcInfo->tLease;
    lease.dwPrefixLen = 0;
    lease.tAddr = {};
    lease.tRouter = {};
    lease.dwDnsNum = 0;
    (void)TakeCurrentGateway({lease, *pnMsgType, CallSite::Current()});  // unless the file names another
    tessel::LineReader lines(std::move(file), kResultBytesMax);
    char line[kLineBytes];
    while (lines.Next(line)) {
        TESSEL_PRT("the line : %s", line);
        if (ParseAddr(line, &lease, pnMsgType) != 0) return -1;
    }
    return 0;
}

i32 CheckLinkAddrExist(const char* pchIfaceName) {
    if (pchIfaceName == nullptr) {
        TESSEL_ERR("pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    tessel::CommandLine command;
    tessel::ToolOutput output(kLinkLocalBytes);
    if (!ComposeCommand(command, kShowLinkLocal, pchIfaceName) || RunReader(command, output) != 0) return -1;
    return strstr(output.text, "inet6") != nullptr ? 0 : -1;
}

i32 LinuxDhcpcStartV6(const char* achDevName, u16 wDnsDynmic) {
    constexpr int kLooks = 2;
    if (!tessel::HasScript(kScript)) return -1;
    const InterfaceProcess client = ClientV6(achDevName);
    if (const pid_t pid = client.Find(); pid > 0) {
        TESSEL_PRT("%s udhcpc6 already start.", achDevName);
        tessel::RenewFromScratch(client, pid);
        return 0;
    }
    tessel::CommandLine command;
    if (!tessel::ComposeClientV6(command, achDevName, wDnsDynmic)) return -1;
    TESSEL_PRT("LinuxDhcpcStartV6 cmd : %s", command.text);
    if (tessel::StartClient(command) != 0) return -1;
    if (!tessel::AwaitClient(client, kLooks)) return -1;
    TESSEL_PRT("%s udhcpc6 has started.", achDevName);
    return 0;
}

i32 LinuxDhcpcStopV6(const char* achDevName) {
    const InterfaceProcess client = ClientV6(achDevName);
    const pid_t pid = client.Find();
    if (pid <= 0) {
        TESSEL_PERROR("dhcpcv6 already stop.");
        return kDhcpcNotRunning;
    }
    return tessel::KillProcess(client, pid);
}

i32 StartDhcpcV6(TDhcpcInfo* ptDhcpcInfo) {
    constexpr int kLooks = 3;
    if (ptDhcpcInfo == nullptr) {
        TESSEL_ERR("ptDhcpcInfo is NULL");
        return -1;
    }
    const char* const name = InterfaceOf(*ptDhcpcInfo);
    if (!AwaitLinkLocalAddress(name, CallSite::Current())) return -1;
    if (tessel::StartWorker(*ptDhcpcInfo, "V6TesselDhcpcProcessThread", &DhcpcProcessThreadV6) != 0) return -1;
    (void)LinuxDhcpcStartV6(name, ptDhcpcInfo->wDnsDynmic);  // whether it runs is checked below
    if (tessel::AwaitClient(ClientV6(name), kLooks)) {
        TESSEL_PRT("%s dhcpc already start.", name);
        return 0;
    }
    TESSEL_ERR("Leaving......");
    return -1;
}

i32 StopDhcpcV6(TDhcpcInfo* ptDhcpcInfo) {
    if (ptDhcpcInfo->isRunning.exchange(0) == 0) {
        TESSEL_PRT("dhcpc ipv6 already stop");
        tessel::RemoveSession(*ptDhcpcInfo);
        return 0;
    }
    tessel::EndWorker(*ptDhcpcInfo);
    const i32 result = LinuxDhcpcStopV6(InterfaceOf(*ptDhcpcInfo));
    if (result != kDhcpcNotRunning) return result;
    TESSEL_PRT("process not exist");
    return 0;
}
