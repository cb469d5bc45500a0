// DHCP clients, whose leases go to one process each, and the NTP clients, one of each family.
#include <unistd.h>

#include "client/ctl/kernel.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

struct Client {
    int family;
    std::string interface;
    std::string sockets;                             // how the names of its sockets begin; a pid follows
    int withDns;                                     // as tessel_dhcpc_start() takes it
    std::optional<ListeningProcess> listening = {};  // who gets the leases
    i32 pid = getpid();                              // of that one, as its socket's name has it
    std::string before = {};                         // what to say about the client that is asked before this one

    [[nodiscard]] bool Runs() const {
        const char* const program = family == TESSEL_FAMILY_INET6 ? "udhcpc6" : "udhcpc";
        return !FindProcesses(program, Format("-i {} ", interface)).empty();
    }
    // Starts it, or has it renew its lease.
    [[nodiscard]] int Start(i32 receiver) const {
        return tessel_dhcpc_start(family, interface.c_str(), withDns, receiver);
    }
    [[nodiscard]] std::string WhyNotStarted() const {
        const char* const other = family == TESSEL_FAMILY_INET6 ? ", or there is no link-local address" : "";
        std::string why = MissingInterface(interface);
        if (why.empty())
            why = Format("no {} client came up on {} in time (tesselctl log follow){}", FamilyName(family), interface,
                         other);
        return why + before;
    }
};

// With `haveToRun`, those that do, and a Failure when there are none.
std::vector<Client> ClientsOf(const Invocation& invocation, bool haveToRun) {
    const std::string interface = invocation.words.Text("IF");
    const std::string dns = invocation.words.Text("dns");
    std::vector<Client> clients;
    for (const int family : FamiliesOf(invocation.options)) {
        Client client{.family = family,
                      .interface = interface,
                      .sockets = Format("{}_{}_", TESSEL_SOCKET_DHCPC, interface),
                      .withDns = dns.empty() ? -1 : static_cast<int>(dns == "on")};
        if (family == TESSEL_FAMILY_INET6) client.sockets = Format("{}_{}_6_", TESSEL_SOCKET_DHCPCV6, interface);
        for (const std::string& name : ListenedNames(client.sockets)) {
            const auto pid = ParseNumber(std::string_view(name).substr(client.sockets.size()));
            if (!pid) continue;
            client.pid = static_cast<i32>(*pid);
            client.listening = FindListeningProcess(name);
        }
        if (!clients.empty()) client.before = "; the inet client has been started and keeps running";
        if (!haveToRun || invocation.options.force || client.Runs()) clients.push_back(std::move(client));
    }
    if (!clients.empty()) return clients;
    throw Refused(invocation.asked, Format("no DHCP client runs on {0} (dhcp start {0})", interface));
}

Outcome PerformEach(const Invocation& invocation, const std::vector<Client>& clients, const std::string& done,
                    const std::function<int(const Client&)>& send,
                    const std::function<std::string(const Client&)>& cause) {
    const auto sendAll = [&] {
        for (const Client& client : clients)
            Require(invocation.asked, send(client), cause(client));
        return int{TESSEL_OK};
    };
    const std::string families = clients.size() == 1 ? FamilyName(clients.front().family) : "inet, inet6";
    const std::string& interface = clients.front().interface;
    return Perform(invocation, {.send = sendAll, .done = Format("{}: {} ({})", interface, done, families)});
}

