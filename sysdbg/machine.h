// What differs between processors: registers, and the step from a frame to its caller. machine_arm.cpp implements it
// for 32-bit ARM, machine_64.cpp for aarch64 and x86_64.
//
// The context is the one that the kernel saved when the signal came. All of this may run in a signal handler.
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

// The name of the unwind library's function that returns a frame's program counter, and a call of that function.
extern const char kCounterFunction[];
std::uintptr_t FrameCounter(void* counterFunction, _Unwind_Context* frame);

// Both fill `addresses` with the program counter and as many of the return addresses above it as can be found, and
// return their number. They need the memory map loaded.
// With the modules' exception tables on 32-bit ARM, along the chain of frame pointers elsewhere:
std::size_t Unwind(const ucontext_t& context, std::span<std::uintptr_t> addresses);
// Along the chain of frame pointers:
std::size_t WalkFramePointers(const ucontext_t& context, std::span<std::uintptr_t> addresses);

}  // namespace sysdbg
