#include "client/ctl/state.h"

#include <sys/stat.h>

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
// read back: link-local addresses, and a second gateway.
Json SettingsOf(const Json& state) {
    Json settings = Json::object();
    const auto list = [](const Json& record, const char* key) { return record.value(key, Json::array()); };
    for (const Json& link : list(state, "interfaces")) {
        const std::string name = TextOf(link, "interface");
        if (!TextOf(link, "mac").empty()) settings["link " + name + " mac"] = link.at("mac");
        if (link.contains("mtu")) settings["link " + name + " mtu"] = link.at("mtu").dump();
        for (const std::string address : list(link, "addresses")) {
            const std::string setting = Format("addr {} dev {}", address, name);
            if (Covers(*ParseNetwork("fe80::/10"), *ParseNetwork(address)))
                throw Refused(setting, "link-local addresses are left alone");
            settings[setting] = "there";
        }
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
    for (const Json& route : list(state, "routes"))
        settings[FillTemplate("route {destination} via {gateway} dev {interface} metric {metric}", route)] = "there";
    for (const Json& rule : list(state, "rules")) {
        const char* const mark = rule.at("fwmark").is_null() ? "" : "fwmark {fwmark} ";
        settings[FillTemplate(Format("rule from {{from}} {}pref {{pref}} table {{table}}", mark), rule)] = "there";
    }
    return settings;
}

// The lists that settings of each object are in.
constexpr std::pair<std::string_view, const char*> kLists[] = {
    {"addr", "addresses"}, {"gateway", "gateways"}, {"priority", "priorities"}, {"route", "routes"}, {"rule", "rules"}};

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
            if (isListed && !settings.contains(name)) aims[name] = "";
        }
    }
    aims.update(settings);
    return aims;
}

void AddStep(std::vector<Step>& steps, const std::string& name, const std::string& had, const std::string& wanted) {
    const std::string object = name.substr(0, name.find(' '));
    const std::string subject = name.substr(object.size() + 1);
    std::string line = Format("{} {} {}", object, wanted.empty() ? "del" : "add", subject);
    if (object == "link") line = Format("link set {} {}", subject, wanted);
    if (object == "gateway" && !wanted.empty()) {
        const std::string device = subject.substr(0, subject.rfind(' '));
        line = Format("gateway {} {} {}", had.empty() ? "set" : "replace", wanted, device);
    }
    if (object == "priority") {
        // One command for all: the first one since the daemon's start fixes the interfaces. There is none to remove it.
        if (wanted.empty()) return;
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

// By the tool that saves it, without what changes by itself: comments and counters. A kernel without rules may have no
// table to show. Empty: it cannot be read.
std::string SavedFilter(int family) {
    const CapturedTool tool = CaptureTool({ToolOf(family) + "-save", "-t", "filter"});
    std::string text;
    std::istringstream lines(tool.text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(':')) line = line.substr(0, line.find('[')) + "[0:0]";
        if (!line.starts_with('#')) text += line + "\n";
    }
    return tool.isDone && text.empty() ? kNoFilterRules : text;
}

}  // namespace

