// Command handlers of static routes, tables and rules.
#pragma once

#include "core/types.h"

i32 ApidOneRouteAdd(int fd, u32 type, const void* payload, i32 size);
i32 ApidOneRouteDel(int fd, u32 type, const void* payload, i32 size);
i32 ApidAllRouteGet(int fd, u32 type, const void* payload, i32 size);
i32 ApidRouteTableAdd(int fd, u32 type, const void* payload, i32 size);
i32 ApidRouteTableDel(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpRuleAdd(int fd, u32 type, const void* payload, i32 size);
i32 ApidIpRuleDel(int fd, u32 type, const void* payload, i32 size);
