// The DHCP server: what is written and run for it.
#include "services/dhcp_server.h"

#include "tests/support/dhcp_server.h"
#include "tests/support/noted.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::filesystem::exists;
using Lines = std::vector<std::string>;

class DhcpServer : public testing::Test {
  protected:
    DhcpServer() {
        if (g_ptDaeDhcpSInfo == nullptr) DaemonDhcpsInit();
        Clear();
    }
    ~DhcpServer() override {
        Clear();
    }
    void Clear() {
        EXPECT_EQ(DhcpsStopAll() + std::system("rm -rf /usr/etc/udhcpd4*"), 0);
        Forget();
    }
    void Forget() {
        (void)tools.TakeRuns();
        (void)log.Take();
    }
    std::string TakeLog() {
        return Joined(log.Take());
    }
    void Serve(std::initializer_list<const char*> interfaces) {
        for (const char* name : interfaces)
            EXPECT_EQ(tools.Status(kStart, StartRequest(name)), 0) << name;
        Forget();
    }
    NotedTools tools;
    LoggedLines log{4};
};

TEST_F(DhcpServer, ConfigurationIsWrittenAndTheServerStarted) {
    const std::tuple<TNetDhcpsConf, std::string, std::string> rows[] = {
        {ServerConf(24, {"1.2.3.4", "255.255.255.255"}), "option dns  1.2.3.4\noption dns  255.255.255.255\n",
         "255.255.255.0"},
        {ServerConf(0), "option dns 8.8.8.8\n", "0.0.0.0"},
    };
    for (const auto& [conf, dnsLines, mask] : rows) {
        WriteFile("/usr/etc/udhcpd4.leases", "leases");
        const std::string request = StartRequest("eth0", conf);
        tools.Check(mask, kStart, request, {"udhcpd -fS /usr/etc/udhcpd4_eth0.conf & &"}, 0);
        EXPECT_EQ(ReadFile("/usr/etc/udhcpd4_eth0.conf"),
                  "start 10.9.0.20\nend 10.9.0.21\ninterface eth0\n" + dnsLines + "option subnet " + mask +
                      "\noption router 10.9.0.1\noption lease 86400\nmax_leases 100\n"
                      "lease_file /usr/etc/udhcpd4.leases\npidfile /usr/etc/udhcpd4_eth0.pid\n");
        EXPECT_FALSE(exists("/usr/etc/udhcpd4_eth0.conf.new"));
        EXPECT_EQ(ReadFile("/usr/etc/udhcpd4.leases"), "leases");
        EXPECT_EQ(TakeLog(),
                  "ApidDhcpsStart: the achDevname : eth0, wSinFamily : 2; ApidDhcpsStart: dhcps start sucessfully!");
        Clear();
    }
    const TNetDhcpsConf many = ServerConf(24, std::vector<const char*>(64, "111.111.111.111"));
    EXPECT_EQ(tools.Status(kStart, StartRequest("fifteen-letters", many)), 0);
    EXPECT_THAT(ReadFile("/usr/etc/udhcpd4_fifteen-letters.conf"), HasSubstr("_fifteen-letters.pid\n"));
    EXPECT_TRUE(exists("/usr/etc/udhcpd4.leases"));
}

TEST_F(DhcpServer, WhatCannotBeServedLeavesNothingBehind) {
    const std::string two = StartRequest("eth0", ServerConf(24, {"1.2.3.4", "1.2.3.5"}));
    const auto announcing = [&](u32 servers) {
        return std::string(two).replace(18 + 88, 4, Bytes(servers)).append(1000, '\x01');
    };
    const std::pair<std::string, std::string> rows[] = {
        {StartRequest("eth0", ServerConf(33)), "the prefix length 33 or the number of dns servers 0 is invalid!"},
        {announcing(65), "the prefix length 24 or the number of dns servers 65 is invalid!"},
        {announcing(0xFFFFFFFF), "the size is error:size=2390"},
        {two.substr(0, 18 + 92 + 39), "the size is error:size=149"},
        {two.substr(0, 16), "StartDhcpServer: the wSinFamiy 0 is invalid!"},
        {StartRequest("eth0", ServerConf(), 10), "StartDhcpServer6: StartDhcpServer6 is not realized!"},
        {StartRequest("a\nstart 1.1.1.1"), "the interface name [a"},
        {StartRequest("sixteen-letters-"), "the interface name [sixteen-letters-] is invalid!"},
    };
    for (const auto& [request, text] : rows) {
        tools.Check(text, kStart, request, {}, -1);
        EXPECT_THAT(TakeLog(), AllOf(HasSubstr(text), testing::EndsWith("; ApidDhcpsStart: DhcpsStart error!")));
        EXPECT_EQ(tools.Status(kGetStatus, request.substr(0, 18)), 0) << text;
        EXPECT_EQ(std::system("ls /usr/etc | grep -q udhcpd"), 1 << 8) << text;
        Forget();
    }
    EXPECT_EQ(tools.Status(kStart, two.substr(0, 18 + 92 + 40)), 0) << "two servers are two";
}

