// MBCSCodesetConverter: SWCharString to and from byte buffers in a numbered encoding.
#include "vardo/codesetconverter.h"
#include "vardo/UTFConverter.h"
#include "vardo/strace.h"
#include "utfcore.h"

#include <cstring>

namespace Vardo400 {

namespace {

typedef MBCSCodesetConverter M;

// Windows-1252 at 80-9F; 0 marks the five unassigned bytes.
const unsigned short kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

bool isKnown(M::ExplicitCodeset codeset)
{
    return codeset >= M::ProcessCodeset && codeset <= M::Windows1252Codeset;
}

inline bool isHigh(unsigned short u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool isLow(unsigned short u) { return u >= 0xDC00 && u <= 0xDFFF; }

// n bytes of a single-byte codeset to n units.
void decodeSingle(const unsigned char* s, size_t n, unsigned short* dst, M::ExplicitCodeset codeset)
{
    if (codeset == M::ISO88591Codeset) {
        utf::bytesWiden(s, n, dst);
        return;
    }
    for (size_t i = 0; i < n; ++i) {
        const unsigned char b = s[i];
        if (b < 0x80)
            dst[i] = b;
        else if (codeset == M::USASCIICodeset)
            dst[i] = '?';
        else if (b >= 0xA0)
            dst[i] = b;
        else
            dst[i] = kCp1252High[b - 0x80] ? kCp1252High[b - 0x80] : static_cast<unsigned short>('?');
    }
}

// One unit (not ASCII, not part of a pair) to its byte in a single-byte codeset.
unsigned char encodeUnit(unsigned short u, M::ExplicitCodeset codeset)
{
    if (codeset == M::USASCIICodeset)
        return '?';
    if (u >= 0xA0 && u <= 0xFF)
        return static_cast<unsigned char>(u);
    if (codeset == M::ISO88591Codeset)
        return u <= 0xFF ? static_cast<unsigned char>(u) : '?';
    for (unsigned k = 0; k < 32; ++k)
        if (kCp1252High[k] == u && u)
            return static_cast<unsigned char>(0x80 + k);
    return '?';
}

// n units to a single-byte codeset into dst of room bytes (or counts with a null dst).
// A surrogate pair is one character. Returns the bytes written (or needed).
size_t encodeSingle(const unsigned short* s, size_t n, unsigned char* dst, size_t room, M::ExplicitCodeset codeset)
{
    size_t out = 0;
    size_t i = 0;
    while (i < n) {
        const unsigned short u = s[i];
        if (u < 0x80) {
            if (dst) {
                const size_t avail = room - out < n - i ? room - out : n - i;
                if (!avail)
                    break;
                const size_t k = utf::asciiNarrow(s + i, avail, dst + out);
                out += k;
                i += k;
            } else {
                ++out;
                ++i;
            }
            continue;
        }
        unsigned char b;
        if (isHigh(u) && i + 1 < n && isLow(s[i + 1])) {
            b = '?';
            i += 2;
        } else {
            b = encodeUnit(u, codeset);
            ++i;
        }
        if (dst) {
            if (out >= room)
                break;
            dst[out] = b;
        }
        ++out;
    }
    return out;
}

// Bytes of the text in the codeset, terminator not counted.
uint64_t encodedLength(const SWCharString& text, M::ExplicitCodeset codeset)
{
    const size_t n = text.getLength();
    switch (codeset) {
    case M::ProcessCodeset:
        return CodesetConverter::ucs2tombs(0, text.data(), 0);
    case M::UTF8Codeset:
        return utf::utf8Length(text.data(), n);
    default:
        return encodeSingle(text.data(), n, 0, 0, codeset);
    }
}

// Writes the text's bytes (exactly length of them, as encodedLength gave) and a 0 byte.
void encodeInto(const SWCharString& text, M::ExplicitCodeset codeset, unsigned char* dst, size_t length)
{
    const size_t n = text.getLength();
    switch (codeset) {
    case M::ProcessCodeset:
        CodesetConverter::ucs2tombs(reinterpret_cast<char*>(dst), text.data(), length + 1);
        break;
    case M::UTF8Codeset:
        utf::utf16ToUtf8(text.data(), n, dst, length);
        break;
    default:
        encodeSingle(text.data(), n, dst, length, codeset);
        break;
    }
    dst[length] = 0;
}

} // namespace

bool MBCSCodesetConverter::ExplicitCodesetToT(const char* bytes, ExplicitCodeset codeset, SWCharString& text)
{
    return ExplicitCodesetToT(bytes, bytes ? static_cast<unsigned int>(std::strlen(bytes)) : 0u, codeset, text);
}

bool MBCSCodesetConverter::ExplicitCodesetToT(const char* bytes, unsigned int n, ExplicitCodeset codeset,
                                              SWCharString& text)
{
    text.empty();
    if (!isKnown(codeset))
        return false;
    if (!bytes || !n)
        return true;
    const void* zero = std::memchr(bytes, 0, n);
    if (zero)
        n = static_cast<unsigned int>(static_cast<const char*>(zero) - bytes);
    if (!n)
        return true;
    const unsigned char* s = reinterpret_cast<const unsigned char*>(bytes);

    if (codeset == ProcessCodeset) {
        if (zero) {
            text.fromMBCS(bytes);
            return true;
        }
        utf::TempArray<char> copy;
        if (!copy.allocate(static_cast<size_t>(n) + 1)) {
            VARDO_ASSERT_TEXT("copy");
            return true;
        }
        std::memcpy(copy.get(), bytes, n);
        copy.get()[n] = 0;
        text.fromMBCS(copy.get());
        return true;
    }
    // Well-formed UTF-8 converts straight into the string; only malformed input takes
    // the degrading path.
    if (codeset == UTF8Codeset && text.fromUTF8(s, n))
        return true;

    utf::TempArray<unsigned short> units;
    if (!units.allocate(n)) {
        VARDO_ASSERT_TEXT("units");
        return true;
    }
    size_t count = n;
    if (codeset == UTF8Codeset)
        count = utf::utf8ToUtf16Degrading(s, n, units.get());
    else
        decodeSingle(s, n, units.get(), codeset);
    text.concat(units.get(), static_cast<unsigned int>(count));
    return true;
}

SWCharString MBCSCodesetConverter::ExplicitCodesetToT(const char* bytes, ExplicitCodeset codeset)
{
    SWCharString text;
    ExplicitCodesetToT(bytes, codeset, text);
    return text;
}

unsigned int MBCSCodesetConverter::TToExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset,
                                                      SSimpleBuffer& out)
{
    if (!isKnown(codeset)) {
        out.release();
        return 0;
    }
    const uint64_t length = encodedLength(text, codeset);
    if (length >= 0xFFFFFFFFu || !out.setSize(static_cast<size_t>(length) + 1)) {
        VARDO_ASSERT_TEXT("out.setSize(length + 1)");
        out.release();
        return 0;
    }
    encodeInto(text, codeset, out.data(), static_cast<size_t>(length));
    return static_cast<unsigned int>(length + 1);
}

unsigned int MBCSCodesetConverter::TToExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset,
                                                      char* buffer, unsigned int size)
{
    if (!isKnown(codeset) || !buffer)
        return 0;
    const uint64_t length = encodedLength(text, codeset);
    if (length + 1 > size)
        return 0;
    encodeInto(text, codeset, reinterpret_cast<unsigned char*>(buffer), static_cast<size_t>(length));
    return static_cast<unsigned int>(length + 1);
}

