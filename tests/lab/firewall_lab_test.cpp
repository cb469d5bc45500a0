// The real packet filter and ARP table, and a second host that sends packets.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"
#include "tests/support/firewall.h"
#include "tests/support/lines.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;

int Run(const std::string& command) {
    return WEXITSTATUS(std::system(command.c_str()));
}

// The lines of a tool's output that match a pattern.
std::vector<std::string> Lines(const std::string& command, const std::string& pattern) {
    std::vector<std::string> lines = Split(OutputOf(command + " | grep -e '" + pattern + "'"), "\n");
    if (!lines.empty()) lines.pop_back();  // what stands behind the last end of a line
    return lines;
}

std::vector<std::string> Rules(const std::string& program) {
    return Lines(program + "-save", "^-A");
}

// A LOG rule as the tool prints it, whose prefix has quotation marks of its own.
std::string Logged(std::string rule, const char* prefix) {
    for (const char* part : {" -j LOG --log-prefix \"\\\"***", prefix, "***\\\"\" --log-level 5"})
        rule += part;
    return rule;
}

// Two addresses of the second host, and the device between them.
void ConnectHosts() {
    RunOnDevice(
        "ip addr add 10.0.0.1/24 dev eth0 && ip addr add 2001:db8::1/64 dev eth0 nodad && "
        "ip -n far addr add 10.0.0.2/24 dev far0 && ip -n far addr add 10.0.0.3/24 dev far0 && "
        "ip -n far addr add 2001:db8::2/64 dev far0 nodad");
}

// True when the second host gets an answer to an echo request: type 8, code 0, checksum, identifier "EE", number 0.
bool Echoes() {
    return Run("printf '\\010\\0\\262\\272EE\\0\\0' | ip netns exec far socat -t0.4 - IP4-SENDTO:10.0.0.1:1 | "
               "grep -qa EE") == 0;
}

// The second host sends datagrams, to a port where nobody listens.
void Send(const std::string& from, const std::string& to, int port, int count) {
    for (int i = 0; i < count; ++i)
        RunOnDevice("printf x | ip netns exec far socat -u - UDP-SENDTO:" + to + ":" + std::to_string(port) +
                    ",bind=" + from);
}

// How many packets a rule has matched. Without its own sysctl for all of them, the kernel prints what LOG rules log in
// the first network namespace only; in the others it counts it.
void ExpectMatches(const std::string& program, const std::string& rule, int packets) {
    const auto hasMatched = [&] {
        const auto lines = Lines(program + "-save -c", "-A");
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.starts_with("[" + std::to_string(packets) + ":") && line.ends_with("] " + rule);
        });
    };
    EXPECT_TRUE(Eventually(hasMatched, std::chrono::seconds(2))) << rule << "\n" << OutputOf(program + "-save -c");
}

