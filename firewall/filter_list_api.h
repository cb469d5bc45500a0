// Handlers of the commands that change entries: of the lists, for echo requests, for ports.
#pragma once

#include "core/types.h"

i32 ApidIpFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidMacFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpAndMacFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidIcmpManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidPortFilterManage(int fd, u32 type, const void* payload, i32 size);
