// Locale-neutral number parsing and formatting.
//
// Nothing here consults the C locale: digits, signs, the point and the exponent letter are
// compared as code units, and doubles are formatted through std::to_chars, which is
// locale-independent by definition.
#include "vardo/neutralstr.h"

#include <charconv>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

// The exact product error terms and the single-rounding arguments below assume that every
// double operation rounds to 53 bits. 32-bit x86 GCC evaluates on the x87 stack in extended
// precision instead, so there the arithmetic is moved to SSE2.
#if defined(__i386__) && defined(__GNUC__) && !defined(__clang__)
#define VARDO_DOUBLE_MATH __attribute__((target("sse2,fpmath=sse")))
#else
#define VARDO_DOUBLE_MATH
#endif

namespace Vardo400 {

const double NeutralString::PowArray[309] = {
    1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9,
    1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19,
    1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29,
    1e30, 1e31, 1e32, 1e33, 1e34, 1e35, 1e36, 1e37, 1e38, 1e39,
    1e40, 1e41, 1e42, 1e43, 1e44, 1e45, 1e46, 1e47, 1e48, 1e49,
    1e50, 1e51, 1e52, 1e53, 1e54, 1e55, 1e56, 1e57, 1e58, 1e59,
    1e60, 1e61, 1e62, 1e63, 1e64, 1e65, 1e66, 1e67, 1e68, 1e69,
    1e70, 1e71, 1e72, 1e73, 1e74, 1e75, 1e76, 1e77, 1e78, 1e79,
    1e80, 1e81, 1e82, 1e83, 1e84, 1e85, 1e86, 1e87, 1e88, 1e89,
    1e90, 1e91, 1e92, 1e93, 1e94, 1e95, 1e96, 1e97, 1e98, 1e99,
    1e100, 1e101, 1e102, 1e103, 1e104, 1e105, 1e106, 1e107, 1e108, 1e109,
    1e110, 1e111, 1e112, 1e113, 1e114, 1e115, 1e116, 1e117, 1e118, 1e119,
    1e120, 1e121, 1e122, 1e123, 1e124, 1e125, 1e126, 1e127, 1e128, 1e129,
    1e130, 1e131, 1e132, 1e133, 1e134, 1e135, 1e136, 1e137, 1e138, 1e139,
    1e140, 1e141, 1e142, 1e143, 1e144, 1e145, 1e146, 1e147, 1e148, 1e149,
    1e150, 1e151, 1e152, 1e153, 1e154, 1e155, 1e156, 1e157, 1e158, 1e159,
    1e160, 1e161, 1e162, 1e163, 1e164, 1e165, 1e166, 1e167, 1e168, 1e169,
    1e170, 1e171, 1e172, 1e173, 1e174, 1e175, 1e176, 1e177, 1e178, 1e179,
    1e180, 1e181, 1e182, 1e183, 1e184, 1e185, 1e186, 1e187, 1e188, 1e189,
    1e190, 1e191, 1e192, 1e193, 1e194, 1e195, 1e196, 1e197, 1e198, 1e199,
    1e200, 1e201, 1e202, 1e203, 1e204, 1e205, 1e206, 1e207, 1e208, 1e209,
    1e210, 1e211, 1e212, 1e213, 1e214, 1e215, 1e216, 1e217, 1e218, 1e219,
    1e220, 1e221, 1e222, 1e223, 1e224, 1e225, 1e226, 1e227, 1e228, 1e229,
    1e230, 1e231, 1e232, 1e233, 1e234, 1e235, 1e236, 1e237, 1e238, 1e239,
    1e240, 1e241, 1e242, 1e243, 1e244, 1e245, 1e246, 1e247, 1e248, 1e249,
    1e250, 1e251, 1e252, 1e253, 1e254, 1e255, 1e256, 1e257, 1e258, 1e259,
    1e260, 1e261, 1e262, 1e263, 1e264, 1e265, 1e266, 1e267, 1e268, 1e269,
    1e270, 1e271, 1e272, 1e273, 1e274, 1e275, 1e276, 1e277, 1e278, 1e279,
    1e280, 1e281, 1e282, 1e283, 1e284, 1e285, 1e286, 1e287, 1e288, 1e289,
    1e290, 1e291, 1e292, 1e293, 1e294, 1e295, 1e296, 1e297, 1e298, 1e299,
    1e300, 1e301, 1e302, 1e303, 1e304, 1e305, 1e306, 1e307, 1e308,
};

// Internals shared by the parsers and the formatter; a friend of NeutralString so that
// both read the one table of powers.
struct NeutralStringDetail {
    // A scanned real: the kept significant digits and the decimal exponent that applies
    // to them read as an integer.
    struct Scanned {
        uint64_t mant;      // the first kept digits, at most 19 of them
        int count;          // kept digits, at most 20
        int last;           // the 20th kept digit
        long long exponent; // decimal exponent of the kept digits as an integer
        bool negative;
    };

