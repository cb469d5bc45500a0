// NTP clients between a server that answers as a test wants, a clock that is only noted, and who is notified.
#include "services/ntp_client.h"

#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <optional>
#include <thread>

#include "services/clock_note.h"
#include "services/ntp_query.h"
#include "services/ntp_time.h"
#include "services/ntp_worker.h"
#include "tests/support/listener.h"
#include "tests/support/ntp_server.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

constexpr u32 kHour = 3600;
constexpr u16 kFamilies[] = {AF_INET, AF_INET6};

Call Start(const char* server, u32 interval) {
    return {0x901, std::string(Bytes(TNetNtpcStartReq{7, Address(server), interval}))};
}
Call Stop(u16 family) {
    return {0x902, std::string(Bytes(family))};
}
Call Check(const char* server) {
    return {0x903, std::string(Bytes(Address(server)))};
}

const char* SocketOf(u16 family) {
    return family == AF_INET ? "ipc_ntp" : "ipc_ntpv6";
}

// The next notice: its type and the deviation; "none".
std::string NextNotice(Listener& listener, int timeoutMs = 20000) {
    const i64 type = listener.Next(timeoutMs);
    if (type == -1) return "none";
    int32_t deviation = 0;
    const bool hasDeviation = tessel_event_ntp(&listener.event, &deviation) == TESSEL_OK;
    EXPECT_EQ(listener.event.size, hasDeviation ? 4U : 0U);
    return std::to_string(type) + (hasDeviation ? " " + std::to_string(deviation) : "");
}

struct Round {
    const char* description;
    std::function<std::string(const NtpServer&)> answer;
    const char* expected;  // the notice, and what becomes of the clocks
};

auto At(i64 time, i64 microseconds = 0) {
    return [=](const NtpServer& server) { return server.Time(time, microseconds); };
}
auto WithClock(bool fails, i64 time) {
    return [=](const NtpServer& server) {
        FailClock(fails);
        return server.Time(time, 0);
    };
}
auto Raw(std::size_t bytes) {
    return [=](const NtpServer&) { return std::string(bytes, '\0'); };
}

class Ntp : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC0", 1);
        NtpServer::Connect();
        EXPECT_EQ(NtpcStop(AF_INET), -1) << "without records";
        EXPECT_EQ(DaemonNtpcInit(), 0);
    }
    void SetUp() override {
        StopClockAt({.seconds = 1700000000, .microseconds = 0});
        FailClock(false);
        (void)TakeClockLines();
    }
    void TearDown() override {
        for (const u16 family : kFamilies)
            EXPECT_EQ(NtpcStop(family), 0);
        g_ntpTimes = {};
        EXPECT_EQ(Threads(getpid(), "TesselSysNtpc"), 0);
    }

    i32 Do(const Call& call) {
        return tools_.Status(call.type, call.payload);
    }
    i32 StartAt(u16 family, u32 interval = kHour) {
        return Do(Start(NtpServer::AddressOf(family), interval));
    }

    // An answer to each question, with what it leads to.
    void Play(u16 family, std::initializer_list<Round> rounds) {
        g_ntpTimes.intervalUnit = milliseconds(1);
        Listener listener(SocketOf(family));
        NtpServer server(family);
        ASSERT_EQ(StartAt(family, 20), 0);
        for (const Round& round : rounds) {
            ASSERT_EQ(server.Receive().size(), 48U) << round.description;
            server.Send(round.answer(server));
            std::string seen = NextNotice(listener);
            for (const std::string& line : TakeClockLines())
                seen += "; " + line;
            EXPECT_EQ(seen, round.expected) << round.description;
        }
    }

    LoggedTools tools_{4};
};

