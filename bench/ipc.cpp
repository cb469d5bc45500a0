// What a request costs, beside what the same thing costs without the daemon, on one CPU and on two. bench/README.md
// explains how to read it.
//
//     scripts/sandbox build/release/bin/bench_ipc [--only TEXT] [DAEMON ...]
//
// DAEMON: other builds to compare with, a column for each. --only: comparisons alone whose name has this text.
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "bench/table.h"
#include "client/libtessel.h"
#include "core/unique_fd.h"
#include "tessel/command.h"

namespace {

using namespace tessel::bench;
using tessel::UniqueFd;

void BindToCpus(int count) {
    cpu_set_t chosen;
    CPU_ZERO(&chosen);
    for (int cpu = 0; cpu < count; ++cpu)
        CPU_SET(cpu, &chosen);
    if (sched_setaffinity(0, sizeof(chosen), &chosen) != 0) Fail("sched_setaffinity");
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

// A tool's line run as directly as can be, its output read to the end.
void RunDirectly(std::initializer_list<const char*> words) {
    std::vector<char*> argv;
    for (const char* word : words)
        argv.push_back(const_cast<char*>(word));
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe2");
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    const pid_t pid = vfork();
    if (pid == 0) {
        dup2(writeEnd.Get(), STDOUT_FILENO);
        dup2(writeEnd.Get(), STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    writeEnd.Reset();
    char buffer[4096];
    while (read(readEnd.Get(), buffer, sizeof(buffer)) > 0) {
    }
    waitpid(pid, nullptr, 0);
}

// The daemon's way to do something, and that without it.
struct Comparison {
    const char* name;
    const char* aim;
    int batches;  // in each round
    int size;     // of a batch: what one side does before the other one's turn
    std::function<void()> daemon;
    std::function<void()> bare;
    bool isChange = false;
};

std::string ReadAddresses(const char* interface) {
    TNetIpaddrGetReq request{.wSinFamily = TESSEL_FAMILY_INET, .achDevName = {}};
    snprintf(request.achDevName, sizeof(request.achDevName), "%s", interface);
    return Message(TESSEL_CMD_IPADDR_GET, request);
}

Comparison ReadingAddresses(const char* name, const char* interface) {
    const std::string message = ReadAddresses(interface);
    return {name,
            "1.04",
            20,
            1,
            [message] { Ask(message); },
            [message, interface] {
                RunDirectly({"ip", "-4", "addr", "show", "dev", interface});
                Echo(message);
            }};
}

std::vector<Comparison> Comparisons() {
    TNetIpaddrChangeReq address{.achDevName = "eth0", .tIp = {}};
    address.tIp.wSinFamily = TESSEL_FAMILY_INET;
    address.tIp.dwPrefixLen = 24;
    memcpy(address.tIp.abyAddr, Address("10.1.1.1").abyAddr, sizeof(address.tIp.abyAddr));
    const std::string addressAdd = Message(TESSEL_CMD_IPADDR_ADD, address);
    const std::string addressDel = Message(TESSEL_CMD_IPADDR_DEL, address);

    TNetRouteReq route{.achDevName = "eth0", .tRoute = {}, .dwTable = 0};
    route.tRoute.tDestIpNet = Address("10.20.0.0");
    route.tRoute.tGateway = Address("192.168.1.1");
    route.tRoute.nPrefixLen = 16;
    const std::string routeAdd = Message(TESSEL_CMD_ROUTE_ADD, route);
    const std::string routeDel = Message(TESSEL_CMD_ROUTE_DEL, route);

    TNetIpFilterReq entry{.eCmd = TESSEL_LIST_WHITE_ADD, .tFilter = {}};
    entry.tFilter.tStart = Address("10.3.3.3");
    entry.tFilter.dwPrefixLen = 32;
    const std::string entryAdd = Message(TESSEL_CMD_IP_FILTER, entry);
    entry.eCmd = TESSEL_LIST_WHITE_DEL;
    const std::string entryDel = Message(TESSEL_CMD_IP_FILTER, entry);

    const auto pair = [](const std::string& first, const std::string& second) {
        return [first, second] {
            Ask(first);
            Ask(second);
        };
    };
    return {
        {"0x112 / echo", "1.18", 20, 100, [] { Ask(g_mtuRequest); }, [] { Echo(g_mtuRequest); }},
        {"0x112 through libtessel / echo", "", 20, 100,
         [] {
             u32 mtu = 0;
             if (tessel_mtu_get("lo", &mtu) != TESSEL_OK) Fail("tessel_mtu_get");
         },
         [] { Echo(g_mtuRequest); }},
        ReadingAddresses("0x115, 1 address / (tool + echo)", "eth0"),
        ReadingAddresses("0x115, 16 addresses / (tool + echo)", "eth1"),
        ReadingAddresses("0x115, 500 addresses / (tool + echo)", "eth2"),
        {"address add and delete / (tools + echoes)", "1.06", 10, 5, pair(addressAdd, addressDel),
         [=] {
             RunDirectly({"ip", "-4", "addr", "add", "10.1.1.1/24", "dev", "eth0"});
             Echo(addressAdd);
             RunDirectly({"ip", "-4", "addr", "del", "10.1.1.1/24", "dev", "eth0"});
             Echo(addressDel);
         },
         true},
        {"route add and delete / (tools + echoes)", "1.06", 10, 5, pair(routeAdd, routeDel),
         [=] {
             RunDirectly({"ip", "route", "add", "10.20.0.0/16", "via", "192.168.1.1", "dev", "eth0", "metric", "0"});
             Echo(routeAdd);
             RunDirectly({"ip", "route", "del", "10.20.0.0/16", "via", "192.168.1.1", "dev", "eth0"});
             Echo(routeDel);
         },
         true},
        {"white list add and delete / (tools + echoes)", "1.06", 2, 3, pair(entryAdd, entryDel),
         [=] {
             RunDirectly({"iptables", "-C", "whitelist", "-s", "10.3.3.3/32", "-j", "RETURN"});
             RunDirectly({"iptables", "-I", "whitelist", "-s", "10.3.3.3/32", "-j", "RETURN"});
             Echo(entryAdd);
             RunDirectly({"iptables", "-D", "whitelist", "-s", "10.3.3.3/32", "-j", "RETURN"});
             Echo(entryDel);
         },
         true},
    };
}

// For every daemon the median of the rounds' ratios, each that of both sides' medians. The other side's changes are
// made in the twin network, where the daemon does not follow them.
void Compare(const Comparison& comparison) {
    if (!IsWanted(comparison.name)) return;
    static const UniqueFd own = OpenNetwork("/proc/self/ns/net");
    static const UniqueFd twin = OpenNetwork("/run/netns/twin");
    std::vector<std::vector<double>> ratios(g_daemons.size());
    std::vector<double> bareMedians;
    // A round in which one side's CPU is slower than the other's counts little among many.
    const int rounds = comparison.isChange ? 3 * kRounds : kRounds;
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            Latencies served;
            Latencies bare;
            const StartedDaemon daemon = Start(i);
            Latencies warmUp;
            warmUp.Measure(2, comparison.daemon);
            usleep(150'000);  // what the start and the first changes leave to be done has been done
            for (int batch = 0; batch < comparison.batches; ++batch) {
                EnterNetwork(comparison.isChange ? twin : own);
                bare.Measure(comparison.size, comparison.bare);
                EnterNetwork(own);
                served.Measure(comparison.size, comparison.daemon);
            }
            EndProcess(daemon.pid);
            bareMedians.push_back(bare.Percentile(0.5));
            ratios[i].push_back(served.Percentile(0.5) / bareMedians.back());
        }
    }
    char name[80];
    snprintf(name, sizeof(name), "%s (%.1f us)", comparison.name, Median(bareMedians));
    PrintRow(
        name, [&](std::size_t i) { return Text(Median(ratios[i]), 3); }, comparison.aim);
}

void GiveAddresses(const char* interface, int count) {
    FILE* batch = popen("ip -batch -", "w");
    if (batch == nullptr) Fail("ip");
    for (int i = 0; i < count; ++i)
        fprintf(batch, "addr add 10.9.%d.%d/16 dev %s\n", i / 250, i % 250 + 1, interface);
    if (pclose(batch) != 0) Fail("ip -batch");
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon leaves its parents; here it comes back
    if (argc > 2 && strcmp(argv[1], "--only") == 0) {
        g_only = argv[2];
        argc -= 2;
        argv += 2;
    }
    g_daemons.assign(argv + 1, argv + argc);
    if (g_daemons.empty()) g_daemons.emplace_back(TESSEL_DAEMON_PATH);
    g_mtuRequest = Message(TESSEL_CMD_MTU_GET, TNetMtuGetReq{.achDevName = "lo"});
    for (std::size_t i = 0; i < g_daemons.size(); ++i)
        printf("column %zu: %s\n", i + 1, g_daemons[i].c_str());
    PrintStartTimes();
    PrintIdleCosts();
    GiveAddresses("eth1", 16);
    GiveAddresses("eth2", 500);
    if (std::system("ip netns add twin && ip -n twin link add eth0 type veth peer name twin0 netns far && "
                    "ip -n twin link set eth0 up && ip -n far link set twin0 up && "
                    "for where in '' 'ip netns exec twin'; do $where ip addr add 192.168.1.20/24 dev eth0 && "
                    "$where iptables -N whitelist || exit; done; "
                    "printf '#!/bin/sh\\n' >/etc/scripts/udhcpc.script && chmod +x /etc/scripts/udhcpc.script") != 0)
        Fail("ip");
    for (const int cpus : {1, 2}) {
        BindToCpus(cpus);
        printf(cpus == 1 ? "One CPU for client, server and tools\n" : "Two CPUs\n");
        const pid_t echo = StartEchoServer();
        usleep(100'000);
        for (const Comparison& comparison : Comparisons())
            Compare(comparison);
        CompareManyClients();
        CompareUnderSessions();
        EndProcess(echo);
    }
}