Json ReadState(const std::string& asked, bool withFirewall) {
    const auto chosen = [](const Json& record, std::initializer_list<const char*> keys) {
        Json entry;
        for (const char* key : keys)
            entry[key] = record.at(key);
        return entry;
    };
    Json state{{"interfaces", Json::array()},
               {"priorities", DaemonPriorities(asked)},
               {"routes", Json::array()},
               {"rules", Json::array()}};
    for (const Json& link : KernelLinks()) {
        if (link.at("interface") == "lo" || link.at("kind") == "ppp") continue;
        Json& entry = state["interfaces"].emplace_back(chosen(link, {"interface", "mtu", "mac"}));
        entry.update({{"addresses", Json::array()}, {"gateways", Json::array()}});
        for (const Json& address : link.at("addresses")) {
            if (address.at("scope") != "link" && !address.at("dynamic"))
                entry["addresses"].push_back(AddressText(address));
        }
        for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
            const Json gateway = DaemonGateway(asked, link.at("interface"), family);
            if (!gateway.at("gateway").is_null() && !gateway.at("learnt"))
                entry["gateways"].push_back(gateway.at("gateway"));
        }
    }
    for (const Json& route : KernelRoutes(TESSEL_FAMILY_BOTH)) {
        const bool isPlain = !route.at("gateway").is_null() && !route.at("interface").is_null();
        if (isPlain && !route.at("learnt") && route.at("destination") != "default")
            state["routes"].push_back(chosen(route, {"destination", "gateway", "interface", "metric"}));
    }
    for (Json rule : KernelRules(TESSEL_FAMILY_INET)) {
        const auto pref = NumberOf(rule, "pref");
        const bool isKernels = pref == 0 || pref == 32766 || pref == 32767;  // ip-rule(8)
        if (rule.at("from") == "all") rule["from"] = "0.0.0.0/0";
        if (!isKernels && !rule.at("other_conditions") && NumberOf(rule, "table") != 0)
            state["rules"].push_back(chosen(rule, {"pref", "from", "fwmark", "table"}));
    }
    if (withFirewall) state["firewall"] = {SavedFilter(TESSEL_FAMILY_INET), SavedFilter(TESSEL_FAMILY_INET6)};
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
    Json now = ReadState(outer.asked);
    const Json before = SettingsOf(now);
    Outcome outcome;
    for (int round = 0; round < kRounds; ++round) {
        outcome.notes.clear();
        for (Step step : StepsBetween(now, wanted)) {
            step.emplace_back("--yes");
            const Outcome inner = RunInner(step, outer);
            if (inner.failure) outcome.notes.push_back(inner.failure->message);
        }
        now = ReadState(outer.asked);
    }
    const Json after = SettingsOf(now);
    Json either = before;
    either.update(after);
    const Json aims = AimsOf(either, wanted);
    outcome.document = Json::array();
    for (const auto& [name, text] : aims.items()) {
        const std::string was = TextOf(before, name.c_str());
        const std::string is = TextOf(after, name.c_str());
        if (was != text || is != text) outcome.document.push_back(ResultRow(name, was, text, is, is == text, word));
    }
    if (!IsAllAs(outcome.document)) outcome.failure = NotApplied(outer.asked, Format("not everything is as {}", word));
    return outcome;
}

Outcome TakeBack(const Json& state, const Invocation& outer) {
    Outcome outcome;
    Json rows = Json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        const std::string text = state.at("firewall").at(family == TESSEL_FAMILY_INET ? 0 : 1);
        if (text.empty() || SavedFilter(family) == text) continue;
        (void)CaptureTool({ToolOf(family) + "-restore"}, text);
        rows.push_back(ResultRow("firewall " + FamilyName(family), {}, {}, {}, SavedFilter(family) == text, "before"));
    }
    // Waits for a daemon that is being restarted.
    for (int tries = 30; tries > 0 && outcome.document.is_null(); --tries) {
        try {
            outcome = BringTo(state, outer, "before");
        } catch (const Failure& failure) {
            outcome.notes = {failure.message};
            sleep(1);
        }
    }
    if (outcome.document.is_null()) rows.push_back(ResultRow("everything else", {}, {}, {}, false, "before"));
    rows.insert(rows.end(), outcome.document.begin(), outcome.document.end());
    outcome.document = rows;
    return outcome;
}

Outcome ExportText(const Invocation& invocation, const std::string& text, const std::string& what,
                   const Json& document) {
    const std::string path = invocation.words.Text("FILE");
    if (path.empty() || path == "-") return {.document = document, .text = text};
    if (invocation.options.dryRun)
        return {.document = document, .planned = {Format("writes {} ({} bytes)", path, text.size())}};
    struct stat there {};
    if (stat(path.c_str(), &there) == 0 && S_ISREG(there.st_mode) && there.st_size > 0)
        Agree(invocation, Format("Replace {} ({} bytes)", path, there.st_size),
              Format("{} would be replaced: it has {} bytes", path, there.st_size));
    ReplaceFile(invocation.asked, path, text);
    return {.document = document, .done = Format("{}   {}", path, what)};
}

bool IsAllAs(const Json& rows) {
    return std::all_of(rows.begin(), rows.end(), [](auto& row) { return TextOf(row, "result").starts_with("as "); });
}

}  // namespace tessel::ctl
