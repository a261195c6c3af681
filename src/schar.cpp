// The character value classes. Multi-byte characters go through the C library's
// conversions in the current locale; an invalid sequence is in no class.
#include "vardo/schar.h"
#include "vardo/sstring.h"

#include "os/os_crt.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace Vardo400 {

namespace {

// The character as one wide character; false when mbtowc rejects it.
bool toWc(const char* bytes, wchar_t& wc)
{
    std::mbtowc(nullptr, nullptr, 0);
    return std::mbtowc(&wc, bytes, SChar_t<char, 0>::MaxBytes) >= 0;
}

// A wide character as UTF-16 units (one, or a surrogate pair for code points beyond
// the 16-bit plane, which only a 32-bit wchar_t can hold).
int wcToUnits(wchar_t wc, unsigned short* out)
{
    unsigned long c = static_cast<unsigned long>(wc);
    if (c > 0xFFFF && c <= 0x10FFFF) {
        c -= 0x10000;
        out[0] = static_cast<unsigned short>(0xD800 + (c >> 10));
        out[1] = static_cast<unsigned short>(0xDC00 + (c & 0x3FF));
        return 2;
    }
    out[0] = c > 0xFFFF ? static_cast<unsigned short>('?') : static_cast<unsigned short>(c);
    return 1;
}

bool classify(const char* bytes, bool (*test)(unsigned short))
{
    wchar_t wc;
    if (!toWc(bytes, wc))
        return false;
    const unsigned long c = static_cast<unsigned long>(wc);
    return c < 0x10000 && test(static_cast<unsigned short>(c));
}

} // namespace

// ---- SChar_t<char, 0> -----------------------------------------------------------------------

SChar_t<char, 0>::SChar_t() { std::memset(m_c, 0, sizeof m_c); }

SChar_t<char, 0>::SChar_t(const char* p)
{
    std::memset(m_c, 0, sizeof m_c);
    if (!p || !*p)
        return;
    int n = std::mblen(p, MaxBytes);
    if (n <= 0)
        n = 1;
    std::memcpy(m_c, p, n);
}

SChar_t<char, 0>::SChar_t(char c)
{
    std::memset(m_c, 0, sizeof m_c);
    m_c[0] = c;
}

int SChar_t<char, 0>::getLength() const
{
    if (!m_c[0])
        return 0;
    int n = std::mblen(m_c, MaxBytes);
    return n < 0 ? -1 : n;
}

int SChar_t<char, 0>::toMBCSChar(char* buffer, int size) const
{
    int n = getLength();
    if (!buffer)
        return n;
    if (n < 0 || n > size)
        return 0;
    std::memcpy(buffer, m_c, n);
    return n;
}

int SChar_t<char, 0>::toAsciiChar(char* buffer) const
{
    unsigned char c = static_cast<unsigned char>(m_c[0]);
    buffer[0] = (getLength() == 1 && c < 0x80) ? m_c[0] : '?';
    return 1;
}

int SChar_t<char, 0>::toWideChar(unsigned short* buffer) const
{
    wchar_t wc;
    if (!toWc(m_c, wc)) {
        buffer[0] = '?';
        return 1;
    }
    return wcToUnits(wc, buffer);
}

int SChar_t<char, 0>::toTovoChar(unsigned short* buffer) const { return toWideChar(buffer); }

bool SChar_t<char, 0>::isUpper() const { return classify(m_c, is_upper); }
bool SChar_t<char, 0>::isLower() const { return classify(m_c, is_lower); }
bool SChar_t<char, 0>::isAlpha() const { return classify(m_c, is_alpha); }
bool SChar_t<char, 0>::isDigit() const { return classify(m_c, is_digit); }
bool SChar_t<char, 0>::isWhiteSpace() const { return classify(m_c, is_space); }

bool SChar_t<char, 0>::isBlank() const
{
    wchar_t wc;
    return toWc(m_c, wc) && (wc == 0x20 || wc == 0x09 || wc == 0x3000);
}

SChar_t<char, 0> SChar_t<char, 0>::toUpper() const
{
    char buf[MaxBytes + 1] = {0};
    std::memcpy(buf, m_c, MaxBytes);
    int n = 0;
    if (!m_c[0] || !MakeUpperCaseChar(buf, MaxBytes, &n))
        return SChar_t();
    return SChar_t(buf);
}

