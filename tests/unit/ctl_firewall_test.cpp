// Firewall and static ARP entries: shapes of entries, the guard, and what the kernel of the sandbox has afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "client/ctl/rule_file.h"
#include "tests/support/firewall.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::test;
using nlohmann::ordered_json;
using testing::HasSubstr;
using testing::Not;

class Firewall : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* tool : {"iptables", "ip6tables"}) {
            for (const char* words :
                 {"-P INPUT ACCEPT", "-F", "-X", "-t nat -F", "-N whitelist", "-N blacklist", "-N icmppacket"})
                ASSERT_TRUE(RunInSandbox(std::string(tool) + " " + words)) << tool << words;
        }
        (void)RunInSandbox("ip neigh flush dev eth0 nud permanent");
        (void)RunInSandbox("ip addr add 192.168.1.20/24 dev eth0");
    }
    void TearDown() override {
        unsetenv("SSH_CONNECTION");
    }
};

TEST_F(Firewall, WordsBecomeRequests) {
    const std::string mac = "02:00:00:00:00:77";
    const auto network = [](u32 operation, u16 family, const char* start, u32 prefix, const char* end) {
        std::string bytes = Network(operation, family, start, prefix, end);
        std::replace(bytes.begin(), bytes.end(), '\xee', '\0');
        if (*end != '\0') bytes[44] = static_cast<char>(family);  // the end's own family, which nobody reads
        return bytes;
    };
    const struct {
        const char* line;
        u32 code;
        std::string payload;
    } cases[] = {
        {"firewall allow 192.168.1.0/24", 0x1001, network(1, 2, "192.168.1.0", 24, "")},
        {"firewall deny 10.0.0.1-10.0.0.9", 0x1001, network(3, 2, "10.0.0.1", 0, "10.0.0.9")},
        {"firewall delete allow 2001:db8::/64", 0x1001, network(2, 10, "2001:db8::", 64, "")},
        {"firewall allow 02:00:00:00:00:77", 0x1002, Number(1) + mac},
        {"firewall delete deny 02:00:00:00:00:77", 0x1002, Number(4) + mac},
        {"firewall deny fe80::1 02:00:00:00:00:77", 0x100D, Number(3) + mac + "fe80::1"},
        {"firewall enable whitelist -y", 0x1003, Number(5)},
        {"firewall enable blacklist -6 -y", 0x1003, Number(4)},
        {"firewall disable whitelist -4 -y", 0x1004, Number(1)},
        {"firewall chain add mine -6", 0x1005, Chain(2, "mine")},
        {"firewall icmp allow", 0x1006, Number(5)},
        {"firewall icmp drop -6", 0x1006, Number(4)},
        {"firewall port add dport 80,443 in drop -4", 0x1007, Ports(1, 1, 0, 2, 2, "80,443")},
        {"firewall port del udp sport 53 out accept", 0x1007, Ports(2, 3, 2, 1, 3, "53")},
        {"firewall save /tmp/rules -4", 0x1008, Number(1) + "/tmp/rules"},
        {"firewall restore /tmp/rules", 0x1009, Number(3) + "/tmp/rules"},
        {"arp add 192.168.1.9 02:00:00:00:00:77 dev eth0", 0x100A, Arp("eth0", mac.c_str(), "192.168.1.9")},
        {"arp del 192.168.1.9", 0x100B, Arp("", "", "192.168.1.9")},
    };
    FakeDaemon daemon(&IdleAnswer);
    for (const auto& one : cases) {
        (void)RunLine(one.line);
        ASSERT_FALSE(daemon.Requests().empty());
        EXPECT_EQ(daemon.Requests().back().type, one.code) << one.line;
        EXPECT_EQ(daemon.Requests().back().payload, one.payload) << one.line;
    }
}

TEST_F(Firewall, WrongWordsAreNotSent) {
    FakeDaemon daemon(&IdleAnswer);
    ExpectStatus(2, {"firewall allow 192.168.1.77", "firewall allow 10.0.0.9-10.0.0.1", "firewall deny 10.0.0.1-::1",
                     "firewall port add dport 80,,443 in drop", "firewall port add dport 65536 in drop",
                     "firewall port add dport 80, in drop", "firewall port add dport 080 in drop",
                     "firewall port add dport 1000: in drop", "firewall show --protect 10.0.0.0/8",
                     "firewall enable greylist", "arp add fe80::1 02:00:00:00:00:77"});
    EXPECT_TRUE(daemon.Requests().empty());
}

