#include "client/ctl/state.h"

#include <fstream>

#include "client/ctl/device.h"
#include "client/ctl/files.h"
#include "client/ctl/filter.h"
#include "client/ctl/output.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

struct Setting {
    std::string object;          // of the command that makes it; kKernelLine: none does
    std::string subject;         // what that command names: "192.168.1.20/24 dev eth0", "eth0 mtu", "dev eth0 -6"
    std::string value;           // "1400"; kThere if the subject says it all; empty: it is not there
    std::string list = {};       // the key of the list that has all of its kind; empty: there is none
    std::string interface = {};  // whose list that is; empty: the device's
    bool operator==(const Setting&) const = default;
};
constexpr char kThere[] = "there";
constexpr char kKernelLine[] = "ip:";

// By object and subject, "link eth0 mtu", in the order in which they are to be made.
using Settings = nlohmann::ordered_map<std::string, Setting>;

// Empty: it is not there.
std::string ValueIn(const Settings& settings, const std::string& name) {
    const auto found = settings.find(name);
    return found == settings.end() ? "" : found->second.value;
}

// Throws a Failure for what can never be read back: a second gateway.
Settings SettingsOf(const Json& state) {
    Settings settings;
    const auto add = [&](const Setting& setting) { settings[setting.object + " " + setting.subject] = setting; };
    const auto list = [](const Json& record, const char* key) { return record.value(key, Json::array()); };
    for (const Json& link : list(state, "interfaces")) {
        const std::string name = TextOf(link, "interface");
        if (!TextOf(link, "mac").empty()) add({"link", name + " mac", link.at("mac")});
        if (link.contains("mtu")) add({"link", name + " mtu", link.at("mtu").dump()});
        for (const std::string address : list(link, "addresses"))
            add({"addr", Format("{} dev {}", address, name), kThere, "addresses", name});
    }
    for (const Json& entry : list(state, "priorities"))
        add({"priority", TextOf(entry, "interface"), entry.at("metric").dump(), "priorities"});
    for (const Json& link : list(state, "interfaces")) {
        for (const std::string gateway : list(link, "gateways")) {
            const int family = gateway.find(':') == std::string::npos ? 4 : 6;
            const std::string name = TextOf(link, "interface");
            const Setting setting{"gateway", Format("dev {} -{}", name, family), gateway, "gateways", name};
            if (!ValueIn(settings, "gateway " + setting.subject).empty())
                throw Refused("gateway " + setting.subject, "there is another one beside " + gateway);
            add(setting);
        }
    }
    for (Json route : list(state, "routes")) {
        // IPv6 has no metric of 0 (IP6_RT_PRIO_USER).
        if (route["metric"] == 0 && TextOf(route, "destination").find(':') != std::string::npos) route["metric"] = 1024;
        const char* const table = route.value("table", kMainTable) == kMainTable ? "" : " table {table}";
        const std::string way = "{destination} via {gateway} dev {interface} metric {metric}";
        add({"route", FillTemplate(way + table, route), kThere, "routes"});
    }
    for (const Json& rule : list(state, "rules")) {
        const char* const mark = NumberOf(rule, "fwmark") == 0 ? "" : "fwmark {fwmark} ";
        const std::string words = Format("from {{from}} {}pref {{pref}} table {{table}}", mark);
        add({"rule", FillTemplate(words, rule), kThere, "rules"});
    }
    for (const std::string line : list(state, "others"))
        add({kKernelLine, line, kThere, "others"});
    return settings;
}

// The state to reach: first, without a value, what `now` has and the lists of `wanted` leave out.
Settings AimsOf(const Settings& now, const Json& wanted) {
    Settings aims;
    const Settings settings = SettingsOf(wanted);
    for (const auto& [name, setting] : now) {
        const Json link = FindIn(wanted.value("interfaces", Json::array()), "interface", setting.interface);
        const bool isLeftOut =
            settings.count(name) == 0 && (wanted.contains(setting.list) || link.contains(setting.list));
        // A link-local address that was not there yet comes by itself.
        if (isLeftOut && !name.starts_with("addr fe80:")) (aims[name] = setting).value.clear();
    }
    aims.insert(settings.begin(), settings.end());
    return aims;
}

