// wchar_t is 32-bit here: UTF-16 text is widened to code points before the C library
// sees it, so collation and case mapping treat surrogate pairs as one character.
#include "os/os_crt.h"

#include <cerrno>
#include <cwchar>
#include <cwctype>
#include <vector>

namespace Vardo400 {
namespace os {

static void widen(const unsigned short* s, std::vector<wchar_t>& out, bool lower)
{
    out.clear();
    for (; *s; ++s) {
        unsigned int c = *s;
        if (c >= 0xD800 && c <= 0xDBFF && s[1] >= 0xDC00 && s[1] <= 0xDFFF) {
            c = ((c - 0xD800) << 10) + (s[1] - 0xDC00) + 0x10000;
            ++s;
        }
        wchar_t w = static_cast<wchar_t>(c);
        out.push_back(lower ? static_cast<wchar_t>(towlower(w)) : w);
    }
    out.push_back(0);
}

static int collate(const unsigned short* a, const unsigned short* b, bool noCase)
{
    std::vector<wchar_t> wa, wb;
    widen(a, wa, noCase);
    widen(b, wb, noCase);
    int saved = errno;
    errno = 0;
    int r = wcscoll(wa.data(), wb.data());
    int err = errno;
    errno = saved;
    return err ? CollateError : r;
}

int ucsCollate(const unsigned short* a, const unsigned short* b) { return collate(a, b, false); }
int ucsCollateNoCase(const unsigned short* a, const unsigned short* b) { return collate(a, b, true); }

unsigned short ucsToUpper(unsigned short c)
{
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    wint_t r = towupper(c);
    return r <= 0xFFFF ? static_cast<unsigned short>(r) : c;
}

unsigned short ucsToLower(unsigned short c)
{
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    wint_t r = towlower(c);
    return r <= 0xFFFF ? static_cast<unsigned short>(r) : c;
}

} // namespace os
} // namespace Vardo400
