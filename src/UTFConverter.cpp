// The UTF converter: the low-level steps between UTF-8, UTF-16 and UTF-32, and
// CUTFConverter on top of them.
//
// Each step states the classic reference rules once, in its general per-character path.
// The fast paths in front of it (blocks of eight units or sixteen bytes converted with
// vector instructions, runs of ASCII, the common two- and three-byte forms) only ever
// take characters that the general path would convert successfully in the same way;
// anything else, including every error, goes through the general path, so results and
// stopping positions are identical. The fast paths run inside a window where the target
// is known to have room, so they need no test per character.
#include "vardo/UTFConverter.h"
#include "vardo/strace.h"
#include "utfcore.h"
#include "crt.h"

#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Vardo400 {

namespace {

typedef unsigned char UTF8;
typedef unsigned short UTF16;
typedef unsigned long UTF32;

const uint32_t kReplacementChar = 0xFFFD;
const uint32_t kMaxBmp = 0xFFFF;
const uint32_t kMaxLegalUtf32 = 0x10FFFF;
const uint32_t kSurHighStart = 0xD800;
const uint32_t kSurHighEnd = 0xDBFF;
const uint32_t kSurLowStart = 0xDC00;
const uint32_t kSurLowEnd = 0xDFFF;

// Trailing bytes after a lead byte: 0 for 00-BF, 1 for C0-DF, 2 for E0-EF, 3 for
// F0-F7, 4 for F8-FB, 5 for FC-FF.
inline unsigned trailingBytes(uint32_t lead)
{
    if (lead < 0xC0) return 0;
    if (lead < 0xE0) return 1;
    if (lead < 0xF0) return 2;
    if (lead < 0xF8) return 3;
    if (lead < 0xFC) return 4;
    return 5;
}

// Subtracted after accumulating the bits of a sequence of 1 to 6 bytes.
const uint32_t kOffsetsFromUTF8[6] = {0x00000000u, 0x00003080u, 0x000E2080u,
                                      0x03C82080u, 0xFA082080u, 0x82082080u};

// Lead marks for 1 to 4 bytes.
const UTF8 kFirstByteMark[5] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};

inline bool isLegalUTF8(const UTF8* s, unsigned length)
{
    if (length < 1 || length > 4)
        return false;
    const UTF8 lead = s[0];
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4)
        return false;
    for (unsigned i = 1; i < length; ++i)
        if (s[i] < 0x80 || s[i] > 0xBF)
            return false;
    if (length >= 2) {
        const UTF8 a = s[1];
        switch (lead) {
        case 0xE0: if (a < 0xA0) return false; break;
        case 0xF0: if (a < 0x90) return false; break;
        case 0xF4: if (a > 0x8F) return false; break;
        default: break;
        }
    }
    return true;
}

// Decodes the legal sequence of extra + 1 bytes at s.
inline uint32_t decodeUTF8(const UTF8* s, unsigned extra)
{
    uint32_t ch = 0;
    for (unsigned i = 0; i <= extra; ++i)
        ch = (ch << 6) + s[i];
    return ch - kOffsetsFromUTF8[extra];
}

inline unsigned utf8BytesFor(uint32_t ch)
{
    return ch < 0x80 ? 1 : ch < 0x800 ? 2 : ch < 0x10000 ? 3 : 4;
}

// Writes ch as n bytes: continuation bytes from the last backwards, then the lead.
inline void writeUTF8(UTF8* t, uint32_t ch, unsigned n)
{
    switch (n) {
    case 4: t[3] = static_cast<UTF8>((ch & 0x3F) | 0x80); ch >>= 6; /* fall through */
    case 3: t[2] = static_cast<UTF8>((ch & 0x3F) | 0x80); ch >>= 6; /* fall through */
    case 2: t[1] = static_cast<UTF8>((ch & 0x3F) | 0x80); ch >>= 6; /* fall through */
    case 1: t[0] = static_cast<UTF8>(ch | kFirstByteMark[n]); break;
    default: break;
    }
}

// The hot loops sit in functions of their own at a 64-byte boundary, so that where their
// branches fall relative to the instruction fetch windows (which matters a great deal on
// some processors) does not change with unrelated code around them.
#if defined(__GNUC__)
#define VARDO_HOT_LOOP __attribute__((noinline, aligned(64)))
#else
#define VARDO_HOT_LOOP
#endif