TEST(FirewallLab, WhiteList) {
    ConnectHosts();
    const Daemon daemon;
    const auto sequence = [](bool isNew) {
        for (const char* chain : {"whitelist", "blacklist"})
            EXPECT_EQ(RequestStatus(0x1005, Chain(3, chain)), isNew ? 0 : -1);
        EXPECT_EQ(RequestStatus(0x1003, Number(5)), 0);
        EXPECT_EQ(RequestStatus(0x1001, Network(1, 2, "10.0.0.2", 32)), 0);
        EXPECT_EQ(RequestStatus(0x1001, Network(1, 10, "2001:db8::10", 0, "2001:db8::1f")), 0);
        EXPECT_EQ(RequestStatus(0x1002, Number(1) + "02:00:00:00:00:09"), 0);
        EXPECT_EQ(RequestStatus(0x100D, Number(1) + "02:00:00:00:00:0910.0.0.9"), 0);
        EXPECT_THAT(Rules("iptables"),
                    ElementsAre("-A INPUT -j whitelist",
                                "-A whitelist -s 10.0.0.9/32 -m mac --mac-source 02:00:00:00:00:09 -j RETURN",
                                "-A whitelist -m mac --mac-source 02:00:00:00:00:09 -j RETURN",
                                "-A whitelist -s 10.0.0.2/32 -j RETURN", "-A whitelist -s 127.0.0.0/8 -j ACCEPT",
                                "-A whitelist -j DROP"));
        EXPECT_THAT(Rules("ip6tables"),
                    ElementsAre("-A INPUT -j whitelist", "-A whitelist -m mac --mac-source 02:00:00:00:00:09 -j RETURN",
                                "-A whitelist -m iprange --src-range 2001:db8::10-2001:db8::1f -j RETURN",
                                "-A whitelist -s ::/64 -j ACCEPT", "-A whitelist -j DROP"));
    };
    sequence(true);
    sequence(false);
    Send("10.0.0.2", "10.0.0.1", 5002, 2);
    Send("10.0.0.3", "10.0.0.1", 5002, 3);
    ExpectMatches("iptables", "-A whitelist -s 10.0.0.2/32 -j RETURN", 2);
    ExpectMatches("iptables", "-A whitelist -j DROP", 3);
    EXPECT_EQ(RequestStatus(0x1001, Network(2, 2, "10.0.0.2", 32)), 0);
    Send("10.0.0.2", "10.0.0.1", 5002, 1);
    ExpectMatches("iptables", "-A whitelist -j DROP", 4);
    EXPECT_EQ(RequestStatus(0x1004, Number(5)), 0);
    EXPECT_THAT(Rules("iptables"), ElementsAre()) << "disabling empties the list";
    EXPECT_EQ(RequestStatus(0x1004, Number(5)), -1) << "it is off already";
}

