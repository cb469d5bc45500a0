// Default gateways of interfaces.
//
// pchIfaceName is one word, or null where noted: the tool then chooses, or looks at every interface. dwTable 0 is the
// main table. Every operation returns 0, or -1 or the executor's result with a log line. The kernel refuses to read or
// delete in a numbered table that no route was ever put into: such a table does not exist.
#pragma once

#include "core/call_site.h"
#include "core/types.h"
#include "tessel/gateway.h"

// Sets by the gateway's family (2 or 10). The zero address deletes the default route of the main table; in another
// table it is an address like any other.
[[nodiscard]] i32 GatewaySet(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable = 0);

// IPv4 default routes carry the interface's metric: in the main table while priority routing is on, in other tables
// always. A route that already exists is a failure.
[[nodiscard]] i32 GatewaySetV4(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable = 0);

// Adds to a numbered table. In the main table it needs an interface, replaces the existing route, but leaves one
// through the same gateway as it is: it may come from a router advertisement, with a lifetime.
[[nodiscard]] i32 GatewaySetV6(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable = 0);

// 0 when the interface's IPv6 default route goes through this gateway (text), else -1.
[[nodiscard]] i32 CheckGateWay(const char* pchIfaceName, const char* pchGateWay);

// Delete by family; any other than 2 and 10 is a success with nothing done. An absent route is a failure, except for
// IPv6 in the main table and, when no interface is named, in any table that exists.
[[nodiscard]] i32 GatewayDel(u16 wSinFamily, const char* pchIfaceName, u32 dwTable = 0);
[[nodiscard]] i32 DelGateWayV4(const char* pchIfaceName, u32 dwTable = 0);
[[nodiscard]] i32 DelGateWayV6(const char* pchIfaceName, u32 dwTable = 0);

// Read by family into *ptNetGateway; any other than 2 and 10 is a success with nothing read. No default route is a
// success with the zero address. TESSEL_RESULT_LEARNT: an IPv6 one of the main table that has a lifetime.
[[nodiscard]] i32 GatewayGet(const char* pchIfaceName, u16 wSinFamily, TNetGateway* ptNetGateway, u32 dwTable = 0);
[[nodiscard]] i32 GetGateWayV4(const char* pchIfaceName, TNetGateway* ptNetGateway, u32 dwTable = 0);
[[nodiscard]] i32 GetGateWayV6(const char* pchIfaceName, TNetGateway* ptNetGateway, u32 dwTable = 0);
// *pdwExpires becomes 1 when the route has a lifetime, else it is left alone.
[[nodiscard]] i32 GetGateWayV6Ex(const char* pchIfaceName, TNetGateway* ptNetGateway, u32* pdwExpires);

// An interface's IPv4 default gateway and its metric.
struct TNetGatewayMetric {
    char achDevName[TESSEL_NAME_SIZE];
    i32 nMetric;
    TNetGateway tGateway;
};
// Fills in what belongs to the name in the record.
[[nodiscard]] i32 GetGateWayV4WithMetric(TNetGatewayMetric* ptNetGatewayMetric);

// The names under which the same operations are known for a numbered table.
inline constexpr auto& GatewaySetToTable = GatewaySet;
inline constexpr auto& GatewaySetV4ToTable = GatewaySetV4;
inline constexpr auto& GatewaySetV6ToTable = GatewaySetV6;
inline constexpr auto& GatewayDelFromTable = GatewayDel;
inline constexpr auto& DelGateWayV4FromTable = DelGateWayV4;
inline constexpr auto& DelGateWayV6FromTable = DelGateWayV6;
inline constexpr auto& GatewayGetFromTable = GatewayGet;
inline constexpr auto& GetGateWayV4FromTable = GetGateWayV4;
inline constexpr auto& GetGateWayV6FromTable = GetGateWayV6;

namespace tessel {

// GetGateWayV6 as a part of `where`, whose name the log lines bear. A null name: any interface. Stores the zero address
// when there is no gateway.
[[nodiscard]] i32 ReadGateWayV6(const char* name, TNetGateway* gateway, u32 table, CallSite where);

}  // namespace tessel
