// Small pieces that features share.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "core/checksum.h"
#include "core/payload_cursor.h"
#include "core/registry.h"
#include "core/semaphore.h"
#include "core/sessions.h"
#include "core/startup/version.h"
#include "core/text_file.h"
#include "tests/support/files.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using tessel::test::WriteFile;
using testing::ElementsAre;

template <std::size_t kFieldBytes>
std::vector<std::string> LinesOf(const std::string& text, u32 limit = 1000000) {
    WriteFile("/tmp/lines", text);
    tessel::LineReader reader(tessel::OpenRegularFile("/tmp/lines", O_RDONLY), limit);
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
        errno = 0;
        EXPECT_FALSE(tessel::OpenRegularFile(path, O_RDONLY).IsOpen()) << path;
        EXPECT_NE(errno, 0) << path;
        EXPECT_FALSE(tessel::OpenRegularFile(path, O_RDWR | O_TRUNC).IsOpen()) << path;
    }
    EXPECT_EQ(tessel::test::ReadFile("/tmp/real"), "kept");
    EXPECT_TRUE(tessel::OpenRegularFile("/tmp/real", O_RDWR | O_TRUNC).IsOpen());
    EXPECT_EQ(tessel::test::ReadFile("/tmp/real"), "");
}

TEST(PayloadCursor, StopsAtTheFirstPartThatIsNotThere) {
    const std::string bytes = "\3\0\0\0abc\2\0\0\0d\0\11\0\0\0e"s;
    tessel::PayloadCursor cursor(bytes.data(), static_cast<i32>(bytes.size()));
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

    tessel::PayloadCursor small("12345", 5);
    EXPECT_FALSE(small.ReadText(4, text)) << "no room for the NUL";
    tessel::PayloadCursor empty(nullptr, 0);
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
        EXPECT_EQ(tessel::InternetChecksum({all.first(cut), all.subspan(cut)}), 0) << cut;
    header.back() = 0;
    EXPECT_EQ(tessel::InternetChecksum({all.first(19)}), tessel::InternetChecksum({header})) << "padded with zero";
    EXPECT_EQ(tessel::InternetChecksum({header}), htons(12)) << "what it lacks now";
    EXPECT_EQ(tessel::InternetChecksum({}), 0xffff);
}

TEST(Sessions, AreFoundTakenAndGivenBack) {
    tessel::Sessions<int, 3> pool;
    const auto lock = pool.Hold();
    int* taken[3];
    for (int number = 0; number < 3; ++number) {
        taken[number] = pool.Take(lock);
        ASSERT_NE(taken[number], nullptr);
        *taken[number] = number;
    }
    EXPECT_EQ(pool.Take(lock), nullptr);
    const auto isOne = [](int number) { return number == 1; };
    EXPECT_EQ(pool.Find(lock, isOne), taken[1]);
    pool.GiveBack(lock, *taken[1]);
    EXPECT_EQ(pool.Find(lock, isOne), nullptr) << "what is free is not found";
    EXPECT_EQ(pool.Take(lock), taken[1]) << "the first free one";
}

TEST(Semaphore, IsTakenWithinItsTimeAndGivenBack) {
    const int set = semget(IPC_PRIVATE, 1, 0600);
    ASSERT_NE(set, -1);
    EXPECT_EQ(set_semvalue(set), 0);
    EXPECT_EQ(semaphore_p_within(set, milliseconds(0)), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(semaphore_p_within(set, milliseconds(200)), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
    EXPECT_EQ(semaphore_v(set), 0);
    EXPECT_EQ(semaphore_p(set), 0);
    EXPECT_EQ(semctl(set, 0, GETVAL), 0);
    EXPECT_EQ(del_semvalue(set), 0);
    for (const auto operation : {set_semvalue, del_semvalue, semaphore_p, semaphore_v})
        EXPECT_EQ(operation(set), -1);
    EXPECT_EQ(semaphore_p_within(set, milliseconds(200)), -1);
}

TEST(Registry, KeepsTheFirstHandlerOfACode) {
    const auto first = [](int, u32, const void*, i32) { return 1; };
    const auto second = [](int, u32, const void*, i32) { return 2; };
    IpcApiCommonHead head;
    IpcApiInit(&head);
    EXPECT_EQ(IpcApiRegister(&head, 0x112, first), 0);
    EXPECT_EQ(IpcApiRegister(&head, 0x111, second), 0);
    EXPECT_EQ(IpcApiRegister(&head, 0x112, second), -1);
    ASSERT_NE(IpcApiFindNode(&head, 0x112), nullptr);
    EXPECT_EQ(IpcApiFindNode(&head, 0x112)->handler(0, 0, nullptr, 0), 1);
    EXPECT_EQ(IpcApiUnRegister(&head, 0x112, second), 0) << "the handler is not compared";
    EXPECT_EQ(IpcApiFindNode(&head, 0x112), nullptr);
    EXPECT_EQ(IpcApiUnRegister(&head, 0x112, second), -1);
    EXPECT_EQ(IpcApiUnRegister(&head, 0x111, nullptr), 0);
}

TEST(Version, BannerNeedsRoomForItsTerminator) {
    std::string banner(256, 'x');
    ASSERT_EQ(NetQueryVersion(banner.data(), 256), 0);
    const u32 length = static_cast<u32>(strlen(banner.c_str()));
    EXPECT_EQ(NetQueryVersion(banner.data(), length), -1);
    EXPECT_EQ(banner.substr(0, length), std::string(length, '\0')) << "zeroed all the same";
    EXPECT_EQ(NetQueryVersion(banner.data(), length + 1), 0);
    EXPECT_EQ(NetQueryVersion(nullptr, 256), -1);
}

}  // namespace
