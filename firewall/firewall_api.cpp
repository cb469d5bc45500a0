#include "core/api_reply.h"
#include "core/text.h"
#include "firewall/arp.h"
#include "firewall/chain.h"
#include "firewall/filter_list.h"
#include "firewall/icmp_filter.h"
#include "firewall/port_filter.h"
#include "firewall/rule_file.h"
#include "tessel/firewall.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::ApiText;

namespace {

// For entries with a MAC: the words of the policy rules, which readers of the log know.
constexpr char kMacEntryFailed[] = "IpRuleDel error!";

}  // namespace

i32 ApidIpFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpFilterReq>(payload, size);
    return ApiReplyStatus(fd, type, IpFilterListManage(request.eCmd, request.tFilter), "IpFilterListManage error!");
}

i32 ApidMacFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMacFilterReq>(payload, size);
    const ApiText mac(payload, size, sizeof(request));
    return ApiReplyStatus(fd, type, MacFilterListManage(request.eCmd, mac.Get()), kMacEntryFailed);
}

i32 ApidIpAndMacFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpMacFilterReq>(payload, size);
    const ApiText ip(payload, size, sizeof(request));
    const tessel::FieldText mac(request.achMac);
    return ApiReplyStatus(fd, type, IpMacFilterListManage(request.eCmd, mac.Get(), ip.Get()), kMacEntryFailed);
}

i32 ApidFilterEnable(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFilterSwitchReq>(payload, size);
    return ApiReplyStatus(fd, type, FilterEnable(request.eType), "FilterEnable error!");
}

i32 ApidFilterDisable(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFilterSwitchReq>(payload, size);
    return ApiReplyStatus(fd, type, FilterDisable(request.eType), "FilterDisable error!");
}

i32 ApidAddChain(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetChainAddReq>(payload, size);
    const ApiText name(payload, size, sizeof(request));
    return ApiReplyStatus(fd, type, AddChain(request.wIpType, name.Get()));
}

i32 ApidIcmpManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIcmpFilterReq>(payload, size);
    return ApiReplyStatus(fd, type, IcmpFilterManage(request.eType), "IcmpFilterManage error!");
}

i32 ApidPortFilterManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetPortFilterReq>(payload, size);
    return ApiReplyStatus(fd, type, PortFilterManage(request.eCmd, request.tFilter), "PortFilterManage error!");
}

i32 ApidFirewallSave(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFirewallFileReq>(payload, size);
    const ApiText path(payload, size, sizeof(request));
    return ApiReplyStatus(fd, type, SaveFirewall(request.eIpType, path.Get()));
}

i32 ApidFirewallRestore(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFirewallFileReq>(payload, size);
    const ApiText path(payload, size, sizeof(request));
    return ApiReplyStatus(fd, type, RestoreFirewall(request.eIpType, path.Get()));
}

i32 ApidAddArp(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<ArpEntryInfo>(payload, size);
    return ApiReplyStatus(fd, type, AddArpEntry(&request));
}

i32 ApidDelArp(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<ArpEntryInfo>(payload, size);
    return ApiReplyStatus(fd, type, DelArpEntry(&request));
}
