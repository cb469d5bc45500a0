#include "sysdbg/handler.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "sysdbg/report.h"

namespace sysdbg {

namespace {

constexpr std::size_t kAlternateStackBytes = 8192;

// How long a thread that crashes while another one reports waits for the end.
constexpr int kReportWaitMs = 30'000;
constexpr int kReportPollMs = 10;

// The thread that writes the report; 0 when none does.
std::atomic<pid_t> reporter{0};

void OnSignal(int signal, siginfo_t*, void* context);

int SetHandler(int signal, unsigned flags) {
    struct sigaction action {};
    action.sa_sigaction = &OnSignal;
    action.sa_flags = static_cast<int>(flags);
    return sigaction(signal, &action, nullptr);
}

void WaitForReport() {
    const timespec pause{.tv_sec = 0, .tv_nsec = long{kReportPollMs} * 1'000'000};
    for (int waitedMs = 0; reporter.load() != 0 && waitedMs < kReportWaitMs; waitedMs += kReportPollMs)
        nanosleep(&pause, nullptr);
}

// A fault happens again when the handler returns; a signal that was sent does not. Both come as a pending signal, which
// is delivered with the return. It finds the default action.
void PassToDefaultAction(int signal, pid_t thread) {
    ::signal(signal, SIG_DFL);
    syscall(SYS_tgkill, getpid(), thread, signal);
}

void Report(int signal, const ucontext_t& context) {
    // The next thread with this signal would end the process in the middle of the report, by the default action that
    // SA_RESETHAND has set.
    SetHandler(signal, SA_SIGINFO);
    const auto brokenPipe = ::signal(SIGPIPE, SIG_IGN);  // standard output may have lost its reader
    WriteReport(signal, context);
    ::signal(SIGPIPE, brokenPipe);
}

void OnSignal(int signal, siginfo_t*, void* context) {
    const int keptErrno = errno;
    // Opening a file is a cancellation point: a cancelled thread would leave the handler there.
    int cancelState = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);  // the kernel restores the mask when the handler returns

    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    pid_t other = 0;
    if (reporter.compare_exchange_strong(other, thread)) {
        Report(signal, *static_cast<const ucontext_t*>(context));
        PassToDefaultAction(signal, thread);
        reporter.store(0);
    } else {
        // The same thread comes here when a second signal interrupts the first one's handler before its mask is set.
        if (other != thread) WaitForReport();
        PassToDefaultAction(signal, thread);
    }
    pthread_setcancelstate(cancelState, nullptr);
    errno = keptErrno;
}

// The handler does not run there: it has the stack of the thread that crashes, whose traces "extbl" takes from the
// handler's own frame. An overflown stack ends the process without a report. Never freed, since the kernel knows it.
bool RegisterAlternateStack() {
    static void* memory;
    if (memory != nullptr) return true;
    memory = malloc(kAlternateStackBytes);
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = kAlternateStackBytes;
    if (memory != nullptr && sigaltstack(&stack, nullptr) == 0) return true;
    free(memory);
    memory = nullptr;
    return false;
}

}  // namespace

int InstallHandler(const int* signals, std::size_t count) {
    if (!RegisterAlternateStack()) return -1;
    for (std::size_t i = 0; i < count; ++i) {
        if (SetHandler(signals[i], SA_SIGINFO | SA_RESETHAND) != 0) return -1;
    }
    return 0;
}

}  // namespace sysdbg
