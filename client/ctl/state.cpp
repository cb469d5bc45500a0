#include "client/ctl/state.h"

#include "client/ctl/device.h"
#include "client/ctl/filter.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// "link" "eth0 mtu", "addr" "eth0 -4", "priority" "eth0", "gateway" "eth0 -6"; of routes and rules the words that add
// them, with the value "there".
struct Setting {
    std::string object;
    std::string subject;
    Step values;
};
using Settings = std::vector<Setting>;

struct Difference {
    Setting wanted;
    Step had;

    [[nodiscard]] std::string Interface() const {
        return wanted.subject.substr(0, wanted.subject.find(' '));
    }
};

bool IsInet6(const std::string& text) {
    return text.find(':') != std::string::npos;
}

bool HasText(const Step& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool Contains(const Step& texts, const Step& others) {
    return std::all_of(others.begin(), others.end(), [&](const std::string& text) { return HasText(texts, text); });
}

std::string RuleWords(const Json& rule) {
    const std::string mark = rule.at("fwmark").is_null() ? "" : Format("fwmark {} ", NumberOf(rule, "fwmark"));
    return Format("from {} {}pref {} table {}", TextOf(rule, "from"), mark, NumberOf(rule, "pref"),
                  NumberOf(rule, "table"));
}

// In the order in which they are to be made.
Settings SettingsOf(const Json& state) {
    Settings settings;
    const auto list = [&](const char* key) { return state.value(key, Json::array()); };
    const auto addFamilies = [&](const char* object, const Json& link, const char* key) {
        for (const bool inet6 : {false, true}) {
            if (!link.contains(key)) continue;
            Setting setting{object, TextOf(link, "interface") + (inet6 ? " -6" : " -4"), {}};
            for (const std::string text : link.at(key)) {
                if (IsInet6(text) == inet6) setting.values.push_back(text);
            }
            settings.push_back(setting);
        }
    };
    for (const Json& link : list("interfaces")) {
        const std::string name = TextOf(link, "interface");
        if (!TextOf(link, "mac").empty()) settings.push_back({"link", name + " mac", {TextOf(link, "mac")}});
        if (link.contains("mtu")) settings.push_back({"link", name + " mtu", {link.at("mtu").dump()}});
        addFamilies("addr", link, "addresses");
    }
    for (const Json& entry : list("priorities"))
        settings.push_back({"priority", TextOf(entry, "interface"), {entry.at("metric").dump()}});
    for (const Json& link : list("interfaces"))
        addFamilies("gateway", link, "gateways");
    for (const Json& route : list("routes"))
        settings.push_back({"route",
                            Format("{} via {} dev {} metric {}", TextOf(route, "destination"), TextOf(route, "gateway"),
                                   TextOf(route, "interface"), NumberOf(route, "metric")),
                            {"there"}});
    for (const Json& rule : list("rules"))
        settings.push_back({"rule", RuleWords(rule), {"there"}});
    return settings;
}

Step ValuesOf(const Settings& settings, const Setting& named) {
    const auto found = std::find_if(settings.begin(), settings.end(), [&](const Setting& one) {
        return one.object == named.object && one.subject == named.subject;
    });
    return found == settings.end() ? Step{} : found->values;
}

// First what is not wanted any more of the lists that `wanted` has.
std::vector<Difference> Differences(const Settings& now, const Json& wanted) {
    std::vector<Difference> found;
    const Settings settings = SettingsOf(wanted);
    const auto isListed = [&](const std::string& object) {
        return (object == "priority" && wanted.contains("priorities")) ||
               ((object == "route" || object == "rule") && wanted.contains(object + "s"));
    };
    for (const Setting& one : now) {
        if (isListed(one.object) && ValuesOf(settings, one).empty())
            found.push_back({{one.object, one.subject, {}}, one.values});
    }
    for (const Setting& one : settings) {
        const Step had = ValuesOf(now, one);
        if (!Contains(had, one.values) || !Contains(one.values, had)) found.push_back({one, had});
    }
    return found;
}

Step Split(const std::string& line) {
    return SplitSavedLine(line).value();
}

void AddSteps(std::vector<Step>& steps, const Difference& difference) {
    const auto& [object, subject, values] = difference.wanted;
    const std::string device = " dev " + difference.Interface();
    std::string line;
    if (object == "link") {
        line = Format("link set {} {}", subject, values[0]);
    } else if (object == "priority") {
        if (values.empty()) return;  // there is no command for it
        // One command for all: the first one since the daemon's start fixes the interfaces.
        line = Format("priority set {} {}", subject, values[0]);
        if (!steps.empty() && steps.back()[0] == object) {
            line = Format("{} {} {}", Joined(steps.back(), " "), subject, values[0]);
            steps.pop_back();
        }
    } else if (object == "addr" && Contains(values, difference.had)) {
        for (const std::string& text : values) {
            if (!HasText(difference.had, text)) steps.push_back(Split("addr add " + text + device));
        }
        return;
    } else if (object == "addr") {
        line =
            values.empty() ? "addr flush dev " + subject : Format("addr set dev {} {}", subject, Joined(values, " "));
    } else if (object == "gateway") {
        const std::string_view verb = difference.had.empty() ? "set " : "replace ";
        line = values.empty() ? "gateway del dev " + subject : Format("gateway {}{}{}", verb, values[0], device);
    } else {
        line = Format("{} {} {}", object, values.empty() ? "del" : "add", subject);
    }
    steps.push_back(Split(line));
}

}  // namespace