TEST(FirewallLab, BlackListEchoRequestsAndPorts) {
    ConnectHosts();
    // The addresses of a black list have no way to be found.
    RunOnDevice("ip -n far neigh replace 2001:db8::1 lladdr 02:00:00:00:00:00 dev far0 nud permanent");
    const Daemon daemon;
    EXPECT_EQ(RequestStatus(0x1003, Number(6)), -1) << "without the chain there is nothing to jump to";
    for (const char* chain : {"whitelist", "blacklist", "icmppacket"})
        EXPECT_EQ(RequestStatus(0x1005, Chain(3, chain)), 0) << chain;
    EXPECT_EQ(RequestStatus(0x1003, Number(5)), 0);
    const std::string range = "-A blacklist -m iprange --src-range 10.0.0.3-10.0.0.9";
    const std::string port = "-A INPUT -p udp -m udp --dport 5000";
    const std::string tcp = "-A INPUT -p tcp -m multiport --dports 80,443";
    const std::string udp = "-A INPUT -p udp -m multiport --dports 80,443";
    const std::string echo = "-A icmppacket -p icmp -m icmp --icmp-type 8";
    const std::string far = "-A blacklist -s 2001:db8::2/128";
    const std::string pair = "-A blacklist -s 2001:db8::/32 -m mac --mac-source 02:00:00:00:01:00";
    const std::string echoV6 = "-A icmppacket -p ipv6-icmp -m icmp6 --icmpv6-type 128";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RequestStatus(0x1003, Number(6)), 0) << "which takes the place of the white list";
        EXPECT_EQ(RequestStatus(0x1001, Network(3, 2, "10.0.0.3", 0, "10.0.0.9")), 0);
        EXPECT_EQ(RequestStatus(0x1001, Network(3, 10, "2001:db8::2", 128)), 0);
        EXPECT_EQ(RequestStatus(0x100D, Number(3) + "02:00:00:00:01:002001:db8::2"), 0);
        EXPECT_EQ(RequestStatus(0x1006, Number(6)), 0);
        EXPECT_EQ(RequestStatus(0x1007, Ports(1, 1, 0, 2, 2, "80,443")), 0);
        EXPECT_EQ(RequestStatus(0x1007, Ports(1, 1, 2, 2, 1, "5000")), 0);
        EXPECT_THAT(
            Rules("iptables"),
            ElementsAre("-A INPUT -j blacklist", "-A INPUT -j icmppacket", Logged(tcp, "PORTFILTER"), tcp + " -j DROP",
                        Logged(udp, "PORTFILTER"), udp + " -j DROP", Logged(port, "PORTFILTER"), port + " -j RETURN",
                        "-A blacklist -s 127.0.0.0/8 -j ACCEPT", Logged(range, "BLACKLIST"), range + " -j DROP",
                        echo + " -j DROP", Logged(echo, "ICMPPACKET")));
        EXPECT_THAT(Rules("ip6tables"),
                    ElementsAre("-A INPUT -j blacklist", "-A INPUT -j icmppacket", pair + " -j DROP",
                                Logged(pair, "MACV6"), "-A blacklist -s ::/64 -j ACCEPT", Logged(far, "BLACKLISTV6"),
                                far + " -j DROP", echoV6 + " -j DROP", Logged(echoV6, "ICMPPACKETV6")));
    }
    Send("10.0.0.3", "10.0.0.1", 5000, 3);
    Send("10.0.0.2", "10.0.0.1", 5000, 2);
    Send("10.0.0.2", "10.0.0.1", 443, 4);
    Send("10.0.0.2", "10.0.0.1", 5002, 5);
    Send("[2001:db8::2]", "[2001:db8::1]", 5000, 1);
    ExpectMatches("iptables", Logged(range, "BLACKLIST"), 3);
    ExpectMatches("iptables", range + " -j DROP", 3);
    ExpectMatches("iptables", Logged(port, "PORTFILTER"), 2);  // accepted, and logged
    ExpectMatches("iptables", port + " -j RETURN", 2);
    ExpectMatches("iptables", Logged(udp, "PORTFILTER"), 4);
    ExpectMatches("iptables", udp + " -j DROP", 4);
    // Rules that are inserted end up in front of their LOG rules.
    ExpectMatches("ip6tables", pair + " -j DROP", 1);
    ExpectMatches("ip6tables", Logged(pair, "MACV6"), 0);
    EXPECT_EQ(RequestStatus(0x100D, Number(4) + "02:00:00:00:01:002001:db8::2"), 0);
    Send("[2001:db8::2]", "[2001:db8::1]", 5000, 2);
    ExpectMatches("ip6tables", Logged(far, "BLACKLISTV6"), 2);
    ExpectMatches("ip6tables", far + " -j DROP", 2);

    EXPECT_FALSE(Echoes());
    ExpectMatches("iptables", echo + " -j DROP", 1);
    WriteFile("/proc/sys/net/ipv4/icmp_echo_ignore_all", "1");
    EXPECT_EQ(RequestStatus(0x1006, Number(1)), 0);
    EXPECT_TRUE(Echoes()) << "the kernel's own switch is set as well";
    EXPECT_EQ(RequestStatus(0x1002, Number(3) + "02:00:00:00:01:00"), 0);
    Send("10.0.0.2", "10.0.0.1", 5000, 2);
    ExpectMatches("iptables", "-A blacklist -m mac --mac-source 02:00:00:00:01:00 -j DROP", 2);

    // These tools take no file name behind a ">" that no shell has read.
    EXPECT_EQ(RequestStatus(0x1008, Number(3) + "/tmp/rules"), -1);
    EXPECT_THAT(Lines("ls /tmp", "rules"), ElementsAre());
}

TEST(FirewallLab, ArpEntriesReachTheKernel) {
    ConnectHosts();
    const Daemon daemon;
    const std::string onEth0 = Arp("eth0", "02:00:00:00:00:77", "10.0.0.7");
    const std::string anywhere = Arp("", "02:00:00:00:00:78", "10.0.0.8");
    EXPECT_EQ(RequestStatus(0x100A, onEth0), 0);
    EXPECT_EQ(RequestStatus(0x100A, anywhere), 0);
    EXPECT_THAT(Lines("ip neigh | sort", "PERMANENT"),
                ElementsAre("10.0.0.7 dev eth0 lladdr 02:00:00:00:00:77 PERMANENT ",
                            "10.0.0.8 dev eth0 lladdr 02:00:00:00:00:78 PERMANENT "));
    EXPECT_EQ(RequestStatus(0x100B, onEth0), 0);
    EXPECT_EQ(RequestStatus(0x100B, anywhere), 0);
    EXPECT_THAT(Lines("ip neigh", "PERMANENT"), ElementsAre());
    EXPECT_EQ(RequestStatus(0x100A, Arp("eth9", "02:00:00:00:00:77", "10.0.0.7")), -1);
}

}  // namespace
}  // namespace tessel::test
