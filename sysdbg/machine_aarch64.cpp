#include "sysdbg/format.h"
#include "sysdbg/frame_chain.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/memory.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

constexpr int kFramePointer = 29;
constexpr int kLinkRegister = 30;

}  // namespace

std::uintptr_t ProgramCounter(const ucontext_t& context) {
    return context.uc_mcontext.pc;
}

void WriteRegisters(const ucontext_t& context) {
    const auto& registers = context.uc_mcontext.regs;
    SysdbgReport("PC:%p, LR:%p, SP:%p, FP:%p\nX0:%p, X1:%p, X2:%p, X3:%p, X4:%p\n", AddressText(context.uc_mcontext.pc),
                 AddressText(registers[kLinkRegister]), AddressText(context.uc_mcontext.sp),
                 AddressText(registers[kFramePointer]), AddressText(registers[0]), AddressText(registers[1]),
                 AddressText(registers[2]), AddressText(registers[3]), AddressText(registers[4]));
}

const char kCounterFunction[] = "_Unwind_GetIP";

std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame) {
    return reinterpret_cast<decltype(&_Unwind_GetIP)>(counterFunction)(frame);
}

// Modules are built with frame pointers.
std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    return WalkFramePointers(context, addresses);
}

// A function that calls none keeps its return address in the link register and has no frame record. In any other the
// register may hold the address behind the last call: then the function is named twice.
std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    const auto& registers = context.uc_mcontext.regs;
    std::size_t count = 0;
    addresses[count++] = ProgramCounter(context);
    const std::uintptr_t link = registers[kLinkRegister];
    std::uintptr_t saved = 0;
    const bool isInChain = ReadMemory(registers[kFramePointer] + sizeof(saved), saved) && saved == link;
    if (!isInChain && IsCode(link)) addresses[count++] = link;
    return FollowFrameChain(registers[kFramePointer], 0, addresses, count);
}

}  // namespace sysdbg
