// The code-page conversions on arbitrary input: the named codesets in both directions
// (ExplicitCodesetToT, TToExplicitCodeset), the process code page under the "C" and a
// UTF-8 locale (CodesetConverter, the SAnsiString and SAsciiString members). Checks: no
// crash, no read outside the input, content never fails (only "?" degradation),
// lengths within their bounds, counts without a target equal to the counts written,
// and round trips where the encoding holds the text.
#include "fuzz_check.h"
#include "vardo/codesetconverter.h"
#include "vardo/UTFConverter.h"

#include <algorithm>
#include <clocale>
#include <locale.h>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

typedef MBCSCodesetConverter M;

locale_t g_utf8Locale = 0;

// The thread's locale (uselocale) is what the C library's conversions consult, and
// switching it is cheap, unlike setlocale.
void useLocale(bool utf8)
{
    uselocale(utf8 && g_utf8Locale ? g_utf8Locale : LC_GLOBAL_LOCALE);
}

void namedCodesets(const char* in, size_t n, size_t textBytes)
{
    for (int c = 0; c <= 5; ++c) {
        const M::ExplicitCodeset cs = static_cast<M::ExplicitCodeset>(c);
        SWCharString w;
        const bool ok = M::ExplicitCodesetToT(in, static_cast<unsigned int>(n), cs, w);
        FUZZ_CHECK(ok == (c <= 4));
        if (!ok) {
            FUZZ_CHECK(w.isEmpty());
            SSimpleBuffer sb;
            FUZZ_CHECK(M::TToExplicitCodeset(w, cs, sb) == 0);
            continue;
        }
        if (cs != M::ProcessCodeset)
            FUZZ_CHECK(w.getLength() <= textBytes);
        if (cs == M::ISO88591Codeset || cs == M::USASCIICodeset || cs == M::Windows1252Codeset)
            FUZZ_CHECK(w.getLength() == textBytes);

        SSimpleBuffer sb;
        const unsigned int len = M::TToExplicitCodeset(w, cs, sb);
        FUZZ_CHECK(len >= 1 && len == sb.size() && sb.data()[len - 1] == 0);
        FUZZ_CHECK(len == M::getNBytesForExplicitCodeset(w, cs));
        FUZZ_CHECK(std::memchr(sb.data(), 0, len) == sb.data() + len - 1);
        if (cs == M::ISO88591Codeset)
            FUZZ_CHECK(len == textBytes + 1 && std::memcmp(sb.data(), in, textBytes) == 0);
        if (cs == M::UTF8Codeset) {
            // What was decoded (with "?" for bad bytes) is text that UTF-8 holds exactly.
            SWCharString back;
            FUZZ_CHECK(M::ExplicitCodesetToT(reinterpret_cast<const char*>(sb.data()), cs, back));
            FUZZ_CHECK(back == w);
        }
        if (cs == M::USASCIICodeset || cs == M::Windows1252Codeset) {
            // A second pass changes nothing: "?" is in both.
            SWCharString again;
            FUZZ_CHECK(M::ExplicitCodesetToT(reinterpret_cast<const char*>(sb.data()), cs, again));
            FUZZ_CHECK(again == w);
        }
        // The caller's buffer: all or nothing.
        std::vector<char> buf(len);
        const unsigned int small = n ? static_cast<unsigned char>(in[0]) % (len + 1) : 0;
        const unsigned int r = M::TToExplicitCodeset(w, cs, buf.data(), small);
        FUZZ_CHECK(small >= len ? r == len : r == 0);
        if (r)
            FUZZ_CHECK(std::memcmp(buf.data(), sb.data(), len) == 0);
    }
}

