// What comes in notices: how it is shown, who may listen, and that everything started is ended again.
#include "client/ctl/watch.h"

#include <linux/if_ether.h>

#include "client/event_names.h"
#include "core/ipc.h"
#include "tests/ctl/tool.h"
#include "tests/support/arp.h"
#include "tests/support/dhcp.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

using std::filesystem::exists;

std::optional<ShownEvent> Show(const char* socket, u32 type, std::string_view payload) {
    const EventName name = FindEventName(socket, type);
    tessel_event event{.kind = name.kind, .name = name.name, .type = type, .size = 0, .payload = {}};
    event.size = static_cast<u32>(payload.copy(reinterpret_cast<char*>(event.payload), sizeof(event.payload)));
    return ShowEvent(event, socket, WallTime{});
}

TEST(Events, EveryKindHasItsFieldsAndItsLine) {
    const TNetPingResult echo{.nUserId = 7, .dwTtl = 64, .dwTime = 412, .dwSeq = 2, .dwLast = 1};
    const TNetTracerouteResult probe{Address("10.1.0.2"), 3, 7, 12345, {}, 0};
    const TNetTracerouteResult silent{{}, 3, 7, 5000000, {}, 1};
    TNetDhcpcLease lease{"eth0", Address("10.0.0.7"), Address("10.0.0.1"), 24, 93600, 2, {}};
    lease.atDns[0] = lease.atDns[1] = Address("10.0.0.1");
    const TNetDhcpcLease none{"eth0", {}, {}, 0, 0, 0, {}};
    const TNetConflictReport conflict{"eth0", Address("192.168.1.20"), {2, 0, 0, 0, 0, 1}};
    TNetRouterNotify router{.achDevName = "eth0", .tIfaceIp = {}, .tGateway = Address("fe80::1")};
    router.tIfaceIp.dwNum = 1;
    router.tIfaceIp.atIp[0] = {4, 10, 0, {0x20, 1}, 64, 0, 0};
    const TNetBandwidthReport bandwidth{{{12345678, 999, 1, 0}, {~u64{0}, 5, 1, 0}, {}}};
    const i32 slow = -3;
    const std::string unknown = "\"address\":null,\"prefix_length\":null,\"gateway\":null,\"lease_s\":null,\"dns\":[]}";
    const std::tuple<const char*, u32, std::string_view, std::string, std::string> cases[] = {
        // socket, type and payload; the line behind the clock, and the fields of the document
        {"ipc_ping_7", 0, Bytes(echo), "ping      id 7  seq 2  ttl 64  0.41 ms",
         R"({"id":7,"seq":2,"ttl":64,"rtt_us":412,"last":true})"},
        {"ipc_ping_7", 1, Bytes(echo), "ping      id 7  seq 2  no reply",
         R"({"id":7,"seq":2,"ttl":null,"rtt_us":null,"last":true})"},
        {"ipc_ping_7", 2, Bytes(echo), "ping      id 7  seq 2  ping printed nothing", ""},
        {"ipc_ping_7", 3, Bytes(echo), "ping      id 7  seq 2  the network is unreachable", ""},
        {"ipc_traceroute_7", 101, Bytes(silent), "trace     id 7  hop 3  could not be sent, or ", ""},
        {"ipc_traceroute_7", 102, Bytes(silent), "trace     id 7  hop 3  no answer",
         R"({"id":7,"hop":3,"address":null,"rtt_us":null,"last":true})"},
        {"ipc_traceroute_7", 103, Bytes(probe), "trace     id 7  hop 3  10.1.0.2  12.3 ms",
         R"({"id":7,"hop":3,"address":"10.1.0.2","rtt_us":12345,"last":false})"},
        {"ipc_traceroute_7", 104, Bytes(probe), "trace     id 7  hop 3  10.1.0.2  12.3 ms  reached", ""},
        {"ipc_traceroute_7", 105, Bytes(silent), "trace     id 7  hop 3  not sent: there is no route", ""},
        {"ipc_traceroute_7", 106, Bytes(probe), "10.1.0.2  12.3 ms  the target cannot be reached", ""},
        {"ipc_dhcpc_eth0_1", 0x505, Bytes(lease),
         "dhcp      eth0  lease 10.0.0.7/24 gateway 10.0.0.1 dns 10.0.0.1 10.0.0.1 for 1d 2h",
         R"({"interface":"eth0","family":"inet","address":"10.0.0.7","prefix_length":24,"gateway":"10.0.0.1",)"
         R"("lease_s":93600,"dns":["10.0.0.1","10.0.0.1"]})"},
        {"ipc_dhcpcv6_eth0_6_1", 0x506, Bytes(none), "dhcp      eth0  no inet6 lease, or it was refused",
         R"({"interface":"eth0","family":"inet6",)" + unknown},
        {"ipc_dhcpc_eth0_1", 0, Bytes(none), "dhcp      eth0  the inet lease has gone",
         R"({"interface":"eth0","family":"inet",)" + unknown},
        {"ipc_ntpv6", 1, Bytes(slow), "ntp       inet6: the clock was off by -3 s",
         R"({"family":"inet6","deviation_s":-3})"},
        {"ipc_ntp", 2, "", "ntp       inet: no useful answer", R"({"family":"inet","deviation_s":null})"},
        {"ipc_ip_conflict", 1, Bytes(conflict),
         "conflict  eth0  192.168.1.20 is used by another host (reported again every 5 s while it lasts)",
         R"({"interface":"eth0","family":"inet","address":"192.168.1.20","interface_mac":"02:00:00:00:00:01"})"},
        {"ipc_ipv6_conflict", 2, Bytes(conflict),
         "conflict  eth0  its hardware address 02:00:00:00:00:01 is used by another host", ""},
        {"ipc_router_notify_eth0_0_1", 0, Bytes(router), "ra        eth0  addresses 2001::/64 gateway fe80::1",
         R"({"interface":"eth0","addresses":["2001::/64"],"gateway":"fe80::1"})"},
        {"ipc_stat", 0, Bytes(bandwidth), "traffic   eth0  sends  12.3 Mbit/s  receives    999 bit/s",
         R"({"interfaces":[{"interface":"eth0","send_bps":12345678,"receive_bps":999,"valid":true},)"
         R"({"interface":"eth1","send_bps":null,"receive_bps":null,"valid":false},)"
         R"({"interface":"eth2","send_bps":null,"receive_bps":null,"valid":false}]})"},
    };
    EXPECT_EQ(std::size(cases), std::size_t{TESSEL_EVENT_TRAFFIC});
    int kind = 0;
    for (const auto& [socket, type, payload, line, fields] : cases) {
        SCOPED_TRACE(line);
        auto shown = Show(socket, type, payload);
        ASSERT_TRUE(shown.has_value());
        EXPECT_EQ(shown->kind, ++kind);
        EXPECT_THAT(shown->line, HasSubstr(line));
        EXPECT_EQ(shown->document["time"], "1970-01-01T00:00:00.000Z");
        EXPECT_EQ(shown->document["source"], socket);
        for (const char* key : {"time", "event", "source"})
            shown->document.erase(key);
        EXPECT_TRUE(fields.empty() || shown->document.dump() == fields) << shown->document;
        EXPECT_FALSE(Show(socket, type, std::string(payload) + "x").has_value());
    }
    EXPECT_FALSE(Show("ipc_ip_conflict", 3, Bytes(conflict)).has_value());
}

