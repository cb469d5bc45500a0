// The field tables of the records of include/tessel/. Offsets and sizes come from the records' own declarations.
#pragma once

#include <type_traits>

#include "client/ctl/fields.h"

// In a namespace of their own: objects of the tool have the same names (kGateway).
namespace tessel::ctl::records {

// What a member's type says about its meaning.
template <typename Member>
constexpr Kind KindOf() {
    if (std::is_same_v<Member, TNetGateway>) return Kind::kAddress;
    if (std::is_same_v<Member, TNetIpAddr>) return Kind::kPrefixed;
    if (std::is_same_v<Member, u8[6]>) return Kind::kMac;
    if (std::is_array_v<Member>) return Kind::kText;
    return std::is_signed_v<Member> ? Kind::kSigned : Kind::kUnsigned;
}

// Text up to the payload's end.
constexpr Field Tail(std::string_view name, std::size_t recordBytes) {
    return {.name = name, .kind = Kind::kTail, .offset = recordBytes, .bytes = 0};
}

// The interface that an element of a list is about, by its place.
constexpr Field Position(std::string_view name, std::span<const Word> words) {
    return {.name = name, .kind = Kind::kPosition, .offset = 0, .bytes = 0, .other = 0, .words = words};
}

// Offsets and sizes are those of the records' own declarations. R is the record that RECORD stands for.
#define MEMBER_TYPE(member) decltype(std::declval<R&>().member)
#define KIND(name, kind, member, ...)                                             \
    Field {                                                                       \
        name, kind, offsetof(R, member), sizeof(MEMBER_TYPE(member)), __VA_ARGS__ \
    }
#define MEMBER(name, member)       KIND(name, KindOf<MEMBER_TYPE(member)>(), member, )
#define WORDS(name, member, words) KIND(name, KindOf<MEMBER_TYPE(member)>(), member, 0, words)
// What most records have.
#define DEVICE         MEMBER("interface", achDevName)
#define FAMILY(member) WORDS("family", member, kFamilies)
#define LIST(name, member, count, ...)                                                                           \
    Field {                                                                                                      \
        name, Kind::kList, offsetof(R, member), sizeof(std::declval<R&>().member[0]), count, {},                 \
            std::extent_v<MEMBER_TYPE(member)>, KindOf<std::remove_extent_t<MEMBER_TYPE(member)>>(), __VA_ARGS__ \
    }
#define RECORD(table, record, ...)                        \
    namespace table##_fields {                            \
        using R = record;                                 \
        inline constexpr Field kFields[] = {__VA_ARGS__}; \
    }                                                     \
    inline constexpr Record table = {#record, sizeof(record), table##_fields::kFields}

inline constexpr Word kFamilies[] = {{2, "inet"}, {10, "inet6"}, {11, "both"}};
inline constexpr Word kShownFamilies[] = {{0, "inet"}, {1, "inet6"}};
inline constexpr Word kProtocols[] = {{1, "inet"}, {2, "inet6"}, {3, "both"}};
inline constexpr Word kNoZero[] = {{0, ""}};
// TESSEL_LIST_...
inline constexpr Word kListNames[] = {{1, "whitelist"}, {2, "whitelist"}, {3, "blacklist"}, {4, "blacklist"}};
inline constexpr Word kListChanges[] = {{1, "add"}, {2, "del"}, {3, "add"}, {4, "del"}};
inline constexpr Word kListTargets[] = {{1, "RETURN"}, {2, "RETURN"}, {3, "DROP"}, {4, "DROP"}};
// TESSEL_FILTER_... and TESSEL_ICMP_...
inline constexpr Word kSwitchFamilies[] = {{1, "inet"},  {2, "inet"}, {3, "inet6"},
                                           {4, "inet6"}, {5, "both"}, {6, "both"}};
inline constexpr Word kSwitchLists[] = {{1, "whitelist"}, {2, "blacklist"}, {3, "whitelist"},
                                        {4, "blacklist"}, {5, "whitelist"}, {6, "blacklist"}};
inline constexpr Word kEchoes[] = {{1, "allow"}, {2, "drop"}, {3, "allow"}, {4, "drop"}, {5, "allow"}, {6, "drop"}};
// TESSEL_PORT_...
inline constexpr Word kPortChanges[] = {{1, "add"}, {2, "del"}};
inline constexpr Word kPortProtocols[] = {{1, "tcp"}, {2, "udp"}, {0, ""}, {3, ""}};
inline constexpr Word kPortKinds[] = {{1, "sport"}, {2, "dport"}};
inline constexpr Word kPortDirections[] = {{1, "in"}, {2, "in"}, {3, "out"}, {4, "out"}};
inline constexpr Word kPortActions[] = {{1, "accept"}, {2, "drop"}, {3, "accept"}, {4, "drop"}};
inline constexpr Word kLogActions[] = {{1, "open library"}, {2, "close library"}, {3, "open daemon"},
                                       {4, "close daemon"}, {5, "open both"},     {6, "close both"}};
inline constexpr Word kInterfaces[] = {{0, "eth0"}, {1, "eth1"}, {2, "eth2"}};

inline constexpr Record kNothing{"(none)", 0, {}};
RECORD(kStatus, TNetStatusReply, MEMBER("result", nResult));

// Addresses
RECORD(kAddrChange, TNetIpaddrChangeReq, DEVICE, MEMBER("address", tIp), FAMILY(tIp.wSinFamily));
RECORD(kAddrGet, TNetIpaddrGetReq, DEVICE, FAMILY(wSinFamily));
RECORD(kAddrFlush, TNetIpaddrFlushReq, DEVICE, FAMILY(wSinFamily));
RECORD(kAddrSet, TNetIpaddrSetReq, DEVICE, FAMILY(wSinFamily),
       LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)));
