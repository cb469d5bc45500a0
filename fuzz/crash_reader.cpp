// What crash diagnostics read while the process dies. The first byte chooses: a line of the memory map, an ELF file and
// an address in it, ARM's unwind tables and a stack, a time zone file.
#include "fuzz/fuzz.h"
#include "sysdbg/elf_file.h"
#include "sysdbg/exidx.h"
#include "sysdbg/local_time.h"
#include "sysdbg/maps.h"
#include "sysdbg/symbols.h"
#include "tests/support/elf_image.h"

namespace tessel::fuzz {

namespace {

void ReadMapLine(Input& input) {
    sysdbg::MapEntry entry{};
    if (!sysdbg::ParseMapLine(input.TakeText().c_str(), entry)) return;
    for (const std::span<const char> text : {std::span<const char>(entry.path), {entry.permissions}, {entry.device}})
        Require(memchr(text.data(), '\0', text.size()) != nullptr);
}

std::string PathOf(const UniqueFd& file) {
    return "/proc/self/fd/" + std::to_string(file.Get());
}

void ReadElf(Input& input) {
    const auto address = input.Take<u32>();
    const UniqueFd bytes = FileOf(input.TakeRest());
    const sysdbg::ElfFile file(PathOf(bytes).c_str());
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
    const UniqueFd bytes = FileOf(input.TakeRest());
    const i64 offset = sysdbg::UtcOffsetSeconds(PathOf(bytes).c_str());
    const sysdbg::CalendarTime time = sysdbg::BreakDown(offset * 100000);
    Require(time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= 31 && time.hour < 24);
}

}  // namespace

std::vector<std::string> Seeds() {
    std::string frame;
    for (u16 i = 0; i < 16; ++i)
        frame += BytesOf(static_cast<u16>(i == 13 ? 0x1010 : 16 * i));
    frame += BytesOf(u16{1}) + BytesOf(u16{0x1234}) + BytesOf(std::array{0U, 0x80a8b0b0U, 1U, 2U, 3U, 4U});
    const std::string zone = "TZif2" + std::string(34, '\0') + "\1\0\0\0\4\0\0\x0e\x10\0\0UTC"s;
    return {"\0"s + "00010000-0009f000 r-xp 00001000 b3:02 1234       /usr/sbin/program (deleted)",
            "\1" + BytesOf(0x5210U) + BytesOf(test::ElfImage()), "\2" + frame, "\3" + zone};
}

void TryInput(Input input) {
    constexpr std::array kReaders = {&ReadMapLine, &ReadElf, &StepFrame, &ReadZone};
    kReaders[input.Take<u8>() % kReaders.size()](input);
}

}  // namespace tessel::fuzz
