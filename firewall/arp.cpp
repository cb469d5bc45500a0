#include "firewall/arp.h"

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "firewall/rule.h"

using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::FieldText;
using tessel::IsRuleWord;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kAdd[] = "arp arp -s %s %s";
constexpr char kAddOnDevice[] = "arp arp -s -i %s %s %s";
constexpr char kDel[] = "arp arp -d %s";
constexpr char kDelOnDevice[] = "arp arp -d %s -i %s";

}  // namespace

i32 AddArpEntry(const ArpEntryInfo* info) {
    if (info == nullptr) {
        TESSEL_ERR("ptArpInfo is null");
        return -1;
    }
    const FieldText device(info->achDevName);
    const FieldText mac(info->achMac);
    const FieldText ip(info->achIp);
    if (ip.IsEmpty() || mac.IsEmpty()) {
        TESSEL_ERR(" ip or mac is null");
        return -1;
    }
    if (!IsRuleWord(ip.Get()) || !IsRuleWord(mac.Get())) return -1;
    CommandLine line;
    if (device.IsEmpty()) {
        if (!ComposeCommand(line, kAdd, ip.Get(), mac.Get())) return -1;
    } else if (!IsRuleWord(device.Get()) || !ComposeCommand(line, kAddOnDevice, device.Get(), ip.Get(), mac.Get())) {
        return -1;
    }
    return tessel::RunLine(line, tessel::kCommandFailed);
}

i32 DelArpEntry(const ArpEntryInfo* info) {
    if (info == nullptr) {
        TESSEL_ERR("ptArpInfo is null");
        return -1;
    }
    const FieldText device(info->achDevName);
    const FieldText ip(info->achIp);
    if (!IsRuleWord(ip.Get())) return -1;
    CommandLine line;
    if (device.IsEmpty()) {
        if (!ComposeCommand(line, kDel, ip.Get())) return -1;
    } else if (!IsRuleWord(device.Get()) || !ComposeCommand(line, kDelOnDevice, ip.Get(), device.Get())) {
        return -1;
    }
    return tessel::RunLine(line, tessel::kCommandFailed);
}