TEST_F(Firewall, EmptyingAListIsAskedFor) {
    FakeDaemon daemon(&DeviceAnswer);
    ASSERT_EQ(RunLine("firewall deny 10.0.0.0/8").status, 0);
    ExpectAll({{"firewall enable whitelist -4", 2, "1 entry of the blacklist would be deleted (--yes does it)"},
               {"firewall disable blacklist -4", 2, ""}});
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y").out,
              "whitelist   enabled (1 entry of the blacklist deleted)\n");
}

TEST_F(Firewall, WhatAWhitelistShutsOutIsToldBefore) {
    WriteFile("/etc/resolv.conf", "nameserver 192.168.1.1\nnameserver 9.9.9.9\n");
    Prepare({"iptables -I whitelist -s 192.168.1.0/24 -j RETURN", "ip addr add 2001:db8::5/64 dev eth0 nodad"});
    FakeDaemon daemon(&FailingAnswer);
    const auto run = RunLine("firewall enable whitelist");
    EXPECT_THAT(run.err, HasSubstr("note: answers to the device's own connections are dropped"));
    for (const char* entry :
         {"9.9.9.9/32   for DNS", "fe80::/10   for neighbour discovery", "2001:db8::/64   for neighbours on eth0"})
        EXPECT_THAT(run.err, HasSubstr(std::string("\n  tesselctl firewall allow ") + entry));
    EXPECT_THAT(run.err, Not(HasSubstr("192.168.1.1/32"))) << "is listed";
    EXPECT_LT(run.err.find("note:"), run.err.find("answered -1"));
}

TEST_F(Firewall, TheSessionIsNotShutOut) {
    FakeDaemon daemon(&DeviceAnswer);
    setenv("SSH_CONNECTION", "192.168.1.77 50000 192.168.1.20 22", 1);
    ExpectAll({{"firewall enable whitelist -4", 2,
                "not sent: your session comes from 192.168.1.77 and no whitelist entry covers "
                "it.\n  add it:       tesselctl firewall allow 192.168.1.77/32\n"}});
    ExpectStatus(2, {"firewall deny 192.168.1.0/24", "firewall deny 192.168.1.70-192.168.1.80",
                     "firewall deny 0.0.0.0/0", "firewall deny 192.168.1.77 02:00:00:00:00:77"});
    Prepare({"ip neigh replace 192.168.1.77 lladdr 02:00:00:00:00:77 dev eth0 nud permanent"});
    ExpectStatus(2, {"firewall deny 02:00:00:00:00:77"});
    EXPECT_TRUE(daemon.Requests().empty());
    // Another hardware address than the peer's, another network, and by force.
    ExpectStatus(0, {"firewall deny 02:00:00:00:00:78", "firewall deny 192.168.1.77 02:00:00:00:00:78",
                     "firewall deny 192.168.2.0/24", "firewall deny 192.168.1.76/31 --force"});
    ExpectStatus(2, {"firewall enable blacklist -4"});
    Prepare({"iptables -F blacklist"});
    // A range that begins behind the peer, and protection of another host.
    ExpectAll({{"firewall allow 192.168.1.78-192.168.1.80", 0, ""},
               {"firewall enable whitelist -4 -y", 2, ""},
               {"firewall allow 192.168.1.77/32", 0, ""},
               {"firewall enable whitelist -4 -y --protect 192.168.1.70", 2, ""},
               {"firewall enable whitelist -4 -y", 0, ""},
               {"firewall delete allow 192.168.1.77/32", 2, "no other entry of the whitelist"}});
    ExpectStatus(0, {"firewall allow 192.168.1.0/25", "firewall delete allow 192.168.1.77/32",
                     "firewall delete allow 192.168.1.0/25 --force"});
}

