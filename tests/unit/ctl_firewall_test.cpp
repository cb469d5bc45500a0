// Firewall and static ARP entries: shapes of entries, the guard, and what the kernel of the sandbox has afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "client/ctl/firewall_rules.h"
#include "tests/support/firewall.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using nlohmann::ordered_json;
using tessel::test::DeviceAnswer;
using tessel::test::FailingAnswer;
using tessel::test::FakeDaemon;
using tessel::test::RunInSandbox;
using tessel::test::RunLine;
using tessel::test::SeenRequest;
using testing::HasSubstr;

class Firewall : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* tool : {"iptables", "ip6tables"}) {
            for (const char* words : {"-F", "-X", "-N whitelist", "-N blacklist", "-N icmppacket"})
                ASSERT_TRUE(RunInSandbox(std::string(tool) + " " + words)) << tool << words;
        }
        (void)RunInSandbox("ip addr add 192.168.1.20/24 dev eth0");
        unsetenv("SSH_CONNECTION");
    }
    void TearDown() override {
        unsetenv("SSH_CONNECTION");
    }
};

// Answers success and does nothing.
std::string IdleAnswer(const SeenRequest&) {
    return FakeDaemon::Message(TNetStatusReply{.nResult = 0});
}

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
          "firewall port add dport 80, in drop", "firewall enable greylist", "arp add fe80::1 02:00:00:00:00:77"})
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
    EXPECT_THAT(done.err, HasSubstr("answers to the device's own connections are dropped"));
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
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(RunLine("firewall deny 192.168.2.0/24 --force").status, 0);
    EXPECT_EQ(RunLine("firewall allow 192.168.1.78-192.168.1.80").status, 0);
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y").status, 2) << "the range begins behind the peer";
    EXPECT_EQ(RunLine("firewall allow 192.168.1.77/32").status, 0);
    EXPECT_EQ(RunLine("firewall enable whitelist -4 -y").status, 0);
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
    EXPECT_THAT(RunLine("firewall -4").err, HasSubstr("open nothing that it closes"));
    EXPECT_EQ(ordered_json::parse(RunLine("firewall show -6 -j").out)[0]["list"], nullptr);
}

TEST_F(Firewall, CausesAreNamed) {
    ASSERT_TRUE(RunInSandbox("iptables -X whitelist"));
    FakeDaemon daemon(&FailingAnswer);
    EXPECT_THAT(RunLine("firewall allow 10.0.0.0/8").err, HasSubstr("there is no inet chain \"whitelist\""));
    EXPECT_THAT(RunLine("firewall save /tmp/rules").err, HasSubstr("no file was touched"));
    EXPECT_THAT(RunLine("arp add 172.16.0.1 02:00:00:00:00:77").err, HasSubstr("in no network of any interface"));
    EXPECT_THAT(RunLine("arp del 192.168.1.200").err, HasSubstr("there is no such entry"));
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
