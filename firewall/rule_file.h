// Saving the whole packet filter and restoring it.
#pragma once

#include "core/types.h"

// Run the save or restore tools of a TESSEL_PROTOCOL_... with `path` and "-4" or "-6" as the file. Return the result of
// the last one; -1 for a null path and when nothing was run.
[[nodiscard]] i32 SaveFirewall(u32 ipType, const char* path);
[[nodiscard]] i32 RestoreFirewall(u32 ipType, const char* path);
