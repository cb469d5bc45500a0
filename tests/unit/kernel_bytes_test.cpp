// Bytes from the network and the kernel: what is taken, what it means, and what hostile or cut ones do.
#include <arpa/inet.h>

#include "probe/conflict/ndp.h"
#include "probe/conflict/neighbour_conflict.h"
#include "probe/icmp_answer.h"
#include "route/monitor/netlink.h"
#include "stat/net_dev.h"
#include "stat/traffic.h"
#include "tests/support/arp.h"
#include "tests/support/daemon.h"

namespace tessel::test {
namespace {

NeighbourPath Path(const char* source, const char* destination, u8 hopLimit = 255) {
    NeighbourPath path{.source = {}, .destination = {}, .hopLimit = hopLimit};
    inet_pton(AF_INET6, source, &path.source);
    inet_pton(AF_INET6, destination, &path.destination);
    return path;
}

const std::string kSourceOption = "\x01\x01"s + kPeerMac;
const std::string kTargetOption = "\x02\x01"s + kPeerMac;

std::string Solicitation(const std::string& options, char code = 0) {
    return "\x87"s + code + std::string(6, '\0') + kFirstInet6 + options;
}

std::string Advertisement(const std::string& options, char flags = 0x20) {
    return "\x88\0\0\0"s + flags + std::string(3, '\0') + kFirstInet6 + options;
}

// What a message is for a device with these addresses: empty when it is discarded.
std::string Meaning(const TNetdevRecord& device, const std::string& bytes, const NeighbourPath& path) {
    const auto message = ReadNeighbourMessage({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, path);
    if (!message) return "";
    TNetConflictReport report{};
    const u32 conflict = CheckNeighbour(device, *message, report);
    if (conflict != 0) return conflict == TESSEL_CONFLICT_IP ? "same IP" : "same MAC";
    return message->linkAddress ? "with a MAC" : "without";
}

TEST(Neighbour, MessagesAreDiscardedTakenOrAConflict) {
    const NeighbourPath direct = Path("fe80::1", "fe80::2");
    const NeighbourPath routed = Path("fe80::1", "fe80::2", 254);
    const NeighbourPath toAll = Path("fe80::1", "ff02::1");
    const NeighbourPath dad = Path("::", "ff02::1:ff00:20");
    const NeighbourPath dadToOne = Path("::", "fe80::2");
    const std::tuple<const char*, std::string, NeighbourPath, const char*> rows[] = {
        {"solicitation", Solicitation(kSourceOption), direct, "with a MAC"},
        {"advertisement to all", Advertisement(kTargetOption), toAll, "same IP"},
        {"without options: whose it is is not said", Advertisement(""), toAll, "without"},
        {"behind another option", Advertisement("\x05\x01\0\0\0\0\x05\xdc"s + kTargetOption), toAll, "same IP"},
        {"the other message's option", Advertisement(kSourceOption), toAll, "without"},
        {"duplicate address detection", Solicitation(""), dad, "without"},
        {"solicited and to one", Advertisement(kTargetOption, 0x60), direct, "same IP"},
        {"through a router", Solicitation(kSourceOption), routed, ""},
        {"another code", Solicitation(kSourceOption, 1), direct, ""},
        {"a multicast target", Advertisement(kTargetOption).replace(8, 1, "\xff"), toAll, ""},
        {"solicited and to all", Advertisement(kTargetOption, 0x60), toAll, ""},
        {"from nowhere to one", Solicitation(""), dadToOne, ""},
        {"from nowhere with an option", Solicitation(kSourceOption), dad, ""},
        {"an option of no length", Advertisement("\x02\0"s + kPeerMac), toAll, ""},
        {"an option beyond the end", Advertisement("\x02\x02"s + kPeerMac), toAll, ""},
        {"half an option", Advertisement(kTargetOption + "\x02"s), toAll, ""},
        {"one byte short", Advertisement("").substr(0, 23), toAll, ""},
    };
    TNetdevRecord device{};
    device.abyMac[0] = 2;
    device.tIfaceIp.dwNum = 2;
    for (TNetIpAddr& address : device.tIfaceIp.atIp) {
        address.wSinFamily = 2;
        memcpy(address.abyAddr, kFirstInet6.data(), kFirstInet6.size());
    }
    EXPECT_EQ(Meaning(device, Advertisement(kTargetOption), toAll), "with a MAC") << "the bytes of another family's";
    device.tIfaceIp.atIp[1].wSinFamily = 10;
    for (const auto& [description, bytes, path, expected] : rows)
        EXPECT_EQ(Meaning(device, bytes, path), expected) << description;
    memcpy(device.abyMac, kPeerMac.data(), kPeerMac.size());
    EXPECT_EQ(Meaning(device, Advertisement(kTargetOption), toAll), "same MAC");
    EXPECT_EQ(Meaning(device, Solicitation(kSourceOption), toAll), "same MAC");
}

std::string Message(u16 type, const std::string& payload) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<u32>(sizeof(header) + payload.size());
    header.nlmsg_type = type;
    return std::string(Bytes(header)) + Padded(payload, NLMSG_ALIGN(payload.size()));
}

// Cut anywhere, in memory whose end the sanitizer watches.
TEST(Netlink, WalksEndAtWhatIsNotWhole) {
    const auto messagesIn = [](const std::string& bytes) {
        const std::vector<u8> cut(bytes.begin(), bytes.end());
        std::span<const u8> rest(cut);
        std::size_t count = 0;
        while (NextMessage(rest) != nullptr)
            ++count;
        return count;
    };
    const std::string two = Message(20, "12345") + Message(21, "");
    const std::string three = two + Message(24, std::string(100, '\0'));
    for (std::size_t size = 0; size <= three.size(); ++size) {
        const std::size_t whole = size == three.size() ? 3 : size >= two.size() ? 2 : size >= 21 ? 1 : 0;
        EXPECT_EQ(messagesIn(three.substr(0, size)), whole) << size;
    }
    EXPECT_EQ(messagesIn(Padded("\x0f", sizeof(nlmsghdr))), 0U) << "shorter than its own header";
}

// An IPv4 header of so many words; only its length and protocol are looked at.
std::string Ip(char protocol, unsigned words = 5) {
    return static_cast<char>(0x40 | words) + std::string(8, '\0') + protocol + std::string(words * 4 - 10, '\x44');
}
const std::string kUdp = Ip(17);
const std::string kPorts = "\x80\x02\x82\x9d"s;

// The 8 bytes of an ICMP header of either family.
std::string Icmp(char type, char code) {
    return std::string{type, code} + "\xab\xcd\0\0\0\0"s;
}

// Of the probe from port 32770 to port 33437.
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

const std::string kFirstLine = "Inter-|   Receive                                                |  Transmit\n";
const std::string kHead =
    kFirstLine +
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier "
    "compressed\n";

// The counters in a text like "/proc/net/dev".
std::string CountersIn(std::string text) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(text.data(), text.size(), "r"), &fclose);
    std::string counted;
    for (const ByteCounters& counters : ReadCounters(file.get()).interfaces) {
        counted += counters.isThere ? std::to_string(counters.received) + '/' + std::to_string(counters.sent) : "-";
        counted += ' ';
    }
    return counted;
}

