// Composing text in a signal handler, where printf may allocate or wait for a lock.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace sysdbg {

// Formats into buffer[bytes], cut to fit and always terminated; `bytes` is at least 1. Returns the length written.
// Supports %s %d %u %x %p and %%, a width with or without leading 0, and the lengths l and z.
[[gnu::format(printf, 3, 4)]] std::size_t FormatText(char* buffer, std::size_t bytes, const char* format, ...);
std::size_t FormatTextV(char* buffer, std::size_t bytes, const char* format, va_list arguments);

// An address for %p, which wants a pointer.
inline void* AddressText(std::uintptr_t address) {
    return reinterpret_cast<void*>(address);  // NOLINT(performance-no-int-to-ptr): never followed
}

}  // namespace sysdbg
