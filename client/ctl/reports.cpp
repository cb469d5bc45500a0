// What the daemon reports to one program at a time, whoever that is: address conflicts, router advertisements and
// traffic; and "monitor", which shows whatever is reported, with changes in the kernel, and switches nothing on or off.
#include <unistd.h>

#include <cmath>

#include "client/ctl/device.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

// Whom it would silence to end the reports to this socket; empty: nobody listens.
std::string WhoIsSilenced(const std::string& socket) {
    const auto who = FindListeningProcess(socket);
    return who ? Format("{} is listening on {} and would get no more reports", ListeningText(who), socket) : "";
}

std::string ConflictSocket(int family) {
    return family == TESSEL_FAMILY_INET6 ? TESSEL_SOCKET_IPV6_CONFLICT : TESSEL_SOCKET_IP_CONFLICT;
}

template <bool isOn>
Outcome SwitchConflicts(const Invocation& invocation) {
    const auto families = FamiliesOf(invocation.options);
    Json document = Json::array();
    std::vector<std::string> notes;
    std::string silenced;
    for (const int family : families) {
        const std::string socket = ConflictSocket(family);
        const Json listener = ListenerJson(FindListeningProcess(socket));
        document.push_back({{"family", FamilyName(family)}, {"reporting", isOn}, {"listener", listener}});
        if (!isOn && !listener.is_null()) silenced = WhoIsSilenced(socket);
        if (!isOn || !listener.is_null()) continue;
        notes.push_back(Format("nobody is listening on {}: each report will hold up detection for 5 to 8 s", socket));
    }
    const auto send = [&] {
        for (const int family : families)
            Require(invocation.asked, isOn ? tessel_conflict_start(family) : tessel_conflict_stop(family));
        return int{TESSEL_OK};
    };
    Change change{.send = send, .guard = [&] { return silenced; }, .read = [&] { return document; }};
    change.done = Format("{}: conflicts are reported{}", Joined(families, ", ", &FamilyName), isOn ? "" : " no more");
    Outcome outcome = Perform(invocation, change);
    outcome.notes.insert(outcome.notes.end(), notes.begin(), notes.end());
    return outcome;
}

Outcome WatchConflicts(const Invocation& invocation) {
    Watch watch;
    for (const int family : FamiliesOf(invocation.options))
        watch.sockets.push_back({.name = ConflictSocket(family),
                                 .start = [=] { return tessel_conflict_start(family); },
                                 .stop = [=] { return tessel_conflict_stop(family); }});
    return RunWatch(invocation, watch);
}

constexpr Command kConflictCommands[] = {
    FamilyRow("on", "", &SwitchConflicts<true>, "report conflicts to the program that listens", "conflict on")
        .Sends(TESSEL_CMD_CONFLICT_START)
        .More("Addresses are watched and defended either way. Reports go to /tmp/ipc_ip_conflict (IPv4) and "
              "/tmp/ipc_ipv6_conflict; while nobody listens there, each holds up conflict detection for 5 to 8 s."),
    FamilyRow("off", "", &SwitchConflicts<false>, "stop reporting conflicts", "conflict off -4")
        .Sends(TESSEL_CMD_CONFLICT_STOP)
        .More("All programs share one switch per family: refused while one listens, unless --force."),
    FamilyRow("watch", "", &WatchConflicts, "show conflicts as they are reported, until interrupted", "conflict watch")
        .Sends(TESSEL_CMD_CONFLICT_START, TESSEL_CMD_CONFLICT_STOP)
        .More("Switches the reports on, and off again at the end. One program per family can listen: refused while "
              "another does, unless --take; the switch then stays as that program left it. The other host's hardware "
              "address is only in the daemon's log."),
};

// The same for every tesselctl, so that the next one continues what another left behind.
constexpr i32 kUser = 0;

// The socket of whoever gets the reports of an interface; empty: nobody does.
std::string RouterSocket(const std::string& interface) {
    const auto names = ListenedNames(Format("{}_{}_", TESSEL_SOCKET_ROUTER_NOTIFY, interface));
    return names.empty() ? "" : names.front();
}

Outcome WatchRouters(const Invocation& invocation) {
    const std::string interface = invocation.words.Text("IF");
    if (const std::string why = MissingInterface(interface); !why.empty()) throw Refused(invocation.asked, why);
    if (const std::string other = RouterSocket(interface); !other.empty())
        throw Refused(invocation.asked, Format("{} gets the reports (tesselctl ra stop {} --force ends them)",
                                               ListeningText(FindListeningProcess(other)), interface));
    const char* const name = interface.c_str();
    const WatchedSocket socket{.name = Format("{}_{}_{}_{}", TESSEL_SOCKET_ROUTER_NOTIFY, interface, kUser, getpid()),
                               .start = [=] { return tessel_router_start(name, kUser, getpid()); },
                               .stop = [=] { return tessel_router_stop(name); },
                               .cause = Format("{} interfaces are watched", int{TESSEL_ROUTER_WATCHES_MAX})};
    return RunWatch(invocation, {.sockets = {socket}});
}

