// Metrics of IPv4 default routes. The daemon always answers success: what it took is read back.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

constexpr char kMoved[] = "default route moved";

Json DefaultRoute(const std::string& name) {
    const Json routes = DefaultRoutes(name, TESSEL_FAMILY_INET);
    return routes.empty() ? Json() : routes[0];
}

// A member of a record that may be null.
Json MemberOf(const Json& record, const char* key) {
    return record.is_null() ? Json() : record.at(key);
}

Outcome ShowPriority(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = Json::array();
    for (const Json& entry : DaemonPriorities(invocation.asked)) {
        const Json route = DefaultRoute(TextOf(entry, "interface"));
        outcome.document.push_back({{"interface", entry.at("interface")},
                                    {"priority", entry.at("metric")},
                                    {"gateway", MemberOf(route, "gateway")},
                                    {"metric", MemberOf(route, "metric")}});
    }
    if (outcome.document.empty()) outcome.notes.emplace_back("no priorities are set: IPv4 gateways get metric 0");
    return outcome;
}

// Throws unless the list may be sent. The daemon takes the first interface whose name begins with the one it is sent.
void CheckNames(const Invocation& invocation, const std::vector<std::string>& names, const Json& before) {
    if (names.size() > TESSEL_PRIORITIES_MAX)
        throw Refused(invocation.asked, Format("{} interfaces at most", int{TESSEL_PRIORITIES_MAX}));
    for (const std::string& name : names) {
        if (std::count(names.begin(), names.end(), name) > 1) throw Refused(invocation.asked, name + " is named twice");
        const auto other = std::find_if(before.begin(), before.end(), [&](const Json& entry) {
            return TextOf(entry, "interface").starts_with(name);
        });
        if (other != before.end() && TextOf(*other, "interface") != name) {
            throw Refused(invocation.asked,
                          Format("the daemon would change {} instead: it takes the first name that begins with \"{}\"",
                                 TextOf(*other, "interface"), name));
        }
    }
}

std::string WhyFixed(const std::vector<std::string>& names, const Json& before) {
    if (!before.empty()) return "";
    for (const std::string& name : names) {
        std::string missing = MissingInterface(name);
        if (!missing.empty()) return missing + ", and the first list fixes the interfaces until the daemon restarts";
    }
    return "";
}

// What became of one interface: {"interface", "previous", "priority", "taken", "remark" or null}.
Json ResultOf(const std::string& name, u32 metric, const Json& previous, const Json& now, const Json& routeBefore) {
    Json result{{"interface", name},
                {"previous", MemberOf(FindIn(previous, "interface", name), "metric")},
                {"priority", MemberOf(FindIn(now, "interface", name), "metric")}};
    result["taken"] = result["priority"] == metric;
    result["remark"] = nullptr;
    const Json route = DefaultRoute(name);
    if (result["taken"] == false) {
        result["remark"] = result["priority"].is_null() ? "not taken: the set of interfaces is fixed by the first "
                                                          "\"priority set\" until the daemon restarts"
                                                        : "not taken";
    } else if (route.is_null() && !routeBefore.is_null()) {
        result["remark"] = "its default route is gone";
    } else if (!route.is_null() && route.at("metric") != metric) {
        result["remark"] = Format("its default route still has metric {}", NumberOf(route, "metric"));
    } else if (!route.is_null() && !routeBefore.is_null() && routeBefore.at("metric") != metric) {
        result["remark"] = kMoved;
    }
    return result;
}

Outcome SetPriority(const Invocation& invocation) {
    const auto names = invocation.words.All<std::string>("IF");
    const auto metrics = invocation.words.All<u32>("N");
    const Json before = DaemonPriorities(invocation.asked);
    CheckNames(invocation, names, before);
    TNetPrioParamList list{};
    std::vector<Json> routes;
    for (std::size_t i = 0; i < names.size(); ++i) {
        memcpy(list.atPrio[i].achDevName, names[i].data(), names[i].size());
        list.atPrio[i].nPriority = static_cast<i32>(metrics[i]);
        routes.push_back(DefaultRoute(names[i]));
    }
    list.dwNum = static_cast<u32>(names.size());
    Change change{.send = [&] { return tessel_priority_set(&list); }};
    change.guard = [&] { return WhyFixed(names, before); };
    change.read = [&] {
        const Json after = DaemonPriorities(invocation.asked);
        Json results = Json::array();
        for (std::size_t i = 0; i < names.size(); ++i)
            results.push_back(ResultOf(names[i], metrics[i], before, after, routes[i]));
        return results;
    };
    change.wrong = [](const Json& results) {
        std::vector<std::string> failed;
        for (const Json& result : results) {
            const std::string remark = TextOf(result, "remark");
            if (!remark.empty() && remark != kMoved) failed.push_back(TextOf(result, "interface"));
        }
        return failed.empty() ? "" : "it did not happen for " + Joined(failed, ", ");
    };
    Outcome outcome = Perform(invocation, change);
    if (before.empty()) outcome.notes.emplace_back("the set of interfaces is fixed now until the daemon restarts");
    return outcome;
}

constexpr Command kPriorityCommands[] = {
    Row("show", "", &ShowPriority, "the priorities, with the default routes that they are for", "priority show")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .Columns("INTERFACE {interface}|PRIORITY {priority}|GATEWAY {gateway}|METRIC {metric}"),
    Row("set", "IF N:0-2147483647 [IF N:0-2147483647]...", &SetPriority,
        "set metrics of interfaces (lower wins), and read them back", "priority set eth0 10 eth1 20")
        .Sends(TESSEL_CMD_PRIORITY_SET, TESSEL_CMD_PRIORITY_GET)
        .Columns("INTERFACE {interface}|BEFORE {previous}|NOW {priority}|REMARK {remark}")
        .More("The first time since the daemon's start fixes the set of interfaces. IPv4 default routes move to "
              "their new metric at once; for a moment there is none."),
};

}  // namespace

extern const Object kPriority = {
    .name = "priority", .summary = "which uplink is preferred", .commands = kPriorityCommands};

}  // namespace tessel::ctl
