// Platform layer: the clock, the local time zone and date formatting.
#ifndef VARDO_OS_TIME_H
#define VARDO_OS_TIME_H

#include "vardo/sstring.h"

#include <cstdint>

namespace Vardo400 {
namespace os {

// Calendar fields of one instant, already shifted into the zone being shown.
struct TimeFields {
    int year;          // astronomical (0 is 1 BC)
    int month;         // 1..12
    int day;           // 1..31
    int hour;          // 0..23
    int minute;
    int second;
    int millisecond;
    int dayOfWeek;     // 1 Sunday .. 7 Saturday
    int dayOfYear;     // 1..366
};

// Milliseconds since 1970-01-01 00:00 UTC, now.
int64_t timeNowUnixMillis();

// Offset of the process's local time from UTC at the given instant (milliseconds, east
// positive, daylight saving included). 0 when the platform cannot tell.
int32_t timeLocalOffset(int64_t unixMillis);

// Formats the instant `shiftedUnixMillis` as a UTC time (the caller has already added a
// zone offset where local time is wanted) with the ICU-style pattern, in English. fields
// describe the same instant. False when the pattern cannot be formatted.
bool timeFormat(int64_t shiftedUnixMillis, const TimeFields& fields, const SWCharString& pattern,
                SWCharString& out);

} // namespace os
} // namespace Vardo400

#endif
