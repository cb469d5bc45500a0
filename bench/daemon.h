// What the benchmarks share: a daemon to measure, requests, and how long something takes.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "core/file_rights.h"
#include "core/ipc.h"
#include "core/unique_fd.h"
#include "tessel/gateway.h"

namespace tessel::bench {

using Clock = std::chrono::steady_clock;

inline double MicrosecondsOf(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

[[noreturn]] inline void Fail(const char* what) {
    perror(what);
    exit(EXIT_FAILURE);
}

// A network namespace by its file: a process's, or one that `ip netns` has named.
inline UniqueFd OpenNetwork(const char* path) {
    UniqueFd network(open(path, O_RDONLY | O_CLOEXEC));
    if (!network.IsOpen()) Fail(path);
    return network;
}

// For the calling thread, and for what it starts.
inline void EnterNetwork(const UniqueFd& network) {
    if (setns(network.Get(), CLONE_NEWNET) != 0) Fail("setns");
}

inline UniqueFd Connect(const char* name) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    if (!FormSocketAddress(name, address)) Fail("name");
    if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return UniqueFd();
    return fd;
}

// One request as a client without any library makes it: connect, write, read, close. The bytes of the answer.
inline ssize_t BareExchange(const char* name, const std::string& message) {
    const UniqueFd fd = Connect(name);
    if (!fd.IsOpen()) Fail(name);
    if (write(fd.Get(), message.data(), message.size()) != static_cast<ssize_t>(message.size())) Fail("write");
    char answer[4096];
    const ssize_t count = read(fd.Get(), answer, sizeof(answer));
    if (count <= 0) Fail("read");
    return count;
}

template <typename Record>
std::string Message(u32 type, const Record& record) {
    const IpcMsgHead head{.type = type, .size = sizeof(record), .flag = 0};
    std::string message(reinterpret_cast<const char*>(&head), sizeof(head));
    return message.append(reinterpret_cast<const char*>(&record), sizeof(record));
}

inline TNetGateway Address(const std::string& text) {
    const bool isV6 = text.find(':') != std::string::npos;
    TNetGateway address{};
    address.wSinFamily = isV6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET;
    (void)inet_pton(isV6 ? AF_INET6 : AF_INET, text.c_str(), address.abyAddr);
    return address;
}

inline void EndProcess(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

struct StartedDaemon {
    pid_t pid;
    double firstAnswerMs;
};

inline StartedDaemon StartDaemon(const std::string& mtuRequest, const char* path = TESSEL_DAEMON_PATH) {
    static const UniqueFd silence(open("/dev/null", O_WRONLY | O_CLOEXEC));
    const auto start = Clock::now();
    const pid_t starter = vfork();
    if (starter == 0) {
        dup2(silence.Get(), STDOUT_FILENO);
        execl(path, path, nullptr);
        _exit(127);
    }
    while (true) {
        const UniqueFd probe = Connect(TESSEL_SOCKET_API);
        if (!probe.IsOpen()) {
            usleep(50);
            continue;
        }
        const pid_t pid = tessel::PeerOf(probe.Get()).pid;
        char answer[64];
        if (write(probe.Get(), mtuRequest.data(), mtuRequest.size()) > 0 &&
            read(probe.Get(), answer, sizeof(answer)) > 0) {
            const double ms = MicrosecondsOf(Clock::now() - start) / 1000;
            waitpid(starter, nullptr, 0);
            return {.pid = pid, .firstAnswerMs = ms};
        }
    }
}

struct Latencies {
    std::vector<double> microseconds;

    void Measure(int count, const std::function<void()>& operation) {
        for (int i = 0; i < count; ++i) {
            const auto start = Clock::now();
            operation();
            microseconds.push_back(MicrosecondsOf(Clock::now() - start));
        }
    }
    [[nodiscard]] double Percentile(double fraction) {
        std::sort(microseconds.begin(), microseconds.end());
        return microseconds[static_cast<std::size_t>(fraction * static_cast<double>(microseconds.size() - 1))];
    }
};

inline void PrintLatencies(const char* name, Latencies& latencies) {
    printf("  %-34s p50 %9.1f us   p99 %9.1f us\n", name, latencies.Percentile(0.5), latencies.Percentile(0.99));
}

inline long ProcessField(pid_t pid, const char* file, const char* field) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(field)) return strtol(line.c_str() + strlen(field), nullptr, 10);
    }
    return 0;
}

inline long PrivateKib(pid_t pid) {
    return ProcessField(pid, "smaps_rollup", "Private_Clean:") + ProcessField(pid, "smaps_rollup", "Private_Dirty:");
}

}  // namespace tessel::bench
