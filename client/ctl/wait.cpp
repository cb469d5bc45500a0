// Waits until something is there, for scripts that start with the device; --timeout limits it.
#include <poll.h>

#include "client/ctl/device.h"

namespace tessel::ctl {

namespace {

// Looks again and again until `look`, which may throw a Failure, gives something; `missing` is said if it never does.
Outcome WaitFor(const Invocation& invocation, const std::string& missing, const std::function<Json()>& look) {
    using std::chrono::milliseconds;
    const auto end = Clock::now() + milliseconds(invocation.options.timeoutMs);
    while (true) {
        const auto leftMs = static_cast<int>(std::chrono::ceil<milliseconds>(end - Clock::now()).count());
        (void)tessel_set_timeout_ms(std::max(leftMs, 500));  // for the last look, too
        std::string problem = missing;
        try {
            if (const Json found = look(); !found.is_null()) return {.document = found};
        } catch (const Failure& failure) {
            if (failure.error == "not_permitted") throw;
            if (failure.exit == kExitNotRunning) problem = "the daemon is not running";
            if (failure.exit == kExitTimeout) problem = "the daemon does not answer";
        }
        if (leftMs <= 0)
            throw Failure{
                kExitTimeout, "timeout",
                Format("{}: {}, after {:g} s", invocation.asked, problem, invocation.options.timeoutMs / 1000.0)};
        poll(nullptr, 0, std::min(leftMs, 200));
    }
}

Outcome WaitDaemon(const Invocation& invocation) {
    return WaitFor(invocation, "the daemon does not answer", [] {
        (void)DaemonPriorities("");
        return Json{{"running", true}, {"pid", tessel_daemon_pid()}};
    });
}

Outcome WaitLink(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    return WaitFor(invocation, name + " is not up", [&] {
        Json link = KernelLink(name);
        return !link.is_null() && link["state"] == "up" ? link : Json();
    });
}

// One that is ready to be used, and more than what every link gives itself.
Outcome WaitAddr(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    return WaitFor(invocation, name + " has no address", [&] {
        const Json answer = DaemonAddresses("", name, FamilyOf(invocation.options));
        Json found;
        for (const Json& address : answer["addresses"]) {
            if (!found.is_null() || address["scope"] == "link" || address["tentative"] == true) continue;
            found["interface"] = name;
            found.update(address);
        }
        return found;
    });
}

Outcome WaitGateway(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    return WaitFor(invocation, (name.empty() ? "the device" : name) + " has no gateway", [&] {
        for (const int family : FamiliesOf(invocation.options)) {
            Json gateway = DaemonGateway("", name, family);
            if (!gateway["gateway"].is_null()) return gateway;
        }
        return Json();
    });
}

constexpr Command kWaitCommands[] = {
    Row("daemon", "", &WaitDaemon, "until the daemon answers", "wait daemon --timeout 10")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .Columns("daemon {pid}"),
    Row("link", "IF", &WaitLink, "until an interface is up and has a carrier", "wait link eth0 --timeout 10")
        .Columns("INTERFACE {interface}|STATE {state}"),
    FamilyRow("addr", "IF", &WaitAddr, "until an interface has an address that can be used", "wait addr eth0 -4")
        .Sends(TESSEL_CMD_IPADDR_GET)
        .Columns("INTERFACE {interface}|ADDRESS {address}/{prefix_length}"),
    FamilyRow("gateway", "[IF]", &WaitGateway, "until there is a default route", "wait gateway eth0")
        .Sends(TESSEL_CMD_GATEWAY_GET)
        .Columns("INTERFACE {interface}|GATEWAY {gateway}"),
};

}  // namespace

extern const Object kWait = {
    .name = "wait", .summary = "until something is there (for --timeout S at most)", .commands = kWaitCommands};

}  // namespace tessel::ctl