inline unsigned ctz32(uint32_t v) { return static_cast<unsigned>(__builtin_ctz(v)); }

// ---- runs of ASCII ----------------------------------------------------------------------------
// Both helpers may write up to room units/bytes beyond the ones they report, inside the
// room they were given.

// Copies the leading bytes below 80 hex of s as units; room >= 1 and s[0] < 80 hex.
// Returns how many were converted (at least 1).
inline size_t asciiRunWiden(const UTF8* s, UTF16* t, size_t room)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (room - i >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(t + i), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(t + i + 8), _mm_unpackhi_epi8(v, zero));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(v));
        if (mask)
            return i + ctz32(mask);
        i += 16;
    }
#else
    while (room - i >= 8) {
        uint64_t w;
        std::memcpy(&w, s + i, 8);
        if (w & 0x8080808080808080ull)
            break;
        for (unsigned k = 0; k < 8; ++k)
            t[i + k] = s[i + k];
        i += 8;
    }
#endif
    while (i < room && s[i] < 0x80) {
        t[i] = s[i];
        ++i;
    }
    return i;
}

// Copies the leading units below 80 hex of s as bytes; room >= 1 and s[0] < 80 hex.
// Returns how many were converted (at least 1).
inline size_t asciiRunNarrow(const UTF16* s, UTF8* t, size_t room)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i hiMask = _mm_set1_epi16(static_cast<short>(0xFF80));
    const __m128i zero = _mm_setzero_si128();
    while (room - i >= 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(t + i), _mm_packus_epi16(a, b));
        const unsigned ma = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(a, hiMask), zero)));
        const unsigned mb = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(b, hiMask), zero)));
        const uint32_t nonAscii = ~(ma | (mb << 16));
        if (nonAscii)
            return i + ctz32(nonAscii) / 2;
        i += 16;
    }
#else
    while (room - i >= 4) {
        uint64_t w;
        std::memcpy(&w, s + i, 8);
        if (w & 0xFF80FF80FF80FF80ull)
            break;
        t[i] = static_cast<UTF8>(s[i]);
        t[i + 1] = static_cast<UTF8>(s[i + 1]);
        t[i + 2] = static_cast<UTF8>(s[i + 2]);
        t[i + 3] = static_cast<UTF8>(s[i + 3]);
        i += 4;
    }
#endif
    while (i < room && s[i] < 0x80) {
        t[i] = static_cast<UTF8>(s[i]);
        ++i;
    }
    return i;
}

inline size_t minSize(size_t a, size_t b) { return a < b ? a : b; }

// ---- UTF-8 decoding shared by the UTF-16 and UTF-32 targets ------------------------------------

// One general UTF-8 step: on conversionOK ch holds the value and len its byte count.
inline ConversionResult readUTF8(const UTF8* s, const UTF8* end, uint32_t& ch, unsigned& len)
{
    const unsigned extra = trailingBytes(*s);
    if (static_cast<size_t>(end - s) <= extra)
        return sourceExhausted;
    if (!isLegalUTF8(s, extra + 1))
        return sourceIllegal;
    ch = decodeUTF8(s, extra);
    len = extra + 1;
    return conversionOK;
}

} // namespace

// ---- UTF-16 -> UTF-8 ----------------------------------------------------------------------------

