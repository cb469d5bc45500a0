// The packet filter: what the kernel has after each command, what is refused, and what is asked about.
#include "client/ctl/perform.h"
#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

std::string RulesOf(const char* tool) {
    return OutputOf(std::string(tool) + "-save -t filter");
}

class FirewallTest : public testing::Test {
  protected:
    FirewallTest() {
        for (const std::string chain : {"whitelist", "blacklist", "icmppacket"})
            ExpectAll({{"firewall chain add " + chain, 0, "added"}});
    }
    static bool IsHooked(const char* list) {
        return RulesOf("iptables").find(std::string("-A INPUT -j ") + list) != std::string::npos;
    }

    Daemon daemon_;
};

TEST_F(FirewallTest, EveryKindOfEntryIsMadeReadBackAndDeleted) {
    const std::string mac = "02:00:00:00:00:77";
    const std::tuple<std::string, const char*, std::string> cases[] = {
        {"allow 192.168.1.0/24", "iptables", "whitelist -s 192.168.1.0/24 -j RETURN"},
        {"allow 192.168.1.5", "iptables", "whitelist -s 192.168.1.5/32 -j RETURN"},
        {"allow 10.0.0.10-10.0.0.20", "iptables", "whitelist -m iprange --src-range 10.0.0.10-10.0.0.20 -j RETURN"},
        {"allow 0.0.0.0/0", "iptables", "whitelist -j RETURN"},
        {"allow " + mac, "ip6tables", "whitelist -m mac --mac-source " + mac + " -j RETURN"},
        {"allow 192.168.1.7 " + mac, "iptables", "whitelist -s 192.168.1.7/32 -m mac --mac-source " + mac},
        {"allow 2001:db8::7 " + mac, "ip6tables", "whitelist -s 2001:db8::/32 -m mac --mac-source " + mac},
        {"allow fe80::/10", "ip6tables", "whitelist -s fe80::/10 -j RETURN"},
        {"deny 192.168.1.1", "iptables", "blacklist -s 192.168.1.1/32 -j DROP"},
        {"deny 2001:db8::10-2001:db8::20", "ip6tables", "blacklist -m iprange --src-range 2001:db8::10-2001:db8::20"}};
    for (const auto& [words, tool, rule] : cases) {
        ExpectAll({{"firewall " + words, 0, "added\n"}});
        EXPECT_THAT(RulesOf(tool), HasSubstr("-A " + rule));
        ExpectAll({{"firewall " + words, 0, "as it was before"},
                   {"firewall delete " + words, 0, "deleted"},
                   {"firewall delete " + words, 1, "has no rule"}});
    }
}

TEST_F(FirewallTest, PortsAndEchoRequests) {
    const auto rules = [] { return RulesOf("iptables") + RulesOf("ip6tables"); };
    ExpectAll({{"firewall port add tcp dport 80,443 in drop -4", 0, "added"},
               {"firewall port add sport 1000:2000 out accept -6", 0, "added"},
               {"firewall port add udp dport 010,0x50,:7 in drop -4", 0, "added"},
               {"firewall icmp drop", 0, "drop"}});
    EXPECT_THAT(rules(), AllOf(HasSubstr("-A INPUT -p udp -m multiport --dports 10,80,0:7 -j DROP"),
                               HasSubstr("-A INPUT -p tcp -m multiport --dports 80,443 -j DROP"),
                               HasSubstr("-A OUTPUT -p udp -m udp --sport 1000:2000 -j RETURN"),
                               HasSubstr("-A icmppacket -p icmp -m icmp --icmp-type 8 -j DROP"),
                               HasSubstr("-A icmppacket -p ipv6-icmp -m icmp6 --icmpv6-type 128 -j DROP")));
    // The one for tcp must not keep the daemon from making the other.
    ExpectAll({{"firewall port del udp sport 1000:2000 out accept -6", 0, "deleted"},
               {"firewall port add sport 1000:2000 out accept -6", 0, "added"},
               {"firewall port del sport 1000:2000 out accept -6", 0, "deleted"},
               {"firewall port del tcp dport 80,443 in drop -4", 0, "deleted"},
               {"firewall port del tcp dport 80,443 in drop -4", 1, "has no rule"},
               {"firewall port del udp dport 10,80,0:7 in drop -4", 0, "deleted"},
               {"firewall icmp allow -4", 0, "allow"}});
    EXPECT_THAT(rules(), AllOf(Not(HasSubstr("port")), Not(HasSubstr("--icmp-type 8 -j DROP")),
                               HasSubstr("--icmpv6-type 128 -j DROP")));
}

