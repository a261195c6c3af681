// SDateTime and STimeSpan: points in time and the distance between them, as far as the
// library itself needs them (time stamps of log lines and file names, unique names,
// modification times, mail headers).
//
// An SDateTime is an instant held as a date, the 32-bit Julian day number of the UTC day,
// and a time, the 32-bit count of milliseconds since midnight UTC. Day numbers follow the
// Gregorian calendar from 15 October 1582 (day 2299161) on and the Julian calendar before
// it, as ICU's calendar does, so conversions to and from year, month and day agree with
// the formatted text for every date. "Local" views shift the instant by the offset of the
// process's time zone (daylight saving included) at that instant.
//
// Thread-safety: objects are plain values; distinct objects may be used in different
// threads, one object is not synchronised. The static functions are thread-safe.
#ifndef VARDO_SDATETIME_H
#define VARDO_SDATETIME_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

// A signed span of time, counted in milliseconds (64-bit). The count is what getCount()
// returns and what the library prints where a span is shown as a number.
class VARDO_API STimeSpan {
public:
    enum {
        millisecondsPerSecond = 1000,
        millisecondsPerMinute = 60 * 1000,
        millisecondsPerHour = 60 * 60 * 1000,
        millisecondsPerDay = 24 * 60 * 60 * 1000
    };

    // Zero span.
    STimeSpan() : m_nCount(0) {}
    // A span of count milliseconds.
    explicit STimeSpan(int64_t milliseconds) : m_nCount(milliseconds) {}
    // days, hours, minutes, seconds and milliseconds added up; any may be negative.
    STimeSpan(int32_t days, int32_t hours, int32_t minutes, int32_t seconds,
              int32_t milliseconds = 0);

    // The 64-bit count: milliseconds.
    int64_t getCount() const { return m_nCount; }
    // Whole units contained in the span, truncated toward zero.
    int64_t getTotalSeconds() const { return m_nCount / 1000; }
    int64_t getTotalMinutes() const { return m_nCount / millisecondsPerMinute; }
    int64_t getTotalHours() const { return m_nCount / millisecondsPerHour; }
    int64_t getTotalDays() const { return m_nCount / millisecondsPerDay; }
    // Components of the span (each carries the sign of the span): whole days, then the
    // hours (0..23), minutes, seconds and milliseconds left over.
    int64_t getDays() const { return m_nCount / millisecondsPerDay; }
    int32_t getHours() const { return (int32_t)((m_nCount / millisecondsPerHour) % 24); }
    int32_t getMinutes() const { return (int32_t)((m_nCount / millisecondsPerMinute) % 60); }
    int32_t getSeconds() const { return (int32_t)((m_nCount / 1000) % 60); }
    int32_t getMilliseconds() const { return (int32_t)(m_nCount % 1000); }

    // Arithmetic wraps modulo 2^64 instead of overflowing.
    STimeSpan operator+(const STimeSpan& o) const;
    STimeSpan operator-(const STimeSpan& o) const;
    STimeSpan operator-() const;
    STimeSpan& operator+=(const STimeSpan& o) { *this = *this + o; return *this; }
    STimeSpan& operator-=(const STimeSpan& o) { *this = *this - o; return *this; }

    bool operator==(const STimeSpan& o) const { return m_nCount == o.m_nCount; }
    bool operator!=(const STimeSpan& o) const { return m_nCount != o.m_nCount; }
    bool operator<(const STimeSpan& o) const { return m_nCount < o.m_nCount; }
    bool operator<=(const STimeSpan& o) const { return m_nCount <= o.m_nCount; }
    bool operator>(const STimeSpan& o) const { return m_nCount > o.m_nCount; }
    bool operator>=(const STimeSpan& o) const { return m_nCount >= o.m_nCount; }

private:
    int64_t m_nCount;
};

// An instant: Julian day number plus milliseconds since midnight, both UTC; or unset.
class VARDO_API SDateTime {
public:
    enum {
        // Julian day number of 1970-01-01 (the Unix epoch).
        unixEpochJulianDay = 2440588,
        // First day of the Gregorian calendar, 1582-10-15.
        gregorianCutoverJulianDay = 2299161
    };

