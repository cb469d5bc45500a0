// The one sequence of every change to the packet filter.
#include "client/ctl/firewall.h"
#include "client/ctl/kernel.h"
#include "client/ctl/perform.h"
#include "client/ctl/requests.h"

namespace tessel::ctl {

namespace {

std::string WhyRefused(const Filter& filter, const FilterLine& line) {
    if (line.operation == "-N")
        return Format("there is an {} chain already", ChainText(filter.family, line.rule.chain));
    if (line.operation == "-D" && filter.HasChain(line.rule.chain)) {
        return Format("the {} chain has no rule \"{}\"", ChainText(filter.family, line.rule.chain), line.rule.Text());
    }
    const std::string missing = filter.HasChain(line.rule.chain) ? line.rule.Get("-j") : line.rule.chain;
    return Format("there is no {} chain (tesselctl firewall chain add {})", ChainText(filter.family, missing), missing);
}

FilterPlan PlanOf(const std::function<int()>& send) {
    FilterPlan plan;
    for (const std::string& text : PlannedLines(send)) {
        const auto line = ParseFilterLine(text);
        if (!line) continue;
        if (!plan.now.contains(line->family)) {
            plan.now[line->family] = ReadFilter(line->family);
            plan.then[line->family] = plan.now[line->family];
        }
        Filter& filter = plan.then[line->family];
        const std::size_t entries = filter.Entries(line->rule.chain).size();
        const bool isList = line->rule.chain == kWhitelist || line->rule.chain == kBlacklist;
        if (line->operation == "-F" && isList && entries > 0) {
            plan.lost.push_back(Format("{} {} of the {}", entries, entries == 1 ? "entry" : "entries",
                                       ChainText(filter.family, line->rule.chain)));
        }
        const std::string refusal = WhyRefused(filter, *line);
        const bool isTaken = filter.Apply(*line);
        if (line->operation != "-C") plan.refusal = isTaken ? "" : refusal;
    }
    return plan;
}

bool IsCut(const FilterPlan& plan, const Session& session) {
    const auto now = plan.now.find(session.peer.family);
    return now != plan.now.end() && LetsThrough(now->second, session) &&
           !LetsThrough(plan.then.at(session.peer.family), session);
}

// Everything that somebody has to have agreed to.
void AskAbout(const Invocation& invocation, const FilterPlan& plan, bool isEnabling) {
    std::vector<std::string> losses;
    for (const std::string& lost : plan.lost)
        losses.push_back(lost + " would be deleted");
    for (const Session& session : KnownSessions(invocation.options)) {
        if (isEnabling && !invocation.options.force && IsCut(plan, session))
            losses.push_back(session.text + " and would be shut out");
    }
    if (losses.empty()) return;
    const std::string text = Joined(losses, ", ");
    Agree(invocation, text + ". Go on", text);
}

// What is to be there, or no longer, beside what there is.
void AddDifferences(Json& rules, const Filter& from, const Filter& to, const Filter& now, bool isWanted) {
    const auto add = [&](const std::string& chain, const Json& rule, bool isPresent) {
        rules.push_back({{"family", FamilyName(now.family)},
                         {"chain", chain},
                         {"rule", rule},
                         {"wanted", isWanted},
                         {"present", isPresent}});
    };
    for (const auto& [chain, policy] : to.policies) {
        if (!from.HasChain(chain)) add(chain, nullptr, now.HasChain(chain));
    }
    for (const FilterRule& rule : to.rules) {
        if (!from.Has(rule)) add(rule.chain, rule.Text(), now.Has(rule));
    }
}

Json ReadBack(const Invocation& invocation, const FilterPlan& plan) {
    Json document{
        {"done", invocation.asked}, {"not_read_back", NullIfEmpty(ForeignKernel())}, {"rules", Json::array()}};
    for (const auto& [family, before] : plan.now) {
        const Filter now = ReadFilter(family);
        if (!now.problem.empty()) document["not_read_back"] = now.problem;
        if (!document["not_read_back"].is_null()) continue;
        AddDifferences(document["rules"], before, plan.then.at(family), now, true);
        AddDifferences(document["rules"], plan.then.at(family), before, now, false);
    }
    return document;
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

std::string WhyShutOut(const Invocation& invocation, const FilterPlan& plan) {
    const auto session = GuardedSession(invocation.options);
    const auto now = session ? plan.now.find(session->peer.family) : plan.now.end();
    if (now == plan.now.end()) return "";
    if (!now->second.problem.empty())
        return Format("{}, and whether that goes on is not known: {}", session->text, now->second.problem);
    if (!IsCut(plan, *session)) return "";
    const bool isListed = plan.then.at(session->peer.family).IsHooked(kWhitelist);
    const std::string entry =
        isListed ? Format("\"tesselctl firewall allow {}\" before lets it in, ", HostText(session->peer)) : "";
    return Format("{}, which would be shut out: {}\"tesselctl try --\" in front undoes it in time", session->text,
                  entry);
}

int ProtocolsOf(const Options& options) {
    if (FamilyOf(options) == TESSEL_FAMILY_BOTH) return TESSEL_PROTOCOL_BOTH;
    return FamilyOf(options) == TESSEL_FAMILY_INET ? TESSEL_PROTOCOL_IPV4 : TESSEL_PROTOCOL_IPV6;
}

std::string ChainText(int family, std::string_view chain) {
    return Format("{} {}", FamilyName(family), chain);
}

Outcome PerformFilterChange(const Invocation& invocation, const FilterChange& change) {
    const Options& options = invocation.options;
    const FilterPlan plan = PlanOf(change.send);
    if (change.isEnabling && !plan.refusal.empty() && !options.force && !options.dryRun)
        throw Refused(invocation.asked, plan.refusal);
    std::vector<Filter> filters;
    for (const auto& [family, filter] : plan.now)
        filters.push_back(filter);
    const auto warnings = change.warnings ? change.warnings(filters) : std::vector<std::string>();
    const auto send = [&] {
        for (const std::string& warning : warnings)
            if (!options.dryRun) ShowNote(invocation, warning);  // before somebody is asked, and before it is too late
        AskAbout(invocation, plan, change.isEnabling);
        return change.send();
    };
    Outcome outcome = Perform(invocation, {.send = send,
                                           .guard = [&] { return WhyShutOut(invocation, plan); },
                                           .cause = [&] { return plan.refusal; },
                                           .read = [&] { return ReadBack(invocation, plan); },
                                           .wrong = &WrongIn,
                                           .done = change.done});
    if (options.dryRun) {
        outcome.notes = warnings;
        for (const std::string& lost : plan.lost)
            outcome.notes.push_back(lost + " would be deleted");
        const std::string cut = WhyShutOut(invocation, plan);
        if (!cut.empty()) outcome.notes.push_back(cut);
    } else if (!outcome.document["not_read_back"].is_null()) {
        outcome.notes.push_back("not read back: " + TextOf(outcome.document, "not_read_back"));
    } else if (outcome.document["rules"].empty()) {
        outcome.done += " (as it was before)";
    }
    return outcome;
}

}  // namespace tessel::ctl
