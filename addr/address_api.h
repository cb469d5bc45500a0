// Handlers of the commands that read addresses.
#pragma once

#include "core/types.h"

i32 ApidIpaddrGet(int fd, u32 type, const void* payload, i32 size);
// A payload of another size than 16 gets no reply.
i32 apid_ipaddr_show_filter(int fd, u32 type, const void* payload, i32 size);
