// The field tables of the records of include/tessel/.
#pragma once

#include "client/ctl/field_table.h"

// In a namespace of their own: objects of the tool bear the same names (kGateway).
namespace tessel::ctl::records {

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
inline constexpr auto kStatus = RECORD(TNetStatusReply, MEMBER("result", nResult));

// Addresses
inline constexpr auto kAddrChange = RECORD(TNetIpaddrChangeReq, DEVICE, MEMBER("address", tIp), FAMILY(tIp.wSinFamily));
inline constexpr auto kAddrGet = RECORD(TNetIpaddrGetReq, DEVICE, FAMILY(wSinFamily));
inline constexpr auto kAddrFlush = RECORD(TNetIpaddrFlushReq, DEVICE, FAMILY(wSinFamily));
inline constexpr auto kAddrSet =
    RECORD(TNetIpaddrSetReq, DEVICE, FAMILY(wSinFamily), LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)));
inline constexpr auto kAddrList = RECORD(TNetIpaddrGetReply, MEMBER("result", nResult),
                                         LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)));
inline constexpr auto kShownAddress =
    RECORD(ipaddr_show_addr, MEMBER("address", addr), MEMBER("prefix_length", prefix_len),
           WORDS("family", family, kShownFamilies));
inline constexpr auto kAddrInfo =
    RECORD(TNetIpaddrShowReply, MEMBER("result", nResult), MEMBER("mtu", tInfo.mtu), MEMBER("mac", tInfo.mac),
           LIST("addresses", tInfo.addr, offsetof(R, tInfo.num), kShownAddress.fields));
inline constexpr auto kAddrShow = RECORD(TNetIpaddrShowReq, DEVICE);
inline constexpr auto kMacSet = RECORD(TNetMacaddrSetReq, DEVICE, MEMBER("mac", abyMac));
inline constexpr auto kMacGet = RECORD(TNetMacaddrGetReq, DEVICE);
inline constexpr auto kMac = RECORD(TNetMacaddrGetReply, MEMBER("result", nResult), MEMBER("mac", abyMac));
inline constexpr auto kMtuSet = RECORD(TNetMtuSetReq, DEVICE, MEMBER("mtu", dwMtu));
inline constexpr auto kMtuGet = RECORD(TNetMtuGetReq, DEVICE);
inline constexpr auto kMtu = RECORD(TNetMtuGetReply, MEMBER("result", nResult), MEMBER("mtu", dwMtu));

// Routing
inline constexpr auto kGatewaySet = RECORD(TNetGatewaySetReq, DEVICE, MEMBER("gateway", tGateway),
                                           FAMILY(tGateway.wSinFamily), WORDS("table", dwTable, kNoZero));
inline constexpr auto kGatewayGet =
    RECORD(TNetGatewayReq, DEVICE, FAMILY(wSinFamily), WORDS("table", dwTable, kNoZero));
inline constexpr auto kGateway = RECORD(TNetGatewayGetReply, MEMBER("result", nResult), MEMBER("gateway", tGateway),
                                        KIND("learnt", Kind::kFlag, nResult, TESSEL_RESULT_LEARNT));
inline constexpr auto kPriority = RECORD(TNetPrioParam, DEVICE, MEMBER("metric", nPriority));
inline constexpr auto kPriorities =
    RECORD(TNetPrioParamList, MEMBER("entries", dwNum), LIST("priorities", atPrio, kNoCount, kPriority.fields));
inline constexpr auto kRoute =
    RECORD(TNetIpRouteParam, DEVICE, KIND("destination", Kind::kNetwork, tDestIpNet, offsetof(R, nPrefixLen)),
           MEMBER("gateway", tGateway), MEMBER("metric", nMetric), FAMILY(tDestIpNet.wSinFamily));
inline constexpr auto kRouteChange =
    RECORD(TNetRouteReq, DEVICE, KIND("destination", Kind::kNetwork, tRoute.tDestIpNet, offsetof(R, tRoute.nPrefixLen)),
           MEMBER("gateway", tRoute.tGateway), MEMBER("metric", tRoute.nMetric), WORDS("table", dwTable, kNoZero),
           FAMILY(tRoute.tDestIpNet.wSinFamily));
inline constexpr auto kRouteGetAll = RECORD(TNetRouteGetAllReq, FAMILY(wSinFamily));
inline constexpr auto kRoutes = RECORD(TNetRouteGetAllReply, MEMBER("result", nResult),
                                       LIST("routes", tRoutes.atRoute, offsetof(R, tRoutes.dwNum), kRoute.fields));
