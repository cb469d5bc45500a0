#include "sysdbg/local_time.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "sysdbg/file.h"

namespace sysdbg {

namespace {

// RFC 8536, 3.1 and 3.2, version 1 of the data: the header, offsets of counts in it, and sizes of entries.
constexpr std::size_t kHeaderBytes = 44;
constexpr std::size_t kTransitionCountAt = 32;
constexpr std::size_t kTypeCountAt = 36;
constexpr std::size_t kTransitionBytes = 5;
constexpr std::size_t kTypeBytes = 6;

constexpr std::int64_t kDaySeconds = 86'400;

std::uint32_t BigEndian(const unsigned char* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

bool IsLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysOfMonth(int year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

std::int32_t UtcOffsetSeconds(const char* zoneFile) {
    const File file(zoneFile, O_RDONLY);
    unsigned char header[kHeaderBytes];
    if (!file.ReadAt(0, header, sizeof(header)) || memcmp(header, "TZif", 4) != 0) return 0;
    const std::uint64_t transitions = BigEndian(header + kTransitionCountAt);
    const std::uint64_t types = BigEndian(header + kTypeCountAt);
    if (types == 0) return 0;
    unsigned char lastType[kTypeBytes];
    const std::uint64_t lastTypeAt = kHeaderBytes + transitions * kTransitionBytes + (types - 1) * kTypeBytes;
    return file.ReadAt(lastTypeAt, lastType, sizeof(lastType)) ? static_cast<std::int32_t>(BigEndian(lastType)) : 0;
}

CalendarTime BreakDown(std::int64_t seconds) {
    seconds = std::max<std::int64_t>(seconds, 0);
    std::int64_t days = seconds / kDaySeconds;
    const int ofDay = static_cast<int>(seconds % kDaySeconds);
    int year = 1970;
    for (; days >= (IsLeapYear(year) ? 366 : 365); ++year)
        days -= IsLeapYear(year) ? 366 : 365;
    int month = 1;
    for (; days >= DaysOfMonth(year, month); ++month)
        days -= DaysOfMonth(year, month);
    return {.year = year,
            .month = month,
            .day = static_cast<int>(days) + 1,
            .hour = ofDay / 3600,
            .minute = ofDay / 60 % 60,
            .second = ofDay % 60};
}

CalendarTime LocalTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return BreakDown(std::int64_t{now.tv_sec} + UtcOffsetSeconds("/etc/localtime"));
}

}  // namespace sysdbg
