#include "sysdbg/stack.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "sysdbg/maps.h"

namespace sysdbg {

// The kernel copies the bytes into a pipe and answers EFAULT where a plain read would fault, even for a mapped file
// that has been truncated. (process_vm_readv could do this too, but a kernel can be built without it.)
bool ReadMemory(std::uintptr_t address, void* buffer, std::size_t bytes) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    // A bare system call, because the sanitizers check what write() is given.
    const bool isThere = syscall(SYS_write, ends[1], address, bytes) == static_cast<long>(bytes) &&
                         read(ends[0], buffer, bytes) == static_cast<ssize_t>(bytes);
    close(ends[0]);
    close(ends[1]);
    return isThere;
}

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
