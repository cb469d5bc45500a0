// The DHCP server: what is written and run for it.
#include "services/dhcp_server.h"

#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::filesystem::exists;

constexpr u32 kStop = 0x802;
constexpr u32 kGetStatus = 0x804;

Call Of(u32 type, const char* name, u16 family = 2) {
    return {type, Padded(name, 16).append(Bytes(family))};
}

TNetDhcpsConf ServerConf(u32 prefixBits = 24, const std::vector<const char*>& dnsServers = {}) {
    const auto address = [](const char* text) {
        TNetGateway record = Address(text);
        record.wSinFamily = record.wReserved = 0xFFFF;  // of which neither is read
        return record;
    };
    TNetDhcpsConf conf{address("10.9.0.20"), address("10.9.0.21"), prefixBits, address("10.9.0.1"), {}, 0, {}};
    for (const char* server : dnsServers)
        conf.atDns[conf.dwDnsNum++] = address(server);
    return conf;
}

Call Start(const char* name, const TNetDhcpsConf& conf = ServerConf(), u16 family = 2) {
    return {0x801, Of(0, name, family).payload.append(Bytes(conf)), "ApidDhcpsStart: DhcpsStart error!"};
}

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
        (void)tools.TakeRuns();
        (void)tools.TakeLog();
    }
    void Serve(std::initializer_list<const char*> interfaces) {
        for (const std::string name : interfaces)
            tools.Check({{name, Start(name.c_str()), 0, "udhcpd -fS /usr/etc/udhcpd4_" + name + ".conf & &"}});
    }
    LoggedTools tools{2};
};

TEST_F(DhcpServer, ConfigurationIsWrittenAndTheServerStarted) {
    const std::tuple<TNetDhcpsConf, std::string, std::string> rows[] = {
        {ServerConf(24, {"1.2.3.4", "255.255.255.255"}), "option dns  1.2.3.4\noption dns  255.255.255.255\n",
         "255.255.255.0"},
        {ServerConf(0), "option dns 8.8.8.8\n", "0.0.0.0"},
    };
    TesselDebugLevelSet(4);
    for (const auto& [conf, dnsLines, mask] : rows) {
        WriteFile("/usr/etc/udhcpd4.leases", "leases");
        tools.Check({{mask, Start("eth0", conf), 0, "udhcpd -fS /usr/etc/udhcpd4_eth0.conf & &",
                      "ApidDhcpsStart: the achDevname : eth0, wSinFamily : 2; dhcps start sucessfully!"}});
        EXPECT_EQ(ReadFile("/usr/etc/udhcpd4_eth0.conf"),
                  "start 10.9.0.20\nend 10.9.0.21\ninterface eth0\n" + dnsLines + "option subnet " + mask +
                      "\noption router 10.9.0.1\noption lease 86400\nmax_leases 100\nlease_file "
                      "/usr/etc/udhcpd4.leases\npidfile /usr/etc/udhcpd4_eth0.pid\n");
        EXPECT_FALSE(exists("/usr/etc/udhcpd4_eth0.conf.new"));
        EXPECT_EQ(ReadFile("/usr/etc/udhcpd4.leases"), "leases");
        Clear();
    }
    const TNetDhcpsConf many = ServerConf(24, std::vector<const char*>(64, "111.111.111.111"));
    EXPECT_EQ(tools.Status(Start("fifteen-letters", many)), 0);
    EXPECT_THAT(ReadFile("/usr/etc/udhcpd4_fifteen-letters.conf"), HasSubstr("_fifteen-letters.pid\n"));
    EXPECT_TRUE(exists("/usr/etc/udhcpd4.leases"));
}

TEST_F(DhcpServer, WhatCannotBeServedLeavesNothingBehind) {
    const std::string two = Start("eth0", ServerConf(24, {"1.2.3.4", "1.2.3.5"})).payload;
    const auto announcing = [&](u32 servers) {
        return std::string(two).replace(18 + 88, 4, Bytes(servers)).append(1000, '\x01');
    };
    const std::string failed = "; DhcpsStart: StartDhcps error!; ApidDhcpsStart: DhcpsStart error!";
    const std::string notWritten = "; StartDhcpServer4: DHCPS write into configure ERROR!" + failed;
    const std::tuple<const char*, std::string, std::string> rows[] = {
        // what is done before it, the request, and what is logged
        {"", Start("eth0", ServerConf(33)).payload,
         "StartDhcpServer4: the prefix length 33 or the number of dns servers 0 is invalid!" + failed},
        {"", announcing(65),
         "StartDhcpServer4: the prefix length 24 or the number of dns servers 65 is invalid!" + failed},
        {"", announcing(0xFFFFFFFF), "ApidDhcpsStart: the size is error:size=2390; DhcpsStart error!"},
        {"", two.substr(0, 18 + 92 + 39), "ApidDhcpsStart: the size is error:size=149; DhcpsStart error!"},
        {"", two.substr(0, 16), "StartDhcpServer: the wSinFamiy 0 is invalid!" + failed},
        {"", Start("eth0", ServerConf(), 10).payload, "StartDhcpServer6: StartDhcpServer6 is not realized!" + failed},
        {"", Start("a\nstart 1.1.1.1").payload,
         "StartDhcpServer4: the interface name [a; start 1.1.1.1] is invalid!" + failed},
        {"", Start("sixteen-letters-").payload,
         "StartDhcpServer4: the interface name [sixteen-letters-] is invalid!" + failed},
        {"mkdir /usr/etc/udhcpd4.leases", two,
         "StartDhcpServer4: open file /usr/etc/udhcpd4.leases failed; fopen error{errno(21):Is a directory}" + failed},
        {"mkfifo /usr/etc/udhcpd4_eth0.conf.new", two,
         "WriteDhcps4Conf: open file /usr/etc/udhcpd4_eth0.conf failed!" + notWritten},
        {"mkdir /usr/etc/udhcpd4_eth0.conf", two,
         "WriteDhcps4Conf: write error{errno(21):Is a directory}" + notWritten},
    };
    for (const auto& [trouble, request, log] : rows) {
        EXPECT_EQ(std::system(trouble), 0);
        tools.Check({{log, {0x801, request}, -1, "", log}, {log, {kGetStatus, request.substr(0, 18)}, 0, "", ""}});
        if (trouble[0] != '\0') Clear();
        EXPECT_EQ(std::system("ls /usr/etc | grep -q udhcpd"), 1 << 8) << log;
    }
    EXPECT_EQ(tools.Status(0x801, two.substr(0, 18 + 92 + 40)), 0) << "two servers are two";
    (void)tools.TakeRuns();
    Serve({"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7"});
}

