#include "sysdbg/guard.h"

#include <setjmp.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstddef>

namespace sysdbg {

namespace {

constexpr unsigned kPatienceSeconds = 2;
constexpr int kWays[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGALRM};
constexpr std::size_t kWayCount = sizeof(kWays) / sizeof(kWays[0]);

sigjmp_buf wayOut;
volatile pid_t guardedThread;

pid_t OwnThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void Leave(int signal) {
    if (OwnThread() == guardedThread) siglongjmp(wayOut, 1);
    if (signal == SIGALRM) {
        // The alarm is the process's: the kernel chose the thread.
        syscall(SYS_tgkill, getpid(), guardedThread, SIGALRM);
        return;
    }
    // Another thread crashes meanwhile. It faults again until the guard is gone, and then meets the report's handler.
    const timespec nap{.tv_sec = 0, .tv_nsec = 10'000'000};
    nanosleep(&nap, nullptr);
}

}  // namespace

bool RunGuarded(void (*step)(void*), void* argument) {
    static struct sigaction before[kWayCount];
    struct sigaction leave {};
    leave.sa_handler = &Leave;
    sigset_t ways;
    sigemptyset(&ways);
    guardedThread = OwnThread();
    for (std::size_t i = 0; i < kWayCount; ++i) {
        sigaction(kWays[i], &leave, &before[i]);
        sigaddset(&ways, kWays[i]);
    }
    volatile bool hasReturned = false;
    if (sigsetjmp(wayOut, 1) == 0) {
        alarm(kPatienceSeconds);
        pthread_sigmask(SIG_UNBLOCK, &ways, nullptr);
        step(argument);
        hasReturned = true;
    }
    alarm(0);
    pthread_sigmask(SIG_BLOCK, &ways, nullptr);
    for (std::size_t i = 0; i < kWayCount; ++i)
        sigaction(kWays[i], &before[i], nullptr);
    return hasReturned;
}

}  // namespace sysdbg
