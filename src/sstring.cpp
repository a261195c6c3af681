// The string template and its three instantiations. The buffer rules (sizes, growth,
// the shared empty buffer) are observable by callers and kept exactly: the 32 spare
// units of allocBuffer, the doubling growth of appends, copy on write.
#include "vardo/sstring.h"
#include "vardo/strace.h"

#include "crt.h"
#include "os/os_crt.h"
#include "vardo_internal.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <new>
#include <string>

namespace Vardo400 {

namespace {

class BadAllocation : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "bad allocation"; }
};

// Per-unit operations that differ between 8-bit and 16-bit text.
template <class CharT> struct Units;

template <> struct Units<char> {
    static size_t len(const char* s) { return std::strlen(s); }
    static bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
    static const char* search(const char* s, const char* sub, int fixed)
    {
        return fixed ? std::strstr(s, sub) : crt::mbsStr(s, sub);
    }
    static int binary(const char* a, const char* b) { return std::strcmp(a, b); }
    static int collate(const char* a, const char* b) { return crt::mbsCollate(a, b); }
};

template <> struct Units<unsigned short> {
    static size_t len(const unsigned short* s) { return crt::ucsLen(s); }
    static bool isSpace(unsigned short c) { return is_space(c); }
    static const unsigned short* search(const unsigned short* s, const unsigned short* sub, int)
    {
        const unsigned short first = sub[0];
        if (!first)
            return s;
        const size_t m = crt::ucsLen(sub + 1);
        for (; *s; ++s)
            if (*s == first && std::memcmp(s + 1, sub + 1, m * sizeof(unsigned short)) == 0)
                return s;
        return nullptr;
    }
    // Search within n units. Four candidate positions a step: a position is only
    // compared in full when both its first and its last unit match the needle's.
    static const unsigned short* searchN(const unsigned short* s, size_t n, const unsigned short* sub, size_t m)
    {
        if (m == 0)
            return s;
        if (m > n)
            return nullptr;
        const unsigned short first = sub[0], lastUnit = sub[m - 1];
        const size_t last = n - m;
        const uint64_t ones = 0x0001000100010001ULL, low15 = 0x7FFF7FFF7FFF7FFFULL, highs = 0x8000800080008000ULL;
        const uint64_t pf = ones * first, pl = ones * lastUnit;
        size_t i = 0;
        for (; i + 4 <= last + 1; i += 4) {
            uint64_t a, b;
            std::memcpy(&a, s + i, 8);
            std::memcpy(&b, s + i + m - 1, 8);
            const uint64_t x = a ^ pf, y = b ^ pl;
            // Exact per-unit zero test: the high bit of each unit that is zero.
            uint64_t hits = ~(((x & low15) + low15) | x) & ~(((y & low15) + low15) | y) & highs;
            while (hits) {
                const unsigned lane = static_cast<unsigned>(__builtin_ctzll(hits)) / 16;
                if (std::memcmp(s + i + lane, sub, m * sizeof(unsigned short)) == 0)
                    return s + i + lane;
                hits &= hits - 1;
            }
        }
        for (; i <= last; ++i)
            if (s[i] == first && std::memcmp(s + i, sub, m * sizeof(unsigned short)) == 0)
                return s + i;
        return nullptr;
    }
    static int binary(const unsigned short* a, const unsigned short* b) { return crt::ucsCmp(a, b); }
    static int collate(const unsigned short* a, const unsigned short* b) { return os::ucsCollate(a, b); }
};

template <class CharT> struct EmptyBlock {
    typename SString_t<CharT, 1>::Buffer hdr;
    CharT data[2];
};

// One static empty buffer per instantiation, constant-initialised so it exists before
// any string does. Never counted, written or freed.
EmptyBlock<char> g_emptyAnsi = {{-1, 0, 0xFFFFFFFFu}, {0, 0}};
EmptyBlock<char> g_emptyAscii = {{-1, 0, 0xFFFFFFFFu}, {0, 0}};
EmptyBlock<unsigned short> g_emptyWide = {{-1, 0, 0xFFFFFFFFu}, {0, 0}};

template <class CharT, int Fixed> struct EmptyOf;
template <> struct EmptyOf<char, 0> { static void* get() { return &g_emptyAnsi.hdr; } };
template <> struct EmptyOf<char, 1> { static void* get() { return &g_emptyAscii.hdr; } };
template <> struct EmptyOf<unsigned short, 1> { static void* get() { return &g_emptyWide.hdr; } };

