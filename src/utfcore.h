// The library's one UTF-8 / UTF-16 / UTF-32 converter core, shared by the public UTF
// converter, the string conversions, the code-set converters, path names, the registry
// store and registry files. Not installed. It depends on nothing else in the library,
// so tests and fuzzers compile it into their own binaries and reach every policy.
#ifndef VARDO_UTFCORE_H
#define VARDO_UTFCORE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace Vardo400 {
namespace utf {

// What a conversion does with input that is not well-formed. Every policy converts
// well-formed input identically.
enum class Policy {
    // The library's classic rules: malformed or truncated UTF-8 stops the conversion;
    // encoded surrogates (ED A0 80 .. ED BF BF) decode to surrogate units; a lone
    // surrogate unit encodes as its own three-byte sequence.
    lenient,
    // Like lenient, but encoded surrogates and lone surrogate units stop the conversion
    // as source illegal.
    strict,
    // Where lenient would stop, one byte (decoding) or one lone surrogate unit
    // (encoding) becomes the replacement character instead and the conversion goes on.
    // Encoded surrogates still decode to surrogate units, as in lenient.
    replace,
    // For names on disk: decoding is strict, and every byte where it would stop becomes
    // the lone unit U+DC00 + byte (U+DC80 .. U+DCFF); encoding turns those units back
    // into their bytes and stops at any other lone surrogate.
    escapeBytes
};

// Result of one step; the values are those of the public ConversionResult.
enum Result {
    resultOK = 0,              // the whole source was converted
    resultSourceExhausted = 1, // a multi-byte sequence runs past the end of the source
    resultTargetExhausted = 2, // the next character does not fit; the source stays at it
    resultSourceIllegal = 3    // malformed input the policy refuses; the source stays at it
};

const unsigned short kReplacementChar = 0xFFFD;

// ---- steps ------------------------------------------------------------------------------------
// Each converts [*s, sourceEnd) into [*t, targetEnd), advances both pointers past what
// was read and written and returns the result. Target bytes between *t on return and
// targetEnd may have been overwritten; nothing at or past targetEnd ever is.
// replacement (replace only) must be a unit outside the surrogate range.

// UTF-16 to UTF-8: at most 3 bytes a unit (4 for a pair).
Result utf16ToUtf8Step(const unsigned short** s, const unsigned short* sourceEnd, unsigned char** t,
                       unsigned char* targetEnd, Policy policy, unsigned short replacement = kReplacementChar);
// UTF-8 to UTF-16: at most one unit a byte.
Result utf8ToUtf16Step(const unsigned char** s, const unsigned char* sourceEnd, unsigned short** t,
                       unsigned short* targetEnd, Policy policy, unsigned short replacement = kReplacementChar);
// The UTF-32 steps know only the lenient and strict rules (strict true: lone
// surrogates and values above 10FFFF stop as source illegal; false: they pass, and
// values above 10FFFF become U+FFFD). Decoding UTF-8 to UTF-32 always applies the
// lenient rules: encoded surrogates become surrogate values.
Result utf8ToUtf32Step(const unsigned char** s, const unsigned char* sourceEnd, unsigned long** t,
                       unsigned long* targetEnd);
Result utf32ToUtf8Step(const unsigned long** s, const unsigned long* sourceEnd, unsigned char** t,
                       unsigned char* targetEnd, bool strict);
Result utf16ToUtf32Step(const unsigned short** s, const unsigned short* sourceEnd, unsigned long** t,
                        unsigned long* targetEnd, bool strict);
Result utf32ToUtf16Step(const unsigned long** s, const unsigned long* sourceEnd, unsigned short** t,
                        unsigned short* targetEnd, bool strict);

// ---- whole conversions ------------------------------------------------------------------------

// Converts n UTF-16 units into UTF-8 at dst, which holds room bytes. Returns the bytes
// written, or SIZE_MAX when the policy refuses the input or the bytes do not fit.
size_t utf16ToUtf8(const unsigned short* s, size_t n, unsigned char* dst, size_t room,
                   Policy policy = Policy::lenient, unsigned short replacement = kReplacementChar);
// The same, replacing the content of out. False (out then empty) when the policy refuses.
bool utf16ToUtf8(const unsigned short* s, size_t n, std::string& out, Policy policy,
                 unsigned short replacement = kReplacementChar);

// Converts n UTF-8 bytes into UTF-16 at dst, which holds room units (n always suffices;
// utf8UnitCount of well-formed bytes does too). Returns the units written, or SIZE_MAX
// when the policy refuses the input or the units do not fit.
size_t utf8ToUtf16(const unsigned char* s, size_t n, unsigned short* dst, size_t room, Policy policy,
                   unsigned short replacement = kReplacementChar);
// The same, replacing the content of out. False (out then empty) when the policy refuses.
bool utf8ToUtf16(const unsigned char* s, size_t n, std::vector<unsigned short>& out, Policy policy,
                 unsigned short replacement = kReplacementChar);

// The lenient conversion of n bytes (room units at dst); SIZE_MAX for malformed input.
inline size_t utf8ToUtf16Whole(const unsigned char* s, size_t n, unsigned short* dst, size_t room)
{
    return utf8ToUtf16(s, n, dst, room, Policy::lenient);
}
// n bytes into dst (room for n units), every byte that starts no legal sequence
// becoming "?". Returns the units written.
inline size_t utf8ToUtf16Degrading(const unsigned char* s, size_t n, unsigned short* dst)
{
    return utf8ToUtf16(s, n, dst, n, Policy::replace, '?');
}

// ---- sizes ------------------------------------------------------------------------------------

// Upper bound of UTF-8 bytes for n UTF-16 units, terminator included (the documented
// count: a surrogate pair counts 4 + 3). 64-bit so that no text overflows it.
uint64_t utf8LengthBound(const unsigned short* s, size_t n);
// Exact UTF-8 bytes of n UTF-16 units under the lenient rules, terminator not counted.
uint64_t utf8Length(const unsigned short* s, size_t n);
// The UTF-16 units that n bytes of well-formed UTF-8 convert to: one for every byte that
// is not a continuation byte, one more for every four-byte lead. For malformed input the
// figure is only an estimate, but never below the units of its well-formed prefix.
size_t utf8UnitCount(const unsigned char* s, size_t n);

// ---- plain copies -----------------------------------------------------------------------------

// Copies n units that are all below 80 hex as bytes; returns the count of leading
// units below 80 hex that were copied (stops at the first other unit).
size_t asciiNarrow(const unsigned short* s, size_t n, unsigned char* dst);
// Widens n bytes to units (any byte value).
void bytesWiden(const unsigned char* s, size_t n, unsigned short* dst);
// n units as 2n bytes in the given byte order (UTF-16LE or UTF-16BE), and 2n bytes
// back to n units.
void utf16ToBytes(const unsigned short* s, size_t n, unsigned char* dst, bool bigEndian);
void bytesToUtf16(const unsigned char* s, size_t n, unsigned short* dst, bool bigEndian);

// A scratch array: inline for small sizes, else on the heap. allocate() returns null
// when memory runs out; the storage is freed with the object.
template <class T, size_t Inline = 256>
class TempArray {
public:
    TempArray() : m_p(0) {}
    ~TempArray() { if (m_p != m_inline) std::free(m_p); }
    T* allocate(size_t n)
    {
        if (m_p && m_p != m_inline)
            std::free(m_p);
        if (n <= Inline)
            m_p = m_inline;
        else
            m_p = n <= SIZE_MAX / sizeof(T) ? static_cast<T*>(std::malloc(n * sizeof(T))) : 0;
        return m_p;
    }
    T* get() const { return m_p; }
private:
    TempArray(const TempArray&) = delete;
    TempArray& operator=(const TempArray&) = delete;
    T* m_p;
    T m_inline[Inline];
};

} // namespace utf
} // namespace Vardo400

#endif
