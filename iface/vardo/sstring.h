// SString_t: the library's reference-counted, copy-on-write string template, and its
// named instantiations SAnsiString, SAsciiString, SWCharString, STovoString and the
// case-insensitive SAnsiStringCI and SWCharStringCI.
//
// A string object is exactly one pointer to a shared buffer: a 32-bit signed
// reference count, a 32-bit length (units in use), a 32-bit capacity (units the
// data area holds, terminator included) and the zero-terminated data. Every
// instantiation has one static empty buffer (count -1, capacity 0xFFFFFFFF) that is
// never counted, written or freed. Copying shares the buffer (one atomic increment);
// every change first makes the buffer unique.
//
// Thread-safety: one string object is not safe for concurrent use; distinct objects
// that share a buffer may live in different threads.
// Errors: allocation failure throws std::bad_alloc; misuse (overflowing lengths,
// foreign iterators, deletions past the end) raises an assertion and is clamped or
// ignored.
#ifndef VARDO_SSTRING_H
#define VARDO_SSTRING_H

#include "vardodefs.h"
#include "schar.h"

#include <wchar.h>


namespace Vardo400 {

template <class CharT, int Fixed>
class VARDO_TEMPLATE_API SString_t {
public:
    typedef CharT char_type;
    typedef SChar_t<CharT, Fixed> Char;
    typedef SString_t<CharT, Fixed> Base;

    // The shared block. Data follows the header directly.
    struct Buffer {
        int32_t m_refCount;
        uint32_t m_length;
        uint32_t m_capacity;
        CharT* data() { return reinterpret_cast<CharT*>(this + 1); }
        const CharT* data() const { return reinterpret_cast<const CharT*>(this + 1); }
    };

    // A position inside a string's data area: one pointer to a code unit.
    class VARDO_TEMPLATE_API iterator {
    public:
        iterator() : m_p(0) {}
        iterator(const SString_t& s) : m_p(s.data()) {}
        iterator(const CharT* p) : m_p(p) {}
        // Next character (for SAnsiString the mblen bytes, 1 on an invalid sequence).
        iterator& operator++()
        {
            if (m_p)
                m_p += Fixed ? 1 : SString_t::StepLength(m_p);
            return *this;
        }
        iterator operator++(int) { iterator t(*this); ++*this; return t; }
        // n steps, stopping at the terminator.
        iterator& operator+=(unsigned int n)
        {
            if (m_p)
                while (n-- && *m_p)
                    ++*this;
            return *this;
        }
        Char operator*() const { return Char(m_p); }
        bool isAtEnd() const { return !m_p || *m_p == 0; }
        explicit operator bool() const { return !isAtEnd(); }
        bool operator!() const { return isAtEnd(); }
        bool operator==(const iterator& o) const { return m_p == o.m_p; }
        bool operator!=(const iterator& o) const { return m_p != o.m_p; }
        bool operator<(const iterator& o) const { return m_p < o.m_p; }
        bool operator<=(const iterator& o) const { return m_p <= o.m_p; }
        bool operator>(const iterator& o) const { return m_p > o.m_p; }
        bool operator>=(const iterator& o) const { return m_p >= o.m_p; }
        // Distance in code units.
        long operator-(const iterator& o) const { return (long)(m_p - o.m_p); }
        // Moves to the next occurrence at or after the position (to the end when
        // there is none) and returns *this.
        iterator& find(const SString_t& s)
        {
            if (m_p)
                m_p = SString_t::SearchFrom(m_p, s);
            return *this;
        }
        iterator& find(const Char& c)
        {
            if (m_p)
                while (*m_p && !(**this == c))
                    ++*this;
            return *this;
        }
        const CharT* getPointer() const { return m_p; }
    private:
        const CharT* m_p;
    };

    // ---- construction, assignment --------------------------------------------------
    SString_t();
    SString_t(const SString_t& s);
    SString_t(SString_t&& s) noexcept : m_pBuffer(s.m_pBuffer) { s.m_pBuffer = emptyBuffer(); }
    SString_t(const CharT* s);          // null gives the empty string
    SString_t(const Char& c);
    ~SString_t();

    SString_t& operator=(const SString_t& s);
    SString_t& operator=(SString_t&& s) noexcept;
    SString_t& operator=(const CharT* s);
    SString_t& operator=(const Char& c);
    // Back to the shared empty buffer.
    void empty();