namespace {

#if defined(__SSE2__)
// Eight units, none a surrogate, to UTF-8 at t without a branch on their lengths: each
// unit's one to three bytes are formed in a 32-bit lane, stored as four bytes, and the
// target moves on by the unit's length. Writes up to 25 bytes; returns the bytes that
// count.
inline size_t utf16BlockToUtf8(__m128i v, UTF8* t)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i low6 = _mm_set1_epi32(0x3F);
    const __m128i cont = _mm_set1_epi32(0x80);
    alignas(16) uint32_t val[8];
    alignas(16) int32_t len[8];
    for (int half = 0; half < 2; ++half) {
        const __m128i x = half ? _mm_unpackhi_epi16(v, zero) : _mm_unpacklo_epi16(v, zero);
        const __m128i m80 = _mm_cmpgt_epi32(x, _mm_set1_epi32(0x7F));
        const __m128i m800 = _mm_cmpgt_epi32(x, _mm_set1_epi32(0x7FF));
        const __m128i last = _mm_or_si128(cont, _mm_and_si128(x, low6));
        const __m128i two = _mm_or_si128(_mm_or_si128(_mm_set1_epi32(0xC0), _mm_srli_epi32(x, 6)), _mm_slli_epi32(last, 8));
        const __m128i three = _mm_or_si128(
            _mm_or_si128(_mm_set1_epi32(0xE0), _mm_srli_epi32(x, 12)),
            _mm_or_si128(_mm_slli_epi32(_mm_or_si128(cont, _mm_and_si128(_mm_srli_epi32(x, 6), low6)), 8),
                         _mm_slli_epi32(last, 16)));
        __m128i r = _mm_or_si128(_mm_andnot_si128(m80, x), _mm_and_si128(m80, two));
        r = _mm_or_si128(_mm_andnot_si128(m800, r), _mm_and_si128(m800, three));
        // 1 + (unit >= 80) + (unit >= 800): the masks are -1 where they hold.
        const __m128i l = _mm_sub_epi32(_mm_sub_epi32(_mm_set1_epi32(1), m80), m800);
        _mm_store_si128(reinterpret_cast<__m128i*>(val + 4 * half), r);
        _mm_store_si128(reinterpret_cast<__m128i*>(len + 4 * half), l);
    }
    UTF8* p = t;
    for (int i = 0; i < 8; ++i) {
        std::memcpy(p, &val[i], 4);
        p += len[i];
    }
    return static_cast<size_t>(p - t);
}
#endif

// Converts units from s up to end without testing the target: the caller passes end so
// that 3 * (end - s) + 1 bytes of target are free and one more source unit follows end.
// Stops early (returning the position) at anything the window cannot decide alone: a
// high surrogate whose low unit would lie behind end, and any lone surrogate in strict
// mode.
//
// Text of a non-Latin script alternates words and single spaces at random; branching on
// "is this unit ASCII" would be mispredicted at every word. So blocks of eight units go
// through the branch-free block step, and the per-unit path below (for the rest) only
// tests for two ASCII units in a row and writes units below 800 hex without a branch.
VARDO_HOT_LOOP const UTF16* utf16ToUtf8Window(const UTF16* s, const UTF16* end, UTF8*& tRef, ConversionFlags flags)
{
    UTF8* t = tRef;
    while (s < end) {
#if defined(__SSE2__)
        // Eight units at a time: a run of ASCII, or any mix without surrogates.
        if (end - s >= 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
            const __m128i zero = _mm_setzero_si128();
            const int ascii = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80))), zero));
            if (ascii == 0xFFFF) {
                const size_t n = asciiRunNarrow(s, t, static_cast<size_t>(end - s));
                s += n;
                t += n;
                continue;
            }
            const __m128i sur = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))),
                                                _mm_set1_epi16(static_cast<short>(0xD800)));
            if (!_mm_movemask_epi8(sur)) {
                t += utf16BlockToUtf8(v, t);
                s += 8;
                continue;
            }
        }
#endif
        uint32_t ch = *s;
        if ((ch | s[1]) < 0x80) {
            const size_t n = asciiRunNarrow(s, t, static_cast<size_t>(end - s));
            s += n;
            t += n;
            continue;
        }
        if (ch < 0x800) {
            // One or two bytes: both are stored, the pointer moves by one or two.
            const uint32_t two = ch >= 0x80;
            const uint32_t mask = 0u - two;
            t[0] = static_cast<UTF8>((ch & ~mask) | ((0xC0 | (ch >> 6)) & mask));
            t[1] = static_cast<UTF8>(0x80 | (ch & 0x3F));
            t += 1 + two;
            ++s;
            continue;
        }
        if (ch - kSurHighStart >= 0x800) {
            t[0] = static_cast<UTF8>(0xE0 | (ch >> 12));
            t[1] = static_cast<UTF8>(0x80 | ((ch >> 6) & 0x3F));
            t[2] = static_cast<UTF8>(0x80 | (ch & 0x3F));
            t += 3;
            ++s;
            continue;
        }
        // A surrogate; s[1] is readable (one unit follows end).
        if (ch <= kSurHighEnd && s[1] >= kSurLowStart && s[1] <= kSurLowEnd) {
            if (s + 1 >= end)
                break; // the pair needs four bytes; the window only vouches for three
            ch = ((ch - kSurHighStart) << 10) + (s[1] - kSurLowStart) + 0x10000;
            writeUTF8(t, ch, 4);
            t += 4;
            s += 2;
            continue;
        }
        if (flags == strictConversion)
            break;
        writeUTF8(t, ch, 3);
        t += 3;
        ++s;
    }
    tRef = t;
    return s;
}

} // namespace

