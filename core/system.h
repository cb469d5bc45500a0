// The system the daemon runs on.
#pragma once

#include "core/types.h"

// Zeroes the `len` bytes of `buf` and reads up to `len` bytes of the file into it with one read: the count, or -1.
i32 ReadFileToBuf(const char* path, void* buf, i32 len);

// 1 when "/etc/issue" names a desktop distribution, whose services have process names other than the device's; else 0.
i32 IsUbuntuHost();
