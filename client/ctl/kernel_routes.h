// Routes and rules as the kernel has them, over rtnetlink, without the daemon.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/types.h"

namespace tessel::ctl {

struct KernelRoute {
    int family = 0;             // TESSEL_FAMILY_INET or _INET6
    std::string destination;    // "10.1.0.0/16"; empty: a default route
    std::string gateway;        // empty: none, the network is on the link
    std::string interfaceName;  // empty: none (unreachable and the like)
    u32 metric = 0;
    u32 table = 0;
    bool isLearnt = false;  // from a router advertisement
};

// The unicast routes of a family (or of both: IPv4 first) in a table, in the kernel's order.
[[nodiscard]] std::vector<KernelRoute> KernelRoutes(int family, u32 table);

struct KernelRule {
    int family = 0;
    u32 preference = 0;
    std::string source;  // "192.168.1.0/24"; empty: all
    std::optional<u32> mark;
    u32 table = 0;                    // 0: the rule selects none
    bool hasOtherConditions = false;  // beyond source and mark: destination, interface, mask of the mark ...
};

// Every rule of a family (or of both: IPv4 first), in the order in which the kernel asks them.
[[nodiscard]] std::vector<KernelRule> KernelRules(int family);

}  // namespace tessel::ctl
