// Files through system calls only, for use in a signal handler.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace sysdbg {

// The owner of an open file. Closed on exec; opening never waits for the other end of a FIFO. With O_NOFOLLOW it opens
// only a regular file of this process's user that has no other name, and truncates nothing else.
class File {
  public:
    File() = default;
    File(const char* path, int flags, mode_t mode = 0);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] bool IsOpen() const {
        return fd_ >= 0;
    }
    [[nodiscard]] int Get() const {
        return fd_;
    }
    // Reads as many bytes as there are, up to `bytes`. Returns their number; 0 at the end and on failure.
    std::size_t Read(void* buffer, std::size_t bytes) const;
    // True when all `bytes` at `offset` could be read.
    [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) const;

  private:
    int fd_ = -1;
};

// Writes all of it, or stops at the first error.
void WriteAll(int fd, const char* text, std::size_t length);

// Opens "/proc/PROCESS/task/THREAD/NAME" of a thread of this process.
File OpenTaskFile(pid_t thread, const char* name);

// Reads the beginning of such a file, up to `bytes` with the terminator. Empty when it cannot be read.
void ReadTaskFile(pid_t thread, const char* name, char* text, std::size_t bytes);

// The program's or thread's name in the text of a "stat" file, terminated in place. Empty when there is none.
const char* NameInStat(char* stat);

}  // namespace sysdbg