TEST(FirewallWithoutChains, RefusesWhatCannotBeMeant) {
    const Daemon daemon;
    ExpectAll(
        {{"firewall allow 192.168.1.5/24", 2, "write 192.168.1.0/24 or 192.168.1.5"},
         {"firewall allow 192.168.1.0/24 02:00:00:00:00:01", 2, "with the address of a host"},
         {"firewall deny 0.0.0.0-0.0.0.0", 2, "not a valid range of addresses"},
         {"firewall port add dport 70000 in drop", 2, "ports"},
         {"firewall port add dport 1:2,3:4,5:6,7:8,9:10,11:12,13:14,15:16 in drop", 2, "at most 15 ports"},
         {"firewall allow 192.168.1.5", 1, "there is no inet whitelist chain (tesselctl firewall chain add whitelist)"},
         {"firewall enable whitelist --yes", 2, "there is no inet whitelist chain"},
         {"firewall enable blacklist --yes -4", 2, "there is no inet blacklist chain"},
         {"firewall icmp drop -6", 1, "there is no inet6 icmppacket chain"},
         {"firewall disable whitelist", 1, "INPUT"}});
    ExpectAll({{"firewall chain add whitelist -4", 0, "added"}, {"firewall chain add whitelist -4", 1, "already"}});
}

TEST_F(FirewallTest, TheSessionIsNotShutOut) {
    EnterSession();
    ExpectAll(
        {{"firewall enable whitelist -4", 2, "77, which would be shut out: \"tesselctl firewall allow 192.168.1.77\""},
         {"firewall enable whitelist -4", 2, "note: inet whitelist: no entry"},
         {"firewall port add tcp dport 22 in drop", 2, "would be shut out"},
         {"firewall port add tcp sport 20:23 out drop", 2, "would be shut out"},
         {"firewall port add tcp dport 23 in drop", 0, "added"},
         {"firewall allow 192.168.1.64/26", 0, "added"}});
    EXPECT_FALSE(IsHooked("whitelist"));
    ExpectAll({{"firewall enable whitelist -4", 0, "enabled"},
               {"firewall delete allow 192.168.1.64/26", 2, "would be shut out"},
               {"firewall disable whitelist -4", 2, "1 entry of the inet whitelist would be deleted (--yes does it)"},
               {"firewall delete allow 192.168.1.64/26 --dry-run", 0, "note     your session comes from"}});
    EXPECT_TRUE(IsHooked("whitelist"));
    EXPECT_THAT(DocumentOf("firewall show -4")[0]["session"]["let_through"], Json(true));
    ExpectAll(
        {{"firewall delete allow 192.168.1.64/26 --force", 0, "deleted"}, {"firewall disable whitelist -4", 0, "d"}});
    ExpectAll({{"firewall deny 192.168.1.77", 0, "added"}, {"firewall enable blacklist -4", 2, "would be shut out"}});
}

TEST_F(FirewallTest, WhoElseIsConnectedIsAskedAbout) {
    const UniqueFd server = BoundTo(22, AF_INET);
    const UniqueFd other = BoundTo(23, AF_INET6);  // has IPv4 peers as mapped addresses
    Prepare({"ip addr add 192.168.1.20/24 dev eth0", "ip -n far addr add 192.168.1.77/24 dev far0",
             "ip netns exec far bash -c 'exec 3<>/dev/tcp/192.168.1.20/22 4<>/dev/tcp/192.168.1.20/23; sleep 60' "
             "> /dev/null 2>&1 &"});
    ASSERT_TRUE(Eventually([] { return ReadFile("/proc/net/tcp6").find("4D01A8C0") != std::string::npos; }));
    const std::string host = "192.168.1.77 is connected to port ";
    ExpectAll(
        {{"firewall enable whitelist -4", 2, host + "22 and would be shut out, " + host + "23 and would be shut"},
         {"firewall enable whitelist -4 --protect 192.168.1.77", 2, "--protect names 192.168.1.77, which would"}});
    EXPECT_FALSE(IsHooked("whitelist"));
    Options options;
    options.protect = ParseHost("192.168.1.77");
    EXPECT_EQ(KnownSessions(options).size(), 1U);  // the protected one is the connected one
    ExpectAll({{"firewall allow 192.168.1.77", 0, "added"}, {"firewall enable whitelist -4", 0, "enabled"}});
}

TEST_F(FirewallTest, EnablingSaysWhatIsMissingAndEmptiesTheOtherOnlyWhenAgreed) {
    WriteFile("/etc/resolv.conf", "nameserver 192.168.1.9\nnameserver 192.168.1.10\n");
    ExpectAll({{"firewall deny 10.0.0.1", 0, "added"},
               {"firewall enable blacklist -4", 0, "enabled"},
               {"firewall allow 192.168.1.10", 0, "added"},
               {"firewall enable whitelist -4", 2, "1 entry of the inet blacklist would be deleted"}});
    EXPECT_THAT(
        Printed("firewall enable whitelist -4 -n"),
        AllOf(HasSubstr("runs     iptables -A whitelist -j DROP"), HasSubstr("firewall allow 192.168.1.9   for DNS"),
              Not(HasSubstr("192.168.1.10   for")), HasSubstr("1 entry of the inet blacklist would be deleted")));
    ExpectAll({{"firewall enable whitelist -4 --yes", 0, "enabled"}});
    ExpectAll({{"firewall enable whitelist -6 -n", 0, "firewall allow fe80::/10   for neighbour"},
               {"firewall show -4", 0, "192.168.1.10/32 -j RETURN"},
               {"firewall show -4", 0, "RETURN is not ACCEPT"}});
    EXPECT_EQ(Printed("firewall show -4 -g list,policy"), "whitelist\tACCEPT\n");
}

