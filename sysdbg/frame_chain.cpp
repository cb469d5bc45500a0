#include "sysdbg/frame_chain.h"

#include "sysdbg/maps.h"
#include "sysdbg/memory.h"

namespace sysdbg {

std::size_t FollowFrameChain(std::uintptr_t framePointer, std::size_t recordOffset, std::span<std::uintptr_t> addresses,
                             std::size_t count) {
    struct Record {
        std::uintptr_t framePointer;
        std::uintptr_t returnAddress;
    } record{};
    while (count < addresses.size()) {
        if (!ReadMemory(framePointer - recordOffset, record) || !IsCode(record.returnAddress)) break;
        addresses[count++] = record.returnAddress;
        if (record.framePointer <= framePointer) break;
        framePointer = record.framePointer;
    }
    return count;
}

}  // namespace sysdbg
