// Opening files where anybody may have put something else.
#pragma once

#include <sys/types.h>

#include "core/unique_fd.h"

namespace tessel {

// Opens a regular file, without waiting for the other end of a FIFO and without following a link. Closed when it is not
// a regular file or cannot be opened; errno is set (EINVAL for another kind of file). `flags` and `mode` are those of
// open(2).
[[nodiscard]] UniqueFd OpenRegularFile(const char* path, int flags, mode_t mode = 0);

}  // namespace tessel
