// An ELF file of this machine's class, read in bounded pieces: it may be truncated or made to deceive.
#pragma once

#include <link.h>

#include <cstddef>
#include <cstdint>

#include "sysdbg/file.h"

namespace sysdbg {

class ElfFile {
  public:
    // Opens regular files only: reading a device could do anything.
    explicit ElfFile(const char* path);

    // A file that could be opened, of this machine's class and of ELF version 1. Nothing else is asked of any other.
    [[nodiscard]] bool IsValid() const {
        return isValid_;
    }
    // True when its addresses count from the place it is mapped to, as those of shared objects do.
    [[nodiscard]] bool IsRelocatable() const {
        return header_.e_type == ET_DYN;
    }
    [[nodiscard]] std::uint64_t SizeBytes() const {
        return sizeBytes_;
    }
    [[nodiscard]] std::uint32_t SectionCount() const {
        return header_.e_shnum;
    }
    // These are false when there is no such thing.
    [[nodiscard]] bool ReadSection(std::uint32_t index, ElfW(Shdr) & section) const;
    [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) const {
        return file_.ReadAt(offset, buffer, bytes);
    }
    // The first segment of a type.
    [[nodiscard]] bool FindSegment(std::uint32_t type, ElfW(Phdr) & found) const;
    // The address, as this file counts, of the byte at `offset`, by the segment that loads it.
    [[nodiscard]] bool AddressOfOffset(std::uint64_t offset, std::uintptr_t& address) const;

  private:
    template <typename IsWanted>
    bool FindSegmentIf(IsWanted isWanted, ElfW(Phdr) & found) const;

    File file_;
    std::uint64_t sizeBytes_ = 0;
    ElfW(Ehdr) header_{};
    bool isValid_ = false;
};

}  // namespace sysdbg
