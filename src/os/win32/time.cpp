// Clock, local zone and date formatting on Windows. The text is built here from the
// calendar fields, field by field, after the ICU pattern syntax the library's callers use;
// month and day names come from the system's invariant (English) locale, so the result is
// the same text ICU gives in English.
#include "os/os_time.h"

#include <windows.h>

#include <cstring>
#include <string>

namespace Vardo400 {
namespace os {

namespace {

// 100 ns ticks between 1601-01-01 and 1970-01-01.
const int64_t kEpochTicks = 116444736000000000LL;

int64_t fileTimeToMillis(const FILETIME& ft)
{
    ULARGE_INTEGER u;
    u.LowPart = ft.dwLowDateTime;
    u.HighPart = ft.dwHighDateTime;
    return ((int64_t)u.QuadPart - kEpochTicks) / 10000;
}

bool millisToFileTime(int64_t ms, FILETIME& ft)
{
    // SYSTEMTIME covers 1601..30827.
    if (ms < -11644473600000LL || ms > 910692730085000LL)
        return false;
    ULARGE_INTEGER u;
    u.QuadPart = (ULONGLONG)(ms * 10000 + kEpochTicks);
    ft.dwLowDateTime = u.LowPart;
    ft.dwHighDateTime = u.HighPart;
    return true;
}

int32_t currentBiasMillis()
{
    TIME_ZONE_INFORMATION tz;
    const DWORD r = GetTimeZoneInformation(&tz);
    if (r == TIME_ZONE_ID_INVALID)
        return 0;
    LONG bias = tz.Bias;
    if (r == TIME_ZONE_ID_DAYLIGHT)
        bias += tz.DaylightBias;
    else if (r == TIME_ZONE_ID_STANDARD)
        bias += tz.StandardBias;
    return (int32_t)(-bias * 60000);
}

const char* const kMonthNames[12] = {"January", "February", "March",     "April",
                                     "May",     "June",     "July",      "August",
                                     "September", "October", "November", "December"};
const char* const kDayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};

// A month or day name from the invariant locale; the built-in English table when the
// system cannot give it. month is 1..12 or dayOfWeek 1..7 (the other 0).
void appendName(std::u16string& out, int month, int dayOfWeek, bool abbreviated)
{
    SYSTEMTIME st = {};
    // 2006-01-01 was a Sunday: January 1..7 of 2006 give the seven weekdays.
    st.wYear = 2006;
    st.wMonth = (WORD)(month ? month : 1);
    st.wDay = (WORD)(month ? 1 : dayOfWeek);
    const wchar_t* picture = month ? (abbreviated ? L"MMM" : L"MMMM")
                                   : (abbreviated ? L"ddd" : L"dddd");
    wchar_t buf[64];
    const int n = GetDateFormatW(LOCALE_INVARIANT, 0, &st, picture, buf, 64);
    if (n > 1) {
        for (int i = 0; i < n - 1; ++i)
            out.push_back((char16_t)buf[i]);
        return;
    }
    const char* name = month ? kMonthNames[month - 1] : kDayNames[dayOfWeek - 1];
    const size_t len = abbreviated ? 3 : strlen(name);
    for (size_t i = 0; i < len; ++i)
        out.push_back((char16_t)name[i]);
}

void appendNumber(std::u16string& out, int64_t v, int minDigits)
{
    if (v < 0) {
        out.push_back(u'-');
        v = -v;
    }
    char digits[24];
    int n = 0;
    do {
        digits[n++] = (char)('0' + v % 10);
        v /= 10;
    } while (v > 0 && n < 24);
    for (int i = n; i < minDigits; ++i)
        out.push_back(u'0');
    while (n > 0)
        out.push_back((char16_t)digits[--n]);
}

// One run of a pattern letter; false for letters this formatter does not know.
bool appendField(std::u16string& out, char16_t letter, int count, const TimeFields& f)
{
    // Years before 1 AD are shown as era years, as the Gregorian calendar does.
    const int eraYear = f.year > 0 ? f.year : 1 - f.year;
    switch (letter) {
    case u'G':
        out += f.year > 0 ? u"AD" : u"BC";
        return true;
    case u'y':
        if (count == 2)
            appendNumber(out, eraYear % 100, 2);
        else
            appendNumber(out, eraYear, count);
        return true;
    case u'M':
    case u'L':
        if (count <= 2)
            appendNumber(out, f.month, count);
        else if (count == 5)
            out.push_back((char16_t)kMonthNames[f.month - 1][0]);
        else
            appendName(out, f.month, 0, count == 3);
        return true;
    case u'd':
        appendNumber(out, f.day, count);
        return true;
    case u'D':
        appendNumber(out, f.dayOfYear, count);
        return true;
    case u'E':
        if (count == 5)
            out.push_back((char16_t)kDayNames[f.dayOfWeek - 1][0]);
        else
            appendName(out, 0, f.dayOfWeek, count <= 3);
        return true;
    case u'a':
        out += f.hour < 12 ? u"AM" : u"PM";
        return true;
    case u'h':
        appendNumber(out, f.hour % 12 == 0 ? 12 : f.hour % 12, count);
        return true;
    case u'H':
        appendNumber(out, f.hour, count);
        return true;
    case u'k':
        appendNumber(out, f.hour == 0 ? 24 : f.hour, count);
        return true;
    case u'K':
        appendNumber(out, f.hour % 12, count);
        return true;
    case u'm':
        appendNumber(out, f.minute, count);
        return true;
    case u's':
        appendNumber(out, f.second, count);
        return true;
    case u'S': {
        // Fractions of a second are cut, not rounded, to the number of letters.
        int v = f.millisecond;
        if (count == 1)
            v /= 100;
        else if (count == 2)
            v /= 10;
        appendNumber(out, v, count < 3 ? count : 3);
        for (int i = 3; i < count; ++i)
            out.push_back(u'0');
        return true;
    }
    default:
        return false;
    }
}

bool isPatternLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

} // namespace

int64_t timeNowUnixMillis()
{
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    return fileTimeToMillis(ft);
}

int32_t timeLocalOffset(int64_t unixMillis)
{
    FILETIME ft;
    SYSTEMTIME utc, local;
    if (!millisToFileTime(unixMillis, ft) || !FileTimeToSystemTime(&ft, &utc) ||
        !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return currentBiasMillis();
    FILETIME lft;
    if (!SystemTimeToFileTime(&local, &lft))
        return currentBiasMillis();
    return (int32_t)(fileTimeToMillis(lft) - fileTimeToMillis(ft));
}

bool timeFormat(int64_t, const TimeFields& f, const SWCharString& pattern, SWCharString& out)
{
    std::u16string text;
    const unsigned short* p = pattern.data();
    const size_t n = pattern.getLength();
    size_t i = 0;
    while (i < n) {
        const char16_t c = (char16_t)p[i];
        if (c == u'\'') {
            // '' is a quote; otherwise everything up to the next quote is literal, with
            // '' inside it standing for one quote.
            if (i + 1 < n && p[i + 1] == u'\'') {
                text.push_back(u'\'');
                i += 2;
                continue;
            }
            ++i;
            while (i < n) {
                if (p[i] == u'\'') {
                    if (i + 1 < n && p[i + 1] == u'\'') {
                        text.push_back(u'\'');
                        i += 2;
                        continue;
                    }
                    break;
                }
                text.push_back((char16_t)p[i++]);
            }
            ++i;   // the closing quote (or the end)
            continue;
        }
        if (isPatternLetter(c)) {
            size_t j = i;
            while (j < n && p[j] == c)
                ++j;
            if (!appendField(text, c, (int)(j - i), f))
                return false;
            i = j;
            continue;
        }
        text.push_back(c);
        ++i;
    }
    out.empty();
    out.concat(reinterpret_cast<const unsigned short*>(text.data()), (unsigned int)text.size());
    return true;
}

} // namespace os
} // namespace Vardo400
