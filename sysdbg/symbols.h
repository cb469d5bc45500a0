// From an address to the module and the function that it lies in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sysdbg {

struct FunctionSymbol {
    char name[512];          // cut; as the compiler writes it
    std::uintptr_t address;  // relative to the mapping for shared objects
};

// The function of an ELF file whose range contains `address`. `inFile` is the same address as the file counts, which
// symbols use that are not absolute. False when there is none, as in a stripped file.
bool FindFunction(const class ElfFile& file, std::uintptr_t address, std::uintptr_t inFile, FunctionSymbol& function);

struct Location {
    const char* module = "";  // path; empty where no file is mapped
    FunctionSymbol function;
    std::uintptr_t offset = 0;  // into the function; into the module when the function has no name
};

// Where `address` lies by the loaded memory map. A return address counts to the call before it, which may be the last
// instruction of its function.
void Locate(std::uintptr_t address, bool isReturnAddress, Location& location);

}  // namespace sysdbg
