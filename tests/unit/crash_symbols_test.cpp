// Functions of ELF files, sound and hostile, and lines of the memory map.
#include <fcntl.h>
#include <sys/mman.h>

#include <cstring>

#include "sysdbg/elf_file.h"
#include "sysdbg/maps.h"
#include "sysdbg/stack.h"
#include "sysdbg/symbols.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

// A file with a symbol table: section 1 the symbols, section 2 their names.
struct Image {
    ElfW(Ehdr) header{};
    ElfW(Phdr) segment{};
    ElfW(Shdr) sections[3] = {{},
                              {0, SHT_SYMTAB, 0, 0, offsetof(Image, symbols), sizeof(symbols), 2, 0, 0, 0},
                              {0, SHT_STRTAB, 0, 0, offsetof(Image, names), sizeof(names), 0, 0, 0, 0}};
    ElfW(Sym) symbols[4]{};
    char names[32] = "\0first\0second\0fixed\0object";

    Image() {
        memcpy(header.e_ident, sizeof(void*) == 4 ? ELFMAG "\1\0\1" : ELFMAG "\2\0\1", 7);  // class and version
        header.e_type = ET_DYN;
        header.e_phoff = offsetof(Image, segment);
        header.e_phnum = 1;
        header.e_shoff = offsetof(Image, sections);
        header.e_shnum = 3;
        segment.p_type = PT_LOAD;
        segment.p_offset = 0x100;
        segment.p_vaddr = 0x5100;
        segment.p_filesz = 0x1000;
        SetSymbol(0, 26, STT_OBJECT, 1, 0x5000);
        SetSymbol(1, 1, STT_FUNC, 1, 0x5200);
        SetSymbol(2, 7, STT_FUNC, 1, 0x5220);
        SetSymbol(3, 14, STT_FUNC, SHN_ABS, 0x700000);
    }
    void SetSymbol(int index, unsigned name, unsigned char type, unsigned section, std::uintptr_t value) {
        symbols[index].st_name = name;
        symbols[index].st_info = type;
        symbols[index].st_shndx = static_cast<unsigned short>(section);
        symbols[index].st_value = value;
        symbols[index].st_size = type == STT_OBJECT ? 0x1000 : 0x20;
    }
};

// "-" when there is no function.
std::string FunctionAt(const Image& image, std::uintptr_t inFile) {
    constexpr std::uintptr_t kBias = 0x600000;
    WriteFile("/tmp/module", {reinterpret_cast<const char*>(&image), sizeof(image)});
    const sysdbg::ElfFile file("/tmp/module");
    sysdbg::FunctionSymbol function{};
    if (!file.IsValid() || !sysdbg::FindFunction(file, inFile + kBias, inFile, function)) return "-";
    return std::string(function.name) + "+" + std::to_string(inFile - function.address);
}

TEST(CrashSymbols, FunctionIsTheOneWhoseRangeContainsTheAddress) {
    Image image;
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
    const std::pair<const char*, void (*)(Image&)> rows[] = {
        {"not an ELF file", [](Image& image) { image.header.e_ident[1] = 'x'; }},
        {"of the other class", [](Image& image) { image.header.e_ident[EI_CLASS] ^= 3; }},
        {"of another version", [](Image& image) { image.header.e_ident[EI_VERSION] = 2; }},
        {"no sections", [](Image& image) { image.header.e_shnum = 0; }},
        {"symbols larger than the file", [](Image& image) { image.sections[1].sh_size = ~ElfW(Word){0}; }},
        {"a missing table of names", [](Image& image) { image.sections[1].sh_link = 3; }},
        {"a name past the names", [](Image& image) { image.symbols[1].st_name = sizeof(image.names); }},
    };
    for (const auto& [description, change] : rows) {
        Image image;
        change(image);
        EXPECT_EQ(FunctionAt(image, 0x5200), "-") << description;
    }
    // As many tables as there can be, each of the file's size: the search still ends.
    Image many;
    many.header.e_shnum = 0xffff;
    many.sections[1].sh_size = 1U << 30;
    std::string file(reinterpret_cast<const char*>(&many), offsetof(Image, sections));
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
