#include <link.h>

#include "sysdbg/elf_file.h"
#include "sysdbg/exidx.h"
#include "sysdbg/format.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/stack.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

// Bit 0 of a code address marks Thumb code.
constexpr std::uint32_t kThumbBit = 1;

ArmRegisters RegistersOf(const ucontext_t& context) {
    const mcontext_t& saved = context.uc_mcontext;
    const auto word = [](unsigned long value) { return static_cast<std::uint32_t>(value); };
    return {.r = {word(saved.arm_r0), word(saved.arm_r1), word(saved.arm_r2), word(saved.arm_r3), word(saved.arm_r4),
                  word(saved.arm_r5), word(saved.arm_r6), word(saved.arm_r7), word(saved.arm_r8), word(saved.arm_r9),
                  word(saved.arm_r10), word(saved.arm_fp), word(saved.arm_ip), word(saved.arm_sp), word(saved.arm_lr),
                  word(saved.arm_pc)}};
}

bool ReadWord(std::uint32_t address, std::uint32_t& word) {
    return ReadMemory(address, word);
}

// The index table of the module that is mapped at `counter`.
bool FindTable(std::uint32_t counter, ExidxTable& table) {
    const MapEntry* entry = FindMapEntry(counter);
    if (entry == nullptr || !entry->HasFile()) return false;
    const ElfFile file(entry->path);
    ElfW(Phdr) segment{};
    if (!file.IsValid() || !file.FindSegment(PT_ARM_EXIDX, segment)) return false;
    std::uintptr_t inFile = counter;
    if (file.IsRelocatable() && !file.AddressOfOffset(counter - entry->start + entry->offset, inFile)) return false;
    table = {.address = segment.p_vaddr + (counter - static_cast<std::uint32_t>(inFile)),
             .entryCount = segment.p_memsz / 8};
    return true;
}

// Steps to the caller. A first frame without a table is a call into nowhere or a leaf function: it has not saved the
// link register.
bool Step(ArmRegisters& registers, bool isFirst) {
    const ArmRegisters before = registers;
    // Where a call is the last instruction of its function, the return address is already past the function's end.
    const std::uint32_t counter = (before.r[ArmRegisters::kCounter] & ~kThumbBit) - (isFirst ? 0 : 1);
    ExidxTable table{};
    if (FindTable(counter, table)) {
        if (StepArmFrame(&ReadWord, table, counter, registers) != ExidxStatus::kStepped) return false;
    } else {
        if (!isFirst) return false;
        registers.r[ArmRegisters::kCounter] = registers.r[ArmRegisters::kLink];
    }
    const bool hasMoved = registers.r[ArmRegisters::kCounter] != before.r[ArmRegisters::kCounter] ||
                          registers.r[ArmRegisters::kStackPointer] != before.r[ArmRegisters::kStackPointer];
    return hasMoved && IsCode(registers.r[ArmRegisters::kCounter]);
}

}  // namespace

std::uintptr_t ProgramCounter(const ucontext_t& context) {
    return context.uc_mcontext.arm_pc;
}

void WriteRegisters(const ucontext_t& context) {
    const mcontext_t& saved = context.uc_mcontext;
    SysdbgReport("PC:%p, LR:%p, SP:%p, FP:%p\nR0:%p, R1:%p, R2:%p, R3:%p, R4:%p\n", AddressText(saved.arm_pc),
                 AddressText(saved.arm_lr), AddressText(saved.arm_sp), AddressText(saved.arm_fp),
                 AddressText(saved.arm_r0), AddressText(saved.arm_r1), AddressText(saved.arm_r2),
                 AddressText(saved.arm_r3), AddressText(saved.arm_r4));
}

const char kCounterFunction[] = "_Unwind_VRS_Get";

std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame) {
    std::uint32_t counter = 0;
    const auto get = reinterpret_cast<decltype(&_Unwind_VRS_Get)>(counterFunction);
    if (get(frame, _UVRSC_CORE, ArmRegisters::kCounter, _UVRSD_UINT32, &counter) != _UVRSR_OK) return 0;
    return counter & ~kThumbBit;
}

std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    ArmRegisters registers = RegistersOf(context);
    std::size_t count = 0;
    do {
        addresses[count++] = registers.r[ArmRegisters::kCounter] & ~kThumbBit;
    } while (count < addresses.size() && Step(registers, count == 1));
    return count;
}

// In ARM code the frame pointer points to the saved link register, and the caller's frame pointer lies right below it.
// Thumb code keeps no such chain.
std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    addresses[0] = ProgramCounter(context);
    return FollowFrameChain(context.uc_mcontext.arm_fp, sizeof(std::uint32_t), addresses, 1);
}

}  // namespace sysdbg
