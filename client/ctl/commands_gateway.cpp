#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
    {.object = "gateway",
     .verb = "show",
     .words = "[dev IF] [table N]",
     .codes = {TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET},
     .takesFamily = true,
     .summary = "default gateways, with the metrics of their routes",
     .example = "gateway show dev eth0 -4",
     .background =
         "The daemon tells the first default route of an interface only; the kernel's further ones are marked. "
         "Metrics are the kernel's.",
     .run = &GatewayShow},
    {.object = "gateway",
     .verb = "set",
     .words = "A [dev IF] [table N]",
     .codes = {TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET},
     .takesFamily = false,
     .summary = "add a default route, and read it back",
     .example = "gateway set 192.168.1.1 dev eth0",
     .background = "IPv4 fails where there is one of the same metric: use \"gateway replace\". The metric is the "
                   "interface's priority. IPv6 needs the interface and takes the place of the one in the main table.",
     .run = &GatewaySet},
    {.object = "gateway",
     .verb = "del",
     .words = "[dev IF] [table N]",
     .codes = {TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_GET},
     .takesFamily = true,
     .summary = "delete the default route of one family or both",
     .example = "gateway del dev eth0 -4",
     .background = "Without an interface: the first IPv4 one, and all IPv6 ones.",
     .run = &GatewayDel},
    {.object = "gateway",
     .verb = "replace",
     .words = "A dev IF [table N]",
     .codes = {TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET},
     .takesFamily = false,
     .summary = "delete the default route of an interface, then add this one",
     .example = "gateway replace 192.168.1.1 dev eth0",
     .background =
         "Two steps, with no default route in between. When the second one fails, the old gateway is set again.",
     .run = &GatewayReplace},
    {.object = "priority",
     .verb = "show",
     .words = "",
     .codes = {TESSEL_CMD_PRIORITY_GET},
     .takesFamily = false,
     .summary = "the priorities, with the default routes that they are for",
     .example = "priority show",
     .background = "",
     .run = &PriorityShow},
    {.object = "priority",
     .verb = "set",
     .words = "IF METRIC [IF METRIC]...",
     .codes = {TESSEL_CMD_PRIORITY_SET, TESSEL_CMD_PRIORITY_GET},
     .takesFamily = false,
     .summary = "set metrics of interfaces (lower wins), and read them back",
     .example = "priority set eth0 10 eth1 20",
     .background =
         "The first time since the daemon's start fixes the set of interfaces. IPv4 default routes move to their "
         "new metric at once; for a moment there is none.",
     .run = &PrioritySet},
});

}  // namespace

std::span<const Command> GatewayCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
