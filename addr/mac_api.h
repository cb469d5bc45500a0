// Handlers of the hardware address commands.
#pragma once

#include "core/types.h"

i32 ApidMacaddrSet(int fd, u32 type, const void* payload, i32 size);
i32 ApidMacaddrGet(int fd, u32 type, const void* payload, i32 size);
