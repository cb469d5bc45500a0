#include "core/exec.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/exec_seam.h"
#include "core/process.h"
#include "tests/support/files.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Split(std::string line, u32 maxLen, i32* result) {
    char* argv[tessel::kCommandWordsMax + 1] = {};
    *result = TesselBufToArgv(line.data(), argv, tessel::kCommandWordsMax, maxLen, ' ');
    std::vector<std::string> words;
    for (char** word = argv; *word != nullptr; ++word)
        words.emplace_back(*word);
    return words;
}

TEST(BufToArgv, SplitsAtRunsOfBlanks) {
    i32 result = -1;
    EXPECT_THAT(Split("ip  ip   addr ", 100, &result), ElementsAre("ip", "ip", "addr"));
    EXPECT_EQ(result, 0);
    EXPECT_THAT(Split(" ip", 100, &result), ElementsAre("", "ip"));
    EXPECT_EQ(result, 0);
}

TEST(BufToArgv, RefusesTooManyWordsAndTooLongLines) {
    std::string words63;
    for (int i = 0; i < 63; ++i)
        words63 += "w ";
    i32 result = -1;
    EXPECT_EQ(Split(words63, 1000, &result).size(), 63U);
    EXPECT_EQ(result, 0);
    Split(words63 + "w", 1000, &result);
    EXPECT_EQ(result, -1);

    Split("12345", 6, &result);
    EXPECT_EQ(result, 0);
    Split("12345", 5, &result);
    EXPECT_EQ(result, -1);
    Split("12345", 0, &result);
    EXPECT_EQ(result, -1);
}

i32 RunLine(std::string line) {
    return ExecCmd(line.data(), static_cast<u32>(line.size() + 1), 0);
}

TEST(ExecCmd, TellsWhetherTheToolSucceeded) {
    struct Case {
        const char* description;
        const char* line;
        i32 expected;
    };
    const Case cases[] = {
        {"success", "true true", 0},
        {"failure", "false false", -1},
        {"no such program", "no-such-program no-such-program", -1},
        {"a program and no argument vector", "true", -1},
        {"nothing at all", "", -1},
        {"killed by a signal: its exit status is 0", "perl perl -e kill(9,$$)", 0},
    };
    for (const Case& row : cases)
        EXPECT_EQ(RunLine(row.line), row.expected) << row.description;
    EXPECT_EQ(ExecCmd(nullptr, 0, 0), -1);
}

class CapturedOutput : public testing::Test {
  protected:
    // Runs a shell script of one word: blanks are written ${IFS}.
    i32 RunScript(const std::string& script) {
        std::string line = "sh sh -c " + script;
        buffer.assign(kBytes + 1, '#');
        return TesselExecCmdAndGetOutput(line.data(), 1000, buffer.data(), kBytes);
    }
    [[nodiscard]] std::string Output() const {
        return buffer.substr(0, buffer.find('\0'));
    }

    static constexpr u32 kBytes = 2000;
    std::string buffer;
};

TEST_F(CapturedOutput, HoldsBothStreamsAlsoAfterAFailure) {
    EXPECT_EQ(RunScript("echo${IFS}out;echo${IFS}err>&2;exit${IFS}3"), -1);
    EXPECT_EQ(Output(), "out\nerr\n");
}

TEST_F(CapturedOutput, FillsTheBufferWithoutTerminatorAndNotOneByteMore) {
    EXPECT_EQ(RunScript("printf${IFS}%02000d${IFS}0"), 0);
    EXPECT_EQ(buffer, std::string(kBytes, '0') + '#');
}

TEST_F(CapturedOutput, MoreThanAPipeHoldsDoesNotBlockTheTool) {
    EXPECT_EQ(RunScript("head${IFS}-c${IFS}5000000${IFS}/dev/zero|tr${IFS}'\\0'${IFS}x"), 0);
    EXPECT_EQ(buffer, std::string(kBytes, 'x') + '#');
}

// A signal that is handled meanwhile is not taken for the end of the output.
TEST_F(CapturedOutput, SurvivesSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    constexpr itimerval kEveryMillisecond{.it_interval = {.tv_sec = 0, .tv_usec = 1000},
                                          .it_value = {.tv_sec = 0, .tv_usec = 1000}};
    setitimer(ITIMER_REAL, &kEveryMillisecond, nullptr);
    EXPECT_EQ(RunScript("sleep${IFS}0.2;head${IFS}-c${IFS}500000${IFS}/dev/zero|tr${IFS}'\\0'${IFS}x"), 0);
    constexpr itimerval kOff{};
    setitimer(ITIMER_REAL, &kOff, nullptr);
    EXPECT_EQ(buffer, std::string(kBytes, 'x') + '#');
}