inline int clampSign(int r) { return r < 0 ? -1 : (r > 0 ? 1 : 0); }

} // namespace

void ThrowBadAllocation() { throw BadAllocation(); }

// ---- the buffer ---------------------------------------------------------------------------

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::Buffer* SString_t<CharT, Fixed>::GetEmptyBuffer()
{
    return static_cast<Buffer*>(EmptyOf<CharT, Fixed>::get());
}

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::Buffer* SString_t<CharT, Fixed>::emptyBuffer() noexcept
{
    return static_cast<Buffer*>(EmptyOf<CharT, Fixed>::get());
}

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::Buffer* SString_t<CharT, Fixed>::allocBuffer(unsigned int n)
{
    const uint64_t units = static_cast<uint64_t>(n) + 32;
    if (units >= 0xFFFFFFFFu || units * sizeof(CharT) + sizeof(Buffer) > SIZE_MAX)
        ThrowBadAllocation();
    Buffer* b = static_cast<Buffer*>(std::malloc(sizeof(Buffer) + static_cast<size_t>(units) * sizeof(CharT)));
    if (!b)
        ThrowBadAllocation();
    b->m_refCount = 1;
    b->m_length = 0;
    b->m_capacity = static_cast<uint32_t>(units);
    b->data()[0] = 0;
    return b;
}

