#include "sysdbg/format.h"
#include "sysdbg/frame_chain.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/memory.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

std::uintptr_t Register(const ucontext_t& context, int index) {
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[index]);
}

}  // namespace

std::uintptr_t ProgramCounter(const ucontext_t& context) {
    return Register(context, REG_RIP);
}

void WriteRegisters(const ucontext_t& context) {
    const auto value = [&context](int index) { return AddressText(Register(context, index)); };
    SysdbgReport("RIP:%p, RSP:%p, RBP:%p\nRAX:%p, RBX:%p, RCX:%p, RDX:%p, RSI:%p, RDI:%p\n", value(REG_RIP),
                 value(REG_RSP), value(REG_RBP), value(REG_RAX), value(REG_RBX), value(REG_RCX), value(REG_RDX),
                 value(REG_RSI), value(REG_RDI));
}

const char kCounterFunction[] = "_Unwind_GetIP";

std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame) {
    return reinterpret_cast<decltype(&_Unwind_GetIP)>(counterFunction)(frame);
}

// Modules are built with frame pointers.
std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    return WalkFramePointers(context, addresses);
}

std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses) {
    std::size_t count = 0;
    addresses[count++] = ProgramCounter(context);
    // A call into nowhere has made no frame yet: its return address is on top of the stack.
    std::uintptr_t top = 0;
    if (!IsCode(ProgramCounter(context)) && ReadMemory(Register(context, REG_RSP), top) && IsCode(top))
        addresses[count++] = top;
    return FollowFrameChain(Register(context, REG_RBP), 0, addresses, count);
}

}  // namespace sysdbg
