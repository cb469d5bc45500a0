// aarch64 and x86_64: modules have no exception index tables, but are built with frame pointers.
#include "sysdbg/format.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/stack.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

// The registers of the report, in the order of its text.
#if defined(__x86_64__)
constexpr char kRegisters[] = "RIP:%p, RSP:%p, RBP:%p\nRAX:%p, RBX:%p, RCX:%p, RDX:%p, RSI:%p, RDI:%p\n";
constexpr int kReported[] = {REG_RIP, REG_RSP, REG_RBP, REG_RAX, REG_RBX, REG_RCX, REG_RDX, REG_RSI, REG_RDI};
constexpr int kFramePointer = REG_RBP;

std::uintptr_t Register(const ucontext_t& context, int index) {
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[index]);
}

// A call into nowhere has not made a frame yet: its return address is on top of the stack.
std::uintptr_t ReturnAddressOutsideChain(const ucontext_t& context) {
    std::uintptr_t top = 0;
    return !IsCode(ProgramCounter(context)) && ReadMemory(Register(context, REG_RSP), top) ? top : 0;
}
#else
constexpr int kFramePointer = 29;
constexpr int kLink = 30;
constexpr int kStackPointer = 31;
constexpr int kCounter = 32;
constexpr char kRegisters[] = "PC:%p, LR:%p, SP:%p, FP:%p\nX0:%p, X1:%p, X2:%p, X3:%p, X4:%p\n";
constexpr int kReported[] = {kCounter, kLink, kStackPointer, kFramePointer, 0, 1, 2, 3, 4};

std::uintptr_t Register(const ucontext_t& context, int index) {
    const mcontext_t& saved = context.uc_mcontext;
    if (index == kCounter) return saved.pc;
    return index == kStackPointer ? saved.sp : saved.regs[index];
}

// A function that makes no calls keeps its return address in the link register and has no frame record. In any other,
// the register may hold the address after the last call: then the function is named twice.
std::uintptr_t ReturnAddressOutsideChain(const ucontext_t& context) {
    const std::uintptr_t link = Register(context, kLink);
    std::uintptr_t saved = 0;
    const bool isInChain = ReadMemory(Register(context, kFramePointer) + sizeof(saved), saved) && saved == link;
    return isInChain ? 0 : link;
}
#endif

}  // namespace

std::uintptr_t ProgramCounter(const ucontext_t& context) {
    return Register(context, kReported[0]);
}

void WriteRegisters(const ucontext_t& context) {
    const auto value = [&context](int place) { return AddressText(Register(context, kReported[place])); };
    SysdbgReport(kRegisters, value(0), value(1), value(2), value(3), value(4), value(5), value(6), value(7), value(8));
}

const char kCounterFunction[] = "_Unwind_GetIP";

std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame) {
    return reinterpret_cast<decltype(&_Unwind_GetIP)>(counterFunction)(frame);
}

std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    return WalkFramePointers(context, addresses);
}

std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    std::size_t count = 0;
    addresses[count++] = ProgramCounter(context);
    const std::uintptr_t caller = ReturnAddressOutsideChain(context);
    if (IsCode(caller)) addresses[count++] = caller;
    return FollowFrameChain(Register(context, kFramePointer), 0, addresses, count);
}

}  // namespace sysdbg