Json ReadState(const std::string& asked) {
    Json interfaces = Json::array();
    for (const Json& link : KernelLinks()) {
        const std::string name = TextOf(link, "interface");
        if (name == "lo" || TextOf(link, "kind") == "ppp") continue;
        Json addresses = Json::array();
        Json gateways = Json::array();
        for (const Json& address : link.at("addresses")) {
            if (address.at("scope") != "link" && !address.at("dynamic")) addresses.push_back(AddressText(address));
        }
        for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
            const Json gateway = DaemonGateway(asked, name, family);
            if (!gateway.at("gateway").is_null() && !gateway.at("learnt")) gateways.push_back(gateway.at("gateway"));
        }
        interfaces.push_back({{"interface", name}, {"mtu", link.at("mtu")}, {"mac", link.at("mac")}});
        interfaces.back().update({{"addresses", addresses}, {"gateways", gateways}});
    }
    const auto chosen = [](const Json& record, std::initializer_list<const char*> keys) {
        Json entry;
        for (const char* key : keys)
            entry[key] = record.at(key);
        return entry;
    };
    Json routes = Json::array();
    for (const Json& route : KernelRoutes(TESSEL_FAMILY_BOTH)) {
        const bool isPlain = !route.at("gateway").is_null() && !route.at("interface").is_null();
        if (isPlain && !route.at("learnt") && route.at("destination") != "default")
            routes.push_back(chosen(route, {"destination", "gateway", "interface", "metric"}));
    }
    Json rules = Json::array();
    for (Json rule : KernelRules(TESSEL_FAMILY_INET)) {
        const auto pref = NumberOf(rule, "pref");
        const bool isKernels = pref == 0 || pref == 32766 || pref == 32767;  // ip-rule(8)
        if (rule.at("from") == "all") rule["from"] = "0.0.0.0/0";
        if (!isKernels && !rule.at("other_conditions") && NumberOf(rule, "table") != 0)
            rules.push_back(chosen(rule, {"pref", "from", "fwmark", "table"}));
    }
    return {{"interfaces", interfaces}, {"priorities", DaemonPriorities(asked)}, {"routes", routes}, {"rules", rules}};
}

std::vector<Step> StepsBetween(const Json& now, const Json& wanted) {
    Settings present = SettingsOf(now);
    for (const Difference& one : Differences(present, wanted)) {
        const Setting& setting = one.wanted;
        if (setting.object != "addr" || setting.subject.ends_with("6") || Contains(setting.values, one.had)) continue;
        // The interface loses its addresses for a moment, and with them its IPv4 routes: they are to be made anew.
        std::erase_if(present, [&](const Setting& other) {
            const bool isThere = other.subject.find(" dev " + one.Interface() + " ") != std::string::npos;
            return (other.object == "route" && isThere && !IsInet6(other.subject)) ||
                   (other.object == "gateway" && other.subject == setting.subject);
        });
    }
    std::vector<Step> steps;
    const auto differences = Differences(present, wanted);
    for (const bool removes : {true, false}) {
        for (const Difference& one : differences) {
            if ((one.wanted.values.empty() && one.wanted.object != "addr") == removes) AddSteps(steps, one);
        }
    }
    return steps;
}

Json BringTo(const Json& wanted, const Invocation& outer, const Step& options, std::string_view word,
             std::vector<std::string>& problems) {
    constexpr int kRounds = 2;
    const Json before = ReadState(outer.asked);
    Json now = before;
    for (int round = 0; round < kRounds; ++round) {
        problems.clear();
        for (Step step : StepsBetween(now, wanted)) {
            step.insert(step.end(), options.begin(), options.end());
            const Outcome outcome = RunInner(step, outer);
            if (outcome.failure) problems.push_back(outcome.failure->message);
        }
        now = ReadState(outer.asked);
    }
    auto differences = Differences(SettingsOf(before), wanted);
    const Settings settings = SettingsOf(now);
    for (const Difference& one : Differences(settings, wanted)) {
        const bool isKnown = std::any_of(differences.begin(), differences.end(), [&](const Difference& other) {
            return other.wanted.object == one.wanted.object && other.wanted.subject == one.wanted.subject;
        });
        if (!isKnown) differences.push_back({one.wanted, one.wanted.values});
    }
    Json rows = Json::array();
    const auto text = [](const Step& values) { return NullIfEmpty(Joined(values, " ")); };
    for (const auto& [setting, had] : differences) {
        const Step has = ValuesOf(settings, setting);
        const bool isSame = Contains(has, setting.values) && Contains(setting.values, has);
        rows.push_back({{"setting", setting.object + " " + setting.subject},
                        {"was", text(had)},
                        {"wanted", text(setting.values)},
                        {"now", text(has)},
                        {"result", Format("{}as {}", isSame ? "" : "not ", word)}});
    }
    return rows;
}

bool IsAllAs(const Json& rows) {
    return std::all_of(rows.begin(), rows.end(),
                       [](const Json& row) { return TextOf(row, "result").starts_with("as "); });
}

}  // namespace tessel::ctl