TEST(NetDev, IsReadInAllForms) {
    const std::tuple<const char*, std::string, const char*> rows[] = {
        {"with compressed packets",
         kHead +
             "    lo:     100       1    0    0    0     0          0         0      200       1    0    0    0     0\n"
             "  eth0:18446744073709551615 2 0 0 0 0 0 0 77 1 0 0 0 0 0 0\n  eth2: 5 1 0 0 0 0 0 0 6 1 0 0 0 0 0 0\n",
         "18446744073709551615/77 - 5/6 "},
        {"without",
         kFirstLine + " face |bytes    packets errs drop fifo frame|bytes    packets errs drop fifo colls carrier\n"
                      "  eth1: 1000 1 2 3 4 5 2000 6 7 8 9 10 11\n",
         "- 1000/2000 - "},
        {"packets alone",
         kFirstLine + " face |packets errs drop fifo frame|packets errs drop fifo colls carrier\n"
                      "  eth1: 1 2 3 4 5 6 7 8 9 10 11\n",
         "- 0/0 - "},
        {"the last of the interfaces that begin alike, and none that only contains the name",
         kHead +
             "eth0: 1 0 0 0 0 0 0 0 2\neth0.5:3 0 0 0 0 0 0 0 4\nveth0: 9 0\n  eth1234567890123: 9 0 0 0 0 0 0 0 9\n",
         "3/4 - - "},
        {"cut lines", kHead + "  eth0: 7\n  eth1:\n  eth2", "7/0 0/0 - "},
        {"one line", kFirstLine, "- - - "},
        {"no newline anywhere", std::string(100000, 'e'), "- - - "},
    };
    for (const auto& [description, text, expected] : rows)
        EXPECT_EQ(CountersIn(text), expected) << description;
}

TEST(Bandwidth, IsBitsPerSecond) {
    const CounterSample before{{{500, 1000, true}, {9, 9, true}, {0, 0, false}}};
    const CounterSample after{{{501, 2000, true}, {8, 9, true}, {1, 1, true}}};
    // The second is a counter that has restarted.
    const TNetBandwidthReport expected{{{4000, 4, 1, 0}, {0, static_cast<u64>(-4), 1, 0}, {}}};
    EXPECT_EQ(Bytes(BandwidthBetween(before, after, 2)), Bytes(expected));
    EXPECT_EQ(static_cast<u64>(BandwidthBetween(after, before, 0xffffffff).atBand[0].ullSendBand), 0U);
    EXPECT_EQ(u32{BandwidthBetween(after, before, 1).atBand[2].dwValid}, 0U) << "it has gone";
}

}  // namespace
}  // namespace tessel::test
