// What the real packet filter has after requests, which it finds again when they come a second time.
#include <gmock/gmock.h>

#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/firewall.h"
#include "tests/support/lines.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;

std::vector<std::string> Rules(const std::string& program) {
    std::vector<std::string> rules = Split(OutputOf(program + "-save | grep ^-A"), "\n");
    if (!rules.empty()) rules.pop_back();  // what stands behind the last end of a line
    return rules;
}

// A LOG rule as the tool prints it, whose prefix has quotation marks of its own.
std::string Logged(const std::string& rule, const std::string& prefix) {
    return rule + " -j LOG --log-prefix \"\\\"***" + prefix + "***\\\"\" --log-level 5";
}

void Request(std::initializer_list<std::pair<u32, std::string>> requests) {
    for (const auto& [type, request] : requests)
        EXPECT_EQ(RequestStatus(type, request), 0) << std::hex << type << ' ' << request;
}

TEST(FirewallLab, RulesAreMadeOnceAndDeletedWithTheirLogRules) {
    const std::string mac = "02:00:00:00:00:09";
    const Daemon daemon;
    EXPECT_EQ(RequestStatus(0x1003, Number(6)), -1) << "without the chain there is nothing to jump to";
    Request({{0x1005, Chain(3, "whitelist")}, {0x1005, Chain(3, "blacklist")}, {0x1005, Chain(3, "icmppacket")}});
    const std::string range = "-A blacklist -m iprange --src-range 10.0.0.3-10.0.0.9";
    const std::string port = "-A INPUT -p udp -m udp --dport 5000";
    const std::string tcp = "-A INPUT -p tcp -m multiport --dports 80,443";
    const std::string udp = "-A INPUT -p udp -m multiport --dports 80,443";
    const std::string echo = "-A icmppacket -p icmp -m icmp --icmp-type 8";
    const std::string far = "-A blacklist -s 2001:db8::2/128";
    const std::string pair = "-A blacklist -s 2001:db8::/32 -m mac --mac-source " + mac;
    const std::string echoV6 = "-A icmppacket -p ipv6-icmp -m icmp6 --icmpv6-type 128";
    for (int round = 0; round < 2; ++round) {
        Request({{0x1003, Number(6)},
                 {0x1001, Network(3, 2, "10.0.0.3", 0, "10.0.0.9")},
                 {0x1001, Network(3, 10, "2001:db8::2", 128)},
                 {0x100D, Number(3) + mac + "2001:db8::2"},
                 {0x1006, Number(6)},
                 {0x1007, Ports(1, 1, 0, 2, 2, "80,443")},
                 {0x1007, Ports(1, 1, 2, 2, 1, "5000")}});
        EXPECT_THAT(
            Rules("iptables"),
            ElementsAre("-A INPUT -j blacklist", "-A INPUT -j icmppacket", Logged(tcp, "PORTFILTER"), tcp + " -j DROP",
                        Logged(udp, "PORTFILTER"), udp + " -j DROP", Logged(port, "PORTFILTER"), port + " -j RETURN",
                        "-A blacklist -s 127.0.0.0/8 -j ACCEPT", Logged(range, "BLACKLIST"), range + " -j DROP",
                        echo + " -j DROP", Logged(echo, "ICMPPACKET")));
        // Rules that are inserted end up in front of their LOG rules.
        EXPECT_THAT(Rules("ip6tables"),
                    ElementsAre("-A INPUT -j blacklist", "-A INPUT -j icmppacket", pair + " -j DROP",
                                Logged(pair, "MACV6"), "-A blacklist -s ::/64 -j ACCEPT", Logged(far, "BLACKLISTV6"),
                                far + " -j DROP", echoV6 + " -j DROP", Logged(echoV6, "ICMPPACKETV6")));
    }
    Request({{0x1001, Network(4, 2, "10.0.0.3", 0, "10.0.0.9")},
             {0x1001, Network(4, 10, "2001:db8::2", 128)},
             {0x100D, Number(4) + mac + "2001:db8::2"},
             {0x1007, Ports(2, 1, 0, 2, 2, "80,443")},
             {0x1007, Ports(2, 1, 2, 2, 1, "5000")},
             {0x1006, Number(1)}});
    EXPECT_THAT(Rules("iptables"), ElementsAre("-A INPUT -j blacklist", "-A INPUT -j icmppacket",
                                               "-A blacklist -s 127.0.0.0/8 -j ACCEPT", echo + " -j RETURN"));
    // These tools take no file name behind a ">" that no shell has read.
    EXPECT_EQ(RequestStatus(0x1008, Number(3) + "/tmp/rules"), -1);
}

}  // namespace
}  // namespace tessel::test