ConversionResult ConvertUTF16toUTF8(const UTF16** sourceStart, const UTF16* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags)
{
    ConversionResult result = conversionOK;
    const UTF16* s = *sourceStart;
    UTF8* t = *targetStart;
    while (s < sourceEnd) {
        // Where the target has room for three bytes a unit, no step needs to test it.
        const size_t tgt = static_cast<size_t>(targetEnd - t);
        const size_t window = minSize(static_cast<size_t>(sourceEnd - s) - 1, tgt ? (tgt - 1) / 3 : 0);
        if (window >= 8) {
            const UTF16* stop = utf16ToUtf8Window(s, s + window, t, flags);
            if (stop != s) {
                s = stop;
                continue;
            }
        }
        // The general step, one character.
        uint32_t ch = *s;
        if (ch < 0x80) {
            const size_t room = minSize(static_cast<size_t>(sourceEnd - s), static_cast<size_t>(targetEnd - t));
            if (!room) {
                result = targetExhausted;
                break;
            }
            const size_t n = asciiRunNarrow(s, t, room);
            s += n;
            t += n;
            continue;
        }
        unsigned consumed = 1;
        if (ch >= kSurHighStart && ch <= kSurHighEnd) {
            if (s + 1 < sourceEnd && s[1] >= kSurLowStart && s[1] <= kSurLowEnd) {
                ch = ((ch - kSurHighStart) << 10) + (s[1] - kSurLowStart) + 0x10000;
                consumed = 2;
            } else if (flags == strictConversion) {
                result = sourceIllegal;
                break;
            }
        } else if (ch >= kSurLowStart && ch <= kSurLowEnd && flags == strictConversion) {
            result = sourceIllegal;
            break;
        }
        const unsigned n = utf8BytesFor(ch);
        if (static_cast<size_t>(targetEnd - t) < n) {
            result = targetExhausted;
            break;
        }
        writeUTF8(t, ch, n);
        t += n;
        s += consumed;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-8 -> UTF-16 ----------------------------------------------------------------------------

namespace {

#if defined(__SSE2__)
// The sequences that start in the sixteen bytes at s, when they are only ASCII, two-
// and three-byte sequences: every byte is classified at once, the structure checked
// with bit masks, the unit for every possible start computed in vector lanes, and the
// units of the real starts packed without a branch. Needs 18 readable bytes at s and 16
// units of room at t. Returns the bytes taken (16 to 18: the last sequence may end in
// the two bytes behind the block), or 0 when the block holds anything else (a defect, a
// four-byte sequence, an overlong E0 form, or an encoded surrogate in strict mode),
// which the caller leaves to the per-character path.
inline size_t utf8BlockToUtf16(const UTF8* s, UTF16*& t, bool strict)
{
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 1));
    const __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2));
    // Signed byte ranges: 00-7F >= 0; 80-BF < -64 (80-9F < -96); C2-DF in [-62, -33];
    // E0-EF in [-32, -17].
    const __m128i contMin = _mm_set1_epi8(-64);
    const __m128i lowMin = _mm_set1_epi8(-96);
    const unsigned ascii = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpgt_epi8(v, _mm_set1_epi8(-1))));
    const __m128i isLead2 = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-63)), _mm_cmplt_epi8(v, _mm_set1_epi8(-32)));
    const __m128i isLead3 = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-33)), _mm_cmplt_epi8(v, _mm_set1_epi8(-16)));
    const unsigned lead2 = static_cast<unsigned>(_mm_movemask_epi8(isLead2));
    const unsigned lead3 = static_cast<unsigned>(_mm_movemask_epi8(isLead3));
    // Continuation and 80-9F bits for bytes 0 to 17 (the last two from the shifted loads).
    const unsigned cont = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, contMin))) |
                          ((static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v1, contMin))) & 0x8000u) << 1) |
                          ((static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v2, contMin))) & 0x8000u) << 2);
    const unsigned low = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, lowMin))) |
                         ((static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v1, lowMin))) & 0x8000u) << 1);

    // Every byte of the block starts a sequence or continues one, exactly where the
    // leads say; the last sequences may end in bytes 16 and 17.
    const unsigned expect = (lead2 << 1) | (lead3 << 1) | (lead3 << 2);
    const unsigned taken = (expect & 0x20000u) ? 18 : (expect & 0x10000u) ? 17 : 16;
    const unsigned region = (1u << taken) - 1;
    if (((ascii | lead2 | lead3 | cont) & 0xFFFFu) != 0xFFFFu || (cont & region) != expect)
        return 0;
    // E0 needs a second byte from A0 on; strict mode refuses ED A0-BF (surrogates).
    const unsigned e0 = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xE0)))));
    if ((e0 << 1) & low)
        return 0;
    if (strict) {
        const unsigned ed = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xED)))));
        if ((ed << 1) & cont & ~low)
            return 0;
    }

    const __m128i zero = _mm_setzero_si128();
    const __m128i low6 = _mm_set1_epi16(0x3F);
    alignas(16) uint16_t unit[16];
    for (int half = 0; half < 2; ++half) {
        const __m128i b0 = half ? _mm_unpackhi_epi8(v, zero) : _mm_unpacklo_epi8(v, zero);
        const __m128i b1 = _mm_and_si128(half ? _mm_unpackhi_epi8(v1, zero) : _mm_unpacklo_epi8(v1, zero), low6);
        const __m128i b2 = _mm_and_si128(half ? _mm_unpackhi_epi8(v2, zero) : _mm_unpacklo_epi8(v2, zero), low6);
        const __m128i m2 = half ? _mm_unpackhi_epi8(isLead2, isLead2) : _mm_unpacklo_epi8(isLead2, isLead2);
        const __m128i m3 = half ? _mm_unpackhi_epi8(isLead3, isLead3) : _mm_unpacklo_epi8(isLead3, isLead3);
        const __m128i u2 = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), b1);
        const __m128i u3 = _mm_or_si128(_mm_slli_epi16(b0, 12), _mm_or_si128(_mm_slli_epi16(b1, 6), b2));
        __m128i u = _mm_or_si128(_mm_andnot_si128(_mm_or_si128(m2, m3), b0), _mm_and_si128(m2, u2));
        u = _mm_or_si128(u, _mm_and_si128(m3, u3));
        _mm_store_si128(reinterpret_cast<__m128i*>(unit + 8 * half), u);
    }
    const unsigned starts = ascii | lead2 | lead3;
    if (starts == 0x9249u) {
        // Six three-byte characters in a row (CJK text): fixed places, nothing to pack.
        t[0] = unit[0];
        t[1] = unit[3];
        t[2] = unit[6];
        t[3] = unit[9];
        t[4] = unit[12];
        t[5] = unit[15];
        t += 6;
        return taken;
    }
    UTF16* p = t;
    for (unsigned i = 0; i < 16; ++i) {
        *p = unit[i];
        p += (starts >> i) & 1;
    }
    t = p;
    return taken;
}
#endif

