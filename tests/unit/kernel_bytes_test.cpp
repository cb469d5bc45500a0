// Bytes from the network and the kernel: what is taken, and what hostile or cut ones do.
#include <arpa/inet.h>

#include "probe/conflict/ndp.h"
#include "probe/conflict/neighbour_conflict.h"
#include "route/monitor/netlink.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

NeighbourPath Path(const char* source, const char* destination, u8 hopLimit = 255) {
    NeighbourPath path{.source = {}, .destination = {}, .hopLimit = hopLimit};
    inet_pton(AF_INET6, source, &path.source);
    inet_pton(AF_INET6, destination, &path.destination);
    return path;
}

const std::string kTarget = "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x20"s;
const std::string kMac = "\x02\0\0\0\x01\x77"s;
const std::string kSourceOption = "\x01\x01"s + kMac;
const std::string kTargetOption = "\x02\x01"s + kMac;

std::string Solicitation(const std::string& options, char code = 0) {
    return "\x87"s + code + std::string(6, '\0') + kTarget + options;
}

std::string Advertisement(const std::string& options, char flags = 0x20) {
    return "\x88\0\0\0"s + flags + std::string(3, '\0') + kTarget + options;
}

std::optional<NeighbourMessage> Read(const std::string& bytes, const NeighbourPath& path) {
    return ReadNeighbourMessage({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, path);
}

TEST(Neighbour, MessagesThatANodeDiscards) {
    const NeighbourPath direct = Path("fe80::1", "fe80::2");
    const NeighbourPath routed = Path("fe80::1", "fe80::2", 254);
    const NeighbourPath toAll = Path("fe80::1", "ff02::1");
    const NeighbourPath dad = Path("::", "ff02::1:ff00:20");
    const NeighbourPath dadToOne = Path("::", "fe80::2");
    const std::tuple<const char*, std::string, NeighbourPath, const char*> rows[] = {
        {"solicitation", Solicitation(kSourceOption), direct, "with address"},
        {"advertisement to all", Advertisement(kTargetOption), toAll, "with address"},
        {"without options", Advertisement(""), toAll, "taken"},
        {"behind another option", Advertisement("\x05\x01\0\0\0\0\x05\xdc"s + kTargetOption), toAll, "with address"},
        {"the other message's option", Advertisement(kSourceOption), toAll, "taken"},
        {"duplicate address detection", Solicitation(""), dad, "taken"},
        {"solicited and to one", Advertisement(kTargetOption, 0x60), direct, "with address"},
        {"through a router", Solicitation(kSourceOption), routed, ""},
        {"another code", Solicitation(kSourceOption, 1), direct, ""},
        {"a multicast target", Advertisement(kTargetOption).replace(8, 1, "\xff"), toAll, ""},
        {"solicited and to all", Advertisement(kTargetOption, 0x60), toAll, ""},
        {"from nowhere to one", Solicitation(""), dadToOne, ""},
        {"from nowhere with an option", Solicitation(kSourceOption), dad, ""},
        {"an option of no length", Advertisement("\x02\0"s + kMac), toAll, ""},
        {"an option beyond the end", Advertisement("\x02\x02"s + kMac), toAll, ""},
        {"half an option", Advertisement(kTargetOption + "\x02"s), toAll, ""},
        {"one byte short", Advertisement("").substr(0, 23), toAll, ""},
    };
    for (const auto& [description, bytes, path, expected] : rows) {
        const auto message = Read(bytes, path);
        EXPECT_STREQ(!message ? "" : message->linkAddress ? "with address" : "taken", expected) << description;
    }
}

TEST(Neighbour, WhatIsAConflict) {
    TNetdevRecord record{};
    record.abyMac[0] = 2;
    record.tIfaceIp.dwNum = 2;
    record.tIfaceIp.atIp[0].wSinFamily = 2;
    memcpy(record.tIfaceIp.atIp[0].abyAddr, kTarget.data(), 16);  // the right bytes, the wrong family
    record.tIfaceIp.atIp[1].wSinFamily = 10;
    const auto check = [&](const std::string& bytes) {
        TNetConflictReport report{};
        return CheckNeighbour(record, *Read(bytes, Path("fe80::1", "ff02::1")), report);
    };
    const std::string advertised = Advertisement(kTargetOption);
    const std::string solicited = Solicitation(kSourceOption);
    EXPECT_EQ(check(advertised), 0U) << "no own address";
    memcpy(record.tIfaceIp.atIp[1].abyAddr, kTarget.data(), 16);
    EXPECT_EQ(check(advertised), u32{TESSEL_CONFLICT_IP});
    EXPECT_EQ(check(Advertisement("")), 0U) << "whose it is is not said";
    EXPECT_EQ(check(solicited), 0U) << "somebody looks for us";
    memcpy(record.abyMac, kMac.data(), 6);
    EXPECT_EQ(check(solicited), u32{TESSEL_CONFLICT_MAC});
    EXPECT_EQ(check(advertised), u32{TESSEL_CONFLICT_MAC});
}

std::string Message(u16 type, const std::string& payload) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<u32>(sizeof(header) + payload.size());
    header.nlmsg_type = type;
    return std::string(Bytes(header)) + Padded(payload, NLMSG_ALIGN(payload.size()));
}

// Cut anywhere, in memory whose end the sanitizer watches.
TEST(Netlink, WalksEndAtWhatIsNotWhole) {
    const std::string two = Message(20, "12345") + Message(21, "");
    const std::string three = two + Message(24, std::string(100, '\0'));
    for (std::size_t size = 0; size <= three.size(); ++size) {
        const std::vector<u8> cut(three.begin(), three.begin() + static_cast<long>(size));
        std::span<const u8> rest(cut);
        std::size_t count = 0;
        while (NextMessage(rest) != nullptr)
            ++count;
        EXPECT_EQ(count, size == three.size() ? 3U : size >= two.size() ? 2U : size >= 21 ? 1U : 0U) << size;
    }
    std::vector<u8> tooShort(sizeof(nlmsghdr));
    tooShort[0] = 15;
    std::span<const u8> rest(tooShort);
    EXPECT_EQ(NextMessage(rest), nullptr);
}

}  // namespace
}  // namespace tessel::test
