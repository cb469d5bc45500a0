// The answer of an NTP server, and the clock that is set by it. The first four bytes are the time of its arrival.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz.h"
#include "services/clock_note.h"
#include "services/ntp_query.h"
#include "services/ntp_time.h"

namespace {

using tessel::fuzz::Require;

i64 Microseconds(const tessel::ClockTime& time) {
    return time.seconds * 1000000 + time.microseconds;
}

}  // namespace

std::vector<std::string> tessel::fuzz::Seeds() {
    // 2026, from a server of stratum 1 (RFC 4330).
    const std::string time("\xee\x00\x00\x00\x80\x00\x00\x00", 8);
    std::string reply = std::string("\x24\1\6\xec", 4) + std::string(12, '\0') + time + time + time + time;
    return {std::string("\x80\x7e\x55\x69", 4) + reply};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::int32_t arrival = 0;
    if (size < sizeof(arrival)) return 0;
    memcpy(&arrival, data, sizeof(arrival));
    tessel::NtpPacket reply{};
    memcpy(reply.data(), data + sizeof(arrival), std::min(size - sizeof(arrival), reply.size()));
    const tessel::NtpQueryResult result =
        tessel::EvaluateNtpReply(reply, {.seconds = arrival, .microseconds = 0}, tessel::CallSite::Current());
    Require(result.corrected.microseconds >= 0 && result.corrected.microseconds < 1000000);
    Require(Microseconds(result.corrected) == i64{arrival} * 1000000 + Microseconds(result.offset));
    const bool isSet = NtpcSetTime(result.corrected) == 0;
    Require(isSet == !tessel::TakeClockLines().empty());
    // 2000 to 2037, wherever on earth.
    Require(!isSet || (result.corrected.seconds > 946598400 && result.corrected.seconds < 2146003200));
    return 0;
}
