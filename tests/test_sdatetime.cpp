// SDateTime and STimeSpan: day numbers, calendar fields, arithmetic and the formatting
// patterns the library uses (the same text on Linux through ICU and on Windows).
#include <vardo/sdatetime.h>

#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace Vardo400;

using vardo_test::W;
using vardo_test::U;

namespace {

const long long kRefused = INT64_MIN;

long long julianDay(int year, int month, int day)
{
    int32_t jd = 0;
    return SDateTime::DateToJulianDay(year, month, day, jd) ? jd : kRefused;
}

// All calendar fields as one text (the day of the week last, 1 for Sunday), or "unset".
std::string fields(const SDateTime& t, bool local = false)
{
    int y, mo, d, h, mi, s, ms, dow;
    if (!t.getFields(y, mo, d, h, mi, s, ms, dow, local))
        return "unset";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%d-%02d-%02d %02d:%02d:%02d.%03d %d", y, mo, d, h, mi, s, ms, dow);
    return buf;
}

} // namespace

TEST(SDateTime, JulianDayNumbersFollowTheGregorianReform)
{
    EXPECT_EQ(julianDay(1970, 1, 1), 2440588);
    // The first Gregorian day follows the last Julian one.
    EXPECT_EQ(julianDay(1582, 10, 15), 2299161);
    EXPECT_EQ(julianDay(1582, 10, 4), 2299160);
    EXPECT_EQ(julianDay(-4712, 1, 1), 0);
    // Lenient fields carry: month 13 is next January, day 0 the last of the month before.
    EXPECT_EQ(julianDay(1999, 13, 1), julianDay(2000, 1, 1));
    EXPECT_EQ(julianDay(2000, 3, 0), julianDay(2000, 2, 29));
    // The 32-bit limits are refused, not wrapped.
    EXPECT_EQ(julianDay(6000000, 1, 1), kRefused);

    int y, m, d, dow;
    SDateTime::JulianDayToDate(2440588, y, m, d, dow);
    EXPECT_EQ(5, dow);   // Thursday
    // Every day number maps to a date that maps back to it, in both calendars and below 0.
    for (int32_t j = -800000; j < 6000000; j += 997) {
        SDateTime::JulianDayToDate(j, y, m, d, dow);
        ASSERT_EQ(julianDay(y, m, d), j) << y << "-" << m << "-" << d;
        ASSERT_TRUE(m >= 1 && m <= 12 && d >= 1 && d <= 31) << y << "-" << m << "-" << d;
    }
}

TEST(SDateTime, FieldsMillisecondsAndTheUnsetState)
{
    SDateTime unset;
    EXPECT_FALSE(unset.isValid());
    EXPECT_TRUE(unset.format(W("yyyy")).isEmpty());
    EXPECT_EQ(fields(unset), "unset");

    const SDateTime t(2009, 2, 13, 23, 31, 30, 987);
    EXPECT_EQ(t, SDateTime(2454876, ((23 * 60 + 31) * 60 + 30) * 1000 + 987));
    EXPECT_EQ(1234567890987LL, t.toUnixMillis());
    EXPECT_EQ(t, SDateTime::fromUnixMillis(1234567890987LL));
    EXPECT_EQ(fields(t), "2009-02-13 23:31:30.987 6");
    // Before 1970: the time of day stays 0..86399999.
    EXPECT_EQ(fields(SDateTime::fromUnixMillis(-1)), "1969-12-31 23:59:59.999 4");
    // A time beyond one day carries into the date.
    EXPECT_EQ(SDateTime(2440589, 0), SDateTime(2440588, 86400000));
    EXPECT_EQ(SDateTime(2440587, 86399999), SDateTime(2440588, -1));

    // Local fields are the UTC fields of the shifted instant, and build the instant back.
    const std::string local = fields(t, true);
    EXPECT_EQ(local, fields(SDateTime::fromUnixMillis(t.toUnixMillis() + t.getLocalOffset())));
    int y, mo, d, h, mi, s, ms;
    ASSERT_TRUE(t.getFields(y, mo, d, h, mi, s, ms, true));
    EXPECT_EQ(t, SDateTime(y, mo, d, h, mi, s, ms, true));

    // now() is the system clock.
    const int64_t sys = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_LT(std::llabs(SDateTime::now().toUnixMillis() - sys), 600000LL);
}