// GCC cannot see that the empty buffer (a static) never reaches free().
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wfree-nonheap-object"
#endif
template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::releaseBuffer(Buffer* b)
{
    if (!IsEmptyBuffer(b) && AtomicAdd32(&b->m_refCount, -1) == 1)
        std::free(b);
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::getRefCount() const
{
    return AtomicRead32(&m_pBuffer->m_refCount);
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::copyOnWrite(unsigned int n)
{
    Buffer* b = m_pBuffer;
    if (IsEmptyBuffer(b)) {
        if (n == 0xFFFFFFFFu)
            ThrowBadAllocation();
        m_pBuffer = allocBuffer(n + 1);
        return;
    }
    const uint32_t need = n > b->m_length ? n : b->m_length;
    if (need >= 0xFFFFFFFFu - 33)
        ThrowBadAllocation();
    if (AtomicRead32(&b->m_refCount) == 1) {
        if (need + 1 > b->m_capacity) {
            Buffer* nb = static_cast<Buffer*>(std::realloc(b, sizeof(Buffer) + (static_cast<size_t>(need) + 33) * sizeof(CharT)));
            if (!nb)
                ThrowBadAllocation();
            nb->m_capacity = need + 33;
            m_pBuffer = nb;
        }
        return;
    }
    Buffer* nb = allocBuffer(need + 1);
    std::memcpy(nb->data(), b->data(), b->m_length * sizeof(CharT));
    nb->m_length = b->m_length;
    nb->data()[nb->m_length] = 0;
    m_pBuffer = nb;
    releaseBuffer(b);
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::setBufferSize(unsigned int n)
{
    copyOnWrite(n + 1);
}

template <class CharT, int Fixed>
CharT* SString_t<CharT, Fixed>::concatAllocHelper(unsigned int add)
{
    if (add == 0)
        return nullptr;
    Buffer* b = m_pBuffer;
    const uint32_t oldLen = b->m_length;
    const uint32_t nw = oldLen + add;
    if (nw < oldLen || nw + 1 < nw) {
        VARDO_ASSERT_TEXT("nNewLength >= nOldLength");
        return nullptr;
    }
    if (IsEmptyBuffer(b)) {
        m_pBuffer = b = allocBuffer(add + 1);
    } else {
        if (oldLen > b->m_capacity) {
            VARDO_ASSERT_TEXT("nOldLength <= capacity");
            return nullptr;
        }
        const bool unique = AtomicRead32(&b->m_refCount) == 1;
        if (b->m_capacity < nw + 1) {
            const uint64_t cap = static_cast<uint64_t>(add) + 2 * static_cast<uint64_t>(oldLen) + 1;
            if (cap >= 0xFFFFFFFFu - 32) {
                VARDO_ASSERT_TEXT("nNewCapacity > nOldCapacity");
                return nullptr;
            }
            if (unique) {
                Buffer* nb = static_cast<Buffer*>(std::realloc(b, sizeof(Buffer) + static_cast<size_t>(cap) * sizeof(CharT)));
                if (!nb)
                    ThrowBadAllocation();
                nb->m_capacity = static_cast<uint32_t>(cap);
                m_pBuffer = b = nb;
            } else {
                Buffer* nb = allocBuffer(static_cast<uint32_t>(cap));
                std::memcpy(nb->data(), b->data(), oldLen * sizeof(CharT));
                releaseBuffer(b);
                m_pBuffer = b = nb;
            }
        } else if (!unique) {
            Buffer* nb = allocBuffer(oldLen + add + 1);
            std::memcpy(nb->data(), b->data(), oldLen * sizeof(CharT));
            releaseBuffer(b);
            m_pBuffer = b = nb;
        }
    }
    b->data()[nw] = 0;
    b->m_length = nw;
    return b->data() + oldLen;
}

// ---- construction -----------------------------------------------------------------------------

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::SString_t() : m_pBuffer(emptyBuffer())
{
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::SString_t(const SString_t& s) : m_pBuffer(s.m_pBuffer)
{
    if (!IsEmptyBuffer(m_pBuffer))
        AtomicAdd32(&m_pBuffer->m_refCount, 1);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::SString_t(const CharT* s) : m_pBuffer(emptyBuffer())
{
    if (s && *s)
        assignUnits(s, static_cast<unsigned int>(Units<CharT>::len(s)));
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::SString_t(const CharT* s, unsigned int count) : m_pBuffer(emptyBuffer())
{
    Buffer* b = allocBuffer(count + 1);
    if (count)
        std::memcpy(b->data(), s, count * sizeof(CharT));
    b->data()[count] = 0;
    b->m_length = count;
    m_pBuffer = b;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::SString_t(const Char& c) : m_pBuffer(emptyBuffer())
{
    *this = c;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>::~SString_t()
{
    releaseBuffer(m_pBuffer);
    m_pBuffer = nullptr;
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::assignUnits(const CharT* s, unsigned int count)
{
    if (count == 0) {
        empty();
        return;
    }
    Buffer* b = m_pBuffer;
    if (!IsEmptyBuffer(b) && AtomicRead32(&b->m_refCount) == 1 && b->m_capacity > count) {
        std::memmove(b->data(), s, count * sizeof(CharT));
    } else {
        b = allocBuffer(count + 1);
        std::memcpy(b->data(), s, count * sizeof(CharT));
        releaseBuffer(m_pBuffer);
        m_pBuffer = b;
    }
    b->data()[count] = 0;
    b->m_length = count;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator=(const SString_t& s)
{
    if (s.m_pBuffer != m_pBuffer) {
        if (!IsEmptyBuffer(s.m_pBuffer))
            AtomicAdd32(&s.m_pBuffer->m_refCount, 1);
        releaseBuffer(m_pBuffer);
        m_pBuffer = s.m_pBuffer;
    }
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator=(SString_t&& s) noexcept
{
    if (this != &s) {
        releaseBuffer(m_pBuffer);
        m_pBuffer = s.m_pBuffer;
        s.m_pBuffer = emptyBuffer();
    }
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator=(const CharT* s)
{
    if (!s)
        empty();
    else
        assignUnits(s, static_cast<unsigned int>(Units<CharT>::len(s)));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator=(const Char& c)
{
    int n = c.getLength();
    if (n < 0)
        n = static_cast<int>(Units<CharT>::len(c.getBytes()) > 6 ? 6 : Units<CharT>::len(c.getBytes()));
    if (c.isNull())
        n = 0;
    CharT units[8];
    std::memcpy(units, c.getBytes(), n * sizeof(CharT));
    assignUnits(units, static_cast<unsigned int>(n));
    return *this;
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::empty()
{
    releaseBuffer(m_pBuffer);
    m_pBuffer = emptyBuffer();
}

// ---- iteration --------------------------------------------------------------------------------

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::StepLength(const CharT* p)
{
    if (Fixed)
        return 1;
    int n = std::mblen(reinterpret_cast<const char*>(p), 6);
    return n < 0 ? 1 : n;
}

template <class CharT, int Fixed>
const CharT* SString_t<CharT, Fixed>::SearchFrom(const CharT* p, const SString_t& s)
{
    const CharT* hit = Units<CharT>::search(p, s.data(), Fixed);
    return hit ? hit : p + Units<CharT>::len(p);
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getNChars() const
{
    if (Fixed)
        return m_pBuffer->m_length;
    return static_cast<unsigned int>(crt::mbStrLen(reinterpret_cast<const char*>(data())));
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::getCharIndex(const iterator& it) const
{
    iterator iter2(data());
    unsigned int n = 0;
    if (Fixed) {
        const CharT* p = it.getPointer();
        if (p >= data() && p <= data() + m_pBuffer->m_length)
            return static_cast<unsigned int>(p - data());
        iter2 = end();
        n = m_pBuffer->m_length;
    } else {
        while (iter2 != it && !iter2.isAtEnd()) {
            ++iter2;
            ++n;
        }
    }
    if (iter2 != it)
        VARDO_ASSERT_TEXT("iter2 == iter");
    return n;
}

template <class CharT, int Fixed>
unsigned int SString_t<CharT, Fixed>::indexToUnits(unsigned int index) const
{
    if (Fixed)
        return index < m_pBuffer->m_length ? index : m_pBuffer->m_length;
    iterator it(data());
    it += index;
    return static_cast<unsigned int>(it.getPointer() - data());
}

// ---- access -----------------------------------------------------------------------------------

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::Char SString_t<CharT, Fixed>::getAt(unsigned int index) const
{
    return Char(data() + indexToUnits(index));
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::setAt(unsigned int index, const Char& c)
{
    iterator it(data() + indexToUnits(index));
    setAt(it, c);
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::setAt(iterator& it, const Char& c)
{
    const CharT* p = it.getPointer();
    if (!p || p < data() || p >= data() + m_pBuffer->m_length) {
        VARDO_ASSERT_TEXT("iterator inside the string");
        return;
    }
    const unsigned int at = static_cast<unsigned int>(p - data());
    if (Fixed && !c.isNull()) {
        copyOnWrite(0);
        m_pBuffer->data()[at] = *c.getBytes();
        it = iterator(data() + at);
        return;
    }
    // A character of another byte length (or the null character, which ends the text
    // there) replaces the old one by deletion and insertion.
    deleteChars(it, 1);
    if (c.isNull()) {
        m_pBuffer->m_length = at;
        m_pBuffer->data()[at] = 0;
        it = iterator(data() + at);
        return;
    }
    insertChar(it, c);
}

// ---- append -----------------------------------------------------------------------------------

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::concat(const CharT* s, unsigned int count)
{
    if (!s || !count)
        return *this;
    unsigned int n = 0;
    while (n < count && s[n])
        ++n;
    if (s >= data() && s <= data() + m_pBuffer->m_length && !IsEmptyBuffer(m_pBuffer)) {
        // The source lives in our own buffer, which the append may move.
        SString_t keep(*this);
        CharT* dst = concatAllocHelper(n);
        if (dst)
            std::memcpy(dst, keep.data() + (s - keep.data()), n * sizeof(CharT));
        return *this;
    }
    CharT* dst = concatAllocHelper(n);
    if (dst)
        std::memcpy(dst, s, n * sizeof(CharT));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator+=(const SString_t& s)
{
    SString_t keep(s);
    CharT* dst = concatAllocHelper(keep.getLength());
    if (dst)
        std::memcpy(dst, keep.data(), keep.getLength() * sizeof(CharT));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::operator+=(const CharT* s)
{
    if (s)
        concat(s, static_cast<unsigned int>(Units<CharT>::len(s)));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::appendChar(const Char& c)
{
    if (c.isNull())
        return *this;
    int n = c.getLength();
    if (n < 0)
        n = 1;
    CharT units[8];
    std::memcpy(units, c.getBytes(), n * sizeof(CharT));
    CharT* dst = concatAllocHelper(static_cast<unsigned int>(n));
    if (dst)
        std::memcpy(dst, units, n * sizeof(CharT));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::operator+(const SString_t& s) const
{
    SString_t r(*this);
    r += s;
    return r;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::concat(const iterator& from, const iterator& to)
{
    if (from.getPointer() && to > from)
        concat(from.getPointer(), static_cast<unsigned int>(to - from));
    return *this;
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed>& SString_t<CharT, Fixed>::concatFromAscii(const char* s, unsigned int count)
{
    if (!s || !count)
        return *this;
    unsigned int n = 0;
    while (n < count && s[n])
        ++n;
    // Only a source inside our own buffer needs copying aside before the buffer moves.
    const char* own = reinterpret_cast<const char*>(data());
    std::string keep;
    if (s >= own && s <= own + m_pBuffer->m_length * sizeof(CharT) && !IsEmptyBuffer(m_pBuffer)) {
        keep.assign(s, n);
        s = keep.c_str();
    }
    CharT* dst = concatAllocHelper(n);
    if (dst)
        for (unsigned int i = 0; i < n; ++i)
            dst[i] = static_cast<CharT>(static_cast<unsigned char>(s[i]));
    return *this;
}

// ---- edit -------------------------------------------------------------------------------------

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::insertChars(iterator& at, const SString_t& s)
{
    const CharT* p = at.getPointer();
    const uint32_t oldLen = m_pBuffer->m_length;
    if (!p || p < data() || p > data() + oldLen) {
        VARDO_ASSERT_TEXT("iterator inside the string");
        return;
    }
    const unsigned int byteN = static_cast<unsigned int>(p - data());
    SString_t keep(s);
    const unsigned int add = keep.getLength();
    if (!concatAllocHelper(add))
        return;
    CharT* d = m_pBuffer->data();
    std::memmove(d + byteN + add, d + byteN, (oldLen - byteN) * sizeof(CharT));
    std::memcpy(d + byteN, keep.data(), add * sizeof(CharT));
    at = iterator(d + byteN);
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::insertChars(unsigned int index, const SString_t& s)
{
    iterator it(data() + indexToUnits(index));
    insertChars(it, s);
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::insertChar(iterator& at, const Char& c)
{
    insertChars(at, SString_t(c));
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::insertChar(unsigned int index, const Char& c)
{
    iterator it(data() + indexToUnits(index));
    insertChars(it, SString_t(c));
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::deleteChars(iterator& at, unsigned int n)
{
    iterator stop(at);
    stop += n;
    if (stop == at)
        return;
    const CharT* base = data();
    if (at.getPointer() < base) {
        VARDO_ASSERT_TEXT("pStart >= pString");
        return;
    }
    const uint32_t nBytesInString = m_pBuffer->m_length;
    const size_t byteN = static_cast<size_t>(at.getPointer() - base);
    size_t nBytesToDelete = static_cast<size_t>(stop.getPointer() - at.getPointer());
    if (byteN + nBytesToDelete > nBytesInString) {
        VARDO_ASSERT_TEXT("byteN + nBytesToDelete <= nBytesInString");
        if (byteN >= nBytesInString)
            return;
        nBytesToDelete = nBytesInString - byteN;
    }
    copyOnWrite(0);
    CharT* d = m_pBuffer->data();
    at = iterator(d + byteN);
    std::memmove(d + byteN, d + byteN + nBytesToDelete, (nBytesInString - byteN - nBytesToDelete) * sizeof(CharT));
    m_pBuffer->m_length = static_cast<uint32_t>(nBytesInString - nBytesToDelete);
    d[m_pBuffer->m_length] = 0;
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::deleteChars(unsigned int index, unsigned int n)
{
    iterator it(data());
    it += index;
    deleteChars(it, n);
}

// ---- substrings -------------------------------------------------------------------------------

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::fromRange(const CharT* from, const CharT* to)
{
    if (!from || to <= from)
        return SString_t(from, 0);
    return SString_t(from, static_cast<unsigned int>(to - from));
}

// Keeps a caller's iterator inside [data, end] so a foreign one cannot read elsewhere.
#define VARDO_CLAMP_ITER(p)                                                               \
    ((p) < data() ? data() : ((p) > data() + m_pBuffer->m_length ? data() + m_pBuffer->m_length : (p)))

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::left(unsigned int n) const
{
    return fromRange(data(), data() + indexToUnits(n));
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::left(const iterator& to) const
{
    return fromRange(data(), VARDO_CLAMP_ITER(to.getPointer()));
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::right(unsigned int n) const
{
    const unsigned int chars = getNChars();
    const unsigned int skip = chars > n ? chars - n : 0;
    return fromRange(data() + indexToUnits(skip), data() + m_pBuffer->m_length);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::right(const iterator& from) const
{
    return fromRange(VARDO_CLAMP_ITER(from.getPointer()), data() + m_pBuffer->m_length);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::mid(unsigned int index) const
{
    return fromRange(data() + indexToUnits(index), data() + m_pBuffer->m_length);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::mid(unsigned int index, unsigned int n) const
{
    iterator from(data() + indexToUnits(index));
    return mid(from, n);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::mid(const iterator& from) const
{
    return right(from);
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::mid(const iterator& from, unsigned int n) const
{
    iterator a(VARDO_CLAMP_ITER(from.getPointer()));
    iterator b(a);
    b += n;
    return fromRange(a.getPointer(), b.getPointer());
}

template <class CharT, int Fixed>
SString_t<CharT, Fixed> SString_t<CharT, Fixed>::mid(const iterator& from, const iterator& to) const
{
    return fromRange(VARDO_CLAMP_ITER(from.getPointer()), VARDO_CLAMP_ITER(to.getPointer()));
}

#undef VARDO_CLAMP_ITER

// ---- search -----------------------------------------------------------------------------------

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::iterator SString_t<CharT, Fixed>::find(const SString_t& s) const
{
    const CharT* hit;
    if (sizeof(CharT) == 2)
        hit = reinterpret_cast<const CharT*>(Units<unsigned short>::searchN(
            reinterpret_cast<const unsigned short*>(data()), m_pBuffer->m_length,
            reinterpret_cast<const unsigned short*>(s.data()), s.m_pBuffer->m_length));
    else
        hit = Units<CharT>::search(data(), s.data(), Fixed);
    return hit ? iterator(hit) : end();
}

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::iterator SString_t<CharT, Fixed>::findFirst(const Char& c) const
{
    iterator it(data());
    return it.find(c);
}

template <class CharT, int Fixed>
typename SString_t<CharT, Fixed>::iterator SString_t<CharT, Fixed>::findLast(const Char& c) const
{
    iterator found = end();
    for (iterator it(data()); !it.isAtEnd(); ++it)
        if (*it == c)
            found = it;
    return found;
}

// ---- case and blanks --------------------------------------------------------------------------

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::toUpper()
{
    if (isEmpty())
        return;
    copyOnWrite(0);
    CharT* d = m_pBuffer->data();
    if (sizeof(CharT) == 2) {
        for (uint32_t i = 0; i < m_pBuffer->m_length; ++i)
            d[i] = static_cast<CharT>(os::ucsToUpper(static_cast<unsigned short>(d[i])));
    } else if (Fixed) {
        for (uint32_t i = 0; i < m_pBuffer->m_length; ++i)
            d[i] = static_cast<CharT>(std::toupper(static_cast<unsigned char>(d[i])));
    } else {
        MakeUpperCase(reinterpret_cast<char*>(d), static_cast<int>(m_pBuffer->m_length));
        m_pBuffer->m_length = static_cast<uint32_t>(std::strlen(reinterpret_cast<char*>(d)));
    }
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::toLower()
{
    if (isEmpty())
        return;
    copyOnWrite(0);
    CharT* d = m_pBuffer->data();
    if (sizeof(CharT) == 2) {
        for (uint32_t i = 0; i < m_pBuffer->m_length; ++i)
            d[i] = static_cast<CharT>(os::ucsToLower(static_cast<unsigned short>(d[i])));
    } else if (Fixed) {
        for (uint32_t i = 0; i < m_pBuffer->m_length; ++i)
            d[i] = static_cast<CharT>(std::tolower(static_cast<unsigned char>(d[i])));
    } else {
        MakeLowerCase(reinterpret_cast<char*>(d), static_cast<int>(m_pBuffer->m_length));
        m_pBuffer->m_length = static_cast<uint32_t>(std::strlen(reinterpret_cast<char*>(d)));
    }
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::trimLeft()
{
    const CharT* p = data();
    const CharT* e = p + m_pBuffer->m_length;
    while (p < e && Units<CharT>::isSpace(*p))
        ++p;
    if (p == data())
        return;
    if (p == e)
        empty();
    else
        *this = SString_t(p, static_cast<unsigned int>(e - p));
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::trimRight()
{
    const CharT* b = data();
    const CharT* e = b + m_pBuffer->m_length;
    while (e > b && Units<CharT>::isSpace(e[-1]))
        --e;
    if (e == b + m_pBuffer->m_length)
        return;
    if (e == b)
        empty();
    else
        *this = SString_t(b, static_cast<unsigned int>(e - b));
}

template <class CharT, int Fixed>
void SString_t<CharT, Fixed>::trim()
{
    trimLeft();
    trimRight();
}

// ---- comparison -------------------------------------------------------------------------------

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::compare(const CharT* s) const
{
    static const CharT none[1] = {0};
    if (!s)
        s = none;
    int r = Units<CharT>::collate(data(), s);
    if (r == os::CollateError)
        r = Units<CharT>::binary(data(), s);
    return r;
}

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::compareNoCase(const CharT* s) const
{
    static const CharT none[1] = {0};
    if (!s)
        s = none;
    int r;
    if (sizeof(CharT) == 2) {
        const unsigned short* a = reinterpret_cast<const unsigned short*>(data());
        const unsigned short* b = reinterpret_cast<const unsigned short*>(s);
        r = os::ucsCollateNoCase(a, b);
        if (r == os::CollateError)
            r = crt::ucsICmp(a, b);
    } else {
        const char* a = reinterpret_cast<const char*>(data());
        const char* b = reinterpret_cast<const char*>(s);
        if (Fixed) {
            r = crt::strICmp(a, b);
        } else {
            r = crt::mbsCollateNoCase(a, b);
            if (r == os::CollateError)
                r = crt::strICmp(a, b);
        }
    }
    return clampSign(r);
}

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::compareBinary(const CharT* s) const
{
    static const CharT none[1] = {0};
    return Units<CharT>::binary(data(), s ? s : none);
}

template <class CharT, int Fixed>
int SString_t<CharT, Fixed>::compareFast(const SString_t& s) const
{
    const uint32_t a = m_pBuffer->m_length, b = s.m_pBuffer->m_length;
    if (a != b)
        return a < b ? -1 : 1;
    if (sizeof(CharT) == 2)
        return clampSign(ucscmp_fast(reinterpret_cast<const unsigned short*>(data()),
                                     reinterpret_cast<const unsigned short*>(s.data()), a));
    return clampSign(std::memcmp(data(), s.data(), a));
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::operator==(const SString_t& s) const
{
    if (m_pBuffer == s.m_pBuffer)
        return true;
    const uint32_t n = m_pBuffer->m_length;
    return n == s.m_pBuffer->m_length && std::memcmp(data(), s.data(), n * sizeof(CharT)) == 0;
}

template <class CharT, int Fixed>
bool SString_t<CharT, Fixed>::operator==(const CharT* s) const
{
    if (!s)
        return isEmpty();
    return Units<CharT>::binary(data(), s) == 0;
}

// ---- case-insensitive search ----------------------------------------------------------------------

template <class CI, class Base>
static typename Base::iterator findNoCase(const CI& self, const Base& s)
{
    Base a(self), b(s);
    a.toLower();
    b.toLower();
    typename Base::iterator hit = a.find(b);
    if (hit.isAtEnd() && !b.isEmpty())
        return self.end();
    typename Base::iterator r(self.data());
    r += a.getCharIndex(hit);
    return r;
}

SAnsiStringCI::iterator SAnsiStringCI::find(const Base& s) const { return findNoCase(*this, s); }
SWCharStringCI::iterator SWCharStringCI::find(const Base& s) const { return findNoCase(*this, s); }

// ---- raw text ---------------------------------------------------------------------------------

template <class CharT>
static CharT* copyN(CharT* dst, const CharT* src, size_t n, size_t capacity)
{
    if (!dst || capacity == 0)
        return dst;
    size_t i = 0;
    if (src)
        for (; i < n && i + 1 < capacity && src[i]; ++i)
            dst[i] = src[i];
    dst[i] = 0;
    return dst;
}

template <class CharT>
static CharT* concatN(CharT* dst, const CharT* src, size_t n, size_t capacity)
{
    if (!dst || capacity == 0)
        return dst;
    size_t used = 0;
    while (used < capacity && dst[used])
        ++used;
    if (used == capacity)
        return dst;
    copyN(dst + used, src, n, capacity - used);
    return dst;
}

char* CopyString(char* dst, const char* src, size_t capacity) { return copyN(dst, src, SIZE_MAX, capacity); }
unsigned short* CopyString(unsigned short* dst, const unsigned short* src, size_t capacity) { return copyN(dst, src, SIZE_MAX, capacity); }
char* CopyStringN(char* dst, const char* src, size_t n, size_t capacity) { return copyN(dst, src, n, capacity); }
unsigned short* CopyStringN(unsigned short* dst, const unsigned short* src, size_t n, size_t capacity) { return copyN(dst, src, n, capacity); }
char* ConcatString(char* dst, const char* src, size_t capacity) { return concatN(dst, src, SIZE_MAX, capacity); }
unsigned short* ConcatString(unsigned short* dst, const unsigned short* src, size_t capacity) { return concatN(dst, src, SIZE_MAX, capacity); }
char* ConcatStringN(char* dst, const char* src, size_t n, size_t capacity) { return concatN(dst, src, n, capacity); }
unsigned short* ConcatStringN(unsigned short* dst, const unsigned short* src, size_t n, size_t capacity) { return concatN(dst, src, n, capacity); }

static bool mapCaseChar(char* p, int room, int* newLength, bool upper)
{
    wchar_t wc = 0;
    std::mbtowc(nullptr, nullptr, 0);
    if (room <= 0 || std::mbtowc(&wc, p, room < 6 ? room : 6) < 0) {
        VARDO_ASSERT_TEXT(upper ? "MakeUpperCaseChar: Fail to convert to wchar_t"
                                : "MakeLowerCaseChar: Fail to convert to wchar_t");
        return false;
    }
    wc = static_cast<wchar_t>(upper ? std::towupper(wc) : std::towlower(wc));
    char out[MB_LEN_MAX > 16 ? MB_LEN_MAX : 16];
    std::wctomb(nullptr, 0);
    int k = std::wctomb(out, wc);
    if (k < 0 || k > room) {
        VARDO_ASSERT_TEXT(upper ? "MakeUpperCaseChar: Fail to convert back to MBCS"
                                : "MakeLowerCaseChar: Fail to convert back to MBCS");
        return false;
    }
    std::memcpy(p, out, k);
    if (newLength)
        *newLength = k;
    return true;
}

bool MakeUpperCaseChar(char* p, int room, int* newLength) { return mapCaseChar(p, room, newLength, true); }
bool MakeLowerCaseChar(char* p, int room, int* newLength) { return mapCaseChar(p, room, newLength, false); }

static void mapCase(char* s, int size, bool upper)
{
    if (!s)
        return;
    const size_t len = std::strlen(s);
    const size_t strSize = size < 0 ? len : static_cast<size_t>(size);
    const std::string copy(s, len);
    const char* in = copy.c_str();
    char* dest = s;
    std::mblen(nullptr, 0);
    while (*in) {
        int n = std::mblen(in, 6);
        if (n <= 0)
            n = 1;
        if (static_cast<size_t>(dest - s) + n > strSize)
            break;
        std::memcpy(dest, in, n);
        int charSize = n;
        if (!mapCaseChar(dest, static_cast<int>(strSize - (dest - s)), &charSize, upper)) {
            VARDO_ASSERT_TEXT(upper ? "MakeUpperCaseChar(dest, strSize - (dest - s), &charSize)"
                                    : "MakeLowerCaseChar(dest, strSize - (dest - s), &charSize)");
            charSize = n;
        }
        dest += charSize;
        in += n;
    }
    *dest = 0;
}

void MakeUpperCase(char* s, int size) { mapCase(s, size, true); }
void MakeLowerCase(char* s, int size) { mapCase(s, size, false); }

void MakeLowerCase(unsigned short* s, int size)
{
    if (!s)
        return;
    for (int i = 0; (size < 0 || i < size) && s[i]; ++i)
        s[i] = os::ucsToLower(s[i]);
}

int ucscmp_fast(const unsigned short* a, const unsigned short* b, size_t n)
{
    if ((reinterpret_cast<uintptr_t>(a) | reinterpret_cast<uintptr_t>(b)) & 3)
        return crt::ucsCmp(a, b);
    // Whole words of four units first (the same order as unit by unit), then the
    // documented two-units-a-step rule for the tail.
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        uint64_t x, y;
        std::memcpy(&x, a + i, 8);
        std::memcpy(&y, b + i, 8);
        if (x != y)
            break;
    }
    const size_t words = (n + 1) / 2;
    for (size_t w = i / 2; w < words; ++w) {
        uint32_t x, y;
        std::memcpy(&x, a + 2 * w, 4);
        std::memcpy(&y, b + 2 * w, 4);
        if (x == y)
            continue;
        const size_t k = 2 * w;
        if (a[k] != b[k])
            return a[k] < b[k] ? -1 : 1;
        if (k + 1 == n)
            return 0;
        return a[k + 1] < b[k + 1] ? -1 : 1;
    }
    return 0;
}

template class SString_t<char, 0>;
template class SString_t<char, 1>;
template class SString_t<unsigned short, 1>;

} // namespace Vardo400
