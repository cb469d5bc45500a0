#include "core/exec.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "core/exec_seam.h"
#include "core/process.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

// The words of a line.
std::string SplitUp(std::string line, u32 maxLen) {
    char* argv[kCommandWordsMax + 1] = {};
    if (TesselBufToArgv(line.data(), argv, kCommandWordsMax, maxLen, ' ') != 0) return "too much";
    std::vector<std::string> words;
    for (char** word = argv; *word != nullptr; ++word)
        words.emplace_back(*word);
    return Joined(words);
}

TEST(BufToArgv, SplitsAtRunsOfBlanksWhatIsNotTooMuch) {
    const std::string words63 = Joined(std::vector<std::string>(63, "w"));  // all but the last are "w;"
    EXPECT_EQ(SplitUp("ip  ip   addr ", 100), "ip; ip; addr");
    EXPECT_EQ(SplitUp(" ip", 100), "; ip");
    EXPECT_EQ(SplitUp(words63 + " ", 1000), Joined(Split(words63, " ")));
    EXPECT_EQ(SplitUp(words63 + " w", 1000), "too much");
    EXPECT_EQ(SplitUp("12345", 6), "12345");
    for (const u32 maxLen : {5U, 0U})
        EXPECT_EQ(SplitUp("12345", maxLen), "too much") << maxLen;
}

TEST(ExecCmd, ReportsWhetherTheToolSucceeded) {
    const auto run = [](std::string line) { return ExecCmd(line.data(), static_cast<u32>(line.size() + 1), 0); };
    EXPECT_EQ(run("true true"), 0);
    for (const char* line : {"false false", "no-such-program no-such-program", "true", ""})
        EXPECT_EQ(run(line), -1) << line;
    EXPECT_EQ(ExecCmd(nullptr, 0, 0), -1);
    const char* const argv[] = {"sh", "-c", "exit 7", nullptr};
    pid_t pid = 0;
    EXPECT_EQ(TesselExecShellProcess("sh", const_cast<char**>(argv), &pid), 7);
    EXPECT_GT(pid, 0);
}

constexpr u32 kBytes = 2000;
std::string buffer;

// Runs a shell script. In a line of one word, blanks are tabs.
i32 RunScript(std::string script) {
    std::replace(script.begin(), script.end(), ' ', '\t');
    std::string line = "sh sh -c " + script;
    buffer.assign(kBytes + 1, '#');
    return TesselExecCmdAndGetOutput(line.data(), 1000, buffer.data(), kBytes);
}

std::string Output() {
    return buffer.substr(0, buffer.find('\0'));
}

// More than a pipe holds does not block the tool. A signal that is handled meanwhile is not taken for the end.
TEST(CapturedOutput, FillsTheBufferWithoutTerminatorAndNotOneByteMore) {
    EXPECT_EQ(RunScript("echo out;echo err>&2;exit 3"), -1);
    EXPECT_EQ(Output(), "out\nerr\n") << "both streams, also after a failure";
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    ualarm(1000, 1000);
    for (const char* script : {"printf %02000d 0", "sleep 0.2;head -c 5000000 /dev/zero|tr '\\0' 0"}) {
        EXPECT_EQ(RunScript(script), 0);
        EXPECT_EQ(buffer, std::string(kBytes, '0') + '#');
    }
    ualarm(0, 0);
}

// From now on this kernel knows no pidfd_open(2), as those before 5.3.
void ForgetPidFds() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 434, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{.len = 4, .filter = program};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

// Once on a kernel that reports the end of a process through a descriptor, and once on an older one.
TEST(CapturedOutput, EndsWithTheToolAndAtItsLimit) {
    g_toolLimit = 700ms;
    for (const bool hasPidFds : {true, false}) {
        if (!hasPidFds) ForgetPidFds();
        EXPECT_EQ(RunScript("echo out;exec >&- 2>&-;sleep 0.3;exit 3"), -1);
        EXPECT_EQ(Output(), "out\n");
        // It may leave a service behind that has inherited the pipe, silent or talkative.
        for (const char* service : {"sleep 60", "yes"}) {
            EXPECT_LT(TimeOf([&] { EXPECT_EQ(RunScript("echo started;"s + service + "&"), 0); }), 600ms)
                << service << hasPidFds;
            EXPECT_THAT(Output(), HasSubstr("started\n"));
        }
        for (const char* endless : {"trap '' TERM;sleep 4712", "yes", "exec >&- 2>&-;sleep 4712"}) {
            const auto taken = TimeOf([&] { EXPECT_EQ(RunScript(endless), -1); });
            EXPECT_TRUE(taken >= g_toolLimit && taken < 5s) << endless;
        }
        EXPECT_TRUE(Eventually([] { return GetServicePidFromCmdline("/proc/", "sleep 4712", nullptr) == 0; }))
            << "its children are killed, too";
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "and it is reaped";
    }
}

