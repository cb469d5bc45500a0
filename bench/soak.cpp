// Everything that the daemon serves at once, for a long time, with tools that go wrong; afterwards it has to be what it
// was. Run by scripts/soak, which makes the tools; bench/README.md says what is counted.
//
//     bench_soak SECONDS DIRECTORY     (the tools' directory: its file "faults" switches them, "hang" stops one for
//     good)
#include <arpa/inet.h>
#include <poll.h>
#include <sys/prctl.h>

#include <atomic>
#include <cinttypes>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include "bench/daemon.h"
#include "bench/far.h"
#include "client/libtessel.h"

namespace {

using namespace tessel::bench;
using std::chrono::seconds;
using tessel::UniqueFd;

constexpr int kClients = 8;
constexpr int kRestarts = 10;
constexpr long kMemorySlackKib = 256;  // what the allocator keeps for the next time

std::string g_directory;
std::FILE* g_report = nullptr;  // what was standard output, which tools write to
std::atomic<bool> g_isOver{false};
std::atomic<pid_t> g_daemon{0};

struct Counts {
    std::atomic<long> requests{0}, hostile{0};
    std::atomic<long> results[10]{};  // by -TESSEL_E_...
    std::atomic<long> events{0}, deadListeners{0}, storms{0}, frames{0};
} g_counts;

using Random = std::minstd_rand;

void Count(int error) {
    ++g_counts.requests;
    if (error <= 0 && error > -10) ++g_counts.results[-error];
}

void Switch(const char* name, bool isOn) {
    const std::string path = g_directory + "/" + name;
    if (isOn) {
        std::ofstream file(path);
    } else {
        unlink(path.c_str());
    }
}

TNetGateway Address(const char* text) {
    TNetGateway address{.wSinFamily = TESSEL_FAMILY_INET, .wReserved = 0, .abyAddr = {}};
    (void)inet_pton(AF_INET, text, address.abyAddr);
    return address;
}

TNetIpAddr InterfaceAddress(int client) {
    TNetIpAddr address{};
    address.wSinFamily = TESSEL_FAMILY_INET;
    address.dwPrefixLen = 24;
    address.abyAddr[0] = 10;
    address.abyAddr[1] = 60;
    address.abyAddr[2] = static_cast<u8>(client);
    address.abyAddr[3] = 1;
    return address;
}

// What a client changes, each in its own place, and undoes: with tools that fail in between, so that undoing may fail.
struct Change {
    const char* name;
    int (*make)(int client);
    int (*undo)(int client);
};

TNetIpRouteParam RouteOf(int client) {
    TNetIpRouteParam route{};
    route.tDestIpNet = Address(("10.80." + std::to_string(client) + ".0").c_str());
    route.tGateway = Address("10.50.0.9");
    route.nPrefixLen = 24;
    route.nMetric = 5;
    return route;
}

TNetIpRule RuleOf(int client) {
    return {Address(("10.81." + std::to_string(client) + ".0").c_str()), 24, 1000 + client, 100 + client, 7};
}

TNetIpFilter FilterOf(int client) {
    TNetIpFilter filter{};
    filter.tStart = Address(("10.82.0." + std::to_string(client)).c_str());
    filter.dwPrefixLen = 32;
    return filter;
}

TNetPortFilter PortsOf(int client) {
    TNetPortFilter filter{1, TESSEL_PORT_TCP, TESSEL_PORT_DESTINATION, TESSEL_PORT_ACCEPT_IN, {}};
    snprintf(filter.achPorts, sizeof(filter.achPorts), "%d", 8000 + client);
    return filter;
}

int Interval(int client, const char* target, u32 count) {
    const TNetPingStartReq ping{Address(target), 56, 1, 64, count, client};
    return tessel_ping_start(&ping);
}

constexpr const char* kInterfaces[] = {"eth0", "eth1", "eth2"};

const char* InterfaceOf(int client) {
    return kInterfaces[client % 3];
}

constexpr Change kChanges[] = {
    {"address",
     [](int client) {
         const TNetIpAddr address = InterfaceAddress(client);
         return tessel_addr_add("eth1", &address);
     },
     [](int client) {
         const TNetIpAddr address = InterfaceAddress(client);
         return tessel_addr_del("eth1", &address);
     }},
    {"route",
     [](int client) {
         const TNetIpRouteParam route = RouteOf(client);
         return tessel_route_add("eth0", &route, 0);
     },
     [](int client) {
         const TNetIpRouteParam route = RouteOf(client);
         return tessel_route_del("eth0", &route, 0);
     }},
    {"rule",
     [](int client) {
         const TNetIpRule rule = RuleOf(client);
         return tessel_rule_add(&rule);
     },
     [](int client) {
         const TNetIpRule rule = RuleOf(client);
         return tessel_rule_del(&rule);
     }},
    {"white list",
     [](int client) {
         const TNetIpFilter filter = FilterOf(client);
         return tessel_ip_filter(TESSEL_LIST_WHITE_ADD, &filter);
     },
     [](int client) {
         const TNetIpFilter filter = FilterOf(client);
         return tessel_ip_filter(TESSEL_LIST_WHITE_DEL, &filter);
     }},
    {"port filter",
     [](int client) {
         const TNetPortFilter filter = PortsOf(client);
         return tessel_port_filter(TESSEL_PORT_ADD, &filter);
     },
     [](int client) {
         const TNetPortFilter filter = PortsOf(client);
         return tessel_port_filter(TESSEL_PORT_DEL, &filter);
     }},
    {"ping", [](int client) { return Interval(client, client % 2 == 0 ? "127.0.0.1" : "10.50.0.9", 5); },
     [](int client) { return tessel_ping_stop(client); }},
    {"trace",
     [](int client) {
         const TNetGateway target = Address("10.50.0.9");
         return tessel_traceroute_start(&target, 3, client);
     },
     [](int client) { return tessel_traceroute_stop(client); }},
    {"router watch", [](int client) { return tessel_router_start(InterfaceOf(client), client, client); },
     [](int client) { return tessel_router_stop(InterfaceOf(client)); }},
    {"statistics", [](int) { return tessel_traffic_start(1); }, [](int) { return tessel_traffic_stop(); }},
    {"announcer", [](int) { return tessel_arp_announce_start(htonl(0x0a320009)); },
     [](int) { return tessel_arp_announce_stop(); }},
    {"conflict reports", [](int client) { return tessel_conflict_start(client % 2 == 0 ? 2 : 10); },
     [](int client) { return tessel_conflict_stop(client % 2 == 0 ? 2 : 10); }},
    {"NTP",
     [](int) {
         const TNetGateway server = Address("10.50.0.9");
         return tessel_ntp_start(&server, 1);
     },
     [](int) { return tessel_ntp_stop(TESSEL_FAMILY_INET); }},
    {"DHCP server",
     [](int) {
         TNetDhcpsConf conf{};
         conf.tStart = Address("10.50.0.100");
         conf.tEnd = Address("10.50.0.200");
         conf.tRouter = Address("10.50.0.1");
         conf.dwPrefixLen = 24;
         return tessel_dhcpd_start("eth0", &conf);
     },
     [](int) { return tessel_dhcpd_stop("eth0"); }},
};

// Takes seconds, in which nobody else is served: asked for by one client, seldom.
void ChangeDhcpClient(Random& random) {
    Count(random() % 2 == 0 ? tessel_dhcpc_start(TESSEL_FAMILY_INET, "eth2", 1, 1)
                            : tessel_dhcpc_stop(TESSEL_FAMILY_INET, "eth2"));
}

void Read(int client, Random& random) {
    TNetIfaceIp list;
    TNetAllRouteInfo routes;
    TNetGateway gateway;
    TNetPrioParamList priorities;
    u32 mtu = 0;
    u8 mac[6];
    const char* const interface = InterfaceOf(client);
    switch (random() % 6) {
        case 0:
            return Count(tessel_addr_get(interface, TESSEL_FAMILY_BOTH, &list));
        case 1:
            return Count(tessel_mtu_get(interface, &mtu));
        case 2:
            return Count(tessel_route_get_all(TESSEL_FAMILY_BOTH, &routes));
        case 3:
            return Count(tessel_gateway_get(nullptr, TESSEL_FAMILY_INET, 0, &gateway, nullptr));
        case 4:
            return Count(tessel_priority_get(&priorities));
        default:
            return Count(tessel_mac_get(interface, mac));
    }
}

// Random bytes to any command whose success would not be seen afterwards, cut and announced wrongly.
void BeHostile(int client, Random& random) {
    constexpr u32 kCodes[] = {0x101, 0x103,  0x104,  0x105,  0x115,  0x11B,  0x10F,  0x116,  0x110,  0x106, 0x107,
                              0x111, 0x112,  0x10B,  0x10D,  0x113,  0x114,  0x119,  0x11A,  0x501,  0x502, 0x507,
                              0x801, 0x802,  0x804,  0x902,  0x602,  0x302,  0xC01,  0xC02,  0xD01,  0xD02, 0x118,
                              0xF01, 0x1001, 0x1002, 0x100D, 0x1006, 0x1007, 0x1009, 0x100A, 0x100B, 0xA02, 0x999};
    ++g_counts.hostile;
    const UniqueFd fd = Connect(TESSEL_SOCKET_API);
    if (!fd.IsOpen()) return;
    std::string payload(random() % 4 == 0 ? random() % 3100 : random() % 100, '\0');
    for (char& byte : payload)
        byte = static_cast<char>(random() % 3 == 0 ? 0 : random());
    const u32 code = kCodes[random() % std::size(kCodes)];
    if (code == TESSEL_CMD_PING_START || code == TESSEL_CMD_TRACEROUTE_START) {  // under an id that is stopped again
        payload.resize(code == TESSEL_CMD_PING_START ? sizeof(TNetPingStartReq) : sizeof(TNetTracerouteStartReq));
        memcpy(payload.data() + payload.size() - sizeof(client), &client, sizeof(client));
    }
    const i32 size = random() % 8 == 0 ? static_cast<i32>(random()) - 1000 : static_cast<i32>(payload.size());
    const IpcMsgHead head{.type = code, .size = size, .flag = 0};
    std::string message(reinterpret_cast<const char*>(&head), sizeof(head));
    message += payload;
    if (random() % 10 == 0) message.resize(random() % sizeof(head));
    (void)send(fd.Get(), message.data(), message.size(), MSG_NOSIGNAL);
    pollfd answer{.fd = fd.Get(), .events = POLLIN, .revents = 0};
    // Some leave before the answer, as many do not read it.
    if (random() % 2 == 0) (void)poll(&answer, 1, 1000);
}

void BeClient(int client) {
    Random random(static_cast<unsigned>(client + 1));
    while (!g_isOver) {
        const Change& change = kChanges[random() % std::size(kChanges)];
        switch (random() % 8) {
            case 0:
                Count(change.make(client));
                break;
            case 1:
                Count(change.undo(client));
                break;
            case 2:
            case 3:
                BeHostile(client, random);
                break;
            default:
                Read(client, random);
        }
        if (client == 0 && random() % 2000 == 0) ChangeDhcpClient(random);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    }
}

void SendFrames() {
    const UniqueFd far = OpenFarSocket();
    while (!g_isOver)
        g_counts.frames += SendFlood(far, seconds(1)).packets;
}

void Storm() {
    while (!g_isOver) {
        if (std::system("for i in $(seq 1 250); do echo addr add 10.9.0.$i/32 dev eth2; echo addr del 10.9.0.$i/32 dev "
                        "eth2; done | /sbin/ip -batch -") != 0)
            Fail("ip -batch");
        ++g_counts.storms;
        std::this_thread::sleep_for(seconds(3));
    }
}

std::string SocketOf(Random& random) {
    const std::string client = std::to_string(random() % kClients);
    const std::string interface = kInterfaces[random() % 3];
    const std::string names[] = {
        TESSEL_SOCKET_STAT,
        TESSEL_SOCKET_NTP,
        TESSEL_SOCKET_IP_CONFLICT,
        std::string(TESSEL_SOCKET_PING) + "_" + client,
        std::string(TESSEL_SOCKET_TRACEROUTE) + "_" + client,
        std::string(TESSEL_SOCKET_ROUTER_NOTIFY) + "_" + interface + "_" + client + "_" + client,
        std::string(TESSEL_SOCKET_DHCPC) + "_eth2_1"};
    return names[random() % std::size(names)];
}

// Listens for a while in a process of its own, which is killed: its socket file stays. Some do not read.
void Listen(unsigned seed) {
    Random random(seed);
    while (!g_isOver) {
        const std::string name = SocketOf(random);
        const bool reads = random() % 4 != 0;
        int ends[2];
        if (pipe(ends) != 0) Fail("pipe");
        const pid_t child = fork();
        if (child == 0) {
            tessel_listener* listener = nullptr;
            if (tessel_listener_open(name.c_str(), TESSEL_LISTEN_TAKE, &listener) != TESSEL_OK) _exit(1);
            static tessel_event event;
            while (true) {
                if (!reads) pause();
                if (tessel_listener_next(listener, &event, -1) == TESSEL_OK) (void)!write(ends[1], "e", 1);
            }
        }
        close(ends[1]);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4000));
        EndProcess(child);
        char events[4096];
        const ssize_t count = read(ends[0], events, sizeof(events));
        if (count > 0) g_counts.events += count;
        close(ends[0]);
        ++g_counts.deadListeners;
    }
}

