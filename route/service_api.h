// Handler of the command that stops services.
#pragma once

#include "core/types.h"

i32 ApidServiceStop(int fd, u32 type, const void* payload, i32 size);
