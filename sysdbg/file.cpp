#include "sysdbg/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sysdbg/format.h"

namespace sysdbg {

namespace {

bool IsOwnFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

}  // namespace

File::File(const char* path, int flags, mode_t mode) {
    const bool isGuarded = (flags & O_NOFOLLOW) != 0;
    const bool isTruncatedLater = isGuarded && (flags & O_TRUNC) != 0;
    if (isTruncatedLater) flags &= ~O_TRUNC;
    fd_ = open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    if (fd_ < 0 || !isGuarded) return;
    if (IsOwnFile(fd_) && (!isTruncatedLater || ftruncate(fd_, 0) == 0)) return;
    close(fd_);
    fd_ = -1;
}

File::~File() {
    if (fd_ >= 0) close(fd_);
}

std::size_t File::Read(void* buffer, std::size_t bytes) const {
    ssize_t count = 0;
    do {
        count = read(fd_, buffer, bytes);
    } while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool File::ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) const {
    return pread(fd_, buffer, bytes, static_cast<off_t>(offset)) == static_cast<ssize_t>(bytes);
}

void WriteAll(int fd, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t count = write(fd, text, length);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        length -= static_cast<std::size_t>(count);
    }
}

File OpenTaskFile(pid_t thread, const char* name) {
    char path[64];
    FormatText(path, sizeof(path), "/proc/%d/task/%d/%s", getpid(), thread, name);
    return File(path, O_RDONLY);
}

void ReadTaskFile(pid_t thread, const char* name, char* text, std::size_t bytes) {
    const File file = OpenTaskFile(thread, name);
    text[file.Read(text, bytes - 1)] = '\0';
}

// The second field: in parentheses, which it may itself contain.
const char* NameInStat(char* stat) {
    char* begin = strchr(stat, '(');
    char* end = strrchr(stat, ')');
    if (begin == nullptr || end == nullptr) return "";
    *end = '\0';
    return begin + 1;
}

}  // namespace sysdbg
