// Fuzzes the integer parsers (string and iterator forms) and the integer formatter.
//
// Input: the first byte selects the type (low nibble, one of the ten), the form (bit 4:
//   iterator), the radix (bits 5..7: 10, 16, 2, 8, 36, 11, 10, 10) and whether negatives
//   are allowed; the rest is the text, one byte a character.
// Checked: no crash and no read outside [begin, end) (the iterator form runs over an
// exact-size copy without terminator); the result agrees with an exact reference (the
// digit rules of the form, then the range of the type: [-(max + 1), max] for negatives);
// a failure leaves 0; formatting the result in the same radix writes at most 65
// characters, exactly as many as it returns, and (up to radix 16) parses back to the same
// value;
// NeutralString::ToNumber agrees with the template in radix 10.
#include "fuzz_check.h"
#include "vardo/neutralstr.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

using namespace Vardo400;

namespace {

// The reference: the digit rules written out plainly, the range test on an exact
// (saturating) magnitude. Returns false on failure.
bool reference(const unsigned char* p, size_t n, bool iteratorForm, int radix,
               unsigned long long max, bool negativeAllowed, bool& negative,
               unsigned long long& magnitude)
{
    negative = false;
    magnitude = 0;
    size_t i = 0;
    if (n > 0 && p[0] == '-') {
        if (!negativeAllowed)
            return false;
        negative = true;
        i = 1;
    }
    const size_t first = i;
    bool saturated = false;
    for (; i < n; ++i) {
        const int c = p[i];
        int d = c - '0';
        if (!(d >= 0 && d < radix)) {
            if (c == '.')
                break;
            if (!iteratorForm && c == ' ' && i != first)
                break;
            if (!iteratorForm && radix == 16 && (c == 'x' || c == 'X'))
                continue;
            if (radix <= 10)
                return false;
            if (iteratorForm)
                d = d <= 48 ? d - 39 : d - 7;
            else
                d = d < 49 ? d - 7 : d - 39;
            if (!(d >= 0 && d < radix))
                return false;
        }
        if (magnitude > (~0ull - static_cast<unsigned long long>(d)) / static_cast<unsigned>(radix))
            saturated = true;
        else
            magnitude = magnitude * static_cast<unsigned>(radix) + static_cast<unsigned>(d);
    }
    if (saturated)
        return false;
    return negative ? magnitude <= max + 1 : magnitude <= max;
}

template <class T>
void run(const unsigned char* data, size_t size, bool iteratorForm, int radix, bool negativeAllowed,
         T max)
{
    const T maxDivRadix = static_cast<T>(max / radix);
    if (!std::is_signed<T>::value)
        negativeAllowed = false;

    // The text without embedded zeros (a string cannot hold them).
    std::vector<char> text(data, data + size);
    for (char& c : text)
        if (c == 0)
            c = '0';

    T value = static_cast<T>(1);
    bool ok;
    if (iteratorForm) {
        if (!(std::is_same<T, short>::value || std::is_same<T, unsigned short>::value ||
              std::is_same<T, long>::value || std::is_same<T, unsigned long>::value ||
              std::is_same<T, long long>::value))
            return;
        // An exact-size copy: any read past end is out of bounds.
        char* exact = static_cast<char*>(std::malloc(size ? size : 1));
        if (size)
            std::memcpy(exact, text.data(), size);
        ok = StringConvToIntegerIterator(SAsciiString::iterator(exact),
                                         SAsciiString::iterator(exact + size), value, max,
                                         maxDivRadix, radix, negativeAllowed);
        std::free(exact);
    } else {
        SAnsiString ansi;
        ansi.concat(text.data(), static_cast<unsigned int>(size));
        ok = StringConvToInteger(ansi, value, 'a', max, maxDivRadix, radix, negativeAllowed);
        std::vector<unsigned short> units;
        for (char c : text)
            units.push_back(static_cast<unsigned char>(c));
        units.push_back(0);
        SWCharString exactWide(units.data());
        T wideValue = static_cast<T>(1);
        const bool wideOk = StringConvToInteger(exactWide, wideValue, (unsigned short)0, max,
                                                maxDivRadix, radix, negativeAllowed);
        FUZZ_CHECK(wideOk == ok && wideValue == value);
    }

    bool negative;
    unsigned long long magnitude;
    const bool expected = reference(reinterpret_cast<const unsigned char*>(text.data()), size,
                                    iteratorForm, radix, static_cast<unsigned long long>(max),
                                    negativeAllowed, negative, magnitude);
    FUZZ_CHECK(ok == expected);
    if (!ok) {
        FUZZ_CHECK(value == static_cast<T>(0));
        return;
    }
    typedef typename std::make_unsigned<T>::type U;
    const U bits = negative ? static_cast<U>(0 - static_cast<U>(magnitude)) : static_cast<U>(magnitude);
    FUZZ_CHECK(static_cast<U>(value) == bits);

    // Formatting and reading back in the same radix.
    char buf[72];
    std::memset(buf, 'z', sizeof buf);
    const long n = StringConvFromInteger(buf, value, radix);
    FUZZ_CHECK(n >= 1 && n <= 65 && static_cast<long>(std::strlen(buf)) == n);
    // Above radix 17 the distance rule reads upper-case letters as their distance from '0'
    // (A is 17), so only smaller radixes read the formatter's letters back.
    if (radix <= 17 && (radix == 10 || value >= 0)) {
        SAnsiString back(buf);
        T again = static_cast<T>(1);
        const T typeMax = std::numeric_limits<T>::max();
        FUZZ_CHECK(StringConvToInteger(back, again, 'a', typeMax, static_cast<T>(typeMax / radix), radix,
                                  std::is_signed<T>::value));
        FUZZ_CHECK(again == value);
    }
    unsigned short wbuf[72];
    FUZZ_CHECK(StringConvFromInteger(wbuf, value, radix) == n);
    for (long k = 0; k <= n; ++k)
        FUZZ_CHECK(wbuf[k] == static_cast<unsigned char>(buf[k]));
}

template <class T>
void runTable(const unsigned char* data, size_t size, bool iteratorForm, int radix,
              bool negativeAllowed, T max)
{
    run<T>(data, size, iteratorForm, radix, negativeAllowed, max);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 256)
        return 0;
    const unsigned sel = data[0];
    const bool iteratorForm = (sel & 0x10) != 0;
    static const int radixes[8] = {10, 16, 2, 8, 36, 11, 10, 10};
    const int radix = radixes[(sel >> 5) & 7];
    const bool negativeAllowed = (sel & 0x80) == 0 || radix == 10;
    const unsigned char* text = data + 1;
    const size_t n = size - 1;
    switch (sel & 0x0F) {
    case 0: runTable<signed char>(text, n, iteratorForm, radix, negativeAllowed, 127); break;
    case 1: runTable<unsigned char>(text, n, iteratorForm, radix, negativeAllowed, 255); break;
    case 2: runTable<short>(text, n, iteratorForm, radix, negativeAllowed, 32767); break;
    case 3: runTable<unsigned short>(text, n, iteratorForm, radix, negativeAllowed, 65535); break;
    case 4: runTable<int>(text, n, iteratorForm, radix, negativeAllowed, 2147483647); break;
    case 5: runTable<unsigned int>(text, n, iteratorForm, radix, negativeAllowed, 4294967295u); break;
    case 6: runTable<long>(text, n, iteratorForm, radix, negativeAllowed, 2147483647l); break;
    case 7: runTable<unsigned long>(text, n, iteratorForm, radix, negativeAllowed, 4294967295ul); break;
    case 8: runTable<long long>(text, n, iteratorForm, radix, negativeAllowed, std::numeric_limits<long long>::max()); break;
    case 9: runTable<unsigned long long>(text, n, iteratorForm, radix, negativeAllowed, ~0ull); break;
    default: {
        // The everyday entry points agree with the template in radix 10.
        std::vector<unsigned short> units;
        for (size_t i = 0; i < n; ++i)
            units.push_back(text[i] ? text[i] : '0');
        units.push_back(0);
        const SWCharString wide(units.data());
        long long a = 1, b = 1;
        const bool okA = NeutralString::ToNumber(wide, a);
        const bool okB = StringConvToInteger(wide, b, (unsigned short)0, std::numeric_limits<long long>::max(),
                                             std::numeric_limits<long long>::max() / 10, 10, true);
        FUZZ_CHECK(okA == okB && a == b);
        if (okA) {
            long long c = 1;
            FUZZ_CHECK(NeutralString::ToNumber(NeutralString::FromNumber(a), c) && c == a);
        }
        unsigned int u = 1;
        if (NeutralString::ToNumber(wide, u)) {
            unsigned int v = 1;
            FUZZ_CHECK(NeutralString::ToNumber(NeutralString::FromNumber(u), v) && v == u);
        }
        break;
    }
    }
    return 0;
}