// Converts well-formed sequences that start before end, without testing source or
// target bounds: the caller passes end so that 3 bytes of source follow it and as many
// target units as window bytes are free (a sequence never yields more units than it
// has bytes). Stops (returning the position) at the first sequence it does not take:
// every defect, and in strict mode an encoded surrogate, is left to the general step.
// Only two ASCII bytes in a row take the vector step. (A branch-free one-or-two-byte
// step, as in the other direction, would chain every load to the previous one through
// the source pointer, which costs more than the mispredictions it saves.)
VARDO_HOT_LOOP const UTF8* utf8ToUtf16Window(const UTF8* s, const UTF8* end, UTF16*& tRef, ConversionFlags flags)
{
    UTF16* t = tRef;
    while (s < end) {
#if defined(__SSE2__)
        // Sixteen bytes at a time where the window leaves room for them.
        if (end - s >= 16) {
            const unsigned high = static_cast<unsigned>(
                _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))));
            if (!(high & 3)) {
                // Two ASCII bytes: a run up to the next other byte.
                const size_t n = asciiRunWiden(s, t, static_cast<size_t>(end - s));
                s += n;
                t += n;
                continue;
            }
            // A lone accented letter (two high bytes) in ASCII text is cheaper one by one.
            unsigned more = high & (high - 1);
            more &= more - 1;
            if (more) {
                const size_t n = utf8BlockToUtf16(s, t, flags == strictConversion);
                if (n) {
                    s += n;
                    continue;
                }
            }
        }
