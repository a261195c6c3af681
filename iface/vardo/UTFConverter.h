// Conversion between UTF-16 text (SWCharString, STovoString), UTF-8 bytes and UTF-32
// code points.
//
// The rules are those of the classic reference converter in its early, lenient form,
// kept on purpose because stored data depends on them:
//  - UTF-16 to UTF-8 never fails on content: a lone surrogate (high or low) is written
//    as its own three-byte sequence (D83D -> ED A0 BD); no replacement character.
//  - UTF-8 is checked per sequence: 1 to 4 bytes, trailing bytes 80-BF, no overlong
//    forms (lead C0, C1; E0 needs a second byte >= A0, F0 one >= 90), nothing above
//    U+10FFFF (F4 needs a second byte <= 8F, no lead above F4). Encoded surrogates
//    (ED A0 80 .. ED BF BF) are accepted and become surrogate units.
//  - A malformed or truncated sequence fails the whole conversion: the high-level
//    operations keep no partial result.
//  - Code points above U+10FFFF coming from UTF-32 become U+FFFD.
//  - No byte order mark is ever added or removed.
//
// Runs of ASCII are converted several units per step; the result is identical to the
// unit-by-unit rules.
//
// Thread-safety: every static operation is re-entrant. A CUTFConverter object is not
// safe for concurrent use; distinct objects are independent.
#ifndef VARDO_UTFCONVERTER_H
#define VARDO_UTFCONVERTER_H

#include "vardodefs.h"
#include "sstring.h"
#include "refcount.h"
#include "simplebuffer.h"

namespace Vardo400 {

// Result of one low-level conversion step.
enum ConversionResult {
    conversionOK = 0,     // the whole source was converted
    sourceExhausted = 1,  // a multi-byte sequence runs past the end of the source
    targetExhausted = 2,  // the next character does not fit; the source stays at its start
    sourceIllegal = 3     // a malformed sequence (strict mode: also a lone surrogate); the
                          // source stays at it
};

// 0 = strict, 1 = lenient. Every caller inside the library passes lenientConversion.
enum ConversionFlags {
    strictConversion = 0,
    lenientConversion = 1
};

// ---- low-level steps ----------------------------------------------------------------------
// Each converts [*sourceStart, sourceEnd) into [*targetStart, targetEnd), advances both
// pointers past what was read and written, and returns the result. No terminator is
// read or written unless it lies inside the source range. Bytes of the target between
// *targetStart on return and targetEnd may have been overwritten.
// Output bounds: UTF-16 to UTF-8 writes at most 3 bytes per unit; UTF-8 to UTF-16
// writes at most one unit per byte; UTF-8 to UTF-32 at most one value per byte;
// UTF-32 to UTF-8 at most 4 bytes per value; UTF-32 to UTF-16 at most 2 units per value.
VARDO_API ConversionResult ConvertUTF16toUTF8(const unsigned short** sourceStart, const unsigned short* sourceEnd,
                                              unsigned char** targetStart, unsigned char* targetEnd,
                                              ConversionFlags flags);
VARDO_API ConversionResult ConvertUTF8toUTF16(const unsigned char** sourceStart, const unsigned char* sourceEnd,
                                              unsigned short** targetStart, unsigned short* targetEnd,
                                              ConversionFlags flags);
// Values are stored as decoded (at most 10FFFF for legal input).
VARDO_API ConversionResult ConvertUTF8toUTF32(const unsigned char** sourceStart, const unsigned char* sourceEnd,
                                              unsigned long** targetStart, unsigned long* targetEnd,
                                              ConversionFlags flags);
// Values above 10FFFF become U+FFFD (three bytes) in lenient mode, source illegal in
// strict mode; surrogate values are written as three-byte sequences in lenient mode.
VARDO_API ConversionResult ConvertUTF32toUTF8(const unsigned long** sourceStart, const unsigned long* sourceEnd,
                                              unsigned char** targetStart, unsigned char* targetEnd,
                                              ConversionFlags flags);
// A high surrogate followed by a low one becomes one value; lone surrogates are stored
// as they are (lenient) or illegal (strict).
VARDO_API ConversionResult ConvertUTF16toUTF32(const unsigned short** sourceStart, const unsigned short* sourceEnd,
                                               unsigned long** targetStart, unsigned long* targetEnd,
                                               ConversionFlags flags);
// Values above 10FFFF become U+FFFD (lenient); values above FFFF become surrogate pairs.
VARDO_API ConversionResult ConvertUTF32toUTF16(const unsigned long** sourceStart, const unsigned long* sourceEnd,
                                               unsigned short** targetStart, unsigned short* targetEnd,
                                               ConversionFlags flags);

// ---- UTF buffers ------------------------------------------------------------------------------
// A reference-counted, growable, zero-terminated array of UTF-8 bytes (T = unsigned char)
// or UTF-32 code points (T = unsigned long), handed out through CSmartRefCountPtr. A new
// buffer holds one reference (the creator's) and is empty: getLength() 1, data() the
// terminator. Not synchronised beyond its reference count.
template <class T>
class VARDO_TEMPLATE_API UTFBuffer_t : public CRefCount {
public:
    UTFBuffer_t();
    // Room for n units plus the terminator; false (with an assertion) when memory runs
    // out, the content then unchanged. Content kept; never shrinks.
    bool reserve(unsigned int n);
    // Sets the units in use (terminator not counted, at most the reserved room) and
    // writes the terminator behind them.
    void setUsed(unsigned int n);
    // The units, always followed by a 0 unit; never null.
    T* data() { return m_pData ? m_pData : &m_terminator; }
    const T* data() const { return m_pData ? m_pData : &m_terminator; }
    // Units in use, the terminating 0 unit included (as CUTFConverter::getLength counts).
    unsigned int getLength() const { return m_nUsed + 1; }
    // Units that can be stored without growing, terminator not counted.
    unsigned int getCapacity() const { return m_nCapacity; }

protected:
    virtual ~UTFBuffer_t();

private:
    UTFBuffer_t(const UTFBuffer_t&) = delete;
    UTFBuffer_t& operator=(const UTFBuffer_t&) = delete;
    T* m_pData;
    unsigned int m_nUsed;
    unsigned int m_nCapacity;
    T m_terminator;
};

typedef UTFBuffer_t<unsigned char> UTF8Buffer;
typedef UTFBuffer_t<unsigned long> UCS4Buffer;

// ---- the converter -----------------------------------------------------------------------------
// Holds a text and its UTF-8 form. The static members convert between the three forms.
class VARDO_API CUTFConverter {
public:
    // Empty: no text, getBuffer() null, getLength() 0.
    CUTFConverter();
    // As setText(text).
    explicit CUTFConverter(const SWCharString& text);
    CUTFConverter(const CUTFConverter& o);
    CUTFConverter& operator=(const CUTFConverter& o);
    ~CUTFConverter();

