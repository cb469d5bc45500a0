// Processes that crash: the whole report, and how they end. And the thread that developers have functions called by.
#include <fcntl.h>
#include <link.h>
#include <sys/msg.h>
#include <sys/prctl.h>

#include <functional>

#include "sysdbg/debug_thread.h"
#include "sysdbg/guard.h"
#include "sysdbg/sysdbg.h"
#include "sysdbg/trace.h"
#include "tests/support/proc.h"

namespace {

// Volatile, or the compiler would notice that nothing is there.
volatile int* volatile nowhere = reinterpret_cast<int*>(64);  // NOLINT(performance-no-int-to-ptr): never valid

// Keeps the compiler from turning the calls below into jumps.
volatile int returned;

}  // namespace

// The functions that traces have to name: one that faults, its caller, and the caller's caller.
extern "C" {
[[gnu::noinline, gnu::used]] void CrashInner(void (*crash)()) {
    if (crash != nullptr) crash();
    *nowhere = 1;
    returned = returned + 1;
}
[[gnu::noinline, gnu::used]] void CrashMiddle(void (*crash)()) {
    CrashInner(crash);
    returned = returned + 1;
}
[[gnu::noinline, gnu::used]] void CrashOuter(void (*crash)()) {
    CrashMiddle(crash);
    returned = returned + 1;
}
}

