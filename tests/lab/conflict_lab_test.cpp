// Another host on the link that uses the device's addresses or its MAC: frames as it sends and sees them.
#include <linux/if_ether.h>

#include "core/ipc.h"
#include "tests/support/arp.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

const std::string kForeign = "\xc0\xa8\x01\x63"s;
constexpr u32 kOn = 0x119;
constexpr u32 kOff = 0x11A;

// The device's answer to a claim.
std::string Defence(const std::string& ip, const std::string& peerMac = kPeerMac) {
    return Frame(peerMac, kOwnMac, Arp(2, kOwnMac, ip, peerMac, ip));
}

// Announces one of the device's addresses as another host's.
std::string Claim(const std::string& mac, const std::string& ip, char operation = 1) {
    return Frame(kBroadcast, mac, Arp(operation, mac, ip, kNoMac, ip));
}

// The device's next frame that begins so, or that is no announcement of its own; empty when none comes.
std::string NextFrame(const FarLink& peer, const std::string& begin = "") {
    std::string frame = peer.Next();
    while (begin.empty() ? frame.starts_with(kBroadcast) : !frame.empty() && !frame.starts_with(begin))
        frame = peer.Next();
    return frame;
}

class Reports : public Listener {
  public:
    using Listener::Listener;
    // "TYPE:PAYLOAD"; empty when none comes in time.
    [[nodiscard]] std::string Next(int timeoutMs = 10000) {
        if (Listener::Next(timeoutMs) < 0) return "";
        return std::to_string(event.type) + ":" + std::string(reinterpret_cast<const char*>(event.payload), event.size);
    }
};

// So many bytes of what comes, one behind the other; fewer when nothing comes any more.
template <typename Next>
std::string Take(std::size_t bytes, Next next) {
    std::string taken;
    for (std::string piece = next(); !piece.empty(); piece = taken.size() < bytes ? next() : "")
        taken += piece;
    return taken;
}

class ConflictLab : public testing::Test {
  protected:
    // eth0 has two IPv4 addresses, one with a label, and nobody but the daemon answers for them.
    ConflictLab() {
        RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 192.168.1.21/24 dev eth0 label eth0:1");
        RunOnDevice("cd /proc/sys/net; echo 1 >ipv6/conf/eth0/disable_ipv6; echo 8 >ipv4/conf/eth0/arp_ignore");
    }
    static void Switch(u32 code, u16 family) {
        EXPECT_EQ(RequestStatus(code, Bytes(family)), 0);
    }
    // A daemon that has just started may not listen yet.
    void AwaitDefence() const {
        EXPECT_TRUE(Eventually([&] {
            peer.Send(Claim(kPeerMac, kFirst));
            return peer.Next(100) == Defence(kFirst);
        }));
        while (!peer.Next(300).empty()) {
        }
    }
    const FarLink peer{"far0", ETH_P_ARP};
};

