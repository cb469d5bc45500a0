// Handlers of the log commands.
#pragma once

#include "core/types.h"

i32 ApidLogFileManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidLogSwitch(int fd, u32 type, const void* payload, i32 size);
