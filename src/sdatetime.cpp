// SDateTime and STimeSpan: day-number arithmetic and calendar conversion. The clock, the
// time zone and the text formatting come from the platform layer (os/os_time.h).
#include "vardo/sdatetime.h"

#include "os/os_time.h"

namespace Vardo400 {

namespace {

const int64_t kMsPerDay = 86400000;

int64_t floorDiv(int64_t a, int64_t b)
{
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

int64_t floorMod(int64_t a, int64_t b)
{
    return a - floorDiv(a, b) * b;
}

// Days since 1970-01-01 of a proleptic Gregorian date (month 1..12, day 1 based, any
// day count carried).
int64_t gregorianDays(int64_t y, int64_t m, int64_t d)
{
    y -= m <= 2;
    const int64_t era = floorDiv(y, 400);
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// The same for the Julian calendar; calibrated so that Julian 1582-10-05 is Gregorian
// 1582-10-15 and Julian -4712-01-01 is Julian day 0.
int64_t julianDays(int64_t y, int64_t m, int64_t d)
{
    y -= m <= 2;
    const int64_t era = floorDiv(y, 4);
    const int64_t yoe = y - era * 4;
    const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    return era * 1461 + yoe * 365 + doy - 719470;
}

void gregorianFromDays(int64_t z, int64_t& y, int& m, int& d)
{
    z += 719468;
    const int64_t era = floorDiv(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = (int)(doy - (153 * mp + 2) / 5 + 1);
    m = (int)(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2);
}

void julianFromDays(int64_t z, int64_t& y, int& m, int& d)
{
    z += 719470;
    const int64_t era = floorDiv(z, 1461);
    const int64_t doe = z - era * 1461;
    const int64_t yoe = (doe - doe / 1460) / 365;
    const int64_t doy = doe - 365 * yoe;
    const int64_t mp = (5 * doy + 2) / 153;
    d = (int)(doy - (153 * mp + 2) / 5 + 1);
    m = (int)(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 4 + (m <= 2);
}

const int64_t kEpochJulianDay = SDateTime::unixEpochJulianDay;
const int64_t kCutoverDays = SDateTime::gregorianCutoverJulianDay - kEpochJulianDay;

// Days since 1970-01-01 of a (possibly denormal) calendar date in the calendar that was
// in force on it.
int64_t civilToDays(int64_t year, int64_t month, int64_t day)
{
    year += floorDiv(month - 1, 12);
    month = floorMod(month - 1, 12) + 1;
    const int64_t greg = gregorianDays(year, month, 1) + (day - 1);
    if (greg >= kCutoverDays)
        return greg;
    return julianDays(year, month, 1) + (day - 1);
}

void daysToCivil(int64_t days, int64_t& year, int& month, int& day)
{
    if (days >= kCutoverDays)
        gregorianFromDays(days, year, month, day);
    else
        julianFromDays(days, year, month, day);
}

// Milliseconds since the epoch as a day number and time; false outside 32 bits.
bool splitMillis(int64_t ms, int32_t& date, int32_t& time)
{
    const int64_t days = floorDiv(ms, kMsPerDay);
    const int64_t jd = days + kEpochJulianDay;
    if (jd < INT32_MIN || jd > INT32_MAX)
        return false;
    date = (int32_t)jd;
    time = (int32_t)(ms - days * kMsPerDay);
    return true;
}

// Milliseconds of the largest representable instants; sums beyond them are unset.
const int64_t kMaxMillis = ((int64_t)INT32_MAX - kEpochJulianDay + 1) * kMsPerDay - 1;
const int64_t kMinMillis = ((int64_t)INT32_MIN - kEpochJulianDay) * kMsPerDay;

bool fieldsOf(int64_t ms, os::TimeFields& f)
{
    int32_t date = 0, time = 0;
    if (!splitMillis(ms, date, time))
        return false;
    int64_t year = 0;
    daysToCivil((int64_t)date - kEpochJulianDay, year, f.month, f.day);
    f.year = (int)year;
    f.hour = time / 3600000;
    f.minute = (time / 60000) % 60;
    f.second = (time / 1000) % 60;
    f.millisecond = time % 1000;
    f.dayOfWeek = (int)floorMod((int64_t)date + 1, 7) + 1;
    f.dayOfYear = (int)((int64_t)date - kEpochJulianDay - civilToDays(year, 1, 1)) + 1;
    return true;
}

} // namespace

// ---- STimeSpan ------------------------------------------------------------------------

STimeSpan::STimeSpan(int32_t days, int32_t hours, int32_t minutes, int32_t seconds,
                     int32_t milliseconds)
    : m_nCount((int64_t)days * millisecondsPerDay + (int64_t)hours * millisecondsPerHour +
               (int64_t)minutes * millisecondsPerMinute + (int64_t)seconds * 1000 + milliseconds)
{
}

STimeSpan STimeSpan::operator+(const STimeSpan& o) const
{
    return STimeSpan((int64_t)((uint64_t)m_nCount + (uint64_t)o.m_nCount));
}

STimeSpan STimeSpan::operator-(const STimeSpan& o) const
{
    return STimeSpan((int64_t)((uint64_t)m_nCount - (uint64_t)o.m_nCount));
}

STimeSpan STimeSpan::operator-() const
{
    return STimeSpan((int64_t)(0 - (uint64_t)m_nCount));
}

// ---- SDateTime ------------------------------------------------------------------------

SDateTime::SDateTime() : m_nDate(0), m_nTime(-1) {}

SDateTime::SDateTime(int32_t date, int32_t time) : m_nDate(0), m_nTime(-1)
{
    const int64_t ms = ((int64_t)date - kEpochJulianDay) * kMsPerDay + time;
    if (!splitMillis(ms, m_nDate, m_nTime))
        invalidate();
}

SDateTime::SDateTime(int year, int month, int day, int hour, int minute, int second,
                     int millisecond, bool local)
    : m_nDate(0), m_nTime(-1)
{
    const int64_t days = civilToDays(year, month, day);
    if (days + kEpochJulianDay < INT32_MIN || days + kEpochJulianDay > INT32_MAX)
        return;
    int64_t ms = days * kMsPerDay + (int64_t)hour * 3600000 + (int64_t)minute * 60000 +
                 (int64_t)second * 1000 + millisecond;
    if (local) {
        // The offset depends on the instant we are looking for: settle it in two steps,
        // which also picks a consistent answer inside a daylight-saving change.
        int64_t guess = ms - os::timeLocalOffset(ms);
        guess = ms - os::timeLocalOffset(guess);
        ms = guess;
    }
    if (!splitMillis(ms, m_nDate, m_nTime))
        invalidate();
}

SDateTime SDateTime::now()
{
    return fromUnixMillis(os::timeNowUnixMillis());
}

SDateTime SDateTime::fromUnixMillis(int64_t milliseconds)
{
    SDateTime t;
    if (!splitMillis(milliseconds, t.m_nDate, t.m_nTime))
        t.invalidate();
    return t;
}

int64_t SDateTime::toUnixMillis() const
{
    if (!isValid())
        return 0;
    return ((int64_t)m_nDate - kEpochJulianDay) * kMsPerDay + m_nTime;
}

int32_t SDateTime::getLocalOffset() const
{
    return isValid() ? os::timeLocalOffset(toUnixMillis()) : 0;
}

bool SDateTime::getFields(int& year, int& month, int& day, int& hour, int& minute,
                          int& second, int& millisecond, bool local) const
{
    int dow = 0;
    return getFields(year, month, day, hour, minute, second, millisecond, dow, local);
}

bool SDateTime::getFields(int& year, int& month, int& day, int& hour, int& minute,
                          int& second, int& millisecond, int& dayOfWeek, bool local) const
{
    if (!isValid())
        return false;
    int64_t ms = toUnixMillis();
    if (local)
        ms += os::timeLocalOffset(ms);
    os::TimeFields f;
    if (!fieldsOf(ms, f))
        return false;
    year = f.year;
    month = f.month;
    day = f.day;
    hour = f.hour;
    minute = f.minute;
    second = f.second;
    millisecond = f.millisecond;
    dayOfWeek = f.dayOfWeek;
    return true;
}

SWCharString SDateTime::format(const SWCharString& pattern, bool local) const
{
    SWCharString out;
    if (!isValid())
        return out;
    int64_t ms = toUnixMillis();
    if (local)
        ms += os::timeLocalOffset(ms);
    os::TimeFields f;
    if (!fieldsOf(ms, f))
        return out;
    if (!os::timeFormat(ms, f, pattern, out))
        out.empty();
    return out;
}

bool SDateTime::operator==(const SDateTime& o) const
{
    if (!isValid() || !o.isValid())
        return isValid() == o.isValid();
    return m_nDate == o.m_nDate && m_nTime == o.m_nTime;
}

bool SDateTime::operator<(const SDateTime& o) const
{
    if (!isValid() || !o.isValid())
        return !isValid() && o.isValid();
    return m_nDate < o.m_nDate || (m_nDate == o.m_nDate && m_nTime < o.m_nTime);
}

STimeSpan SDateTime::operator-(const SDateTime& o) const
{
    if (!isValid() || !o.isValid())
        return STimeSpan();
    return STimeSpan(((int64_t)m_nDate - o.m_nDate) * kMsPerDay + ((int64_t)m_nTime - o.m_nTime));
}

SDateTime SDateTime::operator+(const STimeSpan& s) const
{
    if (!isValid())
        return SDateTime();
    const int64_t ms = toUnixMillis();
    const int64_t add = s.getCount();
    if ((add > 0 && ms > kMaxMillis - add) || (add < 0 && ms < kMinMillis - add))
        return SDateTime();
    return fromUnixMillis(ms + add);
}

SDateTime SDateTime::operator-(const STimeSpan& s) const
{
    if (s.getCount() == INT64_MIN)
        return SDateTime();
    return *this + STimeSpan(-s.getCount());
}

bool SDateTime::DateToJulianDay(int year, int month, int day, int32_t& julianDay)
{
    const int64_t jd = civilToDays(year, month, day) + kEpochJulianDay;
    if (jd < INT32_MIN || jd > INT32_MAX)
        return false;
    julianDay = (int32_t)jd;
    return true;
}

void SDateTime::JulianDayToDate(int32_t julianDay, int& year, int& month, int& day,
                                int& dayOfWeek)
{
    int64_t y = 0;
    daysToCivil((int64_t)julianDay - kEpochJulianDay, y, month, day);
    year = (int)y;
    dayOfWeek = (int)floorMod((int64_t)julianDay + 1, 7) + 1;
}

} // namespace Vardo400
