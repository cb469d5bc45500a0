// Asking before something is lost.
#pragma once

#include <optional>
#include <string>

#include "client/ctl/failure.h"
#include "client/ctl/options.h"

namespace tessel::ctl {

// Nothing: somebody agreed, by --yes or on the terminal, or nothing will be done at all. `question` is "Empty /tmp/log
// (3 bytes)", `loss` what is told where nobody can be asked: "the file has 3 bytes and would be emptied".
[[nodiscard]] std::optional<Failure> Agree(const std::string& asked, const std::string& question,
                                           const std::string& loss, const Options& options);

}  // namespace tessel::ctl
