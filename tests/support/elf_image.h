// A small ELF file with functions to be found.
#pragma once

#include <link.h>

#include <cstdint>
#include <cstring>

namespace tessel::test {

// An ELF file of this machine's class: section 1 is its symbols, section 2 their names.
struct ElfImage {
    ElfW(Ehdr) header{};
    ElfW(Phdr) segment{};
    ElfW(Shdr) sections[3] = {{},
                              {0, SHT_SYMTAB, 0, 0, offsetof(ElfImage, symbols), sizeof(symbols), 2, 0, 0, 0},
                              {0, SHT_STRTAB, 0, 0, offsetof(ElfImage, names), sizeof(names), 0, 0, 0, 0}};
    ElfW(Sym) symbols[4]{};
    char names[32] = "\0first\0second\0fixed\0object";

    ElfImage() {
        memcpy(header.e_ident, sizeof(void*) == 4 ? ELFMAG "\1\0\1" : ELFMAG "\2\0\1", 7);  // class and version
        header.e_type = ET_DYN;
        header.e_phoff = offsetof(ElfImage, segment);
        header.e_phnum = 1;
        header.e_shoff = offsetof(ElfImage, sections);
        header.e_shnum = 3;
        segment.p_type = PT_LOAD;
        segment.p_offset = 0x100;
        segment.p_vaddr = 0x5100;
        segment.p_filesz = 0x1000;
        SetSymbol(0, 26, STT_OBJECT, 1, 0x5000);
        SetSymbol(1, 1, STT_FUNC, 1, 0x5200);
        SetSymbol(2, 7, STT_FUNC, 1, 0x5220);
        SetSymbol(3, 14, STT_FUNC, SHN_ABS, 0x700000);
    }
    void SetSymbol(int index, unsigned name, unsigned char type, unsigned section, std::uintptr_t value) {
        symbols[index].st_name = name;
        symbols[index].st_info = type;
        symbols[index].st_shndx = static_cast<unsigned short>(section);
        symbols[index].st_value = value;
        symbols[index].st_size = type == STT_OBJECT ? 0x1000 : 0x20;
    }
};

}  // namespace tessel::test
