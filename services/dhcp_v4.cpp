#include "services/dhcp_v4.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/log.h"

using std::chrono::milliseconds;
using tessel::CallSite;
using tessel::ClientV4;
using tessel::InterfaceOf;
using tessel::InterfaceProcess;
using tessel::ResultFile;

namespace {

// Every line this file runs: the program, then its argument vector. "-o -O router subnet": nothing else is asked for,
// so that no DNS servers arrive.
constexpr char kStart[] = "udhcpc udhcpc -i %s -s %s -p /tmp/udhcpc%s.pid";
constexpr char kStartWithoutDns[] = "udhcpc udhcpc -i %s -o -O router subnet -s %s -p /tmp/udhcpc%s.pid";

constexpr char kScript[] = "/etc/scripts/udhcpc.script";
constexpr char kResultPath[] = "/tmp/udhcpc.conf%s";
constexpr u32 kResultBytesMax = 65536;  // of a file that is read
constexpr std::size_t kLineBytes = 128;

constexpr milliseconds kLook(100);

// The event of a file: a code of g_atDhcpcConfMsgType, or what the last report was sent with.
enum ResultEvent : u32 { kDeconfig = 0, kLease = 1, kLeaseFail = 2, kNak = 3, kTimeout = 4 };

// A code of g_atDhcpcConfEthItem.
enum ResultItem : u32 { kLocal = 0, kSubnet = 1, kRouter = 2, kDns = 3, kLeaseTime = 4 };

// What helps the client: one that keeps link-local addresses, and the script while it runs. The client's own command
// line names the script, too.
InterfaceProcess LinkLocalHelper(const char* interfaceName) {
    return {.pattern = "zcip", .word = interfaceName};
}
InterfaceProcess Script(const char* interfaceName) {
    return {.pattern = "udhcpc.script", .word = interfaceName, .except = "udhcpc -i"};
}

// Ends a helper if it runs. 0, or -1 with a log line.
i32 StopHelper(const InterfaceProcess& helper, const char* absent, CallSite where) {
    const pid_t pid = helper.Find();
    if (pid > 0) return tessel::KillProcess(helper, pid, where);
    TESSEL_PRT_AT(where, "%s", absent);
    return 0;
}

void StoreAddress(TNetGateway& field, const char* text) {
    const u32 address = inet_addr(text);
    memcpy(field.abyAddr, &address, sizeof(address));
}

void StoreDns(TNetDhcpcLease& lease, const char* text, CallSite where) {
    TNetGateway* const place = tessel::NextDns(lease, text, where);
    if (place == nullptr) return;
    *place = {};
    StoreAddress(*place, text);
}

// An item's word may be anywhere in the line; the first one of the table counts. One character and the value follow it.
void TakeItem(const char* line, TNetDhcpcLease& lease, CallSite where) {
    for (const TDhcpcConfWord& item : g_atDhcpcConfEthItem) {
        const char* value = strstr(line, item.pchWord);
        if (value == nullptr) continue;
        value += strlen(item.pchWord);
        if (*value != '\0') ++value;
        switch (static_cast<ResultItem>(item.dwCode)) {
            case kLocal:
                lease.tAddr.wSinFamily = TESSEL_FAMILY_INET;
                StoreAddress(lease.tAddr, value);
                break;
            case kSubnet:
                lease.dwPrefixLen = static_cast<u32>(MaskToPrefix(TESSEL_FAMILY_INET, value));
                break;
            case kRouter:
                StoreAddress(lease.tRouter, value);
                break;
            case kDns:
                StoreDns(lease, value, where);
                break;
            case kLeaseTime:
                lease.dwLeaseTime = static_cast<u32>(atoi(value));
                break;
        }
        return;
    }
}

// True when the line is an event's word.
bool TakeEvent(const char* line, u32& event) {
    for (const TDhcpcConfWord& word : g_atDhcpcConfMsgType) {
        if (strcmp(line, word.pchWord) != 0) continue;
        if (word.dwCode != kDeconfig) event = word.dwCode;
        return true;
    }
    return false;
}

// Makes the event the type of a report. False when there is none to be sent.
bool ChooseType(u32& event, CallSite where) {
    switch (event) {
        case kDeconfig:
        case kTimeout:
            return false;
        case kLease:
            event = TESSEL_DHCPC_LEASE;
            return true;
        case kLeaseFail:
        case kNak:
            event = TESSEL_DHCPC_FAILED;
            return true;
        default:
            // The type of the last report: a later file has begun with "deconfig".
            TESSEL_ERR_AT(where, "the unkonwn msg type = 0x%x", event);
            event = TESSEL_DHCPC_DECONFIGURED;
            return true;
    }
}

// Reads and reports the file that is there. False when the session has failed.
bool TakeResult(TDhcpcInfo& info, const ResultFile& file, u32& event, CallSite where) {
    tessel::FileIdentity read;
    if (DhcpcReadDhcpcConfFile(&info.tLease, file.Path(), &event, &read) != 0) {
        TESSEL_ERR_AT(where, "DhcpcReadDhcpcConfFile error");
        return false;
    }
    switch (file.Remove(read)) {
        case ResultFile::Removal::kDone:
        case ResultFile::Removal::kReplaced:  // the newer one comes next
            break;
        case ResultFile::Removal::kGone:
            return true;
        case ResultFile::Removal::kFailed:
            tessel::LogPerror(where, "remove conf error\n");
            return false;
    }
    TESSEL_PRT_AT(where, "the nMsgType is %d\n!", static_cast<i32>(event));
    if (ChooseType(event, where)) tessel::ReportLease(info, TESSEL_SOCKET_DHCPC, "", event, where);
    return true;
}

void DhcpcProcessThread(tessel::Worker& self, void* session) {
    TDhcpcInfo& info = *static_cast<TDhcpcInfo*>(session);
    info.tLease.tAddr = {};
    info.tLease.tRouter = {};
    info.tLease.dwDnsNum = 0;
    ResultFile file(kResultPath, InterfaceOf(info));
    u32 event = kDeconfig;
    while (info.isRunning != 0 && self.IsWanted()) {
        if (!file.IsThere()) {
            (void)self.Sleep(kLook);
        } else if (!TakeResult(info, file, event, CallSite::Current())) {
            self.AskToEnd();  // a start that comes now begins anew
            info.isRunning = 0;
            return;
        }
    }
    TESSEL_PRT("DhcpcProcessThread exit, %s, family %d", file.Path(), info.wSinFamily);
}

}  // namespace

