// The ICMP and ICMPv6 messages that traces receive. The first byte chooses the family, the next four are the probe's
// ports, the others the message.
#include "probe/icmp_answer.h"

#include <arpa/inet.h>

#include "fuzz/fuzz.h"
#include "tessel/traceroute.h"

namespace tessel::fuzz {

namespace {

// Whether the ports stand behind the header, in network byte order.
bool Holds(std::span<const u8> message, const ProbePorts& probe) {
    const u16 ports[] = {htons(probe.local), htons(probe.target)};
    return memmem(&message[8], message.size() - 8, ports, sizeof(ports)) != nullptr;
}

}  // namespace

std::vector<std::string> Seeds() {
    const auto ip = [](char protocol) { return "\x45" + std::string(8, '\0') + protocol + std::string(10, '\x44'); };
    const std::string ports = "\x80\x02\x82\x9d";
    const auto icmp = [](char type, char code) { return std::string{type, code} + std::string(6, '\0'); };
    return {'\0' + ports + ip(1) + icmp(11, 0) + ip(17) + ports + "\1\2\3\4",
            '\0' + ports + ip(1) + icmp(3, 3) + ip(17) + ports, '\1' + ports + icmp(3, 0) + ip(17),
            '\1' + ports + icmp(1, 4)};
}

void TryInput(Input input) {
    const bool isInet = input.Take<u8>() % 2 == 0;
    const u16 local = ntohs(input.Take<u16>());
    const ProbePorts probe{.local = local, .target = ntohs(input.Take<u16>())};
    const std::vector<u8> message = input.TakeRest();
    const u32 answer = isInet ? ReadIcmpAnswer(message, probe, CallSite::Current())
                              : ReadIcmpv6Answer(message, probe, CallSite::Current());
    Require(answer == kNoAnswer || answer == TESSEL_TRACE_HOP || answer == TESSEL_TRACE_REACHED ||
            answer == TESSEL_TRACE_REFUSED);
    if (answer == kNoAnswer || !isInet) return;
    Require(message.size() > 8 && Holds(message, probe));
    const ProbePorts next{.local = probe.local, .target = static_cast<u16>(probe.target + 1)};
    Require(ReadIcmpAnswer(message, next, CallSite::Current()) == kNoAnswer);
}

}  // namespace tessel::fuzz
