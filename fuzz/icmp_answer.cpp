// The ICMP and ICMPv6 messages that traces receive. The first byte chooses the family, the next four are the probe's
// ports, the others the message.
#include "probe/icmp_answer.h"

#include <cstdint>
#include <cstdlib>
#include <span>

#include "fuzz/fuzz.h"
#include "tessel/traceroute.h"

namespace {

using tessel::CallSite;
using tessel::fuzz::Require;

u16 PortAt(const std::uint8_t* bytes) {
    return static_cast<u16>(bytes[0] << 8 | bytes[1]);
}

bool Holds(std::span<const u8> message, u16 local, u16 target) {
    for (std::size_t at = 8; at + 4 <= message.size(); ++at) {
        if (PortAt(&message[at]) == local && PortAt(&message[at + 2]) == target) return true;
    }
    return false;
}

}  // namespace

std::vector<std::string> tessel::fuzz::Seeds() {
    const auto ip = [](char protocol) { return "\x45" + std::string(8, '\0') + protocol + std::string(10, '\x44'); };
    const std::string ports("\x80\x02\x82\x9d", 4);
    const auto icmp = [](char type, char code) { return std::string{type, code} + std::string(6, '\0'); };
    return {'\0' + ports + ip(1) + icmp(11, 0) + ip(17) + ports + "\1\2\3\4",
            '\0' + ports + ip(1) + icmp(3, 3) + ip(17) + ports, '\1' + ports + icmp(3, 0) + ip(17),
            '\1' + ports + icmp(1, 4)};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kFrontBytes = 5;
    if (size < kFrontBytes) return 0;
    const tessel::ProbePorts probe{.local = PortAt(data + 1), .target = PortAt(data + 3)};
    const std::span<const u8> message(data + kFrontBytes, size - kFrontBytes);
    const bool isInet = data[0] % 2 == 0;
    const u32 answer = isInet ? ReadIcmpAnswer(message, probe, CallSite::Current())
                              : ReadIcmpv6Answer(message, probe, CallSite::Current());
    Require(answer == tessel::kNoAnswer || answer == TESSEL_TRACE_HOP || answer == TESSEL_TRACE_REACHED ||
            answer == TESSEL_TRACE_REFUSED);
    if (answer == tessel::kNoAnswer || !isInet) return 0;
    Require(Holds(message, probe.local, probe.target));
    const tessel::ProbePorts next{.local = probe.local, .target = static_cast<u16>(probe.target + 1)};
    Require(ReadIcmpAnswer(message, next, CallSite::Current()) == tessel::kNoAnswer);
    return 0;
}
