// What a request costs, beside what the same thing costs without the daemon. bench/README.md explains how to read it.
//
//     scripts/sandbox build/release/bin/bench_ipc
#include "core/ipc.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon.h"
#include "core/unique_fd.h"
#include "tessel/address.h"
#include "tessel/command.h"
#include "tessel/mtu.h"

namespace {

using namespace tessel::bench;
using tessel::UniqueFd;

constexpr char kEchoSocket[] = "bench_echo";
constexpr int kRounds = 20;  // the two sides take turns, so that a machine that changes its speed changes both

void BindToOneCpu() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    if (sched_setaffinity(0, sizeof(one), &one) != 0) Fail("sched_setaffinity");
}

// accept, read, write, close: the least that a server can do.
pid_t StartEchoServer() {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    socklen_t length = 0;
    (void)MakeAddrServer(listener.Get(), kEchoSocket, &address, &length);
    while (true) {
        const UniqueFd connection(accept(listener.Get(), nullptr, nullptr));
        char buffer[3084];
        const ssize_t count = read(connection.Get(), buffer, sizeof(buffer));
        if (count > 0 && write(connection.Get(), buffer, static_cast<std::size_t>(count)) != count) Fail("echo");
    }
}

void CompareSingleRequests(const std::string& mtuRequest) {
    Latencies echo;
    Latencies daemon;
    Latencies library;
    const TNetMtuGetReq request{.achDevName = "lo"};
    for (int round = 0; round < kRounds; ++round) {
        echo.Measure(2000, [&] { BareExchange(kEchoSocket, mtuRequest); });
        daemon.Measure(2000, [&] { BareExchange(TESSEL_SOCKET_API, mtuRequest); });
        library.Measure(2000, [&] {
            TNetMtuGetReply reply{};
            if (IpcApiSendAndRecv(TESSEL_CMD_MTU_GET, &request, sizeof(request), &reply, sizeof(reply)) != 0)
                Fail("request");
        });
    }
    printf("0x112, one client (client and server on one CPU)\n");
    PrintLatencies("bare echo", echo);
    PrintLatencies("daemon, bare client", daemon);
    PrintLatencies("daemon, IpcApiSendAndRecv", library);
    printf("  ratio of medians to the bare echo  %.2f, with IpcApiSendAndRecv %.2f   (aim: 1.18)\n\n",
           daemon.Percentile(0.5) / echo.Percentile(0.5), library.Percentile(0.5) / echo.Percentile(0.5));
}

// Requests a second of 16 client processes at once.
double Rate(const char* name, const std::string& message) {
    constexpr int kClients = 16;
    constexpr int kRequests = 1000;
    const auto start = Clock::now();
    std::vector<pid_t> clients;
    for (int i = 0; i < kClients; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (int n = 0; n < kRequests; ++n)
                BareExchange(name, message);
            _exit(0);
        }
        clients.push_back(pid);
    }
    for (const pid_t pid : clients) {
        int status = 0;
        waitpid(pid, &status, 0);
        if (status != 0) Fail("client");
    }
    return kClients * kRequests / (MicrosecondsOf(Clock::now() - start) / 1e6);
}

void CompareManyClients(const std::string& mtuRequest) {
    std::vector<double> echo;
    std::vector<double> daemon;
    for (int round = 0; round < 9; ++round) {
        echo.push_back(Rate(kEchoSocket, mtuRequest));
        daemon.push_back(Rate(TESSEL_SOCKET_API, mtuRequest));
    }
    std::sort(echo.begin(), echo.end());
    std::sort(daemon.begin(), daemon.end());
    const double echoMedian = echo[echo.size() / 2];
    const double daemonMedian = daemon[daemon.size() / 2];
    printf("0x112, 16 clients\n");
    printf("  %-34s %9.0f requests/s\n", "bare echo", echoMedian);
    printf("  %-34s %9.0f requests/s\n", "daemon", daemonMedian);
    printf("  ratio of medians                   %.2f   (aim: at least 0.85)\n\n", daemonMedian / echoMedian);
}

// The same tool run as directly as can be, its output read to the end.
void RunTool(const char* interfaceName) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe2");
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    const pid_t pid = vfork();
    if (pid == 0) {
        dup2(writeEnd.Get(), STDOUT_FILENO);
        execlp("ip", "ip", "-4", "addr", "show", "dev", interfaceName, nullptr);
        _exit(127);
    }
    writeEnd.Reset();
    char buffer[4096];
    while (read(readEnd.Get(), buffer, sizeof(buffer)) > 0) {
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (status != 0) Fail("ip");
}