// A tool that never ends, every three minutes: the daemon kills it after one.
void Hang() {
    for (int second = 0; !g_isOver; ++second) {
        if (second % 180 == 30) Switch("hang", true);
        std::this_thread::sleep_for(seconds(1));
    }
    Switch("hang", false);
}

void StartDaemonAgain() {
    if (g_daemon != 0) EndProcess(g_daemon);
    g_daemon = StartDaemon(Message(TESSEL_CMD_MTU_GET, TNetMtuGetReq{.achDevName = "lo"})).pid;
    (void)tessel_log_level_set(0);
    const TNetPrioParamList priorities{2, {{"eth0", 10}, {"eth1", 20}}};
    (void)tessel_priority_set(&priorities);
}

// All of the load, for so long; meanwhile(), which may take longer.
template <typename Work>
void Load(seconds time, Work meanwhile) {
    g_isOver = false;
    Switch("faults", true);
    std::vector<std::thread> threads;
    for (int client = 0; client < kClients; ++client)
        threads.emplace_back(BeClient, client);
    for (unsigned seed = 1; seed <= 3; ++seed)
        threads.emplace_back(Listen, seed);
    threads.emplace_back(SendFrames);
    threads.emplace_back(Storm);
    threads.emplace_back(Hang);
    const auto end = Clock::now() + time;
    meanwhile();
    std::this_thread::sleep_until(end);
    g_isOver = true;
    Switch("faults", false);
    for (std::thread& thread : threads)
        thread.join();
}