TEST_F(DhcpServer, EightInterfacesAreServedOnce) {
    Serve({"eth0", "eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7"});
    WriteFile("/usr/etc/udhcpd4_eth3.pid", "1");
    const std::tuple<u32, std::string, i32, std::string> rows[] = {
        // with what is logged behind the line of the name
        {kStart, StartRequest("eth8"), -1,
         "DhcpsStart: the dhcp server has up to maxmium!; ApidDhcpsStart: DhcpsStart error!"},
        {kStart, StartRequest("eth3"), -1,
         "DhcpsStart: the interface eth3 Family 2 has startted!; ApidDhcpsStart: DhcpsStart error!"},
        {kGetStatus, NameRequest("eth7"), 1, ""},
        {kGetStatus, NameRequest("eth7", 10), 0, ""},
        {kStop, NameRequest("eth8"), 0, "DhcpsStop: the interface eth8 SinFamily 2 dhcp server has been stopped"},
        {kStop, "", 0, "DhcpsStop: the interface  SinFamily 0 dhcp server has been stopped"},
        {kStop, NameRequest("eth3"), 0,
         "DhcpsStop4: *****not found udhcpd process, remove pid_file:/usr/etc/udhcpd4_eth3.pid,  "
         "config_file:/usr/etc/udhcpd4_eth3.conf*****"},
        {kGetStatus, NameRequest("eth3"), 0, ""},
    };
    for (const auto& [type, request, status, line] : rows) {
        tools.Check(line, type, request, {}, status);
        const Lines lines = log.Take();
        EXPECT_THAT(lines.front(), HasSubstr(": the achDevname : "));
        EXPECT_EQ(Joined({lines.begin() + 1, lines.end()}), line);
    }
    EXPECT_FALSE(exists("/usr/etc/udhcpd4_eth3.conf") || exists("/usr/etc/udhcpd4_eth3.pid"));
    EXPECT_TRUE(exists("/usr/etc/udhcpd4_eth7.conf"));
    tools.Answer("killall -9 udhcpd", "udhcpd: no process found", 1);
    const Lines runs = {"killall -9 udhcpd", "sh -c rm /usr/etc/udhcpd*.pid", "sh -c rm /usr/etc/udhcpd*.conf"};
    tools.Check("stop all", kStopAll, "x", runs, 0);
    EXPECT_EQ(TakeLog(), "DhcpsStopAll: the child process error:ret=1!");
    Serve({"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "eth8"});
}

TEST_F(DhcpServer, OnlyTheServerOfTheInterfaceIsKilled) {
    const Process tenth("udhcpd", "/usr/etc/udhcpd4_eth10.conf");
    const Process editor("vi", "/usr/etc/udhcpd4_eth1.conf");
    const Process other("notudhcpd", "eth1");
    const auto stop = [&](const Lines& runs, i32 status) {
        Serve({"eth1"});
        tools.Check("stop", kStop, NameRequest("eth1"), runs, status);
        EXPECT_EQ(exists("/usr/etc/udhcpd4_eth1.conf"), status != 0);
    };
    stop({}, 0);
    const Process own("/usr/sbin/udhcpd", "/usr/etc/udhcpd4_eth1.conf");
    const std::string pid = std::to_string(own.pid);
    stop({"kill -9 " + pid}, 0);
    tools.Answer("kill -9 " + pid, "", 3);
    stop({"kill -9 " + pid}, -1);
    EXPECT_EQ(TakeLog(),
              "ApidDhcpsStop: the achDevname : eth1, wSinFamily : 2; DhcpsStop4: *****found udhcpd process, "
              "pid_file:/usr/etc/udhcpd4_eth1.pid, config_file:/usr/etc/udhcpd4_eth1.conf, will kill process " +
                  pid + "*****; DhcpsStop4: the child process error:ret=3!; ApidDhcpsStop: dhcps stop error!");
    EXPECT_EQ(tools.Status(kGetStatus, NameRequest("eth1")), 1);
}

TEST_F(DhcpServer, FilesThatCannotBeWrittenStartNothing) {
    const std::string notWritten = "[^;]*; StartDhcpServer4: DHCPS write into configure ERROR!";
    const std::pair<const char*, std::string> rows[] = {
        {"mkdir /usr/etc/udhcpd4.leases",
         "StartDhcpServer4: open file /usr/etc/udhcpd4.leases failed[^;]*; [^;]*fopen error\\{errno\\([^;]*"},
        {"mkfifo /usr/etc/udhcpd4_eth0.conf.new",
         "WriteDhcps4Conf: open file /usr/etc/udhcpd4_eth0.conf failed!" + notWritten},
        {"mkdir /usr/etc/udhcpd4_eth0.conf", "[^;]*write error\\{errno\\(" + notWritten},
    };
    for (const auto& [trouble, lines] : rows) {
        EXPECT_EQ(std::system(trouble), 0);
        tools.Check(trouble, kStart, StartRequest("eth0"), {}, -1);
        EXPECT_THAT(TakeLog(),
                    testing::MatchesRegex("[^;]*; " + lines +
                                          "; DhcpsStart: StartDhcps error!; ApidDhcpsStart: DhcpsStart error!"));
        EXPECT_EQ(tools.Status(kGetStatus, NameRequest("eth0")), 0) << trouble;
        Clear();
    }
}

}  // namespace
}  // namespace tessel::test
