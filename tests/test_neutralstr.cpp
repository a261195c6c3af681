// Locale-neutral numbers: the integer parsers in both forms with their limits and
// asymmetries, the integer formatter, the real parser's digit and exponent rules, and the
// shortest round-trip formatting of doubles (checked against std::to_chars over a large
// sample), also under a locale whose decimal point is a comma.
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

std::string toChars(double v)
{
    char buf[64];
    const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

// ToNumber with an output preset to a marker, so failures show what they leave behind.
template <class T>
bool parse(const char* text, T& out)
{
    out = static_cast<T>(99);
    return NeutralString::ToNumber(W(text), out);
}

template <class T>
bool parseIter(const char* text, T& out)
{
    const SAsciiString s(text);
    out = static_cast<T>(99);
    return NeutralString::ToNumber(s.begin(), s.end(), out);
}

template <class T>
void expectLimits(const char* maxText, T maxValue, const char* overText, const char* minText,
                  T minValue, const char* underText)
{
    SCOPED_TRACE(maxText);
    T v;
    EXPECT_TRUE(parse(maxText, v));
    EXPECT_EQ(v, maxValue);
    EXPECT_FALSE(parse(overText, v));
    EXPECT_EQ(v, static_cast<T>(0));
    EXPECT_TRUE(parse(minText, v));
    EXPECT_EQ(v, minValue);
    if (underText) {
        EXPECT_FALSE(parse(underText, v));
        EXPECT_EQ(v, static_cast<T>(0));
    }
}

} // namespace

TEST(NeutralInteger, LimitsOfEveryTypeFollowTheTable)
{
    expectLimits<signed char>("127", 127, "128", "-128", -128, "-129");
    expectLimits<unsigned char>("255", 255, "256", "0", 0, "-1");
    expectLimits<short>("32767", 32767, "32768", "-32768", -32768, "-32769");
    expectLimits<unsigned short>("65535", 65535, "65536", "0", 0, "-1");
    expectLimits<int>("2147483647", 2147483647, "2147483648", "-2147483648",
                      -2147483647 - 1, "-2147483649");
    expectLimits<unsigned int>("4294967295", 4294967295u, "4294967296", "0", 0u, "-1");
    expectLimits<long long>("9223372036854775807", 9223372036854775807ll,
                            "9223372036854775808", "-9223372036854775808",
                            -9223372036854775807ll - 1, "-9223372036854775809");
    expectLimits<unsigned long long>("18446744073709551615", 18446744073709551615ull,
                                     "18446744073709551616", "0", 0ull, "-1");
    // long keeps the 32-bit limits whatever its width on this platform.
    expectLimits<long>("2147483647", 2147483647l, "2147483648", "-2147483648",
                       -2147483647l - 1, "-2147483649");
    expectLimits<unsigned long>("4294967295", 4294967295ul, "4294967296", "0", 0ul, "-1");

    // Far beyond the limits, and just past the minimum where max / radix is passed by one.
    int i;
    EXPECT_FALSE(parse("99999999999999999999999", i));
    EXPECT_FALSE(parse("-2147483650", i));
    EXPECT_FALSE(parse("-21474836480", i));
    signed char c;
    EXPECT_FALSE(parse("-130", c));
    EXPECT_FALSE(parse("-139", c));
    EXPECT_TRUE(parse("-0", c));
    EXPECT_EQ(c, 0);
    EXPECT_TRUE(parse("-1", c));
    EXPECT_EQ(c, -1);
    // Leading zeros do not count against the limit.
    EXPECT_TRUE(parse("0000000000002147483647", i));
    EXPECT_EQ(i, 2147483647);
}

