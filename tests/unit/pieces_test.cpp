// Small pieces that features share.
#include <arpa/inet.h>
#include <unistd.h>

#include "core/checksum.h"
#include "core/family.h"
#include "core/ipv4.h"
#include "core/payload_cursor.h"
#include "core/process.h"
#include "core/text.h"
#include "services/clock.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

// Well-formed payloads are read in the bond's tests.
TEST(PayloadCursor, StopsAtTheFirstPartThatIsNotThere) {
    u32 number = 7;
    std::array<char, 6> text{"as is"};
    for (const std::size_t room : {5U, 6U}) {
        PayloadCursor cursor("12345", room == 5 ? 5 : 4);
        EXPECT_FALSE(cursor.ReadText(5, {text.data(), room})) << "no room for the NUL, or one byte short";
        EXPECT_FALSE(cursor.ReadText(1, text) || cursor.Read(number)) << "nothing comes behind a failure";
    }
    EXPECT_TRUE(text.data() == "as is"s && number == 7);
    EXPECT_TRUE(PayloadCursor(nullptr, 0).ReadText(0, text) && text[0] == '\0');
}

TEST(Checksum, IsThatOfTheWholeHoweverItIsCut) {
    // An IPv4 header as captured, with its checksum.
    std::vector<u8> header = {0x45, 0,    0,   0x3c, 0x1c, 0x46, 0x40, 0,  0x40, 6,
                              0xb1, 0xe6, 172, 16,   10,   99,   172,  16, 10,   12};
    const std::span<const u8> all(header);
    for (std::size_t cut = 0; cut <= header.size(); ++cut)
        EXPECT_EQ(InternetChecksum({all.first(cut), all.subspan(cut)}), 0) << cut;
    header.back() = 0;
    EXPECT_EQ(InternetChecksum({all.first(19)}), InternetChecksum({header})) << "padded with zero";
    EXPECT_EQ(InternetChecksum({header}), htons(12)) << "what it lacks now";
    EXPECT_EQ(InternetChecksum({}), 0xffff);
}

TEST(Processes, AreSearchedByNameAndByCommandLine) {
    const std::string directory = "/tmp/process-test/";
    for (const auto& [pid, name, cmdline] : {std::tuple{"300", "udhcpc", "udhcpc\0-i\0eth0\0"s},
                                             {"301", "udhcpc6", "udhcpc6\0-i\0eth1\0"s},
                                             {"302", "sh", "sh\0-c\0udhcpc -i eth1\0"s}}) {
        std::filesystem::create_directories(directory + pid);
        WriteFile(directory + pid + "/status", "Name:\t"s + name + "\nState:\tS (udhcpc)\n");
        WriteFile(directory + pid + "/cmdline", cmdline);
    }
    std::filesystem::create_directories(directory + "empty");
    WriteFile(directory + "400", "a file, not a process");

    EXPECT_EQ(GetServicePid(directory.c_str(), "udhcpc6"), 301);
    EXPECT_EQ(GetServicePid(directory.c_str(), "State"), 0) << "only the first line counts";
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "udhcpc -i", "eth0"), 300);
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "pppd", nullptr), 0);
    EXPECT_EQ(GetServicePidFromCmdline2(directory.c_str(), "-i eth1", nullptr, "sh -c"), 301);
    EXPECT_EQ(GetServicePidFromCmdline2(directory.c_str(), "udhcpc", nullptr, nullptr), -1);
    EXPECT_EQ(GetServicePid("/tmp/no-such-directory/", "x"), -1);
    EXPECT_EQ(GetServicePidFromCmdline("/tmp/no-such-directory/", "x", nullptr), -1);
}

TEST(CheckCmdByPid, ComparesTheCommandName) {
    EXPECT_EQ(CheckCmdByPid(getpid(), "core_test"), 1);
    EXPECT_EQ(CheckCmdByPid(getpid(), "udhcpc"), 0);
    EXPECT_EQ(CheckCmdByPid(999999, "core_test"), 0);
    EXPECT_EQ(CheckCmdByPid(-1, "core_test"), 0);
}

TEST(FindStrMatchHead, TakesTheWordBehindTheKey) {
    // Text, key, room for the word, and the word; null: refused.
    const std::tuple<const char*, const char*, const char*, i32, const char*> rows[] = {
        {"one separator behind the key is skipped", "eth0 mtu 1500 qdisc", "mtu", 20, "1500"},
        {"a second one makes an empty word", "mtu  1500", "mtu", 20, ""},
        {"the key may touch its value", "addr:1.2.3.4 Bcast", "addr", 20, ":1.2.3.4"},
        {"no key: the start", "first second", nullptr, 20, "first"},
        {"a key at the very end", "dev", "dev", 20, ""},
        {"a word that just fits", "dev eth0", "dev", 4, "eth0"},
        {"a word that does not", "dev eth0", "dev", 3, nullptr},
        {"key not there", "dev eth0", "via", 20, nullptr},
        {"no text", nullptr, "via", 20, nullptr},
    };
    for (const auto& [description, text, key, room, expected] : rows) {
        char word[21] = "untouched";
        EXPECT_EQ(TesselFindStrMatchHead(text, key, ' ', word, room), expected == nullptr ? -1 : 0) << description;
        EXPECT_STREQ(word, expected == nullptr ? "untouched" : expected) << description;
    }
}

