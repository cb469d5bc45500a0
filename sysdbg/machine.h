// What one processor does differently from another: registers, and the step from a frame to its caller. One file
// implements this for each: machine_arm.cpp, machine_aarch64.cpp, machine_x86_64.cpp.
//
// The context is the one that the kernel saved when the signal came. All of it may run in a signal handler.
#pragma once

#include <ucontext.h>
#include <unwind.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace sysdbg {

std::uintptr_t ProgramCounter(const ucontext_t& context);

// Appends the registers to the report.
void WriteRegisters(const ucontext_t& context);

// Name of the unwind library's function that tells the program counter of a frame, and a call of that function.
extern const char kCounterFunction[];
std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame);

// Both fill `addresses` with the program counter and the return addresses above it, as far as can be read, and return
// their number. They need the memory map loaded.
// By the machine's own means: the exception tables of the modules where it has them, else the chain of frame pointers.
std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses);
// By the chain of frame pointers.
std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses);

}  // namespace sysdbg
