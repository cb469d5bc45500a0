// Policy rules: which table a packet's route is looked up in.
//
// Every operation returns 0, or the executor's result with a log line.
#pragma once

#include "core/types.h"
#include "tessel/route.h"

// The rule that sends all traffic to a table.
[[nodiscard]] i32 RouteTableAdd(u32 dwTable);
[[nodiscard]] i32 RouteTableDel(u32 dwTable);

// A rule by source network and mark, IPv4 only. One that has a preference is deleted by that alone.
[[nodiscard]] i32 IpRuleAdd(const TNetIpRule* ptNetIpRule);
[[nodiscard]] i32 IpRuleDel(const TNetIpRule* ptNetIpRule);
