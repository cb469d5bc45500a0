// What runs on the links: DHCP servers, NTP clients, PPPoE, the bond, the web server.
#include <sys/mount.h>

#include "client/ctl/processes.h"
#include "tests/ctl/tool.h"
#include "tests/support/dhcp.h"
#include "tests/support/ntp_server.h"

namespace tessel::test {
namespace {

TEST(CtlDhcpd, ServesAndSaysWhenTheServerHasGone) {
    Prepare({"ip addr add 192.168.2.20/24 dev eth1"});
    const Daemon daemon;
    const std::string served = " range 192.168.2.100 192.168.2.150/24 router 192.168.2.1 dns 10.9.9.9 dns 10.9.9.8";
    ExpectAll(
        {{"dhcpd start eth9" + served, 2, "there is no interface eth9"},
         {"dhcpd start eth1 range 192.168.2.150 192.168.2.100/24 router 192.168.2.1", 2, "no range within one network"},
         {"dhcpd start eth1 range 192.168.3.1 192.168.2.100/24 router 192.168.2.1", 2, "no range within one network"},
         {"dhcpd start eth1 range 192.168.2.1 192.168.2.9/24 router fe80::1", 2, "there is no server for IPv6"},
         {"dhcpd show eth9", 2, "there is no interface eth9"},
         {"dhcpd start eth1" + served, 0, "192.168.2.100 to 192.168.2.150/24 are handed out"},
         {"dhcpd start eth1" + served, 2, "it is already served (dhcpd stop eth1)"},
         {"status eth1", 0, "  DHCP server\n"},
         {"dhcpd start eth2 range 192.168.3.1 192.168.3.9/24 router 192.168.3.1", 5, "its udhcpd has exited"}});
    EXPECT_THAT(ReadFile("/usr/etc/udhcpd4_eth1.conf"),
                HasSubstr("start 192.168.2.100\nend 192.168.2.150\ninterface eth1\noption dns  10.9.9.9\noption dns  "
                          "10.9.9.8\noption subnet 255.255.255.0\noption router 192.168.2.1\n"));
    const Json shown = DocumentOf("dhcpd show eth1")[0];
    EXPECT_EQ(shown["serving"], true);
    EXPECT_EQ(shown["pid_file"], "/usr/etc/udhcpd4_eth1.pid");
    ASSERT_TRUE(shown["pid"].is_number());
    ExpectAll({{"dhcpd stop eth1 -n", 0, "runs     kill -9 " + shown["pid"].dump()}});
    kill(shown["pid"], SIGKILL);
    const std::string other = "/usr/etc/udhcpd4_eth0.conf";  // of a daemon that is no more
    Prepare({"cp /bin/sleep /tmp/udhcpd", "/tmp/udhcpd 100 &"});
    RunOnDevice("cp /usr/etc/udhcpd4_eth1.conf " + other + "; udhcpd -fS " + other + " &");
    EXPECT_TRUE(
        Eventually([&] { return FindProcesses("udhcpd", "100").size() + FindProcesses("udhcpd", other).size() == 2; }));
    ExpectAll({{"dhcpd show eth1", 0, "its server has exited"},
               {"dhcpd stop eth1", 0, "eth1   not served any more"},
               {"dhcpd show eth0", 0, "udhcpd runs (pid "},
               {"dhcpd start eth0" + served, 2, "not known to the daemon: end it with \"dhcpd stop all\""},
               {"dhcpd stop eth0", 5, "answered success, but udhcpd runs (pid "},
               {"dhcpd stop all", 2, "it would kill every udhcpd (pids "},
               {"dhcpd stop all --yes", 0, "every udhcpd ended (pids "}});
}

TEST(CtlNtp, AsksAServerAndShowsItsEvents) {
    Prepare({"ip addr add 10.9.0.1/24 dev eth0", "ip netns exec far ip addr add 10.9.0.2/24 dev far0"});
    const Daemon daemon;
    NtpServer server(AF_INET);
    std::thread answer([&] {
        (void)server.Receive();
        server.Send(server.Time(1800000000));
    });
    ExpectAll({{"ntp check 10.9.0.2", 0, "10.9.0.2 answers"}});
    answer.join();
    ExpectAll({{"ntp check 10.9.0.2 -j", 1, R"("error":"no_answer","message":"ntp check 10.9.0.2: no answer)"},
               {"ntp start 10.9.0.2 every 0", 2, "\"0\" is no"},
               {"ntp start 10.9.0.2 every 1h", 0, "10.9.0.2 is asked for the time every 1h 0m"},
               {"ntp start 10.9.0.9 every 1h", 1, "an NTP client for inet is already running (ntp stop -4)"},
               {"ntp stop", 0, "no NTP client runs any more (inet, inet6)"}});
    EXPECT_THAT(OutputOf("timeout -s INT 3 " TESSEL_CTL_PATH " ntp start 192.0.2.9 every 5 watch -j"),
                HasSubstr("\"event\":\"ntp_failed\""));
    ExpectAll({{"ntp start 10.9.0.9 every 1h", 1, "is already running"}});
}

TEST(CtlPppoe, HandsThePasswordOverAndShowsItToNobody) {
    StandInClients programs;
    const Daemon daemon;
    const std::string start = "pppoe start eth1 user me password-file ";
    WriteFile("/tmp/password", "ge 'heim\nthe rest");
    WriteFile("/tmp/control", "a\tb");
    ExpectAll({{"pppoe start eth9 user me password-file /tmp/password", 2, "there is no interface eth9"},
               {start + "/tmp/nothing", 2, "cannot read /tmp/nothing: No such file"},
               {start + "/tmp/control", 2, "the password has a control character"},
               {start + "/tmp/password service a;b", 2, "the service has characters other than letters"},
               {start + "/tmp/password -- service -x", 2, "the service has - in front"}});
    EXPECT_THAT(OutputOf(TESSEL_CTL_PATH " pppoe start eth1 user me 2>&1 < /dev/null"),
                HasSubstr("password-file is needed"));
    for (const char* options : {" -n", " -n -j", " -v", " -vv -4 persist holdoff 5 echo-interval 1m service isp"}) {
        const ToolRun run = RunLine(start + "/tmp/password" + options);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out + run.err, AllOf(Not(HasSubstr("ge 'heim")), Not(HasSubstr("67 65 20 27 68"))));
    }
    ExpectAll({{start + "/tmp/password -n", 0, "user me password PASSWORD +ipv6 &\n"}});
    EXPECT_THAT(programs.Take(2),
                AllOf(HasSubstr("user me password ge 'heim +ipv6"), HasSubstr("-S isp"), HasSubstr(" noipv6"),
                      HasSubstr(" persist"), HasSubstr(" holdoff 5 "), HasSubstr(" lcp-echo-interval 60 ")));
    ExpectAll({{"pppoe stop -4", 0, "pppd had pid"}, {"pppoe stop", 0, "pppd had pid"}});
    EXPECT_TRUE(Eventually([] { return FindProcesses("pppd").empty(); }));
    ExpectAll({{"pppoe stop -j", 0, "{\"pids\":[]}"}});
    // A modem's does not stand for one that cannot dial.
    Prepare({"cp /bin/sleep /tmp/pppd", "/tmp/pppd 100 &", "printf '#!/bin/sh\nsleep 0.15\n' > $(command -v pppd)"});
    EXPECT_TRUE(Eventually([] { return FindProcesses("pppd").size() == 1; }));
    ExpectAll({{start + "/tmp/password", 5, "answered success, but no pppd of it is running"}});
}

TEST(CtlBond, IsReadBackFromTheDriver) {
    Prepare({"ip addr add 192.168.1.20/24 dev eth1", "ip link add eth10 type veth"});
    const StandInTools tools({"ifconfig", "ifenslave", "ip"});
    const Daemon daemon;
    ExpectAll({{"bond show", 0, "there is no bond"},
               {"bond start eth0 eth1 eth2 lo eth10 active eth0", 2, "at most four interfaces"},
               {"bond start eth1 eth2 active eth0", 2, "eth0 has to be one of them"},
               {"bond start eth1 eth10 active eth1", 2, "eth10 would be left out"},
               {"bond start eth1 eth9 active eth1", 2, "there is no interface eth9"},
               {"bond stop", 0, "there was no bond"},
               {"bond start eth1 eth2 active eth1 mode 6", 5, "eth1 is not part of bond0"}});
    // The driver's file: this kernel may have no driver, and the tools do nothing.
    const std::string net = "/proc/" + std::to_string(getpid()) + "/net";
    ASSERT_EQ(mount("net", net.c_str(), "tmpfs", 0, nullptr), 0);
    std::filesystem::create_directory(net + "/bonding");
    WriteFile(net + "/bonding/bond0",
              "Ethernet Channel Bonding Driver: v6.1\n\nBonding Mode: fault-tolerance (active-backup)\nPrimary Slave: "
              "None\nCurrently Active Slave: eth1\nMII Status: up\n\nSlave Interface: eth1\nMII Status: up\nLink "
              "Failure Count: 0\nPermanent HW addr: 02:00:00:00:00:01\n\nSlave Interface: eth2\nMII Status: down\n"
              "Permanent HW addr: 02:00:00:00:00:02\n");
    ExpectAll(
        {{"bond -g active,member,link,mac", 0,
          "eth1\teth1\tup\t02:00:00:00:00:01\neth1\teth2\tdown\t02:00:00:00:00:02"},
         {"bond start eth1 eth2 active eth1", 1, "Probable cause: there already is a bond (bond stop)"},
         {"bond stop -n", 0, "runs     ifenslave -d bond0 eth1 eth2\nruns     ip addr flush dev bond0\n"},
         {"bond stop", 5, "bond0 still has members"},
         {"bond start eth1 eth0 active eth1", 5, "eth0 is not part of bond0"},
         {"bond stop", 5, "bond0 still has members"},
         {"bond start eth1 eth2 active eth1", 0, "bond0   eth1, eth2, active eth1; their addresses were removed"}});
    EXPECT_EQ(DocumentOf("bond show")["mode"], "fault-tolerance (active-backup)");
    EnterSession();
    ExpectAll({{"bond start eth2 eth1 active eth2", 2, "your session runs over"}});
}

// The lines that the next command would run, without those of the shell.
std::vector<std::string> PlannedLines(const std::string& command) {
    std::vector<std::string> lines;
    const Json plan = DocumentOf(command + " -n");
    for (const Json& request : plan["requests"]) {
        for (std::string line : request["runs"]) {
            if (line.ends_with(" &")) line.resize(line.size() - 2);
            if (!line.starts_with("sh -c ")) lines.push_back(line);
        }
    }
    return lines;
}

TEST(CtlDryRun, ShowsTheLinesThatThenRun) {
    StandInTools tools({"ifconfig", "ifenslave", "ip", "iptables", "killall", "lighttpd", "ping", "udhcpc", "udhcpd"});
    const Daemon daemon;
    (void)tools.TakeRuns();
    WriteFile("/etc/scripts/udhcpc.script", "");
    tools.Answer("iptables -C whitelist -s 192.0.2.3/32 -j RETURN", "", 1);
    for (const char* command :
         {"web start", "web stop", "service stop telnetd", "bond start eth1 eth2 active eth1 mode 3",
          "dhcpd start eth1 range 192.168.2.1 192.168.2.9/24 router 192.168.2.1", "dhcpd stop all --yes",
          "dhcp start eth1 -4", "ping 192.0.2.1 count 1 size 100 ttl 9", "addr add 192.168.1.9/24 dev eth0",
          "rule add from 10.1.0.0/16 table 7", "link set eth0 mac 02:00:00:00:00:09", "firewall allow 192.0.2.3"}) {
        const auto planned = PlannedLines(command);
        EXPECT_FALSE(planned.empty()) << command;
        EXPECT_TRUE(tools.TakeRuns().empty()) << command;
        (void)RunLine(command);
        std::vector<std::string> lines;
        EXPECT_TRUE(Eventually([&] {  // what was started is not waited for
            std::ranges::copy(tools.TakeRuns(), std::back_inserter(lines));
            return lines.size() >= planned.size();
        })) << command;
        lines.resize(std::min(lines.size(), planned.size()));  // what is read back comes behind
        EXPECT_EQ(lines, planned) << command;
    }
}

TEST(CtlWeb, KnowsWhatRuns) {
    const StandInTools tools({"lighttpd"});
    WriteFile(tools.Directory() + "/lighttpd", "#!/bin/sh\n/tmp/lighttpd 100 > /dev/null 2>&1 &\n");
    Prepare({"cp /bin/sleep /tmp/lighttpd"});
    const Daemon daemon;
    ExpectAll({{"web stop", 1, "no lighttpd runs here"},
               {"web start -g pids", 0, "["},
               {"web stop", 0, "every lighttpd ended (pid "}});
    WriteFile(tools.Directory() + "/lighttpd", "#!/bin/sh\nexit 0\n");
    ExpectAll({{"web start", 5, "no lighttpd of it is running"}});
}

}  // namespace
}  // namespace tessel::test
