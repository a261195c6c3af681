// The body of the UTF policy fuzzers: one policy of the converter core on arbitrary
// input, both directions, compared with the per-character rules (utf_reference.h) for
// the whole input and for a target cut short, with every target exactly its size so
// that a write past it is caught. Inputs may be far longer than 4096 bytes: the vector
// blocks and the unit count behave differently there.
#ifndef VARDO_FUZZ_UTF_POLICY_H
#define VARDO_FUZZ_UTF_POLICY_H

#include "fuzz_check.h"
#include "utf_reference.h"
#include "utfcore.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace utf_fuzz {

using Vardo400::utf::Policy;

// A heap block of exactly n elements (at least one, so the pointer is real).
template <class T>
std::unique_ptr<T[]> exactBlock(size_t n)
{
    return std::unique_ptr<T[]>(new T[n ? n : 1]);
}

// One step into a target of exactly room elements, checked against the rules' outcome.
template <class In, class Out, class Step>
void check(const In* in, size_t n, size_t room, Step step, const utfref::Outcome& expect)
{
    std::unique_ptr<Out[]> out = exactBlock<Out>(room);
    const In* s = in;
    Out* t = out.get();
    const int r = step(&s, in + n, &t, out.get() + room);
    FUZZ_CHECK(r == expect.result);
    FUZZ_CHECK(static_cast<size_t>(s - in) == expect.consumed);
    FUZZ_CHECK(static_cast<size_t>(t - out.get()) == expect.out.size());
    for (size_t i = 0; i < expect.out.size(); ++i)
        FUZZ_CHECK(out[i] == expect.out[i]);
}

inline void decode(const unsigned char* in, size_t n, size_t room, Policy policy, unsigned short replacement)
{
    check<unsigned char, unsigned short>(
        in, n, room,
        [&](const unsigned char** s, const unsigned char* se, unsigned short** t, unsigned short* te) {
            return Vardo400::utf::utf8ToUtf16Step(s, se, t, te, policy, replacement);
        },
        utfref::fromUtf8(in, n, room, policy, replacement));
}

inline void encode(const unsigned short* in, size_t n, size_t room, Policy policy, unsigned short replacement)
{
    check<unsigned short, unsigned char>(
        in, n, room,
        [&](const unsigned short** s, const unsigned short* se, unsigned char** t, unsigned char* te) {
            return Vardo400::utf::utf16ToUtf8Step(s, se, t, te, policy, replacement);
        },
        utfref::toUtf8(in, n, room, policy, replacement));
}

inline int run(const uint8_t* data, size_t size, Policy policy)
{
    if (size > (1u << 20))
        return 0;
    // An exact-size copy: any read past the input is caught.
    std::unique_ptr<unsigned char[]> in = exactBlock<unsigned char>(size);
    if (size)
        std::memcpy(in.get(), data, size);
    const unsigned short replacement = size && (data[0] & 1) ? '?' : Vardo400::utf::kReplacementChar;
    const size_t cut = size ? (static_cast<size_t>(data[size - 1]) * 131 + data[0]) % (size + 1) : 0;

    decode(in.get(), size, size, policy, replacement);
    decode(in.get(), size, cut, policy, replacement);

    // Well-formed input: the unit count that sizes long conversions is exact.
    const utfref::Outcome whole = utfref::fromUtf8(in.get(), size, size, Policy::lenient);
    if (whole.result == utfref::ok)
        FUZZ_CHECK(Vardo400::utf::utf8UnitCount(in.get(), size) == whole.out.size());

    // The same bytes read as UTF-16 units, in every target size class.
    const size_t units = size / 2;
    std::unique_ptr<unsigned short[]> u = exactBlock<unsigned short>(units);
    for (size_t i = 0; i < units; ++i)
        u[i] = static_cast<unsigned short>(in[2 * i] | (in[2 * i + 1] << 8));
    encode(u.get(), units, 3 * units, policy, replacement);
    encode(u.get(), units, cut < 3 * units ? cut : 3 * units, policy, replacement);
    encode(u.get(), units, units ? 3 * units - 1 - cut % units : 0, policy, replacement);
    // Room for three bytes a unit for k units, plus 0, 1 or 2 bytes, for nine k in a
    // row: the fast paths' room then ends at the target's end after every length of run.
    const size_t w = units > 1 ? std::min(units - 1, static_cast<size_t>(16 + cut % 48)) : 0;
    for (size_t k = w > 8 ? w - 8 : 0; k <= w; ++k)
        for (size_t extra = 0; extra < 3; ++extra)
            encode(u.get(), units, 3 * k + extra, policy, replacement);

    // What a policy accepts comes back: escaped bytes exactly, strict text exactly.
    if (policy == Policy::escapeBytes || policy == Policy::strict) {
        std::vector<unsigned short> text;
        if (Vardo400::utf::utf8ToUtf16(in.get(), size, text, policy)) {
            std::string back;
            FUZZ_CHECK(Vardo400::utf::utf16ToUtf8(text.data(), text.size(), back, policy));
            FUZZ_CHECK(back.size() == size && std::memcmp(back.data(), in.get(), size) == 0);
        } else {
            FUZZ_CHECK(policy == Policy::strict && text.empty());
        }
    }
    return 0;
}

} // namespace utf_fuzz

#endif
