// What crash diagnostics read while the process dies. The first byte chooses: a line of the memory map, an ELF file and
// an address in it, ARM's unwind tables and a stack, a time zone file.
#include <link.h>

#include "fuzz/fuzz.h"
#include "sysdbg/elf_file.h"
#include "sysdbg/exidx.h"
#include "sysdbg/local_time.h"
#include "sysdbg/maps.h"
#include "sysdbg/symbols.h"

namespace {

using tessel::fuzz::BytesOf;
using tessel::fuzz::Input;
using tessel::fuzz::Require;

// A file with a symbol table: section 1 the symbols, section 2 their names.
struct Image {
    ElfW(Ehdr) header{};
    ElfW(Phdr) segment{};
    ElfW(Shdr) sections[3]{};
    ElfW(Sym) symbols[2]{};
    char names[16] = "\0first";
};

Image SoundImage() {
    Image image;
    memcpy(image.header.e_ident, ELFMAG, SELFMAG);
    image.header.e_ident[EI_CLASS] = ELFCLASS64;
    image.header.e_ident[EI_VERSION] = EV_CURRENT;
    image.header.e_type = ET_DYN;
    image.header.e_phoff = offsetof(Image, segment);
    image.header.e_phnum = 1;
    image.header.e_shoff = offsetof(Image, sections);
    image.header.e_shnum = 3;
    image.segment.p_type = PT_LOAD;
    image.segment.p_filesz = 0x1000;
    image.sections[1].sh_type = SHT_SYMTAB;
    image.sections[1].sh_offset = offsetof(Image, symbols);
    image.sections[1].sh_size = sizeof(image.symbols);
    image.sections[1].sh_link = 2;
    image.sections[2].sh_type = SHT_STRTAB;
    image.sections[2].sh_offset = offsetof(Image, names);
    image.sections[2].sh_size = sizeof(image.names);
    image.symbols[1].st_name = 1;
    image.symbols[1].st_info = STT_FUNC;
    image.symbols[1].st_shndx = 1;
    image.symbols[1].st_value = 0x200;
    image.symbols[1].st_size = 0x20;
    return image;
}

void ReadMapLine(Input& input) {
    sysdbg::MapEntry entry{};
    if (!sysdbg::ParseMapLine(input.TakeText().c_str(), entry)) return;
    Require(memchr(entry.path, '\0', sizeof(entry.path)) != nullptr);
    Require(memchr(entry.permissions, '\0', sizeof(entry.permissions)) != nullptr);
    Require(memchr(entry.device, '\0', sizeof(entry.device)) != nullptr);
}

void ReadElf(Input& input) {
    const auto address = input.Take<u32>();
    const tessel::UniqueFd bytes = tessel::fuzz::FileOf(input.TakeRest());
    const sysdbg::ElfFile file(("/proc/self/fd/" + std::to_string(bytes.Get())).c_str());
    if (!file.IsValid()) return;
    sysdbg::FunctionSymbol function{};
    if (sysdbg::FindFunction(file, address, address, function)) {
        Require(function.address <= address && memchr(function.name, '\0', sizeof(function.name)) != nullptr);
    }
    std::uintptr_t loaded = 0;
    (void)file.AddressOfOffset(address, loaded);
    ElfW(Phdr) segment{};
    Require(!file.FindSegment(PT_NOTE, segment) || segment.p_type == PT_NOTE);
}

// The words that can be read, from 0x1000 on.
std::vector<std::uint32_t> g_words;

bool ReadWord(std::uint32_t address, std::uint32_t& word) {
    if (address % 4 != 0 || address < 0x1000 || (address - 0x1000) / 4 >= g_words.size()) return false;
    word = g_words[(address - 0x1000) / 4];
    return true;
}

void StepFrame(Input& input) {
    sysdbg::ArmRegisters registers{};
    for (std::uint32_t& value : registers.r)
        value = input.Take<u16>();
    const sysdbg::ArmRegisters before = registers;
    const sysdbg::ExidxTable table{.address = 0x1000, .entryCount = input.Take<u16>()};
    const std::uint32_t counter = input.Take<u16>();
    g_words.clear();
    while (input.Left() > 0)
        g_words.push_back(input.Take<u32>());
    const auto status = sysdbg::StepArmFrame(&ReadWord, table, counter, registers);
    Require(status == sysdbg::ExidxStatus::kStepped || memcmp(&before, &registers, sizeof(before)) == 0);
}

void ReadZone(Input& input) {
    const tessel::UniqueFd bytes = tessel::fuzz::FileOf(input.TakeRest());
    const i64 offset = sysdbg::UtcOffsetSeconds(("/proc/self/fd/" + std::to_string(bytes.Get())).c_str());
    const sysdbg::CalendarTime time = sysdbg::BreakDown(offset * 100000);
    Require(time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= 31 && time.hour < 24);
}

}  // namespace

std::vector<std::string> tessel::fuzz::Seeds() {
    std::string frame;
    for (u16 i = 0; i < 16; ++i)
        frame += BytesOf(static_cast<u16>(i == 13 ? 0x1010 : 16 * i));
    frame += BytesOf(u16{1}) + BytesOf(u16{0x1234});
    frame += BytesOf(u32{0}) + BytesOf(0x80a8b0b0U) + BytesOf(1U) + BytesOf(2U) + BytesOf(3U) + BytesOf(4U);
    std::string zone = "TZif2" + std::string(15, '\0');
    zone += std::string("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0\4", 24) + std::string("\0\0\x0e\x10\0\0", 6);
    return {std::string(1, '\0') + "00010000-0009f000 r-xp 00001000 b3:02 1234       /usr/sbin/program (deleted)",
            "\1" + BytesOf(0x210U) + BytesOf(SoundImage()), "\2" + frame, "\3" + zone + "UTC"};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    constexpr std::array kReaders = {&ReadMapLine, &ReadElf, &StepFrame, &ReadZone};
    kReaders[input.Take<u8>() % kReaders.size()](input);
    return 0;
}
