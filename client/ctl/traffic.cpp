#include <cmath>

#include "client/ctl/listening.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

constexpr u32 kIntervalSeconds = 1;

Outcome WatchTraffic(const Invocation& invocation) {
    const u32 interval = invocation.words.Get<u32>("every", kIntervalSeconds);
    u32 left = invocation.words.Get<u32>("count", 0);
    std::optional<Clock::time_point> before;
    bool isChecked = false;
    const auto onEvent = [&](const ShownEvent& event) {
        ShowLine(invocation, event);
        // A second start keeps the interval of the first one: what is really used shows between two reports.
        const auto now = Clock::now();
        if (before && !isChecked) {
            const long long measured = std::llround(std::chrono::duration<double>(now - *before).count());
            isChecked = true;
            if (measured != interval) {
                ShowNote(invocation, Format("reports come every {} s: somebody had started them with that interval "
                                            "(tesselctl traffic stop ends them)",
                                            measured));
            }
        }
        before = now;
        return left == 0 || --left > 0;
    };
    return RunWatch(invocation, {.sockets = {{.name = TESSEL_SOCKET_STAT,
                                              .start = [=] { return tessel_traffic_start(interval); },
                                              .stop = [] { return tessel_traffic_stop(); }}},
                                 .onEvent = onEvent});
}

Outcome StopTraffic(const Invocation& invocation) {
    const auto guard = [] {
        const auto listening = FindListeningProcess(TESSEL_SOCKET_STAT);
        return listening ? ListeningText(*listening) + " listens and would get no more reports" : "";
    };
    return Perform(invocation, {.send = [] { return tessel_traffic_stop(); },
                                .guard = guard,
                                .done = "traffic is reported no more, once the period that runs has ended"});
}

constexpr Command kTrafficCommands[] = {
    Row("watch", "[every S:1-86400] [count N:1-1000000]", &WatchTraffic,
        "show what eth0, eth1 and eth2 send and receive", "traffic watch every 5 count 3")
        .Sends(TESSEL_CMD_STAT_START, TESSEL_CMD_STAT_STOP)
        .More("Every second unless said otherwise, until interrupted. The daemon reports to one program, and "
              "keeps the interval of the first start until a stop."),
    Row("stop", "", &StopTraffic, "end the reports of whatever program has started them", "traffic stop")
        .Sends(TESSEL_CMD_STAT_STOP),
};

}  // namespace

extern const Object kTraffic = {
    .name = "traffic", .summary = "what the device's interfaces send and receive", .commands = kTrafficCommands};

}  // namespace tessel::ctl
