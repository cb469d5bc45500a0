// Shows events as they come, until somebody has had enough: listens first, has them sent, and the other way round on
// the way out, also on SIGINT, SIGTERM and SIGHUP, or when nobody reads any more.
#pragma once

#include "client/ctl/events.h"

namespace tessel::ctl {

// One socket of the daemon's notices, and the requests that switch them on and off (both may be empty: only listening).
struct WatchedSocket {
    std::string name;  // "ipc_ntp"
    std::function<int()> start = {};
    std::function<int()> stop = {};
};

struct Watch {
    std::vector<WatchedSocket> sockets;
    bool followsKernel = false;
    // A notice, decoded. False: that was the last one. Without it every event is shown by ShowLine.
    std::function<bool(const ShownEvent& event)> onEvent = {};
    std::chrono::milliseconds deadline{0};  // without an event; 0: none. onDeadline then says whether to go on
    std::function<bool()> onDeadline = {};
    // What is switched on is switched on again when the daemon was started anew meanwhile. Not for ping and traceroute.
    bool survivesTheDaemon = true;
};

// Refuses names that somebody listens under, unless --take: and then neither starts nor stops what that one has
// started, and says so. With --dry-run: says what would be listened under and makes the requests.
[[nodiscard]] Outcome RunWatch(const Invocation& invocation, const Watch& watch);

// An event in the form that the options ask for, at once. Throws a Failure for a field that there is not.
void ShowLine(const Invocation& invocation, const ShownEvent& event);

}  // namespace tessel::ctl
