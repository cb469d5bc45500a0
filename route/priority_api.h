// Command handlers of interface priorities and route metrics.
#pragma once

#include "core/types.h"

i32 ApidPrioritySet(int fd, u32 type, const void* payload, i32 size);
i32 ApidPriorityGet(int fd, u32 type, const void* payload, i32 size);
i32 ApidRouteMetricSet(int fd, u32 type, const void* payload, i32 size);
