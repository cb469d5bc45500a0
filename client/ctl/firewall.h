// What the firewall's commands share.
#pragma once

#include <map>

#include "client/ctl/filter.h"

namespace tessel::ctl {

// The filters of the families that a change is for, as they are and as they will be.
struct FilterPlan {
    std::map<int, Filter> now;
    std::map<int, Filter> then;
    std::string refusal = {};            // why the tool will refuse the line that the daemon answers for: the last one
    std::vector<std::string> lost = {};  // "3 entries of the inet blacklist"
};

// "your session comes from 192.168.1.77, which would be shut out ..." Empty: it would not.
[[nodiscard]] std::string WhyShutOut(const Invocation& invocation, const FilterPlan& plan);

struct FilterChange {
    std::function<int()> send;
    std::string done;
    // A list is enabled: refused when it cannot be, and asked about when somebody else than the guarded session would
    // be shut out.
    bool isEnabling = false;
    // What is to be known before, by the filters as they are.
    std::function<std::vector<std::string>(const std::vector<Filter>& now)> warnings = {};
};

// What the daemon would run is applied to the filters first: the guard judges what comes of it, entries that would be
// lost are asked about, and what the kernel has in the end is compared with it.
[[nodiscard]] Outcome PerformFilterChange(const Invocation& invocation, const FilterChange& change);

// The entries that an enabled whitelist of this family would lack for the device's own connections: "192.168.1.5   for
// NTP", as a command that makes each of them.
[[nodiscard]] std::vector<std::string> MissingEntries(const Filter& filter);

// For TESSEL_FAMILY_...: "inet whitelist".
[[nodiscard]] std::string ChainText(int family, std::string_view chain);

// TESSEL_PROTOCOL_... for -4 and -6.
[[nodiscard]] int ProtocolsOf(const Options& options);

// Their rows are in firewall.cpp.
[[nodiscard]] Outcome FirewallShow(const Invocation& invocation);
[[nodiscard]] Outcome FirewallSave(const Invocation& invocation);
[[nodiscard]] Outcome FirewallRestore(const Invocation& invocation);
[[nodiscard]] Outcome FirewallExport(const Invocation& invocation);
[[nodiscard]] Outcome FirewallImport(const Invocation& invocation);

}  // namespace tessel::ctl