TEST_F(ConflictLab, ArpIsAnsweredAndReported) {
    const Daemon daemon;
    Reports reports(TESSEL_SOCKET_IP_CONFLICT);
    const std::string one = "1:" + Report(2, kFirst);
    const std::string two = "2:" + Report(2, kSecond);
    const auto peers = [](const std::string& arp) { return Frame(kBroadcast, kPeerMac, arp); };
    const std::string announcement = Claim(kPeerMac, kFirst);
    // With the answers and the reports.
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        {"announced by a request", announcement, Defence(kFirst), one},
        {"announced by a reply", Claim(kPeerMac, kFirst, 2), "", one},
        {"probed for", peers(Arp(1, kPeerMac, kNoIp, kNoMac, kSecond)),
         Frame(kPeerMac, kOwnMac, Arp(2, kOwnMac, kSecond, kPeerMac, kNoIp)), ""},
        {"probed for with a target MAC", peers(Arp(1, kPeerMac, kNoIp, kOwnMac, kFirst)), "", ""},
        {"answered to a probe", peers(Arp(2, kPeerMac, kFirst, kNoMac, kNoIp)), "", one},
        {"the same as a request", peers(Arp(1, kPeerMac, kFirst, kNoMac, kNoIp)), "", ""},
        {"the own MAC: every address is defended", Claim(kOwnMac, kForeign),
         Defence(kFirst, kOwnMac) + Defence(kSecond, kOwnMac), two},
        {"own MAC and address", Claim(kOwnMac, kFirst, 2), "", one + two},
        {"one byte short", peers(Arp(1, kPeerMac, kFirst, kNoMac, kFirst).substr(0, 27)), "", ""},
        {"no Ethernet", peers("\0\x06"s + Arp(1, kPeerMac, kFirst, kNoMac, kFirst).substr(2)), "", ""},
        {"foreign addresses", Claim(kPeerMac, kForeign), "", ""},
    };
    AwaitDefence();
    Switch(kOn, TESSEL_FAMILY_INET);
    // A known conflict stands behind each row: what the row brings has come before that one's.
    for (const auto& [description, frame, ofRow, reportsOfRow] : rows) {
        peer.Send(frame);
        peer.Send(announcement);
        const std::string answers = ofRow + Defence(kFirst);
        const std::string reported = reportsOfRow + one;
        EXPECT_EQ(Take(answers.size(), [&] { return NextFrame(peer); }), answers) << description;
        EXPECT_EQ(Take(reported.size(), [&] { return reports.Next(); }), reported) << description;
    }
    Switch(kOff, TESSEL_FAMILY_INET);
    Switch(kOn, TESSEL_FAMILY_INET6);
    peer.Send(announcement);
    EXPECT_EQ(NextFrame(peer), Defence(kFirst)) << "with the reports switched off too";
    EXPECT_EQ(reports.Next(300), "");
    // Every frame of a flood is answered; the log has some lines about it.
    const auto lines = [] { return WholeLines(ReadFile("/var/log/messages")).size(); };
    const auto before = lines();
    for (int i = 0; i < 400; ++i) {
        peer.Send(announcement);
        ASSERT_EQ(NextFrame(peer), Defence(kFirst)) << i;
    }
    EXPECT_TRUE(IsLogged("Conflicted IP[192.168.1.20]"));
    EXPECT_LT(lines() - before, 300U);
}

TEST_F(ConflictLab, AddressesAreAnnouncedOnChangesAndAfterConflicts) {
    const Daemon daemon;
    Reports reports(TESSEL_SOCKET_IP_CONFLICT);
    const std::string announced = Claim(kOwnMac, kFirst);
    // A daemon that has just started may not follow the kernel yet: a second change finds it listening.
    EXPECT_TRUE(Eventually(
        [&] {
            RunOnDevice("ip addr del 192.168.1.21/24 dev eth0; ip addr add 192.168.1.21/24 dev eth0");
            RunOnDevice("ip addr del 192.168.1.21/24 dev eth0");
            return peer.Next(6000) == announced;
        },
        20s))
        << "in the next cycle";
    while (!peer.Next(6000).empty()) {  // until what these changes owe has been sent
    }
    Switch(kOn, TESSEL_FAMILY_INET);
    peer.Send(Claim(kPeerMac, kFirst, 2));
    EXPECT_EQ(reports.Next(), "1:" + Report(2, kFirst));
    EXPECT_EQ(Take(3 * announced.size(), [&] { return peer.Next(); }), announced + announced + announced)
        << "three rounds of confirmation";
    EXPECT_EQ(peer.Next(6000), "") << "and no fourth";
}

TEST_F(ConflictLab, OnlyUsableInterfacesTakePart) {
    RunOnDevice(
        "ip link add name wanppp0 up type veth peer name farppp netns far && ip addr add 10.1.0.1/24 dev wanppp0");
    RunOnDevice("ip addr add 10.2.0.1/24 dev eth1 && ip link set eth1 arp off && ip addr add 10.3.0.1/24 dev eth2");
    RunOnDevice("ip -n far link set farppp up; ip -n far link set far2 down");
    const Daemon daemon;
    EXPECT_EQ(RequestStatus(0x702, Bytes(i32{4})), 0);
    RunOnDevice("ip link add name fifteen-letters up type veth peer name far15 netns far; ip -n far link set far15 up");
    RunOnDevice("ip addr add 10.4.0.1/24 dev fifteen-letters");
    EXPECT_TRUE(IsLogged("the interface name is too long : 15!"));
    const std::string log = ReadFile("/var/log/messages");
    EXPECT_THAT(log, HasSubstr("interface eth2 is offline"));
    EXPECT_THAT(log, HasSubstr("ifr_name = eth0, dev_num = 0, ip_num = 2"));
    EXPECT_EQ(log.find("dev_num = 1"), std::string::npos) << "nothing but eth0";
    peer.Send(Claim(kPeerMac, kFirst));
    EXPECT_EQ(NextFrame(peer), Defence(kFirst)) << "what was listed before the long name stays";
}

