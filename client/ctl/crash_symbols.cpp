#include "client/ctl/crash_symbols.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>

#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

struct Function {
    std::string name;
    u64 begin;
};

// An ELF file of either class and byte order.
class SymbolFile {
  public:
    explicit SymbolFile(const std::string& path)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)),
          elf_(elf_version(EV_CURRENT) != EV_NONE && fd_.IsOpen() ? elf_begin(fd_.Get(), ELF_C_READ, nullptr) : nullptr,
               &elf_end) {}

    [[nodiscard]] bool IsElf() const {
        return elf_ != nullptr && elf_kind(elf_.get()) == ELF_K_ELF;
    }

    // The function that holds the byte at `address`, as this file counts.
    [[nodiscard]] std::optional<Function> FunctionAt(u64 address) const {
        Elf_Scn* section = nullptr;
        while ((section = elf_nextscn(elf_.get(), section)) != nullptr) {
            GElf_Shdr header;
            if (gelf_getshdr(section, &header) == nullptr) break;
            if (header.sh_type != SHT_SYMTAB && header.sh_type != SHT_DYNSYM) continue;
            auto function = FindIn(section, header, address);
            if (function) return function;
        }
        return std::nullopt;
    }

  private:
    [[nodiscard]] std::optional<Function> FindIn(Elf_Scn* section, const GElf_Shdr& header, u64 address) const {
        Elf_Data* const data = elf_getdata(section, nullptr);
        GElf_Sym symbol;
        for (int i = 0; data != nullptr && gelf_getsym(data, i, &symbol) != nullptr; ++i) {
            if (GELF_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_shndx == SHN_UNDEF) continue;
            const u64 begin = symbol.st_value & ~codeMark_;
            if (address < begin || address - begin >= symbol.st_size) continue;
            const char* const name = elf_strptr(elf_.get(), header.sh_link, symbol.st_name);
            if (name != nullptr) return Function{.name = name, .begin = begin};
        }
        return std::nullopt;
    }

    // Bit 0 of an ARM function says that its code is Thumb.
    [[nodiscard]] u64 CodeMark() const {
        GElf_Ehdr header;
        return elf_ != nullptr && gelf_getehdr(elf_.get(), &header) != nullptr && header.e_machine == EM_ARM ? 1 : 0;
    }

    UniqueFd fd_;
    std::unique_ptr<Elf, decltype(&elf_end)> elf_;
    u64 codeMark_ = CodeMark();
};

std::optional<u64> ParseHex(const std::string& text) {
    u64 value = 0;
    const char* const end = text.data() + text.size();
    if (!text.starts_with("0x")) return std::nullopt;
    const auto [parsed, error] = std::from_chars(text.data() + 2, end, value, 16);
    return error == std::errc() && parsed == end ? std::optional(value) : std::nullopt;
}

void NameFunction(const SymbolFile& file, bool isReturnAddress, CrashFrame& frame) {
    const auto address = ParseHex(frame.offset);
    if (!address) return;
    // A return address belongs to the call before it, which may be the last instruction of its function. The signal
    // trampoline alone is returned to at its first one.
    auto function = file.FunctionAt(isReturnAddress ? *address - 1 : *address);
    if (!function) function = file.FunctionAt(*address);
    if (!function) return;
    frame.function = Demangled(function->name);
    frame.offset = fmt::format("0x{:x}", *address - function->begin);
}

}  // namespace

std::vector<std::string> AddSymbols(const std::string& directory, std::vector<CrashFrame>& frames) {
    std::vector<std::string> withoutFile;
    for (CrashFrame& frame : frames) {
        if (!frame.function.empty() || frame.module.empty()) continue;
        const SymbolFile whole(fmt::format("{}/{}", directory, frame.module));
        const SymbolFile flat(fmt::format("{}/{}", directory, frame.ModuleName()));
        const SymbolFile& file = whole.IsElf() ? whole : flat;
        if (file.IsElf()) {
            NameFunction(file, &frame != &frames.front(), frame);
        } else if (std::find(withoutFile.begin(), withoutFile.end(), frame.module) == withoutFile.end()) {
            withoutFile.push_back(frame.module);
        }
    }
    return withoutFile;
}

}  // namespace tessel::ctl
