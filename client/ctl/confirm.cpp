#include "client/ctl/confirm.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

namespace tessel::ctl {

std::optional<Failure> Agree(const std::string& asked, const std::string& question, const std::string& loss,
                             const Options& options) {
    if (options.yes || options.dryRun) return std::nullopt;
    if (isatty(STDIN_FILENO) == 0) return Refused(asked, loss + " (--yes does it)");
    std::cerr << fmt::format("{}? [y/N] ", question) << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer == "y" || answer == "Y" || answer == "yes") return std::nullopt;
    return Refused(asked, "not done");
}

}  // namespace tessel::ctl