TEST(NeutralInteger, StringFormEndsAtPointOrBlankAndRejectsSignsAndBlanks)
{
    int v;
    EXPECT_TRUE(parse("12.9", v));
    EXPECT_EQ(v, 12);
    EXPECT_TRUE(parse("12 34", v));
    EXPECT_EQ(v, 12);
    EXPECT_TRUE(parse("-7.", v));
    EXPECT_EQ(v, -7);
    EXPECT_TRUE(parse("", v));
    EXPECT_EQ(v, 0);
    EXPECT_TRUE(parse("-", v));
    EXPECT_EQ(v, 0);
    EXPECT_TRUE(parse(".", v));
    EXPECT_EQ(v, 0);
    EXPECT_FALSE(parse("+5", v));
    EXPECT_EQ(v, 0);
    EXPECT_FALSE(parse(" 5", v));
    EXPECT_FALSE(parse(" ", v));
    EXPECT_FALSE(parse("- 5", v));
    EXPECT_TRUE(parse("-5 ", v));
    EXPECT_EQ(v, -5);
    EXPECT_FALSE(parse("5-", v));
    EXPECT_FALSE(parse("--5", v));
    EXPECT_FALSE(parse("12a", v));
    EXPECT_FALSE(parse("0x10", v)); // x is only skipped in radix 16
    unsigned int u;
    EXPECT_FALSE(parse("-", u));    // the sign itself is refused for unsigned types
    EXPECT_FALSE(parse("-0", u));

    // Characters beyond 8 bits are invalid digits, not truncated into range.
    SWCharString wide = W("1");
    wide += SWCharString::Char(static_cast<unsigned short>(0x0130 + '0'));
    EXPECT_FALSE(NeutralString::ToNumber(wide, v));
}

