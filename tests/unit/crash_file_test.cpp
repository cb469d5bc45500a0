// The report writer and what it reads: its two files, their limit, format and time, ELF files, the memory and its map.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <ctime>

#include "sysdbg/elf_file.h"
#include "sysdbg/format.h"
#include "sysdbg/local_time.h"
#include "sysdbg/maps.h"
#include "sysdbg/stack.h"
#include "sysdbg/symbols.h"
#include "sysdbg/sysdbg.h"
#include "tests/support/elf_image.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

constexpr char kCrashFile[] = "/tmp/crash";
constexpr char kCurrent[] = "/tmp/crash.0";
constexpr char kPrevious[] = "/tmp/crash.1";

class CrashFile : public testing::Test {
  protected:
    CrashFile() {
        umask(0);
        // SIGURG does nothing by default and nobody sends it here.
        EXPECT_EQ(SysdbgInitSignal(SIGURG, nullptr, kCrashFile, 4, kSysdbgNoDebugThread), 0);
        RemoveFiles();
    }
    static void RemoveFiles() {
        for (const char* path : {kCurrent, kPrevious})
            std::filesystem::remove(path);
    }
};

TEST_F(CrashFile, RotatesAtExactlyItsLimit) {
    EXPECT_EQ(log_file_limit, 2U) << "half of what both files may take";
    const std::string justBelow(2047, 'a');
    WriteFile(kCurrent, justBelow);
    SysdbgReport("%s", "b");
    EXPECT_EQ(ReadFile(kCurrent), justBelow + "b");
    SysdbgReport("%s", "c");
    EXPECT_EQ(ReadFile(kCurrent), "c");
    EXPECT_EQ(ReadFile(kPrevious), justBelow + "b");
    EXPECT_EQ(std::filesystem::status(kPrevious).permissions(), std::filesystem::perms{0666});
    // The previous generation is replaced, and has whole pieces up to their first NUL.
    WriteFile(kCurrent, std::string(10, '1') + '\0' + std::string(1013, '1') + std::string(1024, '2') + "3");
    SysdbgReport("%s|", std::string(1022, 'x').c_str());
    EXPECT_EQ(ReadFile(kPrevious), std::string(10, '1') + std::string(1024, '2'));
    SysdbgReport("%s", std::string(5000, 'y').c_str());
    EXPECT_EQ(ReadFile(kCurrent), std::string(1022, 'x') + "|" + std::string(1023, 'y')) << "cut at the buffer's end";
}

TEST_F(CrashFile, EnvironmentSetsTheLimitAtEveryWrite) {
    for (const char* limit : {"1", "2", "0", "-1", "1x", "", "99999999999"}) {
        WriteFile(kCurrent, std::string(1024, 'a'));
        setenv("SYSDBG_LOG_LIMIT", limit, 1);
        SysdbgReport("b");
        EXPECT_EQ(ReadFile(kCurrent).size(), limit == "1"s ? 1U : 1025U) << limit;
    }
    unsetenv("SYSDBG_LOG_LIMIT");
}

// Where somebody else has put something, reports go to standard output.
TEST_F(CrashFile, NothingButItsOwnFilesAreWritten) {
    const std::string full(2048, 'k');
    const std::pair<const char*, bool (*)(const char* path)> rows[] = {
        {"a link", [](const char* path) { return symlink("/tmp/precious", path) == 0; }},
        {"another name", [](const char* path) { return link("/tmp/precious", path) == 0; }},
        {"another user's",
         [](const char* path) { return rename("/tmp/precious", path) == 0 && chown(path, 1000, 1000) == 0; }},
    };
    for (const auto& [description, put] : rows) {
        WriteFile("/tmp/precious", full);
        if (!put(kCurrent)) GTEST_SKIP() << "there is no other user in this namespace";
        testing::internal::CaptureStdout();
        SysdbgReport("report");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "report") << description;
        EXPECT_EQ(ReadFile(kCurrent), full) << description;
        EXPECT_FALSE(std::filesystem::exists(kPrevious)) << description;
        RemoveFiles();

        WriteFile("/tmp/precious", "kept");
        WriteFile(kCurrent, full);
        EXPECT_TRUE(put(kPrevious));
        SysdbgReport("report");
        EXPECT_EQ(ReadFile(kCurrent), "report") << description;
        EXPECT_EQ(ReadFile(kPrevious), "kept") << description;
        RemoveFiles();
    }
}

TEST_F(CrashFile, NamesAndLogPathAreTakenWhenTheyFit) {
    const std::string longest(125, 'n');
    WriteFile("/tmp/log", "");
    for (const auto& [name, expected] : {std::pair{longest, longest + ".1"}, {longest + "n", ""s}}) {
        EXPECT_EQ(SysdbgInitSignal(SIGURG, "/tmp/log", name.c_str(), 0, kSysdbgNoDebugThread), 0);
        EXPECT_EQ(__crushdump_file[1], expected);
    }
    EXPECT_STREQ(sysdbg_log_file, "/tmp/log");
    EXPECT_EQ(log_file_limit, 2U) << "no limit given: as it was";
    EXPECT_EQ(SysdbgInitSignal(SIGURG, "/no/such/log", kCrashFile, 0, kSysdbgNoDebugThread), 0);
    EXPECT_STREQ(sysdbg_log_file, "");
}

