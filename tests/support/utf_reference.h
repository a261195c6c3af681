// The UTF conversion rules of every policy, one character at a time, written
// independently of the library's converter core for the tests and fuzzers to compare
// it with: no vector steps, no windows, no tables shared with the core.
#ifndef VARDO_TEST_UTF_REFERENCE_H
#define VARDO_TEST_UTF_REFERENCE_H

#include "utfcore.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace utfref {

using Vardo400::utf::Policy;

// What a step did: its result code (the values of ConversionResult), how far it read,
// and what it wrote (bytes or units, widened).
struct Outcome {
    int result;
    size_t consumed;
    std::vector<unsigned long> out;
    bool operator==(const Outcome& o) const { return result == o.result && consumed == o.consumed && out == o.out; }
};

enum { ok = 0, exhausted = 1, targetFull = 2, illegal = 3 };

inline bool isSurrogate(unsigned long c) { return c >= 0xD800 && c <= 0xDFFF; }

// The length of the legal sequence at s (n bytes readable), its value in cp; 0 when
// none starts there. Encoded surrogates count as legal here.
inline size_t legalSequence(const unsigned char* s, size_t n, unsigned long& cp)
{
    static const unsigned long least[] = {0, 0x80, 0x800, 0x10000};
    const unsigned b = s[0];
    const size_t len = b < 0x80 ? 1 : b < 0xC2 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
    if (!len || n < len)
        return 0;
    cp = len == 1 ? b : b & (0x7F >> len);
    for (size_t k = 1; k < len; ++k) {
        if ((s[k] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (s[k] & 0x3F);
    }
    return cp >= least[len - 1] && cp <= 0x10FFFF ? len : 0;
}

// UTF-8 to UTF-16 (with utf32: to code points, lenient rules) into room units. A sequence
// is exhausted when the bytes its lead announces (0 for 00-BF, 1 for C0-DF, 2 for E0-EF,
// 3 for F0-F7, 4 for F8-FB, 5 for FC-FF) run past the end, whatever they hold.
inline Outcome fromUtf8(const unsigned char* in, size_t n, size_t room, Policy policy,
                        unsigned short replacement = 0xFFFD, bool utf32 = false)
{
    Outcome o{ok, 0, {}};
    size_t i = 0;
    while (i < n) {
        const unsigned b = in[i];
        const size_t announced = b < 0xC0 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : b < 0xF8 ? 3 : b < 0xFC ? 4 : 5;
        unsigned long cp = 0;
        size_t len = 0;
        int bad = ok;
        if (n - i <= announced)
            bad = exhausted;
        else if (!(len = legalSequence(in + i, n - i, cp)))
            bad = illegal;
        else if (policy == Policy::escapeBytes && isSurrogate(cp))
            bad = illegal;
        if (bad != ok && (policy == Policy::lenient || policy == Policy::strict)) {
            o.result = bad;
            break;
        }
        // What this step writes: the byte's stand-in, the value, or a pair.
        unsigned long w[2] = {bad != ok ? (policy == Policy::replace ? replacement : 0xDC00 + b) : cp, 0};
        size_t k = 1;
        if (bad == ok && cp >= 0x10000 && !utf32) {
            w[0] = 0xD800 + ((cp - 0x10000) >> 10);
            w[1] = 0xDC00 + ((cp - 0x10000) & 0x3FF);
            k = 2;
        }
        if (o.out.size() + k > room) {
            o.result = targetFull;
            break;
        }
        if (bad == ok && policy == Policy::strict && isSurrogate(cp)) {
            o.result = illegal;
            break;
        }
        o.out.insert(o.out.end(), w, w + k);
        i += bad != ok ? 1 : len;
    }
    o.consumed = i;
    return o;
}

inline void encodeUtf8(unsigned long cp, std::vector<unsigned long>& enc)
{
    static const unsigned long lead[] = {0, 0xC0, 0xE0, 0xF0};
    const int extra = cp < 0x80 ? 0 : cp < 0x800 ? 1 : cp < 0x10000 ? 2 : 3;
    enc = {lead[extra] | (cp >> (6 * extra))};
    for (int k = extra - 1; k >= 0; --k)
        enc.push_back(0x80 | ((cp >> (6 * k)) & 0x3F));
}

// UTF-16 to UTF-8 into room bytes.
inline Outcome toUtf8(const unsigned short* in, size_t n, size_t room, Policy policy,
                      unsigned short replacement = 0xFFFD)
{
    Outcome o{ok, 0, {}};
    std::vector<unsigned long> enc;
    size_t i = 0;
    while (i < n) {
        unsigned long cp = in[i];
        size_t used = 1;
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            used = 2;
        } else if (isSurrogate(cp) && policy != Policy::lenient) {
            if (policy == Policy::strict || (policy == Policy::escapeBytes && (cp < 0xDC80 || cp > 0xDCFF))) {
                o.result = illegal;
                break;
            }
            cp = policy == Policy::replace ? replacement : 0;
        }
        if (policy == Policy::escapeBytes && used == 1 && in[i] >= 0xDC80 && in[i] <= 0xDCFF)
            enc = {static_cast<unsigned long>(in[i] - 0xDC00)};
        else
            encodeUtf8(cp, enc);
        if (o.out.size() + enc.size() > room) {
            o.result = targetFull;
            break;
        }
        o.out.insert(o.out.end(), enc.begin(), enc.end());
        i += used;
    }
    o.consumed = i;
    return o;
}

} // namespace utfref

#endif
