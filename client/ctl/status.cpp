// The daemon, the links and what listens, at a glance: what the kernel and /proc show, and one question to the daemon,
// so that a daemon that hangs costs two seconds and hides nothing.
#include <sys/stat.h>

#include <ctime>

#include "client/ctl/device.h"
#include "client/ctl/filter.h"
#include "client/ctl/kernel.h"
#include "client/ctl/listening.h"
#include "client/ctl/output.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

constexpr char kDaemonName[] = "tessel_daemon";
constexpr int kPatienceMs = 2000;

// ---- What there is ----

// Daemons of this network beside the one that answered. A child that is about to become a tool has its name for a
// moment.
std::vector<pid_t> OtherDaemons(pid_t daemon) {
    constexpr std::time_t kSettled = 2;
    std::vector<pid_t> others = FindProcesses(kDaemonName);
    std::erase_if(others, [&](pid_t pid) {
        const auto since = LookAtProcess(pid).since;
        return pid == daemon || SharesOurNetwork(pid) != true || !since || std::time(nullptr) - *since < kSettled;
    });
    return others;
}

Json DaemonJson(const std::string& state, pid_t pid) {
    const ProcessFacts facts = pid == 0 ? ProcessFacts{} : LookAtProcess(pid);
    Json since;
    if (facts.since) since = JsonTime(std::chrono::system_clock::from_time_t(*facts.since));
    return {{"state", state},
            {"pid", pid == 0 ? Json() : Json(pid)},
            {"since", since},
            {"running_s", facts.since ? Json(std::max<long>(std::time(nullptr) - *facts.since, 0)) : Json()},
            {"resident_kib", OrNull(facts.residentKib)},
            {"same_network", OrNull(facts.sharesOurNetwork)},
            {"other_pids", OtherDaemons(pid)}};
}

// Default routes of the main table, the one that is used first in each family "preferred".
Json Gateways() {
    Json gateways = Json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        Json routes = Json::array();
        for (Json& route : KernelRoutes(family)) {
            if (TextOf(route, "destination") == "default") routes.push_back(std::move(route));
        }
        // Of equal ones the first counts.
        const auto best = std::min_element(routes.begin(), routes.end(), [](const Json& one, const Json& other) {
            return NumberOf(one, "metric") < NumberOf(other, "metric");
        });
        for (auto route = routes.begin(); route != routes.end(); ++route) {
            (*route)["preferred"] = route == best;
            gateways.push_back(*route);
        }
    }
    return gateways;
}

Json Interfaces(const std::string& named, const Json& priorities) {
    Json interfaces = Json::array();
    const Json gateways = Gateways();
    for (Json& link : KernelLinks()) {
        if (!named.empty() && link["interface"] != named) continue;
        link["gateways"] = Json::array();
        for (const Json& gateway : gateways) {
            if (gateway["interface"] != link["interface"]) continue;
            link["gateways"].push_back({{"gateway", gateway["gateway"]},
                                        {"family", gateway["family"]},
                                        {"metric", gateway["metric"]},
                                        {"learnt", gateway["learnt"]},
                                        {"preferred", gateway["preferred"]}});
        }
        const Json priority = FindIn(priorities, "interface", link["interface"]);
        link["priority"] = priority.is_null() ? Json() : priority["metric"];
        interfaces.push_back(std::move(link));
    }
    return interfaces;
}

// Which list each family's packets pass.
Json Firewall() {
    Json families = Json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        const Filter filter = ReadFilter(family);
        Json entry{{"family", FamilyName(family)}, {"list", nullptr}, {"entries", nullptr}};
        for (const std::string_view list : {kWhitelist, kBlacklist}) {
            if (!filter.IsHooked(list)) continue;
            entry["list"] = list;
            entry["entries"] = filter.Entries(list).size();
        }
        entry["problem"] = NullIfEmpty(filter.problem);
        families.push_back(std::move(entry));
    }
    return families;
}

// Who takes which notices: every name that is fixed, and those that somebody has made up for himself.
Json Listeners() {
    Json listeners = Json::array();
    const auto add = [&](const std::string& name, std::string_view topic) {
        const auto process = FindListeningProcess(name);
        listeners.push_back({{"topic", topic}, {"socket", name}, {"listener", ListeningJson(process)}});
        listeners.back()["text"] = process ? ListeningText(*process) : "nobody";
    };
    for (const NoticeSocket& socket : NoticeSockets()) {
        const std::string topic = Format("{}{}", socket.kind, socket.isInet6 ? " inet6" : "");
        if (socket.IsFixed()) {
            add(std::string(socket.name), topic);
            continue;
        }
        for (const std::string& name : ListenedNames(socket.name)) {
            const std::string words = name.substr(socket.name.size());
            add(name, Format("{} {}", topic, words.substr(0, words.find('_'))));
        }
    }
    return listeners;
}

// When the last report was written; null: there is none.
Json CrashJson() {
    std::time_t last = 0;
    for (const char* path : {"/usr/tessel_crash.log.0", "/usr/tessel_crash.log.1"}) {
        struct stat file {};
        if (stat(path, &file) == 0 && file.st_size > 0) last = std::max(last, file.st_mtime);
    }
    return last == 0 ? Json() : Json{{"time", JsonTime(std::chrono::system_clock::from_time_t(last))}};
}

