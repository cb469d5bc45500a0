#include <fcntl.h>
#include <unistd.h>

#include <exception>

#include "client/ctl/tesselctl.h"

namespace {

// The library copies its log lines to standard output when a switch file says so. They must not mix with results: from
// here on standard output leads to standard error, and results have a stream of their own.
std::FILE* SplitOffResults() {
    // A descriptor that whoever started the tool has closed is occupied: a file would get its number, and output.
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
    const int results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (results < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return nullptr;
    return fdopen(results, "w");
}

}  // namespace

int main(int argc, char** argv) {
    std::FILE* out = SplitOffResults();
    if (out == nullptr) {
        std::perror("tesselctl: standard output");
        return tessel::ctl::kExitFailed;
    }
    try {
        const int status = tessel::ctl::RunTool({argv + 1, argv + argc}, out, stderr);
        const bool isWritten = std::ferror(out) == 0 && std::fclose(out) == 0;
        if (!isWritten) std::perror("tesselctl: standard output");
        return isWritten || status != 0 ? status : tessel::ctl::kExitFailed;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tesselctl: %s\n", error.what());
        return tessel::ctl::kExitFailed;
    }
}