    // ---- size ----------------------------------------------------------------------
    // Characters: for SAnsiString counted in the current locale (_mbstrlen), else units.
    unsigned int getNChars() const;
    unsigned int getLength() const { return m_pBuffer->m_length; }
    // Units the data area holds, terminator included (0xFFFFFFFF for the empty buffer).
    unsigned int getCapacity() const { return m_pBuffer->m_capacity; }
    bool isEmpty() const { return m_pBuffer->m_length == 0; }
    // Makes the buffer unique with room for n units plus terminator.
    void setBufferSize(unsigned int n);
    // Characters from the start to it; all characters, with an assertion, when it is
    // not inside the string.
    unsigned int getCharIndex(const iterator& it) const;
    // True when this string uses the shared empty buffer.
    bool isSharedEmpty() const { return IsEmptyBuffer(m_pBuffer); }
    // Strings sharing this buffer (-1 for the empty buffer).
    int getRefCount() const;

    // ---- access --------------------------------------------------------------------
    Char getAt(unsigned int index) const;
    Char getAt(const iterator& it) const { return *it; }
    void setAt(unsigned int index, const Char& c);
    void setAt(iterator& it, const Char& c);
    operator const CharT*() const { return m_pBuffer->data(); }
    const CharT* data() const { return m_pBuffer->data(); }
    iterator begin() const { return iterator(data()); }
    iterator end() const { return iterator(data() + m_pBuffer->m_length); }

    // ---- append --------------------------------------------------------------------
    SString_t& operator+=(const SString_t& s);
    SString_t& operator+=(const CharT* s);
    SString_t& operator+=(const Char& c)
    {
        // The common case, one unit into a unique buffer with room, stays inline; it
        // ends exactly where the general append would.
        Buffer* b = m_pBuffer;
        const uint32_t len = b->m_length;
        if (Fixed == 1 && !c.isNull() && b->m_capacity != 0xFFFFFFFFu && len + 2 <= b->m_capacity &&
            __atomic_load_n(&b->m_refCount, __ATOMIC_SEQ_CST) == 1) {
            b->data()[len] = *c.getBytes();
            b->data()[len + 1] = 0;
            b->m_length = len + 1;
            return *this;
        }
        return appendChar(c);
    }
    SString_t operator+(const SString_t& s) const;
    SString_t& concat(const CharT* s, unsigned int count);
    SString_t& concat(const iterator& from, const iterator& to);
    // Appends count 7-bit bytes, each widened to one unit.
    SString_t& concatFromAscii(const char* s, unsigned int count);

    // ---- edit ----------------------------------------------------------------------
    void insertChar(unsigned int index, const Char& c);
    void insertChar(iterator& at, const Char& c);
    void insertChars(unsigned int index, const SString_t& s);
    void insertChars(iterator& at, const SString_t& s);
    void deleteChar(unsigned int index) { deleteChars(index, 1); }
    void deleteChar(iterator& at) { deleteChars(at, 1); }
    void deleteChars(unsigned int index, unsigned int n);
    void deleteChars(iterator& at, unsigned int n);

    // ---- substrings (counts past the end are clamped) --------------------------------
    SString_t left(unsigned int n) const;
    SString_t left(const iterator& to) const;
    SString_t right(unsigned int n) const;
    SString_t right(const iterator& from) const;
    SString_t mid(unsigned int index) const;
    SString_t mid(unsigned int index, unsigned int n) const;
    SString_t mid(const iterator& from) const;
    SString_t mid(const iterator& from, unsigned int n) const;
    SString_t mid(const iterator& from, const iterator& to) const;

    // ---- search (not found gives the end iterator) -----------------------------------
    iterator find(const SString_t& s) const;
    iterator findFirst(const Char& c) const;
    iterator findLast(const Char& c) const;

    // ---- case and blanks -------------------------------------------------------------
    void toUpper();
    void toLower();
    void trimLeft();
    void trimRight();
    void trim();

    // ---- comparison ------------------------------------------------------------------
    // Collation of the current C locale; binary order when collation fails. Raw sign.
    int compare(const CharT* s) const;
    // Case-insensitive collation, clamped to -1, 0, 1.
    int compareNoCase(const CharT* s) const;
    // Code-unit order up to the terminator. Raw sign.
    int compareBinary(const CharT* s) const;
    // Length first, then code units. -1, 0, 1.
    int compareFast(const SString_t& s) const;