TEST_F(Firewall, TheSessionKeepsItsPort) {
    FakeDaemon daemon(&DeviceAnswer);
    setenv("SSH_CONNECTION", "::ffff:192.168.1.77 50000 ::ffff:192.168.1.20 22", 1);
    ExpectStatus(2, {"firewall port add tcp dport 20:25 in drop"});
    ExpectStatus(0, {"firewall port add dport 22 in drop -6", "firewall port add tcp dport 80,443 in drop"});
    Prepare({"iptables -I INPUT -p udp --dport 22 -j DROP", "iptables -I INPUT -i eth1 -j DROP",
             "iptables -I INPUT -m mac --mac-source 02:00:00:00:00:77 -j DROP", "iptables -I INPUT -j blacklist"});
    const auto session = [] { return ordered_json::parse(RunLine("firewall -j").out)[0]["session"]; };
    EXPECT_EQ(session()["let_in"], true);
    EXPECT_EQ(session()["on_whitelist"], false);
    Prepare(
        {"iptables -A blacklist ! -s 192.168.2.0/24 -j LOG", "iptables -A blacklist ! -s 192.168.2.0/24 -j REJECT"});
    EXPECT_EQ(session()["let_in"], false);
    Prepare({"iptables -I blacklist -i eth0 -d 192.168.1.20 -p tcp --dport 22 -j ACCEPT"});
    EXPECT_EQ(session()["let_in"], true);
    EXPECT_THAT(RunLine("firewall show -4").out,
                HasSubstr("session from 192.168.1.77 is let in; not on the whitelist"));
}

TEST_F(Firewall, ShowsTheKernelsRules) {
    for (const char* line : {"-I whitelist -s 192.168.1.0/24 -j RETURN", "-A whitelist -j DROP",
                             "-I INPUT -j whitelist", "-A INPUT -p tcp --dport 80 -j RETURN", "-I INPUT -j icmppacket",
                             "-I icmppacket -p icmp --icmp-type 8 -j DROP"})
        ASSERT_TRUE(RunInSandbox(std::string("iptables ") + line)) << line;
    const auto shown = ordered_json::parse(RunLine("firewall show -4 -j").out)[0];
    EXPECT_EQ(shown["list"], "whitelist");
    EXPECT_EQ(shown["echo_dropped"], true);
    EXPECT_EQ(shown["entries"].size(), 1U);
    EXPECT_EQ(shown["entries"][0]["rule"], "-s 192.168.1.0/24 -j RETURN");
    EXPECT_EQ(shown["ports"][0]["rule"], "-p tcp -m tcp --dport 80 -j RETURN");
    const std::string notes = RunLine("firewall -4").err;
    EXPECT_THAT(notes, HasSubstr("open nothing that it closes"));
    EXPECT_THAT(notes, HasSubstr("RETURN is not ACCEPT: packets go on behind the list, and INPUT's policy (ACCEPT)"));
    Prepare({"ip6tables -I whitelist -s 2001:db8::1/32 -m mac --mac-source 02:00:00:00:00:77 -j RETURN"});
    EXPECT_THAT(RunLine("firewall -6").err, HasSubstr("02:00:00:00:00:77 is for the whole of 2001:db8::/32"));
    EXPECT_EQ(ordered_json::parse(RunLine("firewall show -6 -j").out)[0]["list"], nullptr);
}

TEST_F(Firewall, CausesAreNamed) {
    ASSERT_TRUE(RunInSandbox("iptables -X whitelist"));
    FakeDaemon daemon(&FailingAnswer);
    ExpectAll({{"firewall allow 10.0.0.0/8", 1, "there is no inet chain \"whitelist\""},
               {"firewall save /tmp/rules", 1, "no file was touched. \"tesselctl firewall export"},
               {"firewall chain add blacklist", 1, "there was an inet chain \"blacklist\" already"},
               {"firewall port del dport 80 in drop", 1, "no such inet rule for tcp and udp"},
               {"arp add 172.16.0.1 02:00:00:00:00:77", 1, "in no network of any interface"},
               {"arp del 192.168.1.200", 1, "there is no such entry"}});
}

