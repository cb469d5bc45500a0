// DHCP servers. For the daemon, one that ended by itself runs until it is stopped: processes are checked too.
#include <unistd.h>

#include "client/ctl/device.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

constexpr char kServer[] = "udhcpd";
constexpr char kFiles[] = "/usr/etc/udhcpd4_";  // the daemon's, followed by the interface

// With `awaited` there should soon be a process, or none.
Json StatusOf(const std::string& asked, const std::string& name, std::optional<bool> awaited = {}) {
    int isServing = 0;
    Require(asked, tessel_dhcpd_status(name.c_str(), &isServing));
    const std::string file = kFiles + name + ".conf";
    const auto pids = awaited ? AwaitProcesses(kServer, *awaited, file) : FindProcesses(kServer, file);
    const std::string pidFile = kFiles + name + ".pid";
    std::string remark;
    if (isServing != 0 && pids.empty()) remark = "its server has exited: run \"dhcpd stop\" before starting it again";
    if (isServing == 0 && !pids.empty())
        remark = Format("udhcpd runs ({}), not known to the daemon: end it with \"dhcpd stop all\"", PidsText(pids));
    return {{"interface", name},
            {"serving", isServing != 0},
            {"pid", pids.empty() ? Json() : Json(pids.front())},
            {"pid_file", access(pidFile.c_str(), F_OK) == 0 ? Json(pidFile) : Json()},
            {"remark", NullIfEmpty(remark)}};
}

// Checked after a call: interfaces missing here say nothing about a daemon that sees others.
void RequireInterface(const std::string& asked, const std::string& name) {
    const std::string missing = ForeignKernel().empty() ? MissingInterface(name) : "";
    if (!missing.empty()) throw Refused(asked, missing);
}

Outcome ShowDhcpd(const Invocation& invocation) {
    const std::string only = invocation.words.Text("IF");
    Outcome outcome{.document = Json::array()};
    ForEachInterface(only, outcome, [&](const std::string& name) {
        if (name != "lo") outcome.document.push_back(StatusOf(invocation.asked, name));
    });
    RequireInterface(invocation.asked, only);
    return outcome;
}

Outcome StartDhcpd(const Invocation& invocation) {
    const Words& words = invocation.words;
    const std::string name = words.Text("IF");
    const auto first = words.Get<Network>("range");
    const auto last = words.Get<Network>("A/L");
    auto servers = words.All<Network>("dns");
    if (servers.size() > TESSEL_DHCP_DNS_MAX) throw Refused(invocation.asked, "more than 64 DNS servers");
    TNetDhcpsConf conf{};
    for (const Network& server : servers)
        conf.atDns[conf.dwDnsNum++] = GatewayOf(server);
    conf.tStart = GatewayOf(first);
    conf.tEnd = GatewayOf(last);
    conf.dwPrefixLen = last.length;
    conf.tRouter = GatewayOf(words.Get<Network>("router"));
    servers.insert(servers.end(), {first, last, words.Get<Network>("router")});
    for (const Network& address : servers)
        if (address.family != TESSEL_FAMILY_INET) throw Refused(invocation.asked, "there is no server for IPv6");
    const std::string range = Format("{} to {}", HostText(first), NetworkText(last));
    if (!Covers(Masked(last), first) || first.bytes > last.bytes)
        throw Refused(invocation.asked, range + " is no range within one network");
    const Json before = StatusOf(invocation.asked, name);
    RequireInterface(invocation.asked, name);
    if (before["serving"]) throw Refused(invocation.asked, Format("it is already served (dhcpd stop {})", name));
    if (!before["pid"].is_null()) throw Refused(invocation.asked, TextOf(before, "remark"));
    Change change{.send = [&] { return tessel_dhcpd_start(name.c_str(), &conf); }};
    change.read = [&] { return StatusOf(invocation.asked, name, true); };
    change.wrong = [&](const Json& now) {
        if (!now["pid"].is_null()) return std::string();
        return Format("its {0} has exited: does {1} have an address? (dhcpd stop {1} first)", kServer, name);
    };
    change.done = Format("{}   {} are handed out", name, range);
    return Perform(invocation, change);
}

Outcome StopAll(const Invocation& invocation) {
    const auto pids = FindProcesses(kServer);
    if (pids.size() > FindProcesses(kServer, kFiles).size()) {
        const std::string what = Format("every {} ({}), also those of others", kServer, PidsText(pids));
        Agree(invocation, "Kill " + what, "it would kill " + what);
    }
    const auto read = [] { return Json{{"pids", AwaitProcesses(kServer, false)}}; };
    return Perform(invocation, {.send = &tessel_dhcpd_stop_all,
                                .read = read,
                                .wrong = [](const Json& now) { return now["pids"].empty() ? "" : "one still runs"; },
                                .done = Format("every {} ended ({})", kServer, PidsText(pids))});
}

Outcome StopDhcpd(const Invocation& invocation) {
    const std::string name = invocation.words.Text("SERVER");
    if (name == "all") return StopAll(invocation);
    Change change{.send = [&] { return tessel_dhcpd_stop(name.c_str()); }, .done = name + "   not served any more"};
    change.read = [&] { return StatusOf(invocation.asked, name, false); };
    change.wrong = [](const Json& now) { return now["serving"] ? "it is still served" : TextOf(now, "remark"); };
    return Perform(invocation, change);
}

constexpr Command kDhcpdCommands[] = {
    Row("show", "[IF]", &ShowDhcpd, "which interfaces are served, by which process", "dhcpd show")
        .Sends(TESSEL_CMD_DHCPS_GET_STATUS)
        .Columns("INTERFACE {interface}|SERVING {serving}|PID {pid}|PID FILE {pid_file}| {remark}"),
    Row("start", "IF range A A/L router A [dns A]...", &StartDhcpd, "hand out IPv4 addresses on an interface",
        "dhcpd start eth1 range 192.168.2.100 192.168.2.150/24 router 192.168.2.1 dns 192.168.2.1")
        .Sends(TESSEL_CMD_DHCPS_START)
        .More("The interface needs an address in that network. Leases last a day. Without dns, 8.8.8.8 is given."),
    Row("stop", "SERVER=all|IF", &StopDhcpd, "stop the DHCP server of an interface, or all of them", "dhcpd stop eth1")
        .Sends(TESSEL_CMD_DHCPS_STOP, TESSEL_CMD_DHCPS_STOP_ALL)
        .More("\"all\" kills every udhcpd on the device, whoever started it. Leases are kept."),
};

}  // namespace

extern const Object kDhcpd = {.name = "dhcpd", .summary = "DHCP servers for IPv4", .commands = kDhcpdCommands};

}  // namespace tessel::ctl
