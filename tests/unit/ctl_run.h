// Lines for the tool, and a daemon that answers them.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// The same for the firewall's lists, whose lines depend on what is there.
inline std::string CarryOutList(const SeenRequest& request) {
    const std::vector<u8> bytes(request.payload.begin(), request.payload.end());
    const auto entry = ctl::FindMessage(request.type)->describeRequest(bytes);
    const auto word = [&](const char* option, const char* key) {
        return entry.contains(key) && entry[key].is_string() ? option + entry[key].get<std::string>() : "";
    };
    bool isDone = true;
    for (const std::string family : {"inet", "inet6"}) {
        if (entry.contains("family") && entry["family"] != family && entry["family"] != "both") continue;
        const std::string tool = family == "inet" ? "iptables" : "ip6tables";
        const std::string rule = word(" -s ", "source") + word(" -m iprange --src-range ", "range") +
                                 word(" -s ", "address") + (entry.contains("address") ? "/32" : "") +
                                 word(" -m mac --mac-source ", "mac") + word(" -j ", "target");
        const bool isSwitch = request.type == TESSEL_CMD_FILTER_ENABLE;
        isDone &= RunInSandbox(isSwitch ? tool + " -I INPUT" + word(" -j ", "list")
                                        : tool + (entry["change"] == "add" ? " -I" : " -D") + word(" ", "list") + rule);
    }
    return FakeDaemon::Message(TNetStatusReply{.nResult = isDone ? 0 : -1});
}

// What the examples of the commands stand on.
inline void PrepareKernel() {
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
            return CarryOutList(request);
        case TESSEL_CMD_LOG_FILE:
            WriteFile("/tmp/tessel_daemon.log", "");
            [[fallthrough]];
        default:
            return FakeDaemon::Message(TNetStatusReply{.nResult = 0});
    }
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
