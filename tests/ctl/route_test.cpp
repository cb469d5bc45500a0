// Gateways, priorities, routes and rules: what the daemon answers, what the kernel has then, and what people read.
#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

class Routing : public testing::Test {
  protected:
    Routing() {
        PrepareLinks();
    }

    Daemon daemon_;
};

TEST_F(Routing, GatewaysAreSetShownAndDeleted) {
    EXPECT_EQ(DocumentOf("gateway set 192.168.1.1 dev eth0").dump(),
              R"({"interface":"eth0","family":"inet","gateway":"192.168.1.1","learnt":false,"table":254})");
    Prepare({"ip route add default via 192.168.1.9 dev eth0 metric 50"});
    ExpectAll({{"gateway set 2001:db8::1 dev eth0", 0, "eth0   gateway 2001:db8::1 set\n"},
               {"gateway set 2001:db8::2 dev eth0", 0, "eth0   gateway 2001:db8::2 set\n"},
               {"gateway show", 0, "eth0       inet    192.168.1.1  0\n"},
               {"gateway show", 0, "192.168.1.9  50      another default route: the daemon does not report it\n"},
               {"gateway show dev eth1 --no-header", 0, "eth1  inet\neth1  inet6\n"},
               {"-g gateway,metric gateway show dev eth0 -6", 0, "2001:db8::2\t1024\n"},
               {"gateway set 192.168.1.1 dev eth0 table 7", 0, "eth0   gateway 192.168.1.1 set"},
               {"-g table,gateway gateway show dev eth0 table 7 -4", 0, "7\t192.168.1.1\n"},
               {"-g table,gateway gateway show dev eth0 table 8 -4", 0, "8\t\n"},
               {"gateway del table 7", 0, "the device   gateway 192.168.1.1 deleted\n"},
               {"gateway del dev eth0", 0, "eth0   gateway 192.168.1.1, gateway 2001:db8::2 deleted\n"},
               {"gateway del dev eth0", 0, "eth0   gateway 192.168.1.9 deleted\n"},
               {"gateway del dev eth0", 1, "nothing to delete, eth0 has no gateway"}});
}

TEST_F(Routing, FailuresOfGatewaysSayWhy) {
    Prepare({"ip route add default via 192.168.1.1 dev eth0", "ip link set eth2 down",
             "ip -6 route add default via 2001:db8::9 dev eth0 expires 600"});
    ExpectAll({{"gateway set 192.168.9.1 dev eth0", 1, "192.168.9.1 is in no network of eth0 (192.168.1.20/24)."},
               {"gateway set 192.168.1.2 dev eth0", 1, "eth0 already has 192.168.1.1 (use \"gateway replace\")."},
               {"-n gateway set 192.168.1.2 dev eth0", 0, "it will fail: eth0 already has 192.168.1.1"},
               {"gateway set fe80::1", 2, "an IPv6 gateway needs its interface"},
               {"gateway show dev eth0 -6 -g gateway,learnt", 0, "2001:db8::9\ttrue\n"},
               {"gateway show dev eth9", 1, "Probable cause: there is no interface eth9."},
               {"gateway set 192.168.9.1 dev eth9", 1, "there is no interface eth9"},
               {"gateway set 192.168.9.1 dev eth2", 1, "eth2 is down"},
               {"gateway replace 192.168.9.1 dev eth0", 1, "The old gateway 192.168.1.1 is set again"},
               {"gateway set 0.0.0.0 dev eth0", 2, "\"0.0.0.0\" is not a valid address"}});
    EnterSession();
    ExpectAll({{"gateway set 192.168.2.1 dev eth1", 1, "the default route of eth0 has metric 0, too"},
               {"gateway del dev eth0", 2, "your session runs over 192.168.1.20"},
               {"gateway replace 192.168.1.2 dev eth0", 2, "your session runs over"},
               {"gateway replace 192.168.1.2 dev eth0 --force", 0, "two steps: 192.168.1.1 is deleted, then"}});
}