Outcome WatchLeases(const Invocation& invocation, const std::vector<Client>& clients) {
    Watch watch;
    for (const Client& client : clients) {
        if (client.listening && !invocation.options.take)
            throw Refused(invocation.asked,
                          Format("{} gets the leases of {} {} (--take has them sent here meanwhile)",
                                 ListeningText(*client.listening), client.interface, FamilyName(client.family)));
        watch.sockets.push_back({.name = Format("{}{}", client.sockets, getpid()),
                                 .start = [&] { return client.Start(getpid()); },
                                 .cause = client.WhyNotStarted()});
        // The client stays; its leases go back to where they went before.
        if (client.listening) watch.sockets.back().stop = [&] { return client.Start(client.pid); };
    }
    if (!invocation.words.Has("wait-lease")) return RunWatch(invocation, watch);
    bool hasLease = false;
    watch.onEvent = [&](const ShownEvent& event) {
        ShowLine(invocation, event);
        hasLease = event.kind == TESSEL_EVENT_DHCP_LEASE;
        return !hasLease;
    };
    watch.deadline = std::chrono::milliseconds(invocation.options.timeoutMs);
    Outcome outcome = RunWatch(invocation, watch);
    const bool isOver = hasLease || invocation.options.dryRun || outcome.failure || outcome.signal != 0;
    if (!isOver) outcome.failure = CallFailed(invocation.asked, TESSEL_E_TIMEOUT);
    return outcome;
}

Outcome StartDhcp(const Invocation& invocation) {
    const auto clients = ClientsOf(invocation, false);
    const Words& words = invocation.words;
    const auto named = static_cast<i32>(words.Get<u32>("notify-pid", 0));
    const bool isWatched = words.Has("watch") || words.Has("wait-lease");
    if (isWatched && named != 0) throw Refused(invocation.asked, "one process gets the leases: watch, or notify-pid");
    if (isWatched) return WatchLeases(invocation, clients);
    const auto send = [&](const Client& client) { return client.Start(named != 0 ? named : client.pid); };
    Outcome outcome = PerformEach(invocation, clients, "DHCP client started", send, &Client::WhyNotStarted);
    for (const Client& client : clients) {
        if (!client.listening) continue;
        const char* const gets = named == 0 || named == client.pid ? "still gets" : "no longer gets";
        outcome.notes.push_back(Format("{} {} the leases of {} {}", ListeningText(*client.listening), gets,
                                       client.interface, FamilyName(client.family)));
    }
    return outcome;
}

Outcome StopDhcp(const Invocation& invocation) {
    std::vector<std::string> families;
    const auto send = [&](const Client& client) {
        if (client.Runs()) families.push_back(FamilyName(client.family));
        return tessel_dhcpc_stop(client.family, client.interface.c_str());
    };
    const auto cause = [](auto& client) { return FamilyName(client.family) + ": its client had ended by itself"; };
    Outcome outcome = PerformEach(invocation, ClientsOf(invocation, false), "no DHCP client ran", send, cause);
    if (!families.empty())
        outcome.done = Format("{}: DHCP client stopped ({})", invocation.words.Text("IF"), Joined(families, ", "));
    return outcome;
}

Outcome RenewDhcp(const Invocation& invocation) {
    const bool isNative = invocation.words.Has("native");
    const auto send = [&](const Client& client) {
        return isNative ? tessel_dhcpc_renew(client.family, client.interface.c_str()) : client.Start(client.pid);
    };
    const auto cause = [&](const Client& client) {
        return isNative ? "this request does nothing and always fails (leave out \"native\")" : client.WhyNotStarted();
    };
    return PerformEach(invocation, ClientsOf(invocation, !isNative), "asked to renew its lease", send, cause);
}

Outcome WatchDhcp(const Invocation& invocation) {
    return WatchLeases(invocation, ClientsOf(invocation, true));
}

std::string SocketOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? TESSEL_SOCKET_NTPV6 : TESSEL_SOCKET_NTP;
}

Outcome StartNtp(const Invocation& invocation) {
    const auto& server = invocation.words.Get<Network>("A");
    const u32 interval = invocation.words.Get<u32>("every");
    const TNetGateway record = GatewayOf(server);
    const auto send = [&] { return tessel_ntp_start(&record, interval); };
    if (invocation.words.Has("watch"))
        return RunWatch(invocation, {.sockets = {{.name = SocketOf(server.family), .start = send}}});
    Change change{.send = send, .read = [&] { return Json{{"address", HostText(server)}, {"interval_s", interval}}; }};
    change.cause = [&] {
        const int digit = server.family == TESSEL_FAMILY_INET6 ? 6 : 4;
        return Format("an NTP client for {} is already running (ntp stop -{})", FamilyName(server.family), digit);
    };
    change.done = Format("{} is asked for the time every {} (\"ntp watch\" shows the answers)", HostText(server),
                         HumanDuration(interval));
    return Perform(invocation, change);
}

