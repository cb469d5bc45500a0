#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
    {.object = "route",
     .verb = "show",
     .words = "",
     .codes = {TESSEL_CMD_ROUTE_GET_ALL},
     .takesFamily = true,
     .summary = "routes through a gateway, default routes left out",
     .example = "route show -4",
     .background = "The daemon tells 10 routes of the main table at most, IPv4 first; a full list is marked. --kernel "
                   "adds the others: further ones, default routes, and networks on the link.",
     .run = &RouteShow},
    {.object = "route",
     .verb = "add",
     .words = "A/L via A [dev IF] [metric N] [table N]",
     .codes = {TESSEL_CMD_ROUTE_ADD},
     .takesFamily = false,
     .summary = "add a route, and look for it in the kernel",
     .example = "route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5",
     .background = "Without a metric it is 0, which the kernel makes 1024 for IPv6. There may be one route to a "
                   "destination of each metric.",
     .run = &RouteAdd},
    {.object = "route",
     .verb = "metric",
     .words = "A/L N via A dev IF",
     .codes = {TESSEL_CMD_ROUTE_METRIC_SET},
     .takesFamily = false,
     .summary = "delete a route and add it again with this metric",
     .example = "route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 30",
     .background = "Of several such routes that of the lowest metric is meant. Main table only.",
     .run = &RouteMetric},
    {.object = "route",
     .verb = "del",
     .words = "A/L via A [dev IF] [metric N] [table N]",
     .codes = {TESSEL_CMD_ROUTE_DEL},
     .takesFamily = false,
     .summary = "delete a route",
     .example = "route del 10.1.0.0/16 via 192.168.1.254 dev eth0",
     .background = "The metric is not sent: of several such routes that of the lowest metric goes. A metric typed here "
                   "only makes sure that this is the one.",
     .run = &RouteDel},
    {.object = "table",
     .verb = "add",
     .words = "N",
     .codes = {TESSEL_CMD_ROUTE_TABLE_ADD},
     .takesFamily = false,
     .summary = "let all IPv4 traffic ask a routing table",
     .example = "table add 100",
     .background = "A rule without conditions, in front of the rules that are there. 253 to 255 are the kernel's own "
                   "tables.",
     .run = &TableAdd},
    {.object = "table",
     .verb = "del",
     .words = "N",
     .codes = {TESSEL_CMD_ROUTE_TABLE_DEL},
     .takesFamily = false,
     .summary = "delete the rule that \"table add\" made",
     .example = "table del 100",
     .background = "The routes of the table stay. Nothing leaves a device whose rule for table 254 was deleted.",
     .run = &TableDel},
    {.object = "rule",
     .verb = "show",
     .words = "",
     .codes = {},
     .takesFamily = true,
     .summary = "the kernel's rules, in the order in which they are asked",
     .example = "rule show -4",
     .background = "The daemon is not asked: it tells no rules.",
     .run = &RuleShow},
    {.object = "rule",
     .verb = "add",
     .words = "from A/L [fwmark N] [pref N] table N",
     .codes = {TESSEL_CMD_RULE_ADD},
     .takesFamily = false,
     .summary = "let traffic of a source network ask a routing table",
     .example = "rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100",
     .background = "IPv4 only. Without fwmark, or with fwmark 0, the rule holds whatever the mark: the kernel compares "
                   "no bits of a mark of 0. Without pref the kernel puts it in front of the rules that are there.",
     .run = &RuleAdd},
    {.object = "rule",
     .verb = "del",
     .words = "from A/L [fwmark N] [pref N] table N",
     .codes = {TESSEL_CMD_RULE_DEL},
     .takesFamily = false,
     .summary = "delete a rule by its words",
     .example = "rule del from 192.168.2.0/24 table 100",
     .background = "The first rule that has these words goes, whatever else it has; with pref, the first of that "
                   "preference.",
     .run = &RuleDel},
    {.object = "rule",
     .verb = "del",
     .words = "pref N",
     .codes = {TESSEL_CMD_RULE_DEL},
     .takesFamily = false,
     .summary = "delete a rule by its preference",
     .example = "rule del pref 30",
     .background = "",
     .run = &RuleDel},
});

}  // namespace

std::span<const Command> RouteCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