// The tool in a thread of its own, its output in a pipe.
class Watching {
  public:
    explicit Watching(const std::string& line) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        read_ = fdopen(ends[0], "r");
        thread_ = std::thread([this, line, out = fdopen(ends[1], "w")] {
            status_ = RunTool(WordsIn(line), out, err_);
            fclose(out);
        });
    }

    [[nodiscard]] std::string Line() {
        char line[512] = "";
        return fgets(line, sizeof(line), read_) == nullptr ? "" : line;
    }
    void StopReading() {
        fclose(read_);
    }
    // These give standard error.
    std::string EndsBy(int signal) {
        EXPECT_EQ(pthread_kill(thread_.native_handle(), signal), 0);
        return EndsWith(128 + signal);
    }
    std::string EndsWith(int status) {
        thread_.join();
        EXPECT_EQ(status_, status);
        return Contents(err_);
    }

  private:
    std::FILE* read_;
    std::FILE* err_ = tmpfile();
    int status_ = -1;
    std::thread thread_;
};

TEST(Ping, LooksAsPeopleKnowItAndLeavesNothingBehind) {
    PrepareLinks();
    const Daemon daemon;
    EXPECT_THAT(Printed("ping 192.168.1.1 count 2"),
                MatchesRegex("192.168.1.1: seq 0  ttl 64  [0-9.]+ ms\n192.168.1.1: seq 1  ttl 64  [0-9.]+ ms\n"
                             "2 sent, 2 answered, 0% lost, [0-9.]+ / [0-9.]+ / [0-9.]+ ms\n"));
    ExpectAll({{"ping 192.168.1.9 count 1 timeout 1", 1, "1 sent, 0 answered, 100% lost\n"},
               {"ping 203.0.113.1 count 1", 1, "the network is unreachable"},
               {"ping 192.168.1.1 count 0", 2, "\"0\" is not a number from 1"},
               {"ping 192.168.1.300", 2, "not a valid address"},
               {"ping 192.168.1.1 count 1 -n", 0, "listens on ipc_ping_"},
               {"ping stop 7", 0, "ping 7 stopped"}});
    EXPECT_THAT(Printed("ping 192.168.1.1 count 1 -j"),
                MatchesRegex("\\{.*\"event\":\"ping_reply\",.*}\n\\{.*\"lost_percent\":0[,}].*\n"));
    EXPECT_EQ(Printed("ping 192.168.1.1 count 2 -g seq"), "0\n1\n");
    // An interrupted one is stopped: the next one of the same id can start.
    Watching watching("ping 192.168.1.9 count 100 timeout 1");
    EXPECT_THAT(watching.Line(), HasSubstr("no reply"));
    EXPECT_THAT(watching.EndsBy(SIGINT), IsEmpty());
    ExpectAll({{"ping 192.168.1.1 count 1", 0, "1 answered"}});
    EXPECT_FALSE(exists("/tmp/ipc_ping_" + std::to_string(getpid())));
}

