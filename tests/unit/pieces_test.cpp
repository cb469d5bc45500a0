// Small pieces that features share.
#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include "core/checksum.h"
#include "core/payload_cursor.h"
#include "core/process.h"
#include "core/text_file.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;

template <std::size_t kFieldBytes>
std::vector<std::string> LinesOf(const std::string& text, u32 limit = 1000000) {
    WriteFile("/tmp/lines", text);
    LineReader reader(OpenRegularFile("/tmp/lines", O_RDONLY), limit);
    std::vector<std::string> lines;
    std::array<char, kFieldBytes> line{};
    while (reader.Next(line))
        lines.emplace_back(line.data());
    return lines;
}

TEST(LineReader, ReadsLinesAndPartsOfLongOnes) {
    EXPECT_THAT(LinesOf<16>(""), ElementsAre());
    EXPECT_THAT(LinesOf<16>("one\n\nthree"), ElementsAre("one", "", "three"));
    EXPECT_THAT(LinesOf<16>("one\n"), ElementsAre("one"));
    EXPECT_THAT(LinesOf<4>("abcdefg\nh\n"), ElementsAre("abc", "def", "g", "h"));
    EXPECT_THAT(LinesOf<16>("one\ntwo\nthree\n", 6), ElementsAre("one", "tw")) << "the limit";
    const std::vector<std::string> lines = LinesOf<1024>(std::string(1000, 'x') + "\n" + std::string(30, 'y') + "\nz");
    EXPECT_THAT(lines, ElementsAre(std::string(1000, 'x'), std::string(30, 'y'), "z")) << "longer than one read";
    EXPECT_EQ(LinesOf<128>(std::string(10'000'000, 'n'), 65536).size(), 65536 / 127 + 1U) << "without a newline";
}

TEST(RegularFile, NothingElseIsOpened) {
    WriteFile("/tmp/real", "kept");
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    ASSERT_EQ(symlink("/tmp/real", "/tmp/link"), 0);
    for (const char* path : {"/tmp/fifo", "/tmp/link", "/tmp", "/dev/null", "/tmp/none"}) {
        for (const int flags : {O_RDONLY, O_RDWR | O_TRUNC})
            EXPECT_FALSE(OpenRegularFile(path, flags).IsOpen()) << path << flags;
    }
    EXPECT_EQ(ReadFile("/tmp/real"), "kept");
}

TEST(PayloadCursor, StopsAtTheFirstPartThatIsNotThere) {
    const std::string bytes = "\3\0\0\0abc\2\0\0\0d\0\11\0\0\0e"s;
    PayloadCursor cursor(bytes.data(), static_cast<i32>(bytes.size()));
    u32 length = 0;
    std::array<char, 4> text{'#', '#', '#', '#'};
    for (const char* expected : {"abc", "d"}) {  // the first fills the field with its NUL
        ASSERT_TRUE(cursor.Read(length) && cursor.ReadText(length, text));
        EXPECT_STREQ(text.data(), expected);
    }
    ASSERT_TRUE(cursor.Read(length));
    EXPECT_FALSE(cursor.ReadText(length, text)) << "too long for the field and for the rest";
    EXPECT_FALSE(cursor.ReadText(1, text)) << "nothing comes behind a failure";
    EXPECT_STREQ(text.data(), "d");

    PayloadCursor small("12345", 5);
    EXPECT_FALSE(small.ReadText(4, text)) << "no room for the NUL";
    PayloadCursor empty(nullptr, 0);
    EXPECT_TRUE(empty.ReadText(0, text));
    EXPECT_STREQ(text.data(), "");
    EXPECT_FALSE(empty.Read(length));
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

}  // namespace
}  // namespace tessel::test
