// What initialisation reports, and the debug thread: the version file is missing here.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <atomic>
#include <fstream>
#include <regex>

#include "sysdbg/debug_thread.h"
#include "tests/unit/crash_child.h"

namespace tessel::test {
namespace {

std::atomic<int> calls;

void CountCall() {
    ++calls;
}

TEST(CrashDebugThread, CallsFunctionsNamedInAPrivateQueue) {
    const CrashResult result = Crash([] {
        freopen("/tmp/output", "w", stdout);
        // What another process of this name and user has left in the queue, which outlives it, is dropped.
        const pid_t sender = fork();
        if (sender == 0) _exit(sysdbg::SendToDebugThread([] { calls += 100; }) ? 0 : 1);
        int status = -1;
        if (waitpid(sender, &status, 0) != sender || status != 0) _exit(1);
        for (int i = 0; i < 2; ++i)
            (void)SysdbgInit(nullptr, kCrashFile, 0, 0);
        for (int i = 1; i <= 2; ++i) {
            if (!sysdbg::SendToDebugThread(&CountCall) || !Eventually([i] { return calls == i; })) _exit(1);
        }
        // The first queue in the system's list, whose lines begin with key, id and mode.
        std::ifstream queues("/proc/sysvipc/msg");
        queues.ignore(1000, '\n');
        key_t key = 0;
        int id = -1;
        unsigned mode = 0;
        queues >> key >> id >> std::oct >> mode;
        if (mode != 0600) _exit(2);
        msgctl(id, IPC_RMID, nullptr);
        while (ReadFile("/tmp/output").find("msgrcv") == std::string::npos)
            fflush(stdout);
        // A queue that others may write to is not used.
        const int open = msgget(key, IPC_CREAT | 0622);
        if (open < 0 || sysdbg::SendToDebugThread(&CountCall)) _exit(3);
        msgctl(open, IPC_RMID, nullptr);
        fflush(stdout);
        _exit(0);
    });
    ASSERT_EQ(result.status, 0);
    const std::string output = ReadFile("/tmp/output");
    // The sender's line may come before, between or after those of the thread.
    const std::regex sent("Send message success , addr is : 0x[0-9a-f]+\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(output.begin(), output.end(), sent), std::sregex_iterator()), 2);
    const std::string run = "\nrun function start======>\nrun function end======<\n";
    EXPECT_EQ(std::regex_replace(output, sent, ""),
              "Open file failed!\nOpen file failed!\n" + run + run + "in debug thread loop,msgrcv is -1\n");
}

}  // namespace
}  // namespace tessel::test