Outcome StopNtp(const Invocation& invocation) {
    std::vector<std::string> names;
    const auto send = [&] {
        for (const int family : FamiliesOf(invocation.options)) {
            Require(invocation.asked, tessel_ntp_stop(family));
            names.push_back(FamilyName(family));
        }
        return int{TESSEL_OK};
    };
    Outcome outcome = Perform(invocation, {.send = send, .read = [&] { return Json{{"stopped", names}}; }});
    outcome.done = Format("no NTP client runs any more ({})", Joined(names, ", "));
    return outcome;
}

// Not Perform: that nobody answered is the answer.
Outcome CheckServer(const Invocation& invocation) {
    const auto& server = invocation.words.Get<Network>("A");
    const TNetGateway record = GatewayOf(server);
    const int error = tessel_ntp_check(&record);
    if (error != TESSEL_E_FAILED) Require(invocation.asked, error);
    Outcome outcome{.document = {{"address", HostText(server)}, {"answered", error == TESSEL_OK}},
                    .done = HostText(server) + " answers"};
    if (error != TESSEL_OK)
        outcome.failure = Failure{kExitFailed, "no_answer", invocation.asked + ": no answer within 100 ms"};
    return outcome;
}

Outcome WatchNtp(const Invocation& invocation) {
    Watch watch;
    for (const int family : FamiliesOf(invocation.options))
        watch.sockets.push_back({.name = SocketOf(family)});
    return RunWatch(invocation, watch);
}

constexpr Command kDhcpCommands[] = {
    FamilyRow("start", "IF [dns SWITCH=on|off] [watch] [wait-lease] [notify-pid N:1-4194304]", &StartDhcp,
              "start a DHCP client, or take over a running one", "dhcp start eth0 -4 wait-lease")
        .Sends(TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_START_EX)
        .More("Only one process receives the leases: the one that listens, the one given with \"notify-pid\", or "
              "tesselctl with \"watch\" (until interrupted) or \"wait-lease\" (until the first, or --timeout)."),
    FamilyRow("stop", "IF", &StopDhcp, "end the DHCP client", "dhcp stop eth0").Sends(TESSEL_CMD_DHCPC_STOP),
    FamilyRow("renew", "IF [native]", &RenewDhcp, "make the running client renew its lease", "dhcp renew eth0 -4")
        .Sends(TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_RENEW)
        .More("Repeats the start request, which is the way that works; \"native\" sends the request meant for this."),
    FamilyRow("watch", "IF", &WatchDhcp, "show the leases of the running client", "dhcp watch eth0")
        .Sends(TESSEL_CMD_DHCPC_START)
        .More("Repeats the start request: the client renews its lease, and its leases are reported here."),
};

constexpr Command kNtpCommands[] = {
    Row("start", "A every S:1- [watch]", &StartNtp, "keep the clock in step", "ntp start 192.168.1.5 every 1h")
        .Sends(TESSEL_CMD_NTPC_START)
        .More("Sets the system and the hardware clock. Each family has one client, which outlives \"watch\"."),
    FamilyRow("stop", "", &StopNtp, "leave the clock alone", "ntp stop")
        .Sends(TESSEL_CMD_NTPC_STOP)
        .More("May take up to 11 seconds while the client waits for a server."),
    Row("check", "A", &CheckServer, "ask a server once, without setting the clock", "ntp check 192.168.1.5")
        .Sends(TESSEL_CMD_NTPC_CHECK)
        .More("A server that takes longer than 100 ms counts as not answering."),
    FamilyRow("watch", "", &WatchNtp, "show results as they arrive, without starting anything", "ntp watch"),
};

}  // namespace

extern const Object kDhcp = {.name = "dhcp", .summary = "DHCP clients", .commands = kDhcpCommands};
extern const Object kNtp = {.name = "ntp", .summary = "the clock, by NTP", .commands = kNtpCommands};

}  // namespace tessel::ctl
