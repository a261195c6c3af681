// The UTF-8 decoders (to UTF-16 and to UTF-32) and the UTF-16 encoder on arbitrary
// input. Checks: no crash and no read outside the input (the input is copied to a
// block of its exact size), results and positions within their documented bounds,
// whole-or-nothing failure, and exact round trips of what was accepted. Then the
// lenient policy of the converter core against the per-character rules.
#include "fuzz_check.h"
#include "vardo/UTFConverter.h"
#include "utf_policy_fuzz.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

void stepBounds(const unsigned char* in, size_t n, size_t room, ConversionFlags flags)
{
    std::vector<unsigned short> out16(room + 1);
    const unsigned char* s = in;
    unsigned short* t = out16.data();
    const ConversionResult r = ConvertUTF8toUTF16(&s, in + n, &t, out16.data() + room, flags);
    FUZZ_CHECK(r >= conversionOK && r <= sourceIllegal);
    FUZZ_CHECK(s >= in && s <= in + n);
    FUZZ_CHECK(t >= out16.data() && t <= out16.data() + room);
    FUZZ_CHECK(static_cast<size_t>(t - out16.data()) <= static_cast<size_t>(s - in)); // a unit per byte at most
    FUZZ_CHECK((r == conversionOK) == (s == in + n));

    std::vector<unsigned long> out32(room + 1);
    const unsigned char* s2 = in;
    unsigned long* t32 = out32.data();
    const ConversionResult r32 = ConvertUTF8toUTF32(&s2, in + n, &t32, out32.data() + room, flags);
    FUZZ_CHECK(r32 >= conversionOK && r32 <= sourceIllegal);
    FUZZ_CHECK(s2 >= in && s2 <= in + n);
    FUZZ_CHECK(static_cast<size_t>(t32 - out32.data()) <= static_cast<size_t>(s2 - in));
    for (unsigned long* p = out32.data(); p < t32; ++p)
        FUZZ_CHECK(*p <= 0x10FFFF);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    // Exact-size copies: any read past the input is caught.
    std::vector<unsigned char> exact(data, data + size);
    const unsigned char* in = exact.empty() ? reinterpret_cast<const unsigned char*>("") : exact.data();

    const size_t smallRoom = size ? data[0] % (size + 1) : 0;
    stepBounds(in, size, size, lenientConversion);
    stepBounds(in, size, size, strictConversion);
    stepBounds(in, size, smallRoom, lenientConversion);

    // The string conversion: whole or nothing, at most one unit per byte.
    const size_t textBytes = std::find(in, in + size, 0) - in;
    SWCharString w;
    const bool ok = w.fromUTF8(in, static_cast<unsigned int>(size));
    if (!ok) {
        FUZZ_CHECK(w.isEmpty());
    } else {
        FUZZ_CHECK(w.getLength() <= textBytes);
        // Re-encoding: within the documented bound, and back to the same units.
        const unsigned int bound = w.getNBytesForUTF8();
        std::vector<unsigned char> enc(bound + 1);
        const unsigned int n = w.toUTF8(enc.data(), bound);
        FUZZ_CHECK(n != 0xFFFFFFFFu && n + 1 <= bound && enc[n] == 0);
        // Input without encoded surrogates comes back byte for byte.
        if (!std::memchr(in, 0xED, textBytes))
            FUZZ_CHECK(n == textBytes && std::memcmp(enc.data(), in, n) == 0);
        SWCharString back;
        FUZZ_CHECK(back.fromUTF8(enc.data(), n));
        FUZZ_CHECK(back == w);
    }

    // The same rules through UTF-32, on a 0-terminated copy.
    std::vector<unsigned char> z(in, in + textBytes);
    z.push_back(0);
    CSmartRefCountPtr<UTFBuffer_t<unsigned long> > cps;
    const bool ok32 = CUTFConverter::UTF8ToUCS4(z.data(), cps);
    FUZZ_CHECK(ok32 == ok);
    if (ok32) {
        FUZZ_CHECK(!cps.isNull() && cps->getLength() <= textBytes + 1);
        CSmartRefCountPtr<UTFBuffer_t<unsigned char> > again;
        FUZZ_CHECK(CUTFConverter::UCS4ToUTF8(cps->data(), again));
        // Every accepted sequence is a shortest form: exactly the input again.
        FUZZ_CHECK(again->getLength() == textBytes + 1 && std::memcmp(again->data(), z.data(), textBytes + 1) == 0);
    } else {
        FUZZ_CHECK(cps.isNull());
    }
    STovoString t;
    FUZZ_CHECK(CUTFConverter::UTF8ToUTF16(z.data(), t) == ok);

    // The input as UTF-16 units: the lenient encoder never fails and decodes back exactly.
    const size_t units = size / 2;
    std::vector<unsigned short> u(units);
    if (units)
        std::memcpy(u.data(), in, units * 2);
    std::vector<unsigned char> u8(3 * units + 1);
    const unsigned short* s16 = u.data();
    unsigned char* t8 = u8.data();
    FUZZ_CHECK(ConvertUTF16toUTF8(&s16, u.data() + units, &t8, u8.data() + 3 * units, lenientConversion) == conversionOK);
    const size_t written = static_cast<size_t>(t8 - u8.data());
    FUZZ_CHECK(written <= 3 * units);
    std::vector<unsigned short> u16(written + 1);
    const unsigned char* s8 = u8.data();
    unsigned short* t16 = u16.data();
    FUZZ_CHECK(ConvertUTF8toUTF16(&s8, u8.data() + written, &t16, u16.data() + written, lenientConversion) == conversionOK);
    FUZZ_CHECK(static_cast<size_t>(t16 - u16.data()) == units && std::equal(u.begin(), u.end(), u16.begin()));

    // With a smaller target the encoder stops cleanly before a whole character: what it
    // wrote is a prefix of the full encoding, and it ends where that character starts.
    const size_t room8 = std::min(smallRoom, written);
    std::vector<unsigned char> part(room8 + 1);
    s16 = u.data();
    t8 = part.data();
    const ConversionResult r = ConvertUTF16toUTF8(&s16, u.data() + units, &t8, part.data() + room8, lenientConversion);
    const size_t partLen = static_cast<size_t>(t8 - part.data());
    FUZZ_CHECK(r == conversionOK || r == targetExhausted);
    FUZZ_CHECK(partLen <= room8 && std::memcmp(part.data(), u8.data(), partLen) == 0);
    FUZZ_CHECK(r == conversionOK ? partLen == written : partLen < written);
    return utf_fuzz::run(data, size, utf_fuzz::Policy::lenient);
}