TEST_F(Routing, PrioritiesDecide) {
    Prepare({"ip route add default via 192.168.1.1 dev eth0"});
    ExpectAll(
        {{"priority show", 0, "no priorities are set"},
         {"priority set eth9 10", 2, "there is no interface eth9, and the first list decides which interfaces count"},
         {"priority set eth0 10 eth1 20", 0, "eth0               10   default route moved\n"},
         {"gateway set 192.168.2.1 dev eth1", 0, "set"},
         {"-g priority,gateway,metric priority show", 0, "10\t192.168.1.1\t10\n20\t192.168.2.1\t20\n"},
         {"priority set eth 5", 2, "the daemon would change eth0 instead"},
         {"priority set eth0 5 eth0 6", 2, "eth0 is named twice"},
         {"priority set eth1 5 eth3 30", 5, "eth3                    not taken: the set of interfaces is fixed"}});
    EXPECT_EQ(DocumentOf("priority set eth1 5").dump(),
              R"([{"interface":"eth1","previous":5,"priority":5,"taken":true,"remark":null}])");
    Prepare({"ip route replace default via 192.168.2.1 dev eth1 metric 4", "ip route del default dev eth1 metric 5"});
    ExpectAll({{"gateway show dev eth1 -4", 0, "4       its priority is not in effect"}});
}

TEST_F(Routing, RoutesAreChangedInTheKernelAndReadBack) {
    EXPECT_EQ(DocumentOf("route add 10.1.0.0/16 via 192.168.1.254 metric 5").dump(),
              R"({"destination":"10.1.0.0/16","gateway":"192.168.1.254","interface":"eth0","metric":5,"table":254,)"
              R"("family":"inet"})");
    ExpectAll({{"route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 6", 0, "dev eth0 metric 6   added\n"},
               {"route add 2001:db8:5::/48 via 2001:db8::1 dev eth0", 0, "dev eth0 metric 1024   added\n"},
               {"route add 10.3.0.0/16 via 192.168.1.254 dev eth0 table 7", 0, "table 7   added\n"},
               {"route show", 0, "10.1.0.0/16      192.168.1.254  eth0       5       daemon\n"},
               {"route show --kernel", 0, "192.168.1.0/24                  eth0       0       kernel\n"},
               {"route metric 10.1.0.0/16 6 via 192.168.1.254 dev eth0", 2, "would be deleted and not added again"},
               {"route metric 10.1.0.0/16 30 via 192.168.1.254 dev eth0", 0, "still there: 10.1.0.0/16 via"},
               {"route del 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 30", 2, "254 dev eth0 metric 6 (--force"},
               {"route del 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 6", 0, "metric 6   deleted\n"},
               {"route del 10.3.0.0/16 via 192.168.1.254 dev eth0 table 7", 0, "deleted"}});
    Prepare({"ip route add blackhole 10.2.0.0/16"});
    EXPECT_EQ(Printed("route show --kernel -4 -g destination,gateway,interface,metric"),
              "10.1.0.0/16\t192.168.1.254\teth0\t30\n192.168.1.0/24\t\teth0\t0\n192.168.2.0/24\t\teth1\t0\n");
    Prepare({"for i in $(seq 20 29); do ip route add 10.$i.0.0/16 via 192.168.1.254; done"});
    EXPECT_EQ(DocumentOf("route show")["truncated"], true);
    EXPECT_EQ(DocumentOf("route show --kernel")["truncated"], false);
}

TEST_F(Routing, FailuresOfRoutesSayWhy) {
    Prepare({"ip route add 10.1.0.0/16 via 192.168.1.254"});
    ExpectAll(
        {{"route add 2001:db8:5::/48 via fe80::1", 1, "fe80::1 is on every link: name the interface"},
         {"route add 2001:db8:5::/48 via 2001:db9::1 dev eth1", 1, "2001:db9::1 is in no network of eth1 (fe80::"},
         {"route add 10.1.0.0/16 via 192.168.1.253", 1, "there is already 10.1.0.0/16 via 192.168.1.254 dev eth0."},
         {"route add 10.2.0.0/16 via 192.168.7.254 dev eth0", 1, "is in no network of eth0"},
         {"route add 10.2.3.0/16 via 192.168.1.254", 2, "10.2.3.0/16 is not a network but an address in 10.2.0.0/16"},
         {"route add 10.2.0.0/16 via fe80::1 dev eth0", 2, "differ in family"},
         {"route del 10.1.0.0/16 via 192.168.1.253", 1, "there is only 10.1.0.0/16 via 192.168.1.254 dev eth0."},
         {"route del 10.9.0.0/16 via 192.168.1.253", 1, "there is no such route"},
         {"route del 10.9.0.0/16 via 192.168.1.253 dev eth9", 1, "there is no interface eth9"}});
}

