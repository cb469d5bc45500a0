// Requests through the handlers of all commands. In an input the first byte says which of the tools fails, the second
// what tools print; then requests follow, each behind its place in the command table and its length.
#include <sys/socket.h>
#include <unistd.h>

#include "core/exec_note.h"
#include "core/log_control.h"
#include "core/startup/command_table.h"
#include "fuzz/fuzz.h"
#include "probe/conflict/netdev_table.h"
#include "probe/ping.h"
#include "probe/router/router_watch.h"
#include "probe/traceroute.h"
#include "route/priority_table.h"
#include "services/bond.h"
#include "services/dhcp_client.h"
#include "services/dhcp_server.h"
#include "services/pppoe.h"
#include "tessel/address.h"
#include "tessel/bond.h"
#include "tessel/command.h"
#include "tessel/conflict.h"
#include "tessel/dhcp.h"
#include "tessel/firewall.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"
#include "tessel/log.h"
#include "tessel/mac.h"
#include "tessel/mtu.h"
#include "tessel/ping.h"
#include "tessel/pppoe.h"
#include "tessel/priority.h"
#include "tessel/route.h"
#include "tessel/router.h"
#include "tessel/service.h"
#include "tessel/traceroute.h"

namespace tessel::fuzz {

namespace {

// Two words where a text stands: where they come out as two, a client has put a word of its own into a line.
constexpr char kTwoWords[] = "Q Z";

constexpr int kMessagesMax = 8;

struct Message {
    u32 type;
    std::vector<u8> payload;
};

std::size_t ReplyBytes(u32 type) {
    switch (type) {
        case TESSEL_CMD_IPADDR_GET:
            return sizeof(TNetIpaddrGetReply);
        case TESSEL_CMD_IPADDR_SHOW:
            return sizeof(TNetIpaddrShowReply);
        case TESSEL_CMD_GATEWAY_GET:
            return sizeof(TNetGatewayGetReply);
        case TESSEL_CMD_PRIORITY_GET:
            return sizeof(TNetPrioParamList);
        case TESSEL_CMD_MACADDR_GET:
            return sizeof(TNetMacaddrGetReply);
        case TESSEL_CMD_MTU_GET:
            return sizeof(TNetMtuGetReply);
        case TESSEL_CMD_ROUTE_GET_ALL:
            return sizeof(TNetRouteGetAllReply);
        default:
            return sizeof(TNetStatusReply);
    }
}

// What the handler answers, as the server calls it: the payload without what was not sent. 1: nothing.
i32 Ask(const Message& message) {
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    const UniqueFd client(ends[0]);
    const UniqueFd server(ends[1]);
    std::vector<u8> payload = message.payload;
    payload.resize(TESSEL_PAYLOAD_MAX);
    payload.shrink_to_fit();
    for (const CommandRow& row : ServedCommands()) {
        if (row.type != message.type) continue;
        (void)row.handler(server.Get(), row.type, payload.data(), static_cast<i32>(message.payload.size()));
    }
    std::array<char, sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX> answer{};
    const ssize_t count = read(client.Get(), answer.data(), answer.size());
    if (count < 0) return 1;
    IpcMsgHead head;
    i32 status = 0;
    memcpy(&head, answer.data(), sizeof(head));
    memcpy(&status, answer.data() + sizeof(head), sizeof(status));
    Require(head.type == message.type && head.flag == 0 && head.size == static_cast<i32>(ReplyBytes(head.type)));
    Require(count == static_cast<ssize_t>(sizeof(head)) + head.size);
    return head.size == sizeof(TNetPrioParamList) ? 0 : status;
}

// A shell's line without what is quoted in it.
std::string Unquoted(const std::string& line) {
    std::string text;
    bool isQuoted = false;
    for (const char c : line) {
        if (c == '\'') isQuoted = !isQuoted;
        if (!isQuoted) text += c;
    }
    return text;
}

bool IsReader(const std::string& line) {
    return line.find(" show") != std::string::npos || line.find("tables -C ") != std::string::npos;
}

void CheckLine(const std::string& line) {
    const bool isText = std::none_of(line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; });
    const bool isOneWordPerField =
        Unquoted(line).find(kTwoWords) == std::string::npos && line.find(" -QZ") == std::string::npos;
    if (!isText || !isOneWordPerField) fprintf(stderr, "%s\n", line.c_str());
    Require(isText && isOneWordPerField);
}

// Whatever the requests have started.
void StopAll(const std::vector<Message>& messages) {
    constexpr struct {
        u32 start, stop;
        std::size_t offset, bytes;  // of what both have in common, in the start request
    } kStops[] = {
        {TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_STOP, 0, sizeof(TNetDhcpcReq)},
        {TESSEL_CMD_DHCPC_START_EX, TESSEL_CMD_DHCPC_STOP, 0, sizeof(TNetDhcpcReq)},
        {TESSEL_CMD_DHCPS_START, TESSEL_CMD_DHCPS_STOP, 0, sizeof(TNetDhcpsReq)},
        {TESSEL_CMD_PING_START, TESSEL_CMD_PING_STOP, offsetof(TNetPingStartReq, nUserId), sizeof(i32)},
        {TESSEL_CMD_TRACEROUTE_START, TESSEL_CMD_TRACEROUTE_STOP, offsetof(TNetTracerouteStartReq, nUserId),
         sizeof(i32)},
        {TESSEL_CMD_ROUTER_ADVERTISE_START, TESSEL_CMD_ROUTER_ADVERTISE_STOP, 0, TESSEL_NAME_SIZE},
        {TESSEL_CMD_BOND_START, TESSEL_CMD_BOND_STOP, 0, 0},
        {TESSEL_CMD_BROADCAST_ARP_START, TESSEL_CMD_BROADCAST_ARP_STOP, 0, 0},
        {TESSEL_CMD_STAT_START, TESSEL_CMD_STAT_STOP, 0, 0},
    };
    AnswerTools({});
    for (const Message& message : messages) {
        for (const auto& row : kStops) {
            if (row.start != message.type) continue;
            std::vector<u8> payload = message.payload;
            payload.resize(TESSEL_PAYLOAD_MAX);
            payload.erase(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(row.offset));
            payload.resize(row.bytes);
            (void)Ask({row.stop, payload});
        }
    }
    for (u32 i = 0; i < TESSEL_PRIORITIES_MAX; ++i)
        StorePriority(i, {});
    g_nRoutedetectE = 0;
    TesselDebugLevelSet(0);
    (void)TakeToolLines();
}

std::string OutputOf(const std::string& line, u8 kind) {
    if (kind % 2 == 0 || !IsReader(line)) return "";
    if (line.find("addr") != std::string::npos) {
        return "2: eth0: <UP> mtu 1500\n    link/ether 02:00:00:00:00:00 brd ff:ff:ff:ff:ff:ff\n"
               "    inet 10.0.0.2/24 brd 10.0.0.255 scope global eth0\n"
               "    inet6 fd00::2/64 scope global \n    inet6 fe80::2/64 scope link \n";
    }
    return "default via 10.0.0.1 dev eth0 metric 5 \n10.1.0.0/16 via 10.0.0.1 dev eth0 metric 5 \n";
}

// All but NTP, whose start waits for its worker.
bool StartModules() {
    DaemonDhcpsInit();
    DaemonPingInit();
    DaemonTracerouteInit();
    DaemonRouterNotifyInit();
    DaemonPppoeInit();
    return DaemonDhcpcInit() == 0 && NetdevTableInit() == 0;
}

template <typename Record>
std::string Seed(u32 type, const Record& record, const std::string& behind = "") {
    u8 index = 0;
    for (const CommandRow& row : ServedCommands()) {
        if (row.type == type) break;
        ++index;
    }
    const std::string payload = BytesOf(record) + behind;
    return BytesOf(index) + BytesOf(static_cast<u16>(payload.size())) + payload;
}

TNetGateway Address(u16 family) {
    TNetGateway address{.wSinFamily = family, .wReserved = 0, .abyAddr = {10, 0, 0, 1}};
    if (family == TESSEL_FAMILY_INET6) memcpy(address.abyAddr, "\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1", 16);
    return address;
}

}  // namespace