RECORD(kAddrList, TNetIpaddrGetReply, MEMBER("result", nResult),
       LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)));
RECORD(kShownAddress, ipaddr_show_addr, MEMBER("address", addr), MEMBER("prefix_length", prefix_len),
       WORDS("family", family, kShownFamilies));
RECORD(kAddrInfo, TNetIpaddrShowReply, MEMBER("result", nResult), MEMBER("mtu", tInfo.mtu), MEMBER("mac", tInfo.mac),
       LIST("addresses", tInfo.addr, offsetof(R, tInfo.num), kShownAddress.fields));
RECORD(kAddrShow, TNetIpaddrShowReq, DEVICE);
RECORD(kMacSet, TNetMacaddrSetReq, DEVICE, MEMBER("mac", abyMac));
RECORD(kMacGet, TNetMacaddrGetReq, DEVICE);
RECORD(kMac, TNetMacaddrGetReply, MEMBER("result", nResult), MEMBER("mac", abyMac));
RECORD(kMtuSet, TNetMtuSetReq, DEVICE, MEMBER("mtu", dwMtu));
RECORD(kMtuGet, TNetMtuGetReq, DEVICE);
RECORD(kMtu, TNetMtuGetReply, MEMBER("result", nResult), MEMBER("mtu", dwMtu));

// Routing
RECORD(kGatewaySet, TNetGatewaySetReq, DEVICE, MEMBER("gateway", tGateway), FAMILY(tGateway.wSinFamily),
       WORDS("table", dwTable, kNoZero));
RECORD(kGatewayGet, TNetGatewayReq, DEVICE, FAMILY(wSinFamily), WORDS("table", dwTable, kNoZero));
RECORD(kGateway, TNetGatewayGetReply, MEMBER("result", nResult), MEMBER("gateway", tGateway),
       KIND("learnt", Kind::kFlag, nResult, TESSEL_RESULT_LEARNT));
RECORD(kPriority, TNetPrioParam, DEVICE, MEMBER("metric", nPriority));
RECORD(kPriorities, TNetPrioParamList, MEMBER("entries", dwNum),
       LIST("priorities", atPrio, kNoCount, kPriority.fields));
RECORD(kRoute, TNetIpRouteParam, DEVICE, KIND("destination", Kind::kNetwork, tDestIpNet, offsetof(R, nPrefixLen)),
       MEMBER("gateway", tGateway), MEMBER("metric", nMetric), FAMILY(tDestIpNet.wSinFamily));
RECORD(kRouteChange, TNetRouteReq, DEVICE,
       KIND("destination", Kind::kNetwork, tRoute.tDestIpNet, offsetof(R, tRoute.nPrefixLen)),
       MEMBER("gateway", tRoute.tGateway), MEMBER("metric", tRoute.nMetric), WORDS("table", dwTable, kNoZero),
       FAMILY(tRoute.tDestIpNet.wSinFamily));
