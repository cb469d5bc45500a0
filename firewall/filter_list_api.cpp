#include "firewall/filter_list_api.h"

#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "firewall/filter_list.h"
#include "firewall/icmp_filter.h"
#include "firewall/port_filter.h"
#include "tessel/firewall.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::ApiText;

i32 ApidIpFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpFilterReq>(payload, size);
    const i32 result = IpFilterListManage(request.eCmd, request.tFilter);
    if (result != 0) TESSEL_ERR("IpFilterListManage error!");
    return ApiReplyStatus(fd, type, result);
}

i32 ApidMacFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMacFilterReq>(payload, size);
    const ApiText mac(payload, size, sizeof(request));
    const i32 result = MacFilterListManage(request.eCmd, mac.Get());
    if (result != 0) TESSEL_ERR("IpRuleDel error!");  // the words of the policy rules
    return ApiReplyStatus(fd, type, result);
}

i32 ApidIpAndMacFilterListManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpMacFilterReq>(payload, size);
    const ApiText ip(payload, size, sizeof(request));
    const i32 result = IpMacFilterListManage(request.eCmd, tessel::FieldText(request.achMac).Get(), ip.Get());
    if (result != 0) TESSEL_ERR("IpRuleDel error!");  // the words of the policy rules
    return ApiReplyStatus(fd, type, result);
}

i32 ApidIcmpManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIcmpFilterReq>(payload, size);
    const i32 result = IcmpFilterManage(request.eType);
    if (result != 0) TESSEL_ERR("IcmpFilterManage error!");
    return ApiReplyStatus(fd, type, result);
}

i32 ApidPortFilterManage(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetPortFilterReq>(payload, size);
    const i32 result = PortFilterManage(request.eCmd, request.tFilter);
    if (result != 0) TESSEL_ERR("PortFilterManage error!");
    return ApiReplyStatus(fd, type, result);
}
