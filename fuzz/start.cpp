// How every target begins: in a sandbox, silent, and with seeds when it is asked for them.
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/log_control.h"
#include "fuzz/fuzz.h"
#include "tessel/ipc.h"

namespace tessel::fuzz {

UniqueFd FileOf(std::span<const u8> bytes) {
    UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    Require(write(file.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    Require(lseek(file.Get(), 0, SEEK_SET) == 0);
    return file;
}

std::string AnswerOf(Handler* handler, u32 type, const std::vector<u8>& payload, std::size_t size) {
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    const UniqueFd client(ends[0]);
    const UniqueFd server(ends[1]);
    const i32 result = handler(server.Get(), type, payload.data(), static_cast<i32>(size));
    std::array<char, sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX> answer{};
    const ssize_t count = read(client.Get(), answer.data(), answer.size());
    Require((result == 0) == (count > 0));
    return {answer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tessel::fuzz::TryInput({data, size});
    return 0;
}