RECORD(kRouteGetAll, TNetRouteGetAllReq, FAMILY(wSinFamily));
RECORD(kRoutes, TNetRouteGetAllReply, MEMBER("result", nResult),
       LIST("routes", tRoutes.atRoute, offsetof(R, tRoutes.dwNum), kRoute.fields));
RECORD(kTable, TNetRouteTableReq, MEMBER("table", dwTable));
RECORD(kRule, TNetIpRule, KIND("from", Kind::kNetwork, tSrcIpNet, offsetof(R, nPrefixLen)), MEMBER("fwmark", nFwmark),
       WORDS("pref", nPref, kNoZero), MEMBER("table", nTable));
RECORD(kService, TNetServiceStopReq, MEMBER("service", achServiceName));

// Conflicts, DHCP, announcements by ARP
RECORD(kConflict, TNetConflictReq, FAMILY(wSinFamily));
RECORD(kConflictReport, TNetConflictReport, DEVICE, FAMILY(tAddr.wSinFamily), MEMBER("address", tAddr),
       MEMBER("interface_mac", abyMac));
RECORD(kDhcpcStart, TNetDhcpcStartReq, DEVICE, FAMILY(wSinFamily), MEMBER("pid", nPid));
RECORD(kDhcpcStartEx, TNetDhcpcStartExReq, DEVICE, FAMILY(wSinFamily), MEMBER("dns", wDnsDynmic), MEMBER("pid", nPid));
RECORD(kDhcpc, TNetDhcpcReq, DEVICE, FAMILY(wSinFamily));
RECORD(kLease, TNetDhcpcLease, DEVICE, FAMILY(tAddr.wSinFamily), MEMBER("address", tAddr),
       MEMBER("prefix_length", dwPrefixLen), MEMBER("gateway", tRouter), MEMBER("lease_s", dwLeaseTime),
       LIST("dns", atDns, offsetof(R, dwDnsNum)));
RECORD(kDhcpsStart, TNetDhcpsStartReq, DEVICE, FAMILY(wSinFamily), MEMBER("first", tConf.tStart),
       MEMBER("last", tConf.tEnd), MEMBER("prefix_length", tConf.dwPrefixLen), MEMBER("gateway", tConf.tRouter),
       LIST("dns", tConf.atDns, offsetof(R, tConf.dwDnsNum)));
RECORD(kDhcps, TNetDhcpsReq, DEVICE, FAMILY(wSinFamily));
RECORD(kAnnounce, TNetBroadcastArpReq, KIND("address", Kind::kIpv4, dwTargetIp, ));

// Time, links and the web server. A password is shown to nobody.
RECORD(kNtpcStart, TNetNtpcStartReq, MEMBER("address", tServer), FAMILY(tServer.wSinFamily),
       MEMBER("interval_s", dwSyncTimeInterval));
RECORD(kNtpcStop, TNetNtpcStopReq, FAMILY(wSinFamily));
RECORD(kNtpcCheck, TNetNtpcCheckReq, MEMBER("address", tServer), FAMILY(tServer.wSinFamily));
RECORD(kNtpcSynced, TNetNtpcSynced, MEMBER("deviation_s", nTimeDeviation));
RECORD(kPppoeStart, TNetPppoeStartReq, MEMBER("interface", tConf.achDevName), FAMILY(wSinFamily),
       MEMBER("user", tConf.achUser), MEMBER("service", tConf.achService), MEMBER("persist", tConf.dwPersist),
       MEMBER("debug", tConf.dwDebug), MEMBER("holdoff_s", tConf.dwHoldoff),
       MEMBER("echo_interval_s", tConf.dwLcpEchoInterval), MEMBER("echo_failure", tConf.dwLcpEchoFailure),
       MEMBER("maxfail", tConf.dwMaxfail));
RECORD(kPppoeStop, TNetPppoeStopReq, FAMILY(wSinFamily));
inline constexpr Record kWebsStart{"TNetWebsStartReq", sizeof(TNetWebsStartReq), {}};
RECORD(kBondStart, TNetBondStartHead, MEMBER("bytes", nSendLen), MEMBER("mode", dwBondMode),
       MEMBER("path_bytes", nBondPathLen));

