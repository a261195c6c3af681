// wchar_t is UTF-32 here: surrogate pairs are joined and split.
#include "os/os_wchar.h"

#include <cstdint>

namespace Vardo400 {
namespace os {

size_t wideToUcs2(unsigned short* dst, size_t len, const wchar_t* src, size_t n, size_t* consumed)
{
    size_t out = 0;
    size_t i = 0;
    for (; i < n; ++i) {
        uint32_t c = static_cast<uint32_t>(src[i]);
        if (c > 0x10FFFF)
            c = 0xFFFD;
        if (c <= 0xFFFF) {
            if (dst) {
                if (out >= len)
                    break;
                dst[out] = static_cast<unsigned short>(c);
            }
            out += 1;
        } else {
            if (dst) {
                if (len - out < 2)
                    break;
                c -= 0x10000;
                dst[out] = static_cast<unsigned short>(0xD800 + (c >> 10));
                dst[out + 1] = static_cast<unsigned short>(0xDC00 + (c & 0x3FF));
            }
            out += 2;
        }
    }
    if (consumed)
        *consumed = i;
    return out;
}

size_t ucs2ToWide(wchar_t* dst, size_t len, const unsigned short* src, size_t n, size_t* consumed)
{
    size_t out = 0;
    size_t i = 0;
    while (i < n) {
        uint32_t c = src[i];
        size_t k = 1;
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && src[i + 1] >= 0xDC00 && src[i + 1] <= 0xDFFF) {
            c = ((c - 0xD800) << 10) + (src[i + 1] - 0xDC00) + 0x10000;
            k = 2;
        }
        if (dst) {
            if (out >= len)
                break;
            dst[out] = static_cast<wchar_t>(c);
        }
        ++out;
        i += k;
    }
    if (consumed)
        *consumed = i;
    return out;
}

} // namespace os
} // namespace Vardo400
