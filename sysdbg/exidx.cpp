#include "sysdbg/exidx.h"

#include "sysdbg/exidx_program.h"

namespace sysdbg {

namespace {

constexpr std::uint32_t kEntryBytes = 8;
constexpr std::uint32_t kCantUnwind = 1;
constexpr std::uint32_t kCompactBit = 1U << 31;

// A 31-bit offset from the place it stands at; bit 31 is not its own.
std::uint32_t Prel31(std::uint32_t place, std::uint32_t word) {
    const std::uint32_t offset = (word & 0x40000000) != 0 ? word | kCompactBit : word & ~kCompactBit;
    return place + offset;
}

// Finds the entry of the function that holds `counter`: the last one that begins at or before it.
ExidxStatus FindEntry(ReadArmWord readWord, const ExidxTable& table, std::uint32_t counter, std::uint32_t& entry) {
    std::uint32_t low = 0;
    std::uint32_t high = table.entryCount;
    while (low < high) {
        const std::uint32_t middle = low + (high - low) / 2;
        const std::uint32_t place = table.address + middle * kEntryBytes;
        std::uint32_t word = 0;
        if (!readWord(place, word)) return ExidxStatus::kUnreadable;
        if (Prel31(place, word) <= counter) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == 0) return ExidxStatus::kNoEntry;
    entry = table.address + (low - 1) * kEntryBytes;
    return ExidxStatus::kStepped;
}

// The unwind instructions begin in `word` at `place`. Compact model 0 has three of them there; 1 and 2 have two, and in
// the byte before them the number of words that follow.
ExidxStatus OpenCompactModel(std::uint32_t place, std::uint32_t word, ExidxBytes& bytes) {
    const std::uint32_t model = word >> 24 & 15;
    if ((word & 0x70000000) != 0 || model > 2) return ExidxStatus::kUnknown;
    const std::uint32_t further = model == 0 ? 0 : word >> 16 & 255;
    bytes = {.word = word, .left = model == 0 ? 3 : 2, .nextPlace = place + 4, .wordsLeft = further};
    return ExidxStatus::kStepped;
}

// The generic model has a personality routine of its own. Those of the C and C++ runtimes keep behind its address the
// number of words that follow, and three instructions in the same word.
ExidxStatus OpenGenericModel(ReadArmWord readWord, std::uint32_t place, ExidxBytes& bytes) {
    std::uint32_t word = 0;
    if (!readWord(place + 4, word)) return ExidxStatus::kUnreadable;
    bytes = {.word = word, .left = 3, .nextPlace = place + 8, .wordsLeft = word >> 24};
    return ExidxStatus::kStepped;
}

ExidxStatus OpenEntry(ReadArmWord readWord, std::uint32_t entry, ExidxBytes& bytes) {
    const std::uint32_t place = entry + 4;
    std::uint32_t word = 0;
    if (!readWord(place, word)) return ExidxStatus::kUnreadable;
    if (word == kCantUnwind) return ExidxStatus::kCantUnwind;
    // Inlined into the index: no room for further words, thus model 0 alone.
    if ((word & kCompactBit) != 0)
        return word >> 24 == 0x80 ? OpenCompactModel(place, word, bytes) : ExidxStatus::kUnknown;

    const std::uint32_t table = Prel31(place, word);
    if (!readWord(table, word)) return ExidxStatus::kUnreadable;
    return (word & kCompactBit) != 0 ? OpenCompactModel(table, word, bytes) : OpenGenericModel(readWord, table, bytes);
}

}  // namespace

ExidxStatus StepArmFrame(ReadArmWord readWord, const ExidxTable& table, std::uint32_t counter,
                         ArmRegisters& registers) {
    std::uint32_t entry = 0;
    ExidxStatus status = FindEntry(readWord, table, counter, entry);
    if (status != ExidxStatus::kStepped) return status;
    ExidxBytes bytes{};
    status = OpenEntry(readWord, entry, bytes);
    if (status != ExidxStatus::kStepped) return status;
    return RunExidxProgram(readWord, bytes, registers);
}

}  // namespace sysdbg
