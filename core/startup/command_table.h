// Every command that the daemon serves.
#pragma once

#include <span>

#include "core/registry.h"
#include "core/types.h"

namespace tessel {

struct CommandRow {
    u32 type;
    IpcApiHandler handler;
};

// Module by module, in the order of registration.
std::span<const CommandRow> ServedCommands();

}  // namespace tessel

// Makes an empty registry and registers all of them. Returns 0.
i32 IpcApiRegisterAll();
