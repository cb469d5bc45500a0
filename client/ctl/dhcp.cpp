#include <unistd.h>

#include "client/call.h"
#include "client/ctl/kernel.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"
#include "client/ctl/watch.h"
#include "client/request_fields.h"

namespace tessel::ctl {

namespace {

struct Client {
    int family;
    std::string interface;
    std::string sockets;                             // how the names of its sockets begin; a pid follows
    std::optional<ListeningProcess> listening = {};  // who gets the leases
    i32 pid = getpid();                              // of that one, as its socket's name has it

    [[nodiscard]] bool IsInet6() const {
        return family == TESSEL_FAMILY_INET6;
    }
    [[nodiscard]] std::string Title() const {
        return Format("{} {}", interface, FamilyName(family));
    }
    [[nodiscard]] bool Runs() const {
        return !FindProcesses(IsInet6() ? "udhcpc6" : "udhcpc", Format("-i {} -s", interface)).empty();
    }
    // Starts it, or has it renew its lease; `dns` is "on", "off" or empty.
    [[nodiscard]] int Start(const std::string& dns, i32 receiver) const {
        if (!dns.empty()) return tessel_dhcpc_start(family, interface.c_str(), dns == "on" ? 1 : 0, receiver);
        return Send(TESSEL_CMD_DHCPC_START, TNetDhcpcStartReq{.wSinFamily = 0, .achDevName = {}, .nPid = receiver});
    }
    template <typename Request>
    [[nodiscard]] int Send(u32 code, Request request) const {
        request.wSinFamily = static_cast<u16>(family);
        if (!StoreName(request.achDevName, interface.c_str())) return TESSEL_E_ARGUMENT;
        return CallForStatus(code, request);
    }
    // Why it did not start.
    [[nodiscard]] std::string Cause() const {
        const std::string missing = MissingInterface(interface);
        if (!missing.empty()) return missing;
        return Format("no {} client came up on {} within some seconds{}", FamilyName(family), interface,
                      IsInet6() ? ", or there is no link-local address" : "");
    }
};

std::vector<Client> ClientsOf(const Invocation& invocation) {
    const std::string interface = invocation.words.Text("IF");
    std::vector<Client> clients;
    for (const int family : FamiliesOf(invocation.options)) {
        Client client{.family = family, .interface = interface, .sockets = {}};
        client.sockets = client.IsInet6() ? Format("{}_{}_6_", TESSEL_SOCKET_DHCPCV6, interface)
                                          : Format("{}_{}_", TESSEL_SOCKET_DHCPC, interface);
        for (const std::string& name : ListenedNames(client.sockets)) {
            const auto pid = ParseNumber(std::string_view(name).substr(client.sockets.size()));
            if (!pid) continue;
            client.pid = static_cast<i32>(*pid);
            client.listening = FindListeningProcess(name);
        }
        clients.push_back(std::move(client));
    }
    return clients;
}

std::vector<Client> RunningClientsOf(const Invocation& invocation) {
    auto clients = ClientsOf(invocation);
    if (!invocation.options.force) std::erase_if(clients, [](const Client& client) { return !client.Runs(); });
    if (!clients.empty()) return clients;
    const std::string interface = invocation.words.Text("IF");
    throw Refused(invocation.asked,
                  Format("no DHCP client runs on {} (start one: tesselctl dhcp start {})", interface, interface));
}

// One request after the other; a failure's cause is that of the one that failed.
Outcome PerformEach(const Invocation& invocation, const std::vector<Client>& clients, const std::string& done,
                    const std::function<int(const Client&)>& send,
                    const std::function<std::string(const Client&)>& cause) {
    const Client* last = nullptr;
    const std::string families = clients.size() == 1 ? FamilyName(clients.front().family) : "inet, inet6";
    const auto sendAll = [&] {
        int error = TESSEL_OK;
        for (const Client& client : clients) {
            if (error == TESSEL_OK) error = send(*(last = &client));
        }
        return error;
    };
    return Perform(invocation, {.send = sendAll,
                                .cause = [&] { return cause(*last); },
                                .done = Format("{}: {} ({})", clients.front().interface, done, families)});
}

Outcome WatchLeases(const Invocation& invocation, const std::vector<Client>& clients) {
    const std::string dns = invocation.words.Text("dns");
    Watch watch;
    for (const Client& client : clients) {
        if (client.listening && !invocation.options.take) {
            throw Refused(invocation.asked, Format("{} gets the leases of {} (--take has them sent here meanwhile)",
                                                   ListeningText(*client.listening), client.Title()));
        }
        const auto start = [&] {
            const int error = client.Start(dns, getpid());
            if (error == TESSEL_E_FAILED) throw CallFailed(invocation.asked, error, client.Cause());
            return error;
        };
        WatchedSocket socket{.name = Format("{}{}", client.sockets, getpid()), .start = start};
        // The client stays; its leases go back to where they went before.
        if (client.listening) socket.stop = [&] { return client.Start(dns, client.pid); };
        watch.sockets.push_back(std::move(socket));
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
    const auto clients = ClientsOf(invocation);
    const Words& words = invocation.words;
    if (words.Has("watch") || words.Has("wait-lease")) return WatchLeases(invocation, clients);
    const auto receiver = [&](const Client& client) {
        return static_cast<i32>(words.Get<u32>("notify-pid", static_cast<u32>(client.pid)));
    };
    std::vector<std::string> notes;
    for (const Client& client : clients) {
        if (!client.listening) continue;
        notes.push_back(Format("{} {} the leases of {}", ListeningText(*client.listening),
                               receiver(client) == client.pid ? "still gets" : "no longer gets", client.Title()));
    }
    Outcome outcome = PerformEach(
        invocation, clients, "DHCP client started",
        [&](const Client& client) { return client.Start(words.Text("dns"), receiver(client)); },
        [](const Client& client) { return client.Cause(); });
    outcome.notes = std::move(notes);
    return outcome;
}

Outcome StopDhcp(const Invocation& invocation) {
    return PerformEach(
        invocation, ClientsOf(invocation), "no DHCP client",
        [](const Client& client) { return tessel_dhcpc_stop(client.family, client.interface.c_str()); },
        [](const Client& client) { return Format("the {} client had ended by itself", FamilyName(client.family)); });
}

Outcome Renew(const Invocation& invocation) {
    const bool isNative = invocation.words.Has("native");
    return PerformEach(
        invocation, isNative ? ClientsOf(invocation) : RunningClientsOf(invocation), "asked to renew its lease",
        [&](const Client& client) {
            return isNative ? client.Send(TESSEL_CMD_DHCPC_RENEW, TNetDhcpcReq{}) : client.Start("", client.pid);
        },
        [&](const Client& client) {
            return isNative ? "this request does nothing, and always fails (leave \"native\" out)" : client.Cause();
        });
}

Outcome WatchRunning(const Invocation& invocation) {
    return WatchLeases(invocation, RunningClientsOf(invocation));
}

constexpr Command kDhcpCommands[] = {
    Row("start", "IF [dns SWITCH=on|off] [watch] [wait-lease] [notify-pid N:1-4194304]", &StartDhcp,
        "start a DHCP client, or take over the one that runs", "dhcp start eth0 -4 wait-lease")
        .Sends(TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_START_EX)
        .OfFamily()
        .More("Of both families without -4 and -6. Leases are reported to one process: the one that listens, "
              "tesselctl itself with \"watch\" (until interrupted) and \"wait-lease\" (until there is one, or "
              "--timeout is over), or the one that \"notify-pid\" names."),
    Row("stop", "IF", &StopDhcp, "end the DHCP client of an interface", "dhcp stop eth0")
        .Sends(TESSEL_CMD_DHCPC_STOP)
        .OfFamily(),
    Row("renew", "IF [native]", &Renew, "have the client that runs renew its lease", "dhcp renew eth0 -4")
        .Sends(TESSEL_CMD_DHCPC_START, TESSEL_CMD_DHCPC_RENEW)
        .OfFamily()
        .More("Repeats the start, which is what works; \"native\" sends the request that is meant for it."),
    Row("watch", "IF", &WatchRunning, "show the leases of the client that runs, until interrupted", "dhcp watch eth0")
        .Sends(TESSEL_CMD_DHCPC_START)
        .OfFamily()
        .More("Repeats the start: the client renews its lease, and reports come here."),
};

}  // namespace

extern const Object kDhcp = {.name = "dhcp", .summary = "DHCP clients", .commands = kDhcpCommands};

}  // namespace tessel::ctl
