// Processes, as "/proc" shows them.
#pragma once

#include <sys/types.h>

#include <ctime>

#include "client/ctl/command.h"

namespace tessel::ctl {

struct ProcessFacts {
    std::optional<std::time_t> since;
    std::optional<long> residentKib;
    std::optional<bool> sharesOurNetwork;
};
[[nodiscard]] ProcessFacts LookAtProcess(pid_t pid);

// Whether the process sees the interfaces that this one sees; nothing: not allowed to look.
[[nodiscard]] std::optional<bool> SharesOurNetwork(pid_t pid);

// Every process, and what one is called; empty: it has gone.
[[nodiscard]] std::vector<pid_t> AllProcesses();
[[nodiscard]] std::string ProcessName(pid_t pid);

// The processes of this name whose command line has these words, one blank between two. The kernel keeps 15 characters
// of a name.
[[nodiscard]] std::vector<pid_t> FindProcesses(std::string_view name, std::string_view words = {});

// The same, as soon as there is one, or none of them; after a second, whatever there is.
[[nodiscard]] std::vector<pid_t> AwaitProcesses(std::string_view name, bool isOneWanted, std::string_view words = {});

// "pid 12", "pids 12, 13", "none runs".
[[nodiscard]] std::string PidsText(const std::vector<pid_t>& pids);

}  // namespace tessel::ctl
