// The answer of an NTP server, and the clock that is set by it. The first four bytes are the time of its arrival.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log_control.h"
#include "services/clock_note.h"
#include "services/ntp_query.h"
#include "services/ntp_time.h"

namespace {

void Require(bool holds) {
    if (!holds) abort();
}

i64 Microseconds(const tessel::ClockTime& time) {
    return time.seconds * 1000000 + time.microseconds;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::int32_t arrival = 0;
    if (size < sizeof(arrival)) return 0;
    TesselDebugLevelSet(0);
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
