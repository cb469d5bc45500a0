// Shows events as they come, until somebody has had enough.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/ctl/command.h"
#include "client/ctl/held_signals.h"
#include "client/libtessel.h"

namespace tessel::ctl {

struct ListenerCloser {
    void operator()(tessel_listener* listener) const {
        tessel_listener_close(listener);
    }
};

struct EventSource {
    std::string name;  // the socket's
    std::unique_ptr<tessel_listener, ListenerCloser> listener;
};

struct WatchEnd {
    int signal = 0;  // SIGPIPE also when nobody reads any more
    std::optional<Failure> failure;
    unsigned long notEvents = 0;  // connections that brought no message, or none of a known kind
};

// Prints a line for each event of the sources. Calls `look` once a second at least; a failure of its ends the watch.
[[nodiscard]] WatchEnd ShowEvents(const std::vector<const EventSource*>& sources, const HeldSignals& signals,
                                  const Invocation& invocation, const std::function<std::optional<Failure>()>& look);

enum class DaemonChange { kNone, kGone, kBack };

// Follows whether the daemon runs. What was switched on in one daemon is off in the next.
class DaemonPresence {
  public:
    DaemonPresence() {
        (void)Look();
    }
    // What happened since the last look; kBack also when another one came meanwhile.
    [[nodiscard]] DaemonChange Look();

  private:
    bool isThere_ = false;
    struct stat socketFile_ {};
};

}  // namespace tessel::ctl
