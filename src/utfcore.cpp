// The UTF converter core: the steps between UTF-8, UTF-16 and UTF-32 under each policy
// for bad input, and the whole-text helpers on top of them.
//
// Each step states the rules once, in its general per-character path. The fast paths in
// front of it (blocks of eight units or sixteen bytes converted with vector
// instructions, runs of ASCII, the common two- and three-byte forms) only ever take
// characters that every policy converts in the same way; anything else, including every
// defect, goes through the general path, so results and stopping positions do not
// depend on which path ran. The fast paths run inside a window where the target is known
// to have room, so they need no test per character.
#include "utfcore.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Vardo400 {
namespace utf {

namespace {

typedef unsigned char UTF8;
typedef unsigned short UTF16;
typedef unsigned long UTF32;

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
    // Short names and words end here: one more half block before the byte loop.
    if (room - i >= 8) {
        const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(t + i), _mm_unpacklo_epi8(v, zero));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(v)) & 0xFFu;
        if (mask)
            return i + ctz32(mask);
        i += 8;
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

// One general UTF-8 step: on resultOK ch holds the value and len its byte count.
inline Result readUTF8(const UTF8* s, const UTF8* end, uint32_t& ch, unsigned& len)
{
    const unsigned extra = trailingBytes(*s);
    if (static_cast<size_t>(end - s) <= extra)
        return resultSourceExhausted;
    if (!isLegalUTF8(s, extra + 1))
        return resultSourceIllegal;
    ch = decodeUTF8(s, extra);
    len = extra + 1;
    return resultOK;
}

// ---- UTF-16 code points ------------------------------------------------------------------------

inline bool isSurrogate(unsigned long ch) { return ch >= kSurHighStart && ch <= kSurLowEnd; }

// The code point at s: a pair when a low unit follows a high one inside the range (used
// 2), else the unit itself, a lone surrogate included (used 1).
inline uint32_t readUTF16(const UTF16* s, const UTF16* end, unsigned& used)
{
    const uint32_t ch = *s;
    used = 1;
    if (ch >= kSurHighStart && ch <= kSurHighEnd && s + 1 < end && s[1] >= kSurLowStart && s[1] <= kSurLowEnd) {
        used = 2;
        return ((ch - kSurHighStart) << 10) + (s[1] - kSurLowStart) + 0x10000;
    }
    return ch;
}

// Writes ch (at most 10FFFF) as one unit or a pair; false, writing nothing, when that
// does not fit before end.
inline bool writeUTF16(UTF16*& t, const UTF16* end, uint32_t ch)
{
    if (ch <= kMaxBmp) {
        if (t >= end)
            return false;
        *t++ = static_cast<UTF16>(ch);
        return true;
    }
    if (end - t < 2)
        return false;
    ch -= 0x10000;
    *t++ = static_cast<UTF16>(kSurHighStart + (ch >> 10));
    *t++ = static_cast<UTF16>(kSurLowStart + (ch & 0x3FF));
    return true;
}

// Runs step, one character at a time, until the source ends or a step does not return
// resultOK; a step advances s and t only past a character it converted, so the pointers
// then stand at the start of the character that stopped it.
template <class S, class T, class Step>
Result eachCharacter(const S** sourceStart, const S* sourceEnd, T** targetStart, Step step)
{
    const S* s = *sourceStart;
    T* t = *targetStart;
    Result result = resultOK;
    while (s < sourceEnd && (result = step(s, t)) == resultOK) {
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
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
// high surrogate whose low unit would lie behind end, and any lone surrogate unless
// lonePass (the lenient rules write it as three bytes).
//
// Text of a non-Latin script alternates words and single spaces at random; branching on
// "is this unit ASCII" would be mispredicted at every word. So blocks of eight units go
// through the branch-free block step, and the per-unit path below (for the rest) only
// tests for two ASCII units in a row and writes units below 800 hex without a branch.
VARDO_HOT_LOOP const UTF16* utf16ToUtf8Window(const UTF16* s, const UTF16* end, UTF8*& tRef, bool lonePass)
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
        if (!lonePass)
            break;
        writeUTF8(t, ch, 3);
        t += 3;
        ++s;
    }
    tRef = t;
    return s;
}

} // namespace

