// NTP clients between a server that answers as a test wants, a clock that is only noted, and who is notified.
#include "services/ntp_client.h"

#include <sys/sem.h>

#include "core/semaphore.h"
#include "services/clock_note.h"
#include "services/ntp_worker.h"
#include "tests/support/listener.h"
#include "tests/support/ntp_server.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

constexpr u32 kHour = 3600;
constexpr char kTimeout[] = "Waiting for the server response timeout , retransmission request";
constexpr struct {
    u16 code;
    const char* server;
    const char* socket;
} kFamilies[] = {{AF_INET, "10.7.0.2", "ipc_ntp"}, {AF_INET6, "fd07::2", "ipc_ntpv6"}};

Call Start(const char* server, u32 interval) {
    return {0x901, std::string(Bytes(TNetNtpcStartReq{7, Address(server), interval}))};
}
Call Stop(u16 family) {
    return {0x902, std::string(Bytes(family))};
}
Call Check(const char* server) {
    return {0x903, std::string(Bytes(Address(server)))};
}

// The next notice: its type and the deviation; "none".
std::string NextNotice(Listener& listener, int timeoutMs = 20000) {
    const i64 type = listener.Next(timeoutMs);
    int32_t deviation = 0;
    if (tessel_event_ntp(&listener.event, &deviation) == TESSEL_OK) return "1 " + std::to_string(deviation);
    return type == -1 ? "none" : std::to_string(type) + std::string(listener.event.size, '+');
}

constexpr i64 kRaw = -1;

struct Round {
    const char* description;
    i64 seconds;  // of the server's time, or so many zeros are its answer
    i64 microseconds;
    const char* expected;  // the notice, and what becomes of the clocks
    bool isClockStuck = false;
};

class Ntp : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC0", 1);
        RunOnDevice(
            "ip addr add 10.7.0.1/24 dev eth0; ip addr add fd07::1/64 dev eth0 nodad;"
            "ip -n far addr add 10.7.0.2/24 dev far0; ip -n far addr add fd07::2/64 dev far0 nodad");
        EXPECT_EQ(NtpcStop(AF_INET), -1) << "without records";
        EXPECT_EQ(DaemonNtpcInit(), 0);
    }
    void SetUp() override {
        StopClockAt({.seconds = 1700000000});
        (void)TakeClockLines();
        g_ntpTimes = {};
    }
    void TearDown() override {
        for (const auto& family : kFamilies)
            EXPECT_EQ(NtpcStop(family.code), 0);
        EXPECT_EQ(Threads(getpid(), "TesselSysNtpc"), 0);
    }

    // An answer to each question, with what it leads to.
    void Play(const char* address, const char* socket, std::initializer_list<Round> rounds) {
        g_ntpTimes.intervalUnit = 1ms;
        Listener listener(socket);
        NtpServer server(Address(address).wSinFamily);
        ASSERT_EQ(tools_.Status(Start(address, 20)), 0);
        for (const Round& round : rounds) {
            (void)server.Receive();
            FailClock(round.isClockStuck);
            server.Send(round.microseconds == kRaw ? std::string(static_cast<std::size_t>(round.seconds), '\0')
                                                   : server.Time(round.seconds, round.microseconds));
            std::string seen = NextNotice(listener);
            for (const std::string& line : TakeClockLines())
                seen += "; " + line;
            EXPECT_EQ(seen, round.expected) << round.description;
        }
    }

    LoggedTools tools_{4};
};

