// Internal helpers of the UTF converter shared by the string conversions and the
// code-set converters. Not installed.
#ifndef VARDO_UTFCORE_H
#define VARDO_UTFCORE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace Vardo400 {
namespace utf {

// Upper bound of UTF-8 bytes for n UTF-16 units, terminator included (the documented
// count: a surrogate pair counts 4 + 3). 64-bit so that no text overflows it.
uint64_t utf8LengthBound(const unsigned short* s, size_t n);

// Exact UTF-8 bytes of n UTF-16 units under the lenient rules, terminator not counted.
uint64_t utf8Length(const unsigned short* s, size_t n);

// Leniently converts n UTF-16 units into UTF-8 at dst, which holds room bytes.
// Returns the bytes written, or SIZE_MAX when they do not fit.
size_t utf16ToUtf8(const unsigned short* s, size_t n, unsigned char* dst, size_t room);

// The UTF-16 units that n bytes of well-formed UTF-8 convert to: one for every byte that
// is not a continuation byte, one more for every four-byte lead. For malformed input the
// figure is only an estimate, but never below the units of its well-formed prefix.
size_t utf8UnitCount(const unsigned char* s, size_t n);

// Leniently converts n UTF-8 bytes into UTF-16 at dst, which holds room units (n, or
// utf8UnitCount of the bytes). Returns the units written, or SIZE_MAX when the input is
// malformed or truncated.
size_t utf8ToUtf16Whole(const unsigned char* s, size_t n, unsigned short* dst, size_t room);

// Decodes n UTF-8 bytes leniently into dst (room for n units), replacing every byte
// that does not start a legal sequence by "?" and going on with the next byte.
// Returns the units written.
size_t utf8ToUtf16Degrading(const unsigned char* s, size_t n, unsigned short* dst);

// Copies n units that are all below 80 hex as bytes; returns the count of leading
// units below 80 hex that were copied (stops at the first other unit).
size_t asciiNarrow(const unsigned short* s, size_t n, unsigned char* dst);
// Widens n bytes to units (any byte value); returns n.
void bytesWiden(const unsigned char* s, size_t n, unsigned short* dst);

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
