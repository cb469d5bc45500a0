// ARM's unwind tables, as words at made-up addresses. The instructions are those of EHABI 10.3.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "sysdbg/exidx.h"

namespace sysdbg {
namespace {

using enum ExidxStatus;
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
        ExidxStatus expected = kStepped;
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
        EXPECT_EQ(StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 1}, 0x1234, registers), row.expected)
            << row.description;
        EXPECT_TRUE(std::equal(registers.r, registers.r + 16, expected.r)) << row.description;
    }
}

TEST(CrashExidx, EntryIsTheLastOneAtOrBeforeTheCounter) {
    constexpr std::tuple<std::uint32_t, std::uint32_t, ExidxStatus, std::uint32_t> kRows[] = {
        {3, 0xfff, kNoEntry, 0},     {3, 0x1000, kStepped, 4}, {3, 0x1fff, kStepped, 4},
        {3, 0x2000, kCantUnwind, 0}, {3, 0x3000, kStepped, 8}, {3, 0xf0000000, kStepped, 8},
        {4, 0x3000, kUnreadable, 0}, {0, 0x1000, kNoEntry, 0},
    };
    for (const auto& [entryCount, counter, expected, stackBytes] : kRows) {
        ArmRegisters registers = NewFrame();
        WriteIndex({{0x1000, 0x8000b0b0}, {0x2000, 1}, {0x3000, 0x8001b0b0}});  // the second cannot be unwound
        EXPECT_EQ(StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = entryCount}, counter, registers),
                  expected)
            << std::hex << counter;
        EXPECT_EQ(registers.r[ArmRegisters::kStackPointer], kStack + stackBytes) << std::hex << counter;
    }
}

}  // namespace
}  // namespace sysdbg
