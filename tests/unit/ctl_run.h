// Lines for the tool, and a daemon that answers them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "client/ctl/messages.h"
#include "client/ctl/tesselctl.h"
#include "client/libtessel.h"
#include "tests/support/files.h"
#include "tests/unit/libtessel_fake_daemon.h"

namespace tessel::test {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

inline std::string Contents(std::FILE* file) {
    std::string text(static_cast<std::size_t>(ftell(file)), '\0');
    rewind(file);
    text.resize(fread(text.data(), 1, text.size(), file));
    fclose(file);
    return text;
}

inline ToolRun RunLine(const std::string& line) {
    std::istringstream stream(line);
    std::FILE* out = tmpfile();
    std::FILE* err = tmpfile();
    const int status = ctl::RunTool({std::istream_iterator<std::string>(stream), {}}, out, err);
    return {status, Contents(out), Contents(err)};
}

inline TNetIpAddr Address(const char* bytes, std::size_t count, u16 family, u32 prefixLength) {
    TNetIpAddr address{};
    memcpy(address.abyAddr, bytes, count);
    address.wSinFamily = family;
    address.dwPrefixLen = prefixLength;
    address.dwScope = TESSEL_SCOPE_GLOBAL;
    return address;
}

inline TNetPrioParam Priority(const char* interfaceName, i32 metric) {
    TNetPrioParam entry{};
    memcpy(entry.achDevName, interfaceName, strlen(interfaceName));
    entry.nPriority = metric;
    return entry;
}

// Runs a line of the device's tools in the sandbox that the tests live in.
inline bool RunInSandbox(const std::string& line) {
    return system((line + " 2>/dev/null").c_str()) == 0;
}

// What the tool looks for in the kernel has to happen there: runs what it says that the daemon runs for this request.
inline std::string CarryOut(const SeenRequest& request) {
    const ctl::Message* message = ctl::FindMessage(request.type);
    const std::vector<u8> bytes(request.payload.begin(), request.payload.end());
    const auto lines = ctl::ToolLinesFor(*message, message->describeRequest(bytes));
    const bool isDone = std::all_of(lines.begin(), lines.end(), &RunInSandbox);
    return FakeDaemon::Message(TNetStatusReply{.nResult = isDone ? 0 : -1});
}

// The lines that the daemon runs in the end for a request that changes one family's rules.
inline std::vector<std::string> RuleLines(u32 code, const nlohmann::ordered_json& request, bool isInet6) {
    const auto word = [&](const char* option, const char* key) {
        return request.contains(key) && request[key].is_string() ? option + request[key].get<std::string>() : "";
    };
    const std::string operation = request.contains("change") && request["change"] == "add" ? "-I " : "-D ";
    const std::string list = word("", "list");
    std::vector<std::string> lines;
    switch (code) {
        case TESSEL_CMD_CHAIN_ADD:
            lines = {"-N " + word("", "chain")};
            if (word("", "chain") == "icmppacket") lines.emplace_back("-I INPUT -j icmppacket");
            return lines;
        case TESSEL_CMD_FILTER_ENABLE:
            (void)RunInSandbox(std::string(isInet6 ? "ip6tables" : "iptables") + " -D INPUT -j " +
                               (list == "whitelist" ? "blacklist" : "whitelist"));
            lines = {"-F " + std::string(list == "whitelist" ? "blacklist" : "whitelist"), "-I INPUT -j " + list};
            if (list == "whitelist") lines.emplace_back("-A whitelist -j DROP");
            return lines;
        case TESSEL_CMD_ICMP_FILTER:
            return {"-F icmppacket", std::string("-I icmppacket ") +
                                         (isInet6 ? "-p icmpv6 --icmpv6-type 128" : "-p icmp --icmp-type 8") + " -j " +
                                         (request["echo"] == "allow" ? "RETURN" : "DROP")};
        case TESSEL_CMD_PORT_FILTER:
            for (const std::string protocol : {"tcp", "udp"}) {
                if (request["protocol"].is_string() && request["protocol"] != protocol) continue;
                lines.push_back((operation == "-I " ? "-A " : "-D ") +
                                std::string(request["direction"] == "in" ? "INPUT" : "OUTPUT") + " -p " + protocol +
                                " -m multiport" + word(" --", "kind") + word(" ", "ports") + " -j " +
                                (request["action"] == "drop" ? "DROP" : "RETURN"));
            }
            return lines;
        default:
            return {operation + list + word(" -s ", "source") + word(" -m iprange --src-range ", "range") +
                    word(" -s ", "address") + (request.contains("address") ? "/32" : "") +
                    word(" -m mac --mac-source ", "mac") + word(" -j ", "target")};
    }
}

// The same for the packet filter, whose lines depend on what is there.
inline std::string CarryOutRules(const SeenRequest& request) {
    const std::vector<u8> bytes(request.payload.begin(), request.payload.end());
    const auto described = ctl::FindMessage(request.type)->describeRequest(bytes);
    bool isDone = true;
    for (const std::string family : {"inet", "inet6"}) {
        if (described.contains("family") && described["family"] != family && described["family"] != "both") continue;
        for (const std::string& line : RuleLines(request.type, described, family == "inet6"))
            isDone &= RunInSandbox((family == "inet6" ? "ip6tables " : "iptables ") + line);
    }
    return FakeDaemon::Message(TNetStatusReply{.nResult = isDone ? 0 : -1});
}

inline void Prepare(std::initializer_list<const char*> lines) {
    for (const char* line : lines)
        ASSERT_TRUE(RunInSandbox(line)) << line;
}

constexpr char kNoRules[] = "# Generated by iptables-save\n*filter\n:INPUT ACCEPT [0:0]\nCOMMIT\n";

// What the examples of the commands stand on.
inline void PrepareKernel() {
    WriteFile("/tmp/rules", kNoRules);
    for (const char* line :
         {"ip addr add 192.168.1.20/24 dev eth0", "ip rule add from 192.168.2.0/24 table 100", "iptables -N whitelist",
          "iptables -N blacklist", "ip6tables -N whitelist", "ip6tables -N blacklist"})
        (void)RunInSandbox(line);
}

inline TNetIpRouteParam ToldRoute(u8 secondByte, i32 metric) {
    TNetIpRouteParam route{};
    memcpy(route.achDevName, "eth0", 4);
    route.tDestIpNet = {.wSinFamily = 2, .wReserved = 0, .abyAddr = {10, secondByte}};
    route.tGateway = {.wSinFamily = 2, .wReserved = 0, .abyAddr = {192, 168, 1, 254}};
    route.nPrefixLen = 16;
    route.nMetric = metric;
    return route;
}

// An eth0 with MTU 1400 whatever is set, two addresses, and a gateway unless it was deleted last; two priorities;
// commands with a bare status succeed.
inline std::string DeviceAnswer(const SeenRequest& request) {
    TNetIpaddrGetReply list{};
    TNetIpaddrShowReply info{};
    TNetRouteGetAllReply routes{};
    static bool hasGateway = true;
    if (request.type == TESSEL_CMD_GATEWAY_SET) hasGateway = true;
    if (request.type == TESSEL_CMD_GATEWAY_DEL) hasGateway = false;
    switch (request.type) {
        case TESSEL_CMD_IPADDR_GET:
            list.tIfaceIp.dwNum = 2;
            list.tIfaceIp.atIp[0] = Address("\xc0\xa8\x01\x14", 4, 2, 24);
            list.tIfaceIp.atIp[1] = Address("\x20\x01\x0d\xb8", 4, 10, 64);
            list.tIfaceIp.atIp[1].bDynamic = 1;
            return FakeDaemon::Message(list);
        case TESSEL_CMD_IPADDR_SHOW:
            // As on the device: nothing but a failure where there is no Ethernet address.
            if (request.payload.starts_with("lo")) info.nResult = -1;
            info.tInfo.mtu = 1400;
            memcpy(info.tInfo.mac, "02:00:00:00:00:01", 17);
            return FakeDaemon::Message(info);
        case TESSEL_CMD_MTU_GET:
            return FakeDaemon::Message(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400});
        case TESSEL_CMD_MACADDR_GET:
            return FakeDaemon::Message(
                TNetMacaddrGetReply{.nResult = 0, .abyMac = {2, 0, 0, 0, 0, 1}, .abyUnused = {}});
        case TESSEL_CMD_GATEWAY_GET:
            return FakeDaemon::Message(hasGateway ? TNetGatewayGetReply{0, {TESSEL_FAMILY_INET, 0, {192, 168, 1, 1}}}
                                                  : TNetGatewayGetReply{});
        case TESSEL_CMD_PRIORITY_GET:
            return FakeDaemon::Message(TNetPrioParamList{2, {Priority("eth0", 10), Priority("eth1", 20)}});
        case TESSEL_CMD_ROUTE_GET_ALL:
            routes.tRoutes.dwNum = 2;
            routes.tRoutes.atRoute[0] = ToldRoute(1, 5);
            routes.tRoutes.atRoute[1] = ToldRoute(2, 0);
            return FakeDaemon::Message(routes);
        case TESSEL_CMD_ROUTE_ADD:
        case TESSEL_CMD_ROUTE_DEL:
        case TESSEL_CMD_ROUTE_METRIC_SET:
        case TESSEL_CMD_ROUTE_TABLE_ADD:
        case TESSEL_CMD_ROUTE_TABLE_DEL:
        case TESSEL_CMD_RULE_ADD:
        case TESSEL_CMD_RULE_DEL:
        case TESSEL_CMD_FILTER_DISABLE:
        case TESSEL_CMD_ARP_ADD:
        case TESSEL_CMD_ARP_DEL:
            return CarryOut(request);
        case TESSEL_CMD_IP_FILTER:
        case TESSEL_CMD_MAC_FILTER:
        case TESSEL_CMD_IP_AND_MAC_FILTER:
        case TESSEL_CMD_FILTER_ENABLE:
        case TESSEL_CMD_CHAIN_ADD:
        case TESSEL_CMD_ICMP_FILTER:
        case TESSEL_CMD_PORT_FILTER:
            return CarryOutRules(request);
        case TESSEL_CMD_LOG_FILE:
            WriteFile("/tmp/tessel_daemon.log", "");
            [[fallthrough]];
        default:
            return FakeDaemon::Message(TNetStatusReply{.nResult = 0});
    }
}

