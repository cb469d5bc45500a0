// What the tool finds out without changing anything: status, why, wait and monitor.
#include <csignal>

#include "tests/ctl/tool.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

class Finding : public testing::Test {
  protected:
    Finding() {
        PrepareLinks();
        Prepare({"ip route add default via 192.168.1.1 metric 10", "ip route add default via 192.168.2.1 metric 5"});
    }
};

TEST_F(Finding, StatusShowsWhatThereIsWhetherTheDaemonAnswersOrNot) {
    Prepare({"echo 1 > /proc/sys/net/ipv6/conf/eth1/disable_ipv6", "ip addr add 10.9.0.1 peer 10.9.0.2/32 dev eth2",
             "for i in 1 2 3 4; do ip addr add 10.0.$i.1/24 dev eth2; done"});
    EXPECT_THAT(Printed("status", 3),
                AllOf(HasSubstr("tessel_daemon   not running\n"), HasSubstr("gateway 192.168.2.1")));
    EXPECT_EQ(DocumentOf("status eth0")["interfaces"][0]["dhcp_server"], nullptr);

    const Daemon daemon;
    const std::string pid = std::to_string(daemon.Pid());
    const auto listener = OpenListener("ipc_dhcpc_eth0_801");
    Prepare({"ip link set eth2 down"});
    ExpectAll({{"priority set eth1 5 eth2 30", 0, ""},
               {"", 0, "running, pid " + pid + ", since 20"},
               {"status", 0, "gateway 192.168.2.1  metric 5  <- default route\n"},
               {"status", 0, "gateway 192.168.1.1  metric 10\n"},
               {"status", 0, "eth2  down  10.9.0.1/32  10.0.1.1/24  10.0.2.1/24  10.0.3.1/24  and 1 more"},
               {"status", 0, "priority 30, not used: no link"},
               {"status", 0, "listening  conflict: nobody   dhcp eth0: " + kThisProgram},
               {"status", 0, "firewall   inet off   inet6 off"},
               {"status lo -g scope", 0, "host\nhost\n"},
               {"status eth9", 2, "there is no interface eth9"}});
    EXPECT_EQ(DocumentOf("status eth1")["interfaces"].dump(),
              R"([{"interface":"eth1","state":"up","mtu":1500,"mac":"02:00:00:00:00:01","kind":"veth","addresses":[)"
              R"({"address":"192.168.2.20","prefix_length":24,"family":"inet","scope":"global","dynamic":false,)"
              R"("tentative":false}],"gateways":[{"gateway":"192.168.2.1","family":"inet","metric":5,"learnt":false,)"
              R"("preferred":true}],"priority":5,"dhcp_server":false}])");
    EXPECT_EQ(DocumentOf("status")["daemon"]["other_pids"], Json::array());
    WriteFile("/usr/tessel_crash.log.0", "");
    EXPECT_EQ(DocumentOf("status")["crash"], nullptr);  // empty: nothing was reported
    Prepare({"echo x > /usr/tessel_crash.log.0", "touch -d '2026-01-01 12:00:00 UTC' /usr/tessel_crash.log.0"});
    EXPECT_EQ(DocumentOf("status")["crash"]["time"], "2026-01-01T12:00:00.000Z");

    kill(daemon.Pid(), SIGSTOP);
    const auto start = steady_clock::now();
    const std::string hanging = Printed("status", 4);
    EXPECT_LT(steady_clock::now() - start, 8s);
    kill(daemon.Pid(), SIGCONT);
    EXPECT_THAT(hanging, AllOf(HasSubstr("not answering, pid " + pid), HasSubstr("192.168.1.20/24")));
}

TEST_F(Finding, WhoMayNotUseTheSocketLearnsWhoMay) {
    const Daemon daemon;
    ASSERT_EQ(chmod("/tmp/api_daemon", 0), 0);
    for (const std::string line : {"status", "addr show", "wait daemon -t 9", "trace -- addr show", "dhcp start eth0"})
        EXPECT_THAT(OutputOf("setpriv --bounding-set -dac_override " TESSEL_CTL_PATH " " + line + " 2>&1; echo $?"),
                    testing::EndsWith("may use /tmp/api_daemon (ls -l names it)\n1\n"))
            << line;
}

TEST_F(Finding, WhyShowsTheChoice) {
    Prepare({"ip route add 10.1.0.0/16 via 192.168.1.9", "ip rule add pref 70 fwmark 7 table 70",
             "ip route add default via 192.168.1.7 table 70", "ip route add blackhole 10.2.0.0/16",
             "ip route add 10.4.0.0/16 dev eth0",
             "ip route add 10.4.0.0/16 metric 9 nexthop via 192.168.1.3 nexthop via 192.168.1.4"});
    {
        const Daemon daemon;
        ExpectAll({{"priority set eth1 5", 0, ""}, {"why 8.8.8.8", 0, "lowest metric (priority eth1 = 5)"}});
    }
    EXPECT_EQ(Printed("why 8.8.8.8"),
              "8.8.8.8 leaves through eth1 via 192.168.2.1, source 192.168.2.20, table main\n"
              "  rule 32766: from all lookup main            no earlier rule matches\n"
              "  default via 192.168.2.1 dev eth1 metric 5   <- chosen: lowest metric\n"
              "  default via 192.168.1.1 dev eth0 metric 10     next if eth1 loses its route\n");
    ExpectAll({{"why 10.1.2.3", 0, "<- chosen: longest prefix"},
               {"why 8.8.8.8 fwmark 7", 0, "rule 70: from all fwmark 7 lookup 70"},
               {"why 192.168.2.9 fwmark 7 from 192.168.1.20", 0, "via 192.168.1.7, source 192.168.1.20, table 70"},
               {"why 192.168.1.5", 0, "leaves through eth0, on the link, source 192.168.1.20"},
               {"why 192.168.1.20", 0, "192.168.1.20 is an address of this device"},
               {"why 8.8.8.8 from fe80::1", 2, "addresses of two families"},
               {"why 8.8.8.8 from 192.168.1.99", 1, "192.168.1.99 is not an address of this device"},
               {"why 10.4.0.1", 0, "  10.4.0.0/16 via 192.168.1.3 dev eth0 metric 9  "},
               {"why 10.2.0.1", 1, "a route drops it"},
               {"why 2001:db9::1", 1, "no route leads there"}});
    EXPECT_EQ(DocumentOf("why 10.1.2.3")["routes"][0]["chosen"], true);
}

