#include "probe/ping.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/client_sessions.h"
#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/notify.h"
#include "core/system.h"
#include "core/text.h"

using tessel::CallSite;
using tessel::CommandLine;
using tessel::Worker;

// A session is what was asked for.
class tessel::PingPool : public tessel::ClientSessions<TNetPingStartReq, TESSEL_PINGS_MAX> {};

tessel::PingPool* g_ptDaePing = nullptr;

namespace {

// Every line this file runs: the program, then its argument vector. The blank at their end has always been there.
constexpr char kPing4[] = "ping ping -c 1 -s %d -t %d -W %d %s ";
constexpr char kPing6[] = "ping ping -6 -c 1 -s %d -t %d -w %d %s ";
constexpr char kPing6OfDesktop[] = "ping6 ping6 -c 1 -s %d -t %d -w %d %s ";

constexpr u32 kPacketBytesMin = 56;
constexpr u32 kPingOutputBytes = 1999;
// A tool that runs this long past its own time-out never ends.
constexpr std::chrono::seconds kGrace(10);

constexpr i32 kWordMax = 20;
constexpr float kTimeLimitMs = 100000.0F;

// Numbers reach the tool as signed ones: it refuses those that are too large.
i32 Signed(u32 number) {
    return static_cast<i32>(number);
}

// Reports one echo; `result` has its number and whether it is the last.
void Report(const TNetPingStartReq& ping, TNetPingResult result, const char* output, CallSite where) {
    result.nUserId = ping.nUserId;
    const u32 event = tessel::PingClass(output);
    if (event == TESSEL_PING_REPLY && PingBufToMsg(output, &result) != 0) {
        TESSEL_ERR_AT(where, "%s", output);
        TESSEL_ERR_AT(where, "ping buf to msg error!");
        return;
    }
    const i32 sent = Notify(tessel::NoticeSocket("%s_%d", TESSEL_SOCKET_PING, ping.nUserId), event, result);
    if (sent != TESSEL_IPC_OK) {
        TESSEL_ERR_AT(where, "send and recv msg error:%d!", sent);
    } else if (ping.tTarget.wSinFamily == TESSEL_FAMILY_INET) {
        TESSEL_PRT_AT(where, "User Id %d ping return : %u(%u)", ping.nUserId, event, result.dwSeq);
    } else {
        TESSEL_PRT_AT(where, "ping return:%u(%u)", event, result.dwSeq);
    }
}

// All echoes of a session. False when it ended before the last.
bool SendEchoes(const Worker& self, const TNetPingStartReq& ping, CommandLine command) {
    if (!tessel::ComposePing(command, ping)) return false;
    TESSEL_PRT_AT(command.where, "pchCmd : %s", strchr(command.text, ' ') + 1);
    for (u32 i = 0; i < ping.dwCount; ++i) {
        if (!self.IsWanted()) return false;
        tessel::ToolOutput output(kPingOutputBytes);
        output.timeLimit = std::chrono::seconds(ping.dwTimeout) + kGrace;
        (void)tessel::RunForStatus(command, &output);  // what it printed counts
        if (!output.wasStarted || !self.IsWanted()) return false;
        TESSEL_PRT_AT(command.where, "pchChildStdoutBuf : %s", output.text);
        TNetPingResult result{};
        result.dwSeq = i;
        result.dwLast = i == ping.dwCount - 1 ? 1 : 0;
        Report(ping, result, output.text, command.where);
    }
    return true;
}

bool PingThread(const Worker& self, TNetPingStartReq& ping) {
    switch (ping.tTarget.wSinFamily) {
        case TESSEL_FAMILY_INET:
            return SendEchoes(self, ping, CommandLine(CallSite::Current("Ping4")));
        case TESSEL_FAMILY_INET6:
            return SendEchoes(self, ping, CommandLine(CallSite::Current("Ping6")));
        default:
            TESSEL_ERR("the wSinFamily %d is invalid!", ping.tTarget.wSinFamily);
            return false;
    }
}

// Finds a user's session.
auto OfUser(i32 userId) {
    return [userId](const TNetPingStartReq& ping) { return ping.nUserId == userId; };
}

}  // namespace

