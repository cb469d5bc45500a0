#include "firewall/arp.h"

#include "core/exec.h"
#include "core/log.h"
#include "core/netif.h"
#include "core/text.h"
#include "firewall/word.h"

using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::FieldText;
using tessel::IsAddressWord;
using tessel::IsInterfaceName;

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
    if (!IsAddressWord(tessel::kInet, ip.Get()) || !tessel::IsMacWord(mac.Get())) return -1;
    if (!device.IsEmpty() && !IsInterfaceName(device.Get())) return -1;
    CommandLine line;
    const bool isComposed = device.IsEmpty() ? ComposeCommand(line, kAdd, ip.Get(), mac.Get())
                                             : ComposeCommand(line, kAddOnDevice, device.Get(), ip.Get(), mac.Get());
    return isComposed ? tessel::RunChange(line, {.name = ""}) : -1;
}

i32 DelArpEntry(const ArpEntryInfo* info) {
    if (info == nullptr) {
        TESSEL_ERR("ptArpInfo is null");
        return -1;
    }
    const FieldText device(info->achDevName);
    const FieldText ip(info->achIp);
    if (!IsAddressWord(tessel::kInet, ip.Get())) return -1;
    if (!device.IsEmpty() && !IsInterfaceName(device.Get())) return -1;
    CommandLine line;
    const bool isComposed = device.IsEmpty() ? ComposeCommand(line, kDel, ip.Get())
                                             : ComposeCommand(line, kDelOnDevice, ip.Get(), device.Get());
    return isComposed ? tessel::RunChange(line, {.name = ""}) : -1;
}
