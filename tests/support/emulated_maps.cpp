// The emulator shows a program its own memory map in "/proc/self/maps" alone. Under the thread's name of that file lie
// the host's addresses, so opening it opens the former. Linked into tests of another processor's build only.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <string_view>

// What open() is with 64-bit offsets.
extern "C" [[gnu::visibility("default")]] int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    const std::string_view name(path);
    const bool isThreadsMap =
        name.starts_with("/proc/") && name.find("/task/") != std::string_view::npos && name.ends_with("/maps");
    if (isThreadsMap && access(path, F_OK) == 0) path = "/proc/self/maps";
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode));
}