TEST_F(Ntp, OverIpv4StepAtFirstAndFromASecondOnAndElseSlew) {
    Play("10.7.0.2", "ipc_ntp",
         {{"the first", 1700000000, 250000, "1 0; set 1700000000.250000; rtc 2023-11-14 22:13:20"},
          {"forward", 1700000000, 750000, "1 0; slew 0.500000; rtc 2023-11-14 22:13:20"},
          {"back", 1700000000, 0, "1 0; slew -0.250000; rtc 2023-11-14 22:13:20"},
          {"a second counts whole", 1699999999, 750000, "1 1; set 1699999999.750000; rtc 2023-11-14 22:13:19"},
          {"with a carry", 1700000005, 250000, "1 6; set 1700000005.250000; rtc 2023-11-14 22:13:25"},
          {"1999", 946684799, 0, "2"},
          {"2038", 2145916800, 0, "2"},
          {"1893, in 32 bits it would be 2029", -2401978000, 0, "2"},
          {"one byte", 1, kRaw, "2"},
          {"nothing", 0, kRaw, "2"},
          {"a clock that cannot be slewed", 1700000005, 0, "2; slew -0.250000", true},
          {"nor set", 1700000000, 0, "2; set 1700000000.000000", true},
          {"2000", 946684800, 0, "1 753315205; set 946684800.000000; rtc 2000-01-01 00:00:00"},
          {"2037", 2145916799, 0, "1 1199231999; set 2145916799.000000; rtc 2037-12-31 23:59:59"}});
    const std::string log = tools_.TakeLog();
    for (const char* text :
         {"usec >= 1000000, change it", "usec < 0, change it", "recvfrom receive 0! errno: (", "get server time failed",
          "sync time fail", "adjtime failed.", "NtpcTimeCheck: Input  param is invalidate(year:2000-2037)."})
        EXPECT_THAT(log, HasSubstr(text));
}

TEST_F(Ntp, OverIpv6StepUnlessASecondSlow) {
    Play("fd07::2", "ipc_ntpv6",
         {{"a second slow, the first", 1700000001, 250000, "1 0"},
          {"two", 1700000002, 250000, "1 -2; set 1700000002.250000; rtc 2023-11-14 22:13:22"},
          {"less than one", 1700000002, 750000, "1 0; set 1700000002.750000; rtc 2023-11-14 22:13:22"},
          {"fast", 1700000001, 750000, "1 1; set 1700000001.750000; rtc 2023-11-14 22:13:21"},
          {"2038", 2145916800, 0, "2"},
          {"one byte", 1, kRaw, "2"}});
}

TEST_F(Ntp, SaysWhatItDoesInTheLog) {
    Listener listener("ipc_ntp");
    NtpServer server(AF_INET);
    ASSERT_EQ(tools_.Status(Start("10.7.0.2", kHour)), 0);
    const std::string thread = std::to_string(DaeFamilyMapNtpcInfo(AF_INET)->tNtpcThreadID);
    (void)server.Receive();
    server.Send(server.Time(1700000005, 250000));
    EXPECT_EQ(NextNotice(listener), "1 5");
    EXPECT_TRUE(Eventually([] { return ReadFile("/tmp/logged-lines").find("will sleep") != std::string::npos; }));
    EXPECT_EQ(tools_.Status(Start("10.7.0.2", kHour)), -1) << "runs already";
    EXPECT_EQ(tools_.Status(Stop(AF_INET)), 0);
    EXPECT_EQ(tools_.TakeLog(),
              "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 3600; NtpcThread: NtpcThread start...; "
              "nTimeDeviation = 5 s, offset 5 s 250000 us; sync sys time, nRet = 0 ; will sleep a while, 3600 s; "
              "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 3600; StartNtpcV4: ntpc has been startted!; "
              "ApidNtpcStart: ntpc_start error!; ApidNtpcStop: wSinFamily : 2; "
              "NtpcStop: send SIGUSR1 to wake up thread " +
                  thread + " success. nWaitTime = 10; wait " + thread +
                  " exit, sleep a while; sig_handler_user1: this signal is 10 ; NtpcThread: thread " + thread +
                  " exit; NtpcStop: ptNtpcInfo->tNtpcThreadID = 0");
}

