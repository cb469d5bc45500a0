#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/addresses.h"
#include "client/ctl/messages.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/record_text.h"
#include "tessel/command.h"
#include "tessel/gateway.h"
#include "tessel/priority.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

ordered_json NullIfMain(u32 table) {
    return table == 0 ? ordered_json() : ordered_json(table);
}

ordered_json DescribeGatewaySet(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetGatewaySetReq>(bytes);
    return {{"interface", NullIfEmpty(TextOf(request.achDevName))},
            {"gateway", NullIfEmpty(HostText(request.tGateway))},
            {"family", FamilyName(request.tGateway.wSinFamily)},
            {"table", NullIfMain(request.dwTable)}};
}

// Requests that are a family and a place.
ordered_json DescribePlace(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetGatewayReq>(bytes);
    return {{"interface", NullIfEmpty(TextOf(request.achDevName))},
            {"family", FamilyName(request.wSinFamily)},
            {"table", NullIfMain(request.dwTable)}};
}

ordered_json DescribeGateway(std::span<const u8> bytes) {
    const auto reply = ReadRecord<TNetGatewayGetReply>(bytes);
    return {{"result", reply.nResult},
            {"gateway", NullIfEmpty(HostText(reply.tGateway))},
            {"learnt", reply.nResult == TESSEL_RESULT_LEARNT}};
}

ordered_json DescribeNothing(std::span<const u8> /*bytes*/) {
    return ordered_json::object();
}

// The reply's entries keep their places, so that `dwNum` does not tell where the last one stands.
ordered_json DescribePriorities(std::span<const u8> bytes) {
    const auto list = ReadRecord<TNetPrioParamList>(bytes);
    ordered_json priorities = ordered_json::array();
    for (const TNetPrioParam& entry : list.atPrio) {
        const std::string name = TextOf(entry.achDevName);
        if (!name.empty()) priorities.push_back(fmt::format("{}={}", name, static_cast<i32>(entry.nPriority)));
    }
    return {{"entries", list.dwNum}, {"priorities", priorities}};
}

// PRIORITY: the interface's, and 0 without an interface or where no priorities were set.
constexpr Message kMessages[] = {
    {TESSEL_CMD_GATEWAY_SET,
     "gateway_set",
     TESSEL_RECORD(TNetGatewaySetReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeGatewaySet,
     &DescribeStatus,
     {{{"inet", "ip route add default via {gateway}[ dev {interface}] metric PRIORITY[ table {table}]"},
       {"inet6", "ip -6 route replace default via {gateway} dev {interface}", "table"},
       {"inet6", "ip -6 route add default via {gateway}[ dev {interface}] table {table}"}}}},
    {TESSEL_CMD_GATEWAY_DEL,
     "gateway_del",
     TESSEL_RECORD(TNetGatewayReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribePlace,
     &DescribeStatus,
     {{{"inet", "ip -4 route del default[ dev {interface}][ table {table}]"},
       {"inet6", "ip -6 route del default dev {interface}[ table {table}]"},
       {"inet6", "ip -6 route flush default[ table {table}]", "interface"}}}},
    {TESSEL_CMD_GATEWAY_GET,
     "gateway_get",
     TESSEL_RECORD(TNetGatewayReq),
     TESSEL_RECORD(TNetGatewayGetReply),
     &DescribePlace,
     &DescribeGateway,
     {{{"inet", "ip -4 route show[ dev {interface}] default[ table {table}]"},
       {"inet6", "ip -6 route show[ dev {interface}] default[ table {table}]"}}}},
    {TESSEL_CMD_PRIORITY_SET,
     "priority_set",
     TESSEL_RECORD(TNetPrioParamList),
     TESSEL_RECORD(TNetStatusReply),
     &DescribePriorities,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_PRIORITY_GET,
     "priority_get",
     "(none)",
     0,
     TESSEL_RECORD(TNetPrioParamList),
     &DescribeNothing,
     &DescribePriorities,
     {}},
};

}  // namespace

std::span<const Message> GatewayMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
