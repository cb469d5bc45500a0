// What ICMP and ICMPv6 messages say of the probe from port 32770 to port 33437.
#include "probe/icmp_answer.h"

#include "tests/support/files.h"

namespace tessel::test {
namespace {

// An IPv4 header of so many words; only its length and protocol are looked at.
std::string Ip(char protocol, int words = 5) {
    return static_cast<char>(0x40 | words) + std::string(8, '\0') + protocol + std::string(words * 4 - 10U, '\x44');
}
const std::string kUdp = Ip(17);
const std::string kPorts = "\x80\x02\x82\x9d"s;

// The 8 bytes of an ICMP header of either family.
std::string Icmp(char type, char code) {
    return std::string{type, code} + "\xab\xcd\0\0\0\0"s;
}

TEST(IcmpAnswer, Inet4BelongsToTheProbeThatItQuotesAndInet6IsAnyError) {
    const std::string quoted = kUdp + kPorts + "\0\x40\0\0"s;
    const struct {
        const char* description;
        std::string packet;
        u32 expected;
        decltype(&ReadIcmpAnswer) reader = &ReadIcmpAnswer;
    } rows[] = {
        {"a router", Ip(1) + Icmp(11, 0) + quoted, 103},
        {"the target", Ip(1) + Icmp(3, 3) + quoted, 104},
        {"host unreachable", Ip(1) + Icmp(3, 1) + quoted, 106},
        {"IP options outside and inside", Ip(1, 15) + Icmp(3, 3) + Ip(17, 8) + kPorts, 104},
        {"no byte behind the ports", Ip(1) + Icmp(11, 0) + kUdp + kPorts, 103},
        {"another program's port", Ip(1) + Icmp(11, 0) + kUdp + "\x81\x02\x82\x9d"s, 0},
        {"the probe before", Ip(1) + Icmp(3, 3) + kUdp + "\x80\x02\x82\x9c"s, 0},
        {"another protocol", Ip(1) + Icmp(3, 3) + Ip(6) + kPorts, 0},
        {"half the ports", Ip(1) + Icmp(11, 0) + kUdp + kPorts.substr(0, 3), 0},
        {"options announced that are not there", Ip(1) + Icmp(11, 0) + Ip(17, 6).substr(0, 20) + kPorts, 0},
        {"nothing quoted", Ip(1) + Icmp(11, 0), 0},
        {"reassembly took too long", Ip(1) + Icmp(11, 1) + quoted, 0},
        {"an echo reply", Ip(1) + Icmp(0, 0) + quoted, 0},
        {"an ICMP header cut", Ip(1) + Icmp(11, 0).substr(1), 0},
        {"an IP header cut", Ip(1, 15).substr(0, 59), 0},
        {"nothing", "", 0},
        {"ICMPv6: a router", Icmp(3, 0), 103, &ReadIcmpv6Answer},
        {"the target", Icmp(1, 4) + kUdp, 104, &ReadIcmpv6Answer},
        {"no route", Icmp(1, 0), 106, &ReadIcmpv6Answer},
        {"reassembly took too long", Icmp(3, 1), 0, &ReadIcmpv6Answer},
        {"ICMP's number for a router", Icmp(11, 0), 0, &ReadIcmpv6Answer},
        {"a header cut", Icmp(1, 4).substr(0, 7), 0, &ReadIcmpv6Answer},
        {"nothing", "", 0, &ReadIcmpv6Answer},
    };
    for (const auto& [description, packet, expected, reader] : rows) {
        const std::vector<u8> bytes(packet.begin(), packet.end());  // on the heap: nobody reads beyond unnoticed
        EXPECT_EQ(reader(bytes, {.local = 32770, .target = 33437}, CallSite::Current()), expected) << description;
    }
}

}  // namespace
}  // namespace tessel::test
