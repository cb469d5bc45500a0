// The emulator does not start threads in what was forked from a process that had several, as the daemon does when it
// detaches, with two forks. So it does not detach there: it goes on as the child that it already is. Linked into the
// daemon that tests of another processor's build start, and only there.
#include <unistd.h>

extern "C" [[gnu::visibility("default")]] pid_t fork() noexcept {
    constexpr int kForksOfDetaching = 2;
    static int forks = 0;
    return forks++ < kForksOfDetaching ? 0 : _Fork();
}