    bool operator==(const SString_t& s) const;
    bool operator==(const CharT* s) const;
    bool operator!=(const SString_t& s) const { return !(*this == s); }
    bool operator!=(const CharT* s) const { return !(*this == s); }
    bool operator<(const SString_t& s) const { return compareFast(s) < 0; }
    bool operator<=(const SString_t& s) const { return compareFast(s) <= 0; }
    bool operator>(const SString_t& s) const { return compareFast(s) > 0; }
    bool operator>=(const SString_t& s) const { return compareFast(s) >= 0; }

    // ---- conversions (code sets) -----------------------------------------------------
    // Each from... returns success; each to... returns the units written or 0xFFFFFFFF.
    bool fromAscii(const char* s);
    bool fromMBCS(const char* s);
    bool fromWChar(const wchar_t* s);
    bool fromUChar(const unsigned short* s);
    bool fromUTF8(const unsigned char* s);
    bool fromUTF8(const unsigned char* s, unsigned int bytes);
    bool fromTovo(const unsigned short* s);
    bool copyFrom(const char* s);
    bool copyFrom(const unsigned short* s);
    unsigned int toAscii(char* buffer, unsigned int size) const;
    unsigned int toMBCS(char* buffer, unsigned int size) const;
    unsigned int toWChar(wchar_t* buffer, unsigned int size) const;
    unsigned int toUChar(unsigned short* buffer, unsigned int size) const;
    unsigned int toUTF8(unsigned char* buffer, unsigned int size) const;
    unsigned int toTovo(unsigned short* buffer, unsigned int size) const;
    unsigned int getNBytesForAscii() const;
    unsigned int getNBytesForMBCS() const;
    unsigned int getNBytesForWChar() const;
    unsigned int getNBytesForUChar() const;
    unsigned int getNBytesForUTF8() const;
    unsigned int getNBytesForTovo() const;

