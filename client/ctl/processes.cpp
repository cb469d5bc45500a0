#include "client/ctl/processes.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace tessel::ctl {

namespace {

constexpr std::size_t kCommMax = 15;

// The number behind `key` at the start of a line.
std::optional<long> NumberBehind(const std::string& path, std::string_view key) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key)) return std::strtol(line.c_str() + key.size(), nullptr, 10);
    }
    return std::nullopt;
}

// proc(5): ticks between boot and the start of the process are the 22nd field; the name, the 2nd, may hold anything.
std::optional<long> StartTicks(pid_t pid) {
    constexpr int kFieldsBetween = 19;
    std::ifstream file(Format("/proc/{}/stat", pid));
    std::string line;
    std::getline(file, line);
    const std::size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos) return std::nullopt;
    std::istringstream fields(line.substr(nameEnd + 1));
    std::string skipped;
    for (int i = 0; i < kFieldsBetween; ++i)
        fields >> skipped;
    long ticks = 0;
    if (!(fields >> ticks)) return std::nullopt;
    return ticks;
}

// The arguments, a blank behind each.
std::string CommandLine(pid_t pid) {
    std::ifstream file(Format("/proc/{}/cmdline", pid));
    std::string line{std::istreambuf_iterator<char>(file), {}};
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

std::optional<bool> IsSameFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    if (stat(one.c_str(), &first) != 0 || stat(other.c_str(), &second) != 0) return std::nullopt;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

ProcessFacts LookAtProcess(pid_t pid) {
    ProcessFacts facts;
    const auto bootTime = NumberBehind("/proc/stat", "btime ");
    const auto ticks = StartTicks(pid);
    if (bootTime && ticks) facts.since = static_cast<std::time_t>(*bootTime + *ticks / sysconf(_SC_CLK_TCK));
    facts.residentKib = NumberBehind(Format("/proc/{}/status", pid), "VmRSS:");
    facts.sharesOurNetwork = SharesOurNetwork(pid);
    return facts;
}

std::optional<bool> SharesOurNetwork(pid_t pid) {
    return IsSameFile("/proc/self/ns/net", Format("/proc/{}/ns/net", pid));
}

std::vector<pid_t> AllProcesses() {
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc"), &closedir);
    if (directory == nullptr) return found;
    while (const dirent* entry = readdir(directory.get())) {
        if (const auto pid = ParseNumber(entry->d_name)) found.push_back(static_cast<pid_t>(*pid));
    }
    return found;
}

std::string ProcessName(pid_t pid) {
    std::ifstream file(Format("/proc/{}/comm", pid));
    std::string name;
    std::getline(file, name);
    return name;
}

std::vector<pid_t> FindProcesses(std::string_view name, std::string_view words) {
    std::vector<pid_t> found = AllProcesses();
    std::erase_if(found, [&](pid_t pid) {
        if (ProcessName(pid) != name.substr(0, kCommMax)) return true;
        const std::string line = CommandLine(pid);
        return line.empty() || line.find(words) == std::string::npos;  // empty: dead, waiting for its parent
    });
    return found;
}

std::vector<pid_t> AwaitProcesses(std::string_view name, bool isOneWanted, std::string_view words) {
    constexpr useconds_t kLookUs = 100 * 1000;
    for (int looks = 0; looks < 10 && FindProcesses(name, words).empty() == isOneWanted; ++looks)
        usleep(kLookUs);
    return FindProcesses(name, words);
}

std::string PidsText(const std::vector<pid_t>& pids) {
    if (pids.empty()) return "none runs";
    std::vector<std::string> numbers(pids.size());
    std::transform(pids.begin(), pids.end(), numbers.begin(), [](pid_t pid) { return std::to_string(pid); });
    return Format("{} {}", pids.size() == 1 ? "pid" : "pids", Joined(numbers, ", "));
}

}  // namespace tessel::ctl
