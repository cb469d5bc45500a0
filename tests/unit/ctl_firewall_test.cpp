// Firewall and static ARP entries: shapes of entries, the guard, and what the kernel of the sandbox has afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "client/ctl/rule_file.h"
#include "tests/support/firewall.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using nlohmann::ordered_json;
using tessel::test::DeviceAnswer;
using tessel::test::FailingAnswer;
using tessel::test::FakeDaemon;
using tessel::test::IdleAnswer;
using tessel::test::Prepare;
using tessel::test::ReadFile;
using tessel::test::RunInSandbox;
using tessel::test::RunLine;
using tessel::test::SeenRequest;
using tessel::test::WriteFile;
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
        unsetenv("SSH_CONNECTION");
    }
    void TearDown() override {
        unsetenv("SSH_CONNECTION");
    }
};

std::string Tail(u32 number, const std::string& text) {
    return tessel::test::Number(number) + text;
}

TEST_F(Firewall, WordsBecomeRequests) {
    const std::string mac = "02:00:00:00:00:77";
    const auto network = [](u32 operation, u16 family, const char* start, u32 prefix, const char* end) {
        std::string bytes = tessel::test::Network(operation, family, start, prefix, end);
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
        {"firewall allow 02:00:00:00:00:77", 0x1002, Tail(1, mac)},
        {"firewall delete deny 02:00:00:00:00:77", 0x1002, Tail(4, mac)},
        {"firewall deny fe80::1 02:00:00:00:00:77", 0x100D, Tail(3, mac + "fe80::1")},
        {"firewall enable whitelist -y", 0x1003, tessel::test::Number(5)},
        {"firewall enable blacklist -6 -y", 0x1003, tessel::test::Number(4)},
        {"firewall disable whitelist -4 -y", 0x1004, tessel::test::Number(1)},
        {"firewall chain add mine -6", 0x1005, tessel::test::Chain(2, "mine")},
        {"firewall icmp allow", 0x1006, tessel::test::Number(5)},
        {"firewall icmp drop -6", 0x1006, tessel::test::Number(4)},
        {"firewall port add dport 80,443 in drop -4", 0x1007, tessel::test::Ports(1, 1, 0, 2, 2, "80,443")},
        {"firewall port del udp sport 53 out accept", 0x1007, tessel::test::Ports(2, 3, 2, 1, 3, "53")},
        {"firewall save /tmp/rules -4", 0x1008, Tail(1, "/tmp/rules")},
        {"firewall restore /tmp/rules", 0x1009, Tail(3, "/tmp/rules")},
        {"arp add 192.168.1.9 02:00:00:00:00:77 dev eth0", 0x100A,
         tessel::test::Arp("eth0", mac.c_str(), "192.168.1.9")},
        {"arp del 192.168.1.9", 0x100B, tessel::test::Arp("", "", "192.168.1.9")},
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
    for (const char* line :
         {"firewall allow 192.168.1.77", "firewall allow 10.0.0.9-10.0.0.1", "firewall deny 10.0.0.1-::1",
          "firewall port add dport 80,,443 in drop", "firewall port add dport 65536 in drop",
          "firewall port add dport 80, in drop", "firewall port add dport 080 in drop",
          "firewall port add dport 1000: in drop", "firewall show --protect 10.0.0.0/8", "firewall enable greylist",
          "arp add fe80::1 02:00:00:00:00:77"})
        EXPECT_EQ(RunLine(line).status, 2) << line;
    EXPECT_TRUE(daemon.Requests().empty());
}

TEST_F(Firewall, EntriesAreReadBack) {
    const char* const entries[] = {"192.168.1.5/24", "10.0.0.1-10.0.0.9", "02:00:00:00:00:77", "0.0.0.0/0",
                                   "fe80::1 02:00:00:00:00:77"};
    for (const std::string entry : entries) {
        SCOPED_TRACE(entry);
        {
            FakeDaemon idle(&IdleAnswer);
            EXPECT_EQ(RunLine("firewall allow " + entry).status, 5);
        }
        {
            FakeDaemon daemon(&DeviceAnswer);
            EXPECT_EQ(RunLine("firewall allow " + entry).status, 0);
        }
        {
            FakeDaemon idle(&IdleAnswer);
            EXPECT_EQ(RunLine("firewall delete allow " + entry).status, 5);
        }
        FakeDaemon daemon(&DeviceAnswer);
        EXPECT_EQ(RunLine("firewall delete allow " + entry).status, 0);
        EXPECT_THAT(RunLine("firewall delete allow " + entry).err, HasSubstr("there is no such entry"));
    }
}

TEST_F(Firewall, EmptyingAListIsAskedFor) {
    FakeDaemon daemon(&DeviceAnswer);
    ASSERT_EQ(RunLine("firewall deny 10.0.0.0/8").status, 0);
    const auto refused = RunLine("firewall enable whitelist -4");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("1 entry of the blacklist would be deleted (--yes does it)"));
    EXPECT_EQ(RunLine("firewall disable blacklist -4").status, 2);
    const auto done = RunLine("firewall enable whitelist -4 -y");
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_EQ(done.out, "whitelist   enabled (1 entry of the blacklist deleted)\n");
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
    const auto refused = RunLine("firewall enable whitelist -4");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("not sent: your session comes from 192.168.1.77 and no whitelist entry covers "
                                       "it.\n  add it:       tesselctl firewall allow 192.168.1.77/32\n"));
    for (const char* entry :
         {"192.168.1.0/24", "192.168.1.70-192.168.1.80", "0.0.0.0/0", "192.168.1.77 02:00:00:00:00:77"})
        EXPECT_EQ(RunLine(std::string("firewall deny ") + entry).status, 2) << entry;
    Prepare({"ip neigh replace 192.168.1.77 lladdr 02:00:00:00:00:77 dev eth0 nud permanent"});
    EXPECT_EQ(RunLine("firewall deny 02:00:00:00:00:77").status, 2);
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(RunLine("firewall deny 02:00:00:00:00:78").status, 0);
    EXPECT_EQ(RunLine("firewall deny 192.168.1.77 02:00:00:00:00:78").status, 0) << "not the peer's hardware address";
    EXPECT_EQ(RunLine("firewall deny 192.168.2.0/24").status, 0);
    EXPECT_EQ(RunLine("firewall deny 192.168.1.76/31 --force").status, 0);
    EXPECT_EQ(RunLine("firewall enable blacklist -4").status, 2);
    Prepare({"iptables -F blacklist"});
    EXPECT_EQ(RunLine("firewall allow 192.168.1.78-192.168.1.80").status, 0);
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y").status, 2) << "the range begins behind the peer";
    EXPECT_EQ(RunLine("firewall allow 192.168.1.77/32").status, 0);
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y --protect 192.168.1.70").status, 2) << "another host";
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y").status, 0);
    EXPECT_THAT(RunLine("firewall delete allow 192.168.1.77/32").err, HasSubstr("no other entry of the whitelist"));
    EXPECT_EQ(RunLine("firewall allow 192.168.1.0/25").status, 0);
    EXPECT_EQ(RunLine("firewall delete allow 192.168.1.77/32").status, 0);
    EXPECT_EQ(RunLine("firewall delete allow 192.168.1.0/25 --force").status, 0);
}

