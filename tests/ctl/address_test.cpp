// Addresses and links: what the daemon answers, what the kernel has then, and what people read.
#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

TEST(Addresses, AreChangedInTheKernelAndReadBack) {
    const Daemon daemon;
    EXPECT_THAT(DocumentOf("addr add 192.168.1.20/24 dev eth0").dump(),
                testing::StartsWith(R"({"interface":"eth0","addresses":[{"address":"192.168.1.20","prefix_length":24,)"
                                    R"("family":"inet","scope":"global","dynamic":false,"tentative":false})"));
    ExpectAll({{"addr add 192.168.1.21/24 eth0", 0, "eth0   192.168.1.21/24 added\n"},
               {"addr add 2001:db8::5/64 dev eth0 -q", 0, ""},
               {"-g address,scope addr show dev eth0 -4", 0, "192.168.1.20\tglobal\n192.168.1.21\tglobal\n"},
               {"-g addresses.address addr show dev eth0 -4", 0, "192.168.1.20\n192.168.1.21\n"},
               {"-g interface,nonsense addr show dev eth0", 2, "no such field"},
               {"addr show", 0, "\neth1       fe80::ff:fe00:1/64  link"},
               {"addr del 192.168.1.21/24 dev eth0", 0, "eth0   192.168.1.21/24 deleted\n"}});
    EXPECT_THAT(Printed("addr set dev eth0 192.168.1.30/24 192.168.1.31/24 -g address,prefix_length"),
                MatchesRegex("192.168.1.30\t24\n192.168.1.31\t24\n2001:db8::5\t64\nfe80::.*\n"));
    EXPECT_THAT(Printed("addr flush dev eth0 -4 -g address"), MatchesRegex("2001:db8::5\nfe80::.*\n"));
    EXPECT_EQ(DocumentOf("addr show dev eth0 -4").dump(), R"([{"interface":"eth0","addresses":[],"truncated":false}])");
}

TEST(Addresses, FailuresSayWhy) {
    EXPECT_EQ(OutputOf(TESSEL_CTL_PATH " -V 2>&1 >/dev/full; echo $?"),
              "tesselctl: standard output: No space left on device\n1\n");
    ExpectAll({{"addr show", 3, "the daemon is not running (no socket"}, {"-n addr flush dev eth0 -6", 0, "runs"}});
    { const Daemon ended; }
    ExpectAll({{"addr show", 3, "the daemon is not running (nobody listens on the stale socket"}});
    const Daemon daemon;
    Prepare({"ip addr add 192.168.1.20/24 dev eth0"});
    ExpectAll(
        {{"addr add 192.168.1.20/24 dev eth0", 1, "Probable cause: eth0 already has 192.168.1.20/24."},
         {"addr del 192.168.1.77/24 dev eth0", 1, "Probable cause: eth0 has no 192.168.1.77/24."},
         {"addr add 192.168.1.20/24 dev eth9", 1, "there is no interface eth9"},
         {"addr show dev eth9", 1, "addr show dev eth9: the daemon answered -1. Probable cause: there is no interface"},
         {"addr set dev eth9 192.168.1.20/24", 1, "Probable cause: there is no interface eth9.\n"},
         {"addr set dev eth0 10.0.0.1/8 10.0.0.1/8", 2, "10.0.0.1/8 is named twice"},
         {"addr set dev eth0 10.0.0.1/8 -6", 2, "-4 or -6 contradicts"},
         {"addr set dev eth0 192.168.1.20/24 ff02::1/64", 1, ". eth0 has 192.168.1.20/24"}});
}

TEST(Addresses, FullListsAreMarkedAndNamesThatCannotBeSentHideNoOther) {
    const Daemon daemon;
    Prepare({"for i in $(seq 17); do ip addr add 10.0.0.$i/24 dev eth0; done"});
    ExpectAll({{"addr show dev eth0 -4", 0, "16 addresses are shown; there may be more (--kernel shows all)"},
               {"addr show dev eth0 -4 --kernel", 0, "eth0: the kernel alone reports 10.0.0.17/24"},
               {"addr add 10.0.0.18/24 dev eth0", 0, "not read back, as the daemon reports only 16 addresses"}});
    EXPECT_EQ(DocumentOf("addr show dev eth0 -4")[0]["truncated"], true);
    const Json all = DocumentOf("addr show dev eth0 -4 --kernel")[0];
    EXPECT_EQ(all["truncated"], false);
    EXPECT_EQ(all["addresses"].size(), 18U);
    Prepare({"ip link add \"$(printf 'a\\177b')\" type veth peer name other0"});
    for (const char* const line : {"addr show", "link show", "dhcpd show"})
        EXPECT_FALSE(DocumentOf(line).empty()) << line;
    ExpectAll({{"addr show", 2, "cannot be sent"}, {"export", 0, "eth0"}});
}

