// Processes, as "/proc" shows them, and which of them take the daemon's notices.
#pragma once

#include <sys/types.h>

#include "client/ctl/command.h"

namespace tessel::ctl {

// {"since", "running_s", "resident_kib"}; each null: it is gone.
[[nodiscard]] Json LookAtProcess(pid_t pid);

// The paths that a pattern of glob(7) stands for, as far as they may be seen.
[[nodiscard]] std::vector<std::string> Matching(const std::string& pattern);

// Whether the process sees the interfaces that this one sees; nothing: not allowed to look.
[[nodiscard]] std::optional<bool> SharesOurNetwork(pid_t pid);

// Empty: it is gone.
[[nodiscard]] std::string ProcessName(pid_t pid);

// The processes of this name whose command line has these words, one blank between two. The kernel keeps 15 characters
// of a name.
[[nodiscard]] std::vector<pid_t> FindProcesses(std::string_view name, std::string_view words = {});

// The same but for `others`, as soon as there is one (that does not end at once), or none; after a second, what there
// is.
[[nodiscard]] std::vector<pid_t> AwaitProcesses(std::string_view name, bool isOneWanted, std::string_view words = {},
                                                const std::vector<pid_t>& others = {});

// "pid 12", "pids 12, 13", "none runs".
[[nodiscard]] std::string PidsText(const std::vector<pid_t>& pids);

struct ListeningProcess {
    std::optional<pid_t> pid;  // nothing: not visible from here, or not certain
    std::string name;
};
// Nothing: nobody listens under this name.
[[nodiscard]] std::optional<ListeningProcess> FindListeningProcess(const std::string& socketName);

// "webui (pid 801)", "another program".
[[nodiscard]] std::string ListeningText(const std::optional<ListeningProcess>& process);

// {"pid", "process"}; null: nobody listens.
[[nodiscard]] Json ListenerJson(const std::optional<ListeningProcess>& process);

// The names of sockets with this beginning that somebody listens under.
[[nodiscard]] std::vector<std::string> ListenedNames(std::string_view beginning);

// Who takes which notices: under every fixed name, and under those that programs made up for themselves.
//   [{"topic": kind, family, interface or id: "conflict inet6", "dhcp eth0"; "socket",
//     "listener": as above; "text": "webui (pid 801)", "nobody"}]
[[nodiscard]] Json NoticeListeners();

}  // namespace tessel::ctl
