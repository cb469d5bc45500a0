#include "client/ctl/firewall_session.h"

#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/port_list.h"

namespace tessel::ctl {

namespace {

// No rule set of ours is deeper. The kernel refuses loops, a file may have some.
constexpr int kDepthMax = 16;

// Nothing: it cannot be told.
using Answer = std::optional<bool>;

bool IsIn(const std::string& network, const TNetGateway& host) {
    SavedRule rule;
    rule.words = {"-s", network};
    return CoversHost(rule, host);
}

Answer MeetsCondition(const std::string& option, const std::string& value, const Session& session) {
    if (option == "-m" || option == "--comment") return true;
    if (option == "-s") return IsIn(value, session.peer);
    if (option == "-p") return value == "tcp" || value == "all";
    if (option == "--src-range") {
        SavedRule rule;
        rule.words = {option, value};
        return CoversHost(rule, session.peer);
    }
    if (!session.device || !session.devicePort) return std::nullopt;
    if (option == "-d") return IsIn(value, *session.device);
    if (option == "-i") return CarriesSession(value);
    if (option == "--dport" || option == "--dports") {
        const auto ports = ParsePorts(value);
        return ports ? Answer(HasPort(*ports, *session.devicePort)) : std::nullopt;
    }
    return std::nullopt;
}

// Every condition up to the target has to be met.
bool Matches(const SavedRule& rule, const Session& session) {
    bool isNegated = false;
    for (std::size_t i = 0; i < rule.words.size(); ++i) {
        const std::string& word = rule.words[i];
        if (word == "-j" || word == "-g") return true;
        if (word == "!") {
            isNegated = true;
            continue;
        }
        const std::string value = i + 1 < rule.words.size() ? rule.words[i + 1] : "";
        const Answer answer = MeetsCondition(word, value, session);
        if (!answer || *answer == isNegated) return false;
        isNegated = false;
        ++i;
    }
    return true;
}

// Whether a chain accepts or drops. Nothing: packets come back from it.
Answer Decide(const Filter& filter, std::string_view chain, const Session& session, int depth) {
    for (const SavedRule& rule : filter.rules) {
        if (rule.chain != chain || !Matches(rule, session)) continue;
        const std::string after = rule.Get("-g");
        const std::string target = after.empty() ? rule.Get("-j") : after;
        if (target == "ACCEPT") return true;
        if (target == "DROP" || target == "REJECT") return false;
        if (target == "RETURN") return std::nullopt;
        if (!filter.HasChain(target) || depth == kDepthMax) continue;
        const Answer answer = Decide(filter, target, session, depth + 1);
        if (answer || !after.empty()) return answer;
    }
    return std::nullopt;
}

}  // namespace

bool LetsIn(const Filter& filter, const Session& session) {
    return Decide(filter, "INPUT", session, 0).value_or(filter.Policy() != "DROP");
}

std::optional<Failure> WhyShutOut(const std::string& asked, const Filter& planned, const Options& options) {
    const auto session = GuardedSession(options);
    if (!session || MayCutSession(options) || session->peer.wSinFamily != planned.family) return std::nullopt;
    if (LetsIn(planned, *session)) return std::nullopt;
    return Refused(asked, session->text + ", which would be shut out (--force does it)");
}

std::optional<Failure> WhyShutOut(const std::string& asked, const Filter& now, const Filter& planned,
                                  const Options& options) {
    const auto session = GuardedSession(options);
    if (!session || !now.problem.empty() || !LetsIn(now, *session)) return std::nullopt;
    return WhyShutOut(asked, planned, options);
}

}  // namespace tessel::ctl
