// Handlers of the static ARP commands.
#pragma once

#include "core/types.h"

i32 ApidAddArp(int fd, u32 type, const void* payload, i32 size);
i32 ApidDelArp(int fd, u32 type, const void* payload, i32 size);
