#include "core/thread.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "core/log.h"

namespace {

struct ThreadStart {
    const char* name;
    ThreadFunction fn;
    void* arg;
    i32 policy;
    i32 prio;
};

// Left to the main thread. SIGKILL cannot be blocked: asking for it has no effect. Not SIGILL and SIGTRAP, though: a
// thread that has them blocked when it runs into one is ended by the kernel without a crash report.
constexpr int kBlockedSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGABRT, SIGKILL, SIGTERM, SIGPIPE,
                                   SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGALRM};

void BlockSignals() {
    for (const int signal : kBlockedSignals) {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, signal);
        pthread_sigmask(SIG_BLOCK, &one, nullptr);
    }
}

void ApplyPriority(const ThreadStart& start) {
    if (start.policy != SCHED_RR) {
        // On Linux this affects only the calling thread. Without privilege it changes nothing.
        (void)!nice(-start.prio);
        return;
    }
    int policy = 0;
    sched_param parameters{};
    if (pthread_getschedparam(pthread_self(), &policy, &parameters) != 0) return;
    parameters.sched_priority -= start.prio;
    (void)pthread_setschedparam(pthread_self(), SCHED_RR, &parameters);
}

void* RunThread(void* arg) {
    // Owned here: freed when the function returns and when the thread is cancelled.
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(arg));
    prctl(PR_SET_NAME, start->name);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    BlockSignals();
    ApplyPriority(*start);
    start->fn(start->arg);
    return nullptr;
}

class ThreadAttributes {
  public:
    ThreadAttributes(u32 stackSize, int detachState) {
        pthread_attr_init(&attributes_);
        pthread_attr_setstacksize(&attributes_, stackSize);
        pthread_attr_setdetachstate(&attributes_, detachState);
    }
    ~ThreadAttributes() {
        pthread_attr_destroy(&attributes_);
    }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    [[nodiscard]] const pthread_attr_t* Get() const {
        return &attributes_;
    }

  private:
    pthread_attr_t attributes_;
};

pthread_t Spawn(const ThreadStart& wanted, u32 stackSize, int detachState, tessel::CallSite where) {
    std::unique_ptr<ThreadStart> start(new (std::nothrow) ThreadStart(wanted));
    if (start == nullptr) {
        tessel::LogPerror(where, "THREAD: spawn() malloc error");
        return 0;
    }
    const ThreadAttributes attributes(stackSize, detachState);
    pthread_t thread = 0;
    const int error = pthread_create(&thread, attributes.Get(), &RunThread, start.get());
    if (error != 0) {
        errno = error;
        tessel::LogPerror(where, "THREAD: spawn() thread create error\n");
        return 0;
    }
    (void)start.release();  // the thread's now
    return thread;
}

}  // namespace

pthread_t ThreadSpawn(const char* name, ThreadFunction fn, void* arg, u32 stackSize, i32 policy, i32 prio) {
    return Spawn({.name = name, .fn = fn, .arg = arg, .policy = policy, .prio = prio}, stackSize,
                 PTHREAD_CREATE_JOINABLE, tessel::CallSite::Current());
}

pthread_t ThreadSpawnDeatched(const char* name, ThreadFunction fn, void* arg, u32 stackSize, i32 policy, i32 prio) {
    return Spawn({.name = name, .fn = fn, .arg = arg, .policy = policy, .prio = prio}, stackSize,
                 PTHREAD_CREATE_DETACHED, tessel::CallSite::Current());
}

void ThreadYield() {
    sched_yield();
}

void* ThreadJoin(pthread_t thread) {
    void* value = nullptr;
    pthread_join(thread, &value);
    return value;
}

i32 ThreadCancel(pthread_t thread) {
    return pthread_cancel(thread) == 0 ? 0 : -1;
}

i32 ThreadDetach(pthread_t thread) {
    return pthread_detach(thread) == 0 ? 0 : -1;
}

void ThreadExit(void* value) {
    pthread_exit(value);
}
