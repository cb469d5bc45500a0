// Command handlers of conflict detection.
#pragma once

#include "core/types.h"

i32 ApidConflictCheckStart(int fd, u32 type, const void* payload, i32 size);
i32 ApidConflictCheckStop(int fd, u32 type, const void* payload, i32 size);
