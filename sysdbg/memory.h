// Reading memory of this process that may not be there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sysdbg {

// Copies `bytes` (at most 4096) from `address`. False when part of them cannot be read. May run in a signal handler.
[[nodiscard]] bool ReadMemory(std::uintptr_t address, void* buffer, std::size_t bytes);

template <typename Value>
[[nodiscard]] bool ReadMemory(std::uintptr_t address, Value& value) {
    return ReadMemory(address, &value, sizeof(value));
}

}  // namespace sysdbg
