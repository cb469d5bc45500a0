// The answer of an NTP server, and the clock that is set by it. The first four bytes are the time of its arrival.
#include "fuzz/fuzz.h"
#include "services/clock_note.h"
#include "services/ntp_query.h"
#include "services/ntp_time.h"

namespace tessel::fuzz {

namespace {

i64 Microseconds(const ClockTime& time) {
    return time.seconds * 1000000 + time.microseconds;
}

}  // namespace

std::vector<std::string> Seeds() {
    // 2026, from a server of stratum 1 (RFC 4330).
    const std::string time = "\xee\x00\x00\x00\x80\x00\x00\x00"s;
    return {"\x80\x7e\x55\x69\x24\1\6\xec" + std::string(12, '\0') + time + time + time + time};
}

void TryInput(Input input) {
    const auto arrival = input.Take<i32>();
    const auto reply = input.Take<NtpPacket>();
    const NtpQueryResult result = EvaluateNtpReply(reply, {.seconds = arrival, .microseconds = 0}, CallSite::Current());
    Require(result.corrected.microseconds >= 0 && result.corrected.microseconds < 1000000);
    Require(Microseconds(result.corrected) == i64{arrival} * 1000000 + Microseconds(result.offset));
    const bool isSet = NtpcSetTime(result.corrected) == 0;
    Require(isSet == !TakeClockLines().empty());
    // 2000 to 2037, wherever on earth.
    Require(!isSet || (result.corrected.seconds > 946598400 && result.corrected.seconds < 2146003200));
}

}  // namespace tessel::fuzz
