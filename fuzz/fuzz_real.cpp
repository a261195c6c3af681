// Fuzzes the real parser in all its forms and the double formatter.
//
// Input: the text, one byte a character (widened to one unit for the 16-bit form). A first
// byte 0xFF instead gives UTF-16LE units for the 16-bit form alone; a first byte 0xFE
// gives eight bytes of a double to format directly.
// Checked: no crash and no read outside [begin, end) (the iterator form runs over an
// exact-size copy without terminator); the five string forms and the iterator form agree
// (float as the double rounded); failure leaves the output unchanged; where the text is a
// plain decimal of at most 19 significant digits and the value lies in the normal range,
// the reading equals std::from_chars' correctly rounded one; the formatted text of every
// reading is at most 28 characters, matches FromNumberToAscii, and reads back to the
// identical double (parse, format, parse is stable).
#include "fuzz_check.h"
#include "vardo/neutralstr.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

void checkFormat(double v)
{
    const SWCharString s = NeutralString::FromNumber(v);
    const SAsciiString a = NeutralString::FromNumberToAscii(v);
    FUZZ_CHECK(s.getLength() >= 1 && s.getLength() <= 28 && a.getLength() == s.getLength());
    for (unsigned int i = 0; i < s.getLength(); ++i)
        FUZZ_CHECK(s.data()[i] == static_cast<unsigned char>(a.data()[i]));
    if (std::isnan(v))
        return;
    double back = 12345;
    FUZZ_CHECK(NeutralString::ToNumber(s, back));
    if (std::fabs(v) >= 1e-292 || std::isinf(v)) {
        FUZZ_CHECK(sameBits(back, v));
    } else {
        // Below the reach of 17 digits: the closest readable text, whose reading itself
        // formats and reads back exactly.
        double again = 12345;
        FUZZ_CHECK(NeutralString::ToNumber(NeutralString::FromNumber(back), again));
        FUZZ_CHECK(sameBits(again, back));
    }
}

// A plain decimal ([-]digits[.digits][e[-]digits]) with at most 19 significant digits.
bool plainDecimal(const char* p, size_t n)
{
    size_t i = 0;
    if (i < n && p[i] == '-')
        ++i;
    int significant = 0, digits = 0;
    bool leading = true;
    for (; i < n && p[i] >= '0' && p[i] <= '9'; ++i, ++digits)
        if (!(leading && p[i] == '0')) {
            leading = false;
            ++significant;
        }
    if (i < n && p[i] == '.') {
        ++i;
        for (; i < n && p[i] >= '0' && p[i] <= '9'; ++i, ++digits)
            if (!(leading && p[i] == '0')) {
                leading = false;
                ++significant;
            }
    }
    if (digits == 0 || significant > 19)
        return false;
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
        ++i;
        if (i < n && p[i] == '-')
            ++i;
        const size_t start = i;
        for (; i < n && p[i] >= '0' && p[i] <= '9'; ++i) {
        }
        if (i == start || i - start > 4)
            return false;
    }
    return i == n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 512)
        return 0;
    if (size == 9 && data[0] == 0xFE) {
        double v;
        std::memcpy(&v, data + 1, sizeof v);
        checkFormat(v);
        return 0;
    }
    if (size >= 1 && data[0] == 0xFF) {
        std::vector<unsigned short> units;
        for (size_t i = 1; i + 1 < size; i += 2) {
            const unsigned short u = static_cast<unsigned short>(data[i] | (data[i + 1] << 8));
            units.push_back(u ? u : 0x30);
        }
        units.push_back(0);
        const SWCharString wide(units.data());
        double d = 7;
        if (NeutralString::ToNumber(wide, d))
            checkFormat(d);
        else
            FUZZ_CHECK(d == 7);
        return 0;
    }

    std::vector<char> text(data, data + size);
    for (char& c : text)
        if (c == 0)
            c = ' ';
    SAnsiString ansi;
    ansi.concat(text.data(), static_cast<unsigned int>(size));
    SAsciiString ascii;
    ascii.concat(text.data(), static_cast<unsigned int>(size));
    std::vector<unsigned short> units(text.begin(), text.end());
    for (unsigned short& u : units)
        u &= 0xFF;
    units.push_back(0);
    const SWCharString wide(units.data());

    double d1 = 7, d2 = 7, d3 = 7, d4 = 7;
    float f1 = 7, f2 = 7, f3 = 7;
    const bool ok1 = NeutralString::ToNumber(wide, d1);
    const bool ok2 = NeutralStringToReal(ansi, d2, 'a');
    const bool ok3 = NeutralString::ToNumber(ascii, d3);
    const bool okf1 = NeutralStringToReal(ansi, f1, 'a');
    const bool okf2 = NeutralString::ToNumber(wide, f2);
    char* exact = static_cast<char*>(std::malloc(size ? size : 1));
    if (size)
        std::memcpy(exact, text.data(), size);
    const bool ok4 = NeutralStringToRealIterator(SAsciiString::iterator(exact),
                                                 SAsciiString::iterator(exact + size), d4);
    const bool okf3 = NeutralString::ToNumber(SAsciiString::iterator(exact),
                                              SAsciiString::iterator(exact + size), f3);
    std::free(exact);

    FUZZ_CHECK(ok1 == ok2 && ok1 == ok3 && ok1 == ok4 && ok1 == okf1 && ok1 == okf2 && ok1 == okf3);
    if (!ok1) {
        FUZZ_CHECK(d1 == 7 && d2 == 7 && d3 == 7 && d4 == 7 && f1 == 7 && f2 == 7 && f3 == 7);
        return 0;
    }
    FUZZ_CHECK(sameBits(d1, d2) && sameBits(d1, d3) && sameBits(d1, d4));
    float f;
    if (std::fabs(d1) >= 0x1.ffffffp127)
        f = d1 < 0 ? -HUGE_VALF : HUGE_VALF;
    else
        f = static_cast<float>(d1);
    FUZZ_CHECK(std::memcmp(&f, &f1, sizeof f) == 0 && std::memcmp(&f, &f2, sizeof f) == 0 &&
          std::memcmp(&f, &f3, sizeof f) == 0);

    if (plainDecimal(text.data(), size)) {
        double r;
        const std::from_chars_result fr = std::from_chars(text.data(), text.data() + size, r);
        if (fr.ec == std::errc() && std::isfinite(r) && std::fabs(r) >= 1e-300 && d1 != 0)
            FUZZ_CHECK(sameBits(r, d1));
    }
    checkFormat(d1);
    return 0;
}
