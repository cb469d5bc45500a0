#include "client/ctl/commands.h"

#include <algorithm>
#include <array>

#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

// A new command is a row here, its handler, and for a new code a row in messages.cpp.
constexpr auto kCommands = std::to_array<Command>({
    {.object = "addr",
     .verb = "show",
     .words = "[dev IF]",
     .codes = {TESSEL_CMD_IPADDR_GET},
     .takesFamily = true,
     .summary = "addresses of one interface or of all",
     .example = "addr show dev eth0 -4",
     .background = "The daemon tells 16 addresses of an interface at most; a full list is marked.",
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
    {.object = "service",
     .verb = "stop",
     .words = "NAME=ssh|telnetd|ftpd|NAME",
     .codes = {TESSEL_CMD_SERVICE_STOP},
     .takesFamily = false,
     .summary = "kill every process of a service",
     .example = "service stop telnetd",
     .background = "Signal 9, by process name; whatever starts the service may start it again.",
     .run = &ServiceStop},
    {.object = "log",
     .verb = "level",
     .words = "LEVEL=off|error|info|debug|N",
     .codes = {TESSEL_CMD_LOG_LEVEL},
     .takesFamily = false,
     .summary = "what the daemon logs",
     .example = "log level info",
     .background = "off is 0, error 2, info 4, debug 5. The level cannot be read back.",
     .run = &LogLevel},
    {.object = "log",
     .verb = "file",
     .words = "TARGET=off|PATH",
     .codes = {TESSEL_CMD_LOG_FILE},
     .takesFamily = false,
     .summary = "write the daemon's log to a file as well, or no more",
     .example = "log file /tmp/tessel_daemon.log",
     .background = "An existing file is emptied: asked before on a terminal, --yes in scripts. Closing takes a second.",
     .run = &LogFile},
    {.object = "log",
     .verb = "debug",
     .words = "SWITCH=on|off",
     .codes = {},
     .takesFamily = false,
     .summary = "everything into the log at any level, of every program that uses libtessel",
     .example = "log debug on",
     .background = "Creates or removes /tmp/tesseldebug, which every log line looks for.",
     .run = &LogDebug},
    {.object = "log",
     .verb = "follow",
     .words = "[FILE]",
     .codes = {},
     .takesFamily = false,
     .summary = "show the daemon's log as it grows",
     .example = "log follow",
     .background = "/tmp/tessel_daemon.log if it exists, else the daemon's lines of /var/log/messages; until "
                   "interrupted.",
     .run = &LogFollow},
    {.object = "raw",
     .verb = "",
     .words = "CODE [DATA=HEX|@FILE|-]",
     .codes = {},
     .takesFamily = false,
     .summary = "send any request and show the bytes of the reply",
     .example = "raw mtu_get 65746830000000000000000000000000",
     .background =
         "A code is a number or a name. Data are hexadecimal digits, @FILE or - for standard input. For codes "
         "without a name, --reply tells the reply's size.",
     .run = &RawRequest},
    {.object = "status",
     .verb = "",
     .words = "[IF]",
     .codes = {TESSEL_CMD_MTU_GET, TESSEL_CMD_IPADDR_GET},
     .takesFamily = false,
     .summary = "the daemon and the interfaces at a glance",
     .example = "status",
     .background = "",
     .run = &Status},
    {.object = "help",
     .verb = "",
     .words = "[OBJECT]",
     .codes = {},
     .takesFamily = false,
     .summary = "this help, or that of an object",
     .example = "help link",
     .background = "",
     .run = &HelpOn},
});

struct ObjectText {
    std::string_view object;
    std::string_view summary;
};

constexpr ObjectText kObjects[] = {
    {"addr", "addresses"},
    {"link", "interfaces: state, MTU, hardware address"},
    {"service", "remote-access services"},
    {"log", "the daemon's log"},
    {"raw", "any request as bytes"},
    {"status", "the daemon and the interfaces at a glance"},
    {"help", "help on an object"},
};

}  // namespace

std::span<const Command> Commands() {
    return kCommands;
}

std::vector<std::string> ObjectNames() {
    std::vector<std::string> names;
    for (const ObjectText& text : kObjects)
        names.emplace_back(text.object);
    return names;
}

std::string_view ObjectSummary(std::string_view object) {
    const auto* const found = std::find_if(std::begin(kObjects), std::end(kObjects),
                                           [&](const ObjectText& text) { return text.object == object; });
    return found == std::end(kObjects) ? std::string_view{} : found->summary;
}

}  // namespace tessel::ctl