    // ---- the empty buffer ------------------------------------------------------------
    static Buffer* GetEmptyBuffer();
    static bool IsEmptyBuffer(const Buffer* b) { return b->m_capacity == 0xFFFFFFFFu; }
    // Units of the character at p (mblen for SAnsiString, 1 for an invalid sequence,
    // 0 at the terminator); 1 for the fixed-width types.
    static int StepLength(const CharT* p);
    // The first occurrence of s at or after p, else the terminator behind p.
    static const CharT* SearchFrom(const CharT* p, const SString_t& s);

protected:
    SString_t(const CharT* s, unsigned int count);
    Buffer* m_pBuffer;

private:
    static Buffer* emptyBuffer() noexcept;
    static Buffer* allocBuffer(unsigned int n);
    static void releaseBuffer(Buffer* b);
    void copyOnWrite(unsigned int n);
    CharT* concatAllocHelper(unsigned int add);
    void assignUnits(const CharT* s, unsigned int count);
    unsigned int indexToUnits(unsigned int index) const;
    static SString_t fromRange(const CharT* from, const CharT* to);
    SString_t& appendChar(const Char& c);
};

// The three instantiations live in the library. Windows exports them from the
// library's own declaration; callers there instantiate only the inline members and
// link the rest from the DLL, since an imported instantiation brings no inline code.
#if !defined(_WIN32) || defined(VARDO_BUILDING_LIBRARY)
extern template class VARDO_INSTANTIATION_API SString_t<char, 0>;
extern template class VARDO_INSTANTIATION_API SString_t<char, 1>;
extern template class VARDO_INSTANTIATION_API SString_t<unsigned short, 1>;
#endif

// The named classes add constructors, assignments and getTotalBytes() only.
#define VARDO_NAMED_STRING_MEMBERS(Name)                                                  \
    Name() {}                                                                             \
    Name(const Base& s) : Base(s) {}                                                      \
    Name(const char_type* s) : Base(s) {}                                                 \
    Name(char_type c) : Base(Char(c)) {}                                                  \
    Name(const Char& c) : Base(c) {}                                                      \
    Name& operator=(const Base& s) { Base::operator=(s); return *this; }                  \
    Name& operator=(const char_type* s) { Base::operator=(s); return *this; }             \
    Name& operator=(char_type c) { Base::operator=(Char(c)); return *this; }              \
    Name& operator=(const Char& c) { Base::operator=(c); return *this; }

// Text in the process code page, single- or multi-byte.
class VARDO_API SAnsiString : public SString_t<char, 0> {
public:
    VARDO_NAMED_STRING_MEMBERS(SAnsiString)
    // Bytes in the code page.
    unsigned int getTotalBytes() const { return getNBytesForMBCS(); }
};

// 7-bit ASCII text, one byte a character.
class VARDO_API SAsciiString : public SString_t<char, 1> {
public:
    VARDO_NAMED_STRING_MEMBERS(SAsciiString)
    unsigned int getTotalBytes() const { return getNBytesForAscii(); }
};

// UTF-16 text, one unit a character (a surrogate pair is two): the main text type.
class VARDO_API SWCharString : public SString_t<unsigned short, 1> {
public:
    VARDO_NAMED_STRING_MEMBERS(SWCharString)
    // Bytes as platform wide characters.
    unsigned int getTotalBytes() const { return getNBytesForWChar(); }
};

// 16-bit text in the object transport's wire repertoire.
class VARDO_API STovoString : public SString_t<unsigned short, 1> {
public:
    VARDO_NAMED_STRING_MEMBERS(STovoString)
    unsigned int getTotalBytes() const { return getNBytesForTovo(); }
};

// Case-insensitive strings: the six relational operators are compareNoCase against 0
// (collation order, not length first); find searches lower-cased copies and maps the
// hit back onto this text.
#define VARDO_CI_STRING_MEMBERS(Name, Named)                                              \
    Name() {}                                                                             \
    Name(const Base& s) : Named(s) {}                                                     \
    Name(const char_type* s) : Named(s) {}                                                \
    Name(char_type c) : Named(c) {}                                                       \
    Name(const Char& c) : Named(c) {}                                                     \
    Name& operator=(const Base& s) { Base::operator=(s); return *this; }                  \
    Name& operator=(const char_type* s) { Base::operator=(s); return *this; }             \
    Name& operator=(char_type c) { Base::operator=(Char(c)); return *this; }              \
    Name& operator=(const Char& c) { Base::operator=(c); return *this; }                  \
    bool operator==(const Base& s) const { return compareNoCase(s) == 0; }                \
    bool operator==(const char_type* s) const { return compareNoCase(s) == 0; }           \
    bool operator!=(const Base& s) const { return compareNoCase(s) != 0; }                \
    bool operator!=(const char_type* s) const { return compareNoCase(s) != 0; }           \
    bool operator<(const Base& s) const { return compareNoCase(s) < 0; }                  \
    bool operator<=(const Base& s) const { return compareNoCase(s) <= 0; }                \
    bool operator>(const Base& s) const { return compareNoCase(s) > 0; }                  \
    bool operator>=(const Base& s) const { return compareNoCase(s) >= 0; }                \
    iterator find(const Base& s) const;

class VARDO_API SAnsiStringCI : public SAnsiString {
public:
    VARDO_CI_STRING_MEMBERS(SAnsiStringCI, SAnsiString)
};

class VARDO_API SWCharStringCI : public SWCharString {
public:
    VARDO_CI_STRING_MEMBERS(SWCharStringCI, SWCharString)
};

// ---- free functions on raw text --------------------------------------------------------
// Copy src into dst of capacity units (terminator included); truncates; returns dst.
VARDO_API char* CopyString(char* dst, const char* src, size_t capacity);
VARDO_API unsigned short* CopyString(unsigned short* dst, const unsigned short* src, size_t capacity);
// As CopyString, at most n units of src.
VARDO_API char* CopyStringN(char* dst, const char* src, size_t n, size_t capacity);
VARDO_API unsigned short* CopyStringN(unsigned short* dst, const unsigned short* src, size_t n, size_t capacity);
// Append src to the text in dst of capacity units; truncates; returns dst.
VARDO_API char* ConcatString(char* dst, const char* src, size_t capacity);
VARDO_API unsigned short* ConcatString(unsigned short* dst, const unsigned short* src, size_t capacity);
VARDO_API char* ConcatStringN(char* dst, const char* src, size_t n, size_t capacity);
VARDO_API unsigned short* ConcatStringN(unsigned short* dst, const unsigned short* src, size_t n, size_t capacity);

// Case mapping of multi-byte text in place; size -1 means the text's own length.
VARDO_API void MakeUpperCase(char* s, int size);
VARDO_API void MakeLowerCase(char* s, int size);
VARDO_API void MakeLowerCase(unsigned short* s, int size);
// Map the one multi-byte character at p in place, given room bytes; *newLength gets
// its new byte length. False (with an assertion) when it cannot be converted.
VARDO_API bool MakeUpperCaseChar(char* p, int room, int* newLength);
VARDO_API bool MakeLowerCaseChar(char* p, int room, int* newLength);

// Compare n 16-bit units, two at a time when both pointers are 4-byte aligned.
VARDO_API int ucscmp_fast(const unsigned short* a, const unsigned short* b, size_t n);


} // namespace Vardo400

#endif