// The C library is the reference.
#define FORMATTED_BY(format, text)                                                                           \
    format(text, sizeof(text), "%04d-%02d|%d|%d %05d %5d %zd %ld %u %lx %p %p %%", 2026, 1, -5, 0, -12, -12, \
           ssize_t{-1}, std::numeric_limits<long>::min(), ~0U, ~0UL, reinterpret_cast<void*>(0xabcdef01), nullptr)

TEST(CrashFormat, FollowsPrintf) {
    char expected[200];
    char actual[200];
    FORMATTED_BY(snprintf, expected);
    FORMATTED_BY(sysdbg::FormatText, actual);
    EXPECT_STREQ(actual, expected);
}

// A zone file of version 1 with so many types, whose last one has this offset, and transitions.
std::string ZoneFile(char types, const std::string& lastOffset, char transitions) {
    return "TZif" + std::string(28, '\0') + "\0\0\0"s + transitions + "\0\0\0"s + types + std::string(4, '\0') +
           std::string(5U * static_cast<unsigned>(transitions) + 6U * static_cast<unsigned>(types - 1), '\7') +
           lastOffset + "\0\0"s;
}

TEST(CrashTime, OffsetIsThatOfTheZoneFilesLastType) {
    const std::string east = "\0\0\x0e\x10"s;
    const std::tuple<const char*, std::string, std::int32_t> rows[] = {
        {"one type", ZoneFile(1, east, 0), 3600},
        {"the last of several, west of UTC", ZoneFile(3, "\xff\xff\xce\xc8", 2), -12600},
        {"no type", ZoneFile(1, east, 0).replace(39, 1, 1, '\0'), 0},
        {"cut within the last type", ZoneFile(2, east, 1).substr(0, 44 + 5 + 11), 0},
        {"cut within the header", ZoneFile(1, east, 0).substr(0, 40), 0},
        {"counts beyond the file", ZoneFile(1, east, 0).replace(32, 8, std::string(8, '\xff')), 0},
        {"not a zone file", std::string(100, 'x'), 0},
    };
    for (const auto& [description, file, expected] : rows) {
        WriteFile("/tmp/zone", file);
        EXPECT_EQ(sysdbg::UtcOffsetSeconds("/tmp/zone"), expected) << description;
    }
    EXPECT_EQ(sysdbg::UtcOffsetSeconds("/no/such/zone"), 0);
}

TEST(CrashTime, CalendarAgreesWithTheCLibrary) {
    constexpr std::int64_t kStep = 13 * 3600 + 1;
    for (std::int64_t seconds = 0; seconds < 120'000 * kStep; seconds += kStep) {
        const auto reference = static_cast<std::time_t>(seconds);
        if (reference != seconds) break;  // 32-bit time ends here
        std::tm expected{};
        gmtime_r(&reference, &expected);
        const auto [year, month, day, hour, minute, second] = sysdbg::BreakDown(seconds);
        ASSERT_EQ(std::tuple(year - 1900, month - 1, day, hour, minute, second),
                  std::tuple(expected.tm_year, expected.tm_mon, expected.tm_mday, expected.tm_hour, expected.tm_min,
                             expected.tm_sec))
            << seconds;
    }
    EXPECT_EQ(sysdbg::BreakDown(-1).year, 1970);
}

// "-" when there is no function.
std::string FunctionAt(const ElfImage& image, std::uintptr_t inFile) {
    constexpr std::uintptr_t kBias = 0x600000;
    WriteFile("/tmp/module", {reinterpret_cast<const char*>(&image), sizeof(image)});
    const sysdbg::ElfFile file("/tmp/module");
    sysdbg::FunctionSymbol function{};
    if (!file.IsValid() || !sysdbg::FindFunction(file, inFile + kBias, inFile, function)) return "-";
    return std::string(function.name) + "+" + std::to_string(inFile - function.address);
}

TEST(CrashSymbols, FunctionIsTheOneWhoseRangeContainsTheAddress) {
    ElfImage image;
    const std::tuple<const char*, std::uintptr_t, unsigned, const char*> rows[] = {
        {"its first byte", 0x5200, SHT_SYMTAB, "first+0"},
        {"its last byte", 0x521f, SHT_SYMTAB, "first+31"},
        {"the next one", 0x5220, SHT_SYMTAB, "second+0"},
        {"past the last one", 0x5240, SHT_SYMTAB, "-"},
        {"not a function but an object", 0x5100, SHT_SYMTAB, "-"},
        {"an absolute symbol is not relative to the mapping", 0x100010, SHT_SYMTAB, "fixed+16"},
        {"dynamic symbols", 0x5200, SHT_DYNSYM, "first+0"},
        {"stripped", 0x5200, SHT_PROGBITS, "-"},
    };
    for (const auto& [description, inFile, sectionType, expected] : rows) {
        image.sections[1].sh_type = sectionType;
        EXPECT_EQ(FunctionAt(image, inFile), expected) << description;
    }
    std::uintptr_t address = 0;
    const sysdbg::ElfFile file("/tmp/module");
    EXPECT_TRUE(file.IsRelocatable() && file.AddressOfOffset(0x10ff, address));
    EXPECT_EQ(address, 0x60ffU);
    EXPECT_FALSE(file.AddressOfOffset(0x1100, address) || file.AddressOfOffset(0xff, address));
}

