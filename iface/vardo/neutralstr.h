// Locale-neutral numbers: the one fixed text form in which the library writes and reads
// numbers in configuration, registry values, files and wire fields. Decimal digits, an
// optional leading minus sign, the point (.) as decimal point, no grouping; the current
// C locale is never consulted.
//
// Thread-safety: every function here is reentrant and keeps no state.
// Errors: the parsers report failure only by returning false (integers then hold 0, reals
// keep their previous value); nothing here throws except std::bad_alloc when a result
// string cannot be allocated, and nothing raises an assertion.
#ifndef VARDO_NEUTRALSTR_H
#define VARDO_NEUTRALSTR_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

// ---- integers ----------------------------------------------------------------------------

// Parses text as an integer of type T in the given radix.
//  - A leading minus sign is accepted only when negativeAllowed; no plus sign and no
//    leading blanks. An empty text, or "-" alone, gives 0 and true.
//  - A point (.) or a blank (U+0020) ends the number successfully; the rest is ignored,
//    so "12.9" gives 12 and "12 34" gives 12. A blank right at the start (or right after
//    the minus sign) is no end but an invalid digit: " 5" and "- 5" fail.
//  - A digit is the character's distance from '0' when below radix. Above radix 10,
//    other characters map to distance - 7 when the distance is below 49 (upper-case
//    letters) and distance - 39 otherwise (lower-case letters); with radix 16 an x or X is
//    skipped wherever it stands ("0x1F" gives 31). Anything else fails. The distance
//    comes first, so above radix 17 upper-case letters read as their distance (A is 17
//    in radix 36) and ':' is 10 from radix 11 on.
//  - max is the largest value of T and maxDivRadix is max / radix, both supplied by the
//    caller. A positive value may reach max, a negative one max + 1 in magnitude (the
//    minimum of a two's-complement type); beyond that the parse fails.
// The tag only selects the instantiation. Returns false on failure, with out set to 0.
// Instantiated for SAnsiString/char and SWCharString/unsigned short with every type of
// VARDO_NEUTRAL_INTEGER_TYPES.
template <class StringT, class CharT, class T>
VARDO_TEMPLATE_API bool StringConvToInteger(const StringT& text, T& out, CharT tag, T max,
                                            T maxDivRadix, int radix, bool negativeAllowed);

// The same parse over [begin, end) of an SAsciiString, with these deliberate differences
// from the string form: only the point ends the number early (a blank is an invalid
// digit); x is never skipped; and above radix 10 a non-digit character maps to
// distance - 39 when the distance is at most 48 and distance - 7 otherwise. So the letter
// rule never yields a letter's value here ("ff" fails in radix 16), while the characters
// W to ` read as 0 to 9 when the radix exceeds that value; the distance still comes first
// (above radix 17, A is 17 as in the string form). The walk stops at the text's terminator (an invalid digit) even when end lies
// beyond it. Instantiated for short, unsigned short, long, unsigned long, long long.
template <class IteratorT, class T>
VARDO_TEMPLATE_API bool StringConvToIntegerIterator(IteratorT begin, IteratorT end, T& out, T max,
                                                    T maxDivRadix, int radix,
                                                    bool negativeAllowed);

// Writes value in the given radix into buffer, followed by a 0 terminator, and returns the
// number of characters written (terminator not counted). A negative value is written as
// '-' and its magnitude in radix 10, and as its unsigned two's-complement value in any
// other radix (-255 as a 32-bit long in radix 16 is "FFFFFF01"). Digits from 10 on are the
// upper-case letters. The buffer must hold 66 characters (no size is checked). A radix
// below 2 writes only the terminator and returns 0. Instantiated for char and unsigned
// short with every type of VARDO_NEUTRAL_INTEGER_TYPES.
template <class CharT, class T>
VARDO_TEMPLATE_API long StringConvFromInteger(CharT* buffer, T value, int radix);

// ---- reals ---------------------------------------------------------------------------------

