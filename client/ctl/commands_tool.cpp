#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
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
     .codes = {TESSEL_CMD_MTU_GET, TESSEL_CMD_IPADDR_GET, TESSEL_CMD_GATEWAY_GET},
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
    {.object = "help",
     .verb = "exit",
     .words = "",
     .codes = {},
     .takesFamily = false,
     .summary = "what the exit status says",
     .example = "help exit",
     .background = "",
     .run = &HelpOnExit},
    {.object = "help",
     .verb = "protocol",
     .words = "[CODE]",
     .codes = {},
     .takesFamily = false,
     .summary = "the requests that have a name: records, and the fields of each",
     .example = "help protocol 0x111",
     .background = "",
     .run = &HelpOnProtocol},
});

}  // namespace

std::span<const Command> ToolCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
