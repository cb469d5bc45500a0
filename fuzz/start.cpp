// How every target begins: in a sandbox, silent, and with seeds when it is asked for them.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "core/log_control.h"
#include "fuzz/fuzz.h"

namespace tessel::fuzz {

UniqueFd FileOf(std::span<const u8> bytes) {
    UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    Require(write(file.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    Require(lseek(file.Get(), 0, SEEK_SET) == 0);
    return file;
}

namespace {

void WriteSeeds(const std::string& directory) {
    int number = 0;
    for (const std::string& seed : Seeds()) {
        std::FILE* const file = fopen((directory + "/seed-" + std::to_string(number++)).c_str(), "we");
        Require(file != nullptr && fwrite(seed.data(), 1, seed.size(), file) == seed.size() && fclose(file) == 0);
    }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
    if (*count == 3 && strcmp((*words)[1], "--seeds") == 0) {
        tessel::fuzz::WriteSeeds((*words)[2]);
        exit(EXIT_SUCCESS);
    }
    if (getenv("TESSEL_SANDBOX") == nullptr) {
        fputs("run this by scripts/fuzz: it may change the network and files of its machine\n", stderr);
        exit(EXIT_FAILURE);
    }
    TesselDebugLevelSet(0);
    return 0;
}
