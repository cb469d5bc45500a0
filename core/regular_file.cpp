#include "core/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tessel {

UniqueFd OpenRegularFile(const char* path, int flags, mode_t mode) {
    // Truncated only once it has turned out to be a file: no device or FIFO is touched before.
    const bool isTruncated = (flags & O_TRUNC) != 0;
    UniqueFd file(open(path, (flags & ~O_TRUNC) | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return UniqueFd();
    if (!S_ISREG(status.st_mode)) {
        file.Reset();
        errno = EINVAL;
        return file;
    }
    if (isTruncated && ftruncate(file.Get(), 0) != 0) return UniqueFd();
    return file;
}

}  // namespace tessel
