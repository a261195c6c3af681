// The public UTF converter: the low-level steps between UTF-8, UTF-16 and UTF-32 with
// the classic result codes and mode flag, the UTF buffers, and CUTFConverter. Every
// conversion runs in the converter core (utfcore.h) under its lenient or strict policy.
#include "vardo/UTFConverter.h"
#include "vardo/strace.h"
#include "utfcore.h"
#include "crt.h"

#include <cstdlib>
#include <cstring>

namespace Vardo400 {

namespace {

inline utf::Policy policyOf(ConversionFlags flags)
{
    return flags == strictConversion ? utf::Policy::strict : utf::Policy::lenient;
}

inline ConversionResult resultOf(utf::Result r) { return static_cast<ConversionResult>(r); }

} // namespace

// ---- low-level steps ------------------------------------------------------------------------------

ConversionResult ConvertUTF16toUTF8(const unsigned short** sourceStart, const unsigned short* sourceEnd,
                                    unsigned char** targetStart, unsigned char* targetEnd, ConversionFlags flags)
{
    return resultOf(utf::utf16ToUtf8Step(sourceStart, sourceEnd, targetStart, targetEnd, policyOf(flags)));
}

ConversionResult ConvertUTF8toUTF16(const unsigned char** sourceStart, const unsigned char* sourceEnd,
                                    unsigned short** targetStart, unsigned short* targetEnd, ConversionFlags flags)
{
    return resultOf(utf::utf8ToUtf16Step(sourceStart, sourceEnd, targetStart, targetEnd, policyOf(flags)));
}

ConversionResult ConvertUTF8toUTF32(const unsigned char** sourceStart, const unsigned char* sourceEnd,
                                    unsigned long** targetStart, unsigned long* targetEnd, ConversionFlags)
{
    return resultOf(utf::utf8ToUtf32Step(sourceStart, sourceEnd, targetStart, targetEnd));
}

ConversionResult ConvertUTF32toUTF8(const unsigned long** sourceStart, const unsigned long* sourceEnd,
                                    unsigned char** targetStart, unsigned char* targetEnd, ConversionFlags flags)
{
    return resultOf(utf::utf32ToUtf8Step(sourceStart, sourceEnd, targetStart, targetEnd, flags == strictConversion));
}

ConversionResult ConvertUTF16toUTF32(const unsigned short** sourceStart, const unsigned short* sourceEnd,
                                     unsigned long** targetStart, unsigned long* targetEnd, ConversionFlags flags)
{
    return resultOf(utf::utf16ToUtf32Step(sourceStart, sourceEnd, targetStart, targetEnd, flags == strictConversion));
}

ConversionResult ConvertUTF32toUTF16(const unsigned long** sourceStart, const unsigned long* sourceEnd,
                                     unsigned short** targetStart, unsigned short* targetEnd, ConversionFlags flags)
{
    return resultOf(utf::utf32ToUtf16Step(sourceStart, sourceEnd, targetStart, targetEnd, flags == strictConversion));
}

// ---- UTF buffers ----------------------------------------------------------------------------------

template <class T>
UTFBuffer_t<T>::UTFBuffer_t() : m_pData(0), m_nUsed(0), m_nCapacity(0), m_terminator(0)
{
}

template <class T>
UTFBuffer_t<T>::~UTFBuffer_t()
{
    std::free(m_pData);
}

template <class T>
bool UTFBuffer_t<T>::reserve(unsigned int n)
{
    if (m_pData && n <= m_nCapacity)
        return true;
    const uint64_t bytes = (static_cast<uint64_t>(n) + 1) * sizeof(T);
    T* p = bytes <= SIZE_MAX ? static_cast<T*>(std::realloc(m_pData, static_cast<size_t>(bytes))) : 0;
    if (!p) {
        VARDO_ASSERT_TEXT("UTFBuffer_t::reserve");
        return false;
    }
    if (!m_pData)
        p[0] = 0;
    m_pData = p;
    m_nCapacity = n;
    return true;
}

template <class T>
void UTFBuffer_t<T>::setUsed(unsigned int n)
{
    if (!m_pData)
        return;
    VARDO_ASSERT(n <= m_nCapacity);
    if (n > m_nCapacity)
        n = m_nCapacity;
    m_nUsed = n;
    m_pData[n] = 0;
}

template class VARDO_INSTANTIATION_API UTFBuffer_t<unsigned char>;
template class VARDO_INSTANTIATION_API UTFBuffer_t<unsigned long>;

// ---- CUTFConverter --------------------------------------------------------------------------------

namespace {

// A fresh buffer of room units held by target; false (target null) when memory runs out.
template <class T>
bool newUTFBuffer(CSmartRefCountPtr<UTFBuffer_t<T> >& target, uint64_t room, UTFBuffer_t<T>*& buffer)
{
    target = CSmartRefCountPtr<UTFBuffer_t<T> >();
    if (room >= 0xFFFFFFFFu)
        return false;
    CSmartRefCountPtr<UTFBuffer_t<T> > p(new UTFBuffer_t<T>()); // takes the first reference
    if (!p->reserve(static_cast<unsigned int>(room)))
        return false;
    buffer = p.get();
    target = p;
    return true;
}

} // namespace

CUTFConverter::CUTFConverter() : m_pUtf8(0), m_nLength(0)
{
}

CUTFConverter::CUTFConverter(const SWCharString& text) : m_pUtf8(0), m_nLength(0)
{
    setText(text);
}

CUTFConverter::CUTFConverter(const CUTFConverter& o) : m_strText(o.m_strText), m_pUtf8(0), m_nLength(0)
{
    if (o.m_pUtf8) {
        m_pUtf8 = static_cast<unsigned char*>(std::malloc(o.m_nLength));
        if (!m_pUtf8) {
            VARDO_ASSERT_TEXT("utfString");
            return;
        }
        std::memcpy(m_pUtf8, o.m_pUtf8, o.m_nLength);
        m_nLength = o.m_nLength;
    }
}

CUTFConverter& CUTFConverter::operator=(const CUTFConverter& o)
{
    if (this != &o) {
        CUTFConverter copy(o);
        m_strText = copy.m_strText;
        freeBuffer();
        m_pUtf8 = copy.m_pUtf8;
        m_nLength = copy.m_nLength;
        copy.m_pUtf8 = 0;
        copy.m_nLength = 0;
    }
    return *this;
}

CUTFConverter::~CUTFConverter()
{
    freeBuffer();
}

void CUTFConverter::freeBuffer()
{
    std::free(m_pUtf8);
    m_pUtf8 = 0;
    m_nLength = 0;
}

void CUTFConverter::setText(const SWCharString& text)
{
    m_strText = text;
    freeBuffer();
    if (text.isEmpty())
        return;
    const uint64_t bytes = 3 * (static_cast<uint64_t>(text.getLength()) + 1);
    if (bytes <= SIZE_MAX)
        m_pUtf8 = static_cast<unsigned char*>(std::calloc(static_cast<size_t>(bytes), 1));
    if (!m_pUtf8) {
        VARDO_ASSERT_TEXT("utfString");
        return;
    }
    unsigned char* start = m_pUtf8;
    unsigned char* end = m_pUtf8 + bytes;
    m_nLength = ConvertToUTFString(text, start, end);
}

unsigned int CUTFConverter::ConvertToUTFString(const SWCharString& text, unsigned char*& start,
                                               unsigned char*& end) const
{
    const unsigned short* src = text.data();
    unsigned char* out = start;
    if (ConvertUTF16toUTF8(&src, text.data() + text.getLength() + 1, &out, end, lenientConversion) !=
        conversionOK)
        return 0;
    const unsigned int written = static_cast<unsigned int>(out - start);
    start = out;
    return written;
}

bool CUTFConverter::UTF8ToUTF16(const unsigned char* source, STovoString& target)
{
    if (!source) {
        target.empty();
        return true;
    }
    const size_t bytes = std::strlen(reinterpret_cast<const char*>(source));
    unsigned short* targetStart = 0;
    if (bytes < 0xFFFFFFFEu && (bytes + 1) <= SIZE_MAX / 2)
        targetStart = static_cast<unsigned short*>(std::malloc(2 * (bytes + 1)));
    if (!targetStart) {
        VARDO_ASSERT_TEXT("targetStart");
        return false;
    }
    const size_t units = utf::utf8ToUtf16Whole(source, bytes, targetStart, bytes);
    target.empty();
    if (units != SIZE_MAX && units)
        target.concat(targetStart, static_cast<unsigned int>(units));
    std::free(targetStart);
    return units != SIZE_MAX;
}

bool CUTFConverter::UTF16ToUTF8(const STovoString& source, CSmartRefCountPtr<UTFBuffer_t<unsigned char> >& target)
{
    const size_t n = source.getLength();
    UTFBuffer_t<unsigned char>* b = 0;
    if (!newUTFBuffer(target, 3 * static_cast<uint64_t>(n), b))
        return false;
    b->setUsed(static_cast<unsigned int>(utf::utf16ToUtf8(source.data(), n, b->data(), 3 * n)));
    return true;
}

bool CUTFConverter::UTF16ToUTF8(const STovoString& source, SSimpleBuffer& target)
{
    const size_t n = source.getLength();
    const uint64_t room = 3 * static_cast<uint64_t>(n) + 1;
    if (room > 0xFFFFFFFFu || !target.setSize(static_cast<unsigned int>(room)))
        return false;
    unsigned char* out = target.getBuffer();
    const size_t written = utf::utf16ToUtf8(source.data(), n, out, 3 * n);
    out[written] = 0;
    target.setSize(static_cast<unsigned int>(written + 1));
    return true;
}

bool CUTFConverter::UTF8ToUCS4(const unsigned char* source, CSmartRefCountPtr<UTFBuffer_t<unsigned long> >& target)
{
    const size_t bytes = source ? std::strlen(reinterpret_cast<const char*>(source)) : 0;
    UTFBuffer_t<unsigned long>* b = 0;
    if (!newUTFBuffer(target, bytes, b))
        return false;
    const unsigned char* src = source;
    unsigned long* out = b->data();
    if (bytes && ConvertUTF8toUTF32(&src, source + bytes, &out, b->data() + bytes, lenientConversion) !=
                     conversionOK) {
        target = CSmartRefCountPtr<UTFBuffer_t<unsigned long> >();
        return false;
    }
    b->setUsed(static_cast<unsigned int>(out - b->data()));
    return true;
}

namespace {

template <class T>
size_t zeroTerminatedLength(const T* s)
{
    size_t n = 0;
    if (s)
        while (s[n])
            ++n;
    return n;
}

} // namespace

bool CUTFConverter::UCS4ToUTF8(const unsigned long* source, CSmartRefCountPtr<UTFBuffer_t<unsigned char> >& target)
{
    const size_t n = zeroTerminatedLength(source);
    UTFBuffer_t<unsigned char>* b = 0;
    if (!newUTFBuffer(target, 4 * static_cast<uint64_t>(n), b))
        return false;
    const unsigned long* src = source;
    unsigned char* out = b->data();
    if (n)
        ConvertUTF32toUTF8(&src, source + n, &out, b->data() + 4 * n, lenientConversion);
    b->setUsed(static_cast<unsigned int>(out - b->data()));
    return true;
}

bool CUTFConverter::UCS4ToUTF16(const unsigned long* source, STovoString& target)
{
    target.empty();
    const size_t n = zeroTerminatedLength(source);
    if (!n)
        return true;
    if (n >= 0x7FFFFFF0u) {
        VARDO_ASSERT_TEXT("targetStart");
        return false;
    }
    unsigned short* buffer = static_cast<unsigned short*>(std::malloc(2 * n * sizeof(unsigned short)));
    if (!buffer) {
        VARDO_ASSERT_TEXT("targetStart");
        return false;
    }
    const unsigned long* src = source;
    unsigned short* out = buffer;
    ConvertUTF32toUTF16(&src, source + n, &out, buffer + 2 * n, lenientConversion);
    target.concat(buffer, static_cast<unsigned int>(out - buffer));
    std::free(buffer);
    return true;
}

bool CUTFConverter::UTF16ToUCS4(const STovoString& source, CSmartRefCountPtr<UTFBuffer_t<unsigned long> >& target)
{
    const size_t n = source.getLength();
    UTFBuffer_t<unsigned long>* b = 0;
    if (!newUTFBuffer(target, n, b))
        return false;
    const unsigned short* src = source.data();
    unsigned long* out = b->data();
    ConvertUTF16toUTF32(&src, src + n, &out, out + n, lenientConversion);
    b->setUsed(static_cast<unsigned int>(out - b->data()));
    return true;
}

unsigned int CUTFConverter::UTF16ToUCS4(const unsigned short* source, unsigned long* target, unsigned int size)
{
    const size_t n = zeroTerminatedLength(source);
    const unsigned short* src = source;
    if (!target) {
        // Count the values: every unit is one, except the low unit of a pair.
        size_t count = 0;
        for (size_t i = 0; i < n; ++i, ++count)
            if ((source[i] & 0xFC00) == 0xD800 && i + 1 < n && (source[i + 1] & 0xFC00) == 0xDC00)
                ++i;
        return count >= 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(count);
    }
    if (!size)
        return 0xFFFFFFFFu;
    unsigned long* out = target;
    const ConversionResult r =
        n ? ConvertUTF16toUTF32(&src, source + n, &out, target + (size - 1), lenientConversion) : conversionOK;
    *out = 0;
    if (r != conversionOK)
        return 0xFFFFFFFFu;
    return static_cast<unsigned int>(out - target);
}

unsigned int CUTFConverter::UTF16ToUTF8Length(const unsigned short* source)
{
    if (!source)
        return 1;
    const uint64_t bound = utf::utf8LengthBound(source, crt::ucsLen(source));
    return bound >= 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned int>(bound);
}

unsigned int CUTFConverter::WideCharToUTF8Length(const unsigned short* source)
{
    return UTF16ToUTF8Length(source);
}

} // namespace Vardo400
