// wchar_t is UTF-16 here: the bridge copies units.
#include "os/os_wchar.h"

#include <cstring>

namespace Vardo400 {
namespace os {

static_assert(sizeof(wchar_t) == sizeof(unsigned short), "wchar_t is 16-bit on Windows");

size_t wideToUcs2(unsigned short* dst, size_t len, const wchar_t* src, size_t n, size_t* consumed)
{
    const size_t k = dst ? (n < len ? n : len) : n;
    if (dst && k)
        std::memcpy(dst, src, k * sizeof(unsigned short));
    if (consumed)
        *consumed = k;
    return k;
}

size_t ucs2ToWide(wchar_t* dst, size_t len, const unsigned short* src, size_t n, size_t* consumed)
{
    const size_t k = dst ? (n < len ? n : len) : n;
    if (dst && k)
        std::memcpy(dst, src, k * sizeof(unsigned short));
    if (consumed)
        *consumed = k;
    return k;
}

} // namespace os
} // namespace Vardo400