Outcome StopRouters(const Invocation& invocation) {
    const std::string interface = invocation.words.Text("IF");
    return Perform(invocation, {.send = [&] { return tessel_router_stop(interface.c_str()); },
                                .guard = [&] { return WhoIsSilenced(RouterSocket(interface)); },
                                .done = interface + ": routers are watched no more"});
}

constexpr Command kRaCommands[] = {
    Row("watch", "IF", &WatchRouters, "ask for router advertisements, show what is learnt from them", "ra watch eth0")
        .Sends(TESSEL_CMD_ROUTER_ADVERTISE_START, TESSEL_CMD_ROUTER_ADVERTISE_STOP)
        .More("Reports addresses and gateway whenever the addresses change; losing only the gateway is not reported."),
    Row("stop", "IF", &StopRouters, "end the watch, whichever program started it", "ra stop eth0")
        .Sends(TESSEL_CMD_ROUTER_ADVERTISE_STOP),
};

Outcome WatchTraffic(const Invocation& invocation) {
    const u32 interval = invocation.words.Get<u32>("every", 1);
    const u32 count = invocation.words.Get<u32>("count", 0);
    u32 shown = 0;
    Clock::time_point before;
    const auto onEvent = [&](const ShownEvent& event) {
        ShowLine(invocation, event);
        const auto now = Clock::now();
        // A second start keeps the interval of the first one: what is really used shows between two reports.
        const long long measured = std::llround(std::chrono::duration<double>(now - before).count());
        if (++shown == 2 && measured != interval)
            ShowNote(invocation,
                     Format("reports come every {} s, as first started (tesselctl traffic stop ends them)", measured));
        before = now;
        return shown != count;
    };
    return RunWatch(invocation, {.sockets = {{.name = TESSEL_SOCKET_STAT,
                                              .start = [=] { return tessel_traffic_start(interval); },
                                              .stop = &tessel_traffic_stop}},
                                 .onEvent = onEvent});
}

Outcome StopTraffic(const Invocation& invocation) {
    return Perform(invocation, {.send = &tessel_traffic_stop,
                                .guard = [] { return WhoIsSilenced(TESSEL_SOCKET_STAT); },
                                .done = "traffic reports end with the current period"});
}

constexpr Command kTrafficCommands[] = {
    Row("watch", "[every S:1-86400] [count N:1-1000000]", &WatchTraffic,
        "show what eth0, eth1 and eth2 send and receive", "traffic watch every 5 count 3")
        .Sends(TESSEL_CMD_STAT_START, TESSEL_CMD_STAT_STOP)
        .More("Every second by default, until interrupted. The daemon reports to one program only, and keeps the "
              "interval of the first start until it is stopped."),
    Row("stop", "", &StopTraffic, "end the reports, whichever program started them", "traffic stop")
        .Sends(TESSEL_CMD_STAT_STOP),
};

Outcome Monitor(const Invocation& invocation) {
    const auto kinds = invocation.words.All<std::string>("KIND");
    auto missing = kinds;
    std::erase(missing, "kernel");
    Watch watch{.sockets = {}, .followsKernel = kinds.empty() || missing.size() < kinds.size()};
    for (const Json& one : NoticeListeners()) {
        const std::string topic = TextOf(one, "topic");
        const std::string kind = topic.substr(0, topic.find(' '));
        const bool isAsked = std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
        if (isAsked || (kinds.empty() && one["listener"].is_null())) watch.sockets.push_back({TextOf(one, "socket")});
        std::erase(missing, kind);
    }
    if (!missing.empty())
        throw Refused(invocation.asked, Format("{0} notices go to whoever asked for them, and nobody did (see \"{0}\")",
                                               missing.front()));
    return RunWatch(invocation, watch);
}

constexpr Command kMonitorCommands[] = {
    Row("", "[KIND=ping|dhcp|ntp|conflict|ra|traffic|kernel]...", &Monitor,
        "the daemon's notices and changes in the kernel, as they happen", "monitor conflict ntp kernel")
        .More("It only listens: commands such as \"conflict on\" and \"ntp start\" make the daemon send notices. Those "
              "of ping, dhcp and ra go to the program that asked for them; --take diverts them. Without a kind: the "
              "kernel, and whatever nobody else is listening for."),
};

}  // namespace

extern const Object kConflict = {
    .name = "conflict", .summary = "other hosts that use the device's addresses", .commands = kConflictCommands};
extern const Object kRa = {
    .name = "ra", .summary = "what is learnt from IPv6 router advertisements", .commands = kRaCommands};
extern const Object kTraffic = {
    .name = "traffic", .summary = "what the device's interfaces send and receive", .commands = kTrafficCommands};
extern const Object kMonitor = {
    .name = "monitor", .summary = "what the daemon and the kernel report", .commands = kMonitorCommands};

}  // namespace tessel::ctl
