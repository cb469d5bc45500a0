// Bytes from the network and the kernel: what is taken, and what hostile or cut ones do.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "probe/conflict/ndp.h"
#include "probe/conflict/neighbour_conflict.h"
#include "route/monitor/default_route.h"
#include "route/monitor/netlink.h"

namespace {

using namespace std::string_literals;
using tessel::NeighbourPath;

in6_addr Inet6(const char* text) {
    in6_addr address{};
    inet_pton(AF_INET6, text, &address);
    return address;
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

std::optional<tessel::NeighbourMessage> Read(const std::string& bytes, const NeighbourPath& path) {
    return tessel::ReadNeighbourMessage({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, path);
}

TEST(Neighbour, MessagesThatANodeDiscards) {
    const NeighbourPath direct{.source = Inet6("fe80::1"), .destination = Inet6("fe80::2"), .hopLimit = 255};
    const NeighbourPath toAll{.source = Inet6("fe80::1"), .destination = Inet6("ff02::1"), .hopLimit = 255};
    const NeighbourPath dad{.source = Inet6("::"), .destination = Inet6("ff02::1:ff00:20"), .hopLimit = 255};
    NeighbourPath routed = direct;
    routed.hopLimit = 254;
    NeighbourPath dadToOne = dad;
    dadToOne.destination = Inet6("fe80::2");
    std::string multicastTarget = Advertisement(kTargetOption);
    multicastTarget[8] = '\xff';
    const struct {
        const char* description;
        std::string bytes;
        const NeighbourPath& path;
        bool isTaken;
        bool hasLinkAddress;
    } rows[] = {
        {"solicitation", Solicitation(kSourceOption), direct, true, true},
        {"advertisement to all", Advertisement(kTargetOption), toAll, true, true},
        {"without options", Advertisement(""), toAll, true, false},
        {"behind another option", Advertisement("\x05\x01\0\0\0\0\x05\xdc"s + kTargetOption), toAll, true, true},
        {"the other message's option", Advertisement(kSourceOption), toAll, true, false},
        {"duplicate address detection", Solicitation(""), dad, true, false},
        {"through a router", Solicitation(kSourceOption), routed, false, false},
        {"another code", Solicitation(kSourceOption, 1), direct, false, false},
        {"a multicast target", multicastTarget, toAll, false, false},
        {"solicited and to all", Advertisement(kTargetOption, 0x60), toAll, false, false},
        {"solicited and to one", Advertisement(kTargetOption, 0x60), direct, true, true},
        {"from nowhere to one", Solicitation(""), dadToOne, false, false},
        {"from nowhere with an option", Solicitation(kSourceOption), dad, false, false},
        {"an option of no length", Advertisement("\x02\0"s + kMac), toAll, false, false},
        {"an option beyond the end", Advertisement("\x02\x02"s + kMac), toAll, false, false},
        {"half an option", Advertisement(kTargetOption + "\x02"s), toAll, false, false},
        {"one byte short", Advertisement("").substr(0, 23), toAll, false, false},
    };
    for (const auto& row : rows) {
        const auto message = Read(row.bytes, row.path);
        EXPECT_EQ(message.has_value(), row.isTaken) << row.description;
        if (!message) continue;
        EXPECT_EQ(message->linkAddress.has_value(), row.hasLinkAddress) << row.description;
    }
}

TEST(Neighbour, WhatIsAConflict) {
    TNetdevRecord record{};
    record.abyMac[0] = 2;
    record.tIfaceIp.dwNum = 2;
    record.tIfaceIp.atIp[0].wSinFamily = 2;
    memcpy(record.tIfaceIp.atIp[0].abyAddr, kTarget.data(), 16);  // the right bytes, the wrong family
    record.tIfaceIp.atIp[1].wSinFamily = 10;
    const NeighbourPath path{.source = Inet6("fe80::1"), .destination = Inet6("ff02::1"), .hopLimit = 255};
    const std::string advertised = Advertisement(kTargetOption);
    const std::string solicited = Solicitation(kSourceOption);
    TNetConflictReport report{};
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(advertised, path), report), 0U) << "no own address";
    memcpy(record.tIfaceIp.atIp[1].abyAddr, kTarget.data(), 16);
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(advertised, path), report), u32{TESSEL_CONFLICT_IP});
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(Advertisement(""), path), report), 0U) << "whose it is is not said";
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(solicited, path), report), 0U) << "somebody looks for us";
    memcpy(record.abyMac, kMac.data(), 6);
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(solicited, path), report), u32{TESSEL_CONFLICT_MAC});
    EXPECT_EQ(tessel::CheckNeighbour(record, *Read(advertised, path), report), u32{TESSEL_CONFLICT_MAC});
}

void Append(std::vector<u8>& bytes, u16 type, const std::vector<u8>& payload) {
    const nlmsghdr header{.nlmsg_len = static_cast<u32>(sizeof(header) + payload.size()),
                          .nlmsg_type = type,
                          .nlmsg_flags = 0,
                          .nlmsg_seq = 0,
                          .nlmsg_pid = 0};
    const auto* const begin = reinterpret_cast<const u8*>(&header);
    bytes.insert(bytes.end(), begin, begin + sizeof(header));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes.resize(NLMSG_ALIGN(bytes.size()));
}

TEST(Netlink, TheWalkEndsAtWhatIsNotWhole) {
    std::vector<u8> bytes;
    Append(bytes, 20, {1, 2, 3, 4, 5});
    Append(bytes, 21, {});
    const std::size_t whole = bytes.size();
    Append(bytes, 24, std::vector<u8>(100));
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        std::vector<u8> cut(bytes.begin(), bytes.begin() + static_cast<long>(size));  // the sanitizer watches its end
        std::span<const u8> rest(cut);
        std::size_t count = 0;
        while (tessel::NextMessage(rest) != nullptr)
            ++count;
        EXPECT_EQ(count, size == bytes.size() ? 3U : size >= whole ? 2U : size >= 21 ? 1U : 0U) << size;
    }
    const u32 tooShort = 15;
    memcpy(bytes.data(), &tooShort, sizeof(tooShort));
    std::span<const u8> rest(bytes);
    EXPECT_EQ(tessel::NextMessage(rest), nullptr);
}

TEST(Netlink, RoutesOfRandomBytesAreSurvived) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 20000; ++round) {
        std::vector<u8> payload(sizeof(rtmsg) + random() % 64);
        for (u8& byte : payload)
            byte = static_cast<u8>(random() % 3 == 0 ? random() : random() % 20);
        // A metric keeps it from being a default route that is acted upon.
        payload.insert(payload.begin() + sizeof(rtmsg), {8, 0, RTA_PRIORITY, 0, 10, 0, 0, 0});
        std::vector<u8> bytes;
        Append(bytes, RTM_NEWROUTE, payload);
        std::span<const u8> rest(bytes);
        const nlmsghdr* const message = tessel::NextMessage(rest);
        ProcessRtMsg(message);
        const rtattr* table[RTA_TABLE + 2];
        ParseRtAttr(table, RTA_TABLE + 1, static_cast<const rtattr*>(NLMSG_DATA(message)),
                    static_cast<i32>(message->nlmsg_len - sizeof(nlmsghdr)));
    }
}

}  // namespace
