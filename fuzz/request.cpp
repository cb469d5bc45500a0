// Requests through the handlers of all commands. In an input the first byte says which of the tools fails, the second
// what tools print; then requests follow, each behind its place in the command table and its length.
#include <unistd.h>

#include "client/libtessel.h"
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
    constexpr std::pair<u32, std::size_t> kReplies[] = {
        {TESSEL_CMD_IPADDR_GET, sizeof(TNetIpaddrGetReply)},      {TESSEL_CMD_IPADDR_SHOW, sizeof(TNetIpaddrShowReply)},
        {TESSEL_CMD_GATEWAY_GET, sizeof(TNetGatewayGetReply)},    {TESSEL_CMD_PRIORITY_GET, sizeof(TNetPrioParamList)},
        {TESSEL_CMD_MACADDR_GET, sizeof(TNetMacaddrGetReply)},    {TESSEL_CMD_MTU_GET, sizeof(TNetMtuGetReply)},
        {TESSEL_CMD_ROUTE_GET_ALL, sizeof(TNetRouteGetAllReply)},
    };
    for (const auto& [command, bytes] : kReplies) {
        if (command == type) return bytes;
    }
    return sizeof(TNetStatusReply);
}

// What the handler answers, as the server calls it: the payload without what was not sent. 1: nothing.
i32 Ask(const Message& message) {
    const auto rows = ServedCommands();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& of) { return of.type == message.type; });
    std::vector<u8> payload = message.payload;
    payload.resize(TESSEL_PAYLOAD_MAX);
    payload.shrink_to_fit();
    const std::string answer = AnswerOf(row->handler, message.type, payload, message.payload.size());
    if (answer.empty()) return 1;
    IpcMsgHead head;
    i32 status = 0;
    memcpy(&head, answer.data(), sizeof(head));
    memcpy(&status, &answer[sizeof(head)], sizeof(status));
    Require(head.type == message.type && head.flag == 0 && head.size == static_cast<i32>(ReplyBytes(head.type)));
    Require(answer.size() == sizeof(head) + ReplyBytes(head.type));
    return head.size == sizeof(TNetPrioParamList) ? 0 : status;
}

// A shell's line without what is quoted in it.
std::string Unquoted(const std::string& line) {
    std::string text;
    bool isQuoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (!isQuoted && line[i] == '\\') {  // so is the character behind it
            ++i;
            continue;
        }
        if (line[i] == '\'') isQuoted = !isQuoted;
        if (!isQuoted) text += line[i];
    }
    return text;
}

bool IsReader(const std::string& line) {
    return line.find(" show") != std::string::npos || line.find("tables -C ") != std::string::npos;
}

void CheckLine(const std::string& line) {
    const bool isText = std::none_of(line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; });
    const std::string unquoted = Unquoted(line);
    const bool isOneWordPerField =
        unquoted.find(kTwoWords) == std::string::npos && unquoted.find(" -QZ") == std::string::npos;
    if (!isText || !isOneWordPerField) fprintf(stderr, "%s\n", line.c_str());
    Require(isText && isOneWordPerField);
}