// Parses text as a real number:
//  1. Blanks (U+0020, U+0009, U+3000) are skipped, one minus or plus sign is accepted,
//     blanks are skipped again.
//  2. The mantissa is digits, optionally followed by the point and more digits, or the
//     point followed by at least one digit; anything else fails.
//  3. Significant digits are kept from the first non-zero digit on, at most 20; further
//     digits only move the decimal exponent, as do leading zeros after the point; trailing
//     zeros of the kept digits are dropped into the exponent.
//  4. Blanks are skipped; an E or e may follow with blanks, an optional sign, blanks and at
//     least one digit (else the parse fails). Whatever follows is ignored ("3.5kg" is 3.5).
//  5. With M the kept digits as an integer and e the resulting decimal exponent, the value
//     is M divided by 10^-e (e < 1) or multiplied by 10^e, the power taken from a table of
//     10^0 to 10^308: e > 308 fails and e < -308 gives 0. The sign is applied last, so a
//     negative zero is kept. A product beyond the largest double gives infinity.
// Consequently the smallest non-zero magnitude read is 1e-308, and below about 1e-292
// fewer than 17 significant digits survive ("123e-310" reads as 0).
// Returns false on failure and leaves out unchanged. For float the double result is
// rounded to float (infinity beyond its range).
// Instantiated for (SAnsiString, char, float/double), (SAsciiString, char, double) and
// (SWCharString, unsigned short, float/double).
template <class StringT, class CharT, class R>
VARDO_TEMPLATE_API bool NeutralStringToReal(const StringT& text, R& out, CharT tag);

// The same parse over [begin, end) of an SAsciiString; it also stops at the terminator.
// Instantiated for float and double.
template <class IteratorT, class R>
VARDO_TEMPLATE_API bool NeutralStringToRealIterator(IteratorT begin, IteratorT end, R& out);

struct NeutralStringDetail;

// The everyday entry points: radix 10 with these limits (max, max / 10, negative allowed):
//   signed char 127, 12, yes          unsigned char 255, 25, no
//   short 32767, 3276, yes            unsigned short 65535, 6553, no
//   int, long 2147483647, 214748364, yes
//   unsigned int, unsigned long 4294967295, 429496729, no
//   long long 9223372036854775807, 922337203685477580, yes
//   unsigned long long all bits, all bits / 10, no
// long and unsigned long keep the 32-bit limits even where the type is 64 bits wide (as on
// Linux), so a text that parses on one platform parses to the same value on every other.
// Formatting (FromNumber) writes the full value of the type.
class VARDO_API NeutralString {
public:
    // Parse text (string forms: StringConvToInteger / NeutralStringToReal rules). Return
    // false on failure.
    static bool ToNumber(const SWCharString& text, signed char& out);
    static bool ToNumber(const SWCharString& text, unsigned char& out);
    static bool ToNumber(const SWCharString& text, short& out);
    static bool ToNumber(const SWCharString& text, unsigned short& out);
    static bool ToNumber(const SWCharString& text, int& out);
    static bool ToNumber(const SWCharString& text, unsigned int& out);
    static bool ToNumber(const SWCharString& text, long& out);
    static bool ToNumber(const SWCharString& text, unsigned long& out);
    static bool ToNumber(const SWCharString& text, long long& out);
    static bool ToNumber(const SWCharString& text, unsigned long long& out);
    static bool ToNumber(const SWCharString& text, float& out);
    static bool ToNumber(const SWCharString& text, double& out);
    static bool ToNumber(const SAsciiString& text, double& out);

    // Parse [begin, end) of an SAsciiString (iterator forms: StringConvToIntegerIterator /
    // NeutralStringToRealIterator rules).
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, long long& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, long& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, unsigned long& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, short& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, unsigned short& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, float& out);
    static bool ToNumber(SAsciiString::iterator begin, SAsciiString::iterator end, double& out);

    // Decimal text of an integer: '-' for negative values, no leading zeros.
    static SWCharString FromNumber(signed char value);
    static SWCharString FromNumber(unsigned char value);
    static SWCharString FromNumber(short value);
    static SWCharString FromNumber(unsigned short value);
    static SWCharString FromNumber(int value);
    static SWCharString FromNumber(unsigned int value);
    static SWCharString FromNumber(long value);
    static SWCharString FromNumber(unsigned long value);
    static SWCharString FromNumber(long long value);
    static SWCharString FromNumber(unsigned long long value);

    // Text of a double that ToNumber reads back to the identical double (same bits, also
    // for -0), using the fewest significant digits that achieve it.
    //  - Notation as std::to_chars without a format: fixed or exponent form ("1e+22",
    //    "1.5e-07", at least two exponent digits), whichever is shorter, fixed on a tie.
    //  - Whenever the shortest correctly rounded text (what std::to_chars writes) reads
    //    back exactly, that very text is written. Otherwise, where this parser's own
    //    rounding differs, the nearest text of the fewest digits that reads back exactly
    //    is written instead (possibly 18 to 20 digits).
    //  - Where no text reads back exactly (magnitudes below about 1e-292, whose digits the
    //    exponent limit of -308 cuts off, and the few values the parser cannot reach
    //    otherwise), the text whose reading is closest to the value is written: below
    //    1e-308 that is "0" or "1e-308" (with the sign).
    //  - Infinities are written "2e+308" and "-2e+308", which read back as infinities. NaN
    //    has no neutral form; it is written "nan", which ToNumber rejects.
    static SWCharString FromNumber(double value);
    // The same text as 7-bit ASCII.
    static SAsciiString FromNumberToAscii(double value);

