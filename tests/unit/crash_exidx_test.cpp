// ARM's unwind tables, as words at made-up addresses. The instructions are those of EHABI 10.3.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "sysdbg/exidx.h"

namespace sysdbg {

void PrintTo(ExidxStatus status, std::ostream* out) {
    *out << static_cast<int>(status);
}

namespace {

constexpr std::uint32_t kIndex = 0x8000;
constexpr std::uint32_t kExtra = 0x9000;
constexpr std::uint32_t kStack = 0x10000;

std::map<std::uint32_t, std::uint32_t> memory;

bool ReadTestWord(std::uint32_t address, std::uint32_t& word) {
    const auto found = memory.find(address);
    if (found == memory.end()) return false;
    word = found->second;
    return true;
}

std::uint32_t Prel31(std::uint32_t place, std::uint32_t goal) {
    return (goal - place) & 0x7fffffff;
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

// Steps by `words` at kExtra, which the only index entry names for everything from 0x1000 on.
ExidxStatus StepByExtra(const std::vector<std::uint32_t>& words, ArmRegisters& registers) {
    memory[kIndex] = Prel31(kIndex, 0x1000);
    memory[kIndex + 4] = Prel31(kIndex + 4, kExtra);
    for (std::uint32_t i = 0; i < words.size(); ++i)
        memory[kExtra + 4 * i] = words[i];
    return StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 1}, 0x1234, registers);
}

// Instructions of at most six bytes, in compact model 1.
ExidxStatus StepBy(std::vector<std::uint8_t> bytes, ArmRegisters& registers) {
    bytes.resize(6, 0xb0);
    const std::uint32_t first = 0x81010000U | std::uint32_t{bytes[0]} << 8 | bytes[1];
    const std::uint32_t second =
        std::uint32_t{bytes[2]} << 24 | std::uint32_t{bytes[3]} << 16 | std::uint32_t{bytes[4]} << 8 | bytes[5];
    return StepByExtra({first, second}, registers);
}

using Changes = std::map<int, std::uint32_t>;

TEST(CrashExidx, InstructionsRestoreRegistersAndStack) {
    constexpr int kSp = 13;
    constexpr int kLr = 14;
    constexpr int kPc = 15;
    const struct {
        const char* description;
        std::vector<std::uint8_t> bytes;
        Changes changes;  // besides pc, which becomes lr where it is not popped
    } rows[] = {
        {"finish alone: a leaf", {}, {}},
        {"vsp += 0x100", {0x3f}, {{kSp, kStack + 0x100}}},
        {"vsp -= 8", {0x41}, {{kSp, kStack - 8}}},
        {"pop {r4, r15}", {0x88, 0x01}, {{4, 0x100}, {kPc, 0x101}, {kSp, kStack + 8}}},
        {"pop {r4, r13}: the popped stack pointer counts", {0x82, 0x01}, {{4, 0x100}, {kSp, 0x101}}},
        {"vsp = r7", {0x97}, {{kSp, 7 * 16}}},
        {"pop {r4-r6}", {0xa2}, {{4, 0x100}, {5, 0x101}, {6, 0x102}, {kSp, kStack + 12}}},
        {"pop {r1, r3}", {0xb1, 0x0a}, {{1, 0x100}, {3, 0x101}, {kSp, kStack + 8}}},
        {"vsp += 0x204 + 4 * 0x81", {0xb2, 0x81, 0x01}, {{kSp, kStack + 0x204 + 4 * 0x81}}},
        {"d0 to d3 by FSTMX", {0xb3, 0x03}, {{kSp, kStack + 36}}},
        {"return address authentication code", {0xb4}, {{kSp, kStack + 4}}},
        {"its modifier", {0xb5}, {}},
        {"d8, d9 by FSTMX", {0xb9}, {{kSp, kStack + 20}}},
        {"wr10, wr11", {0xc1}, {{kSp, kStack + 16}}},
        {"wr2 to wr4", {0xc6, 0x22}, {{kSp, kStack + 24}}},
        {"wcgr0, wcgr2", {0xc7, 0x05}, {{kSp, kStack + 8}}},
        {"d16 to d17", {0xc8, 0x01}, {{kSp, kStack + 16}}},
        {"d4", {0xc9, 0x40}, {{kSp, kStack + 8}}},
        {"d8 to d15", {0xd7}, {{kSp, kStack + 64}}},
        {"several: locals, saved registers, arguments",
         {0x01, 0xa8, 0x00},
         {{4, 0x102}, {kLr, 0x103}, {kSp, kStack + 20}}},
    };
    for (const auto& row : rows) {
        ArmRegisters registers = NewFrame();
        ArmRegisters expected = registers;
        for (const auto& [index, value] : row.changes)
            expected.r[index] = value;
        if (!row.changes.contains(kPc)) expected.r[kPc] = expected.r[kLr];
        EXPECT_EQ(StepBy(row.bytes, registers), ExidxStatus::kStepped) << row.description;
        EXPECT_TRUE(std::equal(registers.r, registers.r + 16, expected.r)) << row.description;
    }
}

TEST(CrashExidx, EveryModelIsReadAndFailureLeavesTheRegisters) {
    using enum ExidxStatus;
    const struct {
        const char* description;
        std::vector<std::uint32_t> words;
        ExidxStatus expected;
        std::uint32_t expectedStack = kStack;
    } rows[] = {
        {"model 0: three instructions", {0x80000001}, kStepped, kStack + 16},
        {"model 1: two, and those of further words", {0x81010000, 0x000000b0}, kStepped, kStack + 20},
        {"model 2: the same, followed by other descriptors", {0x82000001}, kStepped, kStack + 12},
        {"generic: three after the personality routine", {0x1000, 0x00000102}, kStepped, kStack + 24},
        {"generic, with a further word", {0x1000, 0x01000000, 0x0000b03f}, kStepped, kStack + 20},
        {"refuse to unwind", {0x808000b0}, kRefused},
        {"vsp = r13", {0x809db0b0}, kUnknown},
        {"vsp = r15", {0x809fb0b0}, kUnknown},
        {"pop of no low register", {0x80b100b0}, kUnknown},
        {"pop of r4 as a low register", {0x80b110b0}, kUnknown},
        {"spare 101101nn", {0x80b6b0b0}, kUnknown},
        {"control register 4", {0x80c710b0}, kUnknown},
        {"spare 11001yyy", {0x80cab0b0}, kUnknown},
        {"spare 11xxxyyy", {0x80e0b0b0}, kUnknown},
        {"compact model 3", {0x83b0b0b0}, kUnknown},
        {"reserved bits", {0x90b0b0b0}, kUnknown},
        {"operand past the end", {0x80000088}, kIncomplete},
        {"a number without end", {0x81040000 | 0xb2ff, 0xffffffff, 0xffffffff}, kUnknown},
        {"words past the table", {0x81010000}, kUnreadable},
        {"generic model without its word", {0x1000}, kUnreadable},
        {"stack past the end", {0x803fa8b0}, kUnreadable},
    };
    for (const auto& row : rows) {
        ArmRegisters registers = NewFrame();
        ArmRegisters expected = registers;
        expected.r[ArmRegisters::kStackPointer] = row.expectedStack;
        if (row.expected == kStepped) expected.r[ArmRegisters::kCounter] = expected.r[ArmRegisters::kLink];
        EXPECT_EQ(StepByExtra(row.words, registers), row.expected) << row.description;
        EXPECT_TRUE(std::equal(registers.r, registers.r + 16, expected.r)) << row.description;
    }
}

TEST(CrashExidx, EntryIsTheLastOneAtOrBeforeTheCounter) {
    // Functions at 0x1000, 0x2000 (cannot be unwound) and 0x3000, the outer two with their instructions in the index.
    const std::uint32_t functions[] = {0x1000, 0x2000, 0x3000};
    const std::uint32_t contents[] = {0x8000b0b0, 1, 0x8001b0b0};
    const struct {
        std::uint32_t counter;
        ExidxStatus expected;
        std::uint32_t expectedStack;
    } rows[] = {
        {0xfff, ExidxStatus::kNoEntry, kStack},      {0x1000, ExidxStatus::kStepped, kStack + 4},
        {0x1fff, ExidxStatus::kStepped, kStack + 4}, {0x2000, ExidxStatus::kCantUnwind, kStack},
        {0x3000, ExidxStatus::kStepped, kStack + 8}, {0xf0000000, ExidxStatus::kStepped, kStack + 8},
    };
    for (const auto& row : rows) {
        ArmRegisters registers = NewFrame();
        for (std::uint32_t i = 0; i < 3; ++i) {
            memory[kIndex + 8 * i] = Prel31(kIndex + 8 * i, functions[i]);
            memory[kIndex + 8 * i + 4] = contents[i];
        }
        EXPECT_EQ(StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 3}, row.counter, registers),
                  row.expected)
            << std::hex << row.counter;
        EXPECT_EQ(registers.r[ArmRegisters::kStackPointer], row.expectedStack) << std::hex << row.counter;
    }
    ArmRegisters registers = NewFrame();
    EXPECT_EQ(StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 3}, 0x1000, registers),
              ExidxStatus::kUnreadable);
    EXPECT_EQ(StepArmFrame(&ReadTestWord, {.address = kIndex, .entryCount = 0}, 0x1000, registers),
              ExidxStatus::kNoEntry);
}

}  // namespace
}  // namespace sysdbg