void processCodePage(const char* z, size_t textBytes)
{
    // Multi-byte to UTF-16: a count without a target equals what is written; a limit
    // is respected; never more units than bytes.
    const size_t need = CodesetConverter::mbstoucs2(nullptr, z, 0);
    FUZZ_CHECK(need <= textBytes);
    std::vector<unsigned short> u(need + 1, 0xAAAA);
    FUZZ_CHECK(CodesetConverter::mbstoucs2(u.data(), z, need + 1) == need);
    FUZZ_CHECK(u[need] == 0);
    const size_t lim = textBytes ? static_cast<unsigned char>(z[0]) % (need + 1) : 0;
    std::vector<unsigned short> part(lim + 1, 0xAAAA);
    const size_t got = CodesetConverter::mbstoucs2(part.data(), z, lim);
    FUZZ_CHECK(got <= lim && part[lim] == 0xAAAA);
    FUZZ_CHECK(std::equal(part.begin(), part.begin() + got, u.begin()));

    // And back: counts agree, the output is terminated, and a limit is respected.
    const size_t bytes = CodesetConverter::ucs2tombs(nullptr, u.data(), 0);
    std::vector<char> mb(bytes + 1, 'x');
    FUZZ_CHECK(CodesetConverter::ucs2tombs(mb.data(), u.data(), bytes + 1) == bytes);
    FUZZ_CHECK(mb[bytes] == 0 && std::strlen(mb.data()) == bytes);
    const size_t blim = bytes ? static_cast<unsigned char>(z[0]) % (bytes + 1) : 0;
    std::vector<char> mbPart(blim + 1, 'x');
    FUZZ_CHECK(CodesetConverter::ucs2tombs(mbPart.data(), u.data(), blim) <= blim && mbPart[blim] == 'x');

    // The 8-bit strings on top of it.
    SAnsiString a;
    FUZZ_CHECK(a.fromMBCS(z));
    SWCharString w;
    FUZZ_CHECK(w.fromMBCS(a.data()));
    FUZZ_CHECK(w.getLength() == need);
    SAnsiString a2;
    FUZZ_CHECK(a2.fromUChar(w.data()));
    FUZZ_CHECK(a2.getLength() + 1 == w.getNBytesForMBCS());
    SAsciiString s;
    FUZZ_CHECK(s.fromMBCS(z));
    FUZZ_CHECK(s.getLength() == need);
    for (unsigned int i = 0; i < s.getLength(); ++i)
        FUZZ_CHECK(static_cast<unsigned char>(s.data()[i]) < 0x80);
    std::vector<unsigned char> u8(a.getNBytesForUTF8() + 1);
    const unsigned int n8 = a.toUTF8(u8.data(), static_cast<unsigned int>(u8.size()));
    FUZZ_CHECK(n8 != 0xFFFFFFFFu && n8 < u8.size());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::setlocale(LC_ALL, "C");
    g_utf8Locale = newlocale(LC_ALL_MASK, "C.UTF-8", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 16))
        return 0;
    std::vector<char> exact(data, data + size);
    const char* in = exact.empty() ? "" : exact.data();
    const size_t textBytes = std::find(in, in + size, '\0') - in;
    std::vector<char> z(in, in + textBytes);
    z.push_back(0);

    useLocale(size && (data[size - 1] & 1));
    namedCodesets(in, size, textBytes);
    processCodePage(z.data(), textBytes);

    // The input as 16-bit units (0-terminated) through the wide conversions.
    std::vector<unsigned short> units(size / 2 + 1, 0);
    if (size / 2)
        std::memcpy(units.data(), in, (size / 2) * 2);
    const size_t ulen = std::find(units.begin(), units.end(), 0) - units.begin();
    const size_t wneed = CodesetConverter::ucs2towcs(nullptr, units.data(), 0);
    FUZZ_CHECK(wneed <= ulen);
    std::vector<wchar_t> wide(wneed + 1);
    FUZZ_CHECK(CodesetConverter::ucs2towcs(wide.data(), units.data(), wneed + 1) == wneed);
    std::vector<unsigned short> back(ulen + 1);
    FUZZ_CHECK(CodesetConverter::wcstoucs2(back.data(), wide.data(), ulen + 1) == ulen);
    FUZZ_CHECK(std::equal(back.begin(), back.begin() + ulen, units.begin()));
    SAsciiString as;
    FUZZ_CHECK(as.fromUChar(units.data()) && as.getLength() == ulen);
    SAnsiString an;
    FUZZ_CHECK(an.fromUChar(units.data()));
    FUZZ_CHECK(an.getLength() == std::strlen(an.data()));
    return 0;
}
