#include "core/folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

namespace tessel {

bool FolderWatch::IsUnchanged(u64 tick) {
    constexpr u64 kTrustMs = 1000;
    constexpr u32 kNames = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
    // Reported once: a busy folder costs nothing while nobody asks.
    constexpr u32 kEvents = kNames | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_ONESHOT;
    alignas(inotify_event) char events[1024];  // an event and the end of its watch
    const bool hasFired = events_.IsOpen() && read(events_.Get(), events, sizeof(events)) > 0;
    if (armedAtTick_ != 0 && !hasFired && tick - armedAtTick_ < kTrustMs) return true;
    if (!events_.IsOpen()) events_.Reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const bool isArmed = events_.IsOpen() && inotify_add_watch(events_.Get(), path_, kEvents) >= 0;
    armedAtTick_ = isArmed ? tick : 0;
    return false;
}

}  // namespace tessel
