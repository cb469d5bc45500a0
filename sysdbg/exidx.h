// Finds a frame's caller with the exception index tables of 32-bit ARM modules.
//
// "Exception Handling ABI for the Arm Architecture" (EHABI), sections 6 "Index table entries", 7 "The exception
// handling table", 10 "Implementation details". Works on any machine: the unwound process's memory is read through a
// function.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sysdbg {

// r0 to r15 of one frame.
struct ArmRegisters {
    static constexpr int kStackPointer = 13;
    static constexpr int kLink = 14;
    static constexpr int kCounter = 15;

    std::uint32_t r[16];
};

// Reads the aligned word at an address of the unwound process. False when it cannot be read.
using ReadArmWord = bool (*)(std::uint32_t address, std::uint32_t& word);

// A module's index table in memory: pairs of words, sorted by function.
struct ExidxTable {
    std::uint32_t address;
    std::uint32_t entryCount;
};

enum class ExidxStatus {
    kStepped,
    kNoEntry,     // the first function begins after the counter
    kCantUnwind,  // EXIDX_CANTUNWIND: the outermost frame
    kRefused,     // "refuse to unwind"
    kUnknown,     // spare instruction or unknown model
    kIncomplete,  // the operand of the last instruction is missing
    kUnreadable,  // part of the table or of the stack
};

// Replaces the registers of a frame with those of its caller. `counter` is an address within the call instruction, or
// the faulting instruction itself. On failure the registers are left as they were.
ExidxStatus StepArmFrame(ReadArmWord readWord, const ExidxTable& table, std::uint32_t counter, ArmRegisters& registers);

}  // namespace sysdbg
