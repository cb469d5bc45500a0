#include "route/monitor/monitor.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "core/log.h"
#include "core/thread.h"
#include "core/wait.h"
#include "probe/conflict/conflict.h"
#include "probe/conflict/netdev_table.h"
#include "route/monitor/default_route.h"
#include "route/monitor/driver.h"
#include "route/monitor/link_up.h"
#include "route/monitor/netlink.h"
#include "route/priority_table.h"

using std::chrono::milliseconds;
using tessel::CallSite;
using tessel::Deadline;
using tessel::UniqueFd;

namespace {

constexpr u32 kGroups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_IFADDR;
constexpr u32 kEarlyGroups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_LINK;
constexpr int kReceiveBytes = 1 << 20;  // some thousand messages
constexpr std::size_t kReadBytes = 2048;
constexpr milliseconds kQuiet(60000);

// Changes come in bursts, and a rebuild of the table runs three tools for each interface.
constexpr milliseconds kPause(100);     // without a change, then the table is rebuilt
constexpr milliseconds kLongest(1000);  // from the first change, should they never pause

// The rebuild that address changes ask for. Only for the monitor's thread.
class OwedRebuild {
  public:
    void Ask() {
        pauseEnd_ = Deadline(kPause);
        if (!isOwed_) latest_ = Deadline(kLongest);
        isOwed_ = true;
    }
    // Milliseconds until it is due; INT_MAX when none is owed.
    [[nodiscard]] int LeftMs() const {
        return isOwed_ ? std::min(pauseEnd_.LeftMs(), latest_.LeftMs()) : INT_MAX;
    }
    void CarryOutWhenDue() {
        if (LeftMs() > 0) return;
        isOwed_ = false;
        tessel::RebuildNetdevTable();
        // Announcements sent since the change were those of the old table.
        tessel::NoteAddressChange();
    }

  private:
    bool isOwed_ = false;
    Deadline pauseEnd_{milliseconds(0)};
    Deadline latest_{milliseconds(0)};
};
OwedRebuild owedRebuild;

// From NoteChangesFromNowOn until the monitor has its own socket. Nobody reads it: it is enough that something came.
UniqueFd earlySocket;

bool StartThread(const char* name, ThreadFunction body, CallSite where) {
    if (ThreadSpawnDeatched(name, body, nullptr, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep) != 0) {
        return true;
    }
    tessel::LogPerror(where, "init thread create error");
    return false;
}

// After changes whose messages were not read.
void LookAtAll() {
    tessel::NoteAddressChange();
    owedRebuild.Ask();
    if (g_nRoutedetectE != 0) tessel::ProcessKernelRoutes();
}

void TakeMessage(const nlmsghdr* message, CallSite where) {
    switch (message->nlmsg_type) {
        case NLMSG_ERROR:
        case NLMSG_DONE:
        case RTM_NEWLINK:
        case RTM_DELLINK:
        case RTM_DELROUTE:
            break;
        case RTM_NEWADDR:
        case RTM_DELADDR:
            tessel::NoteAddressChange();
            TESSEL_DBG_AT(where, "TesselRouteMonitorThread detect ip change");
            owedRebuild.Ask();
            break;
        case RTM_NEWROUTE:
            if (g_nRoutedetectE != 0) ProcessRtMsg(message);
            break;
        default:
            TESSEL_DBG_AT(where, "nh->nlmsg_type = %d", message->nlmsg_type);
    }
}

// Takes what one read brings. False when the socket is no longer usable.
bool ReadMessages(int fd, CallSite where) {
    alignas(nlmsghdr) u8 buffer[kReadBytes];
    const ssize_t size = read(fd, buffer, sizeof(buffer));
    if (size < 0) {
        if (errno != ENOBUFS) return errno == EINTR;
        // More came than the socket holds, and the rest is lost.
        TESSEL_ERR_AT(where, "netlink messages were lost, look at all addresses and routes");
        LookAtAll();
        return true;
    }
    std::span<const u8> bytes(buffer, static_cast<std::size_t>(size));
    while (const nlmsghdr* message = tessel::NextMessage(bytes))
        TakeMessage(message, where);
    return true;
}

// Always returns -1, when waiting or reading fails. What is owed by then stays owed.
i32 NetlinkProcess(int fd) {
    pollfd waited{.fd = fd, .events = POLLIN, .revents = 0};
    Deadline quietEnd(kQuiet);
    while (true) {
        const int leftMs = std::min({quietEnd.LeftMs(), owedRebuild.LeftMs(), tessel::MsUntilDueRoute()});
        const int ready = poll(&waited, 1, leftMs);
        if (ready < 0) {
            TESSEL_ERR("epoll error: (%d) %s", errno, strerror(errno));
            if (errno != EINTR) return -1;
        } else if (ready > 0) {
            quietEnd = Deadline(kQuiet);
            if (!ReadMessages(fd, CallSite::Current())) return -1;
        } else if (quietEnd.HasPassed()) {
            quietEnd = Deadline(kQuiet);
            TESSEL_DBG("Waiting for route change message timeout, no change");
        }
        tessel::InstallDueRoutes();
        owedRebuild.CarryOutWhenDue();
    }
}

}  // namespace

void RouteMonitorThread(void* /*unused*/) {
    while (true) {
        const u32 portId = static_cast<u32>(pthread_self() << 16) | static_cast<u32>(getpid());
        const UniqueFd fd = tessel::OpenNetlink(NETLINK_ROUTE, portId, kGroups);
        if (!fd.IsOpen()) return;
        // The kernel's limit for programs without privileges may be lower than this one's.
        if (setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBytes, sizeof(kReceiveBytes)) != 0)
            (void)setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBytes, sizeof(kReceiveBytes));
        // What changed while there was no socket is looked up. If the early one is silent, nothing did.
        if (!earlySocket.IsOpen() ||
            tessel::WaitReady(earlySocket.Get(), POLLIN, Deadline(milliseconds(0))) != tessel::Wait::kTimeout)
            LookAtAll();
        earlySocket.Reset();
        (void)NetlinkProcess(fd.Get());  // a socket that fails is replaced immediately
    }
}

i32 NetlinkInit() {
    (void)BringUpInterface();  // whatever is up can be followed
    const CallSite where = CallSite::Current();
    const bool isStarted = StartThread("TesselSysNetlinkInitThread", &NetlinkInitThread, where) &&
                           StartThread("TesselRouteMonitorThread", &RouteMonitorThread, where);
    return isStarted ? 0 : -1;
}

namespace tessel {

void NoteChangesFromNowOn() {
    earlySocket = OpenNetlink(NETLINK_ROUTE, 0, kEarlyGroups);
}

}  // namespace tessel