SChar_t<char, 0> SChar_t<char, 0>::toLower() const
{
    char buf[MaxBytes + 1] = {0};
    std::memcpy(buf, m_c, MaxBytes);
    int n = 0;
    if (!m_c[0] || !MakeLowerCaseChar(buf, MaxBytes, &n))
        return SChar_t();
    return SChar_t(buf);
}

bool SChar_t<char, 0>::operator==(const SChar_t& o) const
{
    if (!m_c[0] || !o.m_c[0])
        return true;
    int n = getLength();
    if (n <= 0)
        n = 1;
    return std::memcmp(m_c, o.m_c, n) == 0;
}

// ---- SChar_t<char, 1> -----------------------------------------------------------------------

int SChar_t<char, 1>::toMBCSChar(char* buffer, int size) const
{
    if (!buffer)
        return 1;
    if (size < 1)
        return 0;
    buffer[0] = m_c;
    return 1;
}

int SChar_t<char, 1>::toAsciiChar(char* buffer) const
{
    buffer[0] = static_cast<unsigned char>(m_c) < 0x80 ? m_c : '?';
    return 1;
}

int SChar_t<char, 1>::toTovoChar(unsigned short* buffer) const { return toWideChar(buffer); }

int SChar_t<char, 1>::toWideChar(unsigned short* buffer) const
{
    buffer[0] = static_cast<unsigned char>(m_c);
    return 1;
}

bool SChar_t<char, 1>::isUpper() const { return std::isupper(static_cast<unsigned char>(m_c)) != 0; }
bool SChar_t<char, 1>::isLower() const { return std::islower(static_cast<unsigned char>(m_c)) != 0; }
bool SChar_t<char, 1>::isAlpha() const { return std::isalpha(static_cast<unsigned char>(m_c)) != 0; }
bool SChar_t<char, 1>::isDigit() const { return std::isdigit(static_cast<unsigned char>(m_c)) != 0; }
bool SChar_t<char, 1>::isWhiteSpace() const { return std::isspace(static_cast<unsigned char>(m_c)) != 0; }
bool SChar_t<char, 1>::isBlank() const { return std::isspace(static_cast<unsigned char>(m_c)) != 0; }
SChar_t<char, 1> SChar_t<char, 1>::toUpper() const { return SChar_t(static_cast<char>(std::toupper(static_cast<unsigned char>(m_c)))); }
SChar_t<char, 1> SChar_t<char, 1>::toLower() const { return SChar_t(static_cast<char>(std::tolower(static_cast<unsigned char>(m_c)))); }

// ---- SChar_t<unsigned short, 1> -------------------------------------------------------------

int SChar_t<unsigned short, 1>::toMBCSChar(char* buffer, int size) const
{
    char out[MB_LEN_MAX > 16 ? MB_LEN_MAX : 16];
    std::wctomb(nullptr, 0);
    int n = (m_c >= 0xD800 && m_c <= 0xDFFF) ? -1 : std::wctomb(out, static_cast<wchar_t>(m_c));
    if (!buffer)
        return n;
    if (n < 0 || n > size)
        return 0;
    std::memcpy(buffer, out, n);
    return n;
}

int SChar_t<unsigned short, 1>::toAsciiChar(char* buffer) const
{
    buffer[0] = m_c < 0x80 ? static_cast<char>(m_c) : '?';
    return 1;
}

int SChar_t<unsigned short, 1>::toTovoChar(unsigned short* buffer) const
{
    buffer[0] = m_c;
    return 1;
}

int SChar_t<unsigned short, 1>::toWideChar(unsigned short* buffer) const
{
    buffer[0] = m_c;
    return 1;
}

SChar_t<unsigned short, 1> SChar_t<unsigned short, 1>::toUpper() const { return SChar_t(os::ucsToUpper(m_c)); }
SChar_t<unsigned short, 1> SChar_t<unsigned short, 1>::toLower() const { return SChar_t(os::ucsToLower(m_c)); }

} // namespace Vardo400