TEST(CapturedOutput, IsNotPolledForWhileAToolIsSilent) {
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(RunScript("sleep 1"), 0);
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 10);
}

// What a started program finds, as it says itself in a file.
std::string FoundBy(const char* script, std::initializer_list<int> blocked = {}) {
    CommandLine line;
    EXPECT_TRUE(ComposeCommand(line, "sh sh -c %s;mv\t/tmp/new\t/tmp/found", script));
    EXPECT_EQ(StartDetached(line, blocked), 0);
    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists("/tmp/found"); }));
    std::string text = ReadFile("/tmp/found");
    std::filesystem::remove("/tmp/found");
    return text;
}

TEST(StartDetached, LeavesAProgramToItself) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> inherited(fopen("/dev/zero", "r"), &fclose);
    EXPECT_EQ(FoundBy("readlink\t/proc/$$/fd/*>/tmp/new"), "/dev/null\n/tmp/new\n/dev/null\n");
    EXPECT_NE(FoundBy("echo\t$PPID>/tmp/new"), std::to_string(getpid()) + "\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

TEST(Tools, StartWithoutTheDaemonsSignalSettings) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    for (const int ignored : {SIGPIPE, SIGHUP, SIGINT, SIGUSR1, SIGRTMIN})
        signal(ignored, SIG_IGN);
    // The shell itself reads: it blocks signals for a child.
    EXPECT_EQ(
        FoundBy("while\tread\t-r\tx;do\tcase\t$x\tin\tSig[BI]*)\techo\t\"$x\";;esac;done</proc/$$/status>/tmp/new",
                {SIGUSR1, SIGUSR2, SIGTERM}),
        "SigBlk:\t0000000000004a00\nSigIgn:\t0000000000000000\n");
    EXPECT_EQ(RunScript("grep -E 'Sig(Blk|Ign)' /proc/self/status"), 0);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(signal(SIGHUP, SIG_DFL), SIG_IGN) << "this process keeps its own";
    EXPECT_EQ(Output(), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST(Tools, LogsWhatKeptThemFromStartingAndFromEnding) {
    testing::internal::CaptureStdout();
    WriteFile("/tmp/tessellog", "");
    std::string words = Joined(std::vector<std::string>(64, "w"));
    EXPECT_EQ(ExecCmd(words.data(), 1000, 0), -1) << "one too many";
    CommandLine line;
    ASSERT_TRUE(ComposeCommand(line, "no-such-program no-such-program -x"));
    EXPECT_EQ(StartDetached(line), 0) << "it was started";
    EXPECT_EQ(StartDetached(CommandLine()), -1) << "nothing to start";
    EXPECT_EQ(StartDetachedShell("exit 3"), 0);
    EXPECT_EQ(RunForStatus(line), 255);
    EXPECT_EQ(RunShell("exit 255"), 255) << "says nothing of its start";
    ToolOutput output;
    ASSERT_TRUE(ComposeCommand(line, "perl perl -e kill(9,$$)"));
    EXPECT_TRUE(RunForStatus(line) == 0 && tessel::Run(line, output) == 0 && output.hasDied)
        << "of a signal: its exit status is 0";
    unlink("/tmp/tessellog");
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_THAT(log, testing::ContainsRegex("\\[ExecCmd\\]\\([0-9]+\\): (w; ){63}w\n"));
    EXPECT_THAT(log,
                testing::ContainsRegex("TestBody\\([0-9]+\\):exec error:\\{errno\\(2\\)(.|\n)*"
                                       "TesselExecShellProcess\\([0-9]+\\):exec error:\\{errno\\(2\\)[^\n]*\n"
                                       "[^\n]*\\[TesselExecShellProcess\\]\\([0-9]+\\): perl died of signal 9\n"
                                       "[^\n]*\\[TesselExecShellPrcPipe\\]\\([0-9]+\\): perl died of signal 9\n$"));
}

}  // namespace
}  // namespace tessel::test