TEST_F(Firewall, ChangesAreReadBack) {
    std::vector<std::string> lines = {"firewall chain add mine",
                                      "firewall chain add icmppacket",
                                      "firewall icmp drop",
                                      "firewall icmp allow -6",
                                      "firewall enable whitelist -y",
                                      "firewall disable whitelist -y",
                                      "firewall enable blacklist -6",
                                      "firewall port add tcp dport 80 in drop",
                                      "firewall port add sport 53,1000:2000 out accept",
                                      "firewall port del sport 53,1000:2000 out accept -4",
                                      "arp add 192.168.1.9 02:00:00:00:00:77",
                                      "arp del 192.168.1.9"};
    for (const char* entry :
         {"192.168.1.5/24", "10.0.0.1-10.0.0.9", "02:00:00:00:00:77", "0.0.0.0/0", "fe80::1 02:00:00:00:00:77"}) {
        lines.push_back(std::string("firewall allow ") + entry);
        lines.push_back(std::string("firewall delete allow ") + entry);
    }
    Prepare({"iptables -X icmppacket", "ip6tables -X icmppacket"});
    for (const std::string& line : lines) {
        {
            FakeDaemon idle(&IdleAnswer);
            ExpectAll({{line, 5, "answered success, but "}});
        }
        FakeDaemon daemon(&DeviceAnswer);
        ExpectAll({{line, 0, ""}});
        if (line.starts_with("firewall delete")) ExpectAll({{line, 1, "there is no such entry"}});
        if (line.starts_with("arp add")) {
            EXPECT_EQ(RunLine("-g address,mac,interface,permanent arp show").out,
                      "192.168.1.9\t02:00:00:00:00:77\teth0\ttrue\n");
        }
    }
}

TEST_F(Firewall, ADryRunReadsTheRulesAndCountsWhatItWouldChange) {
    Prepare({"iptables -A icmppacket -p icmp --icmp-type echo-request -j RETURN"});
    EXPECT_THAT(
        RunLine("firewall icmp allow -4 -n").out,
        HasSubstr("-F icmppacket\nruns     iptables -C icmppacket -p icmp --icmp-type 8 -j RETURN\n"
                  "runs     iptables -I icmppacket -p icmp --icmp-type 8 -j RETURN\nruns     sh -c echo \"0\" >"));
    ExpectAll({{"firewall disable whitelist -4 -y -n", 0, "the daemon will answer -1\n"}});
    Prepare({"iptables -I INPUT -j whitelist"});
    ExpectAll({{"firewall disable whitelist -4 -y -n", 0,
                "runs     iptables -D INPUT -j whitelist\nruns     iptables -t filter -F whitelist\n"}});
}

TEST_F(Firewall, RulesAreExportedAndImported) {
    const char* kLog = "iptables -A blacklist -j LOG --log-prefix '\"***A b***\"'";
    Prepare({"iptables -A blacklist -s 10.0.0.0/8 -j DROP", kLog,
             "iptables -t nat -A PREROUTING -p tcp --dport 5 -j ACCEPT", "ip6tables -A INPUT -j ACCEPT"});
    EXPECT_EQ(RunLine("firewall export /tmp/exported").out, "/tmp/exported   3 inet rules, 1 inet6 rule\n");
    const std::string exported = ReadFile("/tmp/exported");
    ExpectStatus(2, {"firewall export /tmp/exported"});  // the file is there
    ExpectStatus(1, {"firewall export /dev/null -y", "firewall export /nowhere/exported"});

    Prepare({"iptables -F", "iptables -t nat -F", "ip6tables -F", "ip6tables -A INPUT -s 2001:db8::1 -j DROP"});
    ExpectAll({{"firewall import /tmp/exported -n", 0, "here     replaces 0 inet rules by 3 ("},
               {"firewall import /tmp/exported -n", 0, "here     replaces 1 inet6 rule by 1 ("},
               {"firewall import /tmp/exported", 2, ""},  // a rule would be lost, and nobody was asked
               {"firewall import /tmp/exported -4", 0, ""}});
    EXPECT_TRUE(RunInSandbox("iptables -C blacklist -s 10.0.0.0/8 -j DROP"));
    EXPECT_FALSE(RunInSandbox("ip6tables -C INPUT -j ACCEPT")) << "-4";
    ExpectStatus(0, {"firewall import /tmp/exported -y", "firewall export /tmp/again"});
    const auto rules = [](const std::string& path) {
        std::string lines;
        std::istringstream file(ReadFile(path));
        for (std::string line; std::getline(file, line);)
            lines += line.starts_with('-') || line.starts_with('*') ? line + "\n" : "";
        return lines;
    };
    EXPECT_EQ(rules("/tmp/again"), rules("/tmp/exported"));
    for (std::size_t length = 0; length < exported.size(); length += 7) {
        WriteFile("/tmp/cut", exported.substr(0, length));
        ExpectStatus(2, {"firewall import /tmp/cut -y"});
    }
}

