// Between the commands and the daemon: -v shows what passes, --dry-run keeps changes here and asks what would run.
#pragma once

#include <map>

#include "client/ctl/fields.h"
#include "client/ctl/filter.h"
#include "core/exec_note.h"

namespace tessel::ctl {

struct DryRunResult {
    std::vector<std::string> lines;  // of the tools, in order
    std::string note;                // what else there is to know; may be empty
};

// Lives through the requests of one command: what one would have changed counts for the next.
class DryRun {
  public:
    // Changes nothing. Lines that only read are run; the daemon is asked for its priorities where they matter.
    [[nodiscard]] DryRunResult Ask(const Message& message, std::span<const u8> request);

  private:
    [[nodiscard]] ToolAnswer Answer(const std::string& line);

    std::map<int, Filter> filters_;  // by family, as they would be by now
};

struct PlannedRequest {
    u32 code;
    std::vector<u8> bytes;
    DryRunResult run;
};

// From now on every call of libtessel in this process is shown on `err` (verbosity 1; 2 with bytes). With isDryRun it
// is noted: requests that only ask are sent, where there is a daemon; others succeed here, with a reply of zeros.
void UseRequests(int verbosity, bool isDryRun, std::FILE* err);

// What was noted since UseRequests.
[[nodiscard]] const std::vector<PlannedRequest>& PlannedRequests();

// What the daemon would run for the requests that `send` makes, in order. None of them is sent.
[[nodiscard]] std::vector<std::string> PlannedLines(const std::function<int()>& send);

// The plan for people or as JSON; `local` is what this side would do itself, `notes` what is worth knowing before.
[[nodiscard]] std::string RenderPlan(const std::vector<PlannedRequest>& requests, const std::vector<std::string>& local,
                                     const std::vector<std::string>& notes, bool asJson);

// Rows of 16 bytes, each with its offset.
[[nodiscard]] std::string HexDump(const u8* bytes, std::size_t size);

}  // namespace tessel::ctl
