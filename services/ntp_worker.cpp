#include "services/ntp_worker.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "core/log.h"
#include "core/notify.h"
#include "core/semaphore.h"
#include "services/ntp_query.h"
#include "services/ntp_time.h"

using std::chrono::milliseconds;
using tessel::CallSite;
using tessel::ClockTime;
using tessel::NtpQueryResult;
using tessel::Wait;
using tessel::Worker;

tessel::NtpTimes tessel::g_ntpTimes;

namespace {

// The signal that has interrupted the IPv4 worker; 0: none.
std::atomic<int> g_signal{0};
static_assert(std::atomic<int>::is_always_lock_free, "stored by a signal handler");

// Logging is left to the interrupted thread: it may hold the log's lock.
void sig_handler_user1(int signal) {
    g_signal = signal;
}

void LogSignal() {
    const int signal = g_signal.exchange(0);
    if (signal != 0) TESSEL_PRT_AT(CallSite::Current("sig_handler_user1"), "this signal is %d ", signal);
}

void AcceptSignal() {
    g_signal = 0;
    struct sigaction action {};
    action.sa_handler = &sig_handler_user1;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGUSR1);
    sigaction(SIGUSR1, &action, nullptr);
    sigset_t accepted;
    sigemptyset(&accepted);
    sigaddset(&accepted, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &accepted, nullptr);
}

void Report(const char* socketName, i32 result, i32 deviation, CallSite where) {
    const tessel::NoticeSocket socket("%s", socketName);
    const i32 sent = result == 0 ? Notify(socket, TESSEL_NTPC_SYNCED, TNetNtpcSynced{.nTimeDeviation = deviation})
                                 : tessel::NotifyBytes(socket, TESSEL_NTPC_FAILED, nullptr, 0);
    if (sent != TESSEL_IPC_OK) TESSEL_ERR_AT(where, "send and recv msg error:%d!", sent);
}

// How a clock was brought to the server's time.
struct Adjustment {
    i32 result;
    i64 deviation;  // seconds
};

void LogDeviation(const Adjustment& adjustment, const ClockTime& offset, CallSite where) {
    TESSEL_PRT_AT(where, "nTimeDeviation = %lld s, offset %lld s %d us", static_cast<long long>(adjustment.deviation),
                  static_cast<long long>(offset.seconds), offset.microseconds);
}

void Step(const NtpQueryResult& answer, Adjustment& adjustment, CallSite where) {
    adjustment.result = NtpcSetTime(answer.corrected);
    TESSEL_PRT_AT(where, "sync sys time, nRet = %d ", adjustment.result);
}

// The parts are subtracted separately: across a second's boundary 0.3 s become 1 s and -700000 us, and are stepped.
ClockTime Difference(const ClockTime& left, const ClockTime& right) {
    return {.seconds = left.seconds - right.seconds, .microseconds = left.microseconds - right.microseconds};
}

// Steps the first time and when the clock is off by a second; otherwise lets it gain.
Adjustment Adjust(const NtpQueryResult& answer, bool isFirst, CallSite where) {
    const ClockTime offset = Difference(answer.corrected, tessel::ClockNow());
    Adjustment adjustment{.result = 0, .deviation = std::abs(offset.seconds) + std::abs(offset.microseconds) / 1000000};
    LogDeviation(adjustment, offset, where);
    if (adjustment.deviation > 0 || isFirst) {
        Step(answer, adjustment, where);
    } else {
        adjustment.result = tessel::_ntpc_adj_time(answer.corrected, offset);
        TESSEL_PRT_AT(where, "sync sys clock, nRet = %d", adjustment.result);
    }
    return adjustment;
}

// Always steps, except for a clock that is a second slow, which is left as it is. It has always been so.
Adjustment AdjustV6(const NtpQueryResult& answer, bool /*isFirst*/, CallSite where) {
    constexpr i64 kLeftAlone = -1;
    const ClockTime offset = Difference(tessel::ClockNow(), answer.corrected);
    Adjustment adjustment{.result = 0, .deviation = offset.seconds};
    LogDeviation(adjustment, offset, where);
    if (offset.seconds == kLeftAlone) return {.result = 0, .deviation = 0};
    Step(answer, adjustment, where);
    return adjustment;
}

// What differs between the families.
struct Rules {
    i32 (*connect)(int fd, const TNetGateway& server, u16 port);
    Adjustment (*adjust)(const NtpQueryResult& answer, bool isFirst, CallSite where);
    void (*report)(i32 result, i32 deviation);
    milliseconds tessel::NtpTimes::*replyTime;
    bool reportsUnreachable;
};

