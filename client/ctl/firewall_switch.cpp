// Enabling and disabling a list. Both empty one, and a whitelist shuts out whoever is not on it.
#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/confirm.h"
#include "client/ctl/firewall_missing.h"
#include "client/ctl/firewall_readback.h"
#include "client/ctl/firewall_session.h"
#include "client/ctl/handlers.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/note.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

int TypeOf(std::string_view list, const Options& options) {
    const int first = list == kWhitelist ? TESSEL_FILTER_WHITE_IPV4 : TESSEL_FILTER_BLACK_IPV4;
    constexpr int kTypesPerFamily = 2;
    switch (FamilyOf(options)) {
        case TESSEL_FAMILY_INET:
            return first;
        case TESSEL_FAMILY_INET6:
            return first + kTypesPerFamily;
        default:
            return first + 2 * kTypesPerFamily;
    }
}

// The session needs an entry before its list is enabled.
std::optional<Failure> WhyNotListed(const std::vector<Filter>& filters, const Options& options) {
    const auto session = GuardedSession(options);
    if (!session || MayCutSession(options)) return std::nullopt;
    for (const Filter& filter : filters) {
        const TNetGateway& peer = session->peer;
        if (filter.family != peer.wSinFamily || IsAllowed(filter, peer)) continue;
        const std::string why = filter.problem.empty()
                                    ? "no whitelist entry covers it"
                                    : "whether a whitelist entry covers it cannot be told: " + filter.problem;
        return Refused("not sent", fmt::format("{} and {}.\n"
                                               "  add it:       tesselctl firewall allow {}/{}\n"
                                               "  or do it:     --force\n  Beside that, {}",
                                               session->text, why, HostText(peer), HostBits(peer.wSinFamily),
                                               ShutOutText(filters)));
    }
    return std::nullopt;
}

std::string EntriesText(const std::vector<Filter>& filters, std::string_view list) {
    std::size_t count = 0;
    for (const Filter& filter : filters)
        count += filter.Entries(list).size();
    return count == 0 ? "" : fmt::format("{} {} of the {}", count, count == 1 ? "entry" : "entries", list);
}

// What is not as it should be once a list is in force, or no longer.
std::string EnableFault(const Filter& filter, std::string_view list) {
    const std::string_view other = list == kWhitelist ? kBlacklist : kWhitelist;
    if (!filter.IsHooked(list)) return fmt::format("INPUT does not jump to the {}", list);
    if (filter.IsHooked(other)) return fmt::format("INPUT still jumps to the {}", other);
    if (!filter.Entries(other).empty()) return fmt::format("the {} still has entries", other);
    const bool isClosed = std::any_of(filter.rules.begin(), filter.rules.end(), [](const SavedRule& rule) {
        return rule.chain == kWhitelist && rule.text == "-j DROP";
    });
    return list == kWhitelist && !isClosed ? "the whitelist does not end in a rule that drops the rest" : "";
}

std::string DisableFault(const Filter& filter, std::string_view list) {
    if (filter.IsHooked(list)) return fmt::format("INPUT still jumps to the {}", list);
    return filter.Entries(list).empty() ? "" : fmt::format("the {} still has entries", list);
}

std::string WhyNotDisabled(const Filter& filter, std::string_view list) {
    std::string missing = MissingChain(filter, list);
    if (!missing.empty() || filter.IsHooked(list)) return missing;
    return fmt::format("the {} is not enabled for {}", list, FamilyName(static_cast<u32>(filter.family)));
}

struct Switch {
    std::string list;
    bool isOn;
    std::string asked;
    std::vector<Filter> before;
    std::string emptied;  // the list that loses its entries
};

Switch SwitchOf(const Invocation& invocation, bool isOn) {
    const std::string list = invocation.words.Get("LIST");
    const std::string_view other = list == kWhitelist ? kBlacklist : kWhitelist;
    return {.list = list,
            .isOn = isOn,
            .asked = fmt::format("firewall {} {}", isOn ? "enable" : "disable", list),
            .before = ReadFilters(invocation.options),
            .emptied = isOn ? std::string(other) : list};
}

// A blacklist whose entries were made before may cover the session.
std::optional<Failure> WhyDenied(const Switch& change, const Options& options) {
    for (const Filter& filter : change.before) {
        Filter planned = filter;
        SavedRule jump;
        jump.chain = "INPUT";
        jump.words = {"-j", change.list};
        planned.rules.insert(planned.rules.begin(), jump);
        if (auto failure = WhyShutOut(change.asked, filter, planned, options)) return failure;
    }
    return std::nullopt;
}

// The entries are lost: somebody has to have agreed.
std::optional<Failure> AgreeToEmpty(const Switch& change, const Options& options) {
    for (const Filter& filter : change.before) {
        if (filter.problem.empty()) continue;
        const std::string what =
            fmt::format("the {}, whose entries cannot be told: {}", change.emptied, filter.problem);
        return Agree(change.asked, "Empty " + what, "this would empty " + what, options);
    }
    const std::string entries = EntriesText(change.before, change.emptied);
    if (entries.empty()) return std::nullopt;
    return Agree(change.asked, "Delete " + entries, entries + " would be deleted", options);
}

Outcome Finish(const Switch& change, int error, const Options& options) {
    const std::string entries = EntriesText(change.before, change.emptied);
    Outcome outcome;
    if (error == kPlanned) {
        if (!entries.empty()) outcome.notes.push_back(entries + " would be deleted");
        return outcome;
    }
    outcome = ReadBack(
        change.asked, error, options,
        [&](const Filter& filter) {
            return change.isOn ? EnableFault(filter, change.list) : DisableFault(filter, change.list);
        },
        [&](const Filter& filter) {
            return change.isOn ? MissingChain(filter, change.list) : WhyNotDisabled(filter, change.list);
        });
    if (outcome.failure) return outcome;
    outcome.document = {
        {"list", change.list}, {"enabled", change.isOn}, {"family", FamilyName(static_cast<u32>(FamilyOf(options)))}};
    outcome.done = fmt::format("{}   {}", change.list, change.isOn ? "enabled" : "disabled");
    if (!entries.empty()) outcome.done += fmt::format(" ({} deleted)", entries);
    return outcome;
}

}  // namespace

Outcome FirewallEnable(const Invocation& invocation) {
    const Options& options = invocation.options;
    const Switch change = SwitchOf(invocation, true);
    const bool isWhite = change.list == kWhitelist;
    if (!isWhite) {
        if (auto failure = WhyDenied(change, options)) return std::move(*failure);
    } else {
        if (auto failure = WhyNotListed(change.before, options)) return std::move(*failure);
        // Told before somebody is asked, and before it is too late.
        if (!options.dryRun) ShowNote(ShutOutText(change.before), options, invocation.err);
    }
    if (auto failure = AgreeToEmpty(change, options)) return std::move(*failure);
    Outcome outcome = Finish(change, tessel_filter_enable(TypeOf(change.list, options)), options);
    if (isWhite && options.dryRun) outcome.notes.push_back(ShutOutText(change.before));
    return outcome;
}

Outcome FirewallDisable(const Invocation& invocation) {
    const Switch change = SwitchOf(invocation, false);
    if (auto failure = AgreeToEmpty(change, invocation.options)) return std::move(*failure);
    return Finish(change, tessel_filter_disable(TypeOf(change.list, invocation.options)), invocation.options);
}

}  // namespace tessel::ctl
