// What --dry-run calls for requests whose handlers also start workers, write files or send packets: the parts of the
// same operations that run tools. Each is a Handler.
#include "addr/mac.h"
#include "client/call.h"
#include "client/ctl/device.h"
#include "client/ctl/perform.h"
#include "core/api_reply.h"
#include "core/exec_note.h"
#include "core/netif.h"
#include "core/text.h"
#include "probe/ping.h"
#include "probe/router/router_solicitation.h"
#include "probe/router/router_watch.h"
#include "services/bond.h"
#include "services/dhcp_server.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"
#include "services/pppoe.h"

namespace tessel::ctl {

namespace {

using NameField = char[TESSEL_NAME_SIZE];

i32 PlanClient(int fd, u32 type, const NameField& field, u16 family, u16 wDnsDynmic) {
    const FieldText name(field);
    const bool isInet = family == TESSEL_FAMILY_INET;
    const InterfaceProcess client = isInet ? ClientV4(name.Get()) : ClientV6(name.Get());
    const bool isPossible = IsInterfaceName(name.Get()) && (isInet || family == TESSEL_FAMILY_INET6);
    if (!isPossible || client.Find() > 0) return ApiReplyStatus(fd, type, isPossible ? 0 : -1);
    CommandLine line;
    const bool isComposed =
        isInet ? ComposeClientV4(line, name.Get(), wDnsDynmic) : ComposeClientV6(line, name.Get(), wDnsDynmic);
    return ApiReplyStatus(fd, type, isComposed ? StartClient(line) : -1);
}

bool IsServed(const NameField& field, u16 family) {
    TNetDhcpsReq server{};
    memcpy(server.achDevName, field, sizeof(field));
    server.wSinFamily = family;
    TNetStatusReply reply{};
    return CallDaemon(TESSEL_CMD_DHCPS_GET_STATUS, &server, sizeof(server), &reply, sizeof(reply)) == TESSEL_OK &&
           reply.nResult == 1;
}

}  // namespace

i32 PlanDhcpcStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcStartReq>(payload, size);
    return PlanClient(fd, type, request.achDevName, request.wSinFamily, 1);
}

i32 PlanDhcpcStartEx(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcStartExReq>(payload, size);
    return PlanClient(fd, type, request.achDevName, request.wSinFamily, request.wDnsDynmic);
}

i32 PlanDhcpcStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcReq>(payload, size);
    const FieldText name(request.achDevName);
    const auto stop = request.wSinFamily == TESSEL_FAMILY_INET ? &LinuxDhcpcStop : &LinuxDhcpcStopV6;
    return ApiReplyStatus(fd, type, stop(name.Get()) == -1 ? -1 : 0);  // without a client there is nothing to fail
}

i32 PlanDhcpsStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpsStartReq>(payload, size);
    CommandLine line;
    const bool isPlanned = request.wSinFamily == TESSEL_FAMILY_INET &&
                           !IsServed(request.achDevName, request.wSinFamily) &&
                           ComposeDhcpServer(line, FieldText(request.achDevName).Get(), request.tConf);
    return ApiReplyStatus(fd, type, isPlanned ? StartDetached(line) : -1);
}

i32 PlanDhcpsStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpsReq>(payload, size);
    const bool isServed = IsServed(request.achDevName, request.wSinFamily);
    return ApiReplyStatus(fd, type, isServed ? EndDhcpServer(FieldText(request.achDevName).Get()) : 0);
}

i32 PlanPppoeStart(int fd, u32 type, const void* payload, i32 size) {
    auto request = ApiRequest<TNetPppoeStartReq>(payload, size);
    if (request.tConf.achPassword[0] != '\0') strcpy(request.tConf.achPassword, "PASSWORD");  // it is shown to nobody
    CommandLine line;
    const bool isPlanned = ComposePppoe(line, request.wSinFamily, request.tConf);
    return ApiReplyStatus(fd, type, isPlanned ? StartDetachedShell(line.text) : -1);
}

// The bond is the daemon's: one that the kernel has is made again, above the noted tools.
i32 PlanBondStop(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    const Json known = ReadBond();
    if (known.is_null()) return ApiReplyStatus(fd, type, 0);
    TBondParam bond;
    bond.pchActiveIface.reset(strdup(TextOf(known, "active").c_str()));
    for (const Json& member : known["members"]) {
        if (bond.dwIfaceNum < bond.achIface.size())
            bond.achIface.at(bond.dwIfaceNum++).reset(strdup(TextOf(member, "member").c_str()));
    }
    const bool isMade = BondStart(0, std::move(bond)) == 0;
    (void)TakeToolLines();
    return ApiReplyStatus(fd, type, isMade ? BondStop() : 0);
}

i32 PlanPingStart(int fd, u32 type, const void* payload, i32 size) {
    CommandLine line;
    const bool isPlanned = ComposePing(line, ApiRequest<TNetPingStartReq>(payload, size));
    return ApiReplyStatus(fd, type, isPlanned ? RunForStatus(line) : -1);
}

i32 PlanRouterAdvertiseStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouterStartReq>(payload, size);
    const FieldText name(request.achDevName);
    if (!IsInterfaceName(name.Get())) return ApiReplyStatus(fd, type, -1);
    char text[kLinkAddrMax + 1];
    u8 mac[6];
    TNetIfaceIp addresses{};
    TNetGateway gateway{};
    if (GetLinkAddr(name.Get(), text) == 0) (void)MacaddrGet(name.Get(), mac);
    if (GetGlobalIpaddrV6(name.Get(), &addresses) == 0) (void)GetRaGateWayV6(name.Get(), &gateway);
    return ApiReplyStatus(fd, type, 0);
}

}  // namespace tessel::ctl
