#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
    {.object = "addr",
     .verb = "show",
     .words = "[dev IF]",
     .codes = {TESSEL_CMD_IPADDR_GET},
     .takesFamily = true,
     .summary = "addresses of one interface or of all",
     .example = "addr show dev eth0 -4",
     .background =
         "The daemon tells 16 addresses of an interface at most; a full list is marked. --kernel adds the others.",
     .run = &AddrShow},
    {.object = "addr",
     .verb = "add",
     .words = "A/L dev IF",
     .codes = {TESSEL_CMD_IPADDR_ADD, TESSEL_CMD_IPADDR_GET},
     .takesFamily = false,
     .summary = "add an address, and read it back",
     .example = "addr add 192.168.1.20/24 dev eth0",
     .background = "",
     .run = &AddrAdd},
    {.object = "addr",
     .verb = "del",
     .words = "A/L dev IF",
     .codes = {TESSEL_CMD_IPADDR_DEL, TESSEL_CMD_IPADDR_GET},
     .takesFamily = false,
     .summary = "delete an address",
     .example = "addr del 192.168.1.21/24 dev eth0",
     .background = "",
     .run = &AddrDel},
    {.object = "addr",
     .verb = "set",
     .words = "A/L... dev IF",
     .codes = {TESSEL_CMD_IPADDR_SET, TESSEL_CMD_IPADDR_GET},
     .takesFamily = true,
     .summary = "replace the addresses of a family by these",
     .example = "addr set dev eth0 192.168.1.20/24",
     .background = "The family is that of the addresses, or both. IPv6 link-local addresses and those learnt from "
                   "router advertisements stay.",
     .run = &AddrSet},
    {.object = "addr",
     .verb = "flush",
     .words = "dev IF",
     .codes = {TESSEL_CMD_IPADDR_FLUSH, TESSEL_CMD_IPADDR_GET},
     .takesFamily = true,
     .summary = "remove all addresses of one family or both",
     .example = "addr flush dev eth0 -6",
     .background = "IPv6 link-local addresses stay.",
     .run = &AddrFlush},
    {.object = "link",
     .verb = "show",
     .words = "[IF]",
     .codes = {TESSEL_CMD_IPADDR_SHOW, TESSEL_CMD_MTU_GET},
     .takesFamily = false,
     .summary = "state, MTU, hardware address and addresses",
     .example = "link show eth0",
     .background = "Of interfaces without an Ethernet address (lo, ppp0) the daemon tells the MTU only; the rest comes "
                   "from the kernel.",
     .run = &LinkShow},
    {.object = "link",
     .verb = "mtu",
     .words = "IF",
     .codes = {TESSEL_CMD_MTU_GET},
     .takesFamily = false,
     .summary = "the largest packet in bytes",
     .example = "link mtu eth0",
     .background = "",
     .run = &LinkMtu},
    {.object = "link",
     .verb = "mac",
     .words = "IF",
     .codes = {TESSEL_CMD_MACADDR_GET},
     .takesFamily = false,
     .summary = "the hardware address",
     .example = "link mac eth0",
     .background = "The daemon cannot read one whose first byte is 22.",
     .run = &LinkMac},
    {.object = "link",
     .verb = "set",
     .words = "IF mac M",
     .codes = {TESSEL_CMD_MACADDR_SET, TESSEL_CMD_MACADDR_GET},
     .takesFamily = false,
     .summary = "set the hardware address, and read it back",
     .example = "link set eth0 mac 02:00:00:00:00:01",
     .background = "",
     .run = &LinkSetMac},
    {.object = "link",
     .verb = "set",
     .words = "IF mtu N",
     .codes = {TESSEL_CMD_MTU_SET, TESSEL_CMD_MTU_GET},
     .takesFamily = false,
     .summary = "set the largest packet, and read it back",
     .example = "link set eth0 mtu 1400",
     .background = "",
     .run = &LinkSetMtu},
});

}  // namespace

std::span<const Command> AddressCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
