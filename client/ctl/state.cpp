#include "client/ctl/state.h"

#include <fstream>
#include <sstream>

#include "client/ctl/device.h"
#include "client/ctl/files.h"
#include "client/ctl/filter.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/tesselctl.h"

namespace tessel::ctl {

namespace {

// Texts by "link eth0 mtu", "priority eth0", "gateway dev eth0 -6"; of addresses, routes and rules by the words that
// add them, with the text "there". In the order in which they are to be made. Throws a Failure for what can never be
// read back: a second gateway.
Json SettingsOf(const Json& state) {
    Json settings = Json::object();
    const auto list = [](const Json& record, const char* key) { return record.value(key, Json::array()); };
    for (const Json& link : list(state, "interfaces")) {
        const std::string name = TextOf(link, "interface");
        if (!TextOf(link, "mac").empty()) settings["link " + name + " mac"] = link.at("mac");
        if (link.contains("mtu")) settings["link " + name + " mtu"] = link.at("mtu").dump();
        for (const std::string address : list(link, "addresses"))
            settings[Format("addr {} dev {}", address, name)] = "there";
    }
    for (const Json& entry : list(state, "priorities"))
        settings["priority " + TextOf(entry, "interface")] = entry.at("metric").dump();
    for (const Json& link : list(state, "interfaces")) {
        for (const std::string gateway : list(link, "gateways")) {
            const int family = gateway.find(':') == std::string::npos ? 4 : 6;
            const std::string setting = Format("gateway dev {} -{}", TextOf(link, "interface"), family);
            if (settings.contains(setting)) throw Refused(setting, "there is another one beside " + gateway);
            settings[setting] = gateway;
        }
    }
    for (Json route : list(state, "routes")) {
        // IPv6 has no metric of 0 (IP6_RT_PRIO_USER).
        if (route["metric"] == 0 && TextOf(route, "destination").find(':') != std::string::npos) route["metric"] = 1024;
        const char* const table = route.value("table", kMainTable) == kMainTable ? "" : " table {table}";
        const std::string way = "route {destination} via {gateway} dev {interface} metric {metric}";
        settings[FillTemplate(way + table, route)] = "there";
    }
    for (const Json& rule : list(state, "rules")) {
        const char* const mark = NumberOf(rule, "fwmark") == 0 ? "" : "fwmark {fwmark} ";
        settings[FillTemplate(Format("rule from {{from}} {}pref {{pref}} table {{table}}", mark), rule)] = "there";
    }
    for (const std::string line : list(state, "others"))
        settings[line] = "there";
    return settings;
}

// The lists that settings of each object are in; and what no step brings back.
constexpr std::pair<std::string_view, const char*> kLists[] = {{"addr", "addresses"},      {"gateway", "gateways"},
                                                               {"priority", "priorities"}, {"route", "routes"},
                                                               {"rule", "rules"},          {"ip:", "others"}};

// The state to reach: first, empty, what `now` has and the lists of `wanted` leave out.
Json AimsOf(const Json& now, const Json& wanted) {
    Json aims = Json::object();
    const Json settings = SettingsOf(wanted);
    for (const auto& [name, text] : now.items()) {
        const Step words = WordsIn(name);
        const auto dev = std::find(words.begin(), words.end(), "dev");
        const Json link =
            dev == words.end() ? Json() : FindIn(wanted.value("interfaces", Json::array()), "interface", dev[1]);
        for (const auto& [object, list] : kLists) {
            const bool isListed = words[0] == object && (wanted.contains(list) || link.contains(list));
            // A link-local address that was not there yet comes by itself.
            if (isListed && !name.starts_with("addr fe80:") && !settings.contains(name)) aims[name] = "";
        }
    }
    aims.update(settings);
    return aims;
}

void AddStep(std::vector<Step>& steps, const std::string& name, const std::string& had, const std::string& wanted) {
    const std::string object = name.substr(0, name.find(' '));
    if (object == "ip:") return;
    const std::string subject = name.substr(object.size() + 1);
    std::string line = Format("{} {} {}", object, wanted.empty() ? "del" : "add", subject);
    if (object == "link") line = Format("link set {} {}", subject, wanted);
    if (object == "gateway" && !wanted.empty()) {
        const std::string device = subject.substr(0, subject.rfind(' '));
        line = Format("gateway {} {} {}", had.empty() ? "set" : "replace", wanted, device);
    }
    if (object == "priority") {
        // One command for all: the first one since the daemon's start fixes the interfaces. There is none to remove it.
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
        lines.push_back("ip: " + std::string(line));
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
    const Json settings = SettingsOf(now);
    const Json aims = AimsOf(settings, wanted);
    std::vector<Step> steps;
    for (const auto& [name, text] : aims.items()) {
        const std::string had = TextOf(settings, name.c_str());
        if (had != text) AddStep(steps, name, had, text);
    }
    return steps;
}

Outcome BringTo(const Json& wanted, const Invocation& outer, std::string_view word) {
    constexpr int kRounds = 2;
    const bool isWhole = wanted.contains("tables");
    const auto read = [&] { return ReadState(outer.asked, isWhole); };
    Json now = read();
    const Json before = SettingsOf(now);
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
    for (int tries = isWhole ? 20 : 0; tries > 0 && SettingsOf(now) != AimsOf(SettingsOf(now), wanted); --tries) {
        usleep(100'000);
        now = read();
    }
    const Json after = SettingsOf(now);
    Json either = before;
    either.update(after);
    const Json aims = AimsOf(either, wanted);
    Json& rows = outcome.document = Json::array();
    for (const auto& [name, text] : aims.items()) {
        const std::string was = TextOf(before, name.c_str());
        const std::string is = TextOf(after, name.c_str());
        const bool isStep = !name.starts_with("ip:");
        if ((isStep && was != text) || is != text) rows.push_back(ResultRow(name, was, text, is, is == text, word));
    }
    if (!IsAllAs(rows)) outcome.failure = NotApplied(outer.asked, Format("not everything is as {}", word));
    return outcome;
}

Outcome TakeBack(const Json& state, const Invocation& outer) {
    for (const auto& [tool, text] : state.at("tables").items()) {
        const std::string now = CaptureTool({tool + "-save"}).text;
        (void)CaptureTool({tool + "-restore", "-c"}, RestoredTables(text, now));
    }
    std::ofstream(kEchoSwitch) << TextOf(state, "echoes");
    Outcome outcome;
    // Waits for a daemon that is being restarted.
    for (int tries = 30; tries > 0 && outcome.document.is_null(); --tries) {
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
