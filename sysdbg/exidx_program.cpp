// EHABI 10.3, "Frame unwinding instructions": one function for each prefix, its bit pattern above it.
#include "sysdbg/exidx_program.h"

namespace sysdbg {

namespace {

class Program {
  public:
    Program(ReadArmWord readWord, const ExidxBytes& bytes, const ArmRegisters& registers)
        : readWord_(readWord), bytes_(bytes), registers_(registers), vsp_(registers.r[ArmRegisters::kStackPointer]) {}

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
        return bytes_.left > 0 || bytes_.wordsLeft > 0;
    }

    std::uint8_t NextByte() {
        if (bytes_.left == 0) {
            if (bytes_.wordsLeft == 0) {
                Fail(ExidxStatus::kIncomplete);
                return kFinish;
            }
            if (!readWord_(bytes_.nextPlace, bytes_.word)) Fail(ExidxStatus::kUnreadable);
            bytes_.nextPlace += 4;
            --bytes_.wordsLeft;
            bytes_.left = 4;
        }
        --bytes_.left;
        return static_cast<std::uint8_t>(bytes_.word >> (8 * bytes_.left));
    }

    void Fail(ExidxStatus status) {
        if (status_ == ExidxStatus::kStepped) status_ = status;
    }

    // Pops the registers whose bits are set, bit 0 being register `first`. The lowest lies at the lowest address; a
    // popped stack pointer counts when all are popped.
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

    // Floating-point and coprocessor registers do not lead to any caller: what they take on the stack is passed over.
    void SkipRegisters(std::uint32_t count, std::uint32_t registerBytes, std::uint32_t extraBytes = 0) {
        vsp_ += count * registerBytes + extraBytes;
    }
    // The operand sssscccc: first register, number less one
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
                return SkipRegisters(1, 4);  // return address authentication code
            case 0b1011'0101:
                return;  // current vsp is that code's modifier
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
        switch (instruction >> 4) {
            case 0b0000 ... 0b0111:
                return MoveStackPointer(instruction);
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
    ExidxBytes bytes_;
    ArmRegisters registers_;
    std::uint32_t vsp_;  // the stack pointer of the frame that is being rebuilt
    bool hasCounter_ = false;
    ExidxStatus status_ = ExidxStatus::kStepped;
};

}  // namespace

ExidxStatus RunExidxProgram(ReadArmWord readWord, const ExidxBytes& bytes, ArmRegisters& registers) {
    return Program(readWord, bytes, registers).Run(registers);
}

}  // namespace sysdbg
