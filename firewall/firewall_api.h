// Handlers of the packet filter's commands and of those for static ARP entries.
#pragma once

#include "core/types.h"

i32 ApidIpFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidMacFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpAndMacFilterListManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidFilterEnable(int fd, u32 type, const void* payload, i32 size);
i32 ApidFilterDisable(int fd, u32 type, const void* payload, i32 size);
i32 ApidAddChain(int fd, u32 type, const void* payload, i32 size);
i32 ApidIcmpManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidPortFilterManage(int fd, u32 type, const void* payload, i32 size);
i32 ApidFirewallSave(int fd, u32 type, const void* payload, i32 size);
i32 ApidFirewallRestore(int fd, u32 type, const void* payload, i32 size);
i32 ApidAddArp(int fd, u32 type, const void* payload, i32 size);
i32 ApidDelArp(int fd, u32 type, const void* payload, i32 size);