TEST_F(DhcpServer, EightInterfacesAreServedOnce) {
    Serve({"eth0", "eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7"});
    WriteFile("/usr/etc/udhcpd4_eth3.pid", "1");
    tools.Check({
        {"a ninth", Start("eth8"), -1, "", "DhcpsStart: the dhcp server has up to maxmium!"},
        {"again", Start("eth3"), -1, "", "DhcpsStart: the interface eth3 Family 2 has startted!"},
        {"status", Of(kGetStatus, "eth7"), 1, ""},
        {"of the other family", Of(kGetStatus, "eth7", 10), 0, ""},
    });
    TesselDebugLevelSet(4);
    tools.Check({
        {"a stop of what does not run", Of(kStop, "eth8"), 0, "",
         "ApidDhcpsStop: the achDevname : eth8, wSinFamily : 2; DhcpsStop: the interface eth8 SinFamily 2 dhcp server "
         "has been stopped"},
        {"empty", {kStop, ""}, 0, ""},
        {"stop", Of(kStop, "eth3"), 0, "",
         "ApidDhcpsStop: the achDevname : eth3, wSinFamily : 2; DhcpsStop4: *****not found udhcpd process, remove "
         "pid_file:/usr/etc/udhcpd4_eth3.pid,  config_file:/usr/etc/udhcpd4_eth3.conf*****"},
        {"status", Of(kGetStatus, "eth3"), 0, "", "ApidDhcpsGetStatus: the achDevname : eth3, wSinFamily : 2"},
    });
    EXPECT_FALSE(exists("/usr/etc/udhcpd4_eth3.conf") || exists("/usr/etc/udhcpd4_eth3.pid"));
    EXPECT_TRUE(exists("/usr/etc/udhcpd4_eth7.conf"));
    tools.Answer("killall -9 udhcpd", "udhcpd: no process found", 1);
    tools.Check({{"stop all",
                  {0x805, "x"},
                  0,
                  "killall -9 udhcpd; sh -c rm /usr/etc/udhcpd*.pid; sh -c rm /usr/etc/udhcpd*.conf",
                  "DhcpsStopAll: the child process error:ret=1!"}});
    Serve({"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "eth8"});
}

TEST_F(DhcpServer, OnlyTheServerOfTheInterfaceIsKilled) {
    const Process tenth("udhcpd", "/usr/etc/udhcpd4_eth10.conf");
    const Process editor("vi", "/usr/etc/udhcpd4_eth1.conf");
    const Process other("notudhcpd", "eth1");
    const auto stop = [&](const std::string& runs) {
        Serve({"eth1"});
        tools.Check({{"stop", Of(kStop, "eth1"), 0, runs}});
        EXPECT_FALSE(exists("/usr/etc/udhcpd4_eth1.conf"));
    };
    stop("");
    const Process own("/usr/sbin/udhcpd", "/usr/etc/udhcpd4_eth1.conf");
    const std::string pid = std::to_string(own.pid);
    stop("kill -9 " + pid);
    tools.Answer("kill -9 " + pid, "", 3);
    Serve({"eth1"});
    TesselDebugLevelSet(4);
    tools.Check({{"stop", Of(kStop, "eth1"), -1, "kill -9 " + pid,
                  "ApidDhcpsStop: the achDevname : eth1, wSinFamily : 2; DhcpsStop4: *****found udhcpd process, "
                  "pid_file:/usr/etc/udhcpd4_eth1.pid, config_file:/usr/etc/udhcpd4_eth1.conf, will kill process " +
                      pid + "*****; the child process error:ret=3!; ApidDhcpsStop: dhcps stop error!"},
                 {"it is still served", Of(kGetStatus, "eth1"), 1, ""}});
    EXPECT_TRUE(exists("/usr/etc/udhcpd4_eth1.conf"));
}

}  // namespace
}  // namespace tessel::test