std::string OutputOf(const char* line) {
    std::FILE* const pipe = popen(line, "re");
    std::string text;
    char buffer[4096];
    while (const std::size_t count = fread(buffer, 1, sizeof(buffer), pipe))
        text.append(buffer, count);
    pclose(pipe);
    return text;
}

// What the daemon and the kernel have once everything is stopped.
struct State {
    std::map<std::string, long> numbers;
    std::string kernel;
    std::string processes;
};

long ChildrenOf(pid_t pid) {
    long children = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream file(task.path() / "children");
        for (std::string child; file >> child;)
            ++children;
    }
    return children;
}

State TakeState() {
    // Where the tool failed that looks whether a rule is there, it is there twice, or more often.
    for (int round = 0; round < 8; ++round) {
        for (const Change& change : kChanges)
            for (int client = 0; client < kClients; ++client)
                (void)change.undo(client);
    }
    (void)tessel_dhcpc_stop(TESSEL_FAMILY_INET, "eth2");
    (void)tessel_dhcpd_stop_all();
    // Workers that have a notice to deliver give up; the daemon kills what hangs after a minute.
    std::this_thread::sleep_for(seconds(20));
    for (int wait = 0; wait < 60 && ChildrenOf(g_daemon) > 0; ++wait)
        std::this_thread::sleep_for(seconds(1));
    while (waitpid(-1, nullptr, WNOHANG) > 0) {  // what the daemon started for good, and leaves to process 1
    }
    const std::string proc = "/proc/" + std::to_string(g_daemon) + "/";
    State state;
    const auto entries = [&](const char* directory) {
        const std::filesystem::directory_iterator all(proc + directory);
        // A worker that has ended by itself keeps two of these until its place is used again.
        return static_cast<long>(std::count_if(begin(all), end(all), [](const auto& entry) {
            std::error_code error;
            return std::filesystem::read_symlink(entry.path(), error) != "anon_inode:[eventfd]";
        }));
    };
    state.numbers = {
        {"descriptors", entries("fd")},
        {"threads", entries("task")},
        {"children", ChildrenOf(g_daemon)},
        {"processes", std::stol(OutputOf("ls -d /proc/[0-9]* | wc -l"))},
        {"System V objects", std::stol(OutputOf("cat /proc/sysvipc/sem /proc/sysvipc/msg /proc/sysvipc/shm | wc -l"))},
        {"private memory, KiB", ProcessField(g_daemon, "smaps_rollup", "Private_Clean:") +
                                    ProcessField(g_daemon, "smaps_rollup", "Private_Dirty:")},
    };
    state.processes = OutputOf("ps -eo comm,args --no-headers | sort | uniq -c");
    state.kernel = OutputOf(
        "/sbin/ip -o addr show; /sbin/ip route show table all; /sbin/ip rule; /sbin/ip -6 rule; "
        "/sbin/ip neigh show nud permanent; iptables -S; ip6tables -S; "
        "/sbin/ip -o link | sed 's/ qdisc.*//'");
    return state;
}

