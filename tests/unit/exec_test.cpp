#include "core/exec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <string>
#include <vector>

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
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(RunScript("grep${IFS}-E${IFS}'Sig(Blk|Ign)'${IFS}/proc/self/status"), 0);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_THAT(Output(), HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(Output(), HasSubstr("SigIgn:\t0000000000000000\n"));
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
