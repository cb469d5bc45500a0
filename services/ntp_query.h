// One question to an NTP server (RFC 4330, version 3) and what its answer says. Functions that fail log it.
#pragma once

#include <array>

#include "core/call_site.h"
#include "core/types.h"
#include "core/unique_fd.h"
#include "services/clock.h"
#include "tessel/gateway.h"

namespace tessel {

constexpr u16 kNtpPort = 123;

// Without the optional authenticator.
using NtpPacket = std::array<u8, 48>;

struct NtpQueryResult {
    ClockTime delay;      // of the round trip
    ClockTime offset;     // of the server's clock from this one
    ClockTime corrected;  // the server's time when its answer came
};

// The question, sent at `now`.
[[nodiscard]] NtpPacket NtpRequest(const ClockTime& now);

// What an answer that came at `arrival` says. Nothing of it is checked: a time of any year may come out.
[[nodiscard]] NtpQueryResult EvaluateNtpReply(const NtpPacket& reply, const ClockTime& arrival, CallSite where);

}  // namespace tessel

// A UDP socket of the family that never blocks; not open if none can be created.
[[nodiscard]] tessel::UniqueFd CreateSocket(u16 family);

// Connect a socket of the address's family, so that only this server's answers reach it. `port` is in host order. 0 or
// -1.
[[nodiscard]] i32 ConnServer(int fd, const TNetGateway& server, u16 port);
[[nodiscard]] i32 ConnServer6(int fd, const TNetGateway& server, u16 port);

// Asks. 0 or -1.
i32 SendPacket(int fd);

// Takes the answer that has arrived. 1, or 0 on failure: the result is then unchanged. RFC 5905 wants its length, mode
// and origin checked; this client has always accepted whatever the server answers. Strangers' answers are kept out by
// the connected socket, new for each question, and the kernel's choice of a port.
[[nodiscard]] i32 GetServerTime(int fd, tessel::NtpQueryResult& result);
