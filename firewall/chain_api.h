// Handlers of the commands that create chains and switch lists.
#pragma once

#include "core/types.h"

i32 ApidFilterEnable(int fd, u32 type, const void* payload, i32 size);
i32 ApidFilterDisable(int fd, u32 type, const void* payload, i32 size);
i32 ApidAddChain(int fd, u32 type, const void* payload, i32 size);