// A tool may leave a service behind that has inherited the pipe, silent or talkative.
TEST_F(CapturedOutput, DoesNotWaitForWhatTheToolLeavesRunning) {
    for (const char* service : {"sleep${IFS}60", "yes"}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(RunScript(std::string("echo${IFS}started;") + service + "&"), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << service;
        EXPECT_THAT(Output(), HasSubstr("started\n"));
    }
}

TEST_F(CapturedOutput, ToolsStartWithoutTheDaemonsSignalSettings) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    for (const int ignored : {SIGPIPE, SIGHUP, SIGINT, SIGUSR1, SIGRTMIN})
        signal(ignored, SIG_IGN);
    EXPECT_EQ(RunScript("grep${IFS}-E${IFS}'Sig(Blk|Ign)'${IFS}/proc/self/status"), 0);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(signal(SIGHUP, SIG_DFL), SIG_IGN) << "this process keeps its own";
    EXPECT_THAT(Output(), HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(Output(), HasSubstr("SigIgn:\t0000000000000000\n"));
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
TEST_F(CapturedOutput, EndsWithTheToolAndAtItsLimit) {
    tessel::g_toolLimit = std::chrono::milliseconds(700);
    for (const bool hasPidFds : {true, false}) {
        if (!hasPidFds) ForgetPidFds();
        EXPECT_EQ(RunScript("echo${IFS}out;exec\t>&-\t2>&-;sleep${IFS}0.3;exit${IFS}3"), -1);
        EXPECT_EQ(Output(), "out\n");
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(RunScript("echo${IFS}started;sleep${IFS}60&"), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600)) << hasPidFds;
        for (const char* endless :
             {"trap${IFS}''${IFS}TERM;sleep${IFS}4712", "yes", "exec\t>&-\t2>&-;sleep${IFS}4712"}) {
            start = std::chrono::steady_clock::now();
            EXPECT_EQ(RunScript(endless), -1) << endless;
            EXPECT_GE(std::chrono::steady_clock::now() - start, tessel::g_toolLimit) << endless;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << endless;
        }
        EXPECT_TRUE(tessel::test::Eventually([] {
            return GetServicePidFromCmdline("/proc/", "sleep 4712", nullptr) == 0;
        })) << "its children are killed, too";
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "and it is reaped";
    }
}

TEST_F(CapturedOutput, IsNotPolledForWhileAToolIsSilent) {
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(RunScript("sleep${IFS}1"), 0);
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 10);
}

// What a started program finds, as it says itself in a file.
std::string FoundBy(const char* script, std::initializer_list<int> blocked) {
    constexpr char kFound[] = "/tmp/found";
    tessel::CommandLine line;
    EXPECT_TRUE(tessel::ComposeCommand(line, "sh sh -c %s;mv${IFS}/tmp/new${IFS}%s", script, kFound));
    EXPECT_EQ(tessel::StartDetached(line, blocked), 0);
    EXPECT_TRUE(tessel::test::Eventually([&] { return access(kFound, F_OK) == 0; }));
    const std::string text = tessel::test::ReadFile(kFound);
    unlink(kFound);
    return text;
}

TEST(StartDetached, LeavesAProgramToItself) {
    const int inherited = open("/dev/zero", O_RDONLY);  // not closed by exec
    ASSERT_GE(inherited, 0);
    for (const int ignored : {SIGHUP, SIGINT, SIGPIPE})
        signal(ignored, SIG_IGN);
    EXPECT_EQ(FoundBy("readlink${IFS}/proc/$$/fd/*>/tmp/new", {}), "/dev/null\n/tmp/new\n/dev/null\n");
    EXPECT_EQ(
        FoundBy(
            "while\tread\t-r\tline;do\tcase\t$line\tin\tSig[BI]*)\techo\t\"$line\";;esac;done</proc/$$/status>/tmp/new",
            {SIGUSR1, SIGUSR2, SIGTERM}),
        "SigBlk:\t0000000000004a00\nSigIgn:\t0000000000000000\n");
    EXPECT_NE(FoundBy("echo${IFS}$PPID>/tmp/new", {}), std::to_string(getpid()) + "\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
    close(inherited);
}

TEST(StartDetached, LogsWhatWentWrong) {
    testing::internal::CaptureStdout();
    tessel::test::WriteFile("/tmp/tessellog", "");
    tessel::CommandLine line;
    ASSERT_TRUE(tessel::ComposeCommand(line, "no-such-program no-such-program -x"));
    EXPECT_EQ(tessel::StartDetached(line), 0) << "it was started";
    EXPECT_EQ(tessel::StartDetached(tessel::CommandLine()), -1) << "nothing to start";
    EXPECT_EQ(tessel::StartDetachedShell("exit 3"), 0);
    unlink("/tmp/tessellog");
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::ContainsRegex("TestBody\\([0-9]+\\):exec error:\\{errno\\(2\\)"));
}

TEST(ExecShellProcess, GivesExitStatusAndPid) {
    char name[] = "sh";
    char option[] = "-c";
    char script[] = "exit 7";
    char* argv[] = {name, option, script, nullptr};
    pid_t pid = 0;
    EXPECT_EQ(TesselExecShellProcess("sh", argv, &pid), 7);
    EXPECT_GT(pid, 0);
}

TEST(ComposeCommand, RefusesWhatDoesNotFit) {
    tessel::CommandLine line;
    EXPECT_TRUE(tessel::ComposeCommand(line, "%s", std::string(999, 'x').c_str()));
    EXPECT_FALSE(tessel::ComposeCommand(line, "%s", std::string(1000, 'x').c_str()));
}

}  // namespace
