// Between the handlers and the daemon: -v shows what passes, --dry-run keeps it here.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "client/ctl/dry_run.h"
#include "core/types.h"

namespace tessel::ctl {

struct PlannedRequest {
    u32 code;
    std::vector<u8> bytes;
    DryRunResult run;
};

// From now on every call of libtessel in this process is shown on `err` (verbosity 1; 2 with bytes) or, with isDryRun,
// only noted: it yields kPlanned.
void StartTrace(int verbosity, bool isDryRun, std::FILE* err);

// What a dry run would have sent.
[[nodiscard]] const std::vector<PlannedRequest>& PlannedRequests();

// The plan for people or as JSON; `local` is what this side would do itself, `notes` what is worth knowing before.
[[nodiscard]] std::string RenderPlan(const std::vector<PlannedRequest>& requests, const std::vector<std::string>& local,
                                     const std::vector<std::string>& notes, bool asJson);

// Rows of 16 bytes, each with its offset.
[[nodiscard]] std::string HexDump(const u8* bytes, std::size_t size);

}  // namespace tessel::ctl