TEST_F(Routing, RulesAreChangedInTheKernelAndReadBack) {
    Prepare({"ip rule add pref 40000 iif eth0 table 100"});
    ExpectAll({{"table add 100", 0, "pref 32765 from all table 100   added\n"},
               {"table add 100", 0, "there is already pref 32765 from all table 100"},
               {"table del 100", 0, "pref 32764 from all table 100   deleted\n"},
               {"rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100", 0, "fwmark 0x10 table 100   added\n"},
               {"rule show -4", 0, "30     192.168.1.0/24  0x10    100    inet\n"},
               {"rule show -4 -g pref,fwmark,other_conditions", 0,
                "0\t\tfalse\n30\t16\tfalse\n32765\t\tfalse\n32766\t\tfalse\n32767\t\tfalse\n40000\t\ttrue\n"},
               {"table del 100", 2, "the kernel would delete pref 30 from 192.168.1.0/24 fwmark 0x10 table 100"},
               {"rule del from 192.168.2.0/24 pref 30 table 100", 2, "the kernel would delete pref 30 from 192.168.1"},
               {"rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100", 1, "there is already pref 30"},
               {"rule del from 192.168.2.0/24 table 100", 1, "there is no such rule"},
               {"rule add from 2001:db8::/32 table 100", 2, "IPv4 rules only"},
               {"table add 254 -n", 0, "table 254 is one of the kernel's own"}});
    EXPECT_EQ(
        DocumentOf("rule del pref 30").dump(),
        R"({"pref":30,"from":"192.168.1.0/24","fwmark":16,"table":100,"family":"inet","other_conditions":false})");
}

// Nothing but the answers of the daemon's tools says that it was done.
TEST(Routed, SuccessThatDidNotHappenIsNotApplied) {
    Prepare({"iptables -N whitelist", "iptables -N blacklist"});
    StandInTools tools({"ip", "iptables"});
    const Daemon daemon;
    ExpectAll({{"addr add 192.168.1.20/24 dev eth0", 5, "answered success, but eth0 does not have 192.168.1.20/24"},
               {"route add 10.1.0.0/16 via 192.168.1.254", 5, "answered success, but no such route was added"},
               {"table add 100", 5, "answered success, but no such rule was added"},
               {"rule del pref 32767", 5, "answered success, but no rule is gone"},
               {"gateway set 192.168.1.1 dev eth0", 5, "answered success, but eth0 has no gateway"},
               {"firewall chain add extra -4", 5, "no inet chain \"extra\""},
               {"firewall deny 10.0.0.1", 5, "no inet chain \"blacklist\" with the rule"}});
    tools.Answer("ip -4 addr show dev eth0", "2: eth0: <UP> mtu 1500\n    inet 192.168.1.20/24 scope global eth0\n");
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 \n");
    ExpectAll({{"addr del 192.168.1.20/24 dev eth0", 5, "answered success, but eth0 still has 192.168.1.20/24"},
               {"addr flush dev eth0", 5, "eth0 still has 192.168.1.20/24"},
               {"addr set dev eth0 192.168.1.20/24 10.0.0.1/8", 5, "eth0 does not have 10.0.0.1/8"},
               {"-j addr add 10.0.0.1/8 dev eth0", 5, R"("error":"not_applied")"},
               {"gateway del dev eth0 -4", 5, "answered success, but eth0 still has 192.168.1.1"}});
}

}  // namespace
}  // namespace tessel::test