// Whatever the requests have started.
void StopAll(const std::vector<Message>& messages) {
    // Start, stop, and what of the start request comes before that of the stop: all of it, where that is empty.
    constexpr std::tuple<u32, u32, std::size_t> kStops[] = {
        {TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_STOP, 0},
        {TESSEL_CMD_DHCPC_START_EX, TESSEL_CMD_DHCPC_STOP, 0},
        {TESSEL_CMD_DHCPS_START, TESSEL_CMD_DHCPS_STOP, 0},
        {TESSEL_CMD_PING_START, TESSEL_CMD_PING_STOP, offsetof(TNetPingStartReq, nUserId)},
        {TESSEL_CMD_TRACEROUTE_START, TESSEL_CMD_TRACEROUTE_STOP, offsetof(TNetTracerouteStartReq, nUserId)},
        {TESSEL_CMD_ROUTER_ADVERTISE_START, TESSEL_CMD_ROUTER_ADVERTISE_STOP, 0},
        {TESSEL_CMD_BOND_START, TESSEL_CMD_BOND_STOP, TESSEL_PAYLOAD_MAX},
        {TESSEL_CMD_BROADCAST_ARP_START, TESSEL_CMD_BROADCAST_ARP_STOP, TESSEL_PAYLOAD_MAX},
        {TESSEL_CMD_STAT_START, TESSEL_CMD_STAT_STOP, TESSEL_PAYLOAD_MAX},
    };
    AnswerTools({});
    for (const Message& message : messages) {
        for (const auto& [start, stop, before] : kStops) {
            if (start != message.type) continue;
            std::vector<u8> payload = message.payload;
            payload.resize(TESSEL_PAYLOAD_MAX);
            payload.erase(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(before));
            (void)Ask({stop, payload});
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

TNetGateway Address(u16 family) {
    TNetGateway address{.wSinFamily = family, .wReserved = 0, .abyAddr = {10, 0, 0, 1}};
    if (family == TESSEL_FAMILY_INET6) memcpy(address.abyAddr, "\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1", 16);
    return address;
}

// As clients mean them, of every family and with every number that leads to another line.
std::vector<std::string> Requests() {
    std::vector<std::string> requests;
    const auto add = [&](std::initializer_list<u32> types, const auto& record, const std::string& behind = "") {
        const std::string payload = BytesOf(record) + behind;
        const auto rows = ServedCommands();
        for (std::size_t index = 0; index < rows.size(); ++index) {
            if (std::find(types.begin(), types.end(), rows[index].type) != types.end())
                requests.push_back(static_cast<char>(index) + BytesOf(static_cast<u16>(payload.size())) + payload);
        }
    };
    const TNetIpAddr inet{0, 2, 0, {10, 0, 0, 2}, 24, 0, 0};
    const std::string mac = "02:00:00:00:00:01";
    add({TESSEL_CMD_IPADDR_ADD, TESSEL_CMD_IPADDR_DEL}, TNetIpaddrChangeReq{"eth0", inet});
    for (const u16 family : {u16{2}, u16{10}, u16{11}}) {
        const TNetGateway address = Address(family);
        const u32 kind = family % 4 + 1U;
        add({TESSEL_CMD_IPADDR_SET}, TNetIpaddrSetReq{family, "eth1", {2, {inet, inet}}});
        add({TESSEL_CMD_IPADDR_FLUSH, TESSEL_CMD_IPADDR_GET, TESSEL_CMD_DHCPC_STOP}, TNetIpaddrGetReq{family, "eth0"});
        add({TESSEL_CMD_GATEWAY_SET}, TNetGatewaySetReq{"eth0", address, 100});
        add({TESSEL_CMD_GATEWAY_SET}, TNetGatewaySetReq{"eth0", address, 0});
        add({TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_GET}, TNetGatewayReq{family, "eth0", 0});
        add({TESSEL_CMD_ROUTE_ADD, TESSEL_CMD_ROUTE_DEL}, TNetRouteReq{"eth0", {"eth0", address, address, 16, 5}, 100});
        add({TESSEL_CMD_ROUTE_METRIC_SET}, TNetIpRouteParam{"eth0", address, address, 16, 5});
        add({TESSEL_CMD_ROUTE_GET_ALL}, TNetRouteGetAllReq{family});
        add({TESSEL_CMD_RULE_ADD, TESSEL_CMD_RULE_DEL}, TNetIpRule{address, 16, 7, 100, 3});
        add({TESSEL_CMD_CONFLICT_START, TESSEL_CMD_CONFLICT_STOP, TESSEL_CMD_PPPOE_STOP}, TNetConflictReq{family});
        add({TESSEL_CMD_DHCPC_START}, TNetDhcpcStartReq{family, "eth0", 7});
        add({TESSEL_CMD_PPPOE_START}, TNetPppoeStartReq{family, {"user Q Z", "it's", "", 1, 0, 1, 2, 3, 4, 5, "eth0"}});
        add({TESSEL_CMD_PING_START}, TNetPingStartReq{address, 56, 1, 64, 3, 7});
        add({TESSEL_CMD_TRACEROUTE_START}, TNetTracerouteStartReq{address, 5, 7});
        add({TESSEL_CMD_IP_FILTER}, TNetIpFilterReq{kind, {{}, address, 24, {}, address, {}}});
        add({TESSEL_CMD_CHAIN_ADD}, static_cast<u16>(kind), "icmppacket");
        add({TESSEL_CMD_FIREWALL_SAVE, TESSEL_CMD_FIREWALL_RESTORE}, kind, "/tmp/rules");
        for (u32 number = 1; number <= 6; ++number) {
            add({TESSEL_CMD_FILTER_ENABLE, TESSEL_CMD_FILTER_DISABLE, TESSEL_CMD_ICMP_FILTER}, number);
            add({TESSEL_CMD_MAC_FILTER}, number, mac);
            add({TESSEL_CMD_IP_AND_MAC_FILTER}, number, mac + (family == 2 ? "10.0.0.1" : "fd00::1"));
            const TNetPortFilter ports{number % 3 + 1, number % 3, number % 2 + 1, number % 4 + 1, "80,443"};
            add({TESSEL_CMD_PORT_FILTER}, TNetPortFilterReq{number % 2 + 1, ports});
        }
    }
    add({TESSEL_CMD_IPADDR_SHOW}, TNetIpaddrShowReq{"eth0"});
    add({TESSEL_CMD_PRIORITY_SET}, TNetPrioParamList{2, {{"eth0", 5}, {"eth1", 7}}});
    add({TESSEL_CMD_PRIORITY_GET}, u8{});
    add({TESSEL_CMD_MACADDR_SET}, TNetMacaddrSetReq{"eth2", {2, 0, 0, 0, 9, 9}});
    add({TESSEL_CMD_MACADDR_GET}, TNetMacaddrGetReq{"eth2"});
    add({TESSEL_CMD_MTU_SET}, TNetMtuSetReq{"eth2", 1400});
    add({TESSEL_CMD_MTU_GET}, TNetMtuGetReq{"eth2"});
    add({TESSEL_CMD_ROUTE_TABLE_ADD, TESSEL_CMD_ROUTE_TABLE_DEL, TESSEL_CMD_BROADCAST_ARP_START, TESSEL_CMD_STAT_START,
         TESSEL_CMD_WEBS_START, TESSEL_CMD_WEBS_STOP, TESSEL_CMD_LOG_LEVEL},
        100U);
    add({TESSEL_CMD_SERVICE_STOP}, TNetServiceStopReq{"telnetd"});
    add({TESSEL_CMD_DHCPC_START_EX}, TNetDhcpcStartExReq{2, "eth0", 0, 7});
    const TNetGateway first = Address(2);
    add({TESSEL_CMD_DHCPS_START}, TNetDhcpsStartReq{"eth0", 2, {first, first, 24, first, {}, 1, {}}});
    add({TESSEL_CMD_DHCPS_GET_STATUS}, TNetDhcpsReq{"eth0", 2});
    add({TESSEL_CMD_ROUTER_ADVERTISE_START}, TNetRouterStartReq{"eth0", 7, 8});
    add({TESSEL_CMD_ARP_ADD, TESSEL_CMD_ARP_DEL}, ArpEntryInfo{"eth0", "02:00:00:00:00:01", "10.0.0.9"});
    return requests;
}

}  // namespace

// Each alone, also with a name that is two words or an option, and those of a kind behind each other.
std::vector<std::string> Seeds() {
    const std::vector<std::string> requests = Requests();
    std::vector<std::string> seeds;
    std::string joined = "\0\1"s;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        seeds.push_back("\0\1"s + requests[i]);
        for (const std::string& name : {kTwoWords + "\0"s, "-QZ\0"s}) {
            const std::size_t place = requests[i].find("eth");
            if (place == std::string::npos) continue;
            seeds.push_back("\0\1"s + std::string(requests[i]).replace(place, name.size(), name));
        }
        joined += requests[i];
        if (i % kMessagesMax != 0) continue;
        seeds.push_back(joined);
        joined = "\2\0"s;
    }
    return seeds;
}

void TryInput(Input input) {
    // Some write files, wherever the client says: scripts/fuzz leaves only what the sandbox throws away writable.
    static const bool isReady = access("/", W_OK) != 0 && StartModules();
    Require(isReady);
    int toolsLeft = input.Take<u8>();  // until one fails
    const u8 outputKind = input.Take<u8>();
    const bool isEveryToolWilling = toolsLeft == 0;
    std::vector<Message> messages;
    while (input.Left() > 0 && messages.size() < kMessagesMax) {
        const auto rows = ServedCommands();
        const u32 type = rows[input.Take<u8>() % rows.size()].type;
        messages.push_back({type, input.TakeBytes(std::min<std::size_t>(input.Take<u16>(), TESSEL_PAYLOAD_MAX))});
    }
    AnswerTools([&](const std::string& line) {
        return ToolAnswer{OutputOf(line, outputKind), --toolsLeft == 0 ? 1 : 0};
    });
    for (const Message& message : messages) {
        const i32 status = Ask(message);
        bool hasChanged = false;
        for (const std::string& line : TakeToolLines()) {
            CheckLine(line);
            hasChanged = hasChanged || !IsReader(line);
        }
        // A list of addresses that cannot be set whole puts back what it took away.
        const bool isRefused = isEveryToolWilling && (status == -1 || status == 1);
        Require(!isRefused || !hasChanged || message.type == TESSEL_CMD_IPADDR_SET);
    }
    StopAll(messages);
}

}  // namespace tessel::fuzz
