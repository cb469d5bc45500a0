// Heap blocks of the daemon's records.
#pragma once

#include <cstdlib>
#include <memory>

#include "core/types.h"

// Allocates `size` bytes (not zeroed) and logs `type`, the caller's mark for the block. Null when there is no memory.
// The caller frees with free().
[[nodiscard]] void* xmalloc(i32 type, u32 size);

namespace tessel {

struct HeapFree {
    void operator()(void* block) const {
        free(block);
    }
};

// Owns a block from xmalloc.
template <typename T>
using HeapPtr = std::unique_ptr<T, HeapFree>;

}  // namespace tessel
