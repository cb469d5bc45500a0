#include "probe/traceroute.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <optional>

#include "core/client_sessions.h"
#include "core/log.h"
#include "core/notify.h"
#include "probe/traceroute_probe.h"

using std::chrono::steady_clock;
using tessel::NoticeSocket;
using tessel::ProbeFamily;
using tessel::ProbeSockets;
using tessel::Worker;

namespace {

struct TracerouteNode {
    TNetGateway target;
    u32 maxHops;
    i32 userId;
};

}  // namespace

class tessel::TraceroutePool : public tessel::ClientSessions<TracerouteNode, TESSEL_TRACES_MAX> {};

tessel::TraceroutePool* g_ptDaeTraceroute = nullptr;

namespace {

// One more for each probe, over all hops: 33435 is the first.
constexpr u32 kTargetPortBase = 33434;
constexpr u32 kNoReplyMicroseconds = 5000000;

u32 MicrosecondsSince(steady_clock::time_point begin) {
    return static_cast<u32>(std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin).count());
}

// The probes of one trace, and what its client learns of them.
class Trace {
  public:
    Trace(const Worker& self, const TracerouteNode& node, const ProbeFamily& family)
        : self_(self),
          node_(node),
          sockets_(family, node.target),
          notices_("%s_%d", TESSEL_SOCKET_TRACEROUTE, node.userId),
          sender_(family.sender) {}

    void Run() {
        if (!sockets_.IsOpen()) return;
        TESSEL_PRT_AT(Sender(), "tracert api server path : %s", notices_.name);
        const u32 hops = std::min(node_.maxHops, u32{TESSEL_TRACE_HOPS_MAX});
        bool goesOn = true;
        for (u32 hop = 1; hop <= hops && goesOn; ++hop) {
            if (!sockets_.SetHops(hop)) continue;
            for (int probe = 1; probe <= TESSEL_TRACE_PROBES && goesOn; ++probe)
                goesOn = Probe(hop, hop == hops && probe == TESSEL_TRACE_PROBES);
        }
        TESSEL_PRT_AT(Sender(), "the %s will return!", sender_);
    }

  private:
    // Sends one and reports on it. False: it was the last.
    bool Probe(u32 hop, bool isLast) {
        ++sequence_;
        TNetTracerouteResult result{
            .tHop = {}, .dwHop = hop, .nUserId = node_.userId, .dwTime = 0, .abyReserved = {}, .dwLast = 0};
        // One that did not go out is reported, and its answer is still waited for: clients count on that.
        if (!sockets_.Send(static_cast<u16>(kTargetPortBase + sequence_)))
            Report(errno == ENETUNREACH ? TESSEL_TRACE_UNREACHABLE : TESSEL_TRACE_ERROR, result);
        const auto sentAt = steady_clock::now();
        const std::optional<u32> type = sockets_.Receive(self_);
        if (!type) return false;
        result.dwTime = *type == TESSEL_TRACE_NO_REPLY ? kNoReplyMicroseconds : MicrosecondsSince(sentAt);
        isLast = isLast || *type == TESSEL_TRACE_REACHED || *type == TESSEL_TRACE_REFUSED;
        result.dwLast = isLast ? 1 : 0;
        Report(*type, result);
        return !isLast && self_.IsWanted();
    }

    void Report(u32 type, TNetTracerouteResult& result) {
        result.tHop = sockets_.Responder();
        const i32 sent = Notify(notices_, type, result);
        if (sent != TESSEL_IPC_OK) TESSEL_ERR_AT(Sender(), "send and recv msg error:%d!", sent);
    }

    [[nodiscard]] tessel::CallSite Sender(int line = __builtin_LINE()) const {
        return {sender_, line};
    }

    const Worker& self_;
    const TracerouteNode& node_;
    ProbeSockets sockets_;
    NoticeSocket notices_;
    const char* sender_;
    u32 sequence_ = 0;
};

// False: the trace keeps its place until the client stops it.
bool TacerouteThread(const Worker& self, TracerouteNode& node) {
    const u16 family = node.target.wSinFamily;
    if (family == TESSEL_FAMILY_INET) {
        Trace(self, node, tessel::kProbeInet).Run();
    } else if (family == TESSEL_FAMILY_INET6) {
        Trace(self, node, tessel::kProbeInet6).Run();
    } else {
        TESSEL_ERR("the wSinFamily %d is invalid!", family);
    }
    return false;
}

// Finds a user's trace.
auto OfUser(i32 userId) {
    return [userId](const TracerouteNode& node) { return node.userId == userId; };
}

}  // namespace

void DaemonTracerouteInit() {
    g_ptDaeTraceroute = new (std::nothrow) tessel::TraceroutePool;
    if (g_ptDaeTraceroute == nullptr) TESSEL_PERROR("XMALLOC error");
}

i32 TracerouteStart(const TNetGateway& target, u32 maxHops, i32 userId) {
    const auto lock = g_ptDaeTraceroute != nullptr ? g_ptDaeTraceroute->Hold() : tessel::TraceroutePool::Lock();
    if (lock && g_ptDaeTraceroute->Find(lock, OfUser(userId)) != nullptr) {
        TESSEL_ERR("the nUserID %d now is tracing!", userId);
        return -1;
    }
    TracerouteNode* const node = lock ? g_ptDaeTraceroute->Take(lock) : nullptr;
    if (node == nullptr) {
        TESSEL_ERR("the user num is reach the maxmium %d", TESSEL_TRACES_MAX);
        return -1;
    }
    *node = {.target = target, .maxHops = maxHops, .userId = userId};
    if (g_ptDaeTraceroute->Run(lock, *node, "TesselSysTracertThread", &TacerouteThread)) return 0;
    TESSEL_ERR("ThreadSpawnDeatched error!");
    return -1;
}

i32 TracerouteStop(i32 userId) {
    if (g_ptDaeTraceroute != nullptr) (void)g_ptDaeTraceroute->Stop(OfUser(userId));
    TESSEL_PRT("the nUserId %d has been stopped!", userId);
    return 0;
}
