// The one sequence of every change to the packet filter.
#include <fstream>
#include <set>

#include "client/ctl/device.h"
#include "client/ctl/filter.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

// Who must be heard, and for what: the whitelist has no rule for established connections.
std::set<std::pair<Network, std::string>> Senders() {
    constexpr std::pair<u32, const char*> kServices[] = {{53, "DNS"}, {67, "DHCP"}, {123, "NTP"}, {547, "DHCP"}};
    std::set<std::pair<Network, std::string>> senders;
    std::ifstream resolver("/etc/resolv.conf");
    for (std::string word; resolver >> word;) {
        if (word != "nameserver" || !(resolver >> word)) continue;
        if (const auto host = ParseHost(word)) senders.emplace(*host, "DNS");
    }
    for (const char* protocol : {"udp", "tcp"}) {
        for (const Session& connection : Connections(protocol)) {
            for (const auto& [port, name] : kServices)
                if (connection.peerPort == port) senders.emplace(connection.peer, name);
        }
    }
    // Neighbour discovery (RFC 4861) runs over link-local addresses and over those that are looked for.
    senders.emplace(*ParseNetwork("fe80::/10"), "neighbour discovery");
    for (const Json& link : KernelLinks()) {
        for (const Json& address : link["addresses"]) {
            if (!HasAll(address, {{"family", "inet6"}, {"scope", "global"}})) continue;
            senders.emplace(Masked(*ParseNetwork(AddressText(address))), "neighbours on " + TextOf(link, "interface"));
        }
    }
    return senders;
}

std::vector<std::string> WhitelistWarnings(const FilterPlan& plan) {
    std::vector<std::string> lines{"a whitelist keeps out answers to the device's own connections (NTP, DNS, DHCP)"};
    for (const auto& [family, filter] : plan.now) {
        const std::string name = filter.NameOf(kWhitelist);
        if (filter.problem.empty() && filter.Entries(kWhitelist).empty())
            lines.push_back(name + ": no entry, so nothing but loopback gets in");
        for (const auto& [network, what] : Senders()) {
            const std::string text = network.IsHost() ? HostText(network) : NetworkText(network);
            if (network.family == family && filter.problem.empty() && !IsListed(filter, network))
                lines.push_back(Format("{}: missing: tesselctl firewall allow {}   for {}", name, text, what));
        }
    }
    return lines;
}

bool IsCut(const FilterPlan& plan, const Session& session) {
    const auto now = plan.now.find(session.peer.family);
    return now != plan.now.end() && LetsThrough(now->second, session) &&
           !LetsThrough(plan.then.at(session.peer.family), session);
}

// "your session comes from 192.168.1.77, which would be shut out ..." Empty: it would not.
std::string WhyShutOut(const Options& options, const FilterPlan& plan) {
    const auto session = GuardedSession(options);
    const auto now = session ? plan.now.find(session->peer.family) : plan.now.end();
    if (now == plan.now.end()) return "";
    if (!now->second.problem.empty())
        return Format("{}, and it is not known whether that keeps working: {}", session->text, now->second.problem);
    if (!IsCut(plan, *session)) return "";
    const bool isListed = plan.then.at(session->peer.family).IsHooked(kWhitelist);
    return Format(
        "{}, which would be shut out: {}with \"tesselctl try --\" in front it is undone in time", session->text,
        isListed ? Format("\"tesselctl firewall allow {}\" lets it in first, ", HostText(session->peer)) : "");
}

// What was to be added or removed, and whether it is there.
Json ReadBack(const std::string& asked, const FilterPlan& plan) {
    std::string problem = ForeignKernel();
    Json rules = Json::array();
    for (const auto& [family, before] : plan.now) {
        const Filter now = ReadFilter(family);
        if (problem.empty()) problem = now.problem;
        if (!problem.empty()) break;
        const auto add = [&](const std::string& chain, const Json& rule, bool isWanted, bool isPresent) {
            rules.push_back({{"family", FamilyName(now.family)},
                             {"chain", chain},
                             {"rule", rule},
                             {"wanted", isWanted},
                             {"present", isPresent}});
        };
        const Filter& then = plan.then.at(family);
        for (const auto& [chain, policy] : then.policies)
            if (!before.policies.contains(chain)) add(chain, nullptr, true, now.policies.contains(chain));
        for (const FilterRule& rule : then.rules)
            if (!before.Has(rule)) add(rule.chain, rule.Text(), true, now.Has(rule));
        for (const FilterRule& rule : before.rules)
            if (!then.Has(rule)) add(rule.chain, rule.Text(), false, now.Has(rule));
    }
    return {{"done", asked}, {"not_read_back", NullIfEmpty(problem)}, {"rules", rules}};
}

std::string WrongIn(const Json& document) {
    for (const Json& rule : document["rules"]) {
        if (rule["wanted"] == rule["present"]) continue;
        const std::string what = rule["rule"].is_null() ? "" : Format(" with the rule \"{}\"", TextOf(rule, "rule"));
        return Format("there is {} {} chain \"{}\"{}", rule["wanted"].get<bool>() ? "no" : "still an",
                      TextOf(rule, "family"), TextOf(rule, "chain"), what);
    }
    return "";
}

}  // namespace

Outcome PerformPlan(const Invocation& invocation, const FilterPlan& plan, Change change) {
    const Options& options = invocation.options;
    const std::string losses = Joined(plan.losses, ", ");
    const std::string cut = WhyShutOut(options, plan);
    change.guard = [&] { return options.dryRun ? "" : cut; };
    change.send = [&, send = change.send] {
        if (!losses.empty()) Agree(invocation, losses + ". Go on", losses);
        return send();
    };
    Outcome outcome = Perform(invocation, change);
    if (options.dryRun) outcome.notes = plan.losses;
    if (options.dryRun && !cut.empty()) outcome.notes.push_back(cut);
    return outcome;
}

Outcome ChangeFilter(const Invocation& invocation, const std::string& done, const std::function<int()>& send,
                     std::string_view enabledList) {
    const Options& options = invocation.options;
    FilterPlan plan = PlanFilters(send);
    if (!enabledList.empty() && !options.force && !options.dryRun) {
        if (!plan.refusal.empty()) throw Refused(invocation.asked, plan.refusal);
        for (const Session& session : KnownSessions(options))
            if (IsCut(plan, session)) plan.losses.push_back(session.text + " and would be shut out");
    }
    const auto warnings = enabledList == kWhitelist ? WhitelistWarnings(plan) : std::vector<std::string>();
    for (const std::string& warning : warnings)
        if (!options.dryRun) ShowNote(invocation, warning);  // before somebody is asked, and before it is too late
    Outcome outcome = PerformPlan(invocation, plan,
                                  {.send = send,
                                   .cause = [&] { return plan.refusal; },
                                   .read = [&] { return ReadBack(invocation.asked, plan); },
                                   .wrong = &WrongIn,
                                   .done = done});
    if (options.dryRun) {
        outcome.notes.insert(outcome.notes.begin(), warnings.begin(), warnings.end());
    } else if (!outcome.document["not_read_back"].is_null()) {
        outcome.notes.push_back("not read back: " + TextOf(outcome.document, "not_read_back"));
    } else if (outcome.document["rules"].empty()) {
        outcome.done += " (as it was before)";
    }
    return outcome;
}

}  // namespace tessel::ctl
