// Which uplink is preferred: interface priorities as the metrics of IPv4 default routes.
#pragma once

#include <span>

#include "core/call_site.h"
#include "core/types.h"
#include "tessel/priority.h"

// Takes a list of at most 10 entries, and gives existing default routes their metrics. The first list since the start
// decides which interfaces the table holds, unless it is empty: then nothing is done. A later entry changes the first
// interface whose name begins with the entry's. Logs in the caller's name.
void PrioritySet(std::span<const TNetPrioParam> entries, tessel::CallSite where);

// Reinstalls each IPv4 default route whose metric is not its interface's. Returns 0.
i32 ActivePriority();