TEST_F(Firewall, TheSessionKeepsItsPort) {
    FakeDaemon daemon(&DeviceAnswer);
    setenv("SSH_CONNECTION", "::ffff:192.168.1.77 50000 ::ffff:192.168.1.20 22", 1);
    EXPECT_EQ(RunLine("firewall port add tcp dport 20:25 in drop").status, 2);
    EXPECT_EQ(RunLine("firewall port add dport 22 in drop -6").status, 0) << "the other family";
    EXPECT_EQ(RunLine("firewall port add tcp dport 80,443 in drop").status, 0);
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
    const auto run = RunLine("firewall show -4 -j");
    const auto shown = ordered_json::parse(run.out)[0];
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
    EXPECT_THAT(RunLine("firewall allow 10.0.0.0/8").err, HasSubstr("there is no inet chain \"whitelist\""));
    EXPECT_THAT(RunLine("firewall save /tmp/rules").err, HasSubstr("no file was touched. \"tesselctl firewall export"));
    EXPECT_THAT(RunLine("firewall chain add blacklist").err,
                HasSubstr("there was an inet chain \"blacklist\" already"));
    EXPECT_THAT(RunLine("firewall port del dport 80 in drop").err, HasSubstr("no such inet rule for tcp and udp"));
    EXPECT_THAT(RunLine("arp add 172.16.0.1 02:00:00:00:00:77").err, HasSubstr("in no network of any interface"));
    EXPECT_THAT(RunLine("arp del 192.168.1.200").err, HasSubstr("there is no such entry"));
}

