// Routes as they are shown, whoever told them.
#pragma once

#include <string>

#include "client/ctl/kernel_routes.h"
#include "client/ctl/next_hop.h"
#include "core/types.h"
#include "tessel/route.h"
#include <nlohmann/json_fwd.hpp>

namespace tessel::ctl {

// rtnetlink(7), RT_TABLE_MAIN: where routes go that name no table.
constexpr u32 kMainTable = 254;
// The daemon writes table numbers, marks and metrics with a sign.
constexpr u32 kNumberMax = 0x7fffffff;

// A route of the daemon in the kernel's form.
[[nodiscard]] KernelRoute ShowRoute(const TNetIpRouteParam& record, u32 table);

// "10.1.0.0/16", a length of 0 included.
[[nodiscard]] std::string NetworkText(const TNetGateway& network, i32 prefixLength);

// "10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5", with the table unless it is the main one.
[[nodiscard]] std::string RouteText(const KernelRoute& route);

// destination prefix_length gateway interface metric family
[[nodiscard]] nlohmann::ordered_json RouteJson(const KernelRoute& route);

// The two halves of "10.1.0.0/16"; empty stands for everything of the family.
struct SplitNetwork {
    std::string address;
    u32 prefixLength;
};
[[nodiscard]] SplitNetwork SplitNetworkText(const std::string& network, int family);

}  // namespace tessel::ctl
