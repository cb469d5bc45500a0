// Finds the module and the function that contain an address.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sysdbg {

class ElfFile;

struct FunctionSymbol {
    char name[512];          // mangled, cut to fit
    std::uintptr_t address;  // less the load bias
};

// Finds the function of an ELF file whose range contains `address`. `inFile` is the same address less the file's
// load bias, as all but absolute symbols hold it. False when there is none, as in a stripped file.
bool FindFunction(const ElfFile& file, std::uintptr_t address, std::uintptr_t inFile, FunctionSymbol& function);

struct Location {
    const char* module = "";  // path; empty where no file is mapped
    FunctionSymbol function;
    std::uintptr_t offset = 0;  // into the function; into the module when the function has no name
};

// Finds `address` in the loaded memory map. A return address belongs to the call before it, which may be the last
// instruction of its function.
void Locate(std::uintptr_t address, bool isReturnAddress, Location& location);

}  // namespace sysdbg