TEST_F(Firewall, ChangesAreReadBack) {
    const char* const lines[] = {"firewall chain add mine",
                                 "firewall chain add icmppacket",
                                 "firewall icmp drop",
                                 "firewall icmp allow -6",
                                 "firewall enable whitelist -y",
                                 "firewall disable whitelist -y",
                                 "firewall enable blacklist -6",
                                 "firewall port add tcp dport 80 in drop",
                                 "firewall port add sport 53,1000:2000 out accept",
                                 "firewall port del sport 53,1000:2000 out accept -4"};
    Prepare({"iptables -X icmppacket", "ip6tables -X icmppacket"});
    for (const std::string line : lines) {
        {
            FakeDaemon idle(&IdleAnswer);
            const auto run = RunLine(line);
            EXPECT_EQ(run.status, 5) << line;
            EXPECT_THAT(run.err, HasSubstr("answered success, but ")) << line;
        }
        FakeDaemon daemon(&DeviceAnswer);
        const auto run = RunLine(line);
        EXPECT_EQ(run.status, 0) << line << ": " << run.err;
    }
}

TEST_F(Firewall, RulesAreExportedAndImported) {
    const char* kLog = "iptables -A blacklist -j LOG --log-prefix '\"***A b***\"'";
    Prepare({"iptables -A blacklist -s 10.0.0.0/8 -j DROP", kLog,
             "iptables -t nat -A PREROUTING -p tcp --dport 5 -j ACCEPT", "ip6tables -A INPUT -j ACCEPT"});
    EXPECT_EQ(RunLine("firewall export /tmp/exported").out, "/tmp/exported   3 inet rules, 1 inet6 rule\n");
    const std::string exported = ReadFile("/tmp/exported");
    EXPECT_EQ(RunLine("firewall export /tmp/exported").status, 2) << "the file is there";
    EXPECT_EQ(RunLine("firewall export /dev/null -y").status, 1);
    EXPECT_EQ(RunLine("firewall export /nowhere/exported").status, 1);

    Prepare({"iptables -F", "iptables -t nat -F", "ip6tables -F", "ip6tables -A INPUT -s 2001:db8::1 -j DROP"});
    const std::string plan = RunLine("firewall import /tmp/exported -n").out;
    EXPECT_THAT(plan, HasSubstr("here     replaces 0 inet rules by 3 ("));
    EXPECT_THAT(plan, HasSubstr("here     replaces 1 inet6 rule by 1 ("));
    EXPECT_EQ(RunLine("firewall import /tmp/exported").status, 2) << "a rule would be lost, and nobody was asked";
    EXPECT_EQ(RunLine("firewall import /tmp/exported -4").status, 0);
    EXPECT_TRUE(RunInSandbox("iptables -C blacklist -s 10.0.0.0/8 -j DROP"));
    EXPECT_FALSE(RunInSandbox("ip6tables -C INPUT -j ACCEPT")) << "-4";
    EXPECT_EQ(RunLine("firewall import /tmp/exported -y").status, 0);
    EXPECT_EQ(RunLine("firewall export /tmp/again").status, 0);
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
        EXPECT_EQ(RunLine("firewall import /tmp/cut -y").status, 2) << length;
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
    EXPECT_EQ(RunLine("firewall import /tmp/closed -y").status, 2) << "of which family?";
    EXPECT_THAT(RunLine("firewall import /tmp/closed -y -4").err,
                HasSubstr("comes from 192.168.1.77, which would be shut out"));
    EXPECT_TRUE(RunInSandbox("iptables -C INPUT -s 1.1.1.1 -j DROP")) << "nothing was done";
    EXPECT_THAT(RunLine("firewall import /tmp/closed -n -4").out, HasSubstr("which would be shut out"));
    EXPECT_EQ(RunLine("firewall import /tmp/closed -y -4 --force").status, 0);
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

TEST_F(Firewall, ArpEntriesAreReadBack) {
    {
        FakeDaemon idle(&IdleAnswer);
        EXPECT_EQ(RunLine("arp add 192.168.1.9 02:00:00:00:00:77").status, 5);
    }
    FakeDaemon daemon(&DeviceAnswer);
    EXPECT_EQ(RunLine("arp add 192.168.1.9 02:00:00:00:00:77").status, 0);
    EXPECT_EQ(RunLine("-g address,mac,interface,permanent arp show").out,
              "192.168.1.9\t02:00:00:00:00:77\teth0\ttrue\n");
    EXPECT_EQ(RunLine("arp del 192.168.1.9").status, 0);
}

}  // namespace
