#include "sysdbg/guard.h"

#include <setjmp.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <iterator>

namespace sysdbg {

namespace {

constexpr unsigned kPatienceSeconds = 2;
constexpr int kEndings[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGALRM};

sigjmp_buf stepStart;
volatile pid_t guardedThread;

pid_t OwnThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void AbandonStep(int signal) {
    if (OwnThread() == guardedThread) siglongjmp(stepStart, 1);
    if (signal == SIGALRM) {
        // An alarm goes to the process, and the kernel picked this thread.
        syscall(SYS_tgkill, getpid(), guardedThread, SIGALRM);
        return;
    }
    // Another thread has faulted meanwhile. It faults again until the guard is gone and then enters the report's
    // handler.
    const timespec nap{.tv_sec = 0, .tv_nsec = 10'000'000};
    nanosleep(&nap, nullptr);
}

}  // namespace

bool RunGuarded(void (*step)(void*), void* argument) {
    static struct sigaction before[std::size(kEndings)];
    struct sigaction abandon {};
    abandon.sa_handler = &AbandonStep;
    sigset_t endings;
    sigemptyset(&endings);
    guardedThread = OwnThread();
    for (std::size_t i = 0; i < std::size(kEndings); ++i) {
        sigaction(kEndings[i], &abandon, &before[i]);
        sigaddset(&endings, kEndings[i]);
    }
    volatile bool hasReturned = false;
    if (sigsetjmp(stepStart, 1) == 0) {
        alarm(kPatienceSeconds);
        pthread_sigmask(SIG_UNBLOCK, &endings, nullptr);
        step(argument);
        hasReturned = true;
    }
    alarm(0);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);
    for (std::size_t i = 0; i < std::size(kEndings); ++i)
        sigaction(kEndings[i], &before[i], nullptr);
    return hasReturned;
}

}  // namespace sysdbg
