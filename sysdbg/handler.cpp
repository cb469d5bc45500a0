#include "sysdbg/handler.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <iterator>

#include "sysdbg/file.h"
#include "sysdbg/local_time.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/sysdbg.h"
#include "sysdbg/trace.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): the name that debugging tools look up
const char __sysdbg_version[] = "1.0.2.4a14bb47";

namespace sysdbg {

namespace {

constexpr std::size_t kAlternateStackBytes = 8192;

// How long a thread that crashes while another one reports waits for the process to end.
constexpr int kReportWaitMs = 30'000;
constexpr int kReportPollMs = 10;

// The process in which a thread reports, or has reported and is about to end it; 0 when there is none. A child that was
// forked meanwhile, or shares this memory until it runs another program, is a different process.
std::atomic<pid_t> reporter{0};

// Signals whose default action lets the process live.
constexpr int kHarmless[] = {SIGCHLD, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH};

void WriteReport(int signal, const ucontext_t& context, pid_t thread) {
    char stat[256];
    ReadTaskFile(thread, "stat", stat, sizeof(stat));
    const CalendarTime now = LocalTime();

    SysdbgReport("\n=============== Exception Occur =================\n");
    SysdbgReport("Version: %s\n", __sysdbg_version);
    SysdbgReport("Thread id: %d\n", thread);
    SysdbgReport("Thread name:%s\n", NameInStat(stat));
    SysdbgReport("Signal num: %d\n", signal);
    SysdbgReport("Exception time: ");
    SysdbgReport("%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month, now.day, now.hour, now.minute, now.second);
    SysdbgReport("\n=============CPU registers=============\n");
    WriteRegisters(context);
    WriteTraces(context, thread, kTraceExtbl | kTraceUnwind);
    SysdbgReport("\n--------Process [%d] Maps-------\n", getpid());
    WriteMaps(thread);
}

// Standard output may have lost its reader: ignoring the signal discards the pending one.
void DiscardBrokenPipe() {
    struct sigaction ignore {};
    struct sigaction kept {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &kept);
    sigaction(SIGPIPE, &kept, nullptr);
}

void WaitForEnd() {
    const timespec pause{.tv_sec = 0, .tv_nsec = long{kReportPollMs} * 1'000'000};
    for (int waitedMs = 0; reporter.load() == getpid() && waitedMs < kReportWaitMs; waitedMs += kReportPollMs)
        nanosleep(&pause, nullptr);
}

// A fault happens again when the handler returns; a signal that was sent does not. Either way one is left pending,
// which is delivered on return and meets the default action.
void PassToDefaultAction(int signal, pid_t thread) {
    ::signal(signal, SIG_DFL);
    syscall(SYS_tgkill, getpid(), thread, signal);
}

void OnSignal(int signal, siginfo_t*, void* context) {
    const int keptErrno = errno;
    // This comes first, or a second signal to this thread would wait for the very report that it interrupts. From here
    // on a fault in the handler ends the process. The kernel restores the mask when the handler returns.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    pid_t other = reporter.load();
    const bool isFirst = other != getpid() && reporter.compare_exchange_strong(other, getpid());
    // Opening a file is a cancellation point: a cancelled thread would leave the handler there.
    int cancelState = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);

    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    if (isFirst) {
        WriteReport(signal, *static_cast<const ucontext_t*>(context), thread);
        DiscardBrokenPipe();
    } else {
        WaitForEnd();
    }
    PassToDefaultAction(signal, thread);
    const bool isHarmless = std::find(std::begin(kHarmless), std::end(kHarmless), signal) != std::end(kHarmless);
    if (isFirst && isHarmless) reporter.store(0);
    pthread_setcancelstate(cancelState, nullptr);
    errno = keptErrno;
}

// The handler does not run on it, but on the crashed thread's own stack, which "extbl" traces from the handler's frame
// up: a stack overflow ends the process without a report. Never freed, since the kernel keeps its address.
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
    struct sigaction action {};
    action.sa_sigaction = &OnSignal;
    // Without SA_RESETHAND, which would let another thread's fault end the process before the first one's report is
    // written: the handler itself goes back to the default action.
    action.sa_flags = SA_SIGINFO;
    for (std::size_t i = 0; i < count; ++i) {
        if (sigaction(signals[i], &action, nullptr) != 0) return -1;
    }
    return 0;
}

}  // namespace sysdbg
