// What an ICMP or ICMPv6 message says about a trace's probe.
#pragma once

#include <span>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

// The ports of a probe, host byte order.
struct ProbePorts {
    u16 local;
    u16 target;
};

constexpr u32 kNoAnswer = 0;

// Both take any bytes. They return TESSEL_TRACE_HOP, _REACHED or _REFUSED (include/tessel/traceroute.h), or kNoAnswer.
// Log lines are in the caller's name.

// An IPv4 packet as a raw socket receives it, with its header. It answers when it quotes the probe.
[[nodiscard]] u32 ReadIcmpAnswer(std::span<const u8> packet, const ProbePorts& probe, CallSite where);

// An ICMPv6 message, without any header in front. What it quotes is ignored: any error is an answer, whoever caused it.
[[nodiscard]] u32 ReadIcmpv6Answer(std::span<const u8> message, const ProbePorts& probe, CallSite where);

}  // namespace tessel
