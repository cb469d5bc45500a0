#include <unistd.h>

#include "client/ctl/kernel.h"
#include "client/ctl/listening.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

// Of every tesselctl, so that the next one goes on with what another has left behind: an interface keeps its first one.
constexpr i32 kUser = 0;

// Whoever gets the reports of an interface; empty: nobody does.
std::string ReceiverOf(const std::string& interface) {
    const auto names = ListenedNames(Format("{}_{}_", TESSEL_SOCKET_ROUTER_NOTIFY, interface));
    return names.empty() ? "" : ListeningText(FindListeningProcess(names.front()).value_or(ListeningProcess{}));
}

Outcome WatchRouters(const Invocation& invocation) {
    const std::string interface = invocation.words.Text("IF");
    const std::string missing = MissingInterface(interface);
    if (!missing.empty()) throw Refused(invocation.asked, missing);
    const std::string receiver = ReceiverOf(interface);
    if (!receiver.empty()) {
        throw Refused(invocation.asked,
                      Format("{} gets the reports (tesselctl ra stop {} --force ends them)", receiver, interface));
    }
    const auto start = [&] {
        const int error = tessel_router_start(interface.c_str(), kUser, getpid());
        if (error != TESSEL_E_FAILED) return error;
        throw CallFailed(invocation.asked, error, Format("{} interfaces are watched", int{TESSEL_ROUTER_WATCHES_MAX}));
    };
    const std::string name = Format("{}_{}_{}_{}", TESSEL_SOCKET_ROUTER_NOTIFY, interface, kUser, getpid());
    return RunWatch(
        invocation,
        {.sockets = {{.name = name, .start = start, .stop = [&] { return tessel_router_stop(interface.c_str()); }}}});
}

Outcome StopRouters(const Invocation& invocation) {
    const std::string interface = invocation.words.Text("IF");
    const auto guard = [&] {
        const std::string receiver = ReceiverOf(interface);
        return receiver.empty() ? "" : receiver + " would get no more reports";
    };
    return Perform(invocation, {.send = [&] { return tessel_router_stop(interface.c_str()); },
                                .guard = guard,
                                .done = interface + ": routers are watched no more"});
}

constexpr Command kRaCommands[] = {
    Row("watch", "IF", &WatchRouters, "ask for router advertisements, and show what is learnt from them",
        "ra watch eth0")
        .Sends(TESSEL_CMD_ROUTER_ADVERTISE_START, TESSEL_CMD_ROUTER_ADVERTISE_STOP)
        .More("Addresses and gateway, whenever the addresses change; that the gateway alone has gone is no change."),
    Row("stop", "IF", &StopRouters, "end the watch of whatever program has started it", "ra stop eth0")
        .Sends(TESSEL_CMD_ROUTER_ADVERTISE_STOP),
};

}  // namespace

extern const Object kRa = {
    .name = "ra", .summary = "what is learnt from IPv6 router advertisements", .commands = kRaCommands};

}  // namespace tessel::ctl
