#include "sysdbg/exidx.h"

namespace sysdbg {

namespace {

constexpr std::uint32_t kEntryBytes = 8;
constexpr std::uint32_t kCantUnwind = 1;
constexpr std::uint32_t kCompactBit = 1U << 31;

// A function's unwind instructions: the low `left` bytes of `word`, then `wordsLeft` words from `nextPlace` on. The
// first instruction is in the highest of a word's bytes.
struct Instructions {
    std::uint32_t word;
    int left;
    std::uint32_t nextPlace;
    std::uint32_t wordsLeft;
};

// EHABI 10.3, "Frame unwinding instructions": one function for each prefix, its bit pattern above it.
class Program {
  public:
    Program(ReadArmWord readWord, const Instructions& instructions, const ArmRegisters& registers)
        : readWord_(readWord),
          instructions_(instructions),
          registers_(registers),
          vsp_(registers.r[ArmRegisters::kStackPointer]) {}

    ExidxStatus Run(ArmRegisters& result) {
        std::uint8_t instruction = kFinish;
        while (status_ == ExidxStatus::kStepped && HasMore() && (instruction = NextByte()) != kFinish)
            Execute(instruction);
        if (status_ != ExidxStatus::kStepped) return status_;
        registers_.r[ArmRegisters::kStackPointer] = vsp_;
        // A function that did not save its return address still has it in the link register.
        if (!hasCounter_) registers_.r[ArmRegisters::kCounter] = registers_.r[ArmRegisters::kLink];
        result = registers_;
        return ExidxStatus::kStepped;
    }

  private:
    static constexpr std::uint8_t kFinish = 0b1011'0000;

    [[nodiscard]] bool HasMore() const {
        return instructions_.left > 0 || instructions_.wordsLeft > 0;
    }

    std::uint8_t NextByte() {
        if (instructions_.left == 0) {
            if (instructions_.wordsLeft == 0) {
                Fail(ExidxStatus::kIncomplete);
                return kFinish;
            }
            if (!readWord_(instructions_.nextPlace, instructions_.word)) Fail(ExidxStatus::kUnreadable);
            instructions_.nextPlace += 4;
            --instructions_.wordsLeft;
            instructions_.left = 4;
        }
        --instructions_.left;
        return static_cast<std::uint8_t>(instructions_.word >> (8 * instructions_.left));
    }

    void Fail(ExidxStatus status) {
        if (status_ == ExidxStatus::kStepped) status_ = status;
    }

    // Pops the registers whose bits are set, bit 0 being register `first`. The lowest lies at the lowest address; a
    // popped stack pointer takes effect after all the others.
    void PopMask(std::uint32_t mask, int first) {
        std::uint32_t stackPointer = 0;
        bool hasStackPointer = false;
        for (int index = first; mask != 0; ++index, mask >>= 1) {
            if ((mask & 1) == 0) continue;
            std::uint32_t word = 0;
            if (!readWord_(vsp_, word)) Fail(ExidxStatus::kUnreadable);
            vsp_ += 4;
            if (index == ArmRegisters::kStackPointer) {
                stackPointer = word;
                hasStackPointer = true;
                continue;
            }
            registers_.r[index] = word;
            if (index == ArmRegisters::kCounter) hasCounter_ = true;
        }
        if (hasStackPointer) vsp_ = stackPointer;
    }

    // 00xxxxxx, 01xxxxxx
    void MoveStackPointer(std::uint8_t instruction) {
        const std::uint32_t bytes = (instruction & 0x3FU) * 4 + 4;
        vsp_ += (instruction & 0x40) == 0 ? bytes : -bytes;
    }

    // 1000iiii iiiiiiii
    void PopUnderMask(std::uint8_t instruction) {
        const std::uint32_t mask = (instruction & 15U) << 8 | NextByte();
        if (mask == 0) Fail(ExidxStatus::kRefused);
        PopMask(mask, 4);
    }

    // 1001nnnn
    void TakeStackPointerFrom(std::uint8_t instruction) {
        const int index = instruction & 15;
        if (index == ArmRegisters::kStackPointer || index == ArmRegisters::kCounter) return Fail(ExidxStatus::kUnknown);
        vsp_ = registers_.r[index];
    }

    // 10100nnn, and with the link register 10101nnn
    void PopRange(std::uint8_t instruction) {
        PopMask((2U << (instruction & 7)) - 1, 4);
        if ((instruction & 8) != 0) PopMask(1, ArmRegisters::kLink);
    }

    // 10110001 0000iiii
    void PopLowRegisters() {
        const std::uint8_t mask = NextByte();
        if (mask == 0 || mask > 15) return Fail(ExidxStatus::kUnknown);
        PopMask(mask, 0);
    }

    // 10110010 uleb128
    void AddLargeOffset() {
        std::uint32_t value = 0;
        std::uint8_t byte = 0x80;
        for (unsigned shift = 0; (byte & 0x80) != 0 && status_ == ExidxStatus::kStepped; shift += 7) {
            byte = NextByte();
            if (shift > 28) return Fail(ExidxStatus::kUnknown);
            value |= (byte & 0x7FU) << shift;
        }
        vsp_ += 0x204 + value * 4;
    }

    // Floating-point and coprocessor registers are not needed to find a caller: their place on the stack is skipped.
    void SkipRegisters(std::uint32_t count, std::uint32_t registerBytes, std::uint32_t extraBytes = 0) {
        vsp_ += count * registerBytes + extraBytes;
    }
    // The operand sssscccc: first register, number of registers less one
    std::uint32_t CountOfOperand() {
        return (NextByte() & 15U) + 1;
    }

