#include "client/ctl/listening.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <vector>

#include "client/call.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/processes.h"
#include "tessel/ipc.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// What "/proc/PID/fd" shows for the listening sockets that were bound to this path: "socket:[4711]". One whose name
// somebody else took is still among them.
std::vector<std::string> SocketsBoundTo(std::string_view path) {
    constexpr std::string_view kAccepting = "00010000";  // __SO_ACCEPTCON of linux/net.h
    std::vector<std::string> found;
    std::ifstream file("/proc/net/unix");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string number;
        std::string references;
        std::string protocol;
        std::string flags;
        std::string type;
        std::string state;
        std::string inode;
        std::string bound;
        fields >> number >> references >> protocol >> flags >> type >> state >> inode >> bound;
        if (flags == kAccepting && bound == path) found.push_back(fmt::format("socket:[{}]", inode));
    }
    return found;
}

bool HasOpen(pid_t pid, const std::string& target) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(fmt::format("/proc/{}/fd", pid), error), end; entry != end;
         entry.increment(error)) {
        if (std::filesystem::read_symlink(*entry, error) == target) return true;
    }
    return false;
}

}  // namespace

std::optional<ListeningProcess> FindListeningProcess(const std::string& socketName) {
    if (!SomebodyListens(socketName.c_str())) return std::nullopt;
    const auto sockets = SocketsBoundTo(TESSEL_SOCKET_DIRECTORY + socketName);
    if (sockets.size() != 1) return ListeningProcess{};
    const auto processes = AllProcesses();
    const auto found =
        std::find_if(processes.begin(), processes.end(), [&](pid_t pid) { return HasOpen(pid, sockets.front()); });
    if (found == processes.end()) return ListeningProcess{};
    return ListeningProcess{.pid = *found, .name = ProcessName(*found)};
}

bool MayStillRun(const ListeningProcess& process) {
    return !process.pid || ProcessName(*process.pid) == process.name;
}

std::string ListeningText(const ListeningProcess& process) {
    return process.pid ? fmt::format("{} (pid {})", process.name, *process.pid) : "another program";
}

ordered_json ListeningJson(const std::optional<ListeningProcess>& process) {
    if (!process) return nullptr;
    return {{"pid", OrNull(process->pid)}, {"process", NullIfEmpty(process->name)}};
}

}  // namespace tessel::ctl