Result utf16ToUtf8Step(const UTF16** sourceStart, const UTF16* sourceEnd, UTF8** targetStart, UTF8* targetEnd,
                       Policy policy, unsigned short replacement)
{
    const bool lonePass = policy == Policy::lenient;
    Result result = resultOK;
    const UTF16* s = *sourceStart;
    UTF8* t = *targetStart;
    while (s < sourceEnd) {
        // Where the target has room for three bytes a unit, no step needs to test it.
        const size_t tgt = static_cast<size_t>(targetEnd - t);
        const size_t window = minSize(static_cast<size_t>(sourceEnd - s) - 1, tgt ? (tgt - 1) / 3 : 0);
        if (window >= 8) {
            const UTF16* stop = utf16ToUtf8Window(s, s + window, t, lonePass);
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
                result = resultTargetExhausted;
                break;
            }
            const size_t n = asciiRunNarrow(s, t, room);
            s += n;
            t += n;
            continue;
        }
        unsigned consumed;
        unsigned n = 0;
        ch = readUTF16(s, sourceEnd, consumed);
        if (consumed == 1 && isSurrogate(ch)) {
            // A lone surrogate: what the policy makes of it.
            if (policy == Policy::strict) {
                result = resultSourceIllegal;
                break;
            }
            if (policy == Policy::replace) {
                ch = replacement;
            } else if (policy == Policy::escapeBytes) {
                if (ch < 0xDC80 || ch > 0xDCFF) {
                    result = resultSourceIllegal;
                    break;
                }
                ch -= 0xDC00; // the byte itself, written bare
                n = 1;
            }
        }
        if (!n)
            n = utf8BytesFor(ch);
        if (static_cast<size_t>(targetEnd - t) < n) {
            result = resultTargetExhausted;
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
// every defect, and an encoded surrogate unless surrogatesPass, is left to the general
// step.
// Only two ASCII bytes in a row take the vector step. (A branch-free one-or-two-byte
// step, as in the other direction, would chain every load to the previous one through
// the source pointer, which costs more than the mispredictions it saves.)
VARDO_HOT_LOOP const UTF8* utf8ToUtf16Window(const UTF8* s, const UTF8* end, UTF16*& tRef, bool surrogatesPass)
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
                const size_t n = utf8BlockToUtf16(s, t, !surrogatesPass);
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
            if ((c1 | c2) >= 0x40 || v < 0x800 || (!surrogatesPass && v - kSurHighStart < 0x800))
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

Result utf8ToUtf16Step(const UTF8** sourceStart, const UTF8* sourceEnd, UTF16** targetStart, UTF16* targetEnd,
                       Policy policy, unsigned short replacement)
{
    const bool surrogatesPass = policy == Policy::lenient || policy == Policy::replace;
    Result result = resultOK;
    const UTF8* s = *sourceStart;
    UTF16* t = *targetStart;
    while (s < sourceEnd) {
        const size_t window = minSize(static_cast<size_t>(sourceEnd - s), static_cast<size_t>(targetEnd - t));
        if (window >= 16) {
            // Keep 3 bytes of source behind the window for the trailing bytes.
            const UTF8* stop = utf8ToUtf16Window(s, s + (window - 3), t, surrogatesPass);
            if (stop != s) {
                s = stop;
                continue;
            }
        }
        const uint32_t b = *s;
        if (b < 0x80) {
            const size_t room = minSize(static_cast<size_t>(sourceEnd - s), static_cast<size_t>(targetEnd - t));
            if (!room) {
                result = resultTargetExhausted;
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
        if (result == resultOK && policy == Policy::escapeBytes && isSurrogate(ch))
            result = resultSourceIllegal;
        if (result != resultOK && (policy == Policy::replace || policy == Policy::escapeBytes)) {
            // The byte that starts no legal sequence stands for itself, and decoding goes
            // on with the next byte.
            if (t >= targetEnd) {
                result = resultTargetExhausted;
                break;
            }
            *t++ = policy == Policy::replace ? replacement : static_cast<UTF16>(0xDC00 + b);
            ++s;
            result = resultOK;
            continue;
        }
        if (result != resultOK)
            break;
        if (t >= targetEnd) {
            result = resultTargetExhausted;
            break;
        }
        if (policy == Policy::strict && isSurrogate(ch)) {
            result = resultSourceIllegal;
            break;
        }
        // Legal sequences stay at or below 10FFFF.
        if (!writeUTF16(t, targetEnd, ch)) {
            result = resultTargetExhausted;
            break;
        }
        s += len;
    }
    *sourceStart = s;
    *targetStart = t;
    return result;
}

// ---- UTF-32 -------------------------------------------------------------------------------------

Result utf8ToUtf32Step(const UTF8** sourceStart, const UTF8* sourceEnd, UTF32** targetStart, UTF32* targetEnd)
{
    return eachCharacter(sourceStart, sourceEnd, targetStart, [&](const UTF8*& s, UTF32*& t) {
        uint32_t ch = *s;
        unsigned len = 1;
        if (ch >= 0x80) {
            const Result r = readUTF8(s, sourceEnd, ch, len);
            if (r != resultOK)
                return r;
        }
        if (t >= targetEnd)
            return resultTargetExhausted;
        *t++ = ch; // legal sequences stay at or below 10FFFF
        s += len;
        return resultOK;
    });
}

Result utf32ToUtf8Step(const UTF32** sourceStart, const UTF32* sourceEnd, UTF8** targetStart, UTF8* targetEnd,
                       bool strict)
{
    return eachCharacter(sourceStart, sourceEnd, targetStart, [&](const UTF32*& s, UTF8*& t) {
        const UTF32 value = *s;
        if (strict && (isSurrogate(value) || value > kMaxLegalUtf32))
            return resultSourceIllegal;
        const uint32_t ch = value > kMaxLegalUtf32 ? kReplacementChar : static_cast<uint32_t>(value);
        const unsigned n = utf8BytesFor(ch);
        if (static_cast<size_t>(targetEnd - t) < n)
            return resultTargetExhausted;
        writeUTF8(t, ch, n);
        t += n;
        ++s;
        return resultOK;
    });
}

Result utf16ToUtf32Step(const UTF16** sourceStart, const UTF16* sourceEnd, UTF32** targetStart, UTF32* targetEnd,
                        bool strict)
{
    return eachCharacter(sourceStart, sourceEnd, targetStart, [&](const UTF16*& s, UTF32*& t) {
        unsigned used;
        const uint32_t ch = readUTF16(s, sourceEnd, used);
        if (strict && used == 1 && isSurrogate(ch))
            return resultSourceIllegal;
        if (t >= targetEnd)
            return resultTargetExhausted;
        *t++ = ch;
        s += used;
        return resultOK;
    });
}

Result utf32ToUtf16Step(const UTF32** sourceStart, const UTF32* sourceEnd, UTF16** targetStart, UTF16* targetEnd,
                        bool strict)
{
    return eachCharacter(sourceStart, sourceEnd, targetStart, [&](const UTF32*& s, UTF16*& t) {
        const UTF32 ch = *s;
        if (t >= targetEnd)
            return resultTargetExhausted;
        if (strict && (isSurrogate(ch) || ch > kMaxLegalUtf32))
            return resultSourceIllegal;
        if (!writeUTF16(t, targetEnd, ch > kMaxLegalUtf32 ? kReplacementChar : static_cast<uint32_t>(ch)))
            return resultTargetExhausted;
        ++s;
        return resultOK;
    });
}

// ---- whole conversions --------------------------------------------------------------------------

size_t utf16ToUtf8(const unsigned short* s, size_t n, unsigned char* dst, size_t room, Policy policy,
                   unsigned short replacement)
{
    const UTF16* src = s;
    UTF8* out = dst;
    if (utf16ToUtf8Step(&src, s + n, &out, dst + room, policy, replacement) != resultOK)
        return SIZE_MAX;
    return static_cast<size_t>(out - dst);
}

bool utf16ToUtf8(const unsigned short* s, size_t n, std::string& out, Policy policy, unsigned short replacement)
{
    // Three bytes a unit at the most, whatever the policy (a pair takes four for two).
    out.resize(3 * n);
    const size_t written = n ? utf16ToUtf8(s, n, reinterpret_cast<UTF8*>(&out[0]), out.size(), policy, replacement) : 0;
    out.resize(written == SIZE_MAX ? 0 : written);
    return written != SIZE_MAX;
}

size_t utf8ToUtf16(const unsigned char* s, size_t n, unsigned short* dst, size_t room, Policy policy,
                   unsigned short replacement)
{
    const UTF8* src = s;
    UTF16* out = dst;
    if (utf8ToUtf16Step(&src, s + n, &out, dst + room, policy, replacement) != resultOK)
        return SIZE_MAX;
    return static_cast<size_t>(out - dst);
}

bool utf8ToUtf16(const unsigned char* s, size_t n, std::vector<unsigned short>& out, Policy policy,
                 unsigned short replacement)
{
    // One unit a byte at the most, whatever the policy.
    out.resize(n);
    const size_t written = n ? utf8ToUtf16(s, n, out.data(), n, policy, replacement) : 0;
    out.resize(written == SIZE_MAX ? 0 : written);
    return written != SIZE_MAX;
}

// ---- sizes ------------------------------------------------------------------------------------

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

void utf16ToBytes(const unsigned short* s, size_t n, unsigned char* dst, bool bigEndian)
{
    const unsigned first = bigEndian ? 8 : 0;
    for (size_t i = 0; i < n; ++i) {
        dst[2 * i] = static_cast<UTF8>(s[i] >> first);
        dst[2 * i + 1] = static_cast<UTF8>(s[i] >> (8 - first));
    }
}

void bytesToUtf16(const unsigned char* s, size_t n, unsigned short* dst, bool bigEndian)
{
    const unsigned first = bigEndian ? 8 : 0;
    for (size_t i = 0; i < n; ++i)
        dst[i] = static_cast<UTF16>((s[2 * i] << first) | (s[2 * i + 1] << (8 - first)));
}

} // namespace utf
} // namespace Vardo400