std::vector<std::string> Seeds() {
    std::vector<std::string> requests;
    const auto add = [&](u32 type, const auto& record, const std::string& behind = "") {
        requests.push_back(Seed(type, record, behind));
    };
    const TNetIpAddr inet{.dwScope = 0,
                          .wSinFamily = 2,
                          .wReserved = 0,
                          .abyAddr = {10, 0, 0, 2},
                          .dwPrefixLen = 24,
                          .bTentative = 0,
                          .bDynamic = 0};
    for (const u32 type : {TESSEL_CMD_IPADDR_ADD, TESSEL_CMD_IPADDR_DEL})
        add(type, TNetIpaddrChangeReq{.achDevName = "eth0", .tIp = inet});
    for (const u16 family : {u16{2}, u16{10}, u16{11}}) {
        const TNetGateway address = Address(family);
        add(TESSEL_CMD_IPADDR_SET, TNetIpaddrSetReq{family, "eth1", {2, {inet, inet}}});
        for (const u32 type : {TESSEL_CMD_IPADDR_FLUSH, TESSEL_CMD_IPADDR_GET, TESSEL_CMD_DHCPC_STOP})
            add(type, TNetIpaddrGetReq{family, "eth0"});
        add(TESSEL_CMD_GATEWAY_SET, TNetGatewaySetReq{"eth0", address, 100});
        add(TESSEL_CMD_GATEWAY_SET, TNetGatewaySetReq{"eth0", address, 0});
        for (const u32 type : {TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_GET})
            add(type, TNetGatewayReq{family, "eth0", 0});
        for (const u32 type : {TESSEL_CMD_ROUTE_ADD, TESSEL_CMD_ROUTE_DEL})
            add(type, TNetRouteReq{"eth0", {"eth0", address, address, 16, 5}, 100});
        add(TESSEL_CMD_ROUTE_METRIC_SET, TNetIpRouteParam{"eth0", address, address, 16, 5});
        add(TESSEL_CMD_ROUTE_GET_ALL, TNetRouteGetAllReq{family});
        for (const u32 type : {TESSEL_CMD_RULE_ADD, TESSEL_CMD_RULE_DEL})
            add(type, TNetIpRule{address, 16, 7, 100, 3});
        for (const u32 type : {TESSEL_CMD_CONFLICT_START, TESSEL_CMD_CONFLICT_STOP, TESSEL_CMD_PPPOE_STOP})
            add(type, TNetConflictReq{family});
        add(TESSEL_CMD_DHCPC_START, TNetDhcpcStartReq{family, "eth0", 7});
        add(TESSEL_CMD_PPPOE_START, TNetPppoeStartReq{family, {"user Q Z", "it's", "", 1, 0, 1, 2, 3, 4, 5, "eth0"}});
        add(TESSEL_CMD_PING_START, TNetPingStartReq{address, 56, 1, 64, 3, 7});
        add(TESSEL_CMD_TRACEROUTE_START, TNetTracerouteStartReq{address, 5, 7});
        TNetIpFilterReq filter{};
        filter.eCmd = family % 4 + 1U;
        filter.tFilter.tStart = filter.tFilter.tEnd = address;
        filter.tFilter.dwPrefixLen = 24;
        add(TESSEL_CMD_IP_FILTER, filter);
        for (const u32 type : {TESSEL_CMD_CHAIN_ADD})
            add(type, TNetChainAddReq{static_cast<u16>(family % 4 + 1)}, "icmppacket");
        for (const u32 type : {TESSEL_CMD_FIREWALL_SAVE, TESSEL_CMD_FIREWALL_RESTORE})
            add(type, TNetFirewallFileReq{family % 4U + 1}, "/tmp/rules");
        for (u32 number = 1; number <= 6; ++number) {
            for (const u32 type : {TESSEL_CMD_FILTER_ENABLE, TESSEL_CMD_FILTER_DISABLE, TESSEL_CMD_ICMP_FILTER})
                add(type, TNetFilterSwitchReq{number});
            add(TESSEL_CMD_MAC_FILTER, TNetMacFilterReq{number}, "02:00:00:00:00:01");
            TNetIpMacFilterReq both{.eCmd = number, .achMac = {}};
            memcpy(both.achMac, "02:00:00:00:00:01", sizeof(both.achMac));
            add(TESSEL_CMD_IP_AND_MAC_FILTER, both, family == 2 ? "10.0.0.1" : "fd00::1");
            add(TESSEL_CMD_PORT_FILTER,
                TNetPortFilterReq{number % 2 + 1,
                                  {number % 3 + 1, number % 3, number % 2 + 1, number % 4 + 1, "80,443"}});
        }
    }
    add(TESSEL_CMD_IPADDR_SHOW, TNetIpaddrShowReq{"eth0"});
    add(TESSEL_CMD_PRIORITY_SET, TNetPrioParamList{2, {{"eth0", 5}, {"eth1", 7}}});
    add(TESSEL_CMD_PRIORITY_GET, u8{});
    add(TESSEL_CMD_MACADDR_SET, TNetMacaddrSetReq{"eth2", {2, 0, 0, 0, 9, 9}});
    add(TESSEL_CMD_MACADDR_GET, TNetMacaddrGetReq{"eth2"});
    add(TESSEL_CMD_MTU_SET, TNetMtuSetReq{"eth2", 1400});
    add(TESSEL_CMD_MTU_GET, TNetMtuGetReq{"eth2"});
    for (const u32 type : {TESSEL_CMD_ROUTE_TABLE_ADD, TESSEL_CMD_ROUTE_TABLE_DEL, TESSEL_CMD_BROADCAST_ARP_START,
                           TESSEL_CMD_STAT_START, TESSEL_CMD_WEBS_START, TESSEL_CMD_WEBS_STOP, TESSEL_CMD_LOG_LEVEL})
        add(type, TNetRouteTableReq{100});
    add(TESSEL_CMD_SERVICE_STOP, TNetServiceStopReq{"telnetd"});
    add(TESSEL_CMD_DHCPC_START_EX, TNetDhcpcStartExReq{2, "eth0", 0, 7});
    TNetDhcpsStartReq server{.achDevName = "eth0", .wSinFamily = 2, .tConf = {}};
    server.tConf.tStart = server.tConf.tEnd = server.tConf.tRouter = Address(2);
    server.tConf.dwPrefixLen = 24;
    server.tConf.dwDnsNum = 1;
    add(TESSEL_CMD_DHCPS_START, server);
    add(TESSEL_CMD_DHCPS_GET_STATUS, TNetDhcpsReq{"eth0", 2});
    add(TESSEL_CMD_ROUTER_ADVERTISE_START, TNetRouterStartReq{"eth0", 7, 8});
    for (const u32 type : {TESSEL_CMD_ARP_ADD, TESSEL_CMD_ARP_DEL})
        add(type, ArpEntryInfo{"eth0", "02:00:00:00:00:01", "10.0.0.9"});
    // Each alone, also with a name that is two words or an option, and those of a kind behind each other.
    std::vector<std::string> seeds;
    std::string joined("\0\1", 2);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        seeds.push_back(std::string("\0\1", 2) + requests[i]);
        for (const std::string& name : {std::string(kTwoWords) + '\0', std::string("-QZ\0", 4)}) {
            const std::size_t place = requests[i].find("eth");
            if (place == std::string::npos) continue;
            seeds.push_back(std::string("\0\1", 2) + std::string(requests[i]).replace(place, name.size(), name));
        }
        joined += requests[i];
        if (i % kMessagesMax != 0) continue;
        seeds.push_back(joined);
        joined = std::string("\2\0", 2);
    }
    return seeds;
}

}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessel::fuzz;
    // Some write files, wherever the client says: scripts/fuzz leaves only what the sandbox throws away writable.
    static const bool isReady = access("/", W_OK) != 0 && StartModules();
    Require(isReady);
    Input input(data, size);
    int toolsLeft = input.Take<u8>();  // until one fails
    const u8 outputKind = input.Take<u8>();
    const bool isEveryToolWilling = toolsLeft == 0;
    std::vector<Message> messages;
    while (input.Left() > 0 && messages.size() < kMessagesMax) {
        const auto rows = tessel::ServedCommands();
        const u32 type = rows[input.Take<u8>() % rows.size()].type;
        messages.push_back({type, input.TakeBytes(std::min<std::size_t>(input.Take<u16>(), TESSEL_PAYLOAD_MAX))});
    }
    tessel::AnswerTools([&](const std::string& line) {
        return tessel::ToolAnswer{OutputOf(line, outputKind), --toolsLeft == 0 ? 1 : 0};
    });
    for (const Message& message : messages) {
        const i32 status = Ask(message);
        bool hasChanged = false;
        for (const std::string& line : tessel::TakeToolLines()) {
            CheckLine(line);
            hasChanged = hasChanged || !IsReader(line);
        }
        // A list of addresses that cannot be set whole puts back what it took away.
        const bool isRefused = isEveryToolWilling && (status == -1 || status == 1);
        Require(!isRefused || !hasChanged || message.type == TESSEL_CMD_IPADDR_SET);
    }
    StopAll(messages);
    return 0;
}