namespace tessel::test {
namespace {

using testing::ContainsRegex;
using testing::MatchesRegex;

constexpr char kCrashFile[] = "/tmp/crash";
constexpr char kReport[] = "/tmp/crash.0";

struct CrashResult {
    pid_t process;
    int status;
    std::string report;
    std::vector<std::string> parts;  // of the report: what comes before the traces, both of these, the map
};

// Runs `crash` in a child that has crash diagnostics installed.
CrashResult Crash(const std::function<void()>& crash, const char* crashFile = kCrashFile) {
    std::filesystem::remove(kReport);
    const pid_t process = fork();
    if (process == 0) {
        alarm(60);
        if (SysdbgInit(nullptr, crashFile, 2 * 512, kSysdbgNoDebugThread) == 0) crash();
        _exit(111);
    }
    int status = 0;
    waitpid(process, &status, 0);
    const std::string report = ReadFile(kReport);
    return {process, status, report, Split(report, "\n\n")};
}

// Every part is in its place, once, up to the last line of the map. Without a name given, any will do.
void ExpectCompleteReport(const CrashResult& result, int signal, const std::string& threadName = "[^\n]*") {
    EXPECT_EQ(WTERMSIG(result.status), signal) << result.status;
    ASSERT_EQ(result.parts.size(), 4U) << result.report;
    EXPECT_THAT(result.parts[0],
                MatchesRegex("\n=============== Exception Occur =================\n"
                             "Version: 1\\.0\\.2\\.4a14bb47\nThread id: [0-9]+\nThread name:" +
                             threadName + "\nSignal num: " + std::to_string(signal) +
                             "\nException time: 20[0-9]{2}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9]"
                             "\n=============CPU registers=============\n"
                             "(R?[A-Z]+:(0x[0-9a-f]+|\\(nil\\))(, )?)+\n([A-Z0-9]+:(0x[0-9a-f]+|\\(nil\\))(, )?)+"));
    for (const auto& [part, method] : {std::pair{1U, "extbl"s}, {2U, "unwind"s}}) {
        std::vector<std::string> frames = Split(result.parts[part], "\n");
        ASSERT_GE(frames.size(), 3U);
        EXPECT_EQ(frames[0], "===========Call Trace(" + method + ")==========");
        EXPECT_EQ(frames[1], "Obtained " + std::to_string(frames.size() - 2) + " stack frames:");
        frames.erase(frames.begin(), frames.begin() + 2);
        EXPECT_THAT(frames, Each(MatchesRegex("<[^<>]*> \\(<[^<>]*> \\+ (0x[0-9a-f]+|\\(nil\\))\\) "
                                              "\\[(0x[0-9a-f]+|\\(nil\\))\\]")));
    }
    EXPECT_THAT(result.parts[3],
                AllOf(testing::StartsWith("--------Process [" + std::to_string(result.process) + "] Maps-------\n"),
                      HasSubstr("[stack]"), testing::EndsWith("\n")));
}

void ExpectNamesInOrder(const std::string& trace) {
    EXPECT_THAT(trace, ContainsRegex("\\(<CrashInner> \\+ 0x[0-9a-f]+\\)[^\n]*\n"
                                     "[^\n]*\\(<CrashMiddle> \\+ 0x[0-9a-f]+\\)[^\n]*\n"
                                     "[^\n]*\\(<CrashOuter> \\+ 0x[0-9a-f]+\\)"));
}

void OnNamedThread(void (*crash)()) {
    prctl(PR_SET_NAME, "wor (k) er");
    CrashOuter(crash);
}

TEST(CrashReport, IsCompleteForEverySignalAndThread) {
    const std::tuple<const char*, void (*)(), int> rows[] = {
        {"abort", [] { abort(); }, SIGABRT},
        {"an illegal instruction", [] { raise(SIGILL); }, SIGILL},
        {"being asked to", [] { raise(SIGQUIT); }, SIGQUIT},
        {"a power failure", [] { raise(SIGPWR); }, SIGPWR},
        {"a write to nowhere", nullptr, SIGSEGV},
    };
    CrashResult result;
    for (const bool isWorker : {false, true}) {
        for (const auto& [description, crash, signal] : rows) {
            SCOPED_TRACE(description);
            result = Crash(
                [&, crash = crash] { isWorker ? std::thread(OnNamedThread, crash).join() : OnNamedThread(crash); });
            ExpectCompleteReport(result, signal, "wor \\(k\\) er");
        }
        ExpectNamesInOrder(result.parts.at(1));
        ExpectNamesInOrder(result.parts.at(2));
        EXPECT_THAT(result.parts[2], ContainsRegex("frames:\n<[^\n]*crash_test> \\(<CrashInner>")) << "the fault first";
    }
    // The C++ library that started the worker is stripped: its functions are not named, only the place in it.
    EXPECT_THAT(result.report, ContainsRegex("/libstdc\\+\\+[^>]*> \\(<> \\+ 0x[0-9a-f]+\\)"));

    result = Crash([] { CrashOuter(reinterpret_cast<void (*)()>(8)); });
    ExpectCompleteReport(result, SIGSEGV);
    EXPECT_THAT(result.parts.at(2), HasSubstr("\n<> (<> + (nil)) [0x8]\n")) << "a call into nowhere keeps its callers";
    ExpectNamesInOrder(result.parts[2]);
}

int Recurse(int depth) {
    if (depth < 0) return 0;
    volatile char frame[1 << 16];
    frame[0] = static_cast<char>(depth);
    return Recurse(depth + 1) + frame[0];
}

void FaultInsideTheHandlerOf(int signal) {
    environ = reinterpret_cast<char**>(const_cast<int*>(nowhere));  // where a limit is looked for
    raise(signal);
}

// With standard output in a pipe: nobody has its other end, or nobody reads it and it is full.
void WithPipeAsOutput(bool isFull, void (*crash)()) {
    int ends[2];
    if (pipe2(ends, isFull ? O_NONBLOCK : 0) != 0) return;
    if (!isFull) close(ends[0]);
    if (isFull) (void)!write(ends[1], std::string(1 << 20, 'x').data(), 1 << 20);
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDOUT_FILENO);
    crash();
}

// Garbage where the return addresses were.
__attribute__((noinline, no_sanitize("address", "thread", "undefined"))) void SmashStack() {
    auto* word = static_cast<volatile std::uintptr_t*>(__builtin_frame_address(0));
    for (int i = 0; i < 64; ++i)
        word[i] = ~std::uintptr_t{0} / 3 * 2;
    *nowhere = 1;
}

void HoldLoadersLockAndCrash() {
    static std::atomic<bool> isHeld;
    const auto hold = [](dl_phdr_info*, std::size_t, void*) {
        isHeld = true;
        while (true)
            pause();
        return 0;
    };
    std::thread([&] { dl_iterate_phdr(hold, nullptr); }).detach();
    while (!isHeld)
        std::this_thread::yield();
    CrashOuter(nullptr);
}

void CrashCancelled() {
    pthread_cancel(pthread_self());
    CrashOuter(nullptr);
}

void CrashWithoutDescriptors() {
    const DescriptorShortage shortage;
    CrashOuter(nullptr);
}

// The signal waits.
void CrashAndGetAnotherSignal() {
    std::thread([first = pthread_self()] {
        while (!std::filesystem::exists(kReport))
            std::this_thread::yield();
        pthread_kill(first, SIGQUIT);
        pause();
    }).detach();
    CrashOuter(nullptr);
}

TEST(CrashReport, ProcessEndsWhateverKeepsItFromReporting) {
    const struct {
        const char* description;
        void (*crash)();
        bool isReported = true;
        int signal = SIGSEGV;
        const char* crashFile = kCrashFile;
    } rows[] = {
        {"a broken stack", &SmashStack},
        {"a held lock", &HoldLoadersLockAndCrash},
        {"a pending cancellation", [] { std::thread(CrashCancelled).join(); }},
        {"a signal to the thread that reports", &CrashAndGetAnotherSignal},
        {"a fault inside the handler of a fault", [] { FaultInsideTheHandlerOf(SIGSEGV); }, false},
        {"a fault inside the handler of another", [] { FaultInsideTheHandlerOf(SIGQUIT); }, false},
        {"no room on the stack", [] { returned = Recurse(0); }, false},
        {"no room on another's", [] { std::thread([] { returned = Recurse(0); }).join(); }, false},
        {"nobody at the pipe", [] { WithPipeAsOutput(false, [] { raise(SIGPWR); }); }, false, SIGPWR, ""},
        {"a full pipe", [] { WithPipeAsOutput(true, [] { CrashOuter(nullptr); }); }, false, SIGSEGV, nullptr},
        {"no descriptor left", &CrashWithoutDescriptors, false},
    };
    for (const auto& [description, crash, isReported, signal, crashFile] : rows) {
        SCOPED_TRACE(description);
        const CrashResult result = Crash(crash, crashFile);
        EXPECT_EQ(WTERMSIG(result.status), signal);
        if (isReported) ExpectCompleteReport(result, signal);
    }
}

TEST(CrashGuard, LeavesStepsThatFaultOrNeverEnd) {
    int runs = 0;
    EXPECT_TRUE(sysdbg::RunGuarded([](void* count) { ++*static_cast<int*>(count); }, &runs));
    EXPECT_EQ(runs, 1);
    for (int time = 0; time < 2; ++time)
        EXPECT_FALSE(sysdbg::RunGuarded([](void*) { *nowhere = 1; }, nullptr)) << time;
    const auto endless = [](void*) {
        while (true)
            pause();
    };
    // The alarm may reach any thread: here the main one, while another is in the endless step.
    std::thread([&] { EXPECT_FALSE(sysdbg::RunGuarded(endless, nullptr)); }).join();
    EXPECT_EQ(signal(SIGALRM, SIG_DFL), SIG_DFL) << "as it was";
}

TEST(CrashReport, ThreadsThatCrashTogetherLeaveOneReport) {
    void (*const others[])() = {nullptr, [] { raise(SIGQUIT); }, [] { abort(); }};
    for (int round = 0; round < 120 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const CrashResult result = Crash([&] {
            std::atomic<int> missing = round % 2 == 0 ? 2 : 8;
            const auto crash = [&](int number) {
                --missing;
                while (missing > 0)
                    std::this_thread::yield();
                CrashOuter(number % 2 == 0 ? nullptr : others[round / 2 % 3]);
            };
            for (int i = missing - 1; i > 0; --i)
                std::thread(crash, i).detach();
            crash(0);
        });
        ExpectCompleteReport(result, WTERMSIG(result.status));
    }
}

TEST(CrashReport, ChosenSignalsAloneAreHandled) {
    const CrashResult result = Crash([] {
        signal(SIGSEGV, SIG_DFL);
        const int chosen[] = {SIGUSR1, SIGWINCH};
        if (SysdbgInitSignal(SIGUSR2, nullptr, kCrashFile, 0, kSysdbgNoDebugThread) != 0) return;
        if (SysdbgInitSignals(chosen, 2, nullptr, kCrashFile, 0, kSysdbgNoDebugThread) != 0) return;
        raise(SIGWINCH);  // ignored by default: reported, and life goes on
        raise(SIGUSR2);
    });
    EXPECT_EQ(WTERMSIG(result.status), SIGUSR2);
    EXPECT_THAT(result.report, HasSubstr("Signal num: " + std::to_string(SIGWINCH)));
    EXPECT_THAT(result.report, HasSubstr("Signal num: " + std::to_string(SIGUSR2)));
    EXPECT_EQ(Crash([] { raise(SIGTERM); }).report, "") << "being asked to end is not a crash";
    EXPECT_EQ(SysdbgInitSignal(SIGKILL, nullptr, kCrashFile, 0, kSysdbgNoDebugThread), -1) << "nobody can";
}

TEST(CrashReport, FramePointerMethodOnRequest) {
    const CrashResult result = Crash([] {
        ucontext_t context{};
        getcontext(&context);
        sysdbg::WriteTraces(context, gettid(), sysdbg::kTraceFramePointer);
    });
    EXPECT_THAT(result.report, MatchesRegex("\n===========Call Trace\\(fp\\)==========\nObtained [0-9]+ stack "
                                            "frames:\n<[^\n]*crash_test> \\(<[^\n]+> \\+ 0x[^\n]*\n(.|\n)*"));
}

std::atomic<int> calls;

TEST(CrashDebugThread, CallsFunctionsNamedInAPrivateQueue) {
    const CrashResult result = Crash([] {
        // What another process of this name and user has left in the queue, which outlives it, is dropped.
        const pid_t sender = fork();
        if (sender == 0) _exit(sysdbg::SendToDebugThread([] { calls += 100; }) ? 0 : 1);
        int status = -1;
        if (waitpid(sender, &status, 0) != sender || status != 0) _exit(1);
        if (freopen("/tmp/output", "w", stdout) == nullptr) _exit(1);
        for (int i = 0; i < 2; ++i)
            (void)SysdbgInit(nullptr, kCrashFile, 0, 0);
        for (int i = 1; i <= 2; ++i) {
            if (!sysdbg::SendToDebugThread([] { ++calls; }) || !Eventually([i] { return calls == i; })) _exit(1);
        }
        // The first queue in the system's list. One that others may write to is not used.
        msqid_ds queue{};
        const int id = msgctl(0, MSG_STAT, &queue);
        if (queue.msg_perm.mode != 0600) _exit(2);
        queue.msg_perm.mode = 0622;
        msgctl(id, IPC_SET, &queue);
        if (sysdbg::SendToDebugThread([] { ++calls; })) _exit(3);
        msgctl(id, IPC_RMID, nullptr);
        while (ReadFile("/tmp/output").find("msgrcv") == std::string::npos)
            fflush(stdout);
        _exit(0);
    });
    ASSERT_EQ(result.status, 0);
    std::vector<std::string> output = WholeLines(ReadFile("/tmp/output"));
    // The sender's line may come before, between or after those of the thread.
    const auto isSent = [](const auto& line) { return line.starts_with("Send message success , addr is : 0x"); };
    EXPECT_EQ(std::erase_if(output, isSent), 2U);
    const std::string run = "; ; run function start======>; run function end======<";
    EXPECT_EQ(Joined(output),
              "Open file failed!; Open file failed!" + run + run + "; in debug thread loop,msgrcv is -1");
}

}  // namespace
}  // namespace tessel::test