constexpr Rules kRules{&ConnServer, &Adjust, &NtpcSyncCallBack, &tessel::NtpTimes::reply, true};
constexpr Rules kRulesV6{&ConnServer6, &AdjustV6, &NtpcSyncCallBackV6, &tessel::NtpTimes::replyV6, false};

// One query and all that follows from it. How long to sleep then; nothing, with a log line, without a socket.
std::optional<milliseconds> Synchronise(const Worker& self, const TNtpcInfo& info, const Rules& rules, bool& isFirst,
                                        CallSite where) {
    constexpr i32 kFailed = -1;
    const u32 interval = std::max<u32>(info.dwSyncTimeInterval, 1);  // 0 would flood the server
    const milliseconds pause = interval * tessel::g_ntpTimes.intervalUnit;
    const tessel::UniqueFd socket = CreateSocket(info.wSinFamily);
    if (!socket.IsOpen()) {
        TESSEL_ERR_AT(where, "create_socket error");
        return std::nullopt;
    }
    if (rules.connect(socket.Get(), info.tServer, tessel::kNtpPort) != 0) {
        if (rules.reportsUnreachable) rules.report(kFailed, 0);
        return tessel::g_ntpTimes.retry;
    }
    const u32 clockSteps = tessel::g_clockSteps;
    (void)SendPacket(socket.Get());  // what was not sent is not answered either
    const Wait wait = self.WaitFor(socket.Get(), POLLIN, tessel::g_ntpTimes.*rules.replyTime);
    if (wait == Wait::kStopped) return milliseconds(0);
    if (wait != Wait::kReady) {
        const int error = errno;
        rules.report(kFailed, 0);
        if (wait == Wait::kFailed) {
            TESSEL_ERR_AT(where, "epoll error: (%d) %s", error, strerror(error));
        } else {
            TESSEL_ERR_AT(where, "Waiting for the server response timeout , retransmission request");
        }
        return tessel::g_ntpTimes.retry;
    }
    NtpQueryResult answer;
    if (GetServerTime(socket.Get(), answer) == 0) {
        rules.report(kFailed, 0);
        TESSEL_ERR_AT(where, "get server time failed");
        return pause;
    }
    if (tessel::g_clockSteps != clockSteps) {
        TESSEL_PRT_AT(where, "the clock was set while the answer was on its way, ask again");
        return milliseconds(0);
    }
    const Adjustment adjustment = rules.adjust(answer, isFirst, where);
    isFirst = false;
    rules.report(adjustment.result, static_cast<i32>(adjustment.deviation));
    TESSEL_PRT_AT(where, "will sleep a while, %d s", static_cast<i32>(interval));
    return pause;
}

void Keep(const Worker& self, TNtpcInfo& info, const Rules& rules, CallSite where) {
    bool isFirst = true;
    while (info.isRunning != 0 && self.IsWanted()) {
        const std::optional<milliseconds> pause = Synchronise(self, info, rules, isFirst, where);
        if (!pause) return;
        (void)self.Sleep(*pause);
        LogSignal();
    }
    TESSEL_PRT_AT(where, "thread %lu exit", pthread_self());
    info.tNtpcThreadID = 0;
}

}  // namespace

void NtpcThread(Worker& self, void* session) {
    TNtpcInfo& info = *static_cast<TNtpcInfo*>(session);
    AcceptSignal();
    TESSEL_PRT("NtpcThread start...");
    info.tNtpcThreadID = pthread_self();
    (void)semaphore_v(info.startSemaphore);  // whoever waits for it gives up after a while
    Keep(self, info, kRules, CallSite::Current());
}

void NtpcThreadV6(Worker& self, void* session) {
    TNtpcInfo& info = *static_cast<TNtpcInfo*>(session);
    TESSEL_PRT("NtpcThread start...");
    info.tNtpcThreadID = pthread_self();
    Keep(self, info, kRulesV6, CallSite::Current());
}

void NtpcSyncCallBack(i32 result, i32 deviation) {
    Report(TESSEL_SOCKET_NTP, result, deviation, CallSite::Current());
}

void NtpcSyncCallBackV6(i32 result, i32 deviation) {
    Report(TESSEL_SOCKET_NTPV6, result, deviation, CallSite::Current());
}
