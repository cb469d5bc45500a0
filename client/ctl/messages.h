// The requests and replies behind the commands: names, records, and which of the daemon's handlers serves them.
#pragma once

#include <span>
#include <string_view>

#include "client/ctl/fields.h"
#include "core/types.h"
#include "tessel/command.h"
#include "tessel/ipc.h"

namespace tessel::ctl {

// A command handler of the daemon.
using Handler = i32(int fd, u32 type, const void* payload, i32 size);

struct Message {
    u32 code;
    std::string_view name;  // in "raw" and in what -v shows
    Record request;
    Record reply;
    // For --dry-run: it runs above tools that are only noted. Null unless tools do all that it changes: then it is
    // never called here, and people read what the daemon does instead.
    Handler* handler = nullptr;
    std::string_view inDaemon = {};

    // Changes nothing: --dry-run asks all the same.
    [[nodiscard]] bool IsQuery() const {
        return reply.bytes > sizeof(TNetStatusReply) || code == TESSEL_CMD_DHCPS_GET_STATUS;
    }
};

[[nodiscard]] std::span<const Message> Messages();

// Null: not known.
[[nodiscard]] const Message* FindMessage(u32 code);
[[nodiscard]] const Message* FindMessage(std::string_view name);

}  // namespace tessel::ctl
