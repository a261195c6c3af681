// CodesetConverter: UTF-16 and the process code page through the C library, and the
// platform's wide characters through the os bridge.
//
// The C library converts between multi-byte text and wchar_t; the bridge turns wchar_t
// into UTF-16 and back (a copy on Windows). The character-by-character fallbacks use
// the restartable functions with a local state, so that no hidden per-process state is
// shared between threads.
#include "vardo/codesetconverter.h"
#include "vardo/strace.h"
#include "os/os_wchar.h"
#include "utfcore.h"
#include "crt.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace Vardo400 {

namespace {

// mbstowcs and wcstombs with the caller's error code preserved.
size_t wholeMbsToWcs(wchar_t* dst, const char* src, size_t n)
{
    const int saved = errno;
    errno = 0;
    const size_t r = std::mbstowcs(dst, src, n);
    errno = saved;
    return r;
}

size_t wholeWcsToMbs(char* dst, const wchar_t* src, size_t n)
{
    const int saved = errno;
    errno = 0;
    const size_t r = std::wcstombs(dst, src, n);
    errno = saved;
    return r;
}

inline bool isSurrogate(unsigned short c) { return c >= 0xD800 && c <= 0xDFFF; }

} // namespace

size_t CodesetConverter::mbstoucs2(unsigned short* dst, const char* src, size_t len)
{
    if (!src) {
        if (dst && len)
            dst[0] = 0;
        return 0;
    }
    const size_t bytes = std::strlen(src);

    // The whole string at once: every byte yields at most one wide character.
    utf::TempArray<wchar_t> wide;
    if (bytes < SIZE_MAX && wide.allocate(bytes + 1)) {
        const size_t n = wholeMbsToWcs(wide.get(), src, bytes + 1);
        if (n != static_cast<size_t>(-1)) {
            const size_t units = os::wideToUcs2(dst, len, wide.get(), n, 0);
            if (dst && units < len)
                dst[units] = 0;
            return units;
        }
    }

    // Character by character: an invalid character becomes "?" and one byte is skipped.
    std::mbstate_t state;
    std::memset(&state, 0, sizeof state);
    const char* p = src;
    const char* const end = src + bytes;
    size_t out = 0;
    while (p < end) {
        wchar_t wc;
        const size_t avail = static_cast<size_t>(end - p);
        const size_t r = std::mbrtowc(&wc, p, avail < 6 ? avail : 6, &state);
        if (r == static_cast<size_t>(-1) || r == static_cast<size_t>(-2) || r == 0) {
            std::memset(&state, 0, sizeof state);
            if (dst) {
                if (out >= len)
                    break;
                dst[out] = '?';
            }
            ++out;
            ++p;
            continue;
        }
        size_t consumed = 0;
        const size_t k = os::wideToUcs2(dst ? dst + out : 0, dst ? len - out : 0, &wc, 1, &consumed);
        if (!consumed)
            break;
        out += k;
        p += r;
    }
    if (dst && out < len)
        dst[out] = 0;
    return out;
}

size_t CodesetConverter::ucs2tombs(char* dst, const unsigned short* src, size_t len)
{
    const size_t units = src ? crt::ucsLen(src) : 0;
    if (!units) {
        if (dst && len)
            dst[0] = 0;
        return 0;
    }
    utf::TempArray<wchar_t> wide;
    if (!wide.allocate(units + 1)) {
        VARDO_ASSERT_TEXT("wide");
        if (dst && len)
            dst[0] = 0;
        return 0;
    }
    const size_t n = os::ucs2ToWide(wide.get(), units, src, units, 0);
    wide.get()[n] = 0;

    const size_t whole = wholeWcsToMbs(dst, wide.get(), dst ? len : 0);
    if (whole != static_cast<size_t>(-1)) {
        // wcstombs leaves the output open when it stopped at len; close it if there is room.
        if (dst && whole < len)
            dst[whole] = 0;
        return whole;
    }

    // Character by character: what the code page cannot represent becomes "?".
    std::mbstate_t state;
    std::memset(&state, 0, sizeof state);
    size_t out = 0;
    for (size_t i = 0; i < n; ++i) {
        char buf[MB_LEN_MAX > 16 ? MB_LEN_MAX : 16];
        size_t r = std::wcrtomb(buf, wide.get()[i], &state);
        if (r == static_cast<size_t>(-1)) {
            std::memset(&state, 0, sizeof state);
            buf[0] = '?';
            r = 1;
        }
        if (dst) {
            if (r > len - out)
                break;
            std::memcpy(dst + out, buf, r);
        }
        out += r;
    }
    if (dst && out < len)
        dst[out] = 0;
    return out;
}

int CodesetConverter::mbtoucs2(unsigned short* dst, const char* src, size_t n)
{
    if (!src)
        return 0;
    std::mbstate_t state;
    std::memset(&state, 0, sizeof state);
    wchar_t wc;
    const size_t r = std::mbrtowc(&wc, src, n < 6 ? n : 6, &state);
    if (r == static_cast<size_t>(-1) || r == static_cast<size_t>(-2))
        return -1;
    if (dst) {
        unsigned short u[2];
        *dst = os::wideToUcs2(u, 2, &wc, 1, 0) == 1 ? u[0] : static_cast<unsigned short>('?');
    }
    return static_cast<int>(r);
}

int CodesetConverter::ucs2tomb(char* dst, unsigned short c, size_t size)
{
    if (isSurrogate(c))
        return -1;
    wchar_t wc = 0;
    os::ucs2ToWide(&wc, 1, &c, 1, 0);
    std::mbstate_t state;
    std::memset(&state, 0, sizeof state);
    char buf[MB_LEN_MAX > 16 ? MB_LEN_MAX : 16];
    const size_t r = std::wcrtomb(buf, wc, &state);
    if (r == static_cast<size_t>(-1))
        return -1;
    if (!dst)
        return static_cast<int>(r);
    if (r > size)
        return -1;
    std::memcpy(dst, buf, r);
    return static_cast<int>(r);
}

size_t CodesetConverter::wcstoucs2(unsigned short* dst, const wchar_t* src, size_t len)
{
    const size_t n = src ? std::wcslen(src) : 0;
    const size_t units = n ? os::wideToUcs2(dst, len, src, n, 0) : 0;
    if (dst && units < len)
        dst[units] = 0;
    return units;
}

size_t CodesetConverter::ucs2towcs(wchar_t* dst, const unsigned short* src, size_t len)
{
    const size_t n = src ? crt::ucsLen(src) : 0;
    const size_t count = n ? os::ucs2ToWide(dst, len, src, n, 0) : 0;
    if (dst && count < len)
        dst[count] = 0;
    return count;
}

int CodesetConverter::wctoucs2(unsigned short* dst, wchar_t c, size_t size)
{
    size_t consumed = 0;
    const size_t k = os::wideToUcs2(dst, size, &c, 1, &consumed);
    if (!consumed)
        return -1;
    return static_cast<int>(k);
}

int CodesetConverter::ucs2towc(wchar_t* dst, const unsigned short* src, size_t n)
{
    if (!src || !n)
        return -1;
    if (!src[0]) {
        if (dst)
            *dst = 0;
        return 0;
    }
    wchar_t wc = 0;
    size_t consumed = 0;
    os::ucs2ToWide(&wc, 1, src, (n >= 2 && src[1]) ? 2 : 1, &consumed);
    if (dst)
        *dst = wc;
    return static_cast<int>(consumed);
}

} // namespace Vardo400