TEST(NeutralInteger, RadixSixteenDiffersBetweenTheTwoForms)
{
    const SWCharString hex[] = {W("ff"), W("FF"), W("0xff"), W("0XfF"), W("f0x")};
    const int hexValues[] = {255, 255, 255, 255, 240};
    for (int k = 0; k < 5; ++k) {
        int v = 1;
        EXPECT_TRUE(StringConvToInteger(hex[k], v, (unsigned short)0, 2147483647, 134217727, 16, true));
        EXPECT_EQ(v, hexValues[k]);
    }
    SAnsiString ansi("1F");
    long long ll = 0;
    EXPECT_TRUE(StringConvToInteger(ansi, ll, 'a', 9223372036854775807ll,
                                    9223372036854775807ll / 16, 16, true));
    EXPECT_EQ(ll, 31);

    const char* iterTexts[] = {"ff", "FF", "0xff"};
    for (const char* t : iterTexts) {
        const SAsciiString s(t);
        long v = 1;
        EXPECT_FALSE(StringConvToIntegerIterator(s.begin(), s.end(), v, 2147483647l, 134217727l, 16, true)) << t;
        EXPECT_EQ(v, 0);
    }

    // The colon is the digit 10 in both forms; W..` are 0..9 only in the iterator form;
    // '@' is 9 only in the string form.
    int v = 0;
    EXPECT_TRUE(StringConvToInteger(W(":"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
    EXPECT_EQ(v, 10);
    EXPECT_TRUE(StringConvToInteger(W("@"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
    EXPECT_EQ(v, 9);
    EXPECT_FALSE(StringConvToInteger(W("W"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
    const SAsciiString colonW(":W`");
    short s = 0;
    EXPECT_TRUE(StringConvToIntegerIterator(colonW.begin(), colonW.end(), s, (short)32767, (short)2047, 16, true));
    EXPECT_EQ(s, 10 * 256 + 0 * 16 + 9);
    const SAsciiString at("@");
    EXPECT_FALSE(StringConvToIntegerIterator(at.begin(), at.end(), s, (short)32767, (short)2047, 16, true));

    // Radix 36 in the string form reads letters of both cases.
    EXPECT_TRUE(StringConvToInteger(W("zZ"), v, (unsigned short)0, 2147483647, 2147483647 / 36, 36, true));
    EXPECT_EQ(v, 35 * 36 + 35);
    // Radix 10 and below never maps letters.
    EXPECT_FALSE(StringConvToInteger(W("9"), v, (unsigned short)0, 2147483647, 2147483647 / 8, 8, true));

    // The minimum of a type is reachable where the radix divides max + 1, and no further.
    EXPECT_TRUE(StringConvToInteger(W("-80000000"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
    EXPECT_EQ(v, -2147483647 - 1);
    EXPECT_FALSE(StringConvToInteger(W("-80000001"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
    EXPECT_FALSE(StringConvToInteger(W("80000000"), v, (unsigned short)0, 2147483647, 134217727, 16, true));
}

TEST(NeutralInteger, IteratorFormRefusesBlanksAndStopsAtEndOrTerminator)
{
    long v;
    EXPECT_TRUE(parseIter("12.9", v));
    EXPECT_EQ(v, 12);
    EXPECT_FALSE(parseIter("12 34", v));
    EXPECT_EQ(v, 0);
    EXPECT_TRUE(parseIter("-2147483648", v));
    EXPECT_EQ(v, -2147483647l - 1);
    EXPECT_FALSE(parseIter("2147483648", v));
    // Each iterator overload carries its own limits.
    unsigned long ul;
    EXPECT_TRUE(parseIter("4294967295", ul));
    EXPECT_EQ(ul, 4294967295ul);
    EXPECT_FALSE(parseIter("-1", ul));
    long long ll;
    EXPECT_TRUE(parseIter("-9223372036854775808", ll));
    EXPECT_EQ(ll, std::numeric_limits<long long>::min());
    unsigned short us;
    EXPECT_TRUE(parseIter("65535", us));
    EXPECT_FALSE(parseIter("65536", us));
    short sh;
    EXPECT_TRUE(parseIter("-32768", sh));
    EXPECT_EQ(sh, -32768);

    // A sub-range: only [begin, end) is read.
    const SAsciiString s("12345");
    SAsciiString::iterator b = s.begin(), e = s.begin();
    ++b;
    e += 3;
    EXPECT_TRUE(NeutralString::ToNumber(b, e, v));
    EXPECT_EQ(v, 23);
    // An empty range and a reversed one read as 0.
    EXPECT_TRUE(NeutralString::ToNumber(e, e, v));
    EXPECT_EQ(v, 0);
    EXPECT_TRUE(NeutralString::ToNumber(e, b, v));
    EXPECT_EQ(v, 0);
    // An end beyond the terminator: the terminator is an invalid digit.
    const SAsciiString shortText("12");
    const SAsciiString::iterator past(shortText.data() + 3);
    EXPECT_FALSE(NeutralString::ToNumber(shortText.begin(), past, v));
}

TEST(NeutralInteger, FormatsInEveryRadixAndType)
{
    char buf[80];
    unsigned short wbuf[80];
    EXPECT_EQ(StringConvFromInteger(buf, -255, 16), 8);
    EXPECT_STREQ(buf, "FFFFFF01");
    // long in another radix shows the platform's width of long.
    EXPECT_EQ(StringConvFromInteger(buf, -1l, 16), static_cast<long>(2 * sizeof(long)));
    EXPECT_EQ(StringConvFromInteger(buf, 0, 10), 1);
    EXPECT_STREQ(buf, "0");
    EXPECT_EQ(StringConvFromInteger(buf, 35, 36), 1);
    EXPECT_STREQ(buf, "Z");
    EXPECT_EQ(StringConvFromInteger(buf, (signed char)-1, 16), 2);
    EXPECT_STREQ(buf, "FF");
    EXPECT_EQ(StringConvFromInteger(buf, std::numeric_limits<long long>::min(), 10), 20);
    EXPECT_STREQ(buf, "-9223372036854775808");
    EXPECT_EQ(StringConvFromInteger(buf, ~0ull, 2), 64);
    EXPECT_EQ(StringConvFromInteger(buf, 7, 1), 0);
    EXPECT_STREQ(buf, "");

    EXPECT_EQ(StringConvFromInteger(wbuf, (short)-32768, 10), 6);
    EXPECT_EQ(narrow(SWCharString(wbuf)), "-32768");
    EXPECT_EQ(StringConvFromInteger(wbuf, 48879u, 16), 4);
    EXPECT_EQ(narrow(SWCharString(wbuf)), "BEEF");

    // Each type's own overload: a cast to the wrong width shows at its extremes.
    EXPECT_EQ(narrow(NeutralString::FromNumber((signed char)-128)), "-128");
    EXPECT_EQ(narrow(NeutralString::FromNumber((unsigned char)255)), "255");
    EXPECT_EQ(narrow(NeutralString::FromNumber((short)-32768)), "-32768");
    EXPECT_EQ(narrow(NeutralString::FromNumber((unsigned short)65535)), "65535");
    EXPECT_EQ(narrow(NeutralString::FromNumber(4294967295u)), "4294967295");
    EXPECT_EQ(narrow(NeutralString::FromNumber(std::numeric_limits<long>::min())),
              std::to_string(std::numeric_limits<long>::min()));
    EXPECT_EQ(narrow(NeutralString::FromNumber(std::numeric_limits<unsigned long>::max())),
              std::to_string(std::numeric_limits<unsigned long>::max()));
    EXPECT_EQ(narrow(NeutralString::FromNumber(std::numeric_limits<long long>::min())),
              "-9223372036854775808");
    EXPECT_EQ(narrow(NeutralString::FromNumber(~0ull)), "18446744073709551615");

    // Every decimal text parses back; random values of each width.
    std::mt19937_64 rng(7);
    for (int i = 0; i < 20000; ++i) {
        const long long x = static_cast<long long>(rng()) >> (rng() % 64);
        long long back = 0;
        ASSERT_TRUE(NeutralString::ToNumber(NeutralString::FromNumber(x), back));
        ASSERT_EQ(back, x);
        const int y = static_cast<int>(x);
        int iback = 0;
        ASSERT_TRUE(NeutralString::ToNumber(NeutralString::FromNumber(y), iback));
        ASSERT_EQ(iback, y);
    }
}

TEST(NeutralReal, SignsBlanksMantissaAndTrailingText)
{
    double d;
    const struct { const char* text; double value; } ok[] = {
        {"5", 5}, {"+5", 5}, {" 5", 5}, {"\t 5", 5}, {"- 3.5", -3.5}, {" + \t2", 2},
        {"3.5kg", 3.5}, {"5.", 5}, {".5", 0.5}, {"-.25", -0.25}, {"0.1", 0.1},
        {"1e3", 1000}, {"1E3", 1000}, {"1e+3", 1000}, {"1 e 3", 1000}, {"1e - 3", 0.001},
        {"2.5e-3x", 0.0025}, {"1,5", 1}, {"12 34", 12}, {"007", 7}, {"0.000", 0},
        {"123.456", 123.456}, {"1e308", 1e308}, {"1e-308", 1e-308},
        {"1.7976931348623157e308", DBL_MAX}, {"4.9406564584124654e-324", 0},
        {"123e-310", 0}, {"1e-400", 0}, {"12345678901234567890123", 1.234567890123456789e22},
    };
    for (const auto& c : ok) {
        EXPECT_TRUE(parse(c.text, d)) << c.text;
        EXPECT_EQ(d, c.value) << c.text;
    }
    const char* bad[] = {"", " ", "-", "+", ".", "-.", "e5", "5e", "5e+", "5 e -", "1e309",
                         "0e309", "abc", "--5", "+-5", ". 5", "3.5 each", "1e99999999999999999999"};
    for (const char* t : bad) {
        EXPECT_FALSE(parse(t, d)) << t;
        EXPECT_EQ(d, 99) << t; // unchanged
    }
    // Signed zeros survive; overflow of the product is an infinity.
    EXPECT_TRUE(parse("-0", d));
    EXPECT_TRUE(std::signbit(d));
    EXPECT_TRUE(parse("-1e-400", d));
    EXPECT_TRUE(std::signbit(d) && d == 0);
    EXPECT_TRUE(parse("2e308", d));
    EXPECT_TRUE(std::isinf(d) && d > 0);
    EXPECT_TRUE(parse("-99999999999999999999e300", d));
    EXPECT_TRUE(std::isinf(d) && d < 0);

    // U+3000 is a blank for the wide form only.
    SWCharString ideo;
    ideo += SWCharString::Char(static_cast<unsigned short>(0x3000));
    ideo += W("-2.5");
    EXPECT_TRUE(NeutralString::ToNumber(ideo, d));
    EXPECT_EQ(d, -2.5);
    // A digit beyond 8 bits is not a digit.
    SWCharString fullwidth = W("1");
    fullwidth += SWCharString::Char(static_cast<unsigned short>(0xFF10 + 2));
    EXPECT_TRUE(NeutralString::ToNumber(fullwidth, d));
    EXPECT_EQ(d, 1);
}

TEST(NeutralReal, KeepsTwentySignificantDigitsAndCountsTheRest)
{
    double d;
    // The 21st and later digits only scale: they are not rounded in.
    const std::string zeros19(19, '0'), zeros20(20, '0');
    EXPECT_TRUE(parse(("1" + zeros20 + "9").c_str(), d));
    EXPECT_EQ(d, 1e21);
    EXPECT_TRUE(parse(("0.1" + zeros19 + "999").c_str(), d));
    EXPECT_EQ(d, 0.1);
    EXPECT_TRUE(parse(("1" + zeros20 + zeros20).c_str(), d));
    EXPECT_EQ(d, 1e40);
    EXPECT_TRUE(parse(("0." + std::string(79, '0') + "1").c_str(), d));
    EXPECT_EQ(d, 1e-80);
    // Leading zeros, also after the point, count neither as kept digits nor against 20.
    EXPECT_TRUE(parse((zeros20 + zeros20 + "12345678901234567890").c_str(), d));
    EXPECT_EQ(d, 12345678901234567890.0);
    EXPECT_TRUE(parse(("0." + std::string(26, '0') + "12345678901234567890e30").c_str(), d));
    EXPECT_EQ(d, 1234.5678901234567890);
    // The exponent applies to the kept digits read as an integer: the limits of 308 bind
    // on that exponent, so long texts of tiny numbers read as 0 and 1e-308 is the floor.
    EXPECT_TRUE(parse("1.2345678901234567e-300", d));
    EXPECT_EQ(d, 0);
    EXPECT_TRUE(parse("1.23e-300", d));
    EXPECT_EQ(d, 1.23e-300);
    EXPECT_TRUE(parse("11e-309", d));
    EXPECT_EQ(d, 0);
    EXPECT_TRUE(parse("10e-309", d));   // its trailing zero moves into the exponent
    EXPECT_EQ(d, 1e-308);
    EXPECT_TRUE(parse("0.1e-307", d));
    EXPECT_EQ(d, 1e-308);
    // Trailing zeros of the kept digits fold into the exponent: 1000e306 is 1e309.
    EXPECT_FALSE(parse("1000e306", d));
    EXPECT_TRUE(parse("1.5e308", d));
    EXPECT_EQ(d, 1.5e308);

    // float: rounded from the double; infinity beyond its range.
    float f;
    EXPECT_TRUE(parse("3.4028234663852886e38", f));
    EXPECT_EQ(f, FLT_MAX);
    EXPECT_TRUE(parse("1e39", f));
    EXPECT_TRUE(std::isinf(f));
    EXPECT_TRUE(parse("-1e39", f));
    EXPECT_TRUE(std::isinf(f) && f < 0);
    EXPECT_TRUE(parse("0.1", f));
    EXPECT_EQ(f, 0.1f);
    EXPECT_FALSE(parse("x", f));
    EXPECT_EQ(f, 99); // unchanged
}

TEST(NeutralReal, EveryStringAndIteratorInstantiation)
{
    double d = 0;
    float f = 0;
    EXPECT_TRUE(NeutralStringToReal(SAnsiString("-1.25e1"), d, 'a'));
    EXPECT_EQ(d, -12.5);
    EXPECT_TRUE(NeutralStringToReal(SAnsiString("0.5"), f, 'a'));
    EXPECT_EQ(f, 0.5f);
    EXPECT_TRUE(NeutralStringToReal(W("7e-1"), d, (unsigned short)0));
    EXPECT_EQ(d, 0.7);
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
    d = 3;
    EXPECT_FALSE(NeutralString::ToNumber(s.begin(), s.begin(), d));
    EXPECT_EQ(d, 3);
}

// The shortest round trip through our own parser, compared with std::to_chars.
TEST(NeutralReal, FromNumberReadsBackIdenticallyAndMatchesToChars)
{
    std::vector<double> sample;
    std::mt19937_64 rng(20240611);
    for (int i = 0; i < 300000; ++i)
        sample.push_back(fromBits(rng()));                        // all exponents
    for (int i = 0; i < 20000; ++i)
        sample.push_back(fromBits(rng() & 0x800FFFFFFFFFFFFFull)); // subnormals
    for (int i = 0; i < 50000; ++i)
        sample.push_back(static_cast<double>(rng() >> (11 + rng() % 53)) * (i % 2 ? -1 : 1));
    for (int i = 0; i < 50000; ++i) {                             // short decimals
        const double v = static_cast<double>(rng() % 2000001) / 1000.0 - 1000.0;
        sample.push_back(v);
    }
    for (int e = -330; e <= 308; ++e) {
        char text[16];
        std::snprintf(text, sizeof text, "1e%d", e);
        const double p = std::strtod(text, nullptr);
        sample.push_back(p);
        sample.push_back(-p);
        sample.push_back(std::nextafter(p, 0.0));
        sample.push_back(std::nextafter(p, HUGE_VAL));
    }
    const double special[] = {0.0, -0.0, DBL_MAX, -DBL_MAX, DBL_MIN, -DBL_MIN, DBL_TRUE_MIN,
                              9007199254740992.0, 9007199254740993.0, 0.1, 1.0 / 3, 5e-324,
                              2.2250738585072009e-308, 1e23, 1.7976931348623155e308};
    for (double v : special)
        sample.push_back(v);

    long total = 0, exact = 0, sameAsToChars = 0, toCharsExact = 0, differ = 0, closest = 0;
    for (double v : sample) {
        if (std::isnan(v) || std::isinf(v))
            continue;
        ++total;
        const SWCharString ours = NeutralString::FromNumber(v);
        const std::string text = narrow(ours);
        ASSERT_EQ(narrow(W(NeutralString::FromNumberToAscii(v).data())), text);
        double back = 12345;
        ASSERT_TRUE(NeutralString::ToNumber(ours, back)) << text;
        const std::string tc = toChars(v);
        double tcBack = 0;
        const bool tcReads = NeutralString::ToNumber(W(tc.c_str()), tcBack) &&
                             bitsOf(tcBack) == bitsOf(v);
        if (bitsOf(back) == bitsOf(v)) {
            ++exact;
        } else {
            // No exact reading exists only at the low edge of the exponent range.
            ASSERT_LT(std::fabs(v), 1e-292) << text << " for " << tc;
            ++closest;
            // The reading must be at least as close as the one of to_chars' own text.
            const double dOurs = std::fabs(back - v);
            ASSERT_LE(dOurs, std::fabs(tcBack - v)) << text << " for " << tc;
        }
        if (tcReads) {
            ++toCharsExact;
            ASSERT_EQ(text, tc);
        }
        if (text == tc)
            ++sameAsToChars;
        else
            ++differ;
    }
    std::printf("FromNumber(double): %ld values, %ld read back exactly, %ld identical to "
                "std::to_chars (to_chars read back exactly: %ld), %ld differ; %ld below 1e-292 "
                "written as the closest readable text\n",
                total, exact, sameAsToChars, toCharsExact, differ, closest);
    // Values the parser can read exactly are never left behind.
    EXPECT_EQ(toCharsExact, sameAsToChars);
}

TEST(NeutralReal, FormattingEdges)
{
    EXPECT_EQ(narrow(NeutralString::FromNumber(0.0)), "0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(-0.0)), "-0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(1e5)), "1e+05");
    // Below the smallest readable magnitude: 0 or 1e-308, whichever is closer.
    EXPECT_EQ(narrow(NeutralString::FromNumber(DBL_TRUE_MIN)), "0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(-DBL_TRUE_MIN)), "-0");
    EXPECT_EQ(narrow(NeutralString::FromNumber(9e-309)), "1e-308");
    // DBL_MIN needs 17 digits but only 1 fits above the exponent floor.
    EXPECT_EQ(narrow(NeutralString::FromNumber(DBL_MIN)), "2e-308");
    // Infinities round-trip; NaN has no neutral form and is rejected on reading.
    double d = 0;
    EXPECT_EQ(narrow(NeutralString::FromNumber(HUGE_VAL)), "2e+308");
    EXPECT_TRUE(NeutralString::ToNumber(NeutralString::FromNumber(-HUGE_VAL), d));
    EXPECT_TRUE(std::isinf(d) && d < 0);
    const SWCharString nan = NeutralString::FromNumber(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(narrow(nan), "nan");
    d = 1;
    EXPECT_FALSE(NeutralString::ToNumber(nan, d));
    EXPECT_EQ(d, 1);
    EXPECT_EQ(std::string(NeutralString::FromNumberToAscii(-2.5).data()), "-2.5");
    // float values go through the double overload.
    EXPECT_EQ(narrow(NeutralString::FromNumber(0.1f)), "0.10000000149011612");
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
    int i = 0;
    EXPECT_TRUE(parse("1.234", i));
    EXPECT_EQ(i, 1);
    EXPECT_EQ(narrow(NeutralString::FromNumber(1234.5)), "1234.5");
    EXPECT_EQ(narrow(NeutralString::FromNumber(1234567)), "1234567");
    EXPECT_EQ(std::string(NeutralString::FromNumberToAscii(3.25e100).data()), "3.25e+100");

    std::mt19937_64 rng(3);
    for (int k = 0; k < 20000; ++k) {
        const double v = fromBits(rng());
        if (std::isnan(v) || std::fabs(v) < 1e-292)
            continue;
        const SWCharString s = NeutralString::FromNumber(v);
        ASSERT_EQ(narrow(s), toChars(v));
        ASSERT_TRUE(NeutralString::ToNumber(s, d));
        ASSERT_EQ(bitsOf(d), bitsOf(v));
    }
}
