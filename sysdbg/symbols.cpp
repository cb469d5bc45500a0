#include "sysdbg/symbols.h"

#include <link.h>

#include <algorithm>

#include "sysdbg/elf_file.h"
#include "sysdbg/maps.h"

namespace sysdbg {

namespace {

// At most this much is read to find one function, so that no file can hold up the report. In a sound file symbol tables
// do not overlap: together they are never larger than the file.
constexpr std::uint64_t kMaxBytesRead = 16U << 20;
constexpr std::size_t kSymbolsAtOnce = 64;

// A symbol's type is in the low four bits in both ELF classes.
constexpr unsigned kTypeMask = 15;

#if defined(__arm__)
// Bit 0 marks a function in Thumb code.
constexpr std::uintptr_t kAddressMask = ~std::uintptr_t{1};
#else
constexpr std::uintptr_t kAddressMask = ~std::uintptr_t{0};
#endif

class FunctionSearch {
  public:
    FunctionSearch(const ElfFile& file, std::uintptr_t address, std::uintptr_t inFile)
        : file_(file), address_(address), inFile_(inFile), budget_(std::min(file.SizeBytes(), kMaxBytesRead)) {}

    bool Run(FunctionSymbol& function) {
        for (std::uint32_t i = 0; i < file_.SectionCount(); ++i) {
            ElfW(Shdr) section{};
            if (!file_.ReadSection(i, section)) return false;
            const bool isSymbolTable = section.sh_type == SHT_SYMTAB || section.sh_type == SHT_DYNSYM;
            if (isSymbolTable && SearchTable(section, function)) return true;
        }
        return false;
    }

  private:
    bool SearchTable(const ElfW(Shdr) & table, FunctionSymbol& function) {
        ElfW(Sym) symbols[kSymbolsAtOnce];
        std::uint64_t left = table.sh_size / sizeof(ElfW(Sym));
        for (std::uint64_t offset = table.sh_offset; left > 0;) {
            const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(left, kSymbolsAtOnce));
            const std::size_t bytes = count * sizeof(ElfW(Sym));
            if (bytes > budget_ || !file_.ReadAt(offset, symbols, bytes)) return false;
            budget_ -= bytes;
            const auto* found = std::find_if(symbols, symbols + count, [this](const auto& s) { return IsWanted(s); });
            if (found != symbols + count) return ReadFunction(table, *found, function);
            offset += bytes;
            left -= count;
        }
        return false;
    }

    [[nodiscard]] bool IsWanted(const ElfW(Sym) & symbol) const {
        if ((symbol.st_info & kTypeMask) != STT_FUNC || symbol.st_shndx == SHN_UNDEF) return false;
        const std::uintptr_t wanted = symbol.st_shndx == SHN_ABS ? address_ : inFile_;
        const std::uintptr_t begin = symbol.st_value & kAddressMask;
        return wanted >= begin && wanted - begin < symbol.st_size;
    }

    bool ReadFunction(const ElfW(Shdr) & table, const ElfW(Sym) & symbol, FunctionSymbol& function) const {
        ElfW(Shdr) names{};
        if (!file_.ReadSection(table.sh_link, names) || symbol.st_name >= names.sh_size) return false;
        const std::uint64_t begin = std::uint64_t{names.sh_offset} + symbol.st_name;
        // Up to the end of the names or of the file, either of which may come before the buffer is full.
        const std::uint64_t inTable = names.sh_size - symbol.st_name;
        const std::uint64_t inFile = file_.SizeBytes() > begin ? file_.SizeBytes() - begin : 0;
        const auto length =
            static_cast<std::size_t>(std::min<std::uint64_t>({inTable, inFile, sizeof(function.name) - 1}));
        if (!file_.ReadAt(begin, function.name, length)) return false;
        function.name[length] = '\0';
        function.address = symbol.st_value & kAddressMask;
        if (symbol.st_shndx == SHN_ABS) function.address -= address_ - inFile_;
        return true;
    }

    const ElfFile& file_;
    std::uintptr_t address_;
    std::uintptr_t inFile_;
    std::uint64_t budget_;
};

}  // namespace

bool FindFunction(const ElfFile& file, std::uintptr_t address, std::uintptr_t inFile, FunctionSymbol& function) {
    return FunctionSearch(file, address, inFile).Run(function);
}

void Locate(std::uintptr_t address, bool isReturnAddress, Location& location) {
    location.module = "";
    location.function.name[0] = '\0';
    location.offset = 0;
    const MapEntry* entry = FindMapEntry(address);
    if (entry == nullptr || entry->path[0] == '\0') return;
    location.module = entry->path;
    location.offset = address - entry->start;
    if (!entry->HasFile()) return;

    const ElfFile file(entry->path);
    if (!file.IsValid()) return;
    std::uintptr_t inFile = address;
    if (file.IsRelocatable() && !file.AddressOfOffset(address - entry->start + entry->offset, inFile)) return;
    location.offset = inFile;
    // No call precedes the signal trampoline's first instruction, to which the kernel has a handler return.
    const bool isFound = (isReturnAddress && FindFunction(file, address - 1, inFile - 1, location.function)) ||
                         FindFunction(file, address, inFile, location.function);
    if (isFound) {
        location.offset = inFile - location.function.address;
    } else {
        location.function.name[0] = '\0';
    }
}

}  // namespace sysdbg
