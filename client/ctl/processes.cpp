#include "client/ctl/processes.h"

#include <fcntl.h>
#include <glob.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "client/call.h"
#include "client/ctl/files.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

namespace fs = std::filesystem;

pid_t PidIn(const std::string& path) {
    return static_cast<pid_t>(std::strtol(path.c_str() + std::string_view("/proc/").size(), nullptr, 10));
}

// A file of "/proc/PID"; empty: the process is gone.
std::string TextAbout(pid_t pid, const char* file) {
    const UniqueFd opened(open(Format("/proc/{}/{}", pid, file).c_str(), O_RDONLY | O_CLOEXEC));
    return opened.IsOpen() ? ReadToEnd(opened.Get()).value_or("") : "";  // it may end while it is read
}

// A topic and the name of its socket; one that ends with '_' goes on in words of whoever asked for the notices.
constexpr std::pair<std::string_view, std::string_view> kNoticeSockets[] = {
    {"ntp", TESSEL_SOCKET_NTP},
    {"ntp inet6", TESSEL_SOCKET_NTPV6},
    {"traffic", TESSEL_SOCKET_STAT},
    {"conflict", TESSEL_SOCKET_IP_CONFLICT},
    {"conflict inet6", TESSEL_SOCKET_IPV6_CONFLICT},
    {"dhcp", TESSEL_SOCKET_DHCPC "_"},
    {"dhcp inet6", TESSEL_SOCKET_DHCPCV6 "_"},
    {"ping", TESSEL_SOCKET_PING "_"},
    {"traceroute", TESSEL_SOCKET_TRACEROUTE "_"},
    {"ra", TESSEL_SOCKET_ROUTER_NOTIFY "_"},
};

}  // namespace

std::vector<std::string> Matching(const std::string& pattern) {
    glob_t found{};
    (void)glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found);
    std::vector<std::string> paths(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

Json LookAtProcess(pid_t pid) {
    using std::chrono::seconds;
    // proc(5): the 22nd field is the start, in ticks since boot, the 24th the pages in memory; the 2nd may be anything.
    const std::string line = TextAbout(pid, "stat");
    const auto words = WordsIn(line.substr(line.rfind(')') + 1));
    if (words.size() < 22) return {{"since", nullptr}, {"running_s", nullptr}, {"resident_kib", nullptr}};
    const auto number = [&](std::size_t field) { return std::strtoll(words[field - 3].c_str(), nullptr, 10); };
    timespec sinceBoot{};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const auto age = seconds(sinceBoot.tv_sec) + std::chrono::nanoseconds(sinceBoot.tv_nsec) -
                     std::chrono::milliseconds(number(22) * 1000 / sysconf(_SC_CLK_TCK));
    const auto now = std::chrono::system_clock::now();
    const auto since = std::chrono::floor<seconds>(now - age);
    return {{"since", JsonTime(since)},
            {"running_s", std::chrono::floor<seconds>(now - since).count()},
            {"resident_kib", number(24) * (sysconf(_SC_PAGESIZE) / 1024)}};
}

std::optional<bool> SharesOurNetwork(pid_t pid) {
    std::error_code error;
    const bool isSame = fs::equivalent("/proc/self/ns/net", Format("/proc/{}/ns/net", pid), error);
    return error ? std::nullopt : std::optional(isSame);
}

std::string ProcessName(pid_t pid) {
    const std::string name = TextAbout(pid, "comm");
    return name.substr(0, name.find('\n'));
}

std::vector<pid_t> FindProcesses(std::string_view name, std::string_view words) {
    constexpr std::size_t kNameMax = 15;
    std::vector<pid_t> found;
    for (const std::string& path : Matching("/proc/[0-9]*")) {
        const pid_t pid = PidIn(path);
        if (ProcessName(pid) != name.substr(0, kNameMax)) continue;
        std::string line = TextAbout(pid, "cmdline");
        std::replace(line.begin(), line.end(), '\0', ' ');
        // Without arguments it is dead, and waits for its parent.
        if (!line.empty() && line.find(words) != std::string::npos) found.push_back(pid);
    }
    return found;
}

std::vector<pid_t> AwaitProcesses(std::string_view name, bool isOneWanted, std::string_view words,
                                  const std::vector<pid_t>& others) {
    constexpr useconds_t kLookUs = 100 * 1000;
    const auto look = [&] {
        auto found = FindProcesses(name, words);
        std::erase_if(found, [&](pid_t pid) { return std::ranges::count(others, pid) != 0; });
        return found;
    };
    for (int looks = 0; looks < 10 && look().empty() == isOneWanted; ++looks)
        usleep(kLookUs);
    if (isOneWanted) usleep(3 * kLookUs);
    return look();
}

std::string PidsText(const std::vector<pid_t>& pids) {
    const std::string numbers = Joined(pids, ", ", [](pid_t pid) { return std::to_string(pid); });
    return pids.empty() ? "none runs" : Format("{} {}", pids.size() == 1 ? "pid" : "pids", numbers);
}

std::optional<ListeningProcess> FindListeningProcess(const std::string& socketName) {
    if (!SomebodyListens(socketName.c_str())) return std::nullopt;
    constexpr std::string_view kAccepting = "00010000";  // __SO_ACCEPTCON of linux/net.h
    std::vector<std::string> sockets;                    // one whose name somebody else took is still among them
    std::ifstream table("/proc/net/unix");
    for (std::string line; std::getline(table, line);) {
        const auto words = WordsIn(line);  // number, references, protocol, flags, type, state, inode, path
        if (words.size() == 8 && words[3] == kAccepting && words[7] == TESSEL_SOCKET_DIRECTORY + socketName)
            sockets.push_back(Format("socket:[{}]", words[6]));
    }
    for (const std::string& file : Matching("/proc/[0-9]*/fd/*")) {
        std::error_code error;
        if (sockets.size() == 1 && fs::read_symlink(file, error) == sockets.front())
            return ListeningProcess{.pid = PidIn(file), .name = ProcessName(PidIn(file))};
    }
    return ListeningProcess{};
}

std::string ListeningText(const std::optional<ListeningProcess>& process) {
    return process && process->pid ? Format("{} (pid {})", process->name, *process->pid) : "another program";
}

Json ListenerJson(const std::optional<ListeningProcess>& process) {
    return process ? Json{{"pid", OrNull(process->pid)}, {"process", NullIfEmpty(process->name)}} : Json();
}

std::vector<std::string> ListenedNames(std::string_view beginning) {
    std::vector<std::string> names;
    for (const std::string& path : Matching(TESSEL_SOCKET_DIRECTORY "*")) {
        std::string name = path.substr(path.rfind('/') + 1);
        if (name.starts_with(beginning) && SomebodyListens(name.c_str())) names.push_back(std::move(name));
    }
    return names;
}

Json NoticeListeners() {
    Json listeners = Json::array();
    for (const auto& [topic, beginning] : kNoticeSockets) {
        const bool isWhole = !beginning.ends_with('_');
        for (const std::string& name : isWhole ? std::vector{std::string(beginning)} : ListenedNames(beginning)) {
            const std::string words = (isWhole ? "" : " ") + name.substr(beginning.size());
            listeners.push_back({{"topic", std::string(topic) + words.substr(0, words.find('_'))}, {"socket", name}});
            const auto process = FindListeningProcess(name);
            listeners.back()["listener"] = ListenerJson(process);
            listeners.back()["text"] = process ? ListeningText(process) : "nobody";
        }
    }
    return listeners;
}

}  // namespace tessel::ctl