inline constexpr auto kTable = RECORD(TNetRouteTableReq, MEMBER("table", dwTable));
inline constexpr auto kRule = RECORD(TNetIpRule, KIND("from", Kind::kNetwork, tSrcIpNet, offsetof(R, nPrefixLen)),
                                     MEMBER("fwmark", nFwmark), WORDS("pref", nPref, kNoZero), MEMBER("table", nTable));
inline constexpr auto kService = RECORD(TNetServiceStopReq, MEMBER("service", achServiceName));

// Conflicts, DHCP, announcements by ARP
inline constexpr auto kConflict = RECORD(TNetConflictReq, FAMILY(wSinFamily));
inline constexpr auto kConflictReport = RECORD(TNetConflictReport, DEVICE, FAMILY(tAddr.wSinFamily),
                                               MEMBER("address", tAddr), MEMBER("interface_mac", abyMac));
inline constexpr auto kDhcpcStart = RECORD(TNetDhcpcStartReq, DEVICE, FAMILY(wSinFamily), MEMBER("pid", nPid));
inline constexpr auto kDhcpcStartEx =
    RECORD(TNetDhcpcStartExReq, DEVICE, FAMILY(wSinFamily), MEMBER("dns", wDnsDynmic), MEMBER("pid", nPid));
inline constexpr auto kDhcpc = RECORD(TNetDhcpcReq, DEVICE, FAMILY(wSinFamily));
inline constexpr auto kLease = RECORD(TNetDhcpcLease, DEVICE, FAMILY(tAddr.wSinFamily), MEMBER("address", tAddr),
                                      MEMBER("prefix_length", dwPrefixLen), MEMBER("gateway", tRouter),
                                      MEMBER("lease_s", dwLeaseTime), LIST("dns", atDns, offsetof(R, dwDnsNum)));
inline constexpr auto kDhcpsStart =
    RECORD(TNetDhcpsStartReq, DEVICE, FAMILY(wSinFamily), MEMBER("first", tConf.tStart), MEMBER("last", tConf.tEnd),
           MEMBER("prefix_length", tConf.dwPrefixLen), MEMBER("gateway", tConf.tRouter),
           LIST("dns", tConf.atDns, offsetof(R, tConf.dwDnsNum)));
inline constexpr auto kDhcps = RECORD(TNetDhcpsReq, DEVICE, FAMILY(wSinFamily));
inline constexpr auto kAnnounce = RECORD(TNetBroadcastArpReq, KIND("address", Kind::kIpv4, dwTargetIp, ));

// Time, links and the web server. A password is shown to nobody.
inline constexpr auto kNtpcStart = RECORD(TNetNtpcStartReq, MEMBER("address", tServer), FAMILY(tServer.wSinFamily),
                                          MEMBER("interval_s", dwSyncTimeInterval));
inline constexpr auto kNtpcStop = RECORD(TNetNtpcStopReq, FAMILY(wSinFamily));
inline constexpr auto kNtpcCheck = RECORD(TNetNtpcCheckReq, MEMBER("address", tServer), FAMILY(tServer.wSinFamily));
inline constexpr auto kNtpcSynced = RECORD(TNetNtpcSynced, MEMBER("deviation_s", nTimeDeviation));
inline constexpr auto kPppoeStart =
    RECORD(TNetPppoeStartReq, MEMBER("interface", tConf.achDevName), FAMILY(wSinFamily), MEMBER("user", tConf.achUser),
           MEMBER("service", tConf.achService), MEMBER("persist", tConf.dwPersist), MEMBER("debug", tConf.dwDebug),
           MEMBER("holdoff_s", tConf.dwHoldoff), MEMBER("echo_interval_s", tConf.dwLcpEchoInterval),
           MEMBER("echo_failure", tConf.dwLcpEchoFailure), MEMBER("maxfail", tConf.dwMaxfail));
inline constexpr auto kPppoeStop = RECORD(TNetPppoeStopReq, FAMILY(wSinFamily));
inline constexpr Record kWebsStart{"TNetWebsStartReq", sizeof(TNetWebsStartReq), {}};
inline constexpr auto kBondStart = RECORD(TNetBondStartHead, MEMBER("bytes", nSendLen), MEMBER("mode", dwBondMode),
                                          MEMBER("path_bytes", nBondPathLen));

// Probes
inline constexpr auto kPingStart =
    RECORD(TNetPingStartReq, MEMBER("address", tTarget), FAMILY(tTarget.wSinFamily), MEMBER("size", dwPacketSize),
           MEMBER("timeout_s", dwTimeout), MEMBER("ttl", dwTtl), MEMBER("count", dwCount), MEMBER("id", nUserId));