void DaemonPingInit() {
    g_ptDaePing = new (std::nothrow) tessel::PingPool;
    if (g_ptDaePing == nullptr) TESSEL_PERROR("XMALLOC error");
}

i32 PingStart(const TNetGateway* target, u32 packetSize, u32 timeout, u32 ttl, u32 count, i32 userId) {
    const auto lock = g_ptDaePing != nullptr ? g_ptDaePing->Hold() : tessel::PingPool::Lock();
    if (lock && g_ptDaePing->Find(lock, OfUser(userId)) != nullptr) {
        TESSEL_ERR("the nUserID %d now is pinging!", userId);
        return -1;
    }
    TNetPingStartReq* const ping = lock ? g_ptDaePing->Take(lock) : nullptr;
    if (ping == nullptr) {
        TESSEL_ERR("the user num is reach the maxmium %d", TESSEL_PINGS_MAX);
        return -1;
    }
    *ping = {.tTarget = *target,
             .dwPacketSize = packetSize,
             .dwTimeout = timeout,
             .dwTtl = ttl,
             .dwCount = count,
             .nUserId = userId};
    const char* const threadName =
        target->wSinFamily == TESSEL_FAMILY_INET6 ? "TesselSysIpv6PingThread" : "TesselSysIpv4PingThread";
    if (g_ptDaePing->Run(lock, *ping, threadName, &PingThread)) return 0;
    TESSEL_ERR("create ping thread failed!");
    return -1;
}

i32 PingStop(i32 userId) {
    TESSEL_PRT("nUserID is %d", userId);
    if (g_ptDaePing == nullptr || !g_ptDaePing->Stop(OfUser(userId)))
        TESSEL_PRT("the nUserId %d has been stopped!", userId);
    return 0;
}

i32 PingBufToMsg(const char* output, TNetPingResult* result) {
    char ttl[kWordMax + 1];
    char time[kWordMax + 1];
    if (TesselFindStrMatchHead(output, "ttl=", ' ', ttl, kWordMax) != 0 ||
        TesselFindStrMatchHead(output, "time=", ' ', time, kWordMax) != 0) {
        TESSEL_ERR("%s", output);
        return -1;
    }
    result->dwTtl = static_cast<u32>(strtol(ttl, nullptr, 10));
    const float milliseconds = strtof(time, nullptr);
    if (!(milliseconds >= 0 && milliseconds < kTimeLimitMs)) {  // not a number either
        TESSEL_ERR("the time error");
        return -1;
    }
    result->dwTime = static_cast<u32>(milliseconds * 1000);
    return 0;
}

namespace tessel {

bool ComposePing(CommandLine& command, const TNetPingStartReq& ping) {
    const AddressText target(ping.tTarget);
    const i32 packetSize = Signed(std::max(ping.dwPacketSize, kPacketBytesMin));
    const i32 ttl = Signed(ping.dwTtl);
    const i32 timeout = Signed(ping.dwTimeout);
    if (ping.tTarget.wSinFamily == TESSEL_FAMILY_INET)
        return ComposeCommand(command, kPing4, packetSize, ttl, timeout, target.text);
    return IsUbuntuHost() == 1 ? ComposeCommand(command, kPing6OfDesktop, packetSize, ttl, timeout, target.text)
                               : ComposeCommand(command, kPing6, packetSize, ttl, timeout, target.text);
}

u32 PingClass(const char* output) {
    if (output[0] == '\0') return TESSEL_PING_NO_OUTPUT;
    if (strstr(output, "from") != nullptr) return TESSEL_PING_REPLY;  // "From": somebody else says that it is not there
    return strstr(output, "Network is unreachable") != nullptr ? TESSEL_PING_UNREACHABLE : TESSEL_PING_NO_REPLY;
}

}  // namespace tessel
