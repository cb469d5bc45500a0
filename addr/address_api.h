// Handlers of the address commands.
#pragma once

#include "core/types.h"

i32 ApidIpaddrAdd(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpaddrDel(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpaddrFlush(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpaddrSet(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpaddrGet(int fd, u32 type, const void* payload, i32 size);
// A payload of another size than 16 gets no reply.
i32 apid_ipaddr_show_filter(int fd, u32 type, const void* payload, i32 size);