TEST_F(Ntp, ChecksOnceAndRefusesWhatItCannotDo) {
    NtpServer inet(AF_INET);
    NtpServer inet6(AF_INET6);
    const auto begin = steady_clock::now();
    const std::string silence = ": Waiting for the server response timeout , retransmission request; ";
    const std::string failed = "ApidNtpcCheck: ntpc_check error!";
    tools_.Check(
        {{"an unknown family", Start("mac", 64), -1, "",
          "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 64; NtpcStart: the wSinFamily 7 is invalid!; "
          "ApidNtpcStart: ntpc_start error!"},
         {"to be stopped", Stop(7), -1, "",
          "ApidNtpcStop: wSinFamily : 7; DaeFamilyMapNtpcInfo: the sinfamily 7 is invalid!; "
          "NtpcStop: DaeFamilyMapNtpcInfo error!; ApidNtpcStop: ntpc stop error!"},
         {"to be checked", Check("mac"), -1, "", ("NtpcCheck: the wSinFamily 7 is invalid!; " + failed).c_str()},
         {"nothing to stop", Stop(10), 0, "", "ApidNtpcStop: wSinFamily : 10; NtpcStop: the 0 ntp has been stopped!"},
         {"a silent server", Check("10.7.0.2"), -1, "", ("CheckNtpcV4" + silence + failed).c_str()},
         {"over IPv6", Check("fd07::2"), -1, "", ("CheckNtpcV6" + silence + failed).c_str()},
         {"no route", Check("2001:db8::1"), -1, "",
          ("ConnServer6: connect failed! errno: (101) Network is unreachable; " + failed).c_str()}});
    EXPECT_GE(steady_clock::now() - begin, 200ms);
    EXPECT_LT(steady_clock::now() - begin, 3s);
    g_ntpTimes.check = 20s;
    for (NtpServer* server : {&inet, &inet6}) {
        (void)server->Receive();  // of the check that was given up
        const std::jthread client(
            [&] { EXPECT_EQ(tools_.Status(Check(kFamilies[server == &inet6].server)), 0) << "any time will do"; });
        EXPECT_EQ(server->Receive(),
                  "\x1b\0\4\xfa\0\1\0\0\0\1\0\0"s + std::string(28, '\0') + "\xe8\xfe\x6f\x80\0\0\0\0"s);
        server->Send(server->Time(1));
    }
    EXPECT_TRUE(TakeClockLines().empty()) << "and no clock is touched";
}

TEST_F(Ntp, FailuresAreReportedAndTriedAgain) {
    constexpr milliseconds kRetry(300);
    constexpr milliseconds kInterval(3000);
    // The answer, if any (one of some bytes comes from another port), the pause behind it, and what is logged.
    const std::tuple<std::vector<const char*>, const char*, milliseconds, const char*> rows[] = {
        {{"10.7.0.2", "fd07::2"}, nullptr, kRetry, kTimeout},
        {{"10.7.0.2", "fd07::2"}, "right", kRetry, kTimeout},
        {{"10.7.0.2", "fd07::2"}, "", kInterval, "get server time failed"},
        {{"10.7.0.1"}, nullptr, kInterval, "recvfrom was failed! errno: (111) Connection refused"},
        {{"198.51.100.1", "2001:db8::1"}, nullptr, kRetry, "connect failed! errno: (101) Network is unreachable"},
    };
    g_ntpTimes = {.reply = 100ms, .replyV6 = 100ms, .retry = kRetry, .intervalUnit = kInterval};
    for (const auto& [servers, answer, interval, line] : rows) {
        for (const char* address : servers) {
            SCOPED_TRACE(std::string(address) + ": " + line);
            const u16 family = Address(address).wSinFamily;
            Listener listener(kFamilies[family == AF_INET ? 0 : 1].socket);
            NtpServer server(family);
            const auto begin = steady_clock::now();
            ASSERT_EQ(tools_.Status(Start(address, 0)), 0) << "0 counts as 1";
            if (answer != nullptr) {
                (void)server.Receive();
                server.Send(answer, *answer != '\0');
            }
            const bool isSilent = family == AF_INET6 && *line == 'c';
            for (int notice = 0; notice < 2; ++notice)
                EXPECT_EQ(NextNotice(listener, isSilent ? 500 : 20000), isSilent ? "none" : "2");
            EXPECT_GE(steady_clock::now() - begin, interval);
            EXPECT_EQ(steady_clock::now() - begin < kInterval, interval == kRetry);
            EXPECT_EQ(NtpcStop(family), 0);
            EXPECT_THAT(tools_.TakeLog(), HasSubstr(line));
        }
    }
}

TEST_F(Ntp, IsStoppedWhateverItDoes) {
    // Whether somebody listens and it is answered, and the line by which it has got there. A question that a stopped
    // client has sent may still be under way when the next one starts: those that are answered come first.
    constexpr std::tuple<bool, bool, const char*> kRows[] = {
        {true, true, "will sleep"}, {false, true, "nRet"},   {true, false, ""},
        {true, false, "start..."},  {true, false, kTimeout},
    };
    for (const auto& family : kFamilies) {
        for (const auto& [isHeard, isAnswered, line] : kRows) {
            SCOPED_TRACE(line);
            const Listener listener(isHeard ? family.socket : "ipc_other");
            NtpServer server(family.code);
            SetUp();
            if (line == kTimeout) g_ntpTimes.reply = g_ntpTimes.replyV6 = 10ms;
            ASSERT_EQ(tools_.Status(Start(family.server, kHour)), 0);
            EXPECT_EQ(tools_.Status(Start(family.server, kHour)), -1);
            if (isAnswered) {
                (void)server.Receive();
                server.Send(server.Time(1700000009));
            }
            std::string log;
            EXPECT_TRUE(
                Eventually([&, line = line] { return (log += tools_.TakeLog()).find(line) != std::string::npos; }));
            EXPECT_LT(TimeOf([&] { EXPECT_EQ(NtpcStop(family.code), 0); }), 2s);
        }
    }
}

