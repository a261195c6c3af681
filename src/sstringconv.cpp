// The code-set conversions of SString_t for its three instantiations.
//
// What the content of each instantiation is decides each conversion:
//  - SString_t<unsigned short, 1> (SWCharString, STovoString): UTF-16. UTF-8 through
//    the UTF converter (malformed input fails as a whole), the process code page
//    through CodesetConverter ("?" for what it cannot represent), ASCII as units below
//    80 hex ("?" for the others), wide characters through the platform bridge; the
//    16-bit and Tovo forms are copies.
//  - SString_t<char, 0> (SAnsiString): bytes of the process code page. Every
//    conversion that is not a plain copy goes through UTF-16.
//  - SString_t<char, 1> (SAsciiString): 7-bit bytes. Copies to 8-bit forms; bytes are
//    widened one to one into 16-bit and wide forms; what comes from 16-bit text keeps
//    units below 80 hex and turns the others into "?".
//
// Every to... member writes a terminator and returns the units written without it, or
// 0xFFFFFFFF when the buffer is null or too small, with two deliberate exceptions kept
// from the library's history: SWCharString::toUTF8 converts into size bytes and then
// writes the terminator behind them (the caller leaves one byte more), and
// SAsciiString::toUTF8 counts the terminator in its result. Every getNBytesFor...
// counts bytes, the terminator included (0xFFFFFFFF beyond 32 bits).
#include "vardo/sstring.h"
#include "vardo/UTFConverter.h"
#include "vardo/codesetconverter.h"
#include "vardo/strace.h"
#include "os/os_wchar.h"
#include "utfcore.h"
#include "crt.h"
#include "sstring_fill.h"

#include <cstring>
#include <cwchar>
#include <type_traits>

