// Many who ask at once, and those who ask beside running sessions.
#include <sys/wait.h>

#include "bench/table.h"
#include "client/libtessel.h"

namespace tessel::bench {

namespace {

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

}  // namespace

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

namespace {

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

}  // namespace

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

}  // namespace tessel::bench
