// The chain of saved frame pointers, each with the return address above it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sysdbg {

// Appends to the `count` addresses that are there the return addresses of the chain that begins with the frame record
// (frame pointer, return address) `recordOffset` bytes below `framePointer`. Ends where a record cannot be read, does
// not lie above the one before it, or returns to what is no code. Returns the new number of addresses.
std::size_t FollowFrameChain(std::uintptr_t framePointer, std::size_t recordOffset, std::span<std::uintptr_t> addresses,
                             std::size_t count);

}  // namespace sysdbg
