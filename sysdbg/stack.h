// Reading the stack of a crashed thread, parts of which may be damaged or gone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sysdbg {

// Copies `bytes` (at most 4096) from `address`. False when part of them cannot be read. May run in a signal handler.
[[nodiscard]] bool ReadMemory(std::uintptr_t address, void* buffer, std::size_t bytes);

template <typename Value>
[[nodiscard]] bool ReadMemory(std::uintptr_t address, Value& value) {
    return ReadMemory(address, &value, sizeof(value));
}

// Follows the chain of frame records (frame pointer, return address) that begins `recordOffset` bytes below
// `framePointer`, and puts the return addresses after the first `count` of `addresses`. Ends at a record that cannot
// be read, does not lie above the one before it, or does not return to code. Returns the new number of addresses.
std::size_t FollowFrameChain(std::uintptr_t framePointer, std::size_t recordOffset, std::span<std::uintptr_t> addresses,
                             std::size_t count);

}  // namespace sysdbg
