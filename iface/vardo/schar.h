// SChar_t: one character of a string type, held by value.
#ifndef VARDO_SCHAR_H
#define VARDO_SCHAR_H

#include "vardodefs.h"

namespace Vardo400 {

// Character classes of one 16-bit unit. Units below 128 follow the C library's
// classification in the current locale; the others follow the library's own table
// (Unicode 3.x/4.0 repertoire, U+00A0..U+FFDC). Thread-safe.
VARDO_API bool is_alpha(unsigned short c);
VARDO_API bool is_digit(unsigned short c);
VARDO_API bool is_lower(unsigned short c);
VARDO_API bool is_upper(unsigned short c);
VARDO_API bool is_space(unsigned short c);
VARDO_API bool is_punct(unsigned short c);

template <class CharT, int Fixed> class SChar_t;

// One character of the process code page: up to 6 bytes, zero-filled behind it.
template <> class VARDO_API SChar_t<char, 0> {
public:
    enum { MaxBytes = 6 };
    SChar_t();
    // Takes the bytes of the multi-byte character at p (its mblen length, at most 6).
    SChar_t(const char* p);
    explicit SChar_t(char c);

    // mblen of the bytes: 0 for the null character, -1 when invalid in the current locale.
    int getLength() const;
    const char* getBytes() const { return m_c; }
    bool isNull() const { return m_c[0] == 0; }

    static bool isMBCSChar() { return true; }
    static bool isAsciiChar() { return false; }
    static bool isUnicode() { return false; }
    static bool isWideChar() { return false; }
    static bool isTovoChar() { return false; }

    // Write the character in the target form; return the units written.
    // With a null buffer returns the length it would write; writes nothing when the
    // character is invalid (-1) or longer than size.
    int toMBCSChar(char* buffer, int size) const;
    int toAsciiChar(char* buffer) const;
    int toTovoChar(unsigned short* buffer) const;
    int toWideChar(unsigned short* buffer) const;

    bool isUpper() const;
    bool isLower() const;
    bool isAlpha() const;
    bool isDigit() const;
    bool isWhiteSpace() const;
    bool isBlank() const;
    // Case-mapped copy; the null character when the mapping fails.
    SChar_t toUpper() const;
    SChar_t toLower() const;

    // Byte equality over the character's length; an empty (null) character equals anything.
    bool operator==(const SChar_t& o) const;
    bool operator!=(const SChar_t& o) const { return !(*this == o); }
private:
    char m_c[MaxBytes];
};

// One 7-bit character, one byte.
template <> class VARDO_API SChar_t<char, 1> {
public:
    SChar_t() : m_c(0) {}
    SChar_t(const char* p) : m_c(p ? *p : 0) {}
    SChar_t(char c) : m_c(c) {}
    int getLength() const { return 1; }
    const char* getBytes() const { return &m_c; }
    bool isNull() const { return m_c == 0; }
    operator char() const { return m_c; }

    static bool isMBCSChar() { return false; }
    static bool isAsciiChar() { return true; }
    static bool isUnicode() { return false; }
    static bool isWideChar() { return false; }
    static bool isTovoChar() { return false; }

    int toMBCSChar(char* buffer, int size) const;
    int toAsciiChar(char* buffer) const;
    int toTovoChar(unsigned short* buffer) const;
    int toWideChar(unsigned short* buffer) const;

    bool isUpper() const;
    bool isLower() const;
    bool isAlpha() const;
    bool isDigit() const;
    bool isWhiteSpace() const;
    bool isBlank() const;
    SChar_t toUpper() const;
    SChar_t toLower() const;

    bool operator==(const SChar_t& o) const { return m_c == o.m_c; }
    bool operator!=(const SChar_t& o) const { return m_c != o.m_c; }
private:
    char m_c;
};

// One UTF-16 code unit.
template <> class VARDO_API SChar_t<unsigned short, 1> {
public:
    SChar_t() : m_c(0) {}
    SChar_t(const unsigned short* p) : m_c(p ? *p : 0) {}
    SChar_t(unsigned short c) : m_c(c) {}
    int getLength() const { return 1; }
    const unsigned short* getBytes() const { return &m_c; }
    bool isNull() const { return m_c == 0; }
    operator unsigned short() const { return m_c; }

    static bool isMBCSChar() { return false; }
    static bool isAsciiChar() { return false; }
    static bool isUnicode() { return true; }
    static bool isWideChar() { return true; }
    // Deliberately false, even though the unit is 16-bit.
    static bool isTovoChar() { return false; }

    int toMBCSChar(char* buffer, int size) const;
    int toAsciiChar(char* buffer) const;
    int toTovoChar(unsigned short* buffer) const;
    int toWideChar(unsigned short* buffer) const;

    bool isUpper() const { return is_upper(m_c); }
    bool isLower() const { return is_lower(m_c); }
    bool isAlpha() const { return is_alpha(m_c); }
    bool isDigit() const { return is_digit(m_c); }
    bool isWhiteSpace() const { return is_space(m_c); }
    // True only for U+0020, U+0009 and U+3000.
    bool isBlank() const { return m_c == 0x20 || m_c == 0x09 || m_c == 0x3000; }
    SChar_t toUpper() const;
    SChar_t toLower() const;

    bool operator==(const SChar_t& o) const { return m_c == o.m_c; }
    bool operator!=(const SChar_t& o) const { return m_c != o.m_c; }
private:
    unsigned short m_c;
};

typedef SChar_t<char, 0> SAnsiChar;
typedef SChar_t<char, 1> SAsciiChar;
typedef SChar_t<unsigned short, 1> SWChar;

} // namespace Vardo400

#endif