namespace tessel {

bool ComposeClientV4(CommandLine& line, const char* interfaceName, u16 wDnsDynmic) {
    return wDnsDynmic != 0 ? ComposeCommand(line, kStart, interfaceName, kScript, interfaceName)
                           : ComposeCommand(line, kStartWithoutDns, interfaceName, kScript, interfaceName);
}

void ReadResultV4(LineReader& lines, TNetDhcpcLease& lease, u32& event) {
    lease.dwDnsNum = 0;
    bool hasEvent = false;
    char line[kLineBytes];
    while (lines.Next(line)) {
        if (hasEvent) {
            TakeItem(line, lease, CallSite::Current("DhcpcReadDhcpcConfFile"));
        } else {
            hasEvent = TakeEvent(line, event);
        }
    }
}

}  // namespace tessel

i32 DhcpcReadDhcpcConfFile(TNetDhcpcLease* lease, const char* path, u32* event, tessel::FileIdentity* identity) {
    tessel::UniqueFd file = tessel::OpenResultFile(path, *identity);
    if (!file.IsOpen()) {
        TESSEL_PERROR("fopen error");
        return -1;
    }
    tessel::LineReader lines(std::move(file), kResultBytesMax);
    tessel::ReadResultV4(lines, *lease, *event);
    return 0;
}

i32 MaskToPrefix(u16 wSinFamily, const char* achMaskString) {
    if (achMaskString == nullptr) {
        TESSEL_ERR("the achMaskString is NULL!");
        return 0;
    }
    u32 words[4] = {};
    if (inet_pton(wSinFamily, achMaskString, words) != 1) {
        TESSEL_ERR("inet_pton error : the charactor is invalid or the sinfamily is not support!");
        return 0;
    }
    // For an IPv6 mask, the sum of its words, which has nothing at the positions that are counted: those above the
    // 32nd.
    const u32 mask = ntohl(words[0] + words[1] + words[2] + words[3]);
    if (((0U - mask) & (0U - mask - 1)) != 0) {
        TESSEL_ERR("the mask is invalid!");
        return -1;
    }
    if (wSinFamily != TESSEL_FAMILY_INET) return 0;
    i32 prefix = 0;
    for (int position = 31; position > 0 && (mask >> position & 1) != 0; --position)
        ++prefix;
    return prefix;
}

i32 LinuxDhcpcStart(const char* achDevName, u16 wDnsDynmic) {
    const InterfaceProcess client = ClientV4(achDevName);
    if (const pid_t pid = client.Find(); pid > 0) {
        TESSEL_PRT(" %s dhcpc already start.", achDevName);
        tessel::RenewFromScratch(client, pid);
        return 0;
    }
    if (!tessel::HasScript(kScript)) return -1;
    tessel::CommandLine command;
    if (!tessel::ComposeClientV4(command, achDevName, wDnsDynmic)) return -1;
    TESSEL_DBG("%s", command.text);
    return tessel::StartClient(command);
}

i32 LinuxDhcpcStop(const char* achDevName) {
    const InterfaceProcess client = ClientV4(achDevName);
    const pid_t pid = client.Find();
    if (pid <= 0) {
        TESSEL_PERROR("dhcpc already stop.");
        return kDhcpcNotRunning;
    }
    if (tessel::KillProcess(client, pid) != 0) return -1;
    if (StopHelper(LinkLocalHelper(achDevName), "zcip client is not running!", CallSite::Current()) != 0) return -1;
    return StopHelper(Script(achDevName), "udhcpc.script is not running!", CallSite::Current());
}

i32 StartDhcpcV4(TDhcpcInfo* ptDhcpcInfo) {
    constexpr int kLooks = 3;
    const char* const name = InterfaceOf(*ptDhcpcInfo);
    if (tessel::StartWorker(*ptDhcpcInfo, "TesselDhcpcProcessThread", &DhcpcProcessThread) != 0) return -1;
    (void)LinuxDhcpcStart(name, ptDhcpcInfo->wDnsDynmic);  // whether it runs is checked below
    if (!tessel::AwaitClient(ClientV4(name), kLooks)) return -1;
    TESSEL_PRT("%s dhcpc already start.", name);
    return 0;
}

i32 StopDhcpcV4(TDhcpcInfo* ptDhcpcInfo) {
    constexpr int kLooks = 4;
    const char* const name = InterfaceOf(*ptDhcpcInfo);
    if (ptDhcpcInfo->isRunning.exchange(0) == 0) {
        TESSEL_PRT("dhcpc already stop");
        tessel::RemoveSession(*ptDhcpcInfo);
        return 0;
    }
    tessel::EndWorker(*ptDhcpcInfo);
    const i32 result = LinuxDhcpcStop(name);
    for (int look = 1; ClientV4(name).Find() > 0; ++look) {
        if (look == kLooks) {
            TESSEL_ERR("maybe dhcp also in exiting process");
            return result;
        }
        sleep(1);
    }
    TESSEL_PRT("dhcpc has stopped.");
    return result;
}
