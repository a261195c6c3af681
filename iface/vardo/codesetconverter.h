// Conversion between 16-bit text and byte encodings other than UTF-8 proper:
// CodesetConverter for the process code page (the current C locale) and the platform's
// wide characters, MBCSCodesetConverter for a fixed set of named encodings.
//
// None of these conversions fails on content: a byte sequence that is invalid in the
// encoding becomes "?" (one unit) and the next byte is tried; a character that the
// encoding cannot represent becomes the single byte "?".
//
// Thread-safety: the code-page conversions use the C library's per-thread error code
// and the process-wide current locale: they must not run while another thread changes
// the C locale. Otherwise everything here is re-entrant.
#ifndef VARDO_CODESETCONVERTER_H
#define VARDO_CODESETCONVERTER_H

#include "vardodefs.h"
#include "sstring.h"
#include "simplebuffer.h"

#include <wchar.h>

namespace Vardo400 {

class VARDO_API CodesetConverter {
public:
    // Multi-byte text of the current C locale (0-terminated) to UTF-16. Writes at most
    // len units into dst, never half a character, and a 0 unit behind them when there
    // is room. Returns the units written (terminator not counted), or the units needed
    // when dst is null (len is then ignored). The whole-string conversion of the C
    // library is tried first; when it reports an illegal sequence the text is converted
    // character by character (at most 6 bytes each) and each failing character becomes
    // "?" with one source byte skipped. A null src counts as the empty text.
    static size_t mbstoucs2(unsigned short* dst, const char* src, size_t len);
    // UTF-16 (0-terminated) to multi-byte text of the current C locale: at most len
    // bytes, a character only when it fits wholly, a 0 byte behind when there is room.
    // Returns the bytes written (terminator not counted), or needed when dst is null. A
    // unit (or pair) that the code page cannot represent, lone surrogates included,
    // becomes "?".
    static size_t ucs2tombs(char* dst, const unsigned short* src, size_t len);
    // The multi-byte character at src (at most n bytes, never more than 6) to one unit
    // in *dst (when dst is not null). Returns its byte length, 0 for the null character,
    // -1 when it is invalid or incomplete. A character outside the 16-bit range is
    // stored as "?".
    static int mbtoucs2(unsigned short* dst, const char* src, size_t n);
    // One unit to the multi-byte form in dst of size bytes. Returns the bytes written
    // (needed when dst is null), -1 when the unit cannot be represented (a lone
    // surrogate, a character missing from the code page) or does not fit.
    static int ucs2tomb(char* dst, unsigned short c, size_t size);

    // The platform's wide characters and UTF-16. On Windows both are the same and these
    // copy units; where wchar_t is 32-bit, pairs are joined and split, wide values
    // above 10FFFF become U+FFFD. String forms: 0-terminated source, at most len units
    // written, never half a pair, a 0 behind when there is room; they return the count
    // written (terminator not counted), or needed when dst is null.
    static size_t wcstoucs2(unsigned short* dst, const wchar_t* src, size_t len);
    static size_t ucs2towcs(wchar_t* dst, const unsigned short* src, size_t len);
    // One wide character into dst of size units: returns the units written (1 or 2,
    // needed when dst is null), -1 when they do not fit.
    static int wctoucs2(unsigned short* dst, wchar_t c, size_t size);
    // The character at src (at most n units: a pair counts as one where wchar_t is
    // 32-bit) to one wide character. Returns the units consumed, 0 for the null
    // character, -1 when n is 0.
    static int ucs2towc(wchar_t* dst, const unsigned short* src, size_t n);
};

// Conversion between SWCharString and byte buffers in an encoding named by number.
class VARDO_API MBCSCodesetConverter {
public:
    // The numbers are stored with data (files, encrypted texts and mail name codeset 1)
    // and never change.
    //   0  the process code page: the current C locale, through CodesetConverter
    //   1  UTF-8 ("UTF-8"): the UTF converter's rules, lone surrogates written as
    //      three-byte sequences; when reading, every byte that does not start a legal
    //      sequence becomes "?"
    //   2  US-ASCII ("US-ASCII"): bytes and units 00-7F; everything else "?"
    //   3  ISO-8859-1 ("ISO-8859-1"): bytes 00-FF are U+0000-U+00FF
    //   4  Windows-1252 ("windows-1252"): ISO-8859-1 with 80-9F holding the Windows
    //      characters (the euro sign, typographic quotes, ...); 81, 8D, 8F, 90 and 9D are
    //      unassigned and read as "?"
    // When writing to a single-byte encoding a surrogate pair is one character and
    // becomes one "?".
    enum ExplicitCodeset {
        ProcessCodeset = 0,
        UTF8Codeset = 1,
        USASCIICodeset = 2,
        ISO88591Codeset = 3,
        Windows1252Codeset = 4
    };

    // Bytes up to their 0 terminator (or n bytes, stopping early at a 0 byte) in the
    // codeset to text. Never fails on content; false (text empty) only for an unknown
    // codeset. A null source gives the empty text.
    static bool ExplicitCodesetToT(const char* bytes, ExplicitCodeset codeset, SWCharString& text);
    static bool ExplicitCodesetToT(const char* bytes, unsigned int n, ExplicitCodeset codeset, SWCharString& text);
    static SWCharString ExplicitCodesetToT(const char* bytes, ExplicitCodeset codeset);

    // Text to bytes in the codeset, followed by a 0 byte, in a simple buffer sized to
    // exactly those bytes. Returns the length with the terminating 0 byte counted (so 1
    // for the empty text), or 0 for an unknown codeset or when memory runs out (the
    // buffer is then emptied).
    static unsigned int TToExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset, SSimpleBuffer& out);
    // The same into the caller's buffer of size bytes; 0 when the bytes and their
    // terminator do not fit (nothing useful is left in buffer then).
    static unsigned int TToExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset, char* buffer,
                                           unsigned int size);
    // Bytes the text needs in the codeset, the terminator included; 0 for an unknown
    // codeset.
    static unsigned int getNBytesForExplicitCodeset(const SWCharString& text, ExplicitCodeset codeset);

    // The encoding's name as listed above ("" for an unknown number).
    static const char* getCodesetName(ExplicitCodeset codeset);
    // The codeset of a name (case-insensitive; also "UTF8", "ASCII", "latin1",
    // "ISO8859-1", "cp1252"). False when unknown.
    static bool findCodeset(const char* name, ExplicitCodeset& codeset);
};

} // namespace Vardo400

#endif