void AddStep(std::vector<Step>& steps, const Setting& aim, const std::string& had) {
    const auto& [object, subject, wanted, list, interface] = aim;
    if (object == kKernelLine || had == wanted) return;
    std::string line = Format("{} {} {}", object, wanted.empty() ? "del" : "add", subject);
    if (object == "link") line = Format("link set {} {}", subject, wanted);
    if (object == "gateway" && !wanted.empty())
        line = Format("gateway {} {} dev {}", had.empty() ? "set" : "replace", wanted, interface);
    if (object == "priority") {
        // One command for all: the daemon's first list decides which interfaces count. There is none to remove it.
        if (wanted.empty() || !MissingInterface(subject).empty()) return;
        const bool isFurther = !steps.empty() && steps.back()[0] == object;
        line = Format("{} {} {}", isFurther ? Joined(steps.back(), " ") : "priority set", subject, wanted);
        if (isFurther) steps.pop_back();
    }
    steps.push_back(WordsIn(line));
}

Json ResultRow(const std::string& name, const std::string& was, const std::string& wanted, const std::string& now,
               bool isDone, std::string_view word) {
    return {{"setting", name},
            {"was", NullIfEmpty(was)},
            {"wanted", NullIfEmpty(wanted)},
            {"now", NullIfEmpty(now)},
            {"result", Format("{}as {}", isDone ? "" : "not ", word)}};
}

// Everything that a command may have changed, as the tools print it, without what changes by itself: steps bring back
// less. Local routes come with addresses, some of them late.
Json KernelLines() {
    constexpr char kScript[] =
        "PATH=$PATH:/usr/sbin:/sbin; (ip -o addr; ip -4 rule; ip -6 rule; ip -4 route show table all; "
        "ip -6 route show table all; ip -o link | sed 's/[<>,]/ /g; s/^[^ ]* \\([^ ]*\\).* UP .*/\\1 up/; s/ mtu.*//'; "
        "iptables-save; ip6tables-save; cat /proc/sys/net/ipv4/icmp_echo_ignore_all) 2>&1 | "
        "sed '/^#/d; /^:.* ACCEPT/d; /^COMMIT/d; /^[*]/d; / table local proto kernel /d; s/ [0-9]*sec//g; "
        "s/ tentative//; s/ linkdown//; s/\\[[0-9]*:[0-9]*\\]//'";
    Json lines = Json::array();
    const CapturedTool tool = CaptureTool({"sh", "-c", kScript});
    for (const std::string_view line : Split(tool.isDone ? tool.text : tool.problem, '\n'))
        lines.push_back(line);
    return lines;
}

// For the restore tool: what was saved, and every other table that there is now without rules.
std::string RestoredTables(std::string saved, const std::string& now) {
    for (const std::string_view line : Split(now, '\n'))
        if (line.starts_with('*') && saved.find(line) == std::string::npos)
            saved += line == "*filter" ? kNoFilterRules : Format("{}\nCOMMIT\n", line);
    return saved;
}

constexpr char kEchoSwitch[] = "/proc/sys/net/ipv4/icmp_echo_ignore_all";

}  // namespace

Json ReadState(const std::string& asked, bool isWhole) {
    const auto chosen = [](const Json& record, std::initializer_list<const char*> keys) {
        Json entry;
        for (const char* key : keys)
            entry[key] = record.at(key);
        return entry;
    };
    Json state = Json::parse(R"({"interfaces": [], "priorities": [], "routes": [], "rules": []})");
    state["priorities"] = DaemonPriorities(asked);
    for (const Json& link : KernelLinks()) {
        if ((link.at("interface") == "lo" && !isWhole) || link.at("kind") == "ppp") continue;
        Json entry = chosen(link, {"interface", "mtu", "mac"});
        entry.update({{"addresses", Json::array()}, {"gateways", Json::array()}});
        for (const Json& address : link.at("addresses")) {
            const bool isLearnt = address.at("dynamic") && (!isWhole || address.at("family") == "inet6");
            if (!isLearnt && (isWhole || address["scope"] != "link"))
                entry["addresses"].push_back(AddressText(address));
        }
        for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
            const Json first = DefaultRoutes(link.at("interface"), family)[0];  // null: none
            if (!isWhole && !TextOf(first, "gateway").empty() && !first.at("learnt"))
                entry["gateways"].push_back(first.at("gateway"));
        }
        state["interfaces"].push_back(entry);
    }
    for (Json route : KernelRoutes(TESSEL_FAMILY_BOTH, isWhole ? kAllTables : kMainTable)) {
        const bool isPlain = !route.at("gateway").is_null() && !route.at("interface").is_null();
        const bool isDefault = route.at("destination") == "default";
        if (!isPlain || route.at("learnt") || (isDefault && !isWhole)) continue;
        if (isDefault) route["destination"] = route.at("family") == "inet" ? "0.0.0.0/0" : "::/0";
        state["routes"].push_back(chosen(route, {"destination", "gateway", "interface", "metric"}));
        if (isWhole) state["routes"].back()["table"] = route.at("table");
    }
    for (Json rule : KernelRules(TESSEL_FAMILY_INET)) {
        const auto pref = NumberOf(rule, "pref");
        const bool isKernels = pref == 0 || (!isWhole && (pref == 32766 || pref == 32767));  // ip-rule(8)
        if (rule.at("from") == "all") rule["from"] = "0.0.0.0/0";
        if (!isKernels && !rule.at("other_conditions") && rule.at("fwmark") != 0 && NumberOf(rule, "table") != 0)
            state["rules"].push_back(chosen(rule, {"pref", "from", "fwmark", "table"}));
    }
    if (!isWhole) return state;
    for (const std::string tool : {"iptables", "ip6tables"})
        state["tables"][tool] = CaptureTool({tool + "-save", "-c"}).text;
    state.update({{"echoes", ReadWholeFile(asked, kEchoSwitch)}, {"others", KernelLines()}});
    return state;
}