TEST_F(Finding, WaitEndsWithWhatItWaitsFor) {
    ExpectAll({{"wait daemon -t 0.3", 4, "wait daemon: the daemon is not running, after 0.3 s"},
               {"wait link eth9 -t 1", 4, "wait link eth9: eth9 is not up, after 1 s"},
               {"wait link eth0 -t 1", 0, "eth0"}});
    EXPECT_EQ(OutputOf("CLICOLOR_FORCE=1 " TESSEL_CTL_PATH " wait link eth0 --no-header"), "eth0  \x1b[32mup\x1b[0m\n");
    const Daemon daemon;
    ExpectAll({{"wait daemon -t 5", 0, std::to_string(daemon.Pid())},
               {"wait addr eth1", 0, "192.168.2.20/24"},
               {"wait addr eth1 -6 -t 1", 4, "eth1 has no address"},
               {"wait gateway -t 5", 0, "192.168."},
               {"wait gateway eth2 -t 1", 4, "eth2 has no gateway"}});
    Prepare({"(sleep 0.7; ip addr add 10.8.0.1/16 dev eth2) &"});
    EXPECT_EQ(DocumentOf("wait addr eth2 -4 -t 20")["address"], "10.8.0.1");
    // Not before nobody else can have it.
    Prepare({"ip addr add 2001:db8:7::1/64 dev eth2"});
    ExpectAll({{"wait addr eth2 -6 -t 20", 0, "2001:db8:7::1/64"}});
    EXPECT_EQ(OutputOf("ip -6 addr show dev eth2 tentative scope global"), "");
    Prepare({"ip -n far link set far2 down"});
    EXPECT_TRUE(Eventually([] { return RunLine("link show eth2").out.find("no carrier") != std::string::npos; }));
    ExpectAll({{"wait link eth2 -t 1", 4, "eth2 is not up"}});
}

TEST_F(Finding, MonitorShowsTheKernelAndTakesOnlyWhatIsFree) {
    Prepare({TESSEL_CTL_PATH " monitor kernel -j > /tmp/changes &",
             "{ sh -c 'echo $$ > /tmp/pid; exec " TESSEL_CTL_PATH " monitor'; echo exit $?; } > /tmp/shown 2>&1 &"});
    const auto has = [](std::string_view text) {
        return (ReadFile("/tmp/shown") + ReadFile("/tmp/changes")).find(text) != std::string::npos;
    };
    EXPECT_TRUE(Eventually([&] {  // both follow
        RunOnDevice("ip route add 10.4.0.0/16 via 192.168.1.4 && ip route del 10.4.0.0/16");
        return has("  10.4.0.0/16 via") && has("\"10.4.0.0/16\"");
    }));
    Prepare({"ip route add default via 192.168.1.4 metric 77", "ip rule add pref 9 fwmark 3 table 7",
             "ip route add 10.0.0.0/8 via 192.168.1.4 table 7", "ip route del 10.0.0.0/8 table 7",
             "ip addr add 10.8.0.1/16 dev eth2", "ip link set eth2 mtu 1400"});
    for (const char* text : {"  kernel    eth0  default via 192.168.1.4 metric 77 added\n",
                             "  kernel    rule 9 from all fwmark 3 table 7 added\n",
                             "  kernel    eth0  10.0.0.0/8 via 192.168.1.4 without metric table 7 removed\n",
                             "  kernel    eth2  10.8.0.1/16 added\n", "  kernel    eth2  up mtu 1400\n",
                             R"("event":"rule","source":"kernel","action":"added","pref":9,)"})
        EXPECT_TRUE(Eventually([&] { return has(text); })) << text;
    // What comes while it is stopped is more than its socket holds.
    Prepare({"kill -STOP $(cat /tmp/pid)",
             "for i in $(seq 250); do echo route add 10.7.0.$i via 192.168.1.4; echo route del 10.7.0.$i; done | "
             "ip -batch -",
             "kill -CONT $(cat /tmp/pid)"});
    EXPECT_TRUE(Eventually([&] { return has("note: changes in the kernel came too fast: some are"); }));
    Prepare({"kill $(cat /tmp/pid)"});
    EXPECT_TRUE(Eventually([&] { return has("exit 143\n"); }));
    const auto listener = OpenListener("ipc_ntp");
    EXPECT_THAT(Printed("monitor -n"), AllOf(HasSubstr("ipc_ntpv6\n"), Not(HasSubstr("ipc_ntp\n"))));
    ExpectAll({{"monitor ntp", 2, "--take"},
               {"monitor ping", 2, "nobody did (see \"ping\")"},
               {"monitor nonsense", 2, "nonsense"}});
}

}  // namespace
}  // namespace tessel::test
