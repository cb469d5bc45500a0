// Interfaces: MTU, hardware address, and the metrics of their IPv4 default routes. The daemon always answers success to
// those: what it took is read back.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"
#include "core/text.h"

namespace tessel::ctl {

namespace {

Outcome ShowLink(const Invocation& invocation) {
    const std::string named = invocation.words.Text("IF");
    Outcome outcome{.document = Json::array()};
    ForEachInterface(named, outcome, [&](const std::string& name) {
        Json link = KernelLink(name);
        ipaddr_show_info info{};
        u32 mtu = 0;
        int error = tessel_addr_show(name.c_str(), &info);
        // It fails as a whole where there is no Ethernet address.
        const bool isKernels = error == TESSEL_E_FAILED && !link.is_null();
        if (isKernels) error = tessel_mtu_get(name.c_str(), &mtu);
        Require(invocation.asked, error, MissingInterface(name));
        if (isKernels && !named.empty())
            outcome.notes.push_back(name + ": the daemon reports no hardware address, this is the kernel's");
        outcome.document.push_back({{"interface", name},
                                    {"state", NullIfEmpty(TextOf(link, "state"))},
                                    {"mtu", isKernels ? mtu : static_cast<u32>(info.mtu)},
                                    {"mac", NullIfEmpty(isKernels ? TextOf(link, "mac") : FieldText(info.mac).Get())},
                                    {"addresses", link["addresses"]}});
    });
    return outcome;
}

Outcome ShowMtu(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    u32 mtu = 0;
    Require(invocation.asked, tessel_mtu_get(name.c_str(), &mtu), MissingInterface(name));
    return {.document = {{"interface", name}, {"mtu", mtu}}};
}

Outcome SetMtu(const Invocation& invocation) {
    constexpr u32 kInet6Least = 1280;  // RFC 8200
    const std::string name = invocation.words.Text("IF");
    const auto mtu = invocation.words.Get<u32>("mtu");
    Change change{.send = [&] { return tessel_mtu_set(name.c_str(), mtu); }, .done = Format("{}   mtu {}", name, mtu)};
    change.guard = [&] {
        const auto session = GuardedSession(invocation.options);
        const bool isInet6 = session && session->peer.family == TESSEL_FAMILY_INET6;
        return isInet6 && mtu < kInet6Least ? CutsSessionOn(invocation.options, name) : "";
    };
    change.cause = [&] {
        const std::string missing = MissingInterface(name);
        return missing.empty() ? name + " does not take this size" : missing;
    };
    change.read = [&] { return ShowMtu(invocation).document; };
    change.wrong = [&](const Json& now) { return now["mtu"] == mtu ? "" : Format("it is {}", NumberOf(now, "mtu")); };
    Outcome outcome = Perform(invocation, change);
    if (mtu < kInet6Least)
        outcome.notes.push_back(Format("below {} the kernel takes IPv6 and its addresses off {}", kInet6Least, name));
    return outcome;
}

Outcome ShowMac(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    Mac mac{};
    const int error = tessel_mac_get(name.c_str(), mac.data());
    const std::string known = TextOf(KernelLink(name), "mac");
    std::string cause = MissingInterface(name);
    if (known.starts_with("22:")) cause = "the daemon reads no address whose first byte is 22; it is " + known;
    if (known.empty() && cause.empty()) cause = name + " has no Ethernet address";
    Require(invocation.asked, error, cause);
    return {.document = {{"interface", name}, {"mac", MacText(mac)}}};
}

// Read back from the kernel, which knows what the daemon cannot read.
Outcome SetMac(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    const auto& mac = invocation.words.Get<Mac>("mac");
    const std::string text = MacText(mac);
    // The kernel's is_valid_ether_addr().
    std::string why;
    if (mac == Mac{}) why = "is not an address";
    if ((mac[0] & 1) != 0) why = "is a multicast address (its first byte is odd)";
    if (text == "ff:ff:ff:ff:ff:ff") why = "is the broadcast address";
    if (!why.empty()) throw Refused(invocation.asked, Format("{} {}: not a valid interface address", text, why));
    Change change{.send = [&] { return tessel_mac_set(name.c_str(), mac.data()); }, .readsKernel = true};
    change.done = Format("{}   mac {}", name, text);
    change.guard = [&] { return CutsSessionOn(invocation.options, name); };
    change.cause = [&] { return MissingInterface(name); };
    change.read = [&] { return Json{{"interface", name}, {"mac", TextOf(KernelLink(name), "mac")}}; };
    change.wrong = [&](const Json& now) { return now.at("mac") == text ? "" : "the address is " + TextOf(now, "mac"); };
    return Perform(invocation, change);
}

constexpr char kMoved[] = "default route moved";

Outcome ShowPriority(const Invocation& invocation) {
    Outcome outcome{.document = Json::array()};
    for (const Json& entry : DaemonPriorities(invocation.asked)) {
        Json route = DefaultRoutes(TextOf(entry, "interface"), TESSEL_FAMILY_INET)[0];  // null: none
        outcome.document.push_back({{"interface", entry.at("interface")},
                                    {"priority", entry.at("metric")},
                                    {"gateway", route["gateway"]},
                                    {"metric", route["metric"]}});
    }
    if (outcome.document.empty()) outcome.notes = {"no priorities are set: IPv4 gateways get metric 0"};
    return outcome;
}

void CheckNames(const Invocation& invocation, const std::vector<std::string>& names, const Json& before) {
    if (names.size() > TESSEL_PRIORITIES_MAX) throw Refused(invocation.asked, "10 interfaces at most");
    for (const std::string& name : names) {
        if (std::count(names.begin(), names.end(), name) > 1) throw Refused(invocation.asked, name + " is named twice");
        const auto first = std::find_if(before.begin(), before.end(), [&](const Json& entry) {
            return TextOf(entry, "interface").starts_with(name);
        });
        if (first == before.end() || first->at("interface") == name) continue;
        throw Refused(invocation.asked,
                      Format("the daemon would change {} instead: it takes the first name that begins with \"{}\"",
                             TextOf(*first, "interface"), name));
    }
}

// What there is to say about an interface and its default route after its priority was set. Empty: all is as asked.
std::string RemarkOn(const Json& priority, u32 metric, const Json& routeBefore, const Json& route) {
    if (priority.is_null())
        return "not taken: the set of interfaces is fixed by the first \"priority set\" until the daemon restarts";
    if (priority != metric) return "not taken";
    if (routeBefore.is_null() && route.is_null()) return "";
    if (route.is_null()) return "its default route is gone";
    if (route.at("metric") != metric) return Format("its default route still has metric {}", NumberOf(route, "metric"));
    return routeBefore.is_null() || routeBefore.at("metric") == metric ? "" : kMoved;
}

Outcome SetPriority(const Invocation& invocation) {
    const auto names = invocation.words.All<std::string>("IF");
    const auto metrics = invocation.words.All<u32>("N");
    const Json before = DaemonPriorities(invocation.asked);
    CheckNames(invocation, names, before);
    TNetPrioParamList list{};
    std::vector<Json> routes;
    for (const std::string& name : names) {
        memcpy(list.atPrio[list.dwNum].achDevName, name.data(), name.size());
        list.atPrio[list.dwNum].nPriority = static_cast<i32>(metrics[list.dwNum]);
        ++list.dwNum;
        routes.push_back(DefaultRoutes(name, TESSEL_FAMILY_INET)[0]);
    }
    Change change{.send = [&] { return tessel_priority_set(&list); }};
    change.guard = [&] {
        std::string why;
        for (const std::string& name : names)
            why = before.empty() && why.empty() ? MissingInterface(name) : why;
        if (!why.empty()) why += ", and the first list decides which interfaces count until the daemon restarts";
        return why;
    };
    change.read = [&] {
        const Json after = DaemonPriorities(invocation.asked);
        Json results = Json::array();
        for (std::size_t i = 0; i < names.size(); ++i) {
            const Json priority = FindIn(after, "interface", names[i])["metric"];
            const Json route = DefaultRoutes(names[i], TESSEL_FAMILY_INET)[0];
            results.push_back({{"interface", names[i]},
                               {"previous", FindIn(before, "interface", names[i])["metric"]},
                               {"priority", priority},
                               {"taken", priority == metrics[i]},
                               {"remark", NullIfEmpty(RemarkOn(priority, metrics[i], routes[i], route))}});
        }
        return results;
    };
    change.wrong = [](const Json& results) {
        std::vector<std::string> failed;
        for (const Json& result : results) {
            if (!result.at("remark").is_null() && result.at("remark") != kMoved)
                failed.push_back(TextOf(result, "interface"));
        }
        return failed.empty() ? "" : "it did not happen for " + Joined(failed, ", ");
    };
    Outcome outcome = Perform(invocation, change);
    if (before.empty()) outcome.notes.emplace_back("the set of interfaces is fixed now until the daemon restarts");
    return outcome;
}

constexpr Command kLinkCommands[] = {
    Row("show", "[IF]", &ShowLink, "state, MTU, hardware address and addresses", "link show eth0")
        .Sends(TESSEL_CMD_IPADDR_SHOW, TESSEL_CMD_MTU_GET)
        .Columns("INTERFACE {interface}|STATE {state}|MTU {mtu}|MAC {mac}|ADDRESS {address}/{prefix_length}")
        .More("State and addresses come from the kernel; without a hardware address (lo, ppp0), all but the MTU. "
              "There is no \"link set eth0 up\" or \"down\": the daemon does not switch interfaces."),
    Row("mtu", "IF", &ShowMtu, "the largest packet in bytes", "link mtu eth0")
        .Sends(TESSEL_CMD_MTU_GET)
        .Columns(" {mtu}"),
    Row("mac", "IF", &ShowMac, "the hardware address", "link mac eth0")
        .Sends(TESSEL_CMD_MACADDR_GET)
        .Columns(" {mac}")
        .More("The daemon cannot read one whose first byte is 22."),
    Row("set", "IF mac M", &SetMac, "set the hardware address, and read it back", "link set eth0 mac 02:00:00:00:00:01")
        .Sends(TESSEL_CMD_MACADDR_SET),
    Row("set", "IF mtu N:68-65536", &SetMtu, "set the largest packet, and read it back", "link set eth0 mtu 1400")
        .Sends(TESSEL_CMD_MTU_SET, TESSEL_CMD_MTU_GET),
};

constexpr Command kPriorityCommands[] = {
    Row("show", "", &ShowPriority, "the priorities, with the default routes they apply to", "priority show")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .Columns("INTERFACE {interface}|PRIORITY {priority}|GATEWAY {gateway}|METRIC {metric}"),
    Row("set", "IF N:0-2147483647 [IF N:0-2147483647]...", &SetPriority,
        "set metrics of interfaces (lower wins), and read them back", "priority set eth0 10 eth1 20")
        .Sends(TESSEL_CMD_PRIORITY_SET, TESSEL_CMD_PRIORITY_GET)
        .Columns("INTERFACE {interface}|BEFORE {previous}|NOW {priority}|REMARK {remark}")
        .More("The first list decides which interfaces count until the daemon restarts. IPv4 default routes get their "
              "new metric immediately; for a moment there is none."),
};

}  // namespace

extern const Object kLink = {.name = "link", .summary = "state, MTU and hardware address", .commands = kLinkCommands};
extern const Object kPriority = {.name = "priority", .summary = "the preferred uplink", .commands = kPriorityCommands};

}  // namespace tessel::ctl