// Probes
RECORD(kPingStart, TNetPingStartReq, MEMBER("address", tTarget), FAMILY(tTarget.wSinFamily),
       MEMBER("size", dwPacketSize), MEMBER("timeout_s", dwTimeout), MEMBER("ttl", dwTtl), MEMBER("count", dwCount),
       MEMBER("id", nUserId));
RECORD(kPingStop, TNetPingStopReq, MEMBER("id", nUserId));
RECORD(kPingResult, TNetPingResult, MEMBER("id", nUserId), MEMBER("seq", dwSeq), MEMBER("ttl", dwTtl),
       MEMBER("rtt_us", dwTime), KIND("last", Kind::kFlag, dwLast, 1));
RECORD(kTraceStart, TNetTracerouteStartReq, MEMBER("address", tTarget), FAMILY(tTarget.wSinFamily),
       MEMBER("hops", dwMaxHops), MEMBER("id", nUserId));
RECORD(kTraceStop, TNetTracerouteStopReq, MEMBER("id", nUserId));
RECORD(kTraceResult, TNetTracerouteResult, MEMBER("id", nUserId), MEMBER("hop", dwHop), MEMBER("address", tHop),
       MEMBER("rtt_us", dwTime), KIND("last", Kind::kFlag, dwLast, 1));
RECORD(kRouterStart, TNetRouterStartReq, DEVICE, MEMBER("id", nUserId), MEMBER("pid", nPid));
RECORD(kRouterStop, TNetRouterStopReq, DEVICE);
RECORD(kRouterReport, TNetRouterNotify, DEVICE, LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)),
       MEMBER("gateway", tGateway));

// Firewall
RECORD(kIpFilter, TNetIpFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
       WORDS("target", eCmd, kListTargets), FAMILY(tFilter.tStart.wSinFamily),
       KIND("source", Kind::kFilterNetwork, tFilter, ), KIND("range", Kind::kFilterRange, tFilter, ));
RECORD(kMacFilter, TNetMacFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
       WORDS("target", eCmd, kListTargets), Tail("mac", sizeof(R)));
RECORD(kIpMacFilter, TNetIpMacFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
       WORDS("target", eCmd, kListTargets), MEMBER("mac", achMac), Tail("address", sizeof(R)));
RECORD(kSwitch, TNetFilterSwitchReq, WORDS("list", eType, kSwitchLists), WORDS("family", eType, kSwitchFamilies));
RECORD(kChainAdd, TNetChainAddReq, Tail("chain", sizeof(R)), WORDS("family", wIpType, kProtocols));
RECORD(kIcmp, TNetIcmpFilterReq, WORDS("echo", eType, kEchoes), WORDS("family", eType, kSwitchFamilies));
RECORD(kPort, TNetPortFilterReq, WORDS("change", eCmd, kPortChanges),
       WORDS("protocol", tFilter.eProtocol, kPortProtocols), WORDS("kind", tFilter.ePortType, kPortKinds),
       MEMBER("ports", tFilter.achPorts), WORDS("direction", tFilter.eAction, kPortDirections),
       WORDS("action", tFilter.eAction, kPortActions), WORDS("family", tFilter.eInet, kProtocols));
RECORD(kRuleFile, TNetFirewallFileReq, Tail("path", sizeof(R)), WORDS("family", eIpType, kProtocols));
RECORD(kArp, ArpEntryInfo, MEMBER("address", achIp), MEMBER("mac", achMac), DEVICE);

// Logs and statistics
RECORD(kLogFile, LogFileCtl, WORDS("action", eCmd, kLogActions), MEMBER("library_path", achLibPath),
       MEMBER("daemon_path", achDaemonPath));
RECORD(kLogLevel, TNetLogLevelReq, MEMBER("level", nLevel));
RECORD(kStatStart, TNetStatStartReq, MEMBER("interval_s", dwInterval));
RECORD(kBandwidth, TNetBandwidth, Position("interface", kInterfaces), MEMBER("send_bps", ullSendBand),
       MEMBER("receive_bps", ullRecvBand), KIND("valid", Kind::kFlag, dwValid, 1));
RECORD(kBandwidthReport, TNetBandwidthReport, LIST("interfaces", atBand, kNoCount, kBandwidth.fields));

#undef MEMBER_TYPE
#undef KIND
#undef MEMBER
#undef WORDS
#undef DEVICE
#undef FAMILY
#undef LIST
#undef RECORD

}  // namespace tessel::ctl::records
