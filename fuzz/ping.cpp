// What `ping` prints.
#include "probe/ping.h"

#include "fuzz/fuzz.h"

namespace tessel::fuzz {

std::vector<std::string> Seeds() {
    return {"PING 10.0.0.1 56(84) bytes of data.\n64 bytes from 10.0.0.1: icmp_seq=1 ttl=64 time=0.029 ms\n",
            "From 10.0.0.2 icmp_seq=1 Destination Host Unreachable\n", "ping: Network is unreachable",
            "1 packets transmitted, 0 received, 100% packet loss"};
}

void TryInput(Input input) {
    const std::string text = input.TakeText();
    const char* const output = text.c_str();
    const u32 kind = PingClass(output);
    Require(kind <= TESSEL_PING_UNREACHABLE);
    Require((kind == TESSEL_PING_NO_OUTPUT) == (output[0] == '\0'));
    constexpr i32 kUser = 4711;
    TNetPingResult result{};
    result.nUserId = kUser;
    const i32 status = PingBufToMsg(output, &result);
    Require(status == 0 || status == -1);
    Require(result.nUserId == kUser && result.dwSeq == 0 && result.dwLast == 0);
    Require(result.dwTime <= 100000000 && (status == 0 || result.dwTime == 0));
}

}  // namespace tessel::fuzz
