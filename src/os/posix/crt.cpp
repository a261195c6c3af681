// wchar_t is 32-bit here: UTF-16 text is widened to code points before the C library
// sees it, so collation and case mapping treat surrogate pairs as one character.
#include "os/os_crt.h"

#include <cerrno>
#include <cwchar>
#include <cwctype>
#include <vector>

namespace Vardo400 {
namespace os {

// Widened text: on the stack for the short texts that names and keys are, else heap.
class Wide {
public:
    Wide(const unsigned short* s, bool lower)
    {
        size_t n = 0;
        while (s[n])
            ++n;
        m_p = n < sizeof m_local / sizeof m_local[0] ? m_local : (m_heap.resize(n + 1), m_heap.data());
        size_t k = 0;
        for (; *s; ++s) {
            unsigned int c = *s;
            if (c >= 0xD800 && c <= 0xDBFF && s[1] >= 0xDC00 && s[1] <= 0xDFFF) {
                c = ((c - 0xD800) << 10) + (s[1] - 0xDC00) + 0x10000;
                ++s;
            }
            wchar_t w = static_cast<wchar_t>(c);
            m_p[k++] = lower ? static_cast<wchar_t>(towlower(w)) : w;
        }
        m_p[k] = 0;
    }
    const wchar_t* get() const { return m_p; }
private:
    wchar_t m_local[128];
    std::vector<wchar_t> m_heap;
    wchar_t* m_p;
};

static int collate(const unsigned short* a, const unsigned short* b, bool noCase)
{
    Wide wa(a, noCase), wb(b, noCase);
    int saved = errno;
    errno = 0;
    int r = wcscoll(wa.get(), wb.get());
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
