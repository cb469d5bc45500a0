// The daemon's answers as documents with the keys that every command uses. Without one: a Failure about `asked`.
#pragma once

#include "client/ctl/fields.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

// {"interface", "addresses": [{"address", "prefix_length", "family", "scope", "dynamic", "tentative"}], "truncated"};
// `family` may be both.
[[nodiscard]] Json DaemonAddresses(std::string_view asked, const std::string& interfaceName, int family);

// {"interface" or null, "family", "gateway" or null, "learnt", "table"} of one family. An empty name stands for any
// interface. A table that does not exist has no gateway.
[[nodiscard]] Json DaemonGateway(std::string_view asked, const std::string& name, int family, u32 table = kMainTable);

// [{"interface", "metric"}]: the metrics of IPv4 default routes.
[[nodiscard]] Json DaemonPriorities(std::string_view asked);

// The kernel's default routes of a family through an interface (or through any, when the name is empty), in its order.
// None also when the daemon is known to live in another network.
[[nodiscard]] Json DefaultRoutes(const std::string& interfaceName, int family, u32 table = kMainTable);

// Runs `add` for the interface that was named, or for every interface when the name is empty: then one for which the
// daemon answers -1, because it has just gone away, or whose name cannot be sent, leaves its failure in the outcome and
// does not hide the others.
void ForEachInterface(const std::string& named, Outcome& outcome, const std::function<void(const std::string&)>& add);

// What the bonding driver says: {"interface": "bond0", "mode", "active", "members": [{"member", "link", "mac"}]}; null:
// there is no bond.
[[nodiscard]] Json ReadBond();

// A reply to this code as a document, by its field table.
template <typename Reply>
[[nodiscard]] Json Decoded(u32 code, const Reply& reply) {
    const void* const bytes = &reply;
    return Decode(FindMessage(code)->reply, {static_cast<const u8*>(bytes), sizeof(reply)});
}

// Whether a record has these members: {{"interface", "eth0"}, {"metric", 5}}.
[[nodiscard]] bool HasAll(const Json& record, const Json& members);

// The first record of a list that has them; null: none has, and [] finds nulls in that too.
[[nodiscard]] Json FindIn(const Json& list, const Json& members);
[[nodiscard]] inline Json FindIn(const Json& list, const char* key, const Json& value) {
    return FindIn(list, {{key, value}});
}

// "192.168.1.20/24"; "10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5", with the table unless it is the main one.
[[nodiscard]] std::string AddressText(const Json& address);
[[nodiscard]] std::string RouteText(const Json& route);

// A change after which the kernel has one entry more, or one fewer, in a list that the daemon does not report whole.
struct EntryChange {
    bool isAdded;
    const char* what;            // "route"
    std::function<Json()> list;  // the kernel's, in its order
    std::string (*text)(const Json& entry);
    std::function<int()> send;
    Json meant;    // members of the entry that the words describe
    Json matched;  // of what is in the way, or of what the kernel takes for it: the first such entry is removed
    std::function<std::string()> cause = {};  // of a failure with none of these
};
// The document is the entry that was added or removed; null: none was, or the kernel's answer says nothing.
[[nodiscard]] Outcome PerformEntry(const Invocation& invocation, const EntryChange& entry);

// On the wire, 0 is the main table.
[[nodiscard]] inline u32 WireTable(u32 table) {
    return table == kMainTable ? 0 : table;
}
[[nodiscard]] inline const char* NameOrNull(const std::string& interfaceName) {
    return interfaceName.empty() ? nullptr : interfaceName.c_str();
}

}  // namespace tessel::ctl
