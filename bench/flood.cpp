// What a flood on the link and a burst of address changes leave of the daemon. bench/README.md explains how to read it.
//
//     scripts/sandbox build/release/bin/bench_flood
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/prctl.h>

#include <atomic>
#include <thread>

#include "bench/daemon.h"
#include "tessel/command.h"
#include "tessel/mtu.h"

namespace {

using namespace tessel::bench;
using tessel::UniqueFd;

constexpr int kPacketsPerMs = 20;
constexpr auto kFloodTime = std::chrono::seconds(10);

void Run(const std::string& command) {
    if (std::system(command.c_str()) != 0) Fail(command.c_str());
}

// A socket at the far end of eth0's cable.
UniqueFd OpenFarSocket() {
    UniqueFd fd;
    std::thread([&] {
        const UniqueFd space(open("/run/netns/far", O_RDONLY | O_CLOEXEC));
        if (setns(space.Get(), CLONE_NEWNET) != 0) Fail("setns");
        fd.Reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
        if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) Fail("bind");
    }).join();
    return fd;
}

// A broadcast ARP request from a host on the link that looks for another one.
std::string ForeignRequest() {
    std::string frame(6, '\xff');
    frame += std::string("\x02\0\0\0\x01\x77\x08\x06\0\x01\x08\0\x06\x04\0\x01\x02\0\0\0\x01\x77\xc0\xa8\x01\x63", 26);
    return frame + std::string(6, '\0') + std::string("\xc0\xa8\x01\x64", 4);
}

struct Flood {
    long packets = 0;
    double seconds = 0;
};

Flood SendFlood(const UniqueFd& fd) {
    const std::string frame = ForeignRequest();
    Flood flood;
    const auto start = Clock::now();
    for (auto next = start; next - start < kFloodTime; next += std::chrono::milliseconds(1)) {
        std::this_thread::sleep_until(next);
        for (int i = 0; i < kPacketsPerMs; ++i)
            flood.packets += send(fd.Get(), frame.data(), frame.size(), 0) > 0 ? 1 : 0;
    }
    flood.seconds = MicrosecondsOf(Clock::now() - start) / 1e6;
    return flood;
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
    During("ARP flood", daemon.pid, request, [&] { flood = SendFlood(far); });
    printf("  packets                            %.0f a second\n\n",
           static_cast<double>(flood.packets) / flood.seconds);
    During("2,000 address changes and the ten seconds after them", daemon.pid, request, [] {
        Run("for i in $(seq 1 1000); do echo addr add 10.9.$((i/250)).$((i%250+1))/32 dev eth0; echo addr del "
            "10.9.$((i/250)).$((i%250+1))/32 dev eth0; done | ip -batch -");
        std::this_thread::sleep_for(std::chrono::seconds(10));
    });
    EndProcess(daemon.pid);
}
