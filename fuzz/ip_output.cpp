// What `ip` prints of addresses and routes. The first byte chooses who reads it.
#include "addr/address.h"
#include "core/exec_note.h"
#include "fuzz/fuzz.h"
#include "route/gateway.h"
#include "route/route_list.h"

namespace tessel::fuzz {

namespace {

void CheckAddresses(const TNetIfaceIp& list) {
    Require(list.dwNum <= TESSEL_ADDRESSES_MAX);
    for (const TNetIpAddr& entry : AddressesOf(list)) {
        Require(entry.wSinFamily == TESSEL_FAMILY_INET || entry.wSinFamily == TESSEL_FAMILY_INET6);
        Require(entry.dwScope <= TESSEL_SCOPE_GLOBAL && entry.bTentative <= 1 && entry.bDynamic <= 1);
    }
}

void CheckRoutes(const TNetAllRouteInfo& list) {
    Require(list.dwNum <= TESSEL_ROUTES_MAX);
    for (u32 i = 0; i < list.dwNum; ++i) {
        const u16 family = list.atRoute[i].tDestIpNet.wSinFamily;
        Require(family == 0 || family == TESSEL_FAMILY_INET || family == TESSEL_FAMILY_INET6);
    }
}

}  // namespace

std::vector<std::string> Seeds() {
    const std::string addresses =
        "2: eth0@if3: <BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500 qdisc noqueue state UP group default qlen 1000\n"
        "    link/ether 72:23:f2:8d:c7:80 brd ff:ff:ff:ff:ff:ff link-netns far\n"
        "    inet 192.168.1.20/24 brd 192.168.1.255 scope global eth0\n       valid_lft forever preferred_lft forever\n"
        "    inet6 2001:db8::5/64 scope global dynamic mngtmpaddr\n    inet6 fe80::1/64 scope link tentative\n";
    const std::string routes =
        "default via 10.5.1.1 dev eth0 metric 5 \n10.1.0.0/16 via 10.0.0.1 dev eth1 proto static metric 5 \n"
        "fd00::/32 via fe80::1 dev eth0 metric 1024 expires 1799sec pref medium\nfe80::/64 dev eth0 proto kernel\n";
    std::vector<std::string> seeds;
    for (char reader = 0; reader < 6; ++reader)
        seeds.insert(seeds.end(), {reader + addresses, reader + routes});
    return seeds;
}

void TryInput(Input input) {
    const int reader = input.Take<u8>() % 6;
    const std::string output = input.TakeText();
    AnswerTools([&](const std::string&) { return ToolAnswer{output}; });
    TNetIfaceIp addresses{};
    TNetAllRouteInfo routes{};
    TNetGateway gateway{};
    u32 expires = 0;
    if (reader == 0) (void)IpaddrGet("eth0", TESSEL_FAMILY_BOTH, &addresses);
    if (reader == 1) (void)IpaddrGetEx("eth0", TESSEL_FAMILY_INET6, &addresses);
    if (reader == 2) {
        ipaddr_show_info info{};
        const i32 status = ipaddr_show_filter("eth0", &info);
        Require((status == 0 || status == -1) && info.num <= TESSEL_ADDRESSES_MAX);
    }
    if (reader == 3) (void)AllRoutesGet(TESSEL_FAMILY_BOTH, &routes);
    if (reader == 4) {
        (void)GetGateWayV4("eth0", &gateway);
        TNetGatewayMetric metric{.achDevName = "eth0", .nMetric = 0, .tGateway = {}};
        (void)GetGateWayV4WithMetric(&metric);
        Require(strcmp(metric.achDevName, "eth0") == 0);
    }
    if (reader == 5) {
        (void)GetGateWayV6Ex("eth0", &gateway, &expires);
        (void)CheckGateWay("eth0", "fe80::1");
        Require(expires <= 1);
    }
    CheckAddresses(addresses);
    CheckRoutes(routes);
    for (const std::string& line : TakeToolLines())
        Require(line.find(" show") != std::string::npos);
}

}  // namespace tessel::fuzz
