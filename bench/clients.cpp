#include "bench/clients.h"

#include <fcntl.h>
#include <poll.h>

#include <random>
#include <thread>

#include "bench/daemon.h"
#include "client/libtessel.h"

namespace tessel::bench {

Counts g_counts;

namespace {

using Random = std::minstd_rand;

constexpr const char* kInterfaces[] = {"eth0", "eth1", "eth2"};
constexpr const char* kSlaves[] = {"slave0", "slave1"};
constexpr const char* kTargets[] = {"10.50.0.9", "127.0.0.1", "fd50::9"};  // the last one cannot be reached

const char* InterfaceOf(int client) {
    return kInterfaces[client % std::size(kInterfaces)];
}

int FamilyOf(int client) {
    return client % 2 == 0 ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
}

void Count(int error) {
    ++g_counts.requests;
    if (error <= 0 && error > -10) ++g_counts.results[-error];
    if (error == TESSEL_E_NOT_RUNNING) std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

TNetGateway TargetOf(int client) {
    return Address(kTargets[client % std::size(kTargets)]);
}

TNetIpAddr InterfaceAddress(int client) {
    TNetIpAddr address{};
    address.wSinFamily = TESSEL_FAMILY_INET;
    address.dwPrefixLen = 24;
    const u8 bytes[] = {10, 60, static_cast<u8>(client), 1};
    memcpy(address.abyAddr, bytes, sizeof(bytes));
    return address;
}

TNetIpRouteParam RouteOf(int client) {
    TNetIpRouteParam route{};
    route.tDestIpNet = Address("10.80." + std::to_string(client) + ".0");
    route.tGateway = Address("10.50.0.9");
    route.nPrefixLen = 24;
    route.nMetric = 5;
    return route;
}

TNetIpRule RuleOf(int client) {
    return {Address("10.81." + std::to_string(client) + ".0"), 24, 1000 + client, 100 + client, 7};
}

TNetIpFilter FilterOf(int client) {
    TNetIpFilter filter{};
    filter.tStart = Address("10.82.0." + std::to_string(client));
    filter.dwPrefixLen = 32;
    return filter;
}

TNetPortFilter PortsOf(int client) {
    TNetPortFilter filter{1, TESSEL_PORT_TCP, TESSEL_PORT_DESTINATION, TESSEL_PORT_ACCEPT_IN, {}};
    snprintf(filter.achPorts, sizeof(filter.achPorts), "%d", 8000 + client);
    return filter;
}

TNetDhcpsConf Pool() {
    TNetDhcpsConf conf{};
    conf.tStart = Address("10.50.0.100");
    conf.tEnd = Address("10.50.0.200");
    conf.tRouter = Address("10.50.0.1");
    conf.dwPrefixLen = 24;
    return conf;
}

TNetPppoeConf Link() {
    TNetPppoeConf conf{};
    strcpy(conf.achUser, "user");
    strcpy(conf.achPassword, "it's secret");
    strcpy(conf.achDevName, "eth1");
    return conf;
}

// To pass a record that lives as long as the call.
template <typename Record>
const Record* Of(const Record& record) {
    return &record;
}

// What a client changes, mostly in a place of its own, and undoes: with tools that fail in between, so that either may
// fail.
struct Change {
    int (*make)(int client);
    int (*undo)(int client);
};

constexpr Change kChanges[] = {
    // Addresses, routes, rules, packet filters
    {[](int client) { return tessel_addr_add("eth1", Of(InterfaceAddress(client))); },
     [](int client) { return tessel_addr_del("eth1", Of(InterfaceAddress(client))); }},
    {[](int client) { return tessel_route_add("eth0", Of(RouteOf(client)), 0); },
     [](int client) { return tessel_route_del("eth0", Of(RouteOf(client)), 0); }},
    {[](int client) { return tessel_rule_add(Of(RuleOf(client))); },
     [](int client) { return tessel_rule_del(Of(RuleOf(client))); }},
    {[](int client) { return tessel_ip_filter(TESSEL_LIST_WHITE_ADD, Of(FilterOf(client))); },
     [](int client) { return tessel_ip_filter(TESSEL_LIST_WHITE_DEL, Of(FilterOf(client))); }},
    {[](int client) { return tessel_port_filter(TESSEL_PORT_ADD, Of(PortsOf(client))); },
     [](int client) { return tessel_port_filter(TESSEL_PORT_DEL, Of(PortsOf(client))); }},
    // Ping, traceroute, router watch, statistics, announcer, conflict reports
    {[](int client) {
         const TNetPingStartReq ping{TargetOf(client), 56, 1, 64, 5, client};
         return tessel_ping_start(&ping);
     },
     [](int client) { return tessel_ping_stop(client); }},
    {[](int client) { return tessel_traceroute_start(Of(TargetOf(client)), 3, client); },
     [](int client) { return tessel_traceroute_stop(client); }},
    {[](int client) { return tessel_router_start(InterfaceOf(client), client, client); },
     [](int client) { return tessel_router_stop(InterfaceOf(client)); }},
    {[](int) { return tessel_traffic_start(1); }, [](int) { return tessel_traffic_stop(); }},
    {[](int) { return tessel_arp_announce_start(htonl(0x0a320009)); }, [](int) { return tessel_arp_announce_stop(); }},
    {[](int client) { return tessel_conflict_start(FamilyOf(client)); },
     [](int client) { return tessel_conflict_stop(FamilyOf(client)); }},
    // NTP, DHCP server, PPPoE, bond, web server
    {[](int client) { return tessel_ntp_start(Of(Address(client % 2 == 0 ? "10.50.0.9" : "fd50::9")), 1); },
     [](int client) { return tessel_ntp_stop(FamilyOf(client)); }},
    {[](int) { return tessel_dhcpd_start("eth0", Of(Pool())); }, [](int) { return tessel_dhcpd_stop("eth0"); }},
    {[](int client) {
         (void)tessel_pppoe_stop(FamilyOf(client));  // a start dials one link more
         return tessel_pppoe_start(FamilyOf(client), Of(Link()));
     },
     [](int client) { return tessel_pppoe_stop(FamilyOf(client)); }},
    {[](int) { return tessel_bond_start(1, kSlaves, std::size(kSlaves), "slave0", nullptr); },
     [](int) { return tessel_bond_stop(); }},
    {[](int) { return tessel_web_start(); }, [](int) { return tessel_web_stop(); }},
};

// Takes seconds, in which nobody else is served: asked for by one client, seldom.
void ChangeDhcpClient(Random& random) {
    const int family = FamilyOf(static_cast<int>(random() % 2));
    Count(random() % 2 == 0 ? tessel_dhcpc_start(family, "eth2", 1, 1) : tessel_dhcpc_stop(family, "eth2"));
}

// Where an answer goes that nobody looks at.
template <typename Record>
thread_local Record t_answer;

constexpr int (*kReads[])(const char* interface) = {
    [](const char* interface) { return tessel_addr_get(interface, TESSEL_FAMILY_BOTH, &t_answer<TNetIfaceIp>); },
    [](const char* interface) { return tessel_mtu_get(interface, &t_answer<u32>); },
    [](const char* interface) { return tessel_mac_get(interface, t_answer<u8[6]>); },
    [](const char*) { return tessel_route_get_all(TESSEL_FAMILY_BOTH, &t_answer<TNetAllRouteInfo>); },
    [](const char*) { return tessel_gateway_get(nullptr, TESSEL_FAMILY_INET, 0, &t_answer<TNetGateway>, nullptr); },
    [](const char*) { return tessel_priority_get(&t_answer<TNetPrioParamList>); },
};

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

std::string SocketOf(Random& random) {
    const std::string client = std::to_string(random() % kClients);
    const std::string interface = kInterfaces[random() % std::size(kInterfaces)];
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

}  // namespace

void BeClient(int client, const std::atomic<bool>& isOver) {
    Random random(static_cast<unsigned>(client + 1));
    while (!isOver) {
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
                Count(kReads[random() % std::size(kReads)](InterfaceOf(client)));
        }
        if (client == 0 && random() % 2000 == 0) ChangeDhcpClient(random);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    }
}

void Listen(unsigned seed, const std::atomic<bool>& isOver) {
    Random random(seed);
    while (!isOver) {
        const std::string name = SocketOf(random);
        const bool reads = random() % 4 != 0;
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) Fail("pipe");
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

void UndoEverything() {
    // A bond whose start has failed half-way is undone by another one.
    (void)tessel_bond_start(1, kSlaves, std::size(kSlaves), "slave0", nullptr);
    // Where the tool failed that looks whether a rule is there, it is there twice, or more often.
    for (int round = 0; round < 5; ++round) {
        for (const Change& change : kChanges)
            for (int client = 0; client < kClients; ++client)
                (void)change.undo(client);
    }
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6})
        (void)tessel_dhcpc_stop(family, "eth2");
    (void)tessel_dhcpd_stop_all();
}

}  // namespace tessel::bench