TEST(SDateTime, SpansAndArithmetic)
{
    const STimeSpan span(1, 2, 3, 4, 5);
    EXPECT_EQ(((26 * 60 + 3) * 60 + 4) * 1000LL + 5, span.getCount());
    EXPECT_EQ((std::vector<int64_t>{1, 2, 3, 4, 5, 26}),
              (std::vector<int64_t>{span.getDays(), span.getHours(), span.getMinutes(), span.getSeconds(),
                                    span.getMilliseconds(), span.getTotalHours()}));
    EXPECT_EQ(-2, (-span).getHours());
    EXPECT_EQ(STimeSpan(10), STimeSpan(4) + STimeSpan(6));
    EXPECT_LT(STimeSpan(-1), STimeSpan());

    const SDateTime a(1997, 1, 1);
    const SDateTime b(2009, 2, 13, 23, 31, 30, 987);
    const STimeSpan d = b - a;
    EXPECT_EQ(b.toUnixMillis() - a.toUnixMillis(), d.getCount());
    EXPECT_EQ(b, a + d);
    EXPECT_EQ(a, b - d);
    SDateTime c = a;
    c += STimeSpan(0, 0, 0, 0, -1);
    EXPECT_EQ(SDateTime(1996, 12, 31, 23, 59, 59, 999), c);

    // Unset stays unset and measures nothing; results beyond 32-bit days are unset.
    const SDateTime unset;
    EXPECT_FALSE((unset + d).isValid());
    EXPECT_EQ(0, (unset - a).getCount());
    EXPECT_LT(unset, a);
    EXPECT_FALSE((b + STimeSpan(INT64_MAX)).isValid());
    EXPECT_FALSE((b - STimeSpan(INT64_MIN)).isValid());
    EXPECT_FALSE(SDateTime(INT32_MAX, 86400000).isValid());
}

TEST(SDateTime, TheLibrarysPatternsFormatAlikeEverywhere)
{
    const SDateTime t(2009, 2, 13, 23, 31, 30, 987);
    EXPECT_EQ("20090213_233130", U(t.format(W("yyyyMMdd_HHmmss"), false)));
    EXPECT_EQ("2009-02-13@23:31:30.98", U(t.format(W("yyyy-MM-dd@HH:mm:ss.SS"), false)));
    EXPECT_EQ("13 Feb 2009 23:31:30", U(t.format(W("dd MMM yyyy HH':'mm':'ss"), false)));
    EXPECT_EQ("2/13/09   23:31:30    ", U(t.format(W("M'/'d'/'yy'   'H':'mm':'ss'    '"), false)));

    // Single-digit fields: padded where the letter is doubled; SS truncates.
    const SDateTime u(2001, 3, 4, 5, 6, 7, 5);
    EXPECT_EQ("20010304_050607.00", U(u.format(W("yyyyMMdd_HHmmss.SS"), false)));
    EXPECT_EQ("3/4/01   5:06:07    ", U(u.format(W("M'/'d'/'yy'   'H':'mm':'ss'    '"), false)));

    // Further letters, names and quoting.
    EXPECT_EQ("Fri, 13 February 2009 11:31 PM 987 044", U(t.format(W("EEE, d MMMM yyyy hh:mm a SSS DDD"), false)));
    EXPECT_EQ("Sunday 12 o'clock", U(SDateTime(2009, 2, 15, 0, 0).format(W("EEEE h 'o''clock'"), false)));
    EXPECT_EQ("Sep 0999", U(SDateTime(999, 9, 1).format(W("MMM yyyy"), false)));
    // Before the reform the Julian calendar counts the days.
    EXPECT_EQ("1582-10-04", U(SDateTime(2299160, 0).format(W("yyyy-MM-dd"), false)));
    EXPECT_EQ("1582-10-15", U(SDateTime(2299161, 0).format(W("yyyy-MM-dd"), false)));

    // Local formatting is UTC formatting of the shifted instant.
    const SDateTime shifted = SDateTime::fromUnixMillis(t.toUnixMillis() + t.getLocalOffset());
    EXPECT_EQ(shifted.format(W("yyyy-MM-dd@HH:mm:ss.SS"), false), t.format(W("yyyy-MM-dd@HH:mm:ss.SS")));
}