// Its times are from before and after the step.
TEST_F(Ntp, AnAnswerThatMeetsTheOtherFamilysStepIsNotUsed) {
    Listener inet("ipc_ntp");
    Listener inet6("ipc_ntpv6");
    NtpServer server(AF_INET);
    NtpServer server6(AF_INET6);
    EXPECT_EQ(tools_.Status(Start("10.7.0.2", kHour)) + tools_.Status(Start("fd07::2", kHour)), 0);
    (void)server6.Receive();
    (void)server.Receive();
    server.Send(server.Time(1700003600));
    EXPECT_EQ(NextNotice(inet), "1 3600");
    server6.Send(server6.Time(1700003610));
    ASSERT_TRUE(Eventually([] { return ReadFile("/tmp/logged-lines").find("ask again") != std::string::npos; }));
    (void)server6.Receive();
    server6.Send(server6.Time(1700003610));
    EXPECT_EQ(NextNotice(inet6), "1 -10");
}

TEST_F(Ntp, EndsWithoutASocketAndIsThenStopped) {
    g_ntpTimes.retry = 10ms;
    const Listener listener("ipc_ntp");
    ASSERT_EQ(NtpcStart(Address("198.51.100.1"), kHour), 0);
    EXPECT_TRUE(Eventually([] {
        const DescriptorShortage shortage;  // leaves it the socket that it may have at this moment
        std::this_thread::sleep_for(20ms);
        return !DaeFamilyMapNtpcInfo(AF_INET)->worker.IsRunning();
    }));
    EXPECT_EQ(tools_.Status(Start("10.7.0.2", kHour)), -1);
    EXPECT_EQ(NtpcStop(AF_INET), 0);
    EXPECT_THAT(tools_.TakeLog(), AllOf(HasSubstr("create_socket error"), HasSubstr(", no such thread.")));
}

TEST_F(Ntp, GivesUpWhenOthersHoldTheSemaphore) {
    const int semaphore = semget(7783, 1, 0);
    ASSERT_EQ(semaphore_p(semaphore), 0);
    const auto waited = TimeOf([&] { EXPECT_EQ(tools_.Status(Start("10.7.0.2", kHour)), -1); });
    EXPECT_TRUE(waited >= 4900ms && waited < 9s);
    EXPECT_THAT(tools_.TakeLog(), HasSubstr("StartNtpcV4: create ntp thread failed!"));
    EXPECT_EQ(tools_.Status(Start("fd07::2", kHour)), 0) << "has none";
    ASSERT_EQ(semaphore_v(semaphore), 0);
    EXPECT_EQ(tools_.Status(Start("10.7.0.2", kHour)), 0);
    EXPECT_EQ(semctl(semaphore, 0, GETVAL), 1);
}

TEST_F(Ntp, StormsLeaveNothingBehind) {
    g_ntpTimes.reply = g_ntpTimes.replyV6 = g_ntpTimes.retry = g_ntpTimes.check = 1ms;
    std::ptrdiff_t descriptors = 0;
    for (const bool isFirst : {true, false}) {
        std::jthread checks([](const std::stop_token& isOver) {
            while (!isOver.stop_requested())
                EXPECT_EQ(NtpcCheck(Address("10.7.0.2")), -1);
        });
        for (int i = 0; i < 80; ++i) {
            EXPECT_EQ(NtpcStart(Address(kFamilies[i % 2].server), 1), 0);
            if (i % 3 == 0) std::this_thread::sleep_for(milliseconds(i % 7));
            EXPECT_EQ(NtpcStop(kFamilies[i % 2].code), 0);
        }
        checks = {};  // have ended
        if (isFirst) descriptors = Descriptors();
    }
    EXPECT_EQ(Descriptors(), descriptors);
}

}  // namespace
}  // namespace tessel::test
