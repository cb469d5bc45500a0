// The report writer and what it reads: its two files, their limit, format and time, ELF files, memory and its map,
// unwind tables.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <ctime>
#include <map>

#include "sysdbg/elf_file.h"
#include "sysdbg/exidx.h"
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
    const std::string justBelow(2047, 'a');  // of half of what both files may take
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
TEST(CrashFormat, FollowsPrintf) {
    const auto formattedBy = [](auto format) {
        char text[200];
        format(text, sizeof(text), "%04d-%02d|%d|%d %05d %5d %zd %ld %u %lx %p %p %%", 2026, 1, -5, 0, -12, -12,
               ssize_t{-1}, std::numeric_limits<long>::min(), ~0U, ~0UL, reinterpret_cast<void*>(0xabcdef01), nullptr);
        return std::string(text);
    };
    EXPECT_EQ(formattedBy(&sysdbg::FormatText), formattedBy(&snprintf));
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

// ARM's unwind tables, as words at made-up addresses. The instructions are those of EHABI 10.3.
using sysdbg::ArmRegisters;
using enum sysdbg::ExidxStatus;
using Words = std::map<std::uint32_t, std::uint32_t>;

constexpr std::uint32_t kIndex = 0x8000;
constexpr std::uint32_t kExtra = 0x9000;
constexpr std::uint32_t kStack = 0x10000;
constexpr std::uint32_t kPc = ArmRegisters::kCounter;

Words memory;

bool ReadTestWord(std::uint32_t address, std::uint32_t& word) {
    if (memory.contains(address)) word = memory[address];
    return memory.contains(address);
}

// The index at kIndex: functions, and what stands behind each.
void WriteIndex(std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> entries) {
    std::uint32_t at = kIndex;
    for (const auto& [function, content] : entries) {
        memory[at] = (function - at) & 0x7fffffff;
        memory[at + 4] = content;
        at += 8;
    }
}

// A stack whose words are 0x100, 0x101, ... and registers that hold 0 to 15 times 16.
ArmRegisters NewFrame() {
    memory.clear();
    for (std::uint32_t i = 0; i < 64; ++i)
        memory[kStack + 4 * i] = 0x100 + i;
    ArmRegisters registers{};
    for (std::uint32_t i = 0; i < 16; ++i)
        registers.r[i] = 16 * i;
    registers.r[ArmRegisters::kStackPointer] = kStack;
    return registers;
}

TEST(CrashExidx, InstructionsRestoreRegistersAndFailureLeavesThem) {
    const struct {
        const char* description;
        std::vector<std::uint32_t> words;  // three instructions in the first, where it begins with 0x80
        std::uint32_t stackBytes;          // that the stack pointer has gone up
        Words changes = {};                // besides it, and pc, which becomes lr where it is not popped
        sysdbg::ExidxStatus expected = kStepped;
    } rows[] = {
        {"finish alone: a leaf", {0x80b0b0b0}, 0},
        {"vsp += 0x100", {0x803fb0b0}, 0x100},
        {"vsp -= 8", {0x8041b0b0}, ~7U},
        {"pop {r4, r15}", {0x808801b0}, 8, {{4, 0x100}, {kPc, 0x101}}},
        {"pop {r4, r13}: the popped stack pointer counts", {0x808201b0}, 0x101 - kStack, {{4, 0x100}}},
        {"vsp = r7", {0x8097b0b0}, 7 * 16 - kStack},
        {"pop {r4-r6}", {0x80a2b0b0}, 12, {{4, 0x100}, {5, 0x101}, {6, 0x102}}},
        {"pop {r1, r3}", {0x80b10ab0}, 8, {{1, 0x100}, {3, 0x101}}},
        {"vsp += 0x204 + 4 * 0x81", {0x80b28101}, 0x204 + 4 * 0x81},
        {"d0 to d3 by FSTMX", {0x80b303b0}, 36},
        {"return address authentication code, and its modifier", {0x80b4b5b0}, 4},
        {"d8, d9 by FSTMX", {0x80b9b0b0}, 20},
        {"wr10, wr11; wr2 to wr4", {0x80c1c622}, 40},
        {"wcgr0, wcgr2", {0x80c705b0}, 8},
        {"d16 to d17", {0x80c801b0}, 16},
        {"d4; d8 to d15", {0x80c940d7}, 72},
        {"several: locals, r4 and lr, arguments", {0x8001a800}, 20, {{4, 0x102}, {14, 0x103}}},
        {"model 1: two, and those of further words", {0x81010000, 0x000000b0}, 20},
        {"model 2: the same, followed by other descriptors", {0x82000001}, 12},
        {"generic: three after the personality routine", {0x1000, 0x00000102}, 24},
        {"generic, with a further word", {0x1000, 0x01000000, 0x0000b03f}, 20},
        {"refuse to unwind", {0x808000b0}, 0, {}, kRefused},
        {"vsp = r13", {0x809db0b0}, 0, {}, kUnknown},
        {"vsp = r15", {0x809fb0b0}, 0, {}, kUnknown},
        {"pop of no low register", {0x80b100b0}, 0, {}, kUnknown},
        {"pop of r4 as a low register", {0x80b110b0}, 0, {}, kUnknown},
        {"spare 101101nn", {0x80b6b0b0}, 0, {}, kUnknown},
        {"control register 4", {0x80c710b0}, 0, {}, kUnknown},
        {"spare 11001yyy", {0x80cab0b0}, 0, {}, kUnknown},
        {"spare 11xxxyyy", {0x80e0b0b0}, 0, {}, kUnknown},
        {"compact model 3", {0x83b0b0b0}, 0, {}, kUnknown},
        {"reserved bits", {0x90b0b0b0}, 0, {}, kUnknown},
        {"operand past the end", {0x80000088}, 0, {}, kIncomplete},
        {"a number without end", {0x81040000 | 0xb2ff, 0xffffffff, 0xffffffff}, 0, {}, kUnknown},
        {"words past the table", {0x81010000}, 0, {}, kUnreadable},
        {"generic model without its word", {0x1000}, 0, {}, kUnreadable},
        {"stack past the end", {0x803fa8b0}, 0, {}, kUnreadable},
    };
    for (const auto& row : rows) {
        ArmRegisters registers = NewFrame();
        ArmRegisters expected = registers;
        expected.r[ArmRegisters::kStackPointer] += row.stackBytes;
        for (const auto& [index, value] : row.changes)
            expected.r[index] = value;
        if (row.expected == kStepped && !row.changes.contains(kPc)) expected.r[kPc] = expected.r[ArmRegisters::kLink];
        WriteIndex({{0x1000, kExtra - (kIndex + 4)}});
        for (std::uint32_t i = 0; i < row.words.size(); ++i)
            memory[kExtra + 4 * i] = row.words[i];
        EXPECT_EQ(sysdbg::StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 1}, 0x1234, registers),
                  row.expected)
            << row.description;
        EXPECT_TRUE(std::equal(registers.r, registers.r + 16, expected.r)) << row.description;
    }
}

TEST(CrashExidx, EntryIsTheLastOneAtOrBeforeTheCounter) {
    constexpr std::tuple<std::uint32_t, std::uint32_t, sysdbg::ExidxStatus, std::uint32_t> kRows[] = {
        {3, 0xfff, kNoEntry, 0},     {3, 0x1000, kStepped, 4}, {3, 0x1fff, kStepped, 4},
        {3, 0x2000, kCantUnwind, 0}, {3, 0x3000, kStepped, 8}, {3, 0xf0000000, kStepped, 8},
        {4, 0x3000, kUnreadable, 0}, {0, 0x1000, kNoEntry, 0},
    };
    for (const auto& [entryCount, counter, expected, stackBytes] : kRows) {
        ArmRegisters registers = NewFrame();
        WriteIndex({{0x1000, 0x8000b0b0}, {0x2000, 1}, {0x3000, 0x8001b0b0}});  // the second cannot be unwound
        EXPECT_EQ(
            sysdbg::StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = entryCount}, counter, registers),
            expected)
            << std::hex << counter;
        EXPECT_EQ(registers.r[ArmRegisters::kStackPointer], kStack + stackBytes) << std::hex << counter;
    }
}

}  // namespace
}  // namespace tessel::test
