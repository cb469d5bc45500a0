// Who takes the notifications that go to a socket.
#pragma once

#include <sys/types.h>

#include "client/ctl/command.h"

namespace tessel::ctl {

struct ListeningProcess {
    std::optional<pid_t> pid;  // nothing: not visible from here, or not certain
    std::string name;
};

// A socket that the daemon sends notices to.
struct NoticeSocket {
    std::string_view kind;  // "dhcp"
    bool isInet6;
    std::string_view name;  // ends with '_': whoever has the notices sent adds words

    [[nodiscard]] bool IsFixed() const {
        return !name.ends_with('_');
    }
};
// The fixed ones first.
[[nodiscard]] std::span<const NoticeSocket> NoticeSockets();

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