inline constexpr auto kPingStop = RECORD(TNetPingStopReq, MEMBER("id", nUserId));
inline constexpr auto kPingResult =
    RECORD(TNetPingResult, MEMBER("id", nUserId), MEMBER("seq", dwSeq), MEMBER("ttl", dwTtl), MEMBER("rtt_us", dwTime),
           KIND("last", Kind::kFlag, dwLast, 1));
inline constexpr auto kTraceStart =
    RECORD(TNetTracerouteStartReq, MEMBER("address", tTarget), FAMILY(tTarget.wSinFamily), MEMBER("hops", dwMaxHops),
           MEMBER("id", nUserId));
inline constexpr auto kTraceStop = RECORD(TNetTracerouteStopReq, MEMBER("id", nUserId));
inline constexpr auto kTraceResult =
    RECORD(TNetTracerouteResult, MEMBER("id", nUserId), MEMBER("hop", dwHop), MEMBER("address", tHop),
           MEMBER("rtt_us", dwTime), KIND("last", Kind::kFlag, dwLast, 1));
inline constexpr auto kRouterStart = RECORD(TNetRouterStartReq, DEVICE, MEMBER("id", nUserId), MEMBER("pid", nPid));
inline constexpr auto kRouterStop = RECORD(TNetRouterStopReq, DEVICE);
inline constexpr auto kRouterReport =
    RECORD(TNetRouterNotify, DEVICE, LIST("addresses", tIfaceIp.atIp, offsetof(R, tIfaceIp.dwNum)),
           MEMBER("gateway", tGateway));

// Firewall
inline constexpr auto kIpFilter =
    RECORD(TNetIpFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
           WORDS("target", eCmd, kListTargets), FAMILY(tFilter.tStart.wSinFamily),
           KIND("source", Kind::kFilterNetwork, tFilter, ), KIND("range", Kind::kFilterRange, tFilter, ));
inline constexpr auto kMacFilter =
    RECORD(TNetMacFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
           WORDS("target", eCmd, kListTargets), Tail("mac", sizeof(R)));
inline constexpr auto kIpMacFilter =
    RECORD(TNetIpMacFilterReq, WORDS("list", eCmd, kListNames), WORDS("change", eCmd, kListChanges),
           WORDS("target", eCmd, kListTargets), MEMBER("mac", achMac), Tail("address", sizeof(R)));
inline constexpr auto kSwitch =
    RECORD(TNetFilterSwitchReq, WORDS("list", eType, kSwitchLists), WORDS("family", eType, kSwitchFamilies));
inline constexpr auto kChainAdd =
    RECORD(TNetChainAddReq, Tail("chain", sizeof(R)), WORDS("family", wIpType, kProtocols));
inline constexpr auto kIcmp =
    RECORD(TNetIcmpFilterReq, WORDS("echo", eType, kEchoes), WORDS("family", eType, kSwitchFamilies));
inline constexpr auto kPort =
    RECORD(TNetPortFilterReq, WORDS("change", eCmd, kPortChanges), WORDS("protocol", tFilter.eProtocol, kPortProtocols),
           WORDS("kind", tFilter.ePortType, kPortKinds), MEMBER("ports", tFilter.achPorts),
           WORDS("direction", tFilter.eAction, kPortDirections), WORDS("action", tFilter.eAction, kPortActions),
           WORDS("family", tFilter.eInet, kProtocols));
inline constexpr auto kRuleFile =
    RECORD(TNetFirewallFileReq, Tail("path", sizeof(R)), WORDS("family", eIpType, kProtocols));
inline constexpr auto kArp = RECORD(ArpEntryInfo, MEMBER("address", achIp), MEMBER("mac", achMac), DEVICE);

// Logs and statistics
inline constexpr auto kLogFile = RECORD(LogFileCtl, WORDS("action", eCmd, kLogActions),
                                        MEMBER("library_path", achLibPath), MEMBER("daemon_path", achDaemonPath));
inline constexpr auto kLogLevel = RECORD(TNetLogLevelReq, MEMBER("level", nLevel));
inline constexpr auto kStatStart = RECORD(TNetStatStartReq, MEMBER("interval_s", dwInterval));
inline constexpr auto kBandwidth =
    RECORD(TNetBandwidth, Position("interface", kInterfaces), MEMBER("send_bps", ullSendBand),
           MEMBER("receive_bps", ullRecvBand), KIND("valid", Kind::kFlag, dwValid, 1));
inline constexpr auto kBandwidthReport =
    RECORD(TNetBandwidthReport, LIST("interfaces", atBand, kNoCount, kBandwidth.fields));

#undef MEMBER_TYPE
#undef KIND
#undef MEMBER
#undef WORDS
#undef DEVICE
#undef FAMILY
#undef LIST
#undef RECORD

}  // namespace tessel::ctl::records