TEST_F(FirewallTest, RulesGoToAFileAndBack) {
    ExpectAll({{"firewall allow 192.168.1.5", 0, "added"}, {"firewall export /tmp/rules", 0, "inet6 rule"}});
    const std::string exported = ReadFile("/tmp/rules");
    ExpectAll({{"firewall export -", 0, "-A whitelist -s 192.168.1.5/32 -j RETURN\n"},
               {"firewall export /tmp/rules", 2, "bytes (--yes"},
               {"firewall delete allow 192.168.1.5", 0, "deleted"}});
    ExpectAll({{"firewall import /tmp/rules", 2, "replace"}, {"firewall import /tmp/rules --yes -n", 0, "replaces"}});
    EXPECT_THAT(RulesOf("iptables"), Not(HasSubstr("192.168.1.5")));
    ExpectAll({{"firewall import /tmp/rules --yes", 0, "replaced"}});
    EXPECT_THAT(RulesOf("iptables"), HasSubstr("-A whitelist -s 192.168.1.5/32 -j RETURN"));
    WriteFile("/tmp/cut", exported.substr(0, exported.size() / 2));
    WriteFile("/tmp/program", "*filter\n-A INPUT --modp=/tmp/evil -j DROP\nCOMMIT\n");
    WriteFile("/tmp/counted", "*filter\n[0:0]\t--modprobe=/tmp/evil -A INPUT -j DROP\nCOMMIT\n");
    WriteFile("/tmp/bare", "*filter\n:INPUT DROP [0:0]\nCOMMIT\n");
    WriteFile("/tmp/wrong", "*filter\n:INPUT ACCEPT [0:0]\n-A INPUT -j nowhere\nCOMMIT\n");
    EnterSession("::ffff:192.168.1.77");
    ExpectAll({{"firewall import /tmp/cut --yes", 2, "cut off"},
               {"firewall import /tmp/program --yes -4", 2, "line 2 names a program"},
               {"firewall import /tmp/counted --yes -4", 2, "line 2 is no line of saved rules"},
               {"firewall import /tmp/bare --yes", 2, "line 1 comes before the family"},
               {"firewall import /tmp/bare --yes -4", 2, "would be shut out"},
               {"firewall import /tmp/wrong --yes -4", 1, "The rules are as before"},
               {"firewall import /tmp/none --yes", 2, "No such file"},
               {"firewall save /tmp/rules", 1, "firewall export FILE"}});
    EXPECT_THAT(RulesOf("iptables"), HasSubstr("-A whitelist -s 192.168.1.5/32 -j RETURN"));
}

TEST(FilterTest, BothDirectionsOfASessionAreJudged) {
    const Session session{
        .text = "", .peer = *ParseHost("192.168.1.77"), .device = ParseHost("192.168.1.20"), .devicePort = 22};
    const std::pair<const char*, bool> cases[] = {
        {"", true},
        {"-A INPUT ! -s 192.168.1.0/24 -j DROP\n", true},
        {"-A INPUT -s 192.168.0.0/16 -j DROP\n", false},
        {"-A INPUT -j list\n-A list -s 192.168.1.77/32 -j RETURN\n-A list -j DROP\n", true},
        {"-A INPUT -g list\n-A INPUT -j DROP\n-A list -s 10.0.0.0/8 -j DROP\n", true},
        {"-A INPUT -m conntrack --ctstate NEW -j DROP\n", true},
        {"-A INPUT -p tcp -m tcp --sport 22 -j DROP\n", true},
        {"-A OUTPUT -d 192.168.1.77/32 -p udp -j DROP\n-A OUTPUT -d 10.0.0.0/8 -j DROP\n", true},
        {"-A OUTPUT -p tcp -m multiport --sports 20:23 -j REJECT\n", false},
        {":OUTPUT DROP [0:0]\n", false},
        {":INPUT DROP [0:0]\n-A INPUT -p tcp -m tcp --dport 22 -j ACCEPT\n", true}};
    for (const auto& [rules, passes] : cases) {
        const auto filter =
            ParseFilter(std::string("*filter\n:list - [0:0]\n") + rules + "COMMIT\n", TESSEL_FAMILY_INET);
        EXPECT_EQ(LetsThrough(filter, session), passes) << rules;
    }
}

}  // namespace
}  // namespace tessel::test
