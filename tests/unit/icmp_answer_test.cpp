// What ICMP and ICMPv6 messages say of the probe from port 32770 to port 33437.
#include "probe/icmp_answer.h"

#include <gtest/gtest.h>

#include <string>

namespace tessel::test {
namespace {

using namespace std::string_literals;

// An IPv4 header of so many words; only its length and protocol are looked at.
std::string Ip(char protocol, int words = 5) {
    return static_cast<char>(0x40 | words) + std::string(8, '\0') + protocol + std::string(words * 4 - 10U, '\x44');
}
const std::string kUdp = Ip(17);
const std::string kPorts = "\x80\x02\x82\x9d"s;  // 32770, 33437
const std::string kLength = "\0\x40\0\0"s;       // and checksum

// The 8 bytes of an ICMP header of either family.
std::string Icmp(char type, char code) {
    return std::string{type, code} + "\xab\xcd\0\0\0\0"s;
}

TEST(IcmpAnswer, BelongsToTheProbeThatItQuotes) {
    const std::string quoted = kUdp + kPorts + kLength;
    const struct {
        const char* description;
        std::string packet;
        u32 expected;
    } rows[] = {
        {"a router", Ip(1) + Icmp(11, 0) + quoted, 103},
        {"the target", Ip(1) + Icmp(3, 3) + quoted, 104},
        {"host unreachable", Ip(1) + Icmp(3, 1) + quoted, 106},
        {"network unreachable", Ip(1) + Icmp(3, 0) + quoted, 106},
        {"IP options outside and inside", Ip(1, 15) + Icmp(3, 3) + Ip(17, 8) + kPorts, 104},
        {"no byte behind the ports", Ip(1) + Icmp(11, 0) + kUdp + kPorts, 103},
        {"more of the packet", Ip(1) + Icmp(11, 0) + quoted + std::string(1400, 'x'), 103},
        {"another program's port", Ip(1) + Icmp(11, 0) + kUdp + "\x80\x03\x82\x9d"s, 0},
        {"the other byte of it", Ip(1) + Icmp(11, 0) + kUdp + "\x81\x02\x82\x9d"s, 0},
        {"the probe before", Ip(1) + Icmp(3, 3) + kUdp + "\x80\x02\x82\x9c"s, 0},
        {"another protocol", Ip(1) + Icmp(3, 3) + Ip(6) + kPorts + kLength, 0},
        {"half the ports", Ip(1) + Icmp(11, 0) + kUdp + "\x80\x02\x82"s, 0},
        {"options announced that are not there", Ip(1) + Icmp(11, 0) + Ip(17, 6).substr(0, 20) + kPorts, 0},
        {"no header quoted", Ip(1) + Icmp(11, 0) + kUdp.substr(1), 0},
        {"reassembly took too long", Ip(1) + Icmp(11, 1) + quoted, 0},
        {"an echo reply", Ip(1) + Icmp(0, 0) + quoted, 0},
        {"ICMPv6's number for a router", Ip(1) + Icmp(1, 4) + quoted, 0},
        {"an ICMP header cut", Ip(1) + "\x0b\0\0\0\0\0\0"s, 0},
        {"an IP header cut", Ip(1, 15).substr(0, 59), 0},
        {"nothing", "", 0},
    };
    for (const auto& [description, packet, expected] : rows) {
        const std::vector<u8> bytes(packet.begin(), packet.end());  // on the heap: nobody reads beyond unnoticed
        EXPECT_EQ(ReadIcmpAnswer(bytes, {.local = 32770, .target = 33437}, CallSite::Current()), expected)
            << description;
    }
}

TEST(IcmpAnswer, OfIcmpv6IsAnyError) {
    const std::tuple<std::string, u32> rows[] = {
        {Icmp(3, 0), 103}, {Icmp(1, 4), 104},        {Icmp(1, 3), 106},      {Icmp(1, 0), 106},
        {Icmp(3, 1), 0},   {Icmp('\x81', 0), 0},     {Icmp(2, 0), 0},        {Icmp(11, 0), 0},
        {Icmp(3, 3), 0},   {Icmp(1, 4) + kUdp, 104}, {"\1\4\0\0\0\0\0"s, 0}, {"", 0},
    };
    for (const auto& [message, expected] : rows) {
        const std::vector<u8> bytes(message.begin(), message.end());
        EXPECT_EQ(ReadIcmpv6Answer(bytes, {.local = 32770, .target = 33437}, CallSite::Current()), expected)
            << testing::PrintToString(message);
    }
}

}  // namespace
}  // namespace tessel::test