TEST_F(Ntp, OverIpv4StepAtFirstAndFromASecondOnAndElseSlew) {
    Play(AF_INET,
         {{"the first", At(1700000000, 250000), "1 0; set 1700000000.250000; rtc 2023-11-14 22:13:20"},
          {"forward", At(1700000000, 750000), "1 0; slew 0.500000; rtc 2023-11-14 22:13:20"},
          {"back", At(1700000000), "1 0; slew -0.250000; rtc 2023-11-14 22:13:20"},
          {"a second counts whole", At(1699999999, 750000), "1 1; set 1699999999.750000; rtc 2023-11-14 22:13:19"},
          {"with a carry", At(1700000005, 250000), "1 6; set 1700000005.250000; rtc 2023-11-14 22:13:25"},
          {"further back", At(1700000002, 250000), "1 3; set 1700000002.250000; rtc 2023-11-14 22:13:22"},
          {"1999", At(946684799), "2"},
          {"2038", At(2145916800), "2"},
          {"1893, in 32 bits it would be 2029", At(-2401978047), "2"},
          {"zeros, which are 1900", Raw(48), "2"},
          {"one byte", Raw(1), "2"},
          {"nothing", Raw(0), "2"},
          {"a clock that cannot be slewed", WithClock(true, 1700000002), "2; slew -0.250000"},
          {"nor set", WithClock(true, 1700000000), "2; set 1700000000.000000"},
          {"2000", WithClock(false, 946684800), "1 753315202; set 946684800.000000; rtc 2000-01-01 00:00:00"},
          {"2037", At(2145916799), "1 1199231999; set 2145916799.000000; rtc 2037-12-31 23:59:59"}});
    const std::string log = tools_.TakeLog();
    for (const char* text : {"usec >= 1000000, change it", "usec < 0, change it", "recvfrom receive 0! errno: (",
                             "get server time failed", "sync time fail", "adjtime failed."})
        EXPECT_THAT(log, HasSubstr(text));
}

TEST_F(Ntp, OverIpv6StepUnlessASecondSlow) {
    Play(AF_INET6, {{"a second slow, the first", At(1700000001, 250000), "1 0"},
                    {"two", At(1700000002, 250000), "1 -2; set 1700000002.250000; rtc 2023-11-14 22:13:22"},
                    {"less than one", At(1700000002, 750000), "1 0; set 1700000002.750000; rtc 2023-11-14 22:13:22"},
                    {"fast", At(1700000001, 750000), "1 1; set 1700000001.750000; rtc 2023-11-14 22:13:21"},
                    {"2038", At(2145916800), "2"},
                    {"one byte", Raw(1), "2"}});
}

TEST_F(Ntp, SaysWhatItDoesInTheLog) {
    Listener listener(SocketOf(AF_INET));
    NtpServer server(AF_INET);
    ASSERT_EQ(StartAt(AF_INET), 0);
    const std::string thread = std::to_string(DaeFamilyMapNtpcInfo(AF_INET)->tNtpcThreadID);
    (void)server.Receive();
    server.Send(server.Time(1700000005, 250000));
    EXPECT_EQ(NextNotice(listener), "1 5");
    EXPECT_TRUE(Eventually([] { return ReadFile("/tmp/logged-lines").find("will sleep") != std::string::npos; }));
    EXPECT_EQ(StartAt(AF_INET), -1) << "runs already";
    EXPECT_EQ(Do(Stop(AF_INET)), 0);
    EXPECT_EQ(
        tools_.TakeLog(),
        "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 3600; NtpcThread: NtpcThread start...; "
        "nTimeDeviation = 5 s, offset 5 s 250000 us; sync sys time, nRet = 0 ; will sleep a while, 3600 s; "
        "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 3600; StartNtpcV4: ntpc has been startted!; "
        "ApidNtpcStart: ntpc_start error!; ApidNtpcStop: wSinFamily : 2; NtpcStop: send SIGUSR1 to wake up thread " +
            thread + " success. nWaitTime = 10; wait " + thread +
            " exit, sleep a while; sig_handler_user1: this signal is 10 ; NtpcThread: thread " + thread +
            " exit; NtpcStop: ptNtpcInfo->tNtpcThreadID = 0");
}

