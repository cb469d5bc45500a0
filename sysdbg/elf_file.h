// An ELF file of this machine's class, read in bounded pieces: it may be truncated or forged.
#pragma once

#include <link.h>

#include <cstddef>
#include <cstdint>

#include "sysdbg/file.h"

namespace sysdbg {

class ElfFile {
  public:
    // Opens regular files only: reading a device may have any effect.
    explicit ElfFile(const char* path);

    // True when it could be opened and is of this machine's class and ELF version 1. Everything else is for such files
    // only.
    [[nodiscard]] bool IsValid() const {
        return isValid_;
    }
    // True when its addresses are relative to where it is mapped, as those of shared objects are.
    [[nodiscard]] bool IsRelocatable() const {
        return header_.e_type == ET_DYN;
    }
    [[nodiscard]] std::uint64_t SizeBytes() const {
        return sizeBytes_;
    }
    [[nodiscard]] std::uint32_t SectionCount() const {
        return header_.e_shnum;
    }
    // The following return false when there is no such thing in the file.
    [[nodiscard]] bool ReadSection(std::uint32_t index, ElfW(Shdr) & section) const;
    [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) const {
        return file_.ReadAt(offset, buffer, bytes);
    }
    // Finds the first segment of a type.
    [[nodiscard]] bool FindSegment(std::uint32_t type, ElfW(Phdr) & found) const;
    // The address, less the load bias, to which a segment loads the byte at `offset`.
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
