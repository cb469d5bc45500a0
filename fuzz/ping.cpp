// What `ping` prints.
#include "probe/ping.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const char* const output = text.c_str();
    const u32 kind = tessel::PingClass(output);
    Require(kind <= TESSEL_PING_UNREACHABLE);
    Require((kind == TESSEL_PING_NO_OUTPUT) == (output[0] == '\0'));
    constexpr i32 kUser = 4711;
    TNetPingResult result{};
    result.nUserId = kUser;
    const i32 status = PingBufToMsg(output, &result);
    Require(status == 0 || status == -1);
    Require(result.nUserId == kUser && result.dwSeq == 0 && result.dwLast == 0);
    Require(result.dwTime <= 100000000 && (status == 0 || result.dwTime == 0));
    return 0;
}