std::vector<Step> StepsBetween(const Json& now, const Json& wanted) {
    const Settings settings = SettingsOf(now);
    std::vector<Step> steps;
    for (const auto& [name, aim] : AimsOf(settings, wanted))
        AddStep(steps, aim, ValueIn(settings, name));
    return steps;
}

Outcome BringTo(const Json& wanted, const Invocation& outer, std::string_view word) {
    // With an address, the kernel deletes routes that were as wanted; only then is there a step for them.
    constexpr int kRounds = 2;
    constexpr int kSettlingLooks = 20;
    constexpr useconds_t kSettlingPauseUs = 100'000;
    const bool isWhole = wanted.contains("tables");
    const auto read = [&] { return ReadState(outer.asked, isWhole); };
    Json now = read();
    const Settings before = SettingsOf(now);
    Outcome outcome;
    for (int round = 0; round < kRounds; ++round) {
        outcome.notes.clear();
        for (Step step : StepsBetween(now, wanted)) {
            step.emplace_back("--yes");
            const Outcome inner = RunInner(step, outer);
            if (inner.failure) outcome.notes.push_back(inner.failure->message);
        }
        now = read();
    }
    // What the kernel does by itself, such as learning an address again, takes a while.
    for (int looks = isWhole ? kSettlingLooks : 0; looks > 0; --looks) {
        const Settings settings = SettingsOf(now);
        if (settings == AimsOf(settings, wanted)) break;
        usleep(kSettlingPauseUs);
        now = read();
    }
    const Settings after = SettingsOf(now);
    Settings either = before;
    either.insert(after.begin(), after.end());
    Json& rows = outcome.document = Json::array();
    for (const auto& [name, aim] : AimsOf(either, wanted)) {
        const std::string was = ValueIn(before, name);
        const std::string is = ValueIn(after, name);
        if ((aim.object != kKernelLine && was != aim.value) || is != aim.value)
            rows.push_back(ResultRow(name, was, aim.value, is, is == aim.value, word));
    }
    if (!IsAllAs(rows)) outcome.failure = NotApplied(outer.asked, Format("not everything is as {}", word));
    return outcome;
}

Outcome TakeBack(const Json& state, const Invocation& outer) {
    constexpr int kDaemonTries = 30;  // a second apart: it may be restarting
    for (const auto& [tool, text] : state.at("tables").items()) {
        const std::string now = CaptureTool({tool + "-save"}).text;
        (void)CaptureTool({tool + "-restore", "-c"}, RestoredTables(text, now));
    }
    std::ofstream(kEchoSwitch) << TextOf(state, "echoes");
    Outcome outcome;
    for (int tries = kDaemonTries; tries > 0 && outcome.document.is_null(); --tries) {
        try {
            outcome = BringTo(state, outer, "before");
        } catch (const Failure& failure) {
            outcome.notes = {failure.message};
            sleep(1);
        }
    }
    if (outcome.document.is_null())
        outcome.document = Json::array({ResultRow("everything", {}, {}, {}, false, "before")});
    return outcome;
}

bool IsAllAs(const Json& rows) {
    return std::all_of(rows.begin(), rows.end(), [](auto& row) { return TextOf(row, "result").starts_with("as "); });
}

}  // namespace tessel::ctl
