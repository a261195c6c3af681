// Clock, local zone and date formatting on Linux: clock_gettime, localtime_r and ICU.
#include "os/os_time.h"

#include <time.h>

#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <string>
#include <vector>

namespace Vardo400 {
namespace os {

int64_t timeNowUnixMillis()
{
    struct timespec ts;
    if (clock_gettime(CLOCK_REALTIME, &ts) != 0)
        return (int64_t)time(nullptr) * 1000;
    return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

int32_t timeLocalOffset(int64_t unixMillis)
{
    // Floor to whole seconds so instants before 1970 land in the right second.
    int64_t secs = unixMillis / 1000;
    if (unixMillis % 1000 < 0)
        --secs;
    const time_t t = (time_t)secs;
    struct tm tmv;
    if (localtime_r(&t, &tmv) == nullptr)
        return 0;
    return (int32_t)(tmv.tm_gmtoff * 1000);
}

namespace {

// One formatter per thread for the pattern used last: opening an ICU formatter costs far
// more than using it, and the library formats the same few patterns over and over.
struct FormatterCache {
    std::u16string m_pattern;
    UDateFormat* m_pFormat = nullptr;
    ~FormatterCache()
    {
        if (m_pFormat)
            udat_close(m_pFormat);
    }
    UDateFormat* get(const SWCharString& pattern)
    {
        const char16_t* p = reinterpret_cast<const char16_t*>(pattern.data());
        const size_t n = pattern.getLength();
        if (m_pFormat && m_pattern.size() == n && m_pattern.compare(0, n, p, n) == 0)
            return m_pFormat;
        if (m_pFormat) {
            udat_close(m_pFormat);
            m_pFormat = nullptr;
        }
        UErrorCode status = U_ZERO_ERROR;
        static const UChar kUtc[] = {u'U', u'T', u'C', 0};
        UDateFormat* f = udat_open(UDAT_PATTERN, UDAT_PATTERN, "en_US_POSIX", kUtc, -1,
                                   reinterpret_cast<const UChar*>(p), (int32_t)n, &status);
        if (U_FAILURE(status)) {
            if (f)
                udat_close(f);
            m_pattern.clear();
            return nullptr;
        }
        m_pattern.assign(p, n);
        m_pFormat = f;
        return f;
    }
};

thread_local FormatterCache t_cache;

} // namespace

bool timeFormat(int64_t shiftedUnixMillis, const TimeFields&, const SWCharString& pattern,
                SWCharString& out)
{
    UDateFormat* f = t_cache.get(pattern);
    if (!f)
        return false;
    UChar buf[128];
    UErrorCode status = U_ZERO_ERROR;
    const UDate when = (UDate)shiftedUnixMillis;
    int32_t n = udat_format(f, when, buf, 128, nullptr, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        std::vector<UChar> big((size_t)n + 1);
        status = U_ZERO_ERROR;
        n = udat_format(f, when, big.data(), n + 1, nullptr, &status);
        if (U_FAILURE(status))
            return false;
        out.empty();
        out.concat(reinterpret_cast<const unsigned short*>(big.data()), (unsigned int)n);
        return true;
    }
    if (U_FAILURE(status))
        return false;
    out.empty();
    out.concat(reinterpret_cast<const unsigned short*>(buf), (unsigned int)n);
    return true;
}

} // namespace os
} // namespace Vardo400
