#include "sysdbg/elf_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

namespace sysdbg {

namespace {

constexpr unsigned char kOwnClass = sizeof(void*) == 4 ? ELFCLASS32 : ELFCLASS64;

bool IsRegularFile(const char* path) {
    struct stat file {};
    return stat(path, &file) == 0 && S_ISREG(file.st_mode);
}

}  // namespace

ElfFile::ElfFile(const char* path) : file_(IsRegularFile(path) ? path : "", O_RDONLY) {
    struct stat file {};
    if (!file_.IsOpen() || fstat(file_.Get(), &file) != 0) return;
    sizeBytes_ = static_cast<std::uint64_t>(file.st_size);
    isValid_ = ReadAt(0, &header_, sizeof(header_)) && memcmp(header_.e_ident, ELFMAG, SELFMAG) == 0 &&
               header_.e_ident[EI_CLASS] == kOwnClass && header_.e_ident[EI_VERSION] == EV_CURRENT;
}

bool ElfFile::ReadSection(std::uint32_t index, ElfW(Shdr) & section) const {
    return index < header_.e_shnum &&
           ReadAt(header_.e_shoff + std::uint64_t{index} * sizeof(section), &section, sizeof(section));
}

template <typename IsWanted>
bool ElfFile::FindSegmentIf(IsWanted isWanted, ElfW(Phdr) & found) const {
    for (std::uint32_t i = 0; i < header_.e_phnum; ++i) {
        ElfW(Phdr) segment{};
        if (!ReadAt(header_.e_phoff + std::uint64_t{i} * sizeof(segment), &segment, sizeof(segment))) return false;
        if (!isWanted(segment)) continue;
        found = segment;
        return true;
    }
    return false;
}

bool ElfFile::FindSegment(std::uint32_t type, ElfW(Phdr) & found) const {
    return FindSegmentIf([type](const auto& segment) { return segment.p_type == type; }, found);
}

bool ElfFile::AddressOfOffset(std::uint64_t offset, std::uintptr_t& address) const {
    ElfW(Phdr) segment{};
    const auto loadsIt = [offset](const auto& candidate) {
        return candidate.p_type == PT_LOAD && offset >= candidate.p_offset &&
               offset - candidate.p_offset < candidate.p_filesz;
    };
    if (!FindSegmentIf(loadsIt, segment)) return false;
    address = static_cast<std::uintptr_t>(offset - segment.p_offset + segment.p_vaddr);
    return true;
}

}  // namespace sysdbg
