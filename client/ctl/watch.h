// Shows events as they come, until somebody has had enough: listens first, has them sent, and the other way round on
// the way out, also on SIGINT, SIGTERM and SIGHUP, or when nobody reads any more.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// A notice of the daemon, or a change in the kernel.
struct ShownEvent {
    Json document;     // time, event, source, and the fields
    std::string line;  // "10:04:11.204  conflict  eth0  ..."
    std::string text;  // what stands behind the interface or the id there: "seq 0  ttl 64  0.41 ms"
    int kind = 0;      // enum tessel_event_kind; 0: the kernel's
};

// Nothing: the message is no event of a known kind, or too short.
[[nodiscard]] std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time);

// A change in the kernel, as FromKernel gives it.
[[nodiscard]] ShownEvent ShowKernelEvent(const Json& change, WallTime time);

// "0.41 ms", "12.3 ms"; "0.41" for lists of them.
[[nodiscard]] std::string MillisecondsText(long long microseconds, std::string_view unit = " ms");

// One socket of the daemon's notices, and the requests that switch them on and off (both may be empty: only listening).
struct WatchedSocket {
    std::string name;  // "ipc_ntp"
    std::function<int()> start = {};
    std::function<int()> stop = {};
    std::string cause = {};  // why the daemon may answer -1 to the start
};

struct Watch {
    std::vector<WatchedSocket> sockets;
    bool followsKernel = false;
    // A notice, decoded. False: that was the last one. Without it every event is shown by ShowLine.
    std::function<bool(const ShownEvent& event)> onEvent = {};
    std::chrono::milliseconds deadline{0};  // without an event, which ends it; 0: none
    // What is switched on is switched on again when the daemon was started anew meanwhile. Not for ping and traceroute.
    bool survivesTheDaemon = true;
};

// Refuses names that somebody listens under, unless --take: and then neither starts nor stops what that one has
// started, and says so. With --dry-run: says what would be listened under and makes the requests.
[[nodiscard]] Outcome RunWatch(const Invocation& invocation, const Watch& watch);

// An event in the form that the options ask for, at once. Throws a Failure for a field that there is not.
void ShowLine(const Invocation& invocation, const ShownEvent& event);

}  // namespace tessel::ctl
