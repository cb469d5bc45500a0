// The daemon's answers as documents with the keys that every command uses. All throw a Failure about `asked` when there
// is no answer.
#pragma once

#include "client/ctl/kernel.h"

namespace tessel::ctl {

// {"interface", "addresses": [{"address", "prefix_length", "family", "scope", "dynamic", "tentative"}], "truncated"};
// `family` may be both.
[[nodiscard]] Json DaemonAddresses(std::string_view asked, const std::string& interfaceName, int family);

// {"interface" or null, "family", "gateway" or null, "learnt", "table"} of one family. An empty name stands for
// whatever interface. A table that does not exist has no gateway.
[[nodiscard]] Json DaemonGateway(std::string_view asked, const std::string& interfaceName, int family,
                                 u32 table = kMainTable);

// [{"interface", "metric"}]: the metrics of IPv4 default routes.
[[nodiscard]] Json DaemonPriorities(std::string_view asked);

// {"routes": [{"destination": "10.1.0.0/16", "gateway" or null, "interface" or null, "metric", "table", "family"}],
//  "truncated"}; `family` may be both.
[[nodiscard]] Json DaemonRoutes(std::string_view asked, int family);

// The kernel's default routes of a family through an interface (or whatever one, when the name is empty), in its order.
// None also when the daemon is known to live in another network.
[[nodiscard]] Json DefaultRoutes(const std::string& interfaceName, int family, u32 table = kMainTable);

// Runs `add` for the interface that was named, or for each of them when the name is empty: then one that the daemon
// answers -1 for, as it goes away meanwhile, leaves its failure in the outcome and does not hide the others.
void ForEachInterface(const std::string& named, Outcome& outcome, const std::function<void(const std::string&)>& add);

// The element of a list whose member has this value; null: there is none.
[[nodiscard]] Json FindIn(const Json& list, const char* key, const Json& value);

// "192.168.1.20/24"; "192.168.1.20/24  2001:db8::5/64"; "10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5", with the
// table unless it is the main one.
[[nodiscard]] std::string AddressText(const Json& address);
[[nodiscard]] std::string AddressesText(const Json& addresses);
[[nodiscard]] std::string RouteText(const Json& route);

// Adds what there is to know beside a failure; empty: nothing.
void AddSentence(Failure& failure, std::string_view sentence);

// On the wire, 0 is the main table.
[[nodiscard]] inline u32 WireTable(u32 table) {
    return table == kMainTable ? 0 : table;
}
[[nodiscard]] inline const char* NameOrNull(const std::string& interfaceName) {
    return interfaceName.empty() ? nullptr : interfaceName.c_str();
}

}  // namespace tessel::ctl
