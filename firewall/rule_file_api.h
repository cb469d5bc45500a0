// Handlers of the commands that save and restore the packet filter.
#pragma once

#include "core/types.h"

i32 ApidFirewallSave(int fd, u32 type, const void* payload, i32 size);
i32 ApidFirewallRestore(int fd, u32 type, const void* payload, i32 size);