TEST(Ping, ADaemonThatReportsNothingOrHangsHoldsNobody) {
    StandInTools tools({"ping"});
    tools.Answer("ping -c 1 -s 56 -t 64 -W 1 192.168.1.1",
                 "64 bytes from 192.168.1.1: icmp_seq=1 ttl=64 time=200000 ms\n");
    const Daemon daemon;
    ExpectAll({{"ping 192.168.1.1 count 1 timeout 1", 1, "0 sent, 0 answered\n"}});
    EXPECT_EQ(tools.TakeRuns().size(), 1U);
    kill(daemon.Pid(), SIGSTOP);
    EXPECT_EQ(OutputOf("timeout --preserve-status -s INT -k 9 1 " TESSEL_CTL_PATH " ping 192.168.1.1; echo $?"),
              "0 sent, 0 answered\n130\n");
    kill(daemon.Pid(), SIGCONT);
}

TEST(Traceroute, ALineAHop) {
    PrepareLinks();
    const Daemon daemon;
    for (int i = 0; i < 2; ++i)  // the id is free again
        EXPECT_THAT(Printed("traceroute 192.168.1.1"), MatchesRegex("  1  192.168.1.1  [0-9.]+ ms\n"));
    ExpectAll({{"traceroute 203.0.113.1", 1, "no route\ntesselctl: traceroute 203.0.113.1: there is no route\n"},
               {"traceroute stop 7", 0, "trace 7 stopped"}});
    EXPECT_EQ(Printed("traceroute 192.168.1.1 -g event"), "trace_reached\n");
    Prepare({"ip route add 10.0.0.0/8 via 192.168.1.1", "ip -n far route add unreachable 10.9.0.0/16",
             "ip -n far route add blackhole 10.10.0.0/16",
             "ip netns exec far sh -c 'echo 1 > /proc/sys/net/ipv4/ip_forward'"});
    ExpectAll({{"traceroute 10.10.0.1 hops 1", 1, "  1  *  *  *\n"},
               {"traceroute 10.9.0.1", 1, " ms refused\n"},
               {"traceroute 10.9.0.1", 1, "hop 1, 192.168.1.1, reports that the target cannot be reached"}});
}