void GiveAddresses(const char* interfaceName, int count) {
    FILE* batch = popen("ip -batch -", "w");
    if (batch == nullptr) Fail("ip");
    for (int i = 0; i < count; ++i)
        fprintf(batch, "addr add 10.9.%d.%d/16 dev %s\n", i / 250, i % 250 + 1, interfaceName);
    if (pclose(batch) != 0) Fail("ip -batch");
}

void CompareToolRuns(const char* interfaceName, int addresses) {
    GiveAddresses(interfaceName, addresses);
    TNetIpaddrGetReq request{.wSinFamily = TESSEL_FAMILY_INET, .achDevName = {}};
    strncpy(request.achDevName, interfaceName, sizeof(request.achDevName));
    const std::string message = Message(TESSEL_CMD_IPADDR_GET, request);
    Latencies tool;
    Latencies echo;
    Latencies daemon;
    for (int round = 0; round < kRounds; ++round) {
        tool.Measure(40, [&] { RunTool(interfaceName); });
        echo.Measure(40, [&] { BareExchange(kEchoSocket, message); });
        daemon.Measure(40, [&] { BareExchange(TESSEL_SOCKET_API, message); });
    }
    printf("0x115, %d address%s\n", addresses, addresses == 1 ? "" : "es");
    PrintLatencies("`ip` run directly", tool);
    PrintLatencies("bare echo", echo);
    PrintLatencies("daemon", daemon);
    printf("  daemon / (tool + echo), medians    %.3f   (aim: 1.04)\n\n",
           daemon.Percentile(0.5) / (tool.Percentile(0.5) + echo.Percentile(0.5)));
}

// Of all threads.
long WakeupsOf(pid_t pid) {
    long wakeups = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
        wakeups += ProcessField(pid, ("task/" + task.path().filename().string() + "/status").c_str(),
                                "voluntary_ctxt_switches:");
    return wakeups;
}

void PrintIdleCosts(pid_t pid) {
    constexpr int kSettleSeconds = 3;  // what changes at the start is looked at for a while
    constexpr int kSeconds = 20;
    std::this_thread::sleep_for(std::chrono::seconds(kSettleSeconds));
    const long before = WakeupsOf(pid);
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    const long wakeups = WakeupsOf(pid) - before;
    struct stat binary {};
    stat(TESSEL_DAEMON_PATH, &binary);
    const long privateKib =
        ProcessField(pid, "smaps_rollup", "Private_Clean:") + ProcessField(pid, "smaps_rollup", "Private_Dirty:");
    printf("Idle daemon\n");
    printf("  resident memory                    %ld KiB   (aim: under 3277)\n", ProcessField(pid, "status", "VmRSS:"));
    printf("  of it private                      %ld KiB   (aim: under 650)\n", privateKib);
    printf("  wake-ups                           %.2f a second   (aim: 0.45)\n",
           static_cast<double>(wakeups) / kSeconds);
    printf("  binary                             %.0f KiB   (aim: under 400)\n\n",
           static_cast<double>(binary.st_size) / 1024);
}

void PrintStartTime(const std::string& mtuRequest) {
    std::vector<double> times;
    for (int i = 0; i < 21; ++i) {
        const StartedDaemon daemon = StartDaemon(mtuRequest);
        times.push_back(daemon.firstAnswerMs);
        EndProcess(daemon.pid);
    }
    std::sort(times.begin(), times.end());
    printf("Start to first answer                median %.2f ms, worst %.2f ms   (aim: under 5)\n\n",
           times[times.size() / 2], times.back());
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon leaves its parents; here it comes back
    const std::string mtuRequest = Message(TESSEL_CMD_MTU_GET, TNetMtuGetReq{.achDevName = "lo"});
    PrintStartTime(mtuRequest);

    BindToOneCpu();
    const pid_t echo = StartEchoServer();
    const StartedDaemon daemon = StartDaemon(mtuRequest);
    usleep(100000);
    PrintIdleCosts(daemon.pid);
    CompareSingleRequests(mtuRequest);
    CompareManyClients(mtuRequest);
    CompareToolRuns("eth0", 1);
    CompareToolRuns("eth1", 16);
    CompareToolRuns("eth2", 500);
    EndProcess(daemon.pid);
    EndProcess(echo);
}