// ---- How it looks ----

std::string DaemonText(const Json& daemon) {
    std::string text = Format("{}   {}", kDaemonName, TextOf(daemon, "state"));
    if (!daemon["pid"].is_null()) text += ", pid " + daemon["pid"].dump();
    if (!daemon["since"].is_null()) {
        const long seconds = daemon["running_s"].get<long>();
        text += Format(", since {} ({})", DateText(std::chrono::system_clock::now() - std::chrono::seconds(seconds)),
                       HumanDuration(seconds));
    }
    if (!daemon["resident_kib"].is_null()) text += ", " + HumanKib(daemon["resident_kib"].get<long>());
    if (daemon["same_network"] == false) text += ", in another network namespace";
    text += "\n";
    for (const Json& pid : daemon["other_pids"])
        text += Format("{}   another one runs, pid {}: requests do not reach it\n", kDaemonName, pid.dump());
    return text;
}

std::vector<std::string> LinkRow(const Json& link) {
    constexpr std::size_t kShown = 4;
    std::vector<std::string> addresses;
    for (const Json& address : link["addresses"])
        addresses.push_back(AddressText(address));
    if (addresses.size() > kShown) {
        const std::string rest = Format("and {} more", addresses.size() - kShown);
        addresses.resize(kShown);
        addresses.push_back(rest);
    }
    std::vector<std::string> uplinks;
    for (const Json& gateway : link["gateways"]) {
        uplinks.push_back(FillTemplate("gateway {gateway}", gateway) + FillTemplate("  metric {metric}", gateway));
        if (gateway["preferred"] == true) uplinks.push_back("<- default route");
    }
    if (uplinks.empty() && !link["priority"].is_null())
        uplinks.push_back(Format("priority {}, not used: {}", NumberOf(link, "priority"),
                                 link["state"] == "up" ? "no gateway" : "no link"));
    return {TextOf(link, "interface"), TextOf(link, "state"), Joined(addresses, "  "), Joined(uplinks, "  ")};
}

std::string FirewallText(const Json& families) {
    std::vector<std::string> texts;
    for (const Json& family : families) {
        std::string text = TextOf(family, "family") + " off";
        if (!family["problem"].is_null()) text = FillTemplate("{family} not known: {problem}", family);
        const bool isOne = family["entries"] == 1;
        if (!family["list"].is_null())
            text =
                FillTemplate(isOne ? "{family} {list} on (1 entry)" : "{family} {list} on ({entries} entries)", family);
        texts.push_back(text);
    }
    return "firewall   " + Joined(texts, "   ") + "\n";
}

// That nobody takes a notice is worth a word where the daemon waits for it: conflicts.
std::string ListenersText(const Json& listeners) {
    std::vector<std::string> texts;
    for (const Json& one : listeners) {
        if (!one["listener"].is_null() || one["topic"] == "conflict")
            texts.push_back(FillTemplate("{topic}: {text}", one));
    }
    return "listening  " + Joined(texts, "   ") + "\n";
}

Outcome Status(const Invocation& invocation) {
    const std::string named = invocation.words.Text("IF");
    if (const std::string missing = MissingInterface(named); !missing.empty()) throw Refused(invocation.asked, missing);
    Outcome outcome;
    Json priorities = Json::array();
    std::string state = "running";
    (void)tessel_set_timeout_ms(std::min(invocation.options.timeoutMs, kPatienceMs));
    try {
        priorities = DaemonPriorities(invocation.asked);
    } catch (const Failure& failure) {
        outcome.failure = failure;
        state = failure.exit == kExitNotRunning ? "not running" : "not answering";
        if (failure.exit == kExitTimeout)
            outcome.failure->message =
                invocation.asked + ": no answer in time: this is what is known without the daemon";
    }
    Json& document = outcome.document;
    document = {{"daemon", DaemonJson(state, tessel_daemon_pid())}, {"interfaces", Interfaces(named, priorities)}};
    outcome.text = DaemonText(document["daemon"]);
    Rows rows;
    for (const Json& link : document["interfaces"])
        rows.push_back(LinkRow(link));
    outcome.text += RenderRows(rows);
    document["firewall"] = named.empty() ? Firewall() : Json();
    document["listeners"] = named.empty() ? Listeners() : Json();
    document["crash"] = CrashJson();
    if (!named.empty()) return outcome;
    outcome.text += FirewallText(document["firewall"]) + ListenersText(document["listeners"]);
    if (!document["crash"].is_null())
        outcome.text += FillTemplate("crash      reported at {time} (see \"crash show\")\n", document["crash"]);
    return outcome;
}

constexpr Command kStatusCommands[] = {
    Row("", "[IF]", &Status, "the daemon, the interfaces, the firewall, and who listens", "status eth0")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .More("The daemon is asked for its priorities and has two seconds; everything else is what the kernel knows."),
};

}  // namespace

extern const Object kStatusObject = {
    .name = "status", .summary = "the daemon and the interfaces at a glance", .commands = kStatusCommands};

}  // namespace tessel::ctl