TEST(Traffic, IsSwitchedOffUnlessSomebodyElseHasStartedIt) {
    const Daemon daemon;
    ExpectAll({{"traffic watch count 1 -g valid", 0, "true\ntrue\ntrue\n"}});
    const ToolRun run = RunLine("traffic watch count 2");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, ContainsRegex("  traffic   eth0  sends .*it/s  receives .*it/s\n.*  traffic   eth1 "));
    Listener listener("ipc_stat");
    int reports = 0;
    while (reports < 3 && listener.Next(2500) == 0)
        ++reports;
    EXPECT_LE(reports, 1) << "of the period that ran, unless it was over before somebody listened";
    ASSERT_EQ(tessel_traffic_start(2), TESSEL_OK);
    ExpectAll({{"traffic watch count 1", 2, kThisProgram + " is listening on ipc_stat (--take"},
               {"traffic stop", 2, "would get no more"},
               {"traffic watch count 2 --take", 0, "reports come every 2 s"}});
    Listener again("ipc_stat");
    EXPECT_EQ(again.Next(), 0);
    EXPECT_EQ(again.Next(), 0) << "it goes on, beyond the period that ran";
    ExpectAll({{"traffic stop --force", 0, "end with the current period"}});
}

// Somebody on the link who says that an address of the device is his.
void Claim(const FarLink& link) {
    link.Send(Frame(kBroadcast, kPeerMac, Arp(1, kPeerMac, kFirst, kNoMac, kFirst)));
}

TEST(Conflict, IsReportedUntilInterrupted) {
    PrepareLinks();
    const FarLink link("far0", ETH_P_ARP);
    const Daemon daemon;
    Watching watching("conflict watch -4");
    ASSERT_TRUE(Eventually([] { return exists("/tmp/ipc_ip_conflict"); }));
    EXPECT_TRUE(IpcCallbackSendAndRecv("ipc_ip_conflict", 3, nullptr, 0, nullptr, 0) == 0);
    std::thread claims([&] {
        for (int i = 0; i < 3; ++i) {
            Claim(link);
            std::this_thread::sleep_for(300ms);
        }
    });
    EXPECT_THAT(watching.Line(), ContainsRegex("  conflict  eth0  192.168.1.20 is used by another host"));
    claims.join();
    ExpectAll({{"conflict watch -4", 2, kThisProgram + " is listening on ipc_ip_conflict (--take"},
               {"conflict off", 2, kThisProgram + " is listening on ipc_ip_conflict and would"}});
    EXPECT_THAT(watching.EndsBy(SIGTERM), HasSubstr("connections that brought no event: 1"));
    EXPECT_FALSE(exists("/tmp/ipc_ip_conflict"));
    // The same when the daemon is busy: it gets to both requests later.
    kill(daemon.Pid(), SIGSTOP);
    EXPECT_EQ(OutputOf("timeout --preserve-status -s TERM 1 " TESSEL_CTL_PATH " conflict watch -4; echo $?"), "143\n");
    kill(daemon.Pid(), SIGCONT);
    EXPECT_FALSE(exists("/tmp/ipc_ip_conflict"));
    ExpectAll({{"priority", 0, ""}});
    // They are off again.
    const auto listener = OpenListener("ipc_ip_conflict");
    Claim(link);
    tessel_event event;
    EXPECT_EQ(tessel_listener_next(listener.get(), &event, 3000), TESSEL_E_TIMEOUT);
    const Json on = DocumentOf("conflict on");
    EXPECT_EQ(on[0]["listener"]["pid"], getpid());
    EXPECT_EQ(on[1]["listener"], nullptr);
    EXPECT_THAT(RunLine("conflict on -6").err, HasSubstr("nobody is listening on ipc_ipv6_conflict"));
    // With --take what somebody else has started goes on.
    Watching taking("conflict watch -4 --take");
    ASSERT_TRUE(Eventually([&] { return tessel_listener_has_name(listener.get()) == 0; }));
    Claim(link);
    EXPECT_THAT(taking.Line(), HasSubstr("192.168.1.20"));
    taking.StopReading();
    EXPECT_THAT(taking.EndsWith(128 + SIGPIPE), HasSubstr("nothing is started or stopped here"));
    ExpectAll({{"conflict off --force", 0, "no more"}});
}

