#include "client/ctl/listening.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "client/call.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

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
        if (flags == kAccepting && bound == path) found.push_back(Format("socket:[{}]", inode));
    }
    return found;
}

bool HasOpen(pid_t pid, const std::string& target) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry(Format("/proc/{}/fd", pid), error), end; entry != end;
         entry.increment(error)) {
        if (std::filesystem::read_symlink(*entry, error) == target) return true;
    }
    return false;
}

constexpr NoticeSocket kNoticeSockets[] = {
    {"ntp", false, TESSEL_SOCKET_NTP},
    {"ntp", true, TESSEL_SOCKET_NTPV6},
    {"traffic", false, TESSEL_SOCKET_STAT},
    {"conflict", false, TESSEL_SOCKET_IP_CONFLICT},
    {"conflict", true, TESSEL_SOCKET_IPV6_CONFLICT},
    {"dhcp", false, TESSEL_SOCKET_DHCPC "_"},
    {"dhcp", true, TESSEL_SOCKET_DHCPCV6 "_"},
    {"ping", false, TESSEL_SOCKET_PING "_"},
    {"traceroute", false, TESSEL_SOCKET_TRACEROUTE "_"},
    {"ra", false, TESSEL_SOCKET_ROUTER_NOTIFY "_"},
};

}  // namespace

std::span<const NoticeSocket> NoticeSockets() {
    return kNoticeSockets;
}

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

std::vector<std::string> ListenedNames(std::string_view beginning) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(TESSEL_SOCKET_DIRECTORY, error), end; entry != end;
         entry.increment(error)) {
        std::string name = entry->path().filename();
        if (name.starts_with(beginning) && SomebodyListens(name.c_str())) names.push_back(std::move(name));
    }
    return names;
}

bool MayStillRun(const ListeningProcess& process) {
    return !process.pid || ProcessName(*process.pid) == process.name;
}

std::string ListeningText(const ListeningProcess& process) {
    return process.pid ? Format("{} (pid {})", process.name, *process.pid) : "another program";
}

Json ListeningJson(const std::optional<ListeningProcess>& process) {
    if (!process) return nullptr;
    return {{"pid", OrNull(process->pid)}, {"process", NullIfEmpty(process->name)}};
}

}  // namespace tessel::ctl