unsigned int MBCSCodesetConverter::getNBytesForExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset)
{
    if (!isKnown(codeset))
        return 0;
    const uint64_t length = encodedLength(text, codeset);
    return length >= 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(length + 1);
}

const char* MBCSCodesetConverter::getCodesetName(ExplicitCodeset codeset)
{
    switch (codeset) {
    case UTF8Codeset: return "UTF-8";
    case USASCIICodeset: return "US-ASCII";
    case ISO88591Codeset: return "ISO-8859-1";
    case Windows1252Codeset: return "windows-1252";
    default: return "";
    }
}

namespace {

bool sameName(const char* a, const char* b)
{
    for (;; ++a, ++b) {
        unsigned char x = static_cast<unsigned char>(*a), y = static_cast<unsigned char>(*b);
        if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
        if (x != y)
            return false;
        if (!x)
            return true;
    }
}

} // namespace

bool MBCSCodesetConverter::findCodeset(const char* name, ExplicitCodeset& codeset)
{
    static const struct { const char* name; ExplicitCodeset codeset; } kNames[] = {
        {"UTF-8", UTF8Codeset}, {"UTF8", UTF8Codeset},
        {"US-ASCII", USASCIICodeset}, {"ASCII", USASCIICodeset}, {"ANSI_X3.4-1968", USASCIICodeset},
        {"ISO-8859-1", ISO88591Codeset}, {"ISO8859-1", ISO88591Codeset}, {"ISO_8859-1", ISO88591Codeset},
        {"latin1", ISO88591Codeset},
        {"windows-1252", Windows1252Codeset}, {"cp1252", Windows1252Codeset},
    };
    if (!name)
        return false;
    for (const auto& entry : kNames)
        if (sameName(name, entry.name)) {
            codeset = entry.codeset;
            return true;
        }
    return false;
}

} // namespace Vardo400