    // Unset: isValid() is false.
    SDateTime();
    // The instant of Julian day `date` plus `time` milliseconds (UTC). A time outside
    // 0..86399999 carries into the date. The result is unset when the date leaves the
    // 32-bit range.
    SDateTime(int32_t date, int32_t time);
    // The instant of the given calendar fields: UTC fields when local is false, the
    // process's local time when it is true. Month is 1..12, day 1..31, hour 0..23,
    // minute and second 0..59, millisecond 0..999; fields out of range (month 13, day 0,
    // ...) are normalised by carrying, as a lenient calendar does. Years before 1 count
    // astronomically (0 is 1 BC). Unset when the result leaves the 32-bit day range.
    SDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
              int millisecond = 0, bool local = false);

    // The current instant (milliseconds resolution where the platform offers it).
    static SDateTime now();
    // The instant the given number of milliseconds after 1970-01-01 00:00 UTC.
    static SDateTime fromUnixMillis(int64_t milliseconds);

    bool isValid() const { return m_nTime >= 0; }
    // Sets this object back to unset.
    void invalidate() { m_nDate = 0; m_nTime = -1; }

    // Julian day number of the UTC day (0 when unset).
    int32_t getDate() const { return m_nDate; }
    // Milliseconds since midnight UTC (-1 when unset).
    int32_t getTime() const { return m_nTime; }
    // Milliseconds since 1970-01-01 00:00 UTC (0 when unset).
    int64_t toUnixMillis() const;

    // Calendar fields of the instant in UTC (local false) or in local time (local true).
    // dayOfWeek is 1 (Sunday) to 7 (Saturday). False, fields untouched, when unset.
    bool getFields(int& year, int& month, int& day, int& hour, int& minute, int& second,
                   int& millisecond, bool local = false) const;
    bool getFields(int& year, int& month, int& day, int& hour, int& minute, int& second,
                   int& millisecond, int& dayOfWeek, bool local) const;
    // Offset of local time from UTC at this instant, in milliseconds (east positive).
    // 0 when unset.
    int32_t getLocalOffset() const;

    // Text of the instant in ICU pattern syntax (y, M, d, E, a, h, H, k, K, m, s, S, D,
    // with '...' for literal text and '' for a quote) and English names, in local time
    // (local true, the default) or UTC. Linux formats through ICU, Windows through its
    // own formatter; both give the same text for these pattern letters. Empty when unset
    // or when formatting fails.
    SWCharString format(const SWCharString& pattern, bool local = true) const;

    // Unset instants compare equal to each other and before every set one.
    bool operator==(const SDateTime& o) const;
    bool operator!=(const SDateTime& o) const { return !(*this == o); }
    bool operator<(const SDateTime& o) const;
    bool operator<=(const SDateTime& o) const { return !(o < *this); }
    bool operator>(const SDateTime& o) const { return o < *this; }
    bool operator>=(const SDateTime& o) const { return !(*this < o); }

    // Distance from o to this (this - o); a zero span when either is unset.
    STimeSpan operator-(const SDateTime& o) const;
    // Shifted by a span; unset stays unset, and a result outside the 32-bit day range is
    // unset.
    SDateTime operator+(const STimeSpan& s) const;
    SDateTime operator-(const STimeSpan& s) const;
    SDateTime& operator+=(const STimeSpan& s) { *this = *this + s; return *this; }
    SDateTime& operator-=(const STimeSpan& s) { *this = *this - s; return *this; }

    // Julian day number of a calendar date (Julian calendar before the cutover date,
    // Gregorian from it); lenient like the constructor. False when outside 32 bits.
    static bool DateToJulianDay(int year, int month, int day, int32_t& julianDay);
    // Calendar date of a Julian day number, with the day of the week (1 Sunday .. 7).
    static void JulianDayToDate(int32_t julianDay, int& year, int& month, int& day,
                                int& dayOfWeek);

private:
    int32_t m_nDate;
    int32_t m_nTime;
};

} // namespace Vardo400

#endif