TEST(CrashSymbols, OtherFilesAndForgedOnesHaveNone) {
    const std::pair<const char*, void (*)(ElfImage&)> rows[] = {
        {"not an ELF file", [](ElfImage& image) { image.header.e_ident[1] = 'x'; }},
        {"of the other class", [](ElfImage& image) { image.header.e_ident[EI_CLASS] ^= 3; }},
        {"of another version", [](ElfImage& image) { image.header.e_ident[EI_VERSION] = 2; }},
        {"no sections", [](ElfImage& image) { image.header.e_shnum = 0; }},
        {"symbols larger than the file", [](ElfImage& image) { image.sections[1].sh_size = ~ElfW(Word){0}; }},
        {"a missing table of names", [](ElfImage& image) { image.sections[1].sh_link = 3; }},
        {"a name past the names", [](ElfImage& image) { image.symbols[1].st_name = sizeof(image.names); }},
    };
    for (const auto& [description, change] : rows) {
        ElfImage image;
        change(image);
        EXPECT_EQ(FunctionAt(image, 0x5200), "-") << description;
    }
    // As many tables as there can be, each of the file's size: the search still ends.
    ElfImage many;
    many.header.e_shnum = 0xffff;
    many.sections[1].sh_size = 1U << 30;
    std::string file(reinterpret_cast<const char*>(&many), offsetof(ElfImage, sections));
    for (int i = 0; i < 0xffff; ++i)
        file.append(reinterpret_cast<const char*>(&many.sections[1]), sizeof(many.sections[1]));
    file.resize(1U << 25);
    WriteFile("/tmp/module", file);
    sysdbg::FunctionSymbol function{};
    EXPECT_FALSE(sysdbg::FindFunction(sysdbg::ElfFile("/tmp/module"), 0x5200, 0x5200, function));

    for (const char* path : {"/dev/zero", "/tmp", "/no/such/file"})
        EXPECT_FALSE(sysdbg::ElfFile(path).IsValid()) << path;
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    EXPECT_FALSE(sysdbg::ElfFile("/tmp/fifo").IsValid()) << "and does not wait for a writer";
}

TEST(CrashMaps, LinesAreReadByTheirFormat) {
    sysdbg::MapEntry entry{};
    ASSERT_TRUE(sysdbg::ParseMapLine("10000-9f000 r-xp 00001000 b3:02 1234       /sbin/program (deleted)", entry));
    EXPECT_EQ(std::tuple(entry.start, entry.end, entry.offset, entry.inode),
              std::tuple(0x10000U, 0x9f000U, 0x1000U, 1234U));
    EXPECT_EQ(entry.permissions + " "s + entry.device + " " + entry.path, "r-xp b3:02 /sbin/program");
    ASSERT_TRUE(sysdbg::ParseMapLine("b6f00000-b6f01000 rw-p 00000000 00:00 0 ", entry));
    EXPECT_STREQ(entry.path, "");
    ASSERT_TRUE(sysdbg::ParseMapLine(("1-2 r--p 0 0:0 7 /" + std::string(400, 'p')).c_str(), entry));
    EXPECT_EQ(strlen(entry.path), sizeof(entry.path) - 1);
    for (const char* line :
         {"", "zz-10 r--p 0 0:0 7", "10000", "1-2 r--p", "1-99999999999999999 r--p 0 0:0 7", "1-2 r--p 0 0:0"})
        EXPECT_FALSE(sysdbg::ParseMapLine(line, entry)) << line;
}

TEST(CrashMemory, OnlyWhatIsThereIsRead) {
    WriteFile("/tmp/mapped", std::string(8192, 'm'));
    const sysdbg::File file("/tmp/mapped", O_RDWR);
    const auto mapped = reinterpret_cast<std::uintptr_t>(mmap(nullptr, 8192, PROT_READ, MAP_SHARED, file.Get(), 0));
    std::uint64_t copy = 0;
    EXPECT_TRUE(sysdbg::ReadMemory(mapped + 4096, copy));
    EXPECT_EQ(copy, 0x6d6d6d6d6d6d6d6d);
    ASSERT_EQ(ftruncate(file.Get(), 100), 0);  // the second page is mapped, but no longer in the file
    for (const std::uintptr_t address : {mapped + 4096, std::uintptr_t{64}, ~std::uintptr_t{7}})
        EXPECT_FALSE(sysdbg::ReadMemory(address, copy)) << std::hex << address;
}

}  // namespace
}  // namespace tessel::test
