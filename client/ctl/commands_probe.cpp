#include <array>

#include "client/ctl/commands.h"
#include "client/ctl/handlers.h"
#include "tessel/command.h"

namespace tessel::ctl {

namespace {

constexpr auto kCommands = std::to_array<Command>({
    {.object = "conflict",
     .verb = "on",
     .words = "",
     .codes = {TESSEL_CMD_CONFLICT_START},
     .takesFamily = true,
     .summary = "have conflicts reported to the program that listens",
     .example = "conflict on",
     .background =
         "Addresses are watched and defended either way. Reports go to the sockets /tmp/ipc_ip_conflict (IPv4) and "
         "/tmp/ipc_ipv6_conflict; while nobody listens there, each holds conflict detection up for 5 to 8 s.",
     .run = &ConflictOn},
    {.object = "conflict",
     .verb = "off",
     .words = "",
     .codes = {TESSEL_CMD_CONFLICT_STOP},
     .takesFamily = true,
     .summary = "have conflicts reported no more",
     .example = "conflict off -4",
     .background = "There is one switch a family for all programs: refused while one listens, unless --force.",
     .run = &ConflictOff},
    {.object = "conflict",
     .verb = "watch",
     .words = "",
     .codes = {TESSEL_CMD_CONFLICT_START, TESSEL_CMD_CONFLICT_STOP},
     .takesFamily = true,
     .summary = "show conflicts as they are reported, until interrupted",
     .example = "conflict watch",
     .background =
         "Switches the reports on, and off again in the end. One program a family can listen: refused while another "
         "does, unless --take; the reports then stay on for it. Reports carry the device's own hardware address; "
         "that of the other host is in the daemon's log.",
     .run = &ConflictWatch},
});

}  // namespace

std::span<const Command> ProbeCommands() {
    return kCommands;
}

}  // namespace tessel::ctl
