// Local time for a report without the C library, whose time functions take locks and allocate.
#pragma once

#include <cstdint>

namespace sysdbg {

struct CalendarTime {
    int year;
    int month;  // 1 to 12
    int day;    // 1 to 31
    int hour;
    int minute;
    int second;
};

// Seconds east of UTC by the last local time type of a time zone file (RFC 8536). 0 when the file has none.
std::int32_t UtcOffsetSeconds(const char* zoneFile);

// Breaks down seconds since the beginning of 1970. Earlier times count as that moment.
CalendarTime BreakDown(std::int64_t seconds);

// The current time in the zone of "/etc/localtime".
CalendarTime LocalTime();

}  // namespace sysdbg