    // 1011xxxx
    void ExecuteMixed(std::uint8_t instruction) {
        switch (instruction) {
            case 0b1011'0001:
                return PopLowRegisters();
            case 0b1011'0010:
                return AddLargeOffset();
            case 0b1011'0011:
                return SkipRegisters(CountOfOperand(), 8, 4);  // VFP, saved as by FSTMX
            case 0b1011'0100:
                return SkipRegisters(1, 4);  // the return address authentication code
            case 0b1011'0101:
                return;  // the current vsp is that code's modifier
            default:
                break;
        }
        if ((instruction & 0b1111'1000) != 0b1011'1000) return Fail(ExidxStatus::kUnknown);
        SkipRegisters((instruction & 7U) + 1, 8, 4);  // 10111nnn: VFP, saved as by FSTMX
    }

    // 11000110 sssscccc and 11000nnn: iWMMX data; 11000111 0000iiii: iWMMX control; 1100100x sssscccc: VFP
    void SkipCoprocessor(std::uint8_t instruction) {
        if (instruction == 0b1100'0111) {
            const std::uint8_t mask = NextByte();
            if (mask == 0 || mask > 15) return Fail(ExidxStatus::kUnknown);
            return SkipRegisters(static_cast<std::uint32_t>(__builtin_popcount(mask)), 4);
        }
        if (instruction <= 0b1100'0101) return SkipRegisters((instruction & 7U) + 1, 8);
        if (instruction <= 0b1100'1001) return SkipRegisters(CountOfOperand(), 8);
        Fail(ExidxStatus::kUnknown);
    }

    void Execute(std::uint8_t instruction) {
        if (instruction < 0b1000'0000) return MoveStackPointer(instruction);
        switch (instruction >> 4) {
            case 0b1000:
                return PopUnderMask(instruction);
            case 0b1001:
                return TakeStackPointerFrom(instruction);
            case 0b1010:
                return PopRange(instruction);
            case 0b1011:
                return ExecuteMixed(instruction);
            case 0b1100:
                return SkipCoprocessor(instruction);
            default:
                break;
        }
        // 11010nnn: VFP, saved as by FSTMFDD
        if ((instruction & 0b1111'1000) != 0b1101'0000) return Fail(ExidxStatus::kUnknown);
        SkipRegisters((instruction & 7U) + 1, 8);
    }

    ReadArmWord readWord_;
    Instructions instructions_;
    ArmRegisters registers_;
    std::uint32_t vsp_;  // virtual stack pointer: the caller's in the end
    bool hasCounter_ = false;
    ExidxStatus status_ = ExidxStatus::kStepped;
};

// Where the 31-bit offset in the `word` at `place` leads. Bit 31 is not part of it.
std::uint32_t Prel31(std::uint32_t place, std::uint32_t word) {
    const std::uint32_t offset = (word & 0x40000000) != 0 ? word | kCompactBit : word & ~kCompactBit;
    return place + offset;
}

// Finds the entry of the function that contains `counter`: the last one that begins at or before it.
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

// The unwind instructions begin in `word` at `place`. Compact model 0 has three of them there, models 1 and 2 have two,
// preceded by the number of words that follow.
ExidxStatus OpenCompactModel(std::uint32_t place, std::uint32_t word, Instructions& instructions) {
    const std::uint32_t model = word >> 24 & 15;
    if ((word & 0x70000000) != 0 || model > 2) return ExidxStatus::kUnknown;
    const std::uint32_t further = model == 0 ? 0 : word >> 16 & 255;
    instructions = {.word = word, .left = model == 0 ? 3 : 2, .nextPlace = place + 4, .wordsLeft = further};
    return ExidxStatus::kStepped;
}

// The generic model names its own personality routine. For those of the C and C++ runtimes, the word after its address
// holds the number of words that follow and three instructions.
ExidxStatus OpenGenericModel(ReadArmWord readWord, std::uint32_t place, Instructions& instructions) {
    std::uint32_t word = 0;
    if (!readWord(place + 4, word)) return ExidxStatus::kUnreadable;
    instructions = {.word = word, .left = 3, .nextPlace = place + 8, .wordsLeft = word >> 24};
    return ExidxStatus::kStepped;
}

ExidxStatus OpenEntry(ReadArmWord readWord, std::uint32_t entry, Instructions& instructions) {
    const std::uint32_t place = entry + 4;
    std::uint32_t word = 0;
    if (!readWord(place, word)) return ExidxStatus::kUnreadable;
    if (word == kCantUnwind) return ExidxStatus::kCantUnwind;
    // Inlined into the index: there is no room for more words, hence only model 0.
    if ((word & kCompactBit) != 0)
        return word >> 24 == 0x80 ? OpenCompactModel(place, word, instructions) : ExidxStatus::kUnknown;

    const std::uint32_t table = Prel31(place, word);
    if (!readWord(table, word)) return ExidxStatus::kUnreadable;
    return (word & kCompactBit) != 0 ? OpenCompactModel(table, word, instructions)
                                     : OpenGenericModel(readWord, table, instructions);
}

}  // namespace

ExidxStatus StepArmFrame(ReadArmWord readWord, const ExidxTable& table, std::uint32_t counter,
                         ArmRegisters& registers) {
    std::uint32_t entry = 0;
    ExidxStatus status = FindEntry(readWord, table, counter, entry);
    if (status != ExidxStatus::kStepped) return status;
    Instructions instructions{};
    status = OpenEntry(readWord, entry, instructions);
    if (status != ExidxStatus::kStepped) return status;
    return Program(readWord, instructions, registers).Run(registers);
}

}  // namespace sysdbg
