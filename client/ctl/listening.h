// Who takes the notifications that go to a socket.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/json.h"

namespace tessel::ctl {

struct ListeningProcess {
    std::optional<pid_t> pid;  // nothing: not visible from here, or not certain
    std::string name;
};

// Nothing: nobody listens under this name.
[[nodiscard]] std::optional<ListeningProcess> FindListeningProcess(const std::string& socketName);

// The names of sockets with this beginning that somebody listens under.
[[nodiscard]] std::vector<std::string> ListenedNames(std::string_view beginning);

// True unless it is known to have ended.
[[nodiscard]] bool MayStillRun(const ListeningProcess& process);

// "webui (pid 801)", "another program".
[[nodiscard]] std::string ListeningText(const ListeningProcess& process);

// Null when nobody listens.
[[nodiscard]] Json ListeningJson(const std::optional<ListeningProcess>& process);

}  // namespace tessel::ctl