namespace Vardo400 {

namespace {

const unsigned int kFail = 0xFFFFFFFFu;

typedef SString_t<unsigned short, 1> WideStr;

inline unsigned int clampCount(uint64_t n) { return n >= kFail ? kFail : static_cast<unsigned int>(n); }

inline size_t byteLength(const char* s) { return s ? std::strlen(s) : 0; }
inline size_t unitLength(const unsigned short* s) { return s ? crt::ucsLen(s) : 0; }

// Bytes up to the first 0 byte within n.
inline size_t boundedLength(const unsigned char* s, unsigned int n)
{
    const void* z = std::memchr(s, 0, n);
    return z ? static_cast<size_t>(static_cast<const unsigned char*>(z) - s) : n;
}

// n units to bytes: units below 80 hex as they are, every other unit "?".
size_t narrowToAscii(const unsigned short* s, size_t n, char* d)
{
    unsigned char* out = reinterpret_cast<unsigned char*>(d);
    size_t i = 0;
    while (i < n) {
        const size_t k = utf::asciiNarrow(s + i, n - i, out + i);
        i += k;
        if (i < n && s[i] >= 0x80) {
            out[i] = '?';
            ++i;
        }
    }
    return n;
}

// n bytes widened one to one into wide characters.
void widenToWide(const char* s, size_t n, wchar_t* d)
{
    for (size_t i = 0; i < n; ++i)
        d[i] = static_cast<wchar_t>(static_cast<unsigned char>(s[i]));
}

// Copies n units and a terminator into buffer of size units; kFail when it does not fit.
template <class T>
unsigned int copyOut(T* buffer, unsigned int size, const T* s, unsigned int n)
{
    if (!buffer || size < n + 1u || n == kFail)
        return kFail;
    std::memcpy(buffer, s, static_cast<size_t>(n) * sizeof(T));
    buffer[n] = 0;
    return n;
}

} // namespace

// ---- from ... -----------------------------------------------------------------------------------

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromAscii(const char* s)
{
    if constexpr (sizeof(CharT) == 2) {
        const size_t n = byteLength(s);
        return sstringfill::fillFresh(*this, n, [&](CharT* d) {
            utf::bytesWiden(reinterpret_cast<const unsigned char*>(s), n, d);
            return n;
        });
    } else {
        *this = s;
        return true;
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromMBCS(const char* s)
{
    if constexpr (sizeof(CharT) == 2) {
        const size_t n = CodesetConverter::mbstoucs2(0, s, 0);
        return sstringfill::fillFresh(*this, n, [&](CharT* d) { return CodesetConverter::mbstoucs2(d, s, n + 1); });
    } else if constexpr (Fixed == 0) {
        *this = s;
        return true;
    } else {
        WideStr w;
        w.fromMBCS(s);
        return fromUChar(w.data());
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromWChar(const wchar_t* s)
{
    if constexpr (sizeof(CharT) == 2) {
        const size_t n = CodesetConverter::wcstoucs2(0, s, 0);
        return sstringfill::fillFresh(*this, n, [&](CharT* d) { return CodesetConverter::wcstoucs2(d, s, n + 1); });
    } else {
        WideStr w;
        w.fromWChar(s);
        return fromUChar(w.data());
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromUChar(const unsigned short* s)
{
    if constexpr (sizeof(CharT) == 2) {
        *this = s;
        return true;
    } else if constexpr (Fixed == 0) {
        const size_t n = CodesetConverter::ucs2tombs(0, s, 0);
        return sstringfill::fillFresh(*this, n, [&](CharT* d) { return CodesetConverter::ucs2tombs(d, s, n + 1); });
    } else {
        const size_t n = unitLength(s);
        return sstringfill::fillFresh(*this, n, [&](CharT* d) { return narrowToAscii(s, n, d); });
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromUTF8(const unsigned char* s)
{
    return fromUTF8(s, s ? clampCount(std::strlen(reinterpret_cast<const char*>(s))) : 0u);
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromUTF8(const unsigned char* s, unsigned int bytes)
{
    if constexpr (sizeof(CharT) == 2) {
        // Room for n units; a long text gets exactly the units that well-formed input
        // gives (a third of the bytes for CJK text), found by a quick count, so that
        // large conversions neither waste memory nor fall to the allocator's slow path.
        // Malformed input fails either way.
        const size_t n = s ? boundedLength(s, bytes) : 0;
        const size_t room = n > 4096 ? utf::utf8UnitCount(s, n) : n;
        if (n && !room) {
            empty(); // nothing but continuation bytes
            return false;
        }
        return sstringfill::fillFresh(*this, room, [&](CharT* d) { return utf::utf8ToUtf16Whole(s, n, d, room); });
    } else {
        WideStr w;
        if (!w.fromUTF8(s, bytes)) {
            empty();
            return false;
        }
        return fromUChar(w.data());
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::fromTovo(const unsigned short* s)
{
    return fromUChar(s);
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::copyFrom(const char* s)
{
    if constexpr (sizeof(CharT) == 2) {
        return fromMBCS(s);
    } else {
        *this = s;
        return true;
    }
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::copyFrom(const unsigned short* s)
{
    return fromUChar(s);
}

// ---- to ... -------------------------------------------------------------------------------------

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toAscii(char* buffer, unsigned int size) const
{
    const unsigned int n = getLength();
    if constexpr (sizeof(CharT) == 2) {
        if (!buffer || size < n + 1u || n == kFail)
            return kFail;
        narrowToAscii(data(), n, buffer);
        buffer[n] = 0;
        return n;
    } else if constexpr (Fixed == 0) {
        WideStr w;
        w.fromMBCS(data());
        return w.toAscii(buffer, size);
    } else {
        return copyOut(buffer, size, data(), n);
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toMBCS(char* buffer, unsigned int size) const
{
    if constexpr (sizeof(CharT) == 2) {
        if (!buffer)
            return kFail;
        const size_t need = CodesetConverter::ucs2tombs(0, data(), 0);
        if (need >= size)
            return kFail;
        return clampCount(CodesetConverter::ucs2tombs(buffer, data(), need + 1));
    } else {
        return copyOut(buffer, size, data(), getLength());
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toWChar(wchar_t* buffer, unsigned int size) const
{
    const unsigned int n = getLength();
    if constexpr (sizeof(CharT) == 2) {
        if (!buffer)
            return kFail;
        const size_t need = os::ucs2ToWide(0, 0, data(), n, 0);
        if (need >= size)
            return kFail;
        os::ucs2ToWide(buffer, need, data(), n, 0);
        buffer[need] = 0;
        return static_cast<unsigned int>(need);
    } else if constexpr (Fixed == 0) {
        WideStr w;
        w.fromMBCS(data());
        return w.toWChar(buffer, size);
    } else {
        if (!buffer || size < n + 1u || n == kFail)
            return kFail;
        widenToWide(data(), n, buffer);
        buffer[n] = 0;
        return n;
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toUChar(unsigned short* buffer, unsigned int size) const
{
    const unsigned int n = getLength();
    if constexpr (sizeof(CharT) == 2) {
        return copyOut(buffer, size, data(), n);
    } else if constexpr (Fixed == 0) {
        if (!buffer)
            return kFail;
        const size_t need = CodesetConverter::mbstoucs2(0, data(), 0);
        if (need >= size)
            return kFail;
        return clampCount(CodesetConverter::mbstoucs2(buffer, data(), need + 1));
    } else {
        if (!buffer || size < n + 1u || n == kFail)
            return kFail;
        utf::bytesWiden(reinterpret_cast<const unsigned char*>(data()), n, buffer);
        buffer[n] = 0;
        return n;
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toUTF8(unsigned char* buffer, unsigned int size) const
{
    const unsigned int n = getLength();
    if constexpr (sizeof(CharT) == 2) {
        // The terminator goes behind the size bytes given for the conversion.
        if (!buffer)
            return kFail;
        const size_t written = utf::utf16ToUtf8(data(), n, buffer, size);
        if (written == SIZE_MAX)
            return kFail;
        buffer[written] = 0;
        return static_cast<unsigned int>(written);
    } else if constexpr (Fixed == 0) {
        if (!buffer || !size)
            return kFail;
        WideStr w;
        w.fromMBCS(data());
        return w.toUTF8(buffer, size - 1);
    } else {
        // ASCII is UTF-8 already: a copy whose count includes the terminator.
        if (!buffer || size < n + 1u || n == kFail)
            return kFail;
        std::memcpy(buffer, data(), static_cast<size_t>(n) + 1);
        return n + 1;
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::toTovo(unsigned short* buffer, unsigned int size) const
{
    return toUChar(buffer, size);
}

// ---- byte counts ----------------------------------------------------------------------------------

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForAscii() const
{
    if constexpr (sizeof(CharT) == 1 && Fixed == 0)
        return clampCount(static_cast<uint64_t>(CodesetConverter::mbstoucs2(0, data(), 0)) + 1);
    else
        return clampCount(static_cast<uint64_t>(getLength()) + 1);
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForMBCS() const
{
    if constexpr (sizeof(CharT) == 2)
        return clampCount(static_cast<uint64_t>(CodesetConverter::ucs2tombs(0, data(), 0)) + 1);
    else
        return clampCount(static_cast<uint64_t>(getLength()) + 1);
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForWChar() const
{
    uint64_t chars;
    if constexpr (sizeof(CharT) == 2) {
        chars = os::ucs2ToWide(0, 0, data(), getLength(), 0);
    } else if constexpr (Fixed == 0) {
        WideStr w;
        w.fromMBCS(data());
        chars = os::ucs2ToWide(0, 0, w.data(), w.getLength(), 0);
    } else {
        chars = getLength();
    }
    return clampCount((chars + 1) * sizeof(wchar_t));
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForUChar() const
{
    uint64_t units;
    if constexpr (sizeof(CharT) == 1 && Fixed == 0)
        units = CodesetConverter::mbstoucs2(0, data(), 0);
    else
        units = getLength();
    return clampCount((units + 1) * sizeof(unsigned short));
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForUTF8() const
{
    if constexpr (sizeof(CharT) == 2) {
        return clampCount(utf::utf8LengthBound(data(), getLength()));
    } else if constexpr (Fixed == 0) {
        WideStr w;
        w.fromMBCS(data());
        return w.getNBytesForUTF8();
    } else {
        return clampCount(static_cast<uint64_t>(getLength()) + 1);
    }
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNBytesForTovo() const
{
    return getNBytesForUChar();
}

// ---- the instantiations -----------------------------------------------------------------------------

#define VARDO_STRING_CONVERSIONS(C, F)                                                               \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromAscii(const char*);                  \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromMBCS(const char*);                   \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromWChar(const wchar_t*);               \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromUChar(const unsigned short*);        \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromUTF8(const unsigned char*);          \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromUTF8(const unsigned char*, unsigned int); \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::fromTovo(const unsigned short*);         \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::copyFrom(const char*);                   \
    template VARDO_INSTANTIATION_API bool SString_t<C, F>::copyFrom(const unsigned short*);         \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toAscii(char*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toMBCS(char*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toWChar(wchar_t*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toUChar(unsigned short*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toUTF8(unsigned char*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::toTovo(unsigned short*, unsigned int) const; \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForAscii() const;      \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForMBCS() const;       \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForWChar() const;      \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForUChar() const;      \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForUTF8() const;       \
    template VARDO_INSTANTIATION_API unsigned int SString_t<C, F>::getNBytesForTovo() const;

VARDO_STRING_CONVERSIONS(char, 0)
VARDO_STRING_CONVERSIONS(char, 1)
VARDO_STRING_CONVERSIONS(unsigned short, 1)

#undef VARDO_STRING_CONVERSIONS

} // namespace Vardo400