    // Stores the text and its UTF-8 form (lenient: never fails on content). An empty
    // text leaves no buffer. When memory runs out the assertion "utfString" is raised and
    // the length stays 0.
    void setText(const SWCharString& text);
    // The UTF-8 bytes with their terminating 0 byte, or null when the text is empty.
    const unsigned char* getBuffer() const { return m_pUtf8; }
    // Bytes in getBuffer(), the terminating 0 byte included; 0 without a buffer.
    unsigned int getLength() const { return m_nLength; }
    // The text last set.
    const SWCharString& getText() const { return m_strText; }

    // 0-terminated UTF-8 to 16-bit text. A null source gives the empty text and true.
    // Malformed or truncated input gives false and the empty text (no partial result).
    // A failed allocation raises the assertion "targetStart" and returns false.
    static bool UTF8ToUTF16(const unsigned char* source, STovoString& target);
    // 16-bit text to UTF-8 (lenient). target gets a new buffer whose getLength() counts
    // the terminator. False (target null, with an assertion) only when the buffer cannot
    // be allocated.
    static bool UTF16ToUTF8(const STovoString& source, CSmartRefCountPtr<UTFBuffer_t<unsigned char> >& target);
    // Same, into a simple buffer: it is resized to the bytes written plus the terminator,
    // which is stored and counted in its size.
    static bool UTF16ToUTF8(const STovoString& source, SSimpleBuffer& target);
    // 0-terminated UTF-8 to code points. Malformed or truncated input gives false and a
    // null target. A null source gives an empty buffer and true.
    static bool UTF8ToUCS4(const unsigned char* source, CSmartRefCountPtr<UTFBuffer_t<unsigned long> >& target);
    // 0-terminated code points to UTF-8 (values above 10FFFF become U+FFFD). A null
    // source gives an empty buffer and true.
    static bool UCS4ToUTF8(const unsigned long* source, CSmartRefCountPtr<UTFBuffer_t<unsigned char> >& target);
    // 0-terminated code points to 16-bit text (values above 10FFFF become U+FFFD; a
    // null source gives the empty text). False only when memory runs out.
    static bool UCS4ToUTF16(const unsigned long* source, STovoString& target);
    // 16-bit text to code points (pairs combined, lone surrogates kept as values).
    static bool UTF16ToUCS4(const STovoString& source, CSmartRefCountPtr<UTFBuffer_t<unsigned long> >& target);
    // 0-terminated 16-bit text into the caller's array of size values, a terminating 0
    // value included. Returns the values written, the terminator not counted; with a
    // null target the values needed; 0xFFFFFFFF when they do not fit (target then holds
    // a terminated prefix when size > 0). A null source counts as the empty text.
    static unsigned int UTF16ToUCS4(const unsigned short* source, unsigned long* target, unsigned int size);
    // Upper bound of the UTF-8 bytes for the 0-terminated text, terminator included:
    // 1, plus per unit the byte count of the code point starting there (1, 2, 3, or 4 at
    // a high surrogate that starts a pair, whose low unit then adds 3 more). A pair thus
    // counts 7 bytes; the surplus is deliberate. A null text gives 1; a bound beyond
    // 32 bits gives 0xFFFFFFFF.
    static unsigned int UTF16ToUTF8Length(const unsigned short* source);
    static unsigned int WideCharToUTF8Length(const unsigned short* source);

protected:
    // Converts the text with its terminator into [start, end); start is moved behind the
    // last byte written. Returns the bytes written (terminator included), 0 when the text
    // did not fit.
    unsigned int ConvertToUTFString(const SWCharString& text, unsigned char*& start, unsigned char*& end) const;

private:
    void freeBuffer();
    SWCharString m_strText;
    unsigned char* m_pUtf8;
    unsigned int m_nLength;
};

#if !defined(VARDO_BUILDING_LIBRARY)
// Windows callers instantiate the inline members themselves (an imported instantiation
// brings none) and link the rest from the DLL.
#if !defined(_WIN32) || defined(VARDO_BUILDING_LIBRARY)
extern template class VARDO_INSTANTIATION_API UTFBuffer_t<unsigned char>;
extern template class VARDO_INSTANTIATION_API UTFBuffer_t<unsigned long>;
#endif
#endif

} // namespace Vardo400

#endif