TEST(StrToU8, ReadsSeparatedHexadecimalBytes) {
    std::vector<u8> bytes(6, 0xEE);
    EXPECT_EQ(StrToU8WitchoutSepchar(std::string("1a:2B:ff:0:5").data(), ':', bytes.data(), 6), 0);
    EXPECT_EQ(bytes, (std::vector<u8>{0x1a, 0x2b, 0xff, 0, 5, 0xEE})) << "what is not named is left";
    for (std::string text : {"0g:11", "11:0g", "100:11", "ffffffffffffffffffff", "1:2:3:4:5:6:7"})
        EXPECT_EQ(StrToU8WitchoutSepchar(text.data(), ':', bytes.data(), 6), -1) << text;
    EXPECT_EQ(StrToU8WitchoutSepchar(nullptr, ':', bytes.data(), 6), -1);
}

TEST(Words, AreOfTheirKindAndNothingElse) {
    const std::tuple<bool (*)(const char*), std::vector<const char*>, std::vector<const char*>> rows[] = {
        {&CanBeLineWord,
         {"eth0", "a-b"},
         {"", " ", "eth0 down", "eth0 ", " eth0", "-V", "eth0\n", "et\th0", "eth\x7f"}},
        {&IsMacText,
         {"00:11:22:33:44:ff", "0:a:B:3:4:5"},
         {"", "00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:", "00:11:22:33:44:5g", "00:11:22:33:44:555",
          ":00:11:22:33:44"}},
        {[](const char* text) { return IsAddressText(kInet, text); },
         {"10.0.0.1"},
         {"", "host", "10.0.0.1/8", "10.0.1", "fe80::1"}},
        {[](const char* text) { return IsAddressText(kInet6, text); },
         {"fe80::1"},
         {"10.0.0.1", "fe80::1%eth0", "fe80::1/64"}},
    };
    for (const auto& [judge, good, bad] : rows) {
        for (const char* text : good)
            EXPECT_TRUE(judge(text)) << text;
        for (const char* text : bad)
            EXPECT_FALSE(judge(text)) << text;
    }
    EXPECT_FALSE(IsLineWord(nullptr));
}

TEST(Ipv4, MasksClassesSubnetsAndHosts) {
    u32 mask = 0;
    u32 prefix = 0;
    for (const auto& [text, bits] : {std::pair{"0.0.0.0", 0U}, {"255.255.255.128", 25U}, {"255.255.255.255", 32U}}) {
        mask = inet_addr(text);
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 0), 0);
        EXPECT_EQ(prefix, bits) << text;
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 1), 0);
        EXPECT_EQ(mask, inet_addr(text));
    }
    mask = 0;
    prefix = 33;
    for (const i32 direction : {1, 2})
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, direction), -1) << direction;
    EXPECT_EQ(MaskIsContiguous(inet_addr("255.255.240.0")), 0);
    mask = inet_addr("255.0.255.0");
    EXPECT_EQ(MaskIsContiguous(mask), -1);
    EXPECT_TRUE(MaskConvertIpv4(&mask, &prefix, 0) == 0 && prefix == 8) << "up to the first zero";
    constexpr std::pair<const char*, i32> kClasses[] = {
        {"0.1.2.3", 1305},   {"1.0.0.0", 1301},   {"126.255.255.255", 1301}, {"127.0.0.1", 1305},
        {"128.0.0.0", 1302}, {"192.0.0.0", 1303}, {"224.0.0.0", 1304},       {"240.0.0.0", 1305}};
    for (const auto& [address, expected] : kClasses)
        EXPECT_EQ(IpAddrClassGet(inet_addr(address)), expected) << address;
    mask = inet_addr("255.255.255.0");
    for (const auto& [gateway, expected] : {std::pair{"192.168.1.1", 0}, {"0.0.0.0", 0}, {"192.168.2.1", 1111}})
        EXPECT_EQ(GatewayInSubnetCheck(inet_addr("192.168.1.20"), mask, inet_addr(gateway)), expected) << gateway;
    for (const auto& [address, expected] : {std::pair{"192.168.1.20", 0}, {"192.168.1.0", -1}, {"192.168.1.255", -1}})
        EXPECT_EQ(HostAddrCheck(inet_addr(address), mask), expected) << address;
}

// As far as a sandbox lets anybody reach the machine's clocks.
TEST(Clock, ARefusedHardwareClockIsLogged) {
    const tm utc{};
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("Open /dev/rtc0 error!"));
    WriteFile("/dev/rtc0", "");
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("RTC ioctl RTC_SET_TIME error!"));
}

}  // namespace
}  // namespace tessel::test
