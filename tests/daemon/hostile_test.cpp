// Nothing that a client sends, or does not send, keeps the daemon from serving the next one.
#include <sys/socket.h>

#include <climits>
#include <random>

#include "core/startup/command_table.h"
#include "tests/support/far.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

TEST(Hostile, EveryCommandWithEverySizeAndRandomBytes) {
    StandInTools tools({"ip", "killall", "arp", "iptables", "ip6tables", "iptables-save", "ip6tables-save",
                        "iptables-restore", "ip6tables-restore"});
    const Daemon daemon;
    EXPECT_EQ(*SendRaw(0x102, 0, ""), "") << "an unknown command gets no answer";
    EXPECT_TRUE(IsLogged("invalid type: 102!"));
    std::minstd_rand random(20261121);
    for (const CommandRow& row : ServedCommands()) {
        for (const i32 size : {INT_MIN, -1, 0, 1, 15, 17, 3072, 3073, INT_MAX}) {
            for (const std::size_t bytes : {0U, 1U, 16U, 580U, 3072U, 5000U}) {
                std::string payload(bytes, '\0');
                for (char& byte : payload)
                    byte = static_cast<char>(random());
                const auto answer = SendRaw(row.type, size, payload);
                ASSERT_TRUE(answer && (answer->empty() || (size >= 0 && size <= 3072))) << row.type << " size " << size;
            }
        }
    }
    EXPECT_TRUE(Serves());
    // What is announced and not sent is zero, not what the client before sent.
    ASSERT_EQ(SendRaw(0x112, 16, Padded("lo", 16))->substr(sizeof(IpcMsgHead), 4), Number(0));
    EXPECT_EQ(SendRaw(0x112, 16, "l")->substr(sizeof(IpcMsgHead)), Number(UINT32_MAX) + Number(0));
}

TEST(Hostile, SilentClientIsServedForABoundedTime) {
    const Daemon daemon;
    const UniqueFd silent = ConnectToDaemon();
    const auto start = steady_clock::now();
    // A stop interrupts the wait even without a handler. It goes on.
    std::this_thread::sleep_for(200ms);
    kill(daemon.Pid(), SIGSTOP);
    std::this_thread::sleep_for(200ms);
    kill(daemon.Pid(), SIGCONT);
    EXPECT_TRUE(Serves());
    const auto waited = steady_clock::now() - start;
    EXPECT_GE(waited, 4500ms);
    EXPECT_LT(waited, 15s);
    EXPECT_TRUE(IsLogged("no request within 5 seconds!"));
    const std::string watcher =
        "cd /proc/" + std::to_string(daemon.Pid()) + "/task; cd $(grep -l ReadGuard */comm | cut -d/ -f1)";
    const auto wakeUps = [&] { return OutputOf(watcher + " && grep voluntary status"); };
    EXPECT_THAT(wakeUps(), HasSubstr("ctxt"));
    EXPECT_TRUE(Eventually([&] {
        const std::string before = wakeUps();
        std::this_thread::sleep_for(1500ms);
        return wakeUps() == before;
    })) << "nobody is connected";
}

long ResidentPages(pid_t pid) {
    const std::string statm = ReadFile("/proc/" + std::to_string(pid) + "/statm");
    return std::stol(statm.substr(statm.find(' ')));
}

TEST(Hostile, HundredThousandRequestsLeaveNothingBehind) {
    const Daemon daemon;
    const auto request = [](std::size_t count) {
        const IpcMsgHead head{.type = 0x112, .size = 16, .flag = 0};
        for (std::size_t i = 0; i < count; ++i) {
            // Some leave early, with a part of a header or without waiting for the answer.
            if (i % 7 == 0) send(ConnectToDaemon().Get(), &head, i % (sizeof(head) + 1), MSG_NOSIGNAL);
            ASSERT_TRUE(i % 10 == 0 ? SendRaw(0x999, 5000, "x").has_value() : Serves());
        }
    };
    request(2000);
    const long pages = ResidentPages(daemon.Pid());
    const std::ptrdiff_t descriptors = Descriptors(daemon.Pid());
    request(100000);
    EXPECT_EQ(Descriptors(daemon.Pid()), descriptors);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these keep what was freed
    // A leak of one smallest block a request would be 800 pages.
    EXPECT_LE(ResidentPages(daemon.Pid()), pages + 64);
#else
    EXPECT_GT(pages, 0);
#endif
}

TEST(Hostile, ToolsInheritNoSocketOfTheDaemon) {
    // This one lists the descriptors it was given.
    WriteProgram(MakeProgramFolder() + "/ip", "#!/bin/sh\nls -l /proc/$$/fd > /tmp/inherited\n");
    const Daemon daemon;
    (void)Request(0x11B, Padded("eth0", 16));
    EXPECT_THAT(ReadFile("/tmp/inherited"), testing::AllOf(HasSubstr("pipe:"), testing::Not(HasSubstr("socket:"))));
}

}  // namespace
}  // namespace tessel::test