TEST(Addresses, TheSessionIsKept) {
    const Daemon daemon;
    Prepare({"ip addr add 192.168.1.20/24 dev eth0"});
    ExpectAll(
        {{"addr flush dev eth0 --protect 192.168.1.77", 2, "names 192.168.1.77, which is reached from 192.168.1.20"},
         {"addr flush dev eth1 --protect 192.168.1.77", 0, "flushed"}});
    EnterSession();
    ExpectAll({{"addr del 192.168.1.20/24 dev eth0", 2, "your session runs over 192.168.1.20"},
               {"addr flush dev eth0 -n", 0, "would be refused without --force: your session runs over"},
               {"addr set dev eth0 10.0.0.1/8", 2, "(--force does it)"},
               {"link set eth0 mac 02:00:00:00:00:09", 2, "your session runs over"},
               {"addr flush dev eth0 -6", 0, "flushed"},
               {"addr set dev eth0 10.0.0.1/8 192.168.1.20/24", 0, "set to"},
               {"addr del 10.0.0.1/8 dev eth0", 0, "deleted"},
               {"link set eth0 mtu 1000", 0, "mtu 1000"},
               {"addr flush dev eth0 --force", 0, "flushed"}});
    Prepare({"ip link set eth0 mtu 1500", "ip addr add 2001:db8::5/64 dev eth0 nodad"});
    EnterSession("2001:db8::77", "2001:db8::5");
    ExpectAll({{"link set eth0 mtu 1279", 2, "your session runs over 2001:db8::5"}, {"link set eth0 mtu 1280", 0, ""}});
}

TEST(Links, AreShownAndChanged) {
    const Daemon daemon;
    Prepare({"ip addr add 192.168.1.20/24 dev eth0", "ip link set eth2 down"});
    ExpectAll({{"link show eth0", 0, "eth0       up     1500  02:00:00:00:00:00  192.168.1.20/24\n"},
               {"link show eth2", 0, "eth2       down"},
               {"link show lo", 0, "lo: the daemon reports no hardware address"},
               {"link show eth9", 1, "there is no interface eth9"},
               {"link set eth0 mtu 1400", 0, "eth0   mtu 1400\n"},
               {"link mtu eth0", 0, "1400\n"},
               {"link set eth0 mtu 67", 2, "\"67\" is not a number from 68 to 65536"},
               {"link set eth0 mtu 65536", 1, "eth0 does not take this size"},
               {"link mtu eth9", 1, "there is no interface eth9"},
               {"link set eth0 mac 02:00:00:00:00:0a", 0, "eth0   mac 02:00:00:00:00:0a\n"},
               {"link mac eth0", 0, "02:00:00:00:00:0a\n"},
               {"link mac lo", 1, "lo has no Ethernet address"},
               {"link set eth0 mac 01:00:00:00:00:0a", 2, "is a multicast address"},
               {"link set eth0 mac ff:ff:ff:ff:ff:ff", 2, "is the broadcast address"},
               {"link set eth0 mac 00:00:00:00:00:00", 2, "is not an address"},
               // Read back from the kernel, which knows what the daemon cannot read.
               {"link set eth0 mac 22:00:00:00:00:0a", 0, "eth0   mac 22:00:00:00:00:0a\n"},
               {"link mac eth0", 1, "it is 22:00:00:00:00:0a"}});
    EXPECT_THAT(DocumentOf("link show eth0").dump(),
                testing::StartsWith(R"([{"interface":"eth0","state":"up","mtu":1400,"mac":"22:00:00:00:00:0a",)"
                                    R"("addresses":[{"address":"192.168.1.20","prefix_length":24,"family":"inet",)"));
    EXPECT_EQ(DocumentOf("link show lo")[0]["mac"], nullptr);
    EXPECT_EQ(DocumentOf("link show").size(), 4U);
}

}  // namespace
}  // namespace tessel::test
