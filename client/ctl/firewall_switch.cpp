// Enabling and disabling a list. Both empty one, and a whitelist shuts out whoever is not on it.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>

#include "client/ctl/firewall_rules.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

// The kernel's rules of the families asked for.
std::vector<Filter> Filters(const Options& options) {
    std::vector<Filter> filters;
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (HasFamily(options, family)) filters.push_back(ReadFilter(family));
    }
    return filters;
}

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

bool IsCovered(const Filter& filter, const TNetGateway& host) {
    const auto entries = filter.Entries(kWhitelist);
    return std::any_of(entries.begin(), entries.end(), [&](const SavedRule& rule) { return CoversHost(rule, host); });
}

// What else a whitelist without rules for established connections shuts out.
std::vector<std::string> MissingEntries(const std::vector<Filter>& filters) {
    std::vector<std::string> missing;
    for (const Filter& filter : filters) {
        std::ifstream file("/etc/resolv.conf");
        for (std::string word; file >> word;) {
            if (word != "nameserver" || !(file >> word)) continue;
            const auto server = ParseHost(word);
            if (server && server->wSinFamily == filter.family && !IsCovered(filter, *server)) {
                missing.push_back("DNS " + word);
            }
        }
        if (filter.family == TESSEL_FAMILY_INET6 && !IsCovered(filter, *ParseHost("fe80::1"))) {
            missing.emplace_back("IPv6 neighbours (fe80::/10 and their global addresses)");
        }
    }
    return missing;
}

std::string ShutOutText(const std::vector<Filter>& filters) {
    const auto missing = MissingEntries(filters);
    std::string text =
        "answers to the device's own connections are dropped unless their senders are listed (NTP, DNS, DHCP)";
    if (!missing.empty()) text += fmt::format("; missing: {}", fmt::join(missing, ", "));
    return text;
}

std::optional<Failure> WhyShutOut(const std::vector<Filter>& filters, const Options& options) {
    const auto peer = SessionPeer();
    if (!peer || MayCutSession(options)) return std::nullopt;
    for (const Filter& filter : filters) {
        if (filter.family != peer->wSinFamily || IsCovered(filter, *peer)) continue;
        const std::string host = HostText(*peer);
        return Refused("not sent", fmt::format("your session comes from {} and no whitelist entry covers it.\n"
                                               "  add it:       tesselctl firewall allow {}/{}\n"
                                               "  or do it:     --force\n  Beside that, {}.",
                                               host, host, peer->wSinFamily == TESSEL_FAMILY_INET ? 32 : 128,
                                               ShutOutText(filters)));
    }
    return std::nullopt;
}

// Its entries are lost: somebody has to have agreed.
std::optional<Failure> AgreeToEmpty(const std::string& asked, const std::vector<Filter>& filters, std::string_view list,
                                    const Options& options) {
    std::size_t count = 0;
    for (const Filter& filter : filters) {
        if (!filter.problem.empty() && !options.yes && !options.dryRun) {
            return Refused(asked, fmt::format("the {} is emptied, and what it has cannot be told: {} (--yes does it)",
                                              list, filter.problem));
        }
        count += filter.Entries(list).size();
    }
    if (count == 0 || options.yes || options.dryRun) return std::nullopt;
    const std::string loss = fmt::format("{} {} of the {}", count, count == 1 ? "entry" : "entries", list);
    if (isatty(STDIN_FILENO) == 0) return Refused(asked, loss + " would be deleted (--yes does it)");
    std::cerr << fmt::format("Delete {}? [y/N] ", loss) << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer == "y" || answer == "Y" || answer == "yes") return std::nullopt;
    return Refused(asked, "not sent");
}

std::string MissingChain(const std::vector<Filter>& filters, std::string_view list) {
    for (const Filter& filter : filters) {
        if (filter.problem.empty() && !filter.HasChain(list)) {
            return fmt::format("there is no {} chain \"{}\" (tesselctl firewall chain add {})",
                               FamilyName(static_cast<u32>(filter.family)), list, list);
        }
    }
    return "";
}

std::string WhyNotDisabled(const std::vector<Filter>& filters, std::string_view list) {
    const std::string missing = MissingChain(filters, list);
    const bool isOff = std::any_of(filters.begin(), filters.end(), [&](const Filter& filter) {
        return filter.problem.empty() && !filter.IsHooked(list);
    });
    return missing.empty() && isOff ? fmt::format("the {} is not enabled for every family asked for", list) : missing;
}

Outcome Switched(const Invocation& invocation, std::string_view list, bool isOn, const std::string& asked) {
    Outcome outcome;
    if (!ForeignKernel().empty()) {
        outcome.notes.emplace_back("not read back: the daemon has another network");
    } else {
        for (const Filter& filter : Filters(invocation.options)) {
            if (filter.problem.empty() && filter.IsHooked(list) != isOn) {
                return NotApplied(asked, fmt::format("answered success, but INPUT {} to the {}",
                                                     isOn ? "does not jump" : "still jumps", list));
            }
        }
    }
    outcome.document = {
        {"list", list}, {"enabled", isOn}, {"family", FamilyName(static_cast<u32>(FamilyOf(invocation.options)))}};
    outcome.done = fmt::format("{}   {}", list, isOn ? "enabled" : "disabled");
    return outcome;
}

}  // namespace

Outcome FirewallEnable(const Invocation& invocation) {
    const std::string list = invocation.words.Get("LIST");
    const std::string asked = "firewall enable " + list;
    const bool isWhite = list == kWhitelist;
    const auto filters = Filters(invocation.options);
    if (isWhite) {
        if (auto failure = WhyShutOut(filters, invocation.options)) return std::move(*failure);
    }
    if (auto failure = AgreeToEmpty(asked, filters, isWhite ? kBlacklist : kWhitelist, invocation.options)) {
        return std::move(*failure);
    }
    const int error = tessel_filter_enable(TypeOf(list, invocation.options));
    if (error != TESSEL_OK && error != kPlanned) return CallFailed(asked, error, MissingChain(filters, list));
    Outcome outcome = error == kPlanned ? Outcome() : Switched(invocation, list, true, asked);
    if (isWhite) outcome.notes.push_back(ShutOutText(filters));
    return outcome;
}

Outcome FirewallDisable(const Invocation& invocation) {
    const std::string list = invocation.words.Get("LIST");
    const std::string asked = "firewall disable " + list;
    const auto filters = Filters(invocation.options);
    if (auto failure = AgreeToEmpty(asked, filters, list, invocation.options)) return std::move(*failure);
    const int error = tessel_filter_disable(TypeOf(list, invocation.options));
    if (error != TESSEL_OK) return CallFailed(asked, error, WhyNotDisabled(filters, list));
    return Switched(invocation, list, false, asked);
}

}  // namespace tessel::ctl
