// The daemon, the links and what listens, at a glance: what the kernel and /proc show, and short questions to the
// daemon, so that one that hangs costs two seconds and hides nothing.
#include <sys/stat.h>

#include "client/ctl/device.h"
#include "client/ctl/filter.h"
#include "client/ctl/output.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

constexpr char kDaemonName[] = "tessel_daemon";
constexpr int kPatienceMs = 2000;

Json DaemonJson(const std::string& state, pid_t pid) {
    Json daemon{{"state", state}, {"pid", pid == 0 ? Json() : Json(pid)}};
    daemon.update(LookAtProcess(pid));
    daemon["same_network"] = daemon["since"].is_null() ? Json() : OrNull(SharesOurNetwork(pid));
    daemon["other_pids"] = Json::array();
    // Others of this network, which no request reaches. A child has the daemon's name until it becomes a tool.
    for (const pid_t other : FindProcesses(kDaemonName)) {
        const bool hasStayed = NumberOf(LookAtProcess(other), "running_s") >= 2;
        if (other != pid && hasStayed && SharesOurNetwork(other) == true) daemon["other_pids"].push_back(other);
    }
    return daemon;
}

Json InterfacesJson(const std::string& named, const Json& priorities, bool answers) {
    Json interfaces = Json::array();
    const Json routes = KernelRoutes(TESSEL_FAMILY_BOTH);
    for (Json& link : KernelLinks()) {
        if (!named.empty() && link["interface"] != named) continue;
        link["gateways"] = Json::array();
        std::string family;  // the kernel lists first the default route that it uses
        for (const Json& route : routes) {
            if (route["destination"] != "default") continue;
            const bool isFirst = route["family"] != std::exchange(family, TextOf(route, "family"));
            if (route["interface"] != link["interface"]) continue;
            Json& gateway = link["gateways"].emplace_back();
            for (const char* key : {"gateway", "family", "metric", "learnt"})
                gateway[key] = route[key];
            gateway["preferred"] = isFirst;
        }
        const Json priority = FindIn(priorities, "interface", link["interface"]);
        link["priority"] = priority.is_null() ? Json() : priority["metric"];
        int isServing = 0;  // a daemon that hangs is not asked again
        answers = answers && tessel_dhcpd_status(TextOf(link, "interface").c_str(), &isServing) == TESSEL_OK;
        link["dhcp_server"] = answers ? Json(isServing != 0) : Json();
        interfaces.push_back(std::move(link));
    }
    return interfaces;
}

// Which list each family's packets pass.
Json FirewallJson() {
    Json families = Json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        const Filter filter = ReadFilter(family);
        Json entry{{"family", FamilyName(family)}, {"list", nullptr}, {"entries", nullptr}};
        entry["problem"] = NullIfEmpty(filter.problem);
        for (const std::string_view list : {kWhitelist, kBlacklist}) {
            if (!filter.IsHooked(list)) continue;
            entry["list"] = list;
            entry["entries"] = filter.Entries(list).size();
        }
        families.push_back(std::move(entry));
    }
    return families;
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

std::string DaemonText(const Json& daemon) {
    std::string text = TextOf(daemon, "state") + FillTemplate(", pid {pid}", daemon);
    if (!daemon["since"].is_null()) {
        const std::chrono::seconds running(NumberOf(daemon, "running_s"));
        text += Format(", since {} ({}), {}", DateText(std::chrono::system_clock::now() - running),
                       HumanDuration(running.count()), HumanKib(NumberOf(daemon, "resident_kib")));
    }
    if (daemon["same_network"] == false) text += ", in another network namespace";
    text = Format("{}   {}\n", kDaemonName, text);
    for (const Json& pid : daemon["other_pids"])
        text += Format("{}   another one is running, pid {}: requests do not reach it\n", kDaemonName, pid.dump());
    return text;
}

std::vector<std::string> LinkRow(const Json& link) {
    constexpr std::size_t kShown = 4;
    const Json& all = link["addresses"];
    std::vector<std::string> addresses;
    for (std::size_t i = 0; i < std::min(all.size(), kShown); ++i)
        addresses.push_back(AddressText(all[i]));
    if (all.size() > kShown) addresses.push_back(Format("and {} more", all.size() - kShown));
    std::vector<std::string> uses;
    for (const Json& gateway : link["gateways"]) {
        uses.push_back(FillTemplate("gateway {gateway}", gateway) + FillTemplate("  metric {metric}", gateway));
        if (gateway["preferred"] == true) uses.emplace_back("<- default route");
    }
    const std::string priority = FillTemplate("priority {priority}, not used: no", link);
    if (uses.empty() && !priority.empty()) uses.push_back(priority + (link["state"] == "up" ? " gateway" : " link"));
    if (link["dhcp_server"] == true) uses.emplace_back("DHCP server");
    return {TextOf(link, "interface"), TextOf(link, "state"), Joined(addresses, "  "), Joined(uses, "  ")};
}

std::string FirewallText(const Json& families) {
    std::vector<std::string> texts;
    for (const Json& family : families) {
        const char* pattern = "{family} {list} on (entries: {entries})";
        if (family["list"].is_null()) pattern = "{family} off";
        if (!family["problem"].is_null()) pattern = "{family} not known: {problem}";
        texts.push_back(FillTemplate(pattern, family));
    }
    return "firewall   " + Joined(texts, "   ") + "\n";
}

// A notice that nobody takes is worth a word where the daemon waits for it: conflicts.
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
        if (failure.error == "not_permitted") state = "not permitted";
        if (failure.exit == kExitTimeout)
            outcome.failure->message = invocation.asked + ": no answer in time: showing what is known without it";
    }
    Json& document = outcome.document;
    document = {{"daemon", DaemonJson(state, tessel_daemon_pid())},
                {"interfaces", InterfacesJson(named, priorities, !outcome.failure)},
                {"firewall", named.empty() ? FirewallJson() : Json()},
                {"listeners", named.empty() ? NoticeListeners() : Json()},
                {"crash", CrashJson()}};
    Rows rows;
    for (const Json& link : document["interfaces"])
        rows.push_back(LinkRow(link));
    outcome.text = DaemonText(document["daemon"]) + RenderRows(rows);
    if (!named.empty()) return outcome;
    outcome.text += FirewallText(document["firewall"]) + ListenersText(document["listeners"]);
    outcome.text += FillTemplate("crash      reported at {time} (see \"crash show\")\n", document["crash"]);
    return outcome;
}

constexpr Command kStatusCommands[] = {
    Row("", "[IF]", &Status, "the daemon, interfaces, firewall, and listening programs", "status eth0")
        .Sends(TESSEL_CMD_PRIORITY_GET, TESSEL_CMD_DHCPS_GET_STATUS)
        .More("Asks the daemon for its priorities and DHCP servers (\"dhcpd show\" says which have exited), for two "
              "seconds at most; everything else comes from the kernel."),
};

}  // namespace

extern const Object kStatusObject = {
    .name = "status", .summary = "the daemon and the interfaces at a glance", .commands = kStatusCommands};

}  // namespace tessel::ctl