private:
    friend struct NeutralStringDetail;
    // Adds one at the last of count digit characters, carrying into the digits before it.
    // Returns true when the carry ran past the first digit (all digits are then '0').
    static bool RoundUpHelper(unsigned short* digits, int count);
    // Writes value in decimal followed by a terminator; returns the characters written.
    static int ToStringFrom64(unsigned short* buffer, long long value);
    // 10^0 to 10^308, each the double nearest to the power.
    static const double PowArray[309];
};

// The integer types of the integer templates (long long stands for the signed 64-bit type
// and unsigned long long for its unsigned twin).
#define VARDO_NEUTRAL_INTEGER_TYPES(X)                                                   \
    X(signed char) X(unsigned char) X(short) X(unsigned short) X(int) X(unsigned int)     \
    X(long) X(unsigned long) X(long long) X(unsigned long long)

#if !defined(VARDO_BUILDING_LIBRARY)
#define VARDO_NEUTRAL_EXTERN_INT(T)                                                       \
    extern template VARDO_INSTANTIATION_API bool StringConvToInteger<SAnsiString, char, T>( \
        const SAnsiString&, T&, char, T, T, int, bool);                                   \
    extern template VARDO_INSTANTIATION_API bool                                          \
    StringConvToInteger<SWCharString, unsigned short, T>(const SWCharString&, T&,        \
                                                         unsigned short, T, T, int, bool); \
    extern template VARDO_INSTANTIATION_API long StringConvFromInteger<char, T>(char*, T, int); \
    extern template VARDO_INSTANTIATION_API long StringConvFromInteger<unsigned short, T>( \
        unsigned short*, T, int);
VARDO_NEUTRAL_INTEGER_TYPES(VARDO_NEUTRAL_EXTERN_INT)
#undef VARDO_NEUTRAL_EXTERN_INT

#define VARDO_NEUTRAL_EXTERN_ITER(T)                                                      \
    extern template VARDO_INSTANTIATION_API bool                                          \
    StringConvToIntegerIterator<SAsciiString::iterator, T>(                               \
        SAsciiString::iterator, SAsciiString::iterator, T&, T, T, int, bool);
VARDO_NEUTRAL_EXTERN_ITER(short)
VARDO_NEUTRAL_EXTERN_ITER(unsigned short)
VARDO_NEUTRAL_EXTERN_ITER(long)
VARDO_NEUTRAL_EXTERN_ITER(unsigned long)
VARDO_NEUTRAL_EXTERN_ITER(long long)
#undef VARDO_NEUTRAL_EXTERN_ITER

extern template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAnsiString, char, float>(const SAnsiString&, float&, char);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAnsiString, char, double>(const SAnsiString&, double&, char);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SAsciiString, char, double>(const SAsciiString&, double&, char);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SWCharString, unsigned short, float>(const SWCharString&, float&,
                                                         unsigned short);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToReal<SWCharString, unsigned short, double>(const SWCharString&, double&,
                                                          unsigned short);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToRealIterator<SAsciiString::iterator, float>(SAsciiString::iterator,
                                                           SAsciiString::iterator, float&);
extern template VARDO_INSTANTIATION_API bool
NeutralStringToRealIterator<SAsciiString::iterator, double>(SAsciiString::iterator,
                                                            SAsciiString::iterator, double&);
#endif

} // namespace Vardo400

#endif
