#include "probe/conflict/conflict.h"

#include "core/log.h"
#include "core/thread.h"
#include "probe/conflict/arp_conflict.h"
#include "probe/conflict/neighbour_conflict.h"
#include "probe/conflict/netdev_table.h"

std::atomic<i32> g_nIpv4ConflictReport{0};
std::atomic<i32> g_nIpv6ConflictReport{0};
std::atomic<i32> g_nConflictConfirmCount{0};
std::atomic<i32> g_nIpChangedFlag{0};

namespace {

struct WatchingThread {
    const char* name;
    ThreadFunction body;
    const char* failure;
};

// In the order in which they start. The IPv6 ones fail in the words of the IPv4 ones.
constexpr WatchingThread kThreads[] = {
    {"TesselSysRecvIpConfil", &RecvNetPacket, "create ip_confilict_recv ipv4 thread failed!"},
    {"TesselSysSendIpConfil", &SendNetPacket, "create ip_confilict_send ipv4 thread failed!"},
    {"TesselSysRecvIpv6Confil", &RecvNetPacketV6, "create ip_confilict_recv ipv4 thread failed!"},
    {"TesselSysSendIpv6Confil", &SendNetPacketV6, "create ip_confilict_send ipv4 thread failed!"},
};

i32 SwitchReports(u16 family, i32 on, tessel::CallSite where = tessel::CallSite::Current()) {
    if (family == TESSEL_FAMILY_INET) {
        g_nIpv4ConflictReport = on;
    } else if (family == TESSEL_FAMILY_INET6) {
        g_nIpv6ConflictReport = on;
    } else {
        TESSEL_ERR_AT(where, "the wSinFamily %d is invalid!", family);
        return -1;
    }
    return 0;
}

}  // namespace

i32 ConflictCheckInit() {
    if (g_ptNetdevMember == nullptr) {
        TESSEL_ERR("there is no table of interfaces!");
        return -1;
    }
    tessel::RebuildNetdevTable();
    for (const WatchingThread& thread : kThreads) {
        if (ThreadSpawnDeatched(thread.name, thread.body, nullptr, kThreadStackBytes, kThreadPolicy,
                                kThreadPriorityStep) == 0) {
            TESSEL_ERR("%s", thread.failure);
            return -1;
        }
    }
    return 0;
}

i32 ConflictCheckStart(u16 wSinFamily) {
    return SwitchReports(wSinFamily, 1);
}

i32 ConflictCheckStop(u16 wSinFamily) {
    return SwitchReports(wSinFamily, 0);
}

namespace tessel {

void NoteAddressChange() {
    g_nIpChangedFlag = 1;
    g_nIpv6ChangedFlag = 1;
}

}  // namespace tessel
