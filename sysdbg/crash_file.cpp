// The report writer and the two files it keeps.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "sysdbg/file.h"
#include "sysdbg/format.h"
#include "sysdbg/sysdbg.h"

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): names that debugging tools look up
char __crushdump_file[2][128];
std::uint32_t log_file_limit = 512;
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)

namespace {

// Whoever collects reports relies on this mode.
constexpr mode_t kCrashFileMode = 0666;
constexpr std::size_t kPieceBytes = 1024;

// getenv reads the environment without a lock, and nothing here changes it.
std::uint64_t LimitBytes() {
    std::uint32_t limitKib = log_file_limit;
    if (const char* text = getenv("SYSDBG_LOG_LIMIT")) {
        std::int32_t given = 0;
        const char* end = text + strlen(text);
        const auto [parsed, error] = std::from_chars(text, end, given);
        if (error == std::errc() && parsed == end && given > 0) limitKib = static_cast<std::uint32_t>(given);
    }
    return std::uint64_t{limitKib} * 1024;
}

// Copies full pieces, each up to its first NUL. An incomplete last piece is dropped, as readers of the file expect.
void KeepPreviousGeneration() {
    const sysdbg::File from(__crushdump_file[0], O_RDONLY | O_NOFOLLOW);
    if (!from.IsOpen()) return;
    const sysdbg::File to(__crushdump_file[1], O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, kCrashFileMode);
    char piece[kPieceBytes];
    while (from.Read(piece, sizeof(piece)) == sizeof(piece))
        sysdbg::WriteAll(to.Get(), piece, strnlen(piece, sizeof(piece)));
}

sysdbg::File OpenCrashFile() {
    const char* path = __crushdump_file[0];
    if (path[0] == '\0') return {};
    struct stat current {};
    const bool isFull = lstat(path, &current) == 0 && static_cast<std::uint64_t>(current.st_size) >= LimitBytes();
    if (isFull) KeepPreviousGeneration();
    return {path, O_WRONLY | O_CREAT | O_NOFOLLOW | (isFull ? O_TRUNC : O_APPEND), kCrashFileMode};
}

// Whoever reads standard output may have stopped doing so. The first text waits a second for room, later ones not at
// all: the process has to end.
bool StandardOutputIsReady() {
    static int patienceMs = 1000;
    pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    if (poll(&output, 1, patienceMs) > 0) return true;
    patienceMs = 0;
    return false;
}

}  // namespace

void SysdbgReport(const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = sysdbg::FormatTextV(text, sizeof(text), format, arguments);
    va_end(arguments);

    const sysdbg::File file = OpenCrashFile();
    if (file.IsOpen()) {
        sysdbg::WriteAll(file.Get(), text, length);
    } else if (StandardOutputIsReady()) {
        sysdbg::WriteAll(STDOUT_FILENO, text, length);
    }
}
