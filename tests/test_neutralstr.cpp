// Locale-neutral numbers: both integer parsers with their quirks, the integer formatter, the real
// parser's digit and exponent rules, and the shortest round trip of doubles, under a comma locale too.
#include <vardo/neutralstr.h>

#include "locale_support.h"
#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& narrow = vardo_test::ascii;

uint64_t bitsOf(double d)
{
    uint64_t b;
    std::memcpy(&b, &d, sizeof b);
    return b;
}

double fromBits(uint64_t b)
{
    double d;
    std::memcpy(&d, &b, sizeof d);
    return d;
}

// The integer a parser made of a text, or "fail"; a failure must leave 0 behind.
template <class T>
std::string result(bool ok, T out)
{
    if (ok)
        return std::to_string(out);
    return out == 0 ? "fail" : "fail, leaving " + std::to_string(out);
}

template <class T>
std::string read(const char* text)
{
    T out = static_cast<T>(99);
    const bool ok = NeutralString::ToNumber(W(text), out);
    return result(ok, out);
}

// The same through the iterator overloads over an ASCII string.
template <class T>
std::string readIter(const char* text)
{
    const SAsciiString s(text);
    T out = static_cast<T>(99);
    const bool ok = NeutralString::ToNumber(s.begin(), s.end(), out);
    return result(ok, out);
}

// Real ToNumber with an output preset to a marker, so failures show what they leave behind.
template <class T>
bool parse(const std::string& text, T& out)
{
    out = static_cast<T>(99);
    return NeutralString::ToNumber(W(text), out);
}

template <class T>
void expectLimits(const char* max, const char* over, const char* min, const char* under)
{
    EXPECT_EQ(read<T>(max), max);
    EXPECT_EQ(read<T>(over), "fail");
    EXPECT_EQ(read<T>(min), min);
    EXPECT_EQ(read<T>(under), "fail");
}

} // namespace

TEST(NeutralInteger, LimitsOfEveryTypeFollowTheTable)
{
    expectLimits<signed char>("127", "128", "-128", "-129");
    expectLimits<unsigned char>("255", "256", "0", "-1");
    expectLimits<short>("32767", "32768", "-32768", "-32769");
    expectLimits<unsigned short>("65535", "65536", "0", "-1");
    expectLimits<int>("2147483647", "2147483648", "-2147483648", "-2147483649");
    expectLimits<unsigned int>("4294967295", "4294967296", "0", "-1");
    expectLimits<long long>("9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809");
    expectLimits<unsigned long long>("18446744073709551615", "18446744073709551616", "0", "-1");
    // long keeps the 32-bit limits whatever its width on this platform.
    expectLimits<long>("2147483647", "2147483648", "-2147483648", "-2147483649");
    expectLimits<unsigned long>("4294967295", "4294967296", "0", "-1");

    // Far beyond the limits, and just past the minimum where max / radix is passed by one.
    EXPECT_EQ(read<int>("99999999999999999999999"), "fail");
    EXPECT_EQ(read<int>("-2147483650"), "fail");
    EXPECT_EQ(read<int>("-21474836480"), "fail");
    EXPECT_EQ(read<signed char>("-0"), "0");
    // Leading zeros do not count against the limit.
    EXPECT_EQ(read<int>("0000000000002147483647"), "2147483647");
}

TEST(NeutralInteger, StringFormEndsAtPointOrBlankAndRejectsSignsAndBlanks)
{
    const struct { const char* text; const char* result; } cases[] = {
        {"12.9", "12"}, {"12 34", "12"}, {"-7.", "-7"}, {"-5 ", "-5"},
        {"", "0"}, {"-", "0"}, {".", "0"},
        {"+5", "fail"}, {" 5", "fail"}, {"- 5", "fail"}, {"--5", "fail"},
        {"0x10", "fail"}, // x is only skipped in radix 16
        {"1\xC5\xA0", "fail"}, // U+0160: beyond 8 bits, not truncated into a digit
    };
    for (const auto& c : cases)
        EXPECT_EQ(read<int>(c.text), c.result) << c.text;
}