TEST(Watch, GoesOnWithTheNextDaemon) {
    ExpectAll({{"conflict watch", 3, "not running"}, {"ping 10.0.0.1", 3, "not running"}});
    auto daemon = std::make_unique<Daemon>();
    Watching watching("traffic watch");
    EXPECT_THAT(watching.Line(), HasSubstr("traffic"));
    daemon.reset();
    std::this_thread::sleep_for(1500ms);
    daemon = std::make_unique<Daemon>();
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(watching.Line(), HasSubstr("traffic"));
    EXPECT_THAT(watching.EndsBy(SIGHUP),
                MatchesRegex(".*the daemon has ended; waiting for the next one\nnote: a new daemon is running.*\n"));
    // A ping does not go on.
    PrepareLinks();
    Watching ping("ping 192.168.1.9 count 99 timeout 1");
    EXPECT_THAT(ping.Line(), HasSubstr("no reply"));
    daemon.reset();
    EXPECT_THAT(ping.EndsWith(kExitNotRunning), HasSubstr("the daemon has ended\n"));
}

TEST(Routers, ReportsComeFromOneInterfaceToOneProgram) {
    const Daemon daemon;
    ExpectAll({{"ra watch eth9", 2, "there is no interface eth9"}, {"ra stop eth0", 0, "watched no more"}});
    Watching watching("ra watch eth0 -j");
    ASSERT_TRUE(Eventually([] { return exists("/tmp/ipc_router_notify_eth0_0_" + std::to_string(getpid())); }));
    AdvertiseRouter("far0", "2001:db8:1::");
    EXPECT_THAT(watching.Line(), ContainsRegex(R"("event":"ra_changed".*"addresses":\["2001:db8:1:)"));
    ExpectAll({{"ra watch eth0", 2, kThisProgram + " gets the reports (tesselctl ra stop eth0 --force"},
               {"ra stop eth0", 2, kThisProgram + " is listening on ipc_router_notify_eth0_0_"}});
    EXPECT_THAT(watching.EndsBy(SIGINT), IsEmpty());
}

TEST(DhcpClient, LeasesGoToOneProgram) {
    StandInClients clients;
    const Daemon daemon;
    ExpectAll({{"dhcp renew eth0", 2, "no DHCP client runs on eth0"},
               {"dhcp renew eth0 native -4", 1, "always fails"},
               {"dhcp start eth0 watch notify-pid 4242", 2, "watch, or notify-pid"},
               {"dhcp start eth0 -4 dns off notify-pid 4242", 0, "eth0: DHCP client started (inet)"}});
    EXPECT_THAT(clients.Take(1), HasSubstr("udhcpc -i eth0"));
    const std::string lease =
        "leasesuccess\nlocal=10.0.0.7\nsubnet=255.255.255.0\nrouter=10.0.0.1\ndns=10.0.0.1\nleasetime=864\n";
    Watching watching("dhcp watch eth0 -4");
    EXPECT_THAT(clients.Take(1), HasSubstr("udhcpc eth0 USR1"));
    WriteResult("/tmp/udhcpc.confeth0", lease);
    EXPECT_THAT(watching.Line(), HasSubstr("dhcp      eth0  lease 10.0.0.7/24 gateway 10.0.0.1"));
    ExpectAll({{"dhcp watch eth0 -4", 2, kThisProgram + " gets the leases of eth0 inet (--take"}});
    for (const Expected& one : std::initializer_list<Expected>{
             {"dhcp renew eth0 -4", 0, "asked to renew"},
             {"dhcp start eth0 -4 dns off", 0, kThisProgram + " still gets the leases of eth0 inet"},
             {"dhcp start eth0 -4 notify-pid 4242", 0, kThisProgram + " no longer gets the leases"}}) {
        ExpectAll({one});
        EXPECT_EQ(clients.Take(1), "udhcpc eth0 USR1") << "a second one before that is noted would be lost";
    }
    (void)watching.EndsBy(SIGINT);
    Watching waiting("dhcp start eth0 -4 wait-lease -j");
    (void)clients.Take(1);
    WriteResult("/tmp/udhcpc.confeth0", lease);
    EXPECT_EQ(Json::parse(waiting.Line())["lease_s"], 864);
    EXPECT_EQ(waiting.EndsWith(0), "");
    ExpectAll({{"dhcp stop eth0", 0, "eth0: DHCP client stopped (inet)\n"}});
    EXPECT_EQ(StandInClients::PidOf("udhcpc", "eth0"), 0);
    WriteFile("/proc/sys/net/ipv6/conf/eth0/disable_ipv6", "1");
    ExpectAll(
        {{"dhcp stop eth0 -4", 0, "eth0: no DHCP client ran (inet)"},
         {"dhcp start eth0 watch", 1, "no link-local address; the inet client has been started and keeps running."}});
}

}  // namespace
}  // namespace tessel::test
