// What the daemon would run for a request: its own operations, above tools that are only noted.
#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

#include "client/ctl/filter.h"
#include "client/ctl/messages.h"
#include "core/exec_note.h"
#include "core/types.h"

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

}  // namespace tessel::ctl