// A listener that does not accept costs its reports, and nothing else.
TEST_F(ConflictLab, AListenerThatDoesNotAccept) {
    const Daemon daemon;
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    socklen_t length = 0;
    ASSERT_EQ(MakeAddrServer(listener.Get(), TESSEL_SOCKET_IP_CONFLICT, &address, &length), 0);
    ASSERT_EQ(listen(listener.Get(), 0), 0);
    AwaitDefence();
    Switch(kOn, TESSEL_FAMILY_INET);
    // The first report takes the one place in the listener's queue, each of the others 8 seconds.
    for (int i = 0; i < 5; ++i)
        peer.Send(Claim(kOwnMac, kFirst));
    const auto start = steady_clock::now();
    const auto answered = [&](const std::string& answer) { return NextFrame(peer, answer) == answer; };
    EXPECT_TRUE(answered(Defence(kFirst, kOwnMac))) << "before the packet is reported";
    RunOnDevice("ip addr add 192.168.1.99/24 dev eth0");
    EXPECT_TRUE(answered(Claim(kOwnMac, kForeign))) << "a new address is read and announced";
    EXPECT_LT(steady_clock::now() - start, 7s) << "within a cycle";
}

TEST_F(ConflictLab, TheSameInet6AddressOnTwoHosts) {
    RunOnDevice("cd /proc/sys/net/ipv6/conf/eth0; echo 0 >accept_dad; echo 0 >disable_ipv6");
    RunOnDevice("ip addr add 2001:db8::20/64 dev eth0 nodad");
    RunOnDevice("ip -n far addr add 2001:db8::20/64 dev far0 nodad");
    const Daemon daemon;
    Reports reports(TESSEL_SOCKET_IPV6_CONFLICT);
    const FarLink link("far0", ETH_P_IPV6);
    Switch(kOn, TESSEL_FAMILY_INET6);
    RunOnDevice("ip addr add 192.168.1.22/24 dev eth0");
    // IPv6 header, then the solicitation with a checksum that the far kernel has accepted when it answers.
    const std::string question = "\x33\x33\xff\0\0\x20"s + kOwnMac + "\x86\xdd"s + "\x60\0\0\0\0\x18\x3a\xff"s +
                                 std::string(16, '\0') + "\xff\x02\0\0\0\0\0\0\0\0\0\x01\xff\0\0\x20"s + "\x87\0"s;
    const std::string seen = NextFrame(link, question);
    EXPECT_EQ(seen.size(), 78U);
    EXPECT_EQ(seen.substr(62), kFirstInet6);
    EXPECT_EQ(reports.Next(), "1:" + Report(10, kFirstInet6));

    // The own MAC in a solicitation from outside, sent twice: reported once in the life of a table.
    const auto solicit = [] {
        SendIcmpv6("far0", "fe80::ff:fe00:0", "\x87\0\0\0\0\0\0\0"s + kFirstInet6 + "\x01\x01"s + kOwnMac);
    };
    solicit();
    EXPECT_TRUE(Eventually([&] { return reports.Next(100).starts_with("2:eth0"); }));
    RunOnDevice("ip addr del 192.168.1.21/24 dev eth0");
    EXPECT_TRUE(Eventually([&] {
        solicit();
        return reports.Next(100).starts_with("2:");
    })) << "a new table";
    solicit();
    Switch(kOff, TESSEL_FAMILY_INET6);
    while (!reports.Next(500).empty()) {
    }
    solicit();
    EXPECT_EQ(reports.Next(500), "");
    const std::string at = "[2001:db8::20] The other side MAC[02:00:00:00:";
    EXPECT_TRUE(IsLogged("[CheckNeighbour](") && IsLogged("interface[eth0]:Conflicted IP" + at));
    EXPECT_TRUE(IsLogged("interface[eth0]:Conflicted MAC" + at + "00:00]"));
}

}  // namespace
}  // namespace tessel::test