#endif
        const uint32_t b = s[0];
        const uint32_t c1 = s[1] ^ 0x80u;
        if ((b | s[1]) < 0x80) {
            const size_t n = asciiRunWiden(s, t, static_cast<size_t>(end - s));
            s += n;
            t += n;
            continue;
        }
        if (b < 0x80) {
            *t++ = static_cast<UTF16>(b);
            ++s;
            continue;
        }
        if (b < 0xE0) {
            if (b < 0xC2 || c1 >= 0x40)
                break;
            *t++ = static_cast<UTF16>(((b & 0x1F) << 6) | c1);
            s += 2;
            continue;
        }
        const uint32_t c2 = s[2] ^ 0x80u;
        if (b < 0xF0) {
            const uint32_t v = ((b & 0x0F) << 12) | (c1 << 6) | c2;
            // v < 800 exactly when E0 is followed by a byte below A0 (overlong).
            if ((c1 | c2) >= 0x40 || v < 0x800 || (flags == strictConversion && v - kSurHighStart < 0x800))
                break;
            *t++ = static_cast<UTF16>(v);
            s += 3;
            continue;
        }
        const uint32_t c3 = s[3] ^ 0x80u;
        if (b > 0xF4 || (c1 | c2 | c3) >= 0x40)
            break;
        const uint32_t v = ((b & 0x07) << 18) | (c1 << 12) | (c2 << 6) | c3;
        if (v < 0x10000 || v > kMaxLegalUtf32)
            break;
        t[0] = static_cast<UTF16>(kSurHighStart + ((v - 0x10000) >> 10));
        t[1] = static_cast<UTF16>(kSurLowStart + ((v - 0x10000) & 0x3FF));
        t += 2;
        s += 4;
    }
    tRef = t;
    return s;
}

} // namespace

