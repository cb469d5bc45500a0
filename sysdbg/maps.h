// The memory map of the crashed thread, proc(5).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace sysdbg {

struct MapEntry {
    std::uintptr_t start;
    std::uintptr_t end;  // one past the last byte
    char permissions[5];
    std::uint64_t offset;  // of `start` in the file
    char device[16];
    std::uint64_t inode;
    char path[256];  // cut; empty for anonymous memory, "[stack]" and the like for the kernel's own

    // A relative name would be looked up in the working directory, where everybody may put a file.
    [[nodiscard]] bool HasFile() const {
        return path[0] == '/';
    }
};

// Reads one line of a maps file. False when it is not one.
bool ParseMapLine(const char* line, MapEntry& entry);

// Fills this process's one table, of up to 4096 entries, for FindMapEntry. Empty when the file cannot be read.
void LoadMaps(pid_t thread);

// The loaded entry that contains `address`. Null when nothing was mapped there.
const MapEntry* FindMapEntry(std::uintptr_t address);

// True when `address` is in an executable mapping.
bool IsCode(std::uintptr_t address);

// Appends the map's text to the report.
void WriteMaps(pid_t thread);

}  // namespace sysdbg