TEST_F(Ntp, RefusesWhatItCannotDo) {
    g_ntpTimes.check = milliseconds(20);
    NtpServer silent(AF_INET);
    NtpServer silentV6(AF_INET6);
    const char* const unreachable = "connect failed! errno: (101) Network is unreachable; ";
    tools_.Check({{"an unknown family", Start("mac", 64), -1, "",
                   "ApidNtpcStart: wSinFamily : 7, dwSyncTimeInterval : 64; NtpcStart: the wSinFamily 7 is invalid!; "
                   "ApidNtpcStart: ntpc_start error!"},
                  {"to be stopped", Stop(7), -1, "",
                   "ApidNtpcStop: wSinFamily : 7; DaeFamilyMapNtpcInfo: the sinfamily 7 is invalid!; "
                   "NtpcStop: DaeFamilyMapNtpcInfo error!; ApidNtpcStop: ntpc stop error!"},
                  {"to be checked", Check("mac"), -1, "",
                   "NtpcCheck: the wSinFamily 7 is invalid!; ApidNtpcCheck: ntpc_check error!"},
                  {"nothing to stop", Stop(AF_INET6), 0, "",
                   "ApidNtpcStop: wSinFamily : 10; NtpcStop: the 0 ntp has been stopped!"},
                  {"a silent server", Check("10.7.0.2"), -1, "",
                   "CheckNtpcV4: Waiting for the server response timeout , retransmission request; "
                   "ApidNtpcCheck: ntpc_check error!"},
                  {"over IPv6", Check("fd07::2"), -1, "",
                   "CheckNtpcV6: Waiting for the server response timeout , retransmission request; "
                   "ApidNtpcCheck: ntpc_check error!"},
                  {"no route", Check("198.51.100.1"), -1, "",
                   (std::string("ConnServer: ") + unreachable + "ApidNtpcCheck: ntpc_check error!").c_str()},
                  {"over IPv6", Check("2001:db8::1"), -1, "",
                   (std::string("ConnServer6: ") + unreachable + "ApidNtpcCheck: ntpc_check error!").c_str()}});
    g_ntpTimes = {};
    const auto begin = steady_clock::now();
    EXPECT_EQ(Do(Check("10.7.0.2")), -1);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(100));
    EXPECT_LT(steady_clock::now() - begin, seconds(2));
}

TEST_F(Ntp, ChecksWithoutTouchingAClock) {
    for (const u16 family : kFamilies) {
        g_ntpTimes.check = seconds(20);
        NtpServer server(family);
        i32 status = 12345;
        std::thread client([&] { status = Do(Check(NtpServer::AddressOf(family))); });
        EXPECT_EQ(server.Receive(), std::string("\x1b\0\4\xfa\0\1\0\0\0\1\0\0", 12) + std::string(28, '\0') +
                                        std::string("\xe8\xfe\x6f\x80\0\0\0\0", 8));
        server.Send(server.Time(1, 0));
        client.join();
        EXPECT_EQ(status, 0) << "whatever time it says";
    }
    EXPECT_TRUE(TakeClockLines().empty());
}

TEST_F(Ntp, FailuresAreReportedAndTriedAgain) {
    constexpr milliseconds kRetry(300);
    const char* const kTimeout = "Waiting for the server response timeout , retransmission request";
    const struct {
        const char* description;
        const char* server;
        std::optional<std::size_t> answer;  // this many bytes
        bool fromOtherPort;
        const char* notice;
        bool waitsForTheInterval;
        const char* log;
    } rows[] = {
        {"no answer", "10.7.0.2", {}, false, "2", false, kTimeout},
        {"no answer", "fd07::2", {}, false, "2", false, kTimeout},
        {"from another port", "10.7.0.2", 48, true, "2", false, kTimeout},
        {"from another port", "fd07::2", 48, true, "2", false, kTimeout},
        {"useless", "10.7.0.2", 0, false, "2", true, "get server time failed"},
        {"useless", "fd07::2", 0, false, "2", true, "get server time failed"},
        {"nobody serves", "10.7.0.1", {}, false, "2", true, "recvfrom was failed! errno: (111) Connection refused"},
        {"no route", "198.51.100.1", {}, false, "2", false, "connect failed! errno: (101) Network is unreachable"},
        {"no route", "2001:db8::1", {}, false, "none", false, "connect failed! errno: (101) Network is unreachable"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.description) + " " + row.server);
        const u16 family = Address(row.server).wSinFamily;
        Listener listener(SocketOf(family));
        NtpServer server(family);
        g_ntpTimes.reply = g_ntpTimes.replyV6 = milliseconds(100);
        g_ntpTimes.retry = kRetry;
        ASSERT_EQ(Do(Start(row.server, kHour)), 0);
        const auto begin = steady_clock::now();
        if (row.answer) {
            (void)server.Receive();
            server.Send(std::string(*row.answer, '\0'), row.fromOtherPort);
        }
        EXPECT_EQ(NextNotice(listener, *row.notice == 'n' ? 1000 : 20000), row.notice);
        if (*row.notice != 'n' && !row.waitsForTheInterval) {
            EXPECT_EQ(NextNotice(listener), row.notice);
            EXPECT_GE(steady_clock::now() - begin, kRetry);
        } else {
            EXPECT_EQ(NextNotice(listener, 700), "none");
        }
        EXPECT_EQ(NtpcStop(family), 0);
        EXPECT_THAT(tools_.TakeLog(), HasSubstr(row.log));
    }
}

