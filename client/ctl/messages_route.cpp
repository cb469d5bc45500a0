#include "client/ctl/addresses.h"
#include "client/ctl/messages.h"
#include "client/ctl/record_text.h"
#include "client/ctl/routes.h"
#include "tessel/command.h"
#include "tessel/route.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

ordered_json NullIfZero(i32 number) {
    return number == 0 ? ordered_json() : ordered_json(number);
}

ordered_json DescribeRoute(const TNetIpRouteParam& route, const std::string& interfaceName, u32 table) {
    return {{"interface", interfaceName.empty() ? ordered_json() : ordered_json(interfaceName)},
            {"destination", NetworkText(route.tDestIpNet, route.nPrefixLen)},
            {"gateway", HostText(route.tGateway)},
            {"metric", route.nMetric},
            {"table", table == 0 ? ordered_json() : ordered_json(table)},
            {"family", FamilyName(route.tDestIpNet.wSinFamily)}};
}

ordered_json DescribeRouteChange(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetRouteReq>(bytes);
    return DescribeRoute(request.tRoute, TextOf(request.achDevName), request.dwTable);
}

ordered_json DescribeRouteMetric(std::span<const u8> bytes) {
    const auto route = ReadRecord<TNetIpRouteParam>(bytes);
    return DescribeRoute(route, TextOf(route.achDevName), 0);
}

ordered_json DescribeRouteGetAll(std::span<const u8> bytes) {
    return {{"family", FamilyName(ReadRecord<TNetRouteGetAllReq>(bytes).wSinFamily)}};
}

ordered_json DescribeRoutes(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetRouteGetAllReply>(bytes);
    return {{"result", reply.nResult}, {"routes", reply.tRoutes.dwNum}};
}

ordered_json DescribeTable(std::span<const u8> bytes) {
    return {{"table", ReadRecord<TNetRouteTableReq>(bytes).dwTable}};
}

ordered_json DescribeRule(std::span<const u8> bytes) {
    const auto rule = ReadRecord<TNetIpRule>(bytes);
    return {{"from", NetworkText(rule.tSrcIpNet, rule.nPrefixLen)},
            {"fwmark", rule.nFwmark},
            {"pref", NullIfZero(rule.nPref)},
            {"table", rule.nTable}};
}

// What a deletion goes by: the preference where there is one.
ordered_json DescribeRuleDel(std::span<const u8> bytes) {
    ordered_json rule = DescribeRule(bytes);
    if (!rule["pref"].is_null()) rule["from"] = rule["fwmark"] = rule["table"] = nullptr;
    return rule;
}

constexpr std::string_view kRouteAdd =
    "ip route add {destination} via {gateway}[ dev {interface}] metric {metric}[ table {table}]";
constexpr std::string_view kRouteAdd6 =
    "ip -6 route add {destination} via {gateway}[ dev {interface}] metric {metric}[ table {table}]";
constexpr std::string_view kRouteDel = "ip route del {destination} via {gateway}[ dev {interface}][ table {table}]";
constexpr std::string_view kRouteDel6 = "ip -6 route del {destination} via {gateway}[ dev {interface}][ table {table}]";

constexpr Message kMessages[] = {
    {TESSEL_CMD_ROUTE_ADD,
     "route_add",
     TESSEL_RECORD(TNetRouteReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeRouteChange,
     &DescribeStatus,
     {{{"inet", kRouteAdd}, {"inet6", kRouteAdd6}}}},
    {TESSEL_CMD_ROUTE_DEL,
     "route_del",
     TESSEL_RECORD(TNetRouteReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeRouteChange,
     &DescribeStatus,
     {{{"inet", kRouteDel}, {"inet6", kRouteDel6}}}},
    {TESSEL_CMD_ROUTE_GET_ALL,
     "route_get_all",
     TESSEL_RECORD(TNetRouteGetAllReq),
     TESSEL_RECORD(TNetRouteGetAllReply),
     &DescribeRouteGetAll,
     &DescribeRoutes,
     {{{"inet", "ip -4 route show"}, {"inet6", "ip -6 route show"}}}},
    {TESSEL_CMD_ROUTE_METRIC_SET,
     "route_metric_set",
     TESSEL_RECORD(TNetIpRouteParam),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeRouteMetric,
     &DescribeStatus,
     {{{"inet", kRouteDel}, {"inet", kRouteAdd}, {"inet6", kRouteDel6}, {"inet6", kRouteAdd6}}}},
    {TESSEL_CMD_ROUTE_TABLE_ADD,
     "route_table_add",
     TESSEL_RECORD(TNetRouteTableReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeTable,
     &DescribeStatus,
     {{{"", "ip rule add table {table}"}}}},
    {TESSEL_CMD_ROUTE_TABLE_DEL,
     "route_table_del",
     TESSEL_RECORD(TNetRouteTableReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeTable,
     &DescribeStatus,
     {{{"", "ip rule del table {table}"}}}},
    {TESSEL_CMD_RULE_ADD,
     "rule_add",
     TESSEL_RECORD(TNetIpRule),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeRule,
     &DescribeStatus,
     {{{"", "ip rule add from {from} fwmark {fwmark}[ pref {pref}] table {table}"}}}},
    {TESSEL_CMD_RULE_DEL,
     "rule_del",
     TESSEL_RECORD(TNetIpRule),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeRuleDel,
     &DescribeStatus,
     {{{"", "ip rule del[ pref {pref}][ from {from} fwmark {fwmark} table {table}]"}}}},
};

}  // namespace

std::span<const Message> RouteMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