ConversionResult ConvertUTF8toUTF16(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags)
{
    ConversionResult result = conversionOK;
    const UTF8* s = *sourceStart;
    UTF16* t = *targetStart;
    while (s < sourceEnd) {
        const size_t window = minSize(static_cast<size_t>(sourceEnd - s), static_cast<size_t>(targetEnd - t));
        if (window >= 16) {
            // Keep 3 bytes of source behind the window for the trailing bytes.
            const UTF8* stop = utf8ToUtf16Window(s, s + (window - 3), t, flags);
            if (stop != s) {
                s = stop;
                continue;
            }
        }
        const uint32_t b = *s;
        if (b < 0x80) {
            const size_t room = minSize(static_cast<size_t>(sourceEnd - s), static_cast<size_t>(targetEnd - t));
            if (!room) {
                result = targetExhausted;
                break;
            }
            const size_t n = asciiRunWiden(s, t, room);
            s += n;
            t += n;
            continue;
        }
        // The general step, one character.
        uint32_t ch;
        unsigned len;
        result = readUTF8(s, sourceEnd, ch, len);
        if (result != conversionOK)
            break;
        if (t >= targetEnd) {
            result = targetExhausted;
            break;
        }
        if (ch <= kMaxBmp) {
            if (flags == strictConversion && ch >= kSurHighStart && ch <= kSurLowEnd) {
                result = sourceIllegal;
                break;
            }
            *t++ = static_cast<UTF16>(ch);
        } else if (ch > kMaxLegalUtf32) {
            if (flags == strictConversion) {
                result = sourceIllegal;
                break;
            }
            *t++ = static_cast<UTF16>(kReplacementChar);
        } else {
            if (t + 1 >= targetEnd) {
                result = targetExhausted;
                break;
            }
            ch -= 0x10000;
            *t++ = static_cast<UTF16>(kSurHighStart + (ch >> 10));
            *t++ = static_cast<UTF16>(kSurLowStart + (ch & 0x3FF));
        }
        s += len;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-8 -> UTF-32 ----------------------------------------------------------------------------

ConversionResult ConvertUTF8toUTF32(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags)
{
    (void)flags;
    ConversionResult result = conversionOK;
    const UTF8* s = *sourceStart;
    UTF32* t = *targetStart;
    while (s < sourceEnd) {
        if (*s < 0x80) {
            if (t >= targetEnd) {
                result = targetExhausted;
                break;
            }
            *t++ = *s++;
            continue;
        }
        uint32_t ch;
        unsigned len;
        result = readUTF8(s, sourceEnd, ch, len);
        if (result != conversionOK)
            break;
        if (t >= targetEnd) {
            result = targetExhausted;
            break;
        }
        // Legal sequences stay far below 80000000 hex, which would become U+FFFD.
        *t++ = ch < 0x80000000u ? ch : kReplacementChar;
        s += len;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-32 -> UTF-8 ----------------------------------------------------------------------------

ConversionResult ConvertUTF32toUTF8(const UTF32** sourceStart, const UTF32* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags)
{
    ConversionResult result = conversionOK;
    const UTF32* s = *sourceStart;
    UTF8* t = *targetStart;
    while (s < sourceEnd) {
        UTF32 value = *s;
        if (flags == strictConversion &&
            ((value >= kSurHighStart && value <= kSurLowEnd) || value > kMaxLegalUtf32)) {
            result = sourceIllegal;
            break;
        }
        const uint32_t ch = value > kMaxLegalUtf32 ? kReplacementChar : static_cast<uint32_t>(value);
        const unsigned n = utf8BytesFor(ch);
        if (static_cast<size_t>(targetEnd - t) < n) {
            result = targetExhausted;
            break;
        }
        writeUTF8(t, ch, n);
        t += n;
        ++s;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-16 -> UTF-32 ---------------------------------------------------------------------------

ConversionResult ConvertUTF16toUTF32(const UTF16** sourceStart, const UTF16* sourceEnd,
                                     UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags)
{
    ConversionResult result = conversionOK;
    const UTF16* s = *sourceStart;
    UTF32* t = *targetStart;
    while (s < sourceEnd) {
        uint32_t ch = *s;
        unsigned consumed = 1;
        if (ch >= kSurHighStart && ch <= kSurHighEnd) {
            if (s + 1 < sourceEnd && s[1] >= kSurLowStart && s[1] <= kSurLowEnd) {
                ch = ((ch - kSurHighStart) << 10) + (s[1] - kSurLowStart) + 0x10000;
                consumed = 2;
            } else if (flags == strictConversion) {
                result = sourceIllegal;
                break;
            }
        } else if (ch >= kSurLowStart && ch <= kSurLowEnd && flags == strictConversion) {
            result = sourceIllegal;
            break;
        }
        if (t >= targetEnd) {
            result = targetExhausted;
            break;
        }
        *t++ = ch;
        s += consumed;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-32 -> UTF-16 ---------------------------------------------------------------------------

ConversionResult ConvertUTF32toUTF16(const UTF32** sourceStart, const UTF32* sourceEnd,
                                     UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags)
{
    ConversionResult result = conversionOK;
    const UTF32* s = *sourceStart;
    UTF16* t = *targetStart;
    while (s < sourceEnd) {
        const UTF32 ch = *s;
        if (t >= targetEnd) {
            result = targetExhausted;
            break;
        }
        if (ch <= kMaxBmp) {
            if (flags == strictConversion && ch >= kSurHighStart && ch <= kSurLowEnd) {
                result = sourceIllegal;
                break;
            }
            *t++ = static_cast<UTF16>(ch);
        } else if (ch > kMaxLegalUtf32) {
            if (flags == strictConversion) {
                result = sourceIllegal;
                break;
            }
            *t++ = static_cast<UTF16>(kReplacementChar);
        } else {
            if (t + 1 >= targetEnd) {
                result = targetExhausted;
                break;
            }
            const uint32_t v = static_cast<uint32_t>(ch) - 0x10000;
            *t++ = static_cast<UTF16>(kSurHighStart + (v >> 10));
            *t++ = static_cast<UTF16>(kSurLowStart + (v & 0x3FF));
        }
        ++s;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- internal helpers ---------------------------------------------------------------------------

namespace utf {

uint64_t utf8LengthBound(const unsigned short* s, size_t n)
{
    uint64_t total = 1;
    size_t i = 0;
    while (i < n) {
        const uint32_t u = s[i];
        if (u < 0x80) {
            // Count the run of ASCII units a word at a time.
            size_t j = i + 1;
            while (n - j >= 4) {
                uint64_t w;
                std::memcpy(&w, s + j, 8);
                if (w & 0xFF80FF80FF80FF80ull)
                    break;
                j += 4;
            }
            while (j < n && s[j] < 0x80)
                ++j;
            total += j - i;
            i = j;
            continue;
        }
        if (u < 0x800)
            total += 2;
        else if (u >= kSurHighStart && u <= kSurHighEnd && i + 1 < n && s[i + 1] >= kSurLowStart &&
                 s[i + 1] <= kSurLowEnd)
            total += 4; // the low unit adds its own 3 on the next step
        else
            total += 3;
        ++i;
    }
    return total;
}

uint64_t utf8Length(const unsigned short* s, size_t n)
{
    // The bound counts 3 for the low unit of every pair, which takes no bytes of its own.
    uint64_t pairs = 0;
    for (size_t i = 0; i + 1 < n; ++i)
        if (s[i] >= kSurHighStart && s[i] <= kSurHighEnd && s[i + 1] >= kSurLowStart && s[i + 1] <= kSurLowEnd) {
            ++pairs;
            ++i;
        }
    return utf8LengthBound(s, n) - 1 - 3 * pairs;
}

size_t utf16ToUtf8(const unsigned short* s, size_t n, unsigned char* dst, size_t room)
{
    const UTF16* src = s;
    UTF8* out = dst;
    if (ConvertUTF16toUTF8(&src, s + n, &out, dst + room, lenientConversion) != conversionOK)
        return SIZE_MAX;
    return static_cast<size_t>(out - dst);
}

size_t utf8UnitCount(const unsigned char* s, size_t n)
{
    size_t count = 0;
    size_t i = 0;
#if defined(__SSE2__)
    // Per byte 1, minus 1 for a continuation byte, plus 1 for F0-F4, summed in byte lanes
    // for at most 127 blocks (so no lane passes 254), then folded.
    const __m128i zero = _mm_setzero_si128();
    const __m128i one = _mm_set1_epi8(1);
    while (n - i >= 16) {
        size_t blocks = (n - i) / 16;
        if (blocks > 127)
            blocks = 127;
        __m128i acc = zero;
        for (size_t k = 0; k < blocks; ++k, i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
            const __m128i cont = _mm_cmplt_epi8(v, _mm_set1_epi8(-64));
            const __m128i four = _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(-17)), _mm_cmplt_epi8(v, _mm_set1_epi8(-11)));
            acc = _mm_add_epi8(acc, _mm_sub_epi8(_mm_add_epi8(one, cont), four));
        }
        const __m128i sums = _mm_sad_epu8(acc, zero);
        count += static_cast<size_t>(_mm_cvtsi128_si32(sums)) + static_cast<size_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    }
#endif
    for (; i < n; ++i)
        count += (s[i] < 0x80 || s[i] > 0xBF) + (s[i] >= 0xF0 && s[i] <= 0xF4);
    return count;
}

size_t utf8ToUtf16Whole(const unsigned char* s, size_t n, unsigned short* dst, size_t room)
{
    const UTF8* src = s;
    UTF16* out = dst;
    if (ConvertUTF8toUTF16(&src, s + n, &out, dst + room, lenientConversion) != conversionOK)
        return SIZE_MAX;
    return static_cast<size_t>(out - dst);
}

size_t utf8ToUtf16Degrading(const unsigned char* s, size_t n, unsigned short* dst)
{
    const UTF8* src = s;
    const UTF8* end = s + n;
    UTF16* out = dst;
    while (src < end) {
        // Every byte yields at most one unit, so the target never runs out first.
        if (ConvertUTF8toUTF16(&src, end, &out, dst + n, lenientConversion) == conversionOK)
            break;
        *out++ = '?';
        ++src;
    }
    return static_cast<size_t>(out - dst);
}

size_t asciiNarrow(const unsigned short* s, size_t n, unsigned char* dst)
{
    if (!n || s[0] >= 0x80)
        return 0;
    return asciiRunNarrow(s, dst, n);
}

void bytesWiden(const unsigned char* s, size_t n, unsigned short* dst)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    for (; n - i >= 16; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 8), _mm_unpackhi_epi8(v, zero));
    }
#endif
    for (; i < n; ++i)
        dst[i] = s[i];
}

} // namespace utf

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
            if (source[i] >= kSurHighStart && source[i] <= kSurHighEnd && i + 1 < n &&
                source[i + 1] >= kSurLowStart && source[i + 1] <= kSurLowEnd)
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