bool Compare(const State& before, const State& after) {
    bool isSame = true;
    fprintf(g_report, "%-22s %10s %10s\n", "", "before", "after");
    for (const auto& [name, number] : before.numbers) {
        const long now = after.numbers.at(name);
        const bool isMemory = name.starts_with("private");
        const bool isFine = isMemory ? now <= number + kMemorySlackKib : now == number;
        fprintf(g_report, "%-22s %10ld %10ld%s\n", name.c_str(), number, now, isFine ? "" : "   WRONG");
        isSame = isSame && isFine;
    }
    if (!isSame)
        fprintf(g_report, "processes before:\n%s\nafter:\n%s\n", before.processes.c_str(), after.processes.c_str());
    const bool isKernelSame = before.kernel == after.kernel;
    fprintf(g_report, "%-22s %21s\n", "addresses, rules", isKernelSame ? "the same" : "WRONG");
    if (!isKernelSame) fprintf(g_report, "before:\n%s\nafter:\n%s\n", before.kernel.c_str(), after.kernel.c_str());
    return isSame && isKernelSame;
}

}  // namespace

int main(int count, char** words) {
    if (count != 3) return EXIT_FAILURE;
    g_report = fdopen(dup(STDOUT_FILENO), "w");
    setvbuf(g_report, nullptr, _IOLBF, 0);
    if (freopen("/dev/null", "w", stdout) == nullptr || freopen("/dev/null", "w", stderr) == nullptr) Fail("/dev/null");
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon leaves its parents; here it comes back
    signal(SIGPIPE, SIG_IGN);
    const seconds time(std::atoi(words[1]));
    g_directory = words[2];
    (void)tessel_set_timeout_ms(100000);  // a tool that hangs keeps everybody waiting for a minute
    StartDaemonAgain();
    for (const char* chain : {"whitelist", "blacklist"})
        (void)tessel_chain_add(TESSEL_PROTOCOL_BOTH, chain);

    Load(time / 10, [&] {
        for (int restart = 0; restart < kRestarts; ++restart) {
            std::this_thread::sleep_for(time / 10 / kRestarts);
            StartDaemonAgain();
        }
    });
    fprintf(g_report, "killed and started again %d times, under load\n", kRestarts);
    const pid_t pid = g_daemon;
    Load(time / 10, [] {});
    const State before = TakeState();
    fprintf(g_report, "warmed up; %ld requests until now\n", g_counts.requests.load());
    Load(time - time / 5, [] {});
    const State after = TakeState();

    fprintf(g_report,
            "\n%ld s: requests %ld, hostile ones %ld, events %ld,\n"
            "listeners killed %ld, storms of 500 address changes %ld, frames %ld\n",
            static_cast<long>(time.count()), g_counts.requests.load(), g_counts.hostile.load(), g_counts.events.load(),
            g_counts.deadListeners.load(), g_counts.storms.load(), g_counts.frames.load());
    for (int error = 0; error < 10; ++error) {
        const long number = g_counts.results[error];
        if (number != 0) fprintf(g_report, "  %7ld  %s\n", number, tessel_strerror(-error));
    }
    fprintf(g_report, "\n");
    bool isFine = Compare(before, after);
    u32 mtu = 0;
    if (kill(pid, 0) != 0 || tessel_mtu_get("lo", &mtu) != TESSEL_OK || tessel_daemon_pid() != pid) {
        fprintf(g_report, "the daemon has ended\n");
        isFine = false;
    }
    EndProcess(pid);
    return isFine ? EXIT_SUCCESS : EXIT_FAILURE;
}
