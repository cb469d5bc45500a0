// What a request costs, beside what the same thing costs without the daemon, on one CPU and on two. bench/README.md
// explains how to read it.
//
//     scripts/sandbox build/release/bin/bench_ipc [--only TEXT] [DAEMON ...]
//
// DAEMON: other builds to compare with, a column for each. --only: comparisons alone whose name has this text.
#include "core/ipc.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon.h"
#include "client/libtessel.h"
#include "core/unique_fd.h"
#include "tessel/command.h"

namespace {

using namespace tessel::bench;
using tessel::UniqueFd;

constexpr char kEchoSocket[] = "bench_echo";
constexpr int kRounds = 15;  // all sides take turns, so that a machine that changes its speed changes all of them

std::vector<std::string> g_daemons;  // the programs that are compared
std::string g_only;
std::string g_mtuRequest;

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

bool IsWanted(const char* name) {
    return strstr(name, g_only.c_str()) != nullptr;
}

// A line of the table: a name, a column for each daemon, the aim.
template <typename Column>
void PrintRow(const char* name, Column column, const char* aim) {
    printf("  %-46s", name);
    for (std::size_t i = 0; i < g_daemons.size(); ++i)
        printf(" %9s", column(i).c_str());
    printf("   %s\n", aim);
}

std::string Text(double value, int decimals) {
    char text[32];
    snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

StartedDaemon Start(std::size_t daemon) {
    return StartDaemon(g_mtuRequest, g_daemons[daemon].c_str());
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

void Echo(const std::string& message) {
    (void)BareExchange(kEchoSocket, message);
}

void Ask(const std::string& message) {
    (void)BareExchange(TESSEL_SOCKET_API, message);
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

TNetGateway Address(const char* text) {
    TNetGateway address{.wSinFamily = TESSEL_FAMILY_INET, .wReserved = 0, .abyAddr = {}};
    (void)inet_pton(AF_INET, text, address.abyAddr);
    return address;
}

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
        {"address add and delete / (tools + echoes)", "1.06", 20, 1, pair(addressAdd, addressDel),
         [=] {
             RunDirectly({"ip", "-4", "addr", "add", "10.1.1.1/24", "dev", "eth0"});
             Echo(addressAdd);
             RunDirectly({"ip", "-4", "addr", "del", "10.1.1.1/24", "dev", "eth0"});
             Echo(addressDel);
         },
         true},
        {"route add and delete / (tools + echoes)", "1.06", 20, 1, pair(routeAdd, routeDel),
         [=] {
             RunDirectly({"ip", "route", "add", "10.20.0.0/16", "via", "192.168.1.1", "dev", "eth0", "metric", "0"});
             Echo(routeAdd);
             RunDirectly({"ip", "route", "del", "10.20.0.0/16", "via", "192.168.1.1", "dev", "eth0"});
             Echo(routeDel);
         },
         true},
        {"white list add and delete / (tools + echoes)", "1.06", 10, 1, pair(entryAdd, entryDel),
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

// The medians of both sides, and their ratio, for every daemon. What changes the network is done without the daemon
// while there is none: it would follow.
void Compare(const Comparison& comparison) {
    if (!IsWanted(comparison.name)) return;
    std::vector<Latencies> daemons(g_daemons.size());
    Latencies bare;
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            const int bareBatches = comparison.isChange ? comparison.batches : 0;
            bare.Measure(bareBatches * comparison.size / 2, comparison.bare);
            const StartedDaemon daemon = Start(i);
            Latencies warmUp;
            warmUp.Measure(2, comparison.daemon);
            usleep(150'000);  // what the start and the first changes leave to be done has been done
            for (int batch = 0; batch < comparison.batches; ++batch) {
                if (!comparison.isChange) bare.Measure(comparison.size, comparison.bare);
                daemons[i].Measure(comparison.size, comparison.daemon);
            }
            EndProcess(daemon.pid);
            bare.Measure(bareBatches * comparison.size / 2, comparison.bare);
        }
    }
    char name[80];
    snprintf(name, sizeof(name), "%s (%.1f us)", comparison.name, bare.Percentile(0.5));
    PrintRow(
        name, [&](std::size_t i) { return Text(daemons[i].Percentile(0.5) / bare.Percentile(0.5), 3); },
        comparison.aim);
}

// Requests a second of 16 client processes at once.
double Rate(const char* name) {
    constexpr int kClients = 16;
    constexpr int kRequests = 1000;
    const auto start = Clock::now();
    std::vector<pid_t> clients;
    for (int i = 0; i < kClients; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (int n = 0; n < kRequests; ++n)
                (void)BareExchange(name, g_mtuRequest);
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

void CompareManyClients() {
    constexpr char kName[] = "0x112, 16 clients: rate / echo's rate";
    if (!IsWanted(kName)) return;
    std::vector<double> echo;
    std::vector<std::vector<double>> daemons(g_daemons.size());
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            const StartedDaemon daemon = Start(i);
            echo.push_back(Rate(kEchoSocket));
            daemons[i].push_back(Rate(TESSEL_SOCKET_API));
            EndProcess(daemon.pid);
        }
    }
    PrintRow(
        kName, [&](std::size_t i) { return Text(Median(daemons[i]) / Median(echo), 2); }, "0.85 or more");
}

// Ten pings, a DHCP client on each of three interfaces, and statistics; nobody listens to their events.
void StartSessions() {
    for (int user = 1; user <= 10; ++user) {
        const TNetPingStartReq ping{Address("127.0.0.1"), 56, 1, 64, 0, user};
        if (tessel_ping_start(&ping) != TESSEL_OK) Fail("tessel_ping_start");
    }
    for (const char* interface : {"eth0", "eth1", "eth2"}) {
        if (tessel_dhcpc_start(TESSEL_FAMILY_INET, interface, 0, 1) != TESSEL_OK) Fail("tessel_dhcpc_start");
    }
    if (tessel_traffic_start(1) != TESSEL_OK) Fail("tessel_traffic_start");
}

// What sessions cost those who only read an MTU: how much more than the echo it takes beside them, and by itself.
void CompareUnderSessions() {
    constexpr char kName[] = "0x112 beside ten pings, three DHCP clients and";
    if (!IsWanted(kName)) return;
    struct Sides {
        Latencies daemon, echo;
        void Measure() {
            for (int part = 0; part < 20; ++part) {
                echo.Measure(100, [] { Echo(g_mtuRequest); });
                daemon.Measure(100, [] { Ask(g_mtuRequest); });
                usleep(50'000);
            }
        }
        double Ratio() {
            return daemon.Percentile(0.5) / echo.Percentile(0.5);
        }
    };
    std::vector<Sides> quiet(g_daemons.size());
    std::vector<Sides> busy(g_daemons.size());
    for (int round = 0; round < 5; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            const StartedDaemon daemon = Start(i);
            quiet[i].Measure();
            StartSessions();
            busy[i].Measure();
            EndProcess(daemon.pid);
            if (std::system("killall -q ping udhcpc") < 0) Fail("killall");
        }
    }
    PrintRow(
        kName, [&](std::size_t i) { return Text(busy[i].Ratio() / quiet[i].Ratio(), 3); }, "1.05");
    printf("    statistics / without them\n");
}

// Of all threads.
long WakeupsOf(pid_t pid) {
    long wakeups = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
        wakeups += ProcessField(pid, ("task/" + task.path().filename().string() + "/status").c_str(),
                                "voluntary_ctxt_switches:");
    return wakeups;
}

struct IdleCosts {
    long residentKib, aloneKib, privateKib;
    double wakeups, binaryKib;
};

long PrivateKib(pid_t pid) {
    return ProcessField(pid, "smaps_rollup", "Private_Clean:") + ProcessField(pid, "smaps_rollup", "Private_Dirty:");
}

IdleCosts MeasureIdle(std::size_t i) {
    constexpr int kSettleSeconds = 3;  // what changes at the start is looked at for a while
    constexpr int kSeconds = 20;
    const StartedDaemon daemon = Start(i);
    std::this_thread::sleep_for(std::chrono::seconds(kSettleSeconds));
    const long before = WakeupsOf(daemon.pid);
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    IdleCosts costs{};
    costs.wakeups = static_cast<double>(WakeupsOf(daemon.pid) - before) / kSeconds;
    costs.residentKib = ProcessField(daemon.pid, "status", "VmRSS:");
    costs.aloneKib = PrivateKib(daemon.pid);
    // Another user of the library, as most devices and desktops have one: its clean pages are no longer the daemon's
    // alone.
    void* const glib = dlopen("libglib-2.0.so.0", RTLD_NOW);
    costs.privateKib = PrivateKib(daemon.pid);
    if (glib != nullptr) dlclose(glib);
    struct stat binary {};
    stat(g_daemons[i].c_str(), &binary);
    costs.binaryKib = static_cast<double>(binary.st_size) / 1024;
    EndProcess(daemon.pid);
    return costs;
}

void PrintIdleCosts() {
    constexpr char kName[] = "Idle daemon";
    if (!IsWanted(kName)) return;
    std::vector<IdleCosts> costs;
    for (std::size_t i = 0; i < g_daemons.size(); ++i)
        costs.push_back(MeasureIdle(i));
    const auto column = [&costs](auto member, int decimals = 0) {
        return
            [&costs, member, decimals](std::size_t i) { return Text(static_cast<double>(costs[i].*member), decimals); };
    };
    printf("%s\n", kName);
    PrintRow("resident memory, KiB", column(&IdleCosts::residentKib), "3277");
    PrintRow("of it private, KiB", column(&IdleCosts::privateKib), "650");
    PrintRow("  when nobody else uses GLib", column(&IdleCosts::aloneKib), "");
    PrintRow("wake-ups a second", column(&IdleCosts::wakeups, 2), "0.45");
    PrintRow("binary, KiB", column(&IdleCosts::binaryKib), "400");
}

void PrintStartTimes() {
    constexpr char kName[] = "Start to first answer";
    if (!IsWanted(kName)) return;
    std::vector<std::vector<double>> times(g_daemons.size());
    for (int round = 0; round < 41; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            const StartedDaemon daemon = Start(i);
            times[i].push_back(daemon.firstAnswerMs);
            EndProcess(daemon.pid);
        }
    }
    printf("%s\n", kName);
    PrintRow(
        "median, ms", [&](std::size_t i) { return Text(Median(times[i]), 2); }, "5");
    PrintRow(
        "worst, ms", [&](std::size_t i) { return Text(*std::max_element(times[i].begin(), times[i].end()), 2); }, "");
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
    if (std::system("ip addr add 192.168.1.20/24 dev eth0 && iptables -N whitelist && "
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