TEST_F(Ntp, AnIntervalOfZeroIsASecond) {
    g_ntpTimes.intervalUnit = milliseconds(300);
    for (const u16 family : kFamilies) {
        Listener listener(SocketOf(family));
        NtpServer server(family);
        ASSERT_EQ(StartAt(family, 0), 0);
        (void)server.Receive();
        const auto begin = steady_clock::now();
        server.Send(server.Time(1700000000, 0));
        EXPECT_NE(server.Receive(), "");
        EXPECT_GE(steady_clock::now() - begin, milliseconds(300));
    }
    EXPECT_THAT(tools_.TakeLog(), HasSubstr("will sleep a while, 1 s"));
}

TEST_F(Ntp, IsStoppedWhateverItDoes) {
    const struct {
        const char* description;
        bool isHeard;  // somebody listens for notices
        bool isAnswered;
        const char* log;  // by which it has got there
    } rows[] = {
        {"has just been started", true, false, ""},
        {"waits for an answer", true, false, "start..."},
        {"sleeps after an answer", true, true, "will sleep"},
        {"sleeps after none", true, false, "retransmission"},
        {"reports", false, true, "nRet"},
    };
    for (const u16 family : kFamilies) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.description);
            std::optional<Listener> listener;
            if (row.isHeard) listener.emplace(SocketOf(family));
            NtpServer server(family);
            g_ntpTimes = {};
            if (*row.log == 'r') g_ntpTimes.reply = g_ntpTimes.replyV6 = milliseconds(10);
            ASSERT_EQ(StartAt(family), 0);
            EXPECT_EQ(StartAt(family), -1);
            if (row.isAnswered) {
                (void)server.Receive();
                server.Send(server.Time(1700000009, 0));
            }
            std::string log;
            EXPECT_TRUE(Eventually([&] { return (log += tools_.TakeLog()).find(row.log) != std::string::npos; }));
            const auto begin = steady_clock::now();
            EXPECT_EQ(NtpcStop(family), 0);
            EXPECT_LT(steady_clock::now() - begin, seconds(2));
            EXPECT_EQ(Threads(getpid(), "TesselSysNtpc"), 0);
            StopClockAt({.seconds = 1700000000, .microseconds = 0});
        }
    }
}

TEST_F(Ntp, EndsWithoutASocketAndIsThenStopped) {
    for (const u16 family : kFamilies) {
        g_ntpTimes.reply = g_ntpTimes.replyV6 = g_ntpTimes.retry = milliseconds(10);
        const UniqueFd firstFree(dup(0));  // and the worker needs two before it opens a socket
        ASSERT_EQ(StartAt(family), 0);
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none{.rlim_cur = static_cast<rlim_t>(firstFree.Get()) + 3, .rlim_max = limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const tessel::Worker& worker = DaeFamilyMapNtpcInfo(family)->worker;
        EXPECT_TRUE(Eventually([&] { return !worker.IsRunning(); }));
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(StartAt(family), -1);
        EXPECT_EQ(NtpcStop(family), 0);
        EXPECT_THAT(tools_.TakeLog(), AllOf(HasSubstr("create_socket error"), HasSubstr(", no such thread.")));
    }
}

TEST_F(Ntp, GivesUpWhenOthersHoldTheSemaphore) {
    const int semaphore = semget(7783, 1, 0);
    const pid_t holder = fork();
    if (holder == 0) {
        sembuf take{.sem_num = 0, .sem_op = -1, .sem_flg = SEM_UNDO};
        semop(semaphore, &take, 1);
        pause();
    }
    ASSERT_TRUE(Eventually([&] { return semctl(semaphore, 0, GETVAL) == 0; }));
    const auto begin = steady_clock::now();
    EXPECT_EQ(StartAt(AF_INET), -1);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(4900));
    EXPECT_LT(steady_clock::now() - begin, seconds(9));
    EXPECT_THAT(tools_.TakeLog(), HasSubstr("StartNtpcV4: create ntpc thread failed!"));
    EXPECT_EQ(StartAt(AF_INET6), 0) << "has none";
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(StartAt(AF_INET), 0);
    EXPECT_EQ(semctl(semaphore, 0, GETVAL), 1);
}

