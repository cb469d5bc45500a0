// Handlers of the MTU commands.
#pragma once

#include "core/types.h"

i32 ApidMtuSet(int fd, u32 type, const void* payload, i32 size);
i32 ApidMtuGet(int fd, u32 type, const void* payload, i32 size);
