// The NTP clients, one of each family.
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

std::string SocketOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? TESSEL_SOCKET_NTPV6 : TESSEL_SOCKET_NTP;
}

Outcome StartNtp(const Invocation& invocation) {
    const auto server = invocation.words.Get<Network>("A");
    const u32 interval = invocation.words.Get<u32>("every");
    const TNetGateway record = GatewayOf(server);
    const auto send = [&] { return tessel_ntp_start(&record, interval); };
    if (invocation.words.Has("watch")) {
        return RunWatch(invocation, {.sockets = {{.name = SocketOf(server.family), .start = send}}});
    }
    Change change{.send = send};
    change.cause = [&] {
        const int digit = server.family == TESSEL_FAMILY_INET6 ? 6 : 4;
        return Format("an NTP client of {} runs already (ntp stop -{})", FamilyName(server.family), digit);
    };
    change.read = [&] { return Json{{"address", HostText(server)}, {"interval_s", interval}}; };
    change.done = Format("{} is asked for the time every {} (\"ntp watch\" shows the answers)", HostText(server),
                         HumanDuration(interval));
    return Perform(invocation, change);
}

Outcome StopNtp(const Invocation& invocation) {
    std::vector<std::string> names;
    for (const int family : FamiliesOf(invocation.options))
        names.push_back(FamilyName(family));
    Change change;
    change.send = [&] {
        int error = TESSEL_OK;
        for (const int family : FamiliesOf(invocation.options))
            error = error == TESSEL_OK ? tessel_ntp_stop(family) : error;
        return error;
    };
    change.read = [&] { return Json{{"stopped", names}}; };
    change.done = Format("no server of {} is asked any more", Joined(names, ", "));
    return Perform(invocation, change);
}

// Not Perform: that nobody answered is the answer.
Outcome CheckServer(const Invocation& invocation) {
    const auto server = invocation.words.Get<Network>("A");
    const TNetGateway record = GatewayOf(server);
    const int error = tessel_ntp_check(&record);
    if (error != TESSEL_E_FAILED) Require(invocation.asked, error);
    Outcome outcome;
    outcome.document = {{"address", HostText(server)}, {"answered", error == TESSEL_OK}};
    outcome.done = HostText(server) + " answers";
    if (error != TESSEL_OK) {
        outcome.failure = Failure(kExitFailed, "no_answer",
                                  invocation.asked + ": no answer within 100 ms (a slow server fails this check)");
    }
    return outcome;
}

Outcome WatchBoth(const Invocation& invocation) {
    Watch watch;
    for (const int family : FamiliesOf(invocation.options))
        watch.sockets.push_back({.name = SocketOf(family)});
    return RunWatch(invocation, watch);
}

constexpr Command kNtpCommands[] = {
    Row("start", "A every S:1- [watch]", &StartNtp, "keep the clock in step with a server",
        "ntp start 192.168.1.5 every 1h")
        .Sends(TESSEL_CMD_NTPC_START)
        .More("Sets the system's clock and the hardware's, at once and then every so often. There is one client of "
              "each family, which goes on when \"watch\" ends."),
    Row("stop", "", &StopNtp, "leave the clock alone", "ntp stop")
        .Sends(TESSEL_CMD_NTPC_STOP)
        .OfFamily()
        .More("Takes up to 11 seconds while a server is waited for."),
    Row("check", "A", &CheckServer, "ask a server once, without setting the clock", "ntp check 192.168.1.5")
        .Sends(TESSEL_CMD_NTPC_CHECK)
        .More("A server that needs more than 100 ms counts as one that does not answer."),
    Row("watch", "", &WatchBoth, "show each answer as it comes, and each failure", "ntp watch")
        .OfFamily()
        .More("Starts and stops nothing."),
};

}  // namespace

extern const Object kNtp = {.name = "ntp", .summary = "the clock, by NTP", .commands = kNtpCommands};

}  // namespace tessel::ctl
