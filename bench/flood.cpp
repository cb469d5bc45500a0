// What a flood on the link and a burst of address changes leave of the daemon. bench/README.md explains how to read it.
//
//     scripts/sandbox build/release/bin/bench_flood
#include <sys/prctl.h>

#include <atomic>
#include <thread>

#include "bench/daemon.h"
#include "bench/far.h"
#include "tessel/command.h"
#include "tessel/mtu.h"

namespace {

using namespace tessel::bench;
using tessel::UniqueFd;

constexpr auto kFloodTime = std::chrono::seconds(10);

void Run(const std::string& command) {
    if (std::system(command.c_str()) != 0) Fail(command.c_str());
}

// User and system time of a process, from the kernel's clock ticks.
double CpuSeconds(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string word;
    double ticks = 0;
    for (int field = 1; field <= 15 && file >> word; ++field) {
        if (field >= 14) ticks += std::stod(word);
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

void Ask(const std::string& request, Latencies& latencies, const std::atomic<bool>& isOver) {
    while (!isOver) {
        latencies.Measure(1, [&] { BareExchange(TESSEL_SOCKET_API, request); });
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// Measures requests and the daemon's time while `work` goes on.
template <typename Work>
void During(const char* name, pid_t daemon, const std::string& request, Work work) {
    Latencies latencies;
    std::atomic<bool> isOver{false};
    std::thread asker([&] { Ask(request, latencies, isOver); });
    const double cpuBefore = CpuSeconds(daemon);
    const auto start = Clock::now();
    work();
    const double seconds = MicrosecondsOf(Clock::now() - start) / 1e6;
    const double cpu = CpuSeconds(daemon) - cpuBefore;
    isOver = true;
    asker.join();
    printf("%s\n", name);
    PrintLatencies("0x112 meanwhile", latencies);
    printf("  slowest                            %.1f us\n", latencies.Percentile(1));
    printf("  daemon's share of one CPU          %.1f %%, over %.1f s\n\n", 100 * cpu / seconds, seconds);
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon leaves its parents; here it comes back
    Run("ip addr add 192.168.1.20/24 dev eth0");
    const std::string request = Message(TESSEL_CMD_MTU_GET, TNetMtuGetReq{.achDevName = "lo"});
    const StartedDaemon daemon = StartDaemon(request);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    During("Quiet", daemon.pid, request, [] { std::this_thread::sleep_for(std::chrono::seconds(3)); });
    const UniqueFd far = OpenFarSocket();
    Flood flood;
    During("ARP flood", daemon.pid, request, [&] { flood = SendFlood(far, kFloodTime); });
    printf("  packets                            %.0f a second\n\n",
           static_cast<double>(flood.packets) / flood.seconds);
    During("2,000 address changes and the ten seconds after them", daemon.pid, request, [] {
        Run("for i in $(seq 1 1000); do echo addr add 10.9.$((i/250)).$((i%250+1))/32 dev eth0; echo addr del "
            "10.9.$((i/250)).$((i%250+1))/32 dev eth0; done | ip -batch -");
        std::this_thread::sleep_for(std::chrono::seconds(10));
    });
    EndProcess(daemon.pid);
}
