#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
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
    {.object = "crash",
     .verb = "list",
     .words = "",
     .codes = {},
     .takesFamily = false,
     .summary = "the crashes that were reported, the newest last",
     .example = "crash list",
     .background = "From /usr/tessel_crash.log.1 and .0; the daemon need not run.",
     .run = &CrashList},
    {.object = "crash",
     .verb = "show",
     .words = "[FILE]",
     .codes = {},
     .takesFamily = false,
     .summary = "the newest report: when, why, and the calls that led there",
     .example = "crash show",
     .background =
         "Functions are named where the module on the device has symbols; elsewhere the offset is the module's. With "
         "--symbols DIR they are named from the unstripped files below DIR, which may be another machine's.",
     .run = &CrashShow},
});

}  // namespace

std::span<const Command> DeviceCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