TEST_F(Ntp, StormsLeaveNothingBehind) {
    g_ntpTimes.reply = g_ntpTimes.replyV6 = g_ntpTimes.retry = g_ntpTimes.check = milliseconds(1);
    const auto storm = [&] {
        std::atomic<bool> goesOn{true};
        std::thread checks([&] {
            while (goesOn) {
                for (const u16 family : kFamilies)
                    EXPECT_EQ(NtpcCheck(Address(NtpServer::AddressOf(family))), -1);
            }
        });
        for (int i = 0; i < 40; ++i) {
            for (const u16 family : kFamilies) {
                EXPECT_EQ(NtpcStart(Address(NtpServer::AddressOf(family)), 1), 0);
                if (i % 3 == 0) std::this_thread::sleep_for(milliseconds(i % 7));
                EXPECT_EQ(NtpcStart(Address(NtpServer::AddressOf(family)), 1), -1);
                EXPECT_EQ(NtpcStop(family), 0);
            }
        }
        goesOn = false;
        checks.join();
    };
    storm();
    const std::ptrdiff_t descriptors = Descriptors();
    storm();
    EXPECT_EQ(Descriptors(), descriptors);
}

TEST(NtpTime, IsCheckedFieldByField) {
    const struct {
        int second, minute, hour, day, month, year;
        const char* text;
    } rows[] = {
        {59, 59, 23, 31, 11, 137, ""},
        {0, 0, 0, 1, 0, 100, ""},
        {0, 0, 0, 1, 0, 99, "year:2000-2037"},
        {0, 0, 0, 1, 0, 138, "year"},
        {60, 60, 24, 32, 12, 100, "monthy:1-12"},
        {60, 60, 24, 32, 0, 100, "day:1-31"},
        {0, 0, 0, 0, 0, 100, "day"},
        {60, 60, 24, 1, 0, 100, "hour:0-23"},
        {60, 60, 0, 1, 0, 100, "minute:0-59"},
        {60, 0, 0, 1, 0, 100, "second:0-59"},
    };
    LoggedTools tools;
    for (const auto& row : rows) {
        tm time{};
        time.tm_sec = row.second;
        time.tm_min = row.minute;
        time.tm_hour = row.hour;
        time.tm_mday = row.day;
        time.tm_mon = row.month;
        time.tm_year = row.year;
        EXPECT_EQ(NtpcTimeCheck(&time), *row.text == '\0' ? 0 : -1) << row.text;
        EXPECT_THAT(tools.TakeLog(), HasSubstr(row.text));
    }
    EXPECT_EQ(NtpcTimeCheck(nullptr), -1);
    EXPECT_EQ(tools.TakeLog(), "NtpcTimeCheck: NtpcTimeCheck param is null.");
}

TEST(NtpTime, DelayIsBothWays) {
    NtpPacket reply{};
    reply[27] = 100;  // asked
    reply[35] = 110;  // arrived
    reply[43] = 112;  // answered
    const NtpQueryResult result =
        EvaluateNtpReply(reply, {.seconds = 108 - 2208988800, .microseconds = 0}, CallSite::Current());
    EXPECT_EQ(result.delay.seconds, 6);
    EXPECT_EQ(result.offset.seconds, 7);
}

}  // namespace
}  // namespace tessel::test
