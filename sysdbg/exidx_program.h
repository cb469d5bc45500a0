// The unwind instructions of one function.
#pragma once

#include "sysdbg/exidx.h"

namespace sysdbg {

// Where the next instructions come from: the low `left` bytes of `word`, then `wordsLeft` words from `nextPlace` on.
// The first instruction is in the highest of a word's bytes.
struct ExidxBytes {
    std::uint32_t word;
    int left;
    std::uint32_t nextPlace;
    std::uint32_t wordsLeft;
};

// Undoes what the function did to the registers. They are changed only when it returns kStepped.
ExidxStatus RunExidxProgram(ReadArmWord readWord, const ExidxBytes& bytes, ArmRegisters& registers);

}  // namespace sysdbg
