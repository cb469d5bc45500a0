// What the firewall's commands share.
#pragma once

#include "client/ctl/guard.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

// What the daemon would run is applied to the filters first: the guard judges what comes of it, entries that would be
// lost are asked about, and what the kernel has in the end is compared with it. A list that is enabled is refused when
// it cannot be, and asked about when somebody else than the guarded session would be shut out.
[[nodiscard]] Outcome ChangeFilter(const Invocation& invocation, const std::string& done,
                                   const std::function<int()>& send, std::string_view enabledList = {});

// As Perform, guarded by what comes of the plan; its losses are asked about. With --dry-run both become notes.
[[nodiscard]] Outcome PerformPlan(const Invocation& invocation, const FilterPlan& plan, Change change);

// Their rows are in firewall.cpp.
[[nodiscard]] Outcome FirewallExport(const Invocation& invocation);
[[nodiscard]] Outcome FirewallImport(const Invocation& invocation);

}  // namespace tessel::ctl
