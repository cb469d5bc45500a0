// What the kernel knows without the daemon, by rtnetlink: documents with the keys that every command uses.
#pragma once

#include "client/ctl/command.h"
#include "core/unique_fd.h"

struct nlmsghdr;

namespace tessel::ctl {

// rtnetlink(7), RT_TABLE_MAIN: where routes that name no table go.
constexpr u32 kMainTable = 254;
constexpr u32 kAllTables = 0;

// Every interface of this process's network namespace, in the kernel's order:
//   {"interface", "state": "up"/"down"/"no carrier", "mtu", "mac" or null, "kind" ("veth", "bond" ...) or null,
//    "addresses": [{"address", "prefix_length", "family", "scope", "dynamic", "tentative"}]}
[[nodiscard]] Json KernelLinks();
// One of them; null: there is none of this name.
[[nodiscard]] Json KernelLink(const std::string& name);

// Unicast routes of a family (or of both: IPv4 first) in a table, in the kernel's order:
//   {"destination": "10.1.0.0/16" or "default", "gateway" or null, "interface" or null, "metric", "table", "family",
//    "learnt": from a router advertisement}
[[nodiscard]] Json KernelRoutes(int family, u32 table = kMainTable);

// Rules in the order in which the kernel tries them:
//   {"pref", "from": "192.168.1.0/24" or "all", "fwmark" or null, "table" (0: none), "family",
//    "other_conditions": beyond those two}
[[nodiscard]] Json KernelRules(int family);

// Neighbours: {"address", "mac" or null, "interface", "state": "permanent" ..., "family"}
[[nodiscard]] Json KernelNeighbours(int family);

// The route that a packet takes: as above, with "source" or null, and "local" for the device's own addresses.
// Null: none, and `problem` says why.
[[nodiscard]] Json KernelRouteTo(const Network& to, const Network* from, std::optional<u32> mark, std::string& problem);

// A message of rtnetlink as such a document; for one that is not part of a list, with "event" ("link", "addr", "route",
// "rule", "neighbour") and "action" ("added", "removed") in front. Null: of a kind that is not shown. With isWay:
// routes of every type, as KernelRouteTo has them.
[[nodiscard]] Json FromKernel(const nlmsghdr* message, bool isWay);

// Follows links, addresses, routes and rules.
class KernelFollower {
  public:
    KernelFollower();
    [[nodiscard]] int Fd() const {
        return socket_.Get();
    }
    // The changes that can be read now, without waiting; `isCut` becomes true when some were lost.
    [[nodiscard]] Json Next(bool& isCut);

  private:
    UniqueFd socket_;
};

[[nodiscard]] std::vector<std::string> InterfaceNames();

// "there is no interface eth9"; empty when there is one, or none was named.
[[nodiscard]] std::string MissingInterface(const std::string& name);

// Why no route can go through this gateway, as far as addresses and interfaces tell: "there is no interface eth9",
// "eth0 is down", "192.168.9.1 is in no network of eth0 (192.168.1.20/24)". Empty: the cause lies elsewhere. An empty
// name stands for any interface.
[[nodiscard]] std::string WhyUnreachable(const Network& gateway, const std::string& interfaceName);

// Why the kernel's answer here says nothing about the daemon that this thread's last call reached: it lives in another
// network namespace, or may do so. Empty: it sees the interfaces that this process sees.
[[nodiscard]] std::string ForeignKernel();

}  // namespace tessel::ctl