// Answers success and does nothing.
inline std::string IdleAnswer(const SeenRequest&) {
    return FakeDaemon::Message(TNetStatusReply{.nResult = 0});
}

inline std::string FailingAnswer(const SeenRequest& request) {
    switch (request.type) {
        case TESSEL_CMD_IPADDR_GET:
            return FakeDaemon::Message(TNetIpaddrGetReply{.nResult = -1, .tIfaceIp = {}});
        case TESSEL_CMD_IPADDR_SHOW:
            return FakeDaemon::Message(TNetIpaddrShowReply{.nResult = -1, .tInfo = {}});
        case TESSEL_CMD_MTU_GET:
            return FakeDaemon::Message(TNetMtuGetReply{.nResult = -1, .dwMtu = 0});
        case TESSEL_CMD_MACADDR_GET:
            return FakeDaemon::Message(TNetMacaddrGetReply{.nResult = -1, .abyMac = {}, .abyUnused = {}});
        case TESSEL_CMD_GATEWAY_GET:
            return FakeDaemon::Message(TNetGatewayGetReply{.nResult = -1, .tGateway = {}});
        case TESSEL_CMD_PRIORITY_GET:  // it has no failure
            return FakeDaemon::Message(TNetPrioParamList{});
        case TESSEL_CMD_ROUTE_GET_ALL:
            return FakeDaemon::Message(TNetRouteGetAllReply{.nResult = -1, .tRoutes = {}});
        default:
            return FakeDaemon::Message(TNetStatusReply{.nResult = -1});
    }
}

}  // namespace tessel::test
