// One System V semaphore per set, undone by the kernel when the process dies. All return 0, or -1 with a log line.
#pragma once

#include <chrono>

#include "core/types.h"

// Sets the value to 1.
i32 set_semvalue(int semid);
// Removes the set.
i32 del_semvalue(int semid);
// Takes (waiting as long as it takes) and gives back.
i32 semaphore_p(int semid);
// Takes it within the time, or fails.
i32 semaphore_p_within(int semid, std::chrono::milliseconds time);
i32 semaphore_v(int semid);
