// Which version of the daemon this is.
#pragma once

#include "core/types.h"

// Writes the version banner into `buf`, zeroing its bufLen bytes first. 0, or -1 with a log line when `buf` is null or
// has no room for the banner and its NUL.
i32 NetQueryVersion(char* buf, u32 bufLen);

// Appends the version record to "/proc/veltrac/version", where the device's programs leave theirs. Failures are logged.
void NetSaveVersionInfo();