    static const double* powers() { return NeutralString::PowArray; }
    static bool compose(const Scanned& s, double& out);
    static double multiplyPower(double mh, double ml, int e);
    static double dividePower(double mh, double ml, int k);
    // out must hold 48 characters.
    static int formatDouble(double value, char* out);
    static int formatFallback(double value, char* out);
    static bool roundUp(unsigned short* digits, int count)
    {
        return NeutralString::RoundUpHelper(digits, count);
    }
};

namespace {

const uint64_t kPow10u[20] = {
    1ull, 10ull, 100ull, 1000ull, 10000ull, 100000ull, 1000000ull, 10000000ull,
    100000000ull, 1000000000ull, 10000000000ull, 100000000000ull, 1000000000000ull,
    10000000000000ull, 100000000000000ull, 1000000000000000ull, 10000000000000000ull,
    100000000000000000ull, 1000000000000000000ull, 10000000000000000000ull};

const char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The code of one unit as an unsigned value: a char above 127 is not negative.
template <class Unit> inline unsigned int codeOf(Unit u)
{
    return static_cast<unsigned int>(static_cast<typename std::make_unsigned<Unit>::type>(u));
}

inline bool sameDouble(double a, double b)
{
    // Through memory: also compares the sign of zero, and drops any excess precision.
    uint64_t x, y;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    return x == y;
}

// ---- integers ------------------------------------------------------------------------------

// Shared by both integer forms; IteratorForm selects the iterator form's deliberate
// differences (blank not a terminator, no x skipping, reversed letter mapping). Never reads
// at or past end, nor past a 0 unit (an invalid digit).
template <bool IteratorForm, class T, class Unit>
inline bool parseInteger(const Unit* p, const Unit* end, T& out, T max, T maxDivRadix,
                         int radix, bool negativeAllowed)
{
    // Accumulate unsigned: a negative number may reach max + 1 before it is negated.
    typedef typename std::make_unsigned<T>::type U;
    typedef typename std::conditional<(sizeof(U) < sizeof(unsigned int)), unsigned int, U>::type W;
    out = 0;
    if (!p || !end || p >= end)
        return true;
    bool negative = false;
    if (codeOf(*p) == '-') {
        if (!negativeAllowed)
            return false;
        negative = true;
        ++p;
    }
    const W wmax = static_cast<W>(max);
    const W wdiv = static_cast<W>(maxDivRadix);
    const W wradix = static_cast<W>(radix);
    W acc = 0;
    const Unit* const first = p;
    for (; p < end; ++p) {
        const unsigned int c = codeOf(*p);
        int d = static_cast<int>(c) - '0';
        if (d < 0 || d >= radix) {
            if (c == '.')
                break;
            if (!IteratorForm) {
                // A blank ends a number, but a text may not start with one.
                if (c == ' ' && p != first)
                    break;
                if (radix == 16 && (c == 'x' || c == 'X'))
                    continue;
            }
            if (radix <= 10)
                return false;
            if (IteratorForm)
                d = d <= 48 ? d - 39 : d - 7;
            else
                d = d < 49 ? d - 7 : d - 39;
            if (d < 0 || d >= radix)
                return false;
        }
        const W wd = static_cast<W>(d);
        if (acc > wdiv) {
            // One past max / radix is let through for a negative number: with a radix that
            // divides max + 1 (16 for "-80000000") the minimum is reached that way. Anything
            // that would pass the minimum fails.
            if (!(negative && acc - 1 <= wdiv) || acc * wradix + wd - 1 > wmax)
                return false;
        } else if (acc * wradix > wmax - wd) {
            if (!(negative && acc * wradix <= wmax - wd + 1))
                return false;
        }
        acc = acc * wradix + wd;
    }
    out = static_cast<T>(negative ? static_cast<W>(0 - acc) : acc);
    return true;
}

// Digits of u in radix (at least 2), most significant first, no terminator; returns count.
template <class CharT, class U>
inline int writeUnsigned(CharT* out, U value, unsigned int radix)
{
    CharT tmp[72];
    CharT* const stop = tmp + sizeof tmp / sizeof tmp[0];
    CharT* q = stop;
    if (radix == 10) {
        typename std::conditional<(sizeof(U) < sizeof(unsigned int)), unsigned int, U>::type u = value;
        while (u >= 100) {
            const unsigned int r = static_cast<unsigned int>(u % 100) * 2;
            u /= 100;
            q -= 2;
            q[0] = static_cast<CharT>(kDigitPairs[r]);
            q[1] = static_cast<CharT>(kDigitPairs[r + 1]);
        }
        if (u >= 10) {
            const unsigned int r = static_cast<unsigned int>(u) * 2;
            q -= 2;
            q[0] = static_cast<CharT>(kDigitPairs[r]);
            q[1] = static_cast<CharT>(kDigitPairs[r + 1]);
        } else {
            *--q = static_cast<CharT>('0' + static_cast<unsigned int>(u));
        }
    } else {
        U u = value;
        do {
            const unsigned int digit = static_cast<unsigned int>(u % radix);
            u = static_cast<U>(u / radix);
            *--q = static_cast<CharT>(digit < 10 ? '0' + digit : 'A' + (digit - 10));
        } while (u != 0);
    }
    const int n = static_cast<int>(stop - q);
    for (int i = 0; i < n; ++i)
        out[i] = q[i];
    return n;
}

template <class CharT, class T>
inline long formatInteger(CharT* buffer, T value, int radix)
{
    typedef typename std::make_unsigned<T>::type U;
    if (radix < 2) {
        buffer[0] = 0;
        return 0;
    }
    CharT* p = buffer;
    U u = static_cast<U>(value);
    if constexpr (std::is_signed<T>::value) {
        if (value < 0 && radix == 10) {
            *p++ = static_cast<CharT>('-');
            u = static_cast<U>(0 - u);
        }
    }
    p += writeUnsigned(p, u, static_cast<unsigned int>(radix));
    *p = 0;
    return static_cast<long>(p - buffer);
}

// ---- reals ---------------------------------------------------------------------------------

inline bool isRealBlank(unsigned int c)
{
    return c == 0x20 || c == 0x09 || c == 0x3000;
}

inline void keepDigit(NeutralStringDetail::Scanned& s, unsigned int d)
{
    if (s.count < 19)
        s.mant = s.mant * 10 + d;
    else
        s.last = static_cast<int>(d);
    ++s.count;
}

template <class Unit> inline bool digitAt(const Unit* p, const Unit* end, unsigned int& d)
{
    if (p >= end)
        return false;
    d = codeOf(*p) - '0';
    return d <= 9;
}

// Reads digits at p into s, at most up to the 19th kept digit; returns how many.
template <class Unit>
inline long long keepDigits(const Unit*& p, const Unit* end, NeutralStringDetail::Scanned& s)
{
    const Unit* const from = p;
    const Unit* const limit = end - p > 19 - s.count ? p + (19 - s.count) : end;
    uint64_t mant = s.mant;
    unsigned int d;
    while (p < limit && (d = codeOf(*p) - '0') <= 9) {
        mant = mant * 10 + d;
        ++p;
    }
    s.mant = mant;
    s.count += static_cast<int>(p - from);
    return p - from;
}

// Scans [p, end) (stopping also at a 0 unit, which matches nothing). False when the text
// has no mantissa or an exponent letter without digits.
template <class Unit>
inline bool scanReal(const Unit* p, const Unit* end, NeutralStringDetail::Scanned& s)
{
    s.mant = 0;
    s.count = 0;
    s.last = 0;
    s.exponent = 0;
    s.negative = false;
    if (!p || !end)
        return false;
    while (p < end && isRealBlank(codeOf(*p)))
        ++p;
    if (p < end && (codeOf(*p) == '-' || codeOf(*p) == '+')) {
        s.negative = codeOf(*p) == '-';
        ++p;
    }
    while (p < end && isRealBlank(codeOf(*p)))
        ++p;

    unsigned int d;
    long long shift = 0;
    // Integer part: leading zeros count for nothing; digits beyond the 20 kept ones
    // only scale.
    const Unit* const intStart = p;
    while (p < end && codeOf(*p) == '0')
        ++p;
    if (keepDigits(p, end, s) > 0 && s.count == 19 && digitAt(p, end, d)) {
        keepDigit(s, d);
        ++p;
        const Unit* const beyond = p;
        while (digitAt(p, end, d))
            ++p;
        shift += p - beyond;
    }
    bool anyDigit = p != intStart;
    if (p < end && codeOf(*p) == '.') {
        ++p;
        // Fraction: every digit up to the last kept one moves the point, leading zeros
        // included; digits beyond the 20 kept ones are dropped.
        const Unit* const fracStart = p;
        if (s.count == 0) {
            while (p < end && codeOf(*p) == '0')
                ++p;
            shift -= p - fracStart;
        }
        if (s.count < 19)
            shift -= keepDigits(p, end, s);
        if (s.count == 19 && digitAt(p, end, d)) {
            keepDigit(s, d);
            --shift;
            ++p;
        }
        while (digitAt(p, end, d))
            ++p;
        anyDigit = anyDigit || p != fracStart;
    }
    if (!anyDigit)
        return false;

    while (p < end && isRealBlank(codeOf(*p)))
        ++p;
    if (p < end && (codeOf(*p) == 'e' || codeOf(*p) == 'E')) {
        ++p;
        while (p < end && isRealBlank(codeOf(*p)))
            ++p;
        bool negativeExponent = false;
        if (p < end && (codeOf(*p) == '-' || codeOf(*p) == '+')) {
            negativeExponent = codeOf(*p) == '-';
            ++p;
        }
        while (p < end && isRealBlank(codeOf(*p)))
            ++p;
        const Unit* const expStart = p;
        long long x = 0;
        for (; digitAt(p, end, d); ++p)
            if (x < 1000000000)     // saturate: far beyond any limit, never overflows
                x = x * 10 + d;
        if (p == expStart)
            return false;
        shift += negativeExponent ? -x : x;
    }
    s.exponent = shift;
    return true;
}

// The 20-digit integer mant * 10 + last (mant has 19 digits) as hi + lo, hi the nearest
// double and lo the exact rest.
VARDO_DOUBLE_MATH inline void twentyDigits(uint64_t mant, int last, double& hi, double& lo)
{
    // mant * 10 + last = 80q + t with t < 80, so a sixteenth of it is 5q + t / 16. The bits
    // below that are folded into the lowest bit, far below the rounding position, so the
    // one conversion rounds correctly.
    const uint64_t q = mant >> 3;
    const uint64_t t = (mant & 7) * 10 + static_cast<uint64_t>(last);
    const uint64_t w = 5 * q + (t >> 4);
    const double h = static_cast<double>(static_cast<long long>(w | ((t & 15) != 0 ? 1u : 0u)));
    const long long rounded = static_cast<long long>(h);
    hi = h * 16.0;
    lo = static_cast<double>(16 * (static_cast<long long>(w) - rounded) +
                             static_cast<long long>(t & 15));
}

// Veltkamp's split and Dekker's exact product error: a * b == p + error exactly, for
// operands below 2^996.
VARDO_DOUBLE_MATH inline void splitDouble(double a, double& hi, double& lo)
{
    const double c = 134217729.0 * a; // 2^27 + 1
    hi = c - (c - a);
    lo = a - hi;
}

VARDO_DOUBLE_MATH inline double productError(double a, double b, double p)
{
    double ah, al, bh, bl;
    splitDouble(a, ah, al);
    splitDouble(b, bh, bl);
    return ((ah * bh - p) + ah * bl + al * bh) + al * bl;
}

template <class R> inline R narrowReal(double v);
template <> inline double narrowReal<double>(double v) { return v; }
template <> inline float narrowReal<float>(double v)
{
    // At or beyond the midpoint between FLT_MAX and 2^128 the float is an infinity.
    if (std::fabs(v) >= 0x1.ffffffp127)
        return v < 0 ? -std::numeric_limits<float>::infinity()
                     : std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

template <class R, class Unit>
inline bool parseReal(const Unit* p, const Unit* end, R& out)
{
    NeutralStringDetail::Scanned s;
    double v;
    if (!scanReal(p, end, s) || !NeutralStringDetail::compose(s, v))
        return false;
    out = narrowReal<R>(v);
    return true;
}

} // namespace

namespace {

// 10^e - PowArray[e], rounded: the powers as double-double values for the scaling.
const double kPowLow[309] = {
    0.0, 0.0, 0.0, 0.0, 0.0, 0.0,
    0.0, 0.0, 0.0, 0.0, 0.0, 0.0,
    0.0, 0.0, 0.0, 0.0, 0.0, 0.0,
    0.0, 0.0, 0.0, 0.0, 0.0, 8388608.0,
    16777216.0, -905969664.0, -4764729344.0, -13287555072.0, 416880263168.0, 8566849142784.0,
    -19884624838656.0, 364103705034752.0, -5366162204393472.0, 5.442476901295718e+16, 5.4424769012957184e+17, 3.1366338920820244e+18,
    -4.242063737401796e+19, 4.6123734179787886e+20, 2.251190176543966e+21, 6.029083362839682e+22, -3.037860284270037e+23, -6.200086450407783e+23,
    -4.488571267807592e+25, -1.393721169594141e+26, -8.821361405306423e+27, 7.024271097546445e+28, 6.860180964052979e+28, -4.38458430450762e+30,
    -4.38458430450762e+31, 5.3509723052451824e+32, -7.629769841091887e+33, 6.779051325638372e+33, 6.779051325638372e+34, 6.779051325638373e+35,
    -7.829154040459625e+37, -1.0235067020408552e+38, -9.190283508143379e+39, -4.834669211555366e+40, 5.618805100255864e+41, 2.831211950439536e+42,
    5.061286470292598e+43, 5.061286470292598e+44, -3.5021996859431613e+45, -5.785795994272697e+46, -2.1320419009454396e+47, 7.909613737163662e+47,
    5.467766613175255e+49, 1.726322421608144e+50, 4.719477774861833e+51, -7.253143638152923e+52, -7.253143638152923e+53, -4.1881525564211456e+54,
    5.619818905120543e+55, 1.6966303205038675e+56, 4.8351811881972075e+57, 7.34602188235188e+58, -4.706013449590547e+59, 1.721738727445414e+60,
    -8.493621433689703e+60, 3.2643992499340446e+62, -2.6609864708367274e+61, 7.871812010433421e+64, 3.6593203436911345e+65, -3.0806663230965258e+66,
    -5.77666098981159e+67, -1.4630695230674873e+68, -1.4630695230674873e+69, 4.058327554364964e+70, 4.0583275543649637e+71, 5.246334248081951e+71,
    3.35158872845361e+73, -7.95623248612805e+74, -4.337729697461919e+75, -4.3377296974619187e+76, -2.0218879127155946e+77, -2.0218879127155947e+78,
    -4.9861653971908895e+79, -7.357587384771125e+80, 2.309629754856292e+80, 3.266383119588331e+82, -1.5902891109759918e+83, 2.295048673475466e+84,
    2.2950486734754662e+85, -1.915675085734669e+85, -1.9156750857346687e+86, 6.174169917471802e+88, -9.103599905036844e+89, 3.118615952970073e+90,
    -3.399899171300283e+91, 1.814912928116002e+92, -2.3569367514170256e+93, 4.318022735835818e+94, 6.988006530736956e+95, -1.5559416129466842e+96,
    -1.5559416129466843e+97, -1.5559416129466843e+98, -1.5559416129466843e+99, -5.0555427725995036e+100, 3.343500010567262e+101, 5.583244752745067e+102,
    1.9996531652605798e+103, -3.734093374714599e+104, -1.4405947587245274e+105, 2.229003026859587e+106, 5.1646812553268785e+107, 7.513223838100712e+108,
    7.513223838100712e+109, 4.5070893321502055e+110, -7.51744869165182e+111, 1.7825564358147585e+111, -5.978307824605161e+113, 8.797444499042768e+114,
    9.170432597638724e+114, -2.235117235947686e+116, 7.851796350329301e+117, 3.817030915818506e+118, -5.866406127007401e+119, -3.2841562489204925e+120,
    -3.2841562489204927e+121, -3.2841562489204925e+122, -5.928380124081487e+123, -1.697621923823896e+124, -5.082228484029969e+125, -2.3745432358651105e+126,
    -2.3745432358651106e+127, 1.091293881785908e+128, 6.636633270027537e+129, 2.200361759434234e+130, -4.897672657515052e+131, -4.897672657515052e+132,
    1.9164403827562624e+133, -1.717753238721772e+134, -4.6251081359041995e+135, 2.6659699587684626e+134, -3.6947545688058227e+137, -7.176231540910168e+137,
    1.6640819776808277e+139, 1.6640819776808279e+140, 4.712664546348789e+141, 7.151530601283158e+142, -6.528407745068227e+142, -3.774589324822815e+144,
    6.21500603618836e+145, 6.21500603618836e+146, -1.7833499485879184e+146, 1.0051010654816651e+149, 5.959272394946475e+149, -3.860899428741951e+150,
    6.613950516525703e+151, 6.613950516525703e+152, -3.441905430931245e+153, 4.602779327034313e+154, -8.2687162857105805e+155, -1.4039186255799706e+156,
    -6.895756753684458e+157, 6.284654753766313e+158, -7.44898050207432e+158, -7.44898050207432e+159, -5.243811844750628e+161, 1.954450226518486e+162,
    -9.248546019891598e+162, 8.288920849235307e+164, -6.453119872723839e+165, 5.340512704843477e+166, -1.735666841696913e+167, 2.0382955831246285e+168,
    2.0382955831246284e+169, 9.284303438781988e+170, -2.309309130269787e+171, -2.309309130269787e+172, -7.255917159731878e+173, -7.2559171597318776e+174,
    -4.09008802087614e+175, -6.622751331960731e+176, 5.534032561245304e+177, 2.292223523057028e+178, 4.885670753607649e+179, 4.885670753607649e+180,
    -1.75355415660194e+181, -9.720624048853447e+182, 3.0266877787489637e+183, -3.771878529305655e+184, 9.825254086803583e+185, 1.1230892124936706e+186,
    1.1230892124936706e+187, -1.6616035472855014e+188, -3.889357755108839e+189, -3.889357755108839e+190, 1.8136930169189052e+191, -7.311188218325486e+192,
    7.288621758065539e+193, 4.368659762787335e+194, 9.040598955232462e+195, 1.5654962473202578e+196, 4.55553733048514e+197, 9.33960306354895e+198,
    -2.142154695804196e+199, 3.9814494425174824e+200, -8.265758834125874e+201, 3.491561111451748e+202, 3.562757926310489e+202, -4.6601807174820695e+204,
    -4.66018071748207e+205, -4.6601807174820696e+206, 3.0450964820516807e+207, 7.154577655136347e+208, 3.866992716668614e+209, -9.28334703720232e+210,
    7.549087847752475e+211, 8.161138937705572e+211, -9.956644432600512e+213, -5.647541102052084e+214, -5.647541102052084e+215, 2.6259372926008967e+216,
    -1.7865845178806931e+217, -5.316601966265965e+218, -5.316601966265965e+219, 5.979453868566905e+220, -4.86475973287265e+221, 9.188208545617794e+221,
    -1.3946113804119925e+223, -5.096102956370027e+224, -5.0961029563700274e+225, -7.46505756498317e+226, -7.4650575649831695e+227, -4.432795665958348e+228,
    -6.858605185178205e+229, 4.785280507077112e+230, -4.529828046727142e+231, 7.89031669167853e+232, 7.89031669167853e+233, -4.827911520448878e+234,
    -9.915202805299841e+235, 6.364129306223241e+236, 6.364129306223241e+237, 1.1547430305358546e+238, -3.012765990014054e+239, -3.0127659900140542e+240,
    -5.679971763165996e+241, 7.122615947963324e+242, -6.5334776105746174e+243, 7.122615947963324e+244, -1.6172839295009582e+245, -1.6172839295009584e+246,
    -4.414051890289529e+247, -6.651466258920385e+248, -3.071603269111015e+249, 2.6561775145839772e+250, 2.6561775145839774e+251, -4.675381888545613e+252,
    -4.675381888545613e+253, 4.709014147460262e+254, -6.552261095746788e+255, 5.459765830340733e+256, 7.862171215558236e+257, 4.01832259921023e+258,
    -5.2069140800249854e+259, -2.8678785109953724e+259, 3.6493131320408215e+261, -5.797329227496039e+262, -3.27822459828621e+263, -3.2782245982862097e+264,
    -3.27822459828621e+265, 4.460464822646387e+266, -7.921438250845768e+267, 1.9840842079479558e+268, -3.2988611034086966e+269, -7.525217352494019e+270,
    -7.6304735395750355e+270, -6.172783352786716e+272, -6.172783352786716e+273, 4.2139097649653716e+274, -1.3256598978357416e+275, 7.53765156264604e+276,
    -6.64364677412481e+277, 1.8651322279376996e+278, 1.8651322279376996e+279, -1.765280146275638e+280, 4.043379652465702e+281, -5.250476025520442e+282,
    -5.250476025520442e+283, -5.250476025520442e+284, -7.629703079084895e+285, -1.6176507678645645e+284, 6.0746447494463536e+287, 6.074644749446354e+288,
    -1.7216064596736455e+289, 1.3968940239743542e+290, -1.0979063629440455e+291,
};

const double kTwo128 = 0x1p128;
const double kTwoMinus128 = 0x1p-128;

} // namespace

// (mh + ml) * 10^e for e in 1..308, from double-double operands with one final rounding.
VARDO_DOUBLE_MATH double NeutralStringDetail::multiplyPower(double mh, double ml, int e)
{
    double ph = powers()[e];
    double pl = kPowLow[e];
    const bool huge = e > 280;
    if (huge) {
        // Keep the operands below the split's limit; scaling by a power of two is exact.
        ph *= kTwoMinus128;
        pl *= kTwoMinus128;
    }
    const double p = mh * ph;
    const double v = p + (productError(mh, ph, p) + (mh * pl + ml * ph));
    return huge ? v * kTwo128 : v;
}

// (mh + ml) / 10^k for k in 0..308: the quotient corrected by its exact remainder.
VARDO_DOUBLE_MATH double NeutralStringDetail::dividePower(double mh, double ml, int k)
{
    double ph = powers()[k];
    double pl = kPowLow[k];
    const bool huge = k > 280;
    if (huge) {
        ph *= kTwoMinus128;
        pl *= kTwoMinus128;
    }
    const double q1 = mh / ph;
    const double t = q1 * ph;
    const double r = ((mh - t) - productError(q1, ph, t)) + (ml - q1 * pl);
    const double q = q1 + r / ph;
    return huge ? q * kTwoMinus128 : q;
}

VARDO_DOUBLE_MATH bool NeutralStringDetail::compose(const Scanned& s, double& out)
{
    // Trailing zeros of the kept digits are not summed: they move into the exponent.
    uint64_t m = s.mant;
    long long e = s.exponent;
    bool twenty = s.count == 20;
    if (twenty && s.last == 0) {
        twenty = false;
        ++e;
    }
    if (s.count > 0 && !twenty) {
        while (m % 10 == 0) {
            m /= 10;
            ++e;
        }
    }
    if (e > 308)
        return false;
    double v = 0.0;
    if (s.count > 0 && e >= -308) {
        // The kept digits as an exact integer mh + ml.
        double mh, ml = 0.0;
        if (!twenty) {
            mh = static_cast<double>(m);
            ml = static_cast<double>(static_cast<long long>(m - static_cast<uint64_t>(mh)));
        } else {
            twentyDigits(m, s.last, mh, ml);
        }
        if (ml == 0.0 && e >= -22 && e <= 22) {
            // Exact operands: the one operation rounds correctly.
            v = e < 1 ? mh / powers()[-e] : mh * powers()[e];
        } else {
            // The power or the digits are not exact doubles: scale in double-double
            // arithmetic so that the result is rounded once.
            v = e < 1 ? dividePower(mh, ml, static_cast<int>(-e))
                      : multiplyPower(mh, ml, static_cast<int>(e));
        }
    }
    out = s.negative ? -v : v;
    return true;
}

// ---- the formatter ---------------------------------------------------------------------------

namespace {

// Writes digits (characters '0'..'9', the first not '0', trailing zeros allowed) times
// 10^(x - count + 1) in the notation std::to_chars would choose: the shorter of the fixed
// and the exponent form, fixed on a tie. Returns the characters written (at most 28).
int writeDecimal(char* out, bool negative, const unsigned short* digits, int count, int x)
{
    while (count > 1 && digits[count - 1] == '0')
        --count;
    char* p = out;
    if (negative)
        *p++ = '-';
    const int absX = x < 0 ? -x : x;
    const int expDigits = absX >= 100 ? 3 : 2;
    const int sciLength = count + (count > 1 ? 1 : 0) + 2 + expDigits;
    int fixedLength;
    if (x >= count - 1)
        fixedLength = x + 1;
    else if (x >= 0)
        fixedLength = count + 1;
    else
        fixedLength = count + 1 - x;
    if (fixedLength <= sciLength) {
        if (x >= count - 1) {
            for (int i = 0; i < count; ++i)
                *p++ = static_cast<char>(digits[i]);
            for (int i = count; i <= x; ++i)
                *p++ = '0';
        } else if (x >= 0) {
            for (int i = 0; i < count; ++i) {
                *p++ = static_cast<char>(digits[i]);
                if (i == x)
                    *p++ = '.';
            }
        } else {
            *p++ = '0';
            *p++ = '.';
            for (int i = 1; i < -x; ++i)
                *p++ = '0';
            for (int i = 0; i < count; ++i)
                *p++ = static_cast<char>(digits[i]);
        }
    } else {
        *p++ = static_cast<char>(digits[0]);
        if (count > 1) {
            *p++ = '.';
            for (int i = 1; i < count; ++i)
                *p++ = static_cast<char>(digits[i]);
        }
        *p++ = 'e';
        *p++ = x < 0 ? '-' : '+';
        if (expDigits == 3)
            *p++ = static_cast<char>('0' + absX / 100);
        *p++ = static_cast<char>('0' + absX / 10 % 10);
        *p++ = static_cast<char>('0' + absX % 10);
    }
    return static_cast<int>(p - out);
}

// Adds delta units of the last place to the count digits; false when the result no
// longer has count digits with a non-zero first one.
bool addToDigits(unsigned short* digits, int count, long long delta)
{
    long long carry = delta;
    for (int i = count - 1; i >= 0 && carry != 0; --i) {
        long long d = (digits[i] - '0') + carry;
        long long r = d % 10;
        carry = d / 10;
        if (r < 0) {
            r += 10;
            --carry;
        }
        digits[i] = static_cast<unsigned short>('0' + r);
    }
    return carry == 0 && digits[0] != '0';
}

NeutralStringDetail::Scanned scannedFromDigits(const unsigned short* digits, int count, int x)
{
    NeutralStringDetail::Scanned s;
    s.mant = 0;
    s.count = 0;
    s.last = 0;
    s.exponent = x - (count - 1);
    s.negative = false;
    for (int i = 0; i < count; ++i)
        keepDigit(s, static_cast<unsigned int>(digits[i] - '0'));
    return s;
}

uint64_t bitsOf(double v)
{
    uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Reads what std::to_chars writes ([-]digits[.digits][e(+|-)digits], followed by a 0
// written as a stop) the way scanReal would, in one lean pass; false for texts of more than
// 19 significant digits (the exact integers of the fixed notation), which go to scanReal.
bool scanShortest(const char* p, NeutralStringDetail::Scanned& s)
{
    s.last = 0;
    s.negative = *p == '-';
    p += s.negative ? 1 : 0;
    while (*p == '0')
        ++p;
    uint64_t mant = 0;
    unsigned int d;
    const char* const intStart = p;
    while ((d = static_cast<unsigned int>(*p - '0')) <= 9) {
        mant = mant * 10 + d;
        ++p;
    }
    long long count = p - intStart;
    long long shift = 0;
    if (*p == '.') {
        const char* const fracStart = ++p;
        if (count == 0)
            while (*p == '0')
                ++p;
        const char* const keptStart = p;
        while ((d = static_cast<unsigned int>(*p - '0')) <= 9) {
            mant = mant * 10 + d;
            ++p;
        }
        count += p - keptStart;
        shift = fracStart - p;
    }
    if (count > 19)
        return false;
    if (*p == 'e') {
        // The exponent: a sign and two or three digits.
        const bool negative = p[1] == '-';
        p += 2;
        int x = 0;
        while ((d = static_cast<unsigned int>(*p - '0')) <= 9) {
            x = x * 10 + static_cast<int>(d);
            ++p;
        }
        shift += negative ? -x : x;
    }
    s.mant = mant;
    s.count = static_cast<int>(count);
    s.exponent = shift;
    return true;
}

} // namespace

int NeutralStringDetail::formatDouble(double value, char* out)
{
    if (std::isnan(value)) {
        std::memcpy(out, "nan", 3);
        return 3;
    }
    if (std::isinf(value)) {
        // 2 * 10^308 overflows in the parser, so this text reads back as the infinity.
        char* p = out;
        if (value < 0)
            *p++ = '-';
        std::memcpy(p, "2e+308", 6);
        return static_cast<int>(p - out) + 6;
    }
    const std::to_chars_result r = std::to_chars(out, out + 32, value);
    const int length = static_cast<int>(r.ptr - out);
    *r.ptr = 0;
    Scanned s;
    double back;
    if ((scanShortest(out, s) || scanReal(out, r.ptr, s)) && compose(s, back) &&
        sameDouble(back, value))
        return length;
    return formatFallback(value, out);
}

// For the values whose shortest correctly rounded text this parser reads as a neighbour:
// for each digit count from 1 to 20, start at the value rounded to that many digits and
// search the nearby texts of that length (the reading grows with the digits) for one that
// reads back exactly; failing all, write the text whose reading came closest.
int NeutralStringDetail::formatFallback(double value, char* out)
{
    const bool negative = std::signbit(value);
    const double a = std::fabs(value);

    Scanned smallest;
    smallest.mant = 1;
    smallest.count = 1;
    smallest.last = 0;
    smallest.exponent = -308;
    smallest.negative = false;
    double minReadable;
    compose(smallest, minReadable);
    if (a < minReadable) {
        // Only 0 and 1e-308 are readable down here.
        const unsigned short one = '1', zero = '0';
        if (minReadable - a < a)
            return writeDecimal(out, negative, &one, 1, -308);
        return writeDecimal(out, negative, &zero, 1, 0);
    }

    // 30 correctly rounded significant digits: far more than the 20 used, so rounding
    // them again to n digits is exact but in freak ties, which the search absorbs.
    char sci[64];
    const std::to_chars_result r =
        std::to_chars(sci, sci + sizeof sci, a, std::chars_format::scientific, 29);
    unsigned short exact[30];
    int nExact = 0;
    const char* p = sci;
    for (; p < r.ptr && *p != 'e'; ++p)
        if (*p >= '0' && *p <= '9' && nExact < 30)
            exact[nExact++] = static_cast<unsigned short>(*p);
    int x = 0;
    if (p < r.ptr) {
        ++p;
        const bool negativeX = *p == '-';
        ++p;
        for (; p < r.ptr; ++p)
            x = x * 10 + (*p - '0');
        if (negativeX)
            x = -x;
    }
    while (nExact < 30)
        exact[nExact++] = '0';

    const uint64_t target = bitsOf(a);
    uint64_t bestDistance = ~0ull;
    unsigned short best[20];
    int bestCount = 0, bestX = 0;

    // Digits beyond x + 309 would put the exponent below -308 and read as 0.
    const int maxDigits = x + 310 < 20 ? x + 310 : 20;
    for (int n = 1; n <= maxDigits; ++n) {
        unsigned short start[20];
        std::memcpy(start, exact, n * sizeof start[0]);
        int xn = x;
        bool up;
        if (exact[n] != '5') {
            up = exact[n] > '5';
        } else {
            up = (start[n - 1] - '0') % 2 != 0;
            for (int i = n + 1; i < 30; ++i)
                if (exact[i] != '0')
                    up = true;
        }
        if (up && roundUp(start, n)) {
            start[0] = '1';
            ++xn;
        }

        unsigned short cand[20];
        // The reading at start + delta; false when the digits leave the n-digit range.
        auto readAt = [&](long long delta, double& v) -> bool {
            std::memcpy(cand, start, n * sizeof cand[0]);
            if (!addToDigits(cand, n, delta))
                return false;
            const Scanned sc = scannedFromDigits(cand, n, xn);
            if (!compose(sc, v))
                v = std::numeric_limits<double>::infinity();
            const uint64_t b = bitsOf(v);
            const uint64_t distance = b > target ? b - target : target - b;
            if (distance < bestDistance) {
                bestDistance = distance;
                std::memcpy(best, cand, n * sizeof best[0]);
                bestCount = n;
                bestX = xn;
            }
            return true;
        };

        double v0;
        readAt(0, v0);
        if (bestDistance == 0)
            break;
        // Gallop away from start towards the value until the reading crosses it, then
        // bisect for the first text at or beyond it.
        const int dir = v0 < a ? 1 : -1;
        auto crossed = [&](double v) { return dir > 0 ? v >= a : v <= a; };
        long long lo = 0, hi = 0;
        bool found = false;
        for (int j = 0; j < 50; ++j) {
            const long long probe = dir * (1ll << j);
            double v;
            if (!readAt(probe, v))
                break;
            if (crossed(v)) {
                hi = probe;
                found = true;
                break;
            }
            lo = probe;
        }
        if (bestDistance == 0)
            break;
        if (found) {
            while (hi - lo > 1 || lo - hi > 1) {
                const long long mid = lo + (hi - lo) / 2;
                double v;
                readAt(mid, v);
                if (bestDistance == 0)
                    break;
                if (crossed(v))
                    hi = mid;
                else
                    lo = mid;
            }
        }
        if (bestDistance == 0)
            break;
    }
    return writeDecimal(out, negative, best, bestCount, bestX);
}

// ---- the templates ---------------------------------------------------------------------------

template <class StringT, class CharT, class T>
bool StringConvToInteger(const StringT& text, T& out, CharT, T max, T maxDivRadix, int radix,
                         bool negativeAllowed)
{
    const CharT* p = text.data();
    return parseInteger<false>(p, p + text.getLength(), out, max, maxDivRadix, radix,
                               negativeAllowed);
}

template <class IteratorT, class T>
bool StringConvToIntegerIterator(IteratorT begin, IteratorT end, T& out, T max, T maxDivRadix,
                                 int radix, bool negativeAllowed)
{
    return parseInteger<true>(begin.getPointer(), end.getPointer(), out, max, maxDivRadix,
                              radix, negativeAllowed);
}

template <class CharT, class T>
long StringConvFromInteger(CharT* buffer, T value, int radix)
{
    return formatInteger(buffer, value, radix);
}

template <class StringT, class CharT, class R>
bool NeutralStringToReal(const StringT& text, R& out, CharT)
{
    const CharT* p = text.data();
    return parseReal(p, p + text.getLength(), out);
}

template <class IteratorT, class R>
bool NeutralStringToRealIterator(IteratorT begin, IteratorT end, R& out)
{
    return parseReal(begin.getPointer(), end.getPointer(), out);
}

#define VARDO_NEUTRAL_INSTANTIATE_INT(T)                                                  \
    template VARDO_INSTANTIATION_API bool StringConvToInteger<SAnsiString, char, T>(      \
        const SAnsiString&, T&, char, T, T, int, bool);                                   \
    template VARDO_INSTANTIATION_API bool StringConvToInteger<SWCharString, unsigned short, T>( \
        const SWCharString&, T&, unsigned short, T, T, int, bool);                        \
    template VARDO_INSTANTIATION_API long StringConvFromInteger<char, T>(char*, T, int);  \
    template VARDO_INSTANTIATION_API long StringConvFromInteger<unsigned short, T>(       \
        unsigned short*, T, int);
VARDO_NEUTRAL_INTEGER_TYPES(VARDO_NEUTRAL_INSTANTIATE_INT)
#undef VARDO_NEUTRAL_INSTANTIATE_INT

#define VARDO_NEUTRAL_INSTANTIATE_ITER(T)                                                 \
    template VARDO_INSTANTIATION_API bool StringConvToIntegerIterator<SAsciiString::iterator, T>( \
        SAsciiString::iterator, SAsciiString::iterator, T&, T, T, int, bool);
VARDO_NEUTRAL_INSTANTIATE_ITER(short)
VARDO_NEUTRAL_INSTANTIATE_ITER(unsigned short)
VARDO_NEUTRAL_INSTANTIATE_ITER(long)
VARDO_NEUTRAL_INSTANTIATE_ITER(unsigned long)
VARDO_NEUTRAL_INSTANTIATE_ITER(long long)
#undef VARDO_NEUTRAL_INSTANTIATE_ITER

template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAnsiString, char, float>(const SAnsiString&, float&, char);
template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAnsiString, char, double>(const SAnsiString&, double&, char);
template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAsciiString, char, double>(const SAsciiString&, double&, char);
template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SWCharString, unsigned short, float>(const SWCharString&, float&,
                                                         unsigned short);
template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SWCharString, unsigned short, double>(const SWCharString&, double&,
                                                          unsigned short);
template VARDO_INSTANTIATION_API bool
NeutralStringToRealIterator<SAsciiString::iterator, float>(SAsciiString::iterator,
                                                           SAsciiString::iterator, float&);
template VARDO_INSTANTIATION_API bool
NeutralStringToRealIterator<SAsciiString::iterator, double>(SAsciiString::iterator,
                                                            SAsciiString::iterator, double&);

// ---- NeutralString ---------------------------------------------------------------------------

namespace {

template <class T>
inline bool wideToInteger(const SWCharString& text, T& out, T max, T maxDivRadix, bool negative)
{
    const unsigned short* p = text.data();
    return parseInteger<false>(p, p + text.getLength(), out, max, maxDivRadix, 10, negative);
}

template <class T>
inline bool asciiToInteger(const SAsciiString::iterator& begin, const SAsciiString::iterator& end,
                           T& out, T max, T maxDivRadix, bool negative)
{
    return parseInteger<true>(begin.getPointer(), end.getPointer(), out, max, maxDivRadix, 10,
                              negative);
}

template <class T>
inline SWCharString wideFromInteger(T value)
{
    unsigned short buffer[72];
    const long n = formatInteger(buffer, value, 10);
    SWCharString s;
    s.concat(buffer, static_cast<unsigned int>(n));
    return s;
}

const long long kInt64Max = 9223372036854775807ll;
const unsigned long long kUInt64Max = ~0ull;

} // namespace

bool NeutralString::ToNumber(const SWCharString& t, signed char& out)
{ return wideToInteger<signed char>(t, out, 127, 12, true); }
bool NeutralString::ToNumber(const SWCharString& t, unsigned char& out)
{ return wideToInteger<unsigned char>(t, out, 255, 25, false); }
bool NeutralString::ToNumber(const SWCharString& t, short& out)
{ return wideToInteger<short>(t, out, 32767, 3276, true); }
bool NeutralString::ToNumber(const SWCharString& t, unsigned short& out)
{ return wideToInteger<unsigned short>(t, out, 65535, 6553, false); }
bool NeutralString::ToNumber(const SWCharString& t, int& out)
{ return wideToInteger<int>(t, out, 2147483647, 214748364, true); }
bool NeutralString::ToNumber(const SWCharString& t, unsigned int& out)
{ return wideToInteger<unsigned int>(t, out, 4294967295u, 429496729u, false); }
bool NeutralString::ToNumber(const SWCharString& t, long& out)
{ return wideToInteger<long>(t, out, 2147483647l, 214748364l, true); }
bool NeutralString::ToNumber(const SWCharString& t, unsigned long& out)
{ return wideToInteger<unsigned long>(t, out, 4294967295ul, 429496729ul, false); }
bool NeutralString::ToNumber(const SWCharString& t, long long& out)
{ return wideToInteger<long long>(t, out, kInt64Max, kInt64Max / 10, true); }
bool NeutralString::ToNumber(const SWCharString& t, unsigned long long& out)
{ return wideToInteger<unsigned long long>(t, out, kUInt64Max, kUInt64Max / 10, false); }

bool NeutralString::ToNumber(const SWCharString& t, float& out)
{
    const unsigned short* p = t.data();
    return parseReal(p, p + t.getLength(), out);
}

bool NeutralString::ToNumber(const SWCharString& t, double& out)
{
    const unsigned short* p = t.data();
    return parseReal(p, p + t.getLength(), out);
}

bool NeutralString::ToNumber(const SAsciiString& t, double& out)
{
    const char* p = t.data();
    return parseReal(p, p + t.getLength(), out);
}

bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, long long& out)
{ return asciiToInteger<long long>(b, e, out, kInt64Max, kInt64Max / 10, true); }
bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, long& out)
{ return asciiToInteger<long>(b, e, out, 2147483647l, 214748364l, true); }
bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, unsigned long& out)
{ return asciiToInteger<unsigned long>(b, e, out, 4294967295ul, 429496729ul, false); }
bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, short& out)
{ return asciiToInteger<short>(b, e, out, 32767, 3276, true); }
bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, unsigned short& out)
{ return asciiToInteger<unsigned short>(b, e, out, 65535, 6553, false); }

bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, float& out)
{ return parseReal(b.getPointer(), e.getPointer(), out); }
bool NeutralString::ToNumber(SAsciiString::iterator b, SAsciiString::iterator e, double& out)
{ return parseReal(b.getPointer(), e.getPointer(), out); }

SWCharString NeutralString::FromNumber(signed char v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(unsigned char v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(short v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(unsigned short v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(unsigned int v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(unsigned long v) { return wideFromInteger(v); }
SWCharString NeutralString::FromNumber(unsigned long long v) { return wideFromInteger(v); }

SWCharString NeutralString::FromNumber(int v)
{
    unsigned short buffer[32];
    const int n = ToStringFrom64(buffer, v);
    SWCharString s;
    s.concat(buffer, static_cast<unsigned int>(n));
    return s;
}

SWCharString NeutralString::FromNumber(long v)
{
    unsigned short buffer[32];
    const int n = ToStringFrom64(buffer, v);
    SWCharString s;
    s.concat(buffer, static_cast<unsigned int>(n));
    return s;
}

SWCharString NeutralString::FromNumber(long long v)
{
    unsigned short buffer[32];
    const int n = ToStringFrom64(buffer, v);
    SWCharString s;
    s.concat(buffer, static_cast<unsigned int>(n));
    return s;
}

SWCharString NeutralString::FromNumber(double value)
{
    // Widened 32 at a time (the longest text is 28): a fixed count the compiler vectorises.
    char buffer[48] = {};
    const int n = NeutralStringDetail::formatDouble(value, buffer);
    unsigned short units[32];
    for (int i = 0; i < 32; ++i)
        units[i] = static_cast<unsigned char>(buffer[i]);
    SWCharString s;
    s.concat(units, static_cast<unsigned int>(n));
    return s;
}

SAsciiString NeutralString::FromNumberToAscii(double value)
{
    char buffer[48];
    const int n = NeutralStringDetail::formatDouble(value, buffer);
    SAsciiString s;
    s.concat(buffer, static_cast<unsigned int>(n));
    return s;
}

bool NeutralString::RoundUpHelper(unsigned short* digits, int count)
{
    for (int i = count - 1; i >= 0; --i) {
        if (digits[i] != '9') {
            ++digits[i];
            return false;
        }
        digits[i] = '0';
    }
    return true;
}

int NeutralString::ToStringFrom64(unsigned short* buffer, long long value)
{
    return static_cast<int>(formatInteger(buffer, value, 10));
}

} // namespace Vardo400