TEST(NeutralInteger, RadixSixteenDiffersBetweenTheTwoForms)
{
    auto str16 = [](const char* text) {
        int v = 1;
        const bool ok = StringConvToInteger(W(text), v, (unsigned short)0, 2147483647, 134217727, 16, true);
        return result(ok, v);
    };
    auto iter16 = [](const char* text) {
        const SAsciiString s(text);
        long v = 1;
        const bool ok = StringConvToIntegerIterator(s.begin(), s.end(), v, 2147483647l, 134217727l, 16, true);
        return result(ok, v);
    };
    // The colon is the digit 10 in both forms; W..` are 0..9 only in the iterator form;
    // '@' is 9 only in the string form; letters only in the string form.
    const struct { const char* text; const char* stringForm; const char* iteratorForm; } cases[] = {
        {"ff", "255", "fail"}, {"0XfF", "255", "fail"}, {"f0x", "240", "fail"},
        {":", "10", "10"}, {"@", "9", "fail"}, {":W`", "fail", "2569"},
        // The minimum is reachable where the radix divides max + 1, and no further.
        {"-80000000", "-2147483648", "-2147483648"}, {"-80000001", "fail", "fail"},
        {"80000000", "fail", "fail"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(str16(c.text), c.stringForm) << c.text;
        EXPECT_EQ(iter16(c.text), c.iteratorForm) << c.text;
    }

    long long ll = 0;
    EXPECT_TRUE(StringConvToInteger(SAnsiString("1F"), ll, 'a', 9223372036854775807ll,
                                    9223372036854775807ll / 16, 16, true));
    EXPECT_EQ(ll, 31);
    // Radix 36 reads letters of both cases; radix 10 and below never maps letters.
    int v = 0;
    EXPECT_TRUE(StringConvToInteger(W("zZ"), v, (unsigned short)0, 2147483647, 2147483647 / 36, 36, true));
    EXPECT_EQ(v, 35 * 36 + 35);
    EXPECT_FALSE(StringConvToInteger(W("9"), v, (unsigned short)0, 2147483647, 2147483647 / 8, 8, true));
}

TEST(NeutralInteger, IteratorFormRefusesBlanksAndStopsAtEndOrTerminator)
{
    EXPECT_EQ(readIter<long>("12.9"), "12");
    EXPECT_EQ(readIter<long>("12 34"), "fail");
    // Each iterator overload carries its own limits.
    EXPECT_EQ(readIter<long>("-2147483648"), "-2147483648");
    EXPECT_EQ(readIter<long>("2147483648"), "fail");
    EXPECT_EQ(readIter<unsigned long>("4294967295"), "4294967295");
    EXPECT_EQ(readIter<unsigned long>("-1"), "fail");
    EXPECT_EQ(readIter<long long>("-9223372036854775808"), "-9223372036854775808");
    EXPECT_EQ(readIter<unsigned short>("65535"), "65535");
    EXPECT_EQ(readIter<unsigned short>("65536"), "fail");
    EXPECT_EQ(readIter<short>("-32768"), "-32768");

    // Only [begin, end) is read; an empty or reversed range reads as 0.
    const SAsciiString s("12345");
    SAsciiString::iterator b = s.begin(), e = s.begin();
    ++b;
    e += 3;
    long v;
    EXPECT_TRUE(NeutralString::ToNumber(b, e, v));
    EXPECT_EQ(v, 23);
    EXPECT_TRUE(NeutralString::ToNumber(e, b, v));
    EXPECT_EQ(v, 0);
    // An end beyond the terminator: the terminator is an invalid digit.
    const SAsciiString shortText("12");
    EXPECT_FALSE(NeutralString::ToNumber(shortText.begin(), SAsciiString::iterator(shortText.data() + 3), v));
}

TEST(NeutralInteger, FormatsInEveryRadixAndType)
{
    // The count returned, a blank, and the text written.
    auto format = [](auto value, int radix) {
        char buf[80];
        const long n = StringConvFromInteger(buf, value, radix);
        return std::to_string(n) + " " + buf;
    };
    EXPECT_EQ(format(-255, 16), "8 FFFFFF01");
    EXPECT_EQ(format(-255, 10), "4 -255");
    EXPECT_EQ(format(0, 10), "1 0");
    EXPECT_EQ(format(35, 36), "1 Z");
    EXPECT_EQ(format((signed char)-1, 16), "2 FF");
    EXPECT_EQ(format(~0ull, 2), "64 " + std::string(64, '1'));
    // long in another radix shows the platform's width of long.
    EXPECT_EQ(format(-1l, 16), std::to_string(2 * sizeof(long)) + " " + std::string(2 * sizeof(long), 'F'));
    unsigned short wbuf[80];
    EXPECT_EQ(StringConvFromInteger(wbuf, 48879u, 16), 4);
    EXPECT_EQ(narrow(SWCharString(wbuf)), "BEEF");

    // Each type's own overload: a cast to the wrong width shows at its extremes.
    auto same = [](auto x) { return narrow(NeutralString::FromNumber(x)) == std::to_string(x); };
    EXPECT_TRUE(same((signed char)-128));
    EXPECT_TRUE(same((unsigned char)255));
    EXPECT_TRUE(same((short)-32768));
    EXPECT_TRUE(same((unsigned short)65535));
    EXPECT_TRUE(same(4294967295u));
    EXPECT_TRUE(same(std::numeric_limits<long>::min()));
    EXPECT_TRUE(same(std::numeric_limits<unsigned long>::max()));
    EXPECT_TRUE(same(std::numeric_limits<long long>::min()));
    EXPECT_TRUE(same(~0ull));

    // Every pair of decimal digits, through random values of every magnitude.
    std::mt19937_64 rng(7);
    for (int i = 0; i < 20000; ++i) {
        const long long x = static_cast<long long>(rng()) >> (rng() % 64);
        ASSERT_EQ(narrow(NeutralString::FromNumber(x)), std::to_string(x));
    }
}

TEST(NeutralReal, SignsBlanksMantissaAndTrailingText)
{
    double d;
    const struct { const char* text; double value; } ok[] = {
        {"+5", 5}, {"\t 5", 5}, {"- 3.5", -3.5}, {" + \t2", 2}, {"3.5kg", 3.5}, {"5.", 5},
        {"-.25", -0.25}, {"1E+3", 1000}, {"1 e 3", 1000}, {"1e - 3", 0.001}, {"1,5", 1},
        {"12 34", 12}, {"0.000", 0}, {"123.456", 123.456}, {"1.7976931348623157e308", DBL_MAX},
        {"4.9406564584124654e-324", 0}, {"1e-400", 0},
        {"12345678901234567890123", 1.234567890123456789e22},
        // U+3000 is a blank for the wide form; U+FF12, a digit beyond 8 bits, is not a digit.
        {"\xE3\x80\x80-2.5\xEF\xBC\x92", -2.5},
    };
    for (const auto& c : ok) {
        EXPECT_TRUE(parse(c.text, d)) << c.text;
        EXPECT_EQ(d, c.value) << c.text;
    }
    const char* bad[] = {"", "-", ".", "-.", "e5", "5e", "5 e -", "1e309", "0e309", "+-5", ". 5", "1e99999999999999999999"};
    for (const char* t : bad) {
        EXPECT_FALSE(parse(t, d)) << t;
        EXPECT_EQ(d, 99) << t; // unchanged
    }
    // Signed zeros survive; overflow of the product is an infinity.
    EXPECT_TRUE(parse("-1e-400", d));
    EXPECT_TRUE(std::signbit(d) && d == 0);
    EXPECT_TRUE(parse("-99999999999999999999e300", d));
    EXPECT_TRUE(std::isinf(d) && d < 0);
}

TEST(NeutralReal, KeepsTwentySignificantDigitsAndCountsTheRest)
{
    const std::string zeros19(19, '0'), zeros20(20, '0');
    const struct { std::string text; double value; } cases[] = {
        // The 21st and later digits only scale: they are not rounded in.
        {"1" + zeros20 + "9", 1e21}, {"0.1" + zeros19 + "999", 0.1},
        {"1" + zeros20 + zeros20, 1e40}, {"0." + std::string(79, '0') + "1", 1e-80},
        // Leading zeros, also after the point, count neither as kept digits nor against 20.
        {zeros20 + zeros20 + "12345678901234567890", 12345678901234567890.0},
        {"0." + std::string(26, '0') + "12345678901234567890e30", 1234.5678901234567890},
        // The limits of 308 bind on the exponent of the kept digits read as an integer.
        {"1.2345678901234567e-300", 0}, {"1.23e-300", 1.23e-300}, {"11e-309", 0},
        // Trailing zeros of the kept digits move into the exponent.
        {"10e-309", 1e-308}, {"0.1e-307", 1e-308}, {"1.5e308", 1.5e308},
    };
    double d;
    for (const auto& c : cases) {
        EXPECT_TRUE(parse(c.text, d)) << c.text;
        EXPECT_EQ(d, c.value) << c.text;
    }
    EXPECT_FALSE(parse("1000e306", d)); // 1e309
    EXPECT_FALSE(parse("1" + zeros19 + "e290", d)); // the same with a 20th digit, a zero

    // float: rounded from the double; infinity beyond its range.
    float f;
    EXPECT_TRUE(parse("3.4028234663852886e38", f));
    EXPECT_EQ(f, FLT_MAX);
    EXPECT_TRUE(parse("-1e39", f));
    EXPECT_TRUE(std::isinf(f) && f < 0);
}

TEST(NeutralReal, EveryStringAndIteratorInstantiation)
{
    double d = 0;
    float f = 0;
    EXPECT_TRUE(NeutralStringToReal(SAnsiString("-1.25e1"), d, 'a'));
    EXPECT_EQ(d, -12.5);
    EXPECT_TRUE(NeutralString::ToNumber(SAsciiString(" 8.75"), d));
    EXPECT_EQ(d, 8.75);

    // The iterator form reads only its range and stops at the terminator.
    const SAsciiString s("1.5e3");
    SAsciiString::iterator e = s.begin();
    e += 3;
    EXPECT_TRUE(NeutralStringToRealIterator(s.begin(), e, d));
    EXPECT_EQ(d, 1.5);
    e += 1;
    EXPECT_FALSE(NeutralStringToRealIterator(s.begin(), e, d)); // "1.5e" lacks its digits
    EXPECT_TRUE(NeutralString::ToNumber(s.begin(), s.end(), f));
    EXPECT_EQ(f, 1500.0f);
    const SAsciiString::iterator past(s.data() + s.getLength() + 4);
    EXPECT_TRUE(NeutralStringToRealIterator(s.begin(), past, d));
    EXPECT_EQ(d, 1500);
}

// The shortest round trip, compared with std::to_chars; under a comma locale where there is one.
TEST(NeutralReal, FromNumberReadsBackIdenticallyAndMatchesToChars)
{
    const vardo_test::ScopedLocale de("de_DE.UTF-8");
    std::vector<double> sample;
    std::mt19937_64 rng(20240611);
    for (int i = 0; i < 300000; ++i)
        sample.push_back(fromBits(rng()));                        // all exponents
    for (int i = 0; i < 20000; ++i)
        sample.push_back(fromBits(rng() & 0x800FFFFFFFFFFFFFull)); // subnormals
    for (int i = 0; i < 50000; ++i)                               // short decimals
        sample.push_back(static_cast<double>(rng() % 2000001) / 1000.0 - 1000.0);
    for (int e = -330; e <= 308; ++e) {
        const double p = std::strtod(("1e" + std::to_string(e)).c_str(), nullptr);
        for (double v : {p, -p, std::nextafter(p, 0.0), std::nextafter(p, HUGE_VAL)})
            sample.push_back(v);
    }
    sample.insert(sample.end(), {DBL_MAX, 9007199254740993.0, 1.0 / 3, 1e23, 2.2250738585072009e-308, 1.7976931348623155e308});

    for (double v : sample) {
        if (std::isnan(v) || std::isinf(v))
            continue;
        const SWCharString ours = NeutralString::FromNumber(v);
        const std::string text = narrow(ours);
        ASSERT_EQ(std::string(NeutralString::FromNumberToAscii(v).data()), text);
        double back = 12345;
        ASSERT_TRUE(NeutralString::ToNumber(ours, back)) << text;
        char tcBuf[32];
        const std::string tc(tcBuf, std::to_chars(tcBuf, tcBuf + sizeof tcBuf, v).ptr);
        double tcBack = 0;
        if (NeutralString::ToNumber(W(tc), tcBack) && bitsOf(tcBack) == bitsOf(v)) {
            ASSERT_EQ(text, tc); // readable exactly: then also the shortest text
        }
        if (bitsOf(back) != bitsOf(v)) {
            // Only at the low edge no exact reading exists; ours must be as close as to_chars'.
            ASSERT_LT(std::fabs(v), 1e-292) << text << " for " << tc;
            ASSERT_LE(std::fabs(back - v), std::fabs(tcBack - v)) << text << " for " << tc;
        }
    }
}

TEST(NeutralReal, FormattingEdges)
{
    EXPECT_EQ(narrow(NeutralString::FromNumber(0.0)), "0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(-0.0)), "-0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(1e5)), "1e+05");
    // Below the smallest readable magnitude: 0 or 1e-308, whichever is closer.
    EXPECT_EQ(narrow(NeutralString::FromNumber(-DBL_TRUE_MIN)), "-0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(9e-309)), "1e-308");
    // DBL_MIN needs 17 digits but only 1 fits above the exponent floor.
    EXPECT_EQ(narrow(NeutralString::FromNumber(DBL_MIN)), "2e-308");
    // Infinities round-trip; NaN has no neutral form and is rejected on reading.
    double d = 0;
    EXPECT_EQ(narrow(NeutralString::FromNumber(HUGE_VAL)), "2e+308");
    EXPECT_EQ(narrow(NeutralString::FromNumber(-HUGE_VAL)), "-2e+308");
    const SWCharString nan = NeutralString::FromNumber(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(narrow(nan), "nan");
    EXPECT_FALSE(NeutralString::ToNumber(nan, d));
}

TEST(NeutralLocale, CommaDecimalLocaleChangesNothing)
{
    vardo_test::ScopedLocale de("de_DE.UTF-8");
    if (!de.ok())
        GTEST_SKIP() << "de_DE.UTF-8 cannot be had here";
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");

    double d = 0;
    EXPECT_TRUE(parse("1.5", d));
    EXPECT_EQ(d, 1.5);
    EXPECT_TRUE(parse("1,5", d));
    EXPECT_EQ(d, 1);
    EXPECT_EQ(read<int>("1.234"), "1");
    EXPECT_EQ(narrow(NeutralString::FromNumber(1234.5)), "1234.5");
    EXPECT_EQ(narrow(NeutralString::FromNumber(1234567)), "1234567");
    EXPECT_EQ(std::string(NeutralString::FromNumberToAscii(3.25e100).data()), "3.25e+100");
}