TEST_F(Firewall, AnImportIsWholeOrNotAtAll) {
    const std::string inet =
        "# Generated by iptables-save\n*filter\n:INPUT ACCEPT [0:0]\n-A INPUT -s 9.9.9.9 -j DROP\nCOMMIT\n"
        "*nat\n:PREROUTING ACCEPT [0:0]\n-A PREROUTING -j ACCEPT\nCOMMIT\n";
    const std::string inet6 =
        "# Generated by ip6tables-save\n*filter\n:INPUT ACCEPT [0:0]\n-A INPUT -j NOWHERE\nCOMMIT\n";
    Prepare({"iptables -A INPUT -s 1.1.1.1 -j DROP", "iptables -t nat -F"});
    WriteFile("/tmp/bad", inet + inet6);
    const auto failed = RunLine("firewall import /tmp/bad -y");
    EXPECT_NE(failed.status, 0);
    EXPECT_THAT(failed.err, HasSubstr("ip6tables-restore"));
    EXPECT_TRUE(RunInSandbox("iptables -C INPUT -s 1.1.1.1 -j DROP")) << "put back";
    EXPECT_FALSE(RunInSandbox("iptables -C INPUT -s 9.9.9.9 -j DROP"));
    EXPECT_FALSE(RunInSandbox("iptables -t nat -C PREROUTING -j ACCEPT"));

    setenv("SSH_CONNECTION", "192.168.1.77 50000 192.168.1.20 22", 1);
    WriteFile("/tmp/closed", "*filter\n:INPUT DROP [0:0]\n-A INPUT -s 192.168.2.0/24 -j ACCEPT\nCOMMIT\n");
    ExpectAll({{"firewall import /tmp/closed -y", 2, ""},  // of which family?
               {"firewall import /tmp/closed -y -4", 2, "comes from 192.168.1.77, which would be shut out"},
               {"firewall import /tmp/closed -n -4", 0, "which would be shut out"}});
    EXPECT_TRUE(RunInSandbox("iptables -C INPUT -s 1.1.1.1 -j DROP")) << "nothing was done";
    ExpectStatus(0, {"firewall import /tmp/closed -y -4 --force"});
    EXPECT_TRUE(RunInSandbox("iptables -C INPUT -s 192.168.2.0/24 -j ACCEPT"));
}

TEST(RuleFile, NothingButSavedLines) {
    const struct {
        std::string text;
        const char* problem;
    } cases[] = {
        {"", "empty"},
        {"# Generated by iptables-save", "no end"},
        {"# nothing\n", "no rules"},
        {"*filter\n-A INPUT -j DROP\n", "ends within the table filter"},
        {"*filter\n*nat\nCOMMIT\n", "line 2 opens a table within"},
        {"*filter\n# Generated by ip6tables-save\nCOMMIT\n", "line 2 is a heading within"},
        {"-A INPUT -j DROP\n", "line 1 stands outside"},
        {"*../x\nCOMMIT\n", "line 1 names no table"},
        {"*filter\n-F INPUT\nCOMMIT\n", "line 2 is no line"},
        {"*filter\n-A\nCOMMIT\n", "line 2 is no line"},
        {"*filter\n-A INPUT -m comment --comment \"x\nCOMMIT\n", "line 2 is no line"},
        {std::string("*filter\n-A INPUT\0 -j DROP\nCOMMIT\n", 33), "line 2 is no line"},
        {"*filter\n-A " + std::string(5000, 'x') + "\nCOMMIT\n", "line 2 is no line"},
        {"*filter\n-A INPUT -M /tmp/x -j DROP\nCOMMIT\n", "line 2 names a program"},
        {"*filter\n[1:2] -A INPUT \"-nM/tmp/x\" -j DROP\nCOMMIT\n", "line 2 names a program"},
        {"*filter\n-A INPUT --modp=/tmp/x -j DROP\nCOMMIT\n", "line 2 names a program"},
        {"*filter\n-A INPUT -m statistic --mode random -j DROP\nCOMMIT\n", ""},
    };
    for (const auto& one : cases) {
        const auto file = tessel::ctl::ParseRuleFile(one.text, 2);
        EXPECT_THAT(file.problem, HasSubstr(one.problem)) << one.text;
        EXPECT_EQ(file.problem.empty(), *one.problem == '\0') << file.problem;
    }
    EXPECT_NE(tessel::ctl::ParseRuleFile("*filter\nCOMMIT\n", std::nullopt).problem, "") << "of which family?";
}

}  // namespace
