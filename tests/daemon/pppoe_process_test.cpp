// The program that dials: what the shell makes of its line, and how it is found again.
#include "tests/support/dhcp.h"
#include "tests/support/link_requests.h"

namespace tessel::test {
namespace {

TEST(PppoeProcess, GetsEveryByteAndIsKilledByAStop) {
    StandInClients programs;
    const Daemon daemon;
    const std::string options =
        " noipdefault tessel_pppoe noauth default-asyncmap hide-password nodetach mtu 1492 mru 1492 noaccomp nodeflate "
        "nopcomp novj novjccomp defaultroute usepeerdns maxfail 0 user ";
    std::string bytes = "  ";  // of which the shell would make one blank between words
    for (int c = ' '; c <= 0xFF; ++c) {
        if (c != 0x7F) bytes += static_cast<char>(c);
    }
    const std::string hostile = "$(touch /tmp/hostile)`touch /tmp/hostile`'; touch /tmp/hostile; '";
    EXPECT_EQ(RequestStatus(0x601, Dial(2, "-u  ser's", bytes, "isp")), 0);
    EXPECT_EQ(programs.Take(1), "pppd pty  pppoe -I eth0 -S isp -T 80 -U  -m 1412 " + options + "-u  ser's password " +
                                    bytes + " noipv6 blocked");
    EXPECT_EQ(RequestStatus(0x601, Dial(10, "josh", hostile)), 0);
    EXPECT_EQ(programs.Take(1), "pppd pty pppoe -I eth0 -T 80 -U  -m 1412" + options + "josh password " + hostile +
                                    " noip +ipv6 blocked");
    EXPECT_FALSE(std::filesystem::exists("/tmp/hostile"));
    for (const auto& [family, word] : {std::pair<u16, const char*>{10, "+ipv6"}, {2, "noipv6"}}) {
        EXPECT_GT(FindProgram("pppd", word), 0);
        EXPECT_EQ(RequestStatus(0x602, Bytes(family)), 0);
        EXPECT_EQ(programs.Take(1), "kill -9");
        EXPECT_TRUE(Eventually([&, name = word] { return FindProgram("pppd", name) == 0; })) << word;
    }
}

}  // namespace
}  // namespace tessel::test
