// Between the commands and the daemon: -v shows what passes, --dry-run keeps changes here and asks what would run.
#pragma once

#include "client/ctl/filter.h"

namespace tessel::ctl {

// From now on every call of libtessel in this process is shown on `err` (verbosity 1; 2 with bytes). With isDryRun it
// is noted: requests that only ask are sent, where there is a daemon; others succeed here, with a reply of zeros.
void UseRequests(int verbosity, bool isDryRun, std::FILE* err);

// What would become of the packet filter by the requests that `send` makes. None of them is sent.
[[nodiscard]] FilterPlan PlanFilters(const std::function<int()>& send);

// What was noted since UseRequests, for people or as JSON, with what the outcome says that this side would do itself
// and what is worth knowing before.
[[nodiscard]] std::string RenderPlan(const Outcome& outcome, bool asJson);

}  // namespace tessel::ctl
