// Command handlers of default gateways.
#pragma once

#include "core/types.h"

i32 ApidGatewaySet(int fd, u32 type, const void* payload, i32 size);
i32 ApidGatewayDel(int fd, u32 type, const void* payload, i32 size);
i32 ApidGatewayGet(int fd, u32 type, const void* payload, i32 size);
