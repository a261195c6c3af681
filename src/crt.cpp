// The multi-byte C run-time functions of Windows (_mbscoll, _mbsicoll, _mbsstr,
// _mbstrlen, _stricmp), written once over the standard multi-byte calls so both
// platforms follow the current C locale the same way.
#include "crt.h"
#include "os/os_crt.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cstdint>
#include <cwctype>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// The sanitizers would rightly flag the block scan's reads past the terminator (they stay
// inside the terminator's aligned block, which is harmless but not the string's), so their
// builds keep the plain loop and its exact bounds checking.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VARDO_BLOCK_SCAN 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VARDO_BLOCK_SCAN 0
#endif
#endif
#if !defined(VARDO_BLOCK_SCAN) && defined(__SSE2__)
#define VARDO_BLOCK_SCAN 1
#endif
#if !defined(VARDO_BLOCK_SCAN)
#define VARDO_BLOCK_SCAN 0
#endif

namespace Vardo400 {
namespace crt {

int mbCharLen(const char* p)
{
    if (!*p)
        return 0;
    int n = std::mblen(p, 6);
    return n < 0 ? -1 : n;
}

size_t mbStrLen(const char* s)
{
    std::mblen(nullptr, 0);
    size_t n = 0;
    while (*s) {
        int k = std::mblen(s, 6);
        s += k > 0 ? k : 1;
        ++n;
    }
    return n;
}

const char* mbsStr(const char* s, const char* sub)
{
    size_t m = std::strlen(sub);
    if (m == 0)
        return s;
    for (const char* p = s; *p;) {
        if (*p == *sub && std::strncmp(p, sub, m) == 0)
            return p;
        int k = std::mblen(p, 6);
        p += k > 0 ? k : 1;
    }
    return nullptr;
}

int mbsCmp(const char* a, const char* b) { return std::strcmp(a, b); }

int strICmp(const char* a, const char* b)
{
    const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
    const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
    for (;; ++x, ++y) {
        int cx = std::tolower(*x), cy = std::tolower(*y);
        if (cx != cy || !cx)
            return cx - cy;
    }
}

static bool toWide(const char* s, std::vector<wchar_t>& out, bool lower)
{
    size_t n = std::mbstowcs(nullptr, s, 0);
    if (n == static_cast<size_t>(-1))
        return false;
    out.assign(n + 1, 0);
    std::mbstowcs(out.data(), s, n + 1);
    if (lower)
        for (wchar_t& c : out)
            c = static_cast<wchar_t>(std::towlower(c));
    return true;
}

int mbsCollate(const char* a, const char* b)
{
    int saved = errno;
    errno = 0;
    int r = std::strcoll(a, b);
    int err = errno;
    errno = saved;
    return err ? os::CollateError : r;
}

int mbsCollateNoCase(const char* a, const char* b)
{
    std::vector<wchar_t> wa, wb;
    if (!toWide(a, wa, true) || !toWide(b, wb, true))
        return os::CollateError;
    int saved = errno;
    errno = 0;
    int r = std::wcscoll(wa.data(), wb.data());
    int err = errno;
    errno = saved;
    return err ? os::CollateError : r;
}

int ucsCmp(const unsigned short* a, const unsigned short* b)
{
    for (;; ++a, ++b)
        if (*a != *b || !*a)
            return static_cast<int>(*a) - static_cast<int>(*b);
}

int ucsICmp(const unsigned short* a, const unsigned short* b)
{
    for (;; ++a, ++b) {
        int x = os::ucsToLower(*a), y = os::ucsToLower(*b);
        if (x != y || !x)
            return x - y;
    }
}

size_t ucsLen(const unsigned short* s)
{
    const unsigned short* p = s;
#if VARDO_BLOCK_SCAN
    // Every string assignment measures its source, so the scan goes 8 units at a time.
    // Loads are 16-byte aligned and so never cross into a page the string does not touch.
    if ((reinterpret_cast<uintptr_t>(p) & 1) == 0) {
        while ((reinterpret_cast<uintptr_t>(p) & 15) != 0) {
            if (!*p)
                return static_cast<size_t>(p - s);
            ++p;
        }
        const __m128i zero = _mm_setzero_si128();
        for (;;) {
            __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
            int mask = _mm_movemask_epi8(_mm_cmpeq_epi16(v, zero));
            if (mask)
                return static_cast<size_t>(p - s) + static_cast<size_t>(__builtin_ctz(mask)) / 2;
            p += 8;
        }
    }
#endif
    while (*p)
        ++p;
    return static_cast<size_t>(p - s);
}

} // namespace crt
} // namespace Vardo400
