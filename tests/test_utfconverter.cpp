// UTF-8 / UTF-16 / UTF-32 conversion: the documented byte-level rules, the whole-or-
// nothing failure of the string conversions, the length bound, and a randomized
// comparison of the fast converters with a plain per-character rendering of the rules.
#include "vardo/UTFConverter.h"
#include "utf_reference.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned char> Bytes;
typedef std::vector<unsigned short> Units;

SWCharString wide(const Units& u)
{
    Units z(u);
    z.push_back(0);
    SWCharString s;
    s.fromUChar(z.data());
    return s;
}

Units units(const SString_t<unsigned short, 1>& s) { return Units(s.data(), s.data() + s.getLength()); }

Bytes bytesOf(const char* s) { return Bytes(s, s + std::strlen(s)); }

// SWCharString::toUTF8 into a buffer of exactly the bound (plus the byte behind it).
Bytes toUtf8(const SWCharString& s)
{
    Bytes buf(s.getNBytesForUTF8() + 1, 0xCC);
    const unsigned int n = s.toUTF8(buf.data(), s.getNBytesForUTF8());
    EXPECT_NE(n, 0xFFFFFFFFu);
    EXPECT_EQ(buf[n], 0);
    buf.resize(n);
    return buf;
}

bool fromUtf8(SWCharString& s, const Bytes& b) { return s.fromUTF8(b.data(), static_cast<unsigned int>(b.size())); }

using utfref::Outcome;
using Vardo400::utf::Policy;

// Random text built from pieces: long ASCII runs (to exercise the word-at-a-time paths),
// every length of sequence, and every kind of defect.
Bytes randomUtf8(std::mt19937& rng, bool validOnly)
{
    Bytes b;
    const int pieces = std::uniform_int_distribution<int>(0, 24)(rng);
    auto pick = [&](int lo, int hi) { return static_cast<unsigned char>(std::uniform_int_distribution<int>(lo, hi)(rng)); };
    for (int p = 0; p < pieces; ++p) {
        switch (std::uniform_int_distribution<int>(0, validOnly ? 5 : 11)(rng)) {
        case 0: { const int n = std::uniform_int_distribution<int>(0, 40)(rng); for (int k = 0; k < n; ++k) b.push_back(pick(1, 0x7F)); break; }
        case 11:
        case 5: {
            // A run of words in a non-Latin script: one-, two- and three-byte characters
            // mixed, long enough to fill the sixteen-byte steps.
            const int n = std::uniform_int_distribution<int>(0, 48)(rng);
            const int kinds = std::uniform_int_distribution<int>(1, 3)(rng);
            for (int k = 0; k < n; ++k) {
                switch (std::uniform_int_distribution<int>(0, kinds)(rng)) {
                case 0: b.push_back(pick(1, 0x7F)); break;
                case 1: b.push_back(pick(0xC2, 0xDF)); b.push_back(pick(0x80, 0xBF)); break;
                case 2: { // overlong E0 80-9F and encoded surrogates ED A0-BF unless valid text is asked for
                    const unsigned char l = pick(0xE0, 0xEF);
                    b.push_back(l);
                    b.push_back(!validOnly ? pick(0x80, 0xBF) : l == 0xE0 ? pick(0xA0, 0xBF) : l == 0xED ? pick(0x80, 0x9F) : pick(0x80, 0xBF));
                    b.push_back(pick(0x80, 0xBF));
                    break;
                }
                default: b.push_back(pick(0xE1, 0xEC)); b.push_back(pick(0x80, 0xBF)); b.push_back(pick(0x80, 0xBF)); break;
                }
            }
            break;
        }
        case 1: b.push_back(pick(0xC2, 0xDF)); b.push_back(pick(0x80, 0xBF)); break;
        case 2: { const unsigned char l = pick(0xE1, 0xEC); b.push_back(l); b.push_back(pick(0x80, 0xBF)); b.push_back(pick(0x80, 0xBF)); break; }
        case 3: b.push_back(0xE0); b.push_back(pick(0xA0, 0xBF)); b.push_back(pick(0x80, 0xBF)); break;
        case 4: { const unsigned char l = pick(0xF0, 0xF4); b.push_back(l);
                  b.push_back(l == 0xF0 ? pick(0x90, 0xBF) : l == 0xF4 ? pick(0x80, 0x8F) : pick(0x80, 0xBF));
                  b.push_back(pick(0x80, 0xBF)); b.push_back(pick(0x80, 0xBF)); break; }
        case 6: b.push_back(0xED); b.push_back(pick(0x80, 0xBF)); b.push_back(pick(0x80, 0xBF)); break; // surrogates too
        case 7: b.push_back(pick(0x80, 0xFF)); break;                                              // any stray byte
        case 8: b.push_back(pick(0xC0, 0xF7)); break;                                              // truncated lead
        case 9: b.push_back(pick(0xE0, 0xF4)); b.push_back(pick(0x00, 0xFF)); b.push_back(pick(0x00, 0xFF)); break;
        default: b.push_back(pick(0xF8, 0xFF)); for (int k = 0; k < 5; ++k) b.push_back(pick(0x80, 0xBF)); break;
        }
    }
    return b;
}

Units randomUtf16(std::mt19937& rng, bool noZero)
{
    Units u;
    const int pieces = std::uniform_int_distribution<int>(0, 24)(rng);
    auto pick = [&](int lo, int hi) { return static_cast<unsigned short>(std::uniform_int_distribution<int>(lo, hi)(rng)); };
    for (int p = 0; p < pieces; ++p) {
        switch (std::uniform_int_distribution<int>(0, 7)(rng)) {
        case 7: {
            // A run of letters of one script with spaces: eight-unit steps without surrogates.
            const int n = std::uniform_int_distribution<int>(0, 40)(rng);
            const int lo = std::uniform_int_distribution<int>(0, 1)(rng) ? 0x80 : 0x800;
            for (int k = 0; k < n; ++k)
                u.push_back(k % 6 == 5 ? static_cast<unsigned short>(' ') : pick(lo, lo == 0x80 ? 0x7FF : 0xD7FF));
            break;
        }
        case 0: { const int n = std::uniform_int_distribution<int>(0, 40)(rng); for (int k = 0; k < n; ++k) u.push_back(pick(noZero ? 1 : 0, 0x7F)); break; }
        case 1: u.push_back(pick(0x80, 0x7FF)); break;
        case 2: u.push_back(pick(0x800, 0xD7FF)); break;
        case 3: u.push_back(pick(0xE000, 0xFFFF)); break;
        case 4: u.push_back(pick(0xD800, 0xDBFF)); u.push_back(pick(0xDC00, 0xDFFF)); break;
        case 5: u.push_back(pick(0xD800, 0xDBFF)); break; // lone high (maybe at the end)
        default: u.push_back(pick(0xDC00, 0xDFFF)); break;
        }
    }
    return u;
}

} // namespace

// ---- the documented byte-level cases --------------------------------------------------------------

TEST(UTFConverter, DecodesAndRejectsUtf8AsDocumented)
{
    SWCharString s;
    ASSERT_TRUE(fromUtf8(s, {0xC3, 0xA9}));
    EXPECT_EQ(units(s), Units({0x00E9}));
    ASSERT_TRUE(fromUtf8(s, {0xED, 0xA0, 0x80})); // an encoded surrogate passes through
    EXPECT_EQ(units(s), Units({0xD800}));
    ASSERT_TRUE(fromUtf8(s, {0xF4, 0x8F, 0xBF, 0xBF}));
    EXPECT_EQ(units(s), Units({0xDBFF, 0xDFFF}));

    // A defect anywhere fails the whole text (every form at every offset: UTFCore below),
    // and what the string held before is gone.
    s = wide({'o', 'l', 'd'});
    EXPECT_FALSE(fromUtf8(s, {'o', 'k', 0xC0, 0xAF}));
    EXPECT_TRUE(s.isEmpty());
    EXPECT_EQ(s.getLength(), 0u);
    // Three-byte text gets a buffer sized to its units, not to its bytes.
    Bytes cjk;
    for (int i = 0; i < 3000; ++i) { cjk.push_back(0xE4); cjk.push_back(0xB8); cjk.push_back(0xAD); }
    cjk.push_back(0xF0); cjk.push_back(0x9F); cjk.push_back(0x98); cjk.push_back(0x80);
    ASSERT_TRUE(fromUtf8(s, cjk));
    EXPECT_EQ(s.getLength(), 3002u);
    EXPECT_LT(s.getCapacity(), 3100u);
    cjk.back() = 'x'; // the count is an estimate only for malformed input, which fails
    EXPECT_FALSE(fromUtf8(s, cjk));

    // A 0 byte inside the counted form ends the text.
    ASSERT_TRUE(fromUtf8(s, {'a', 'b', 0, 'c'}));
    EXPECT_EQ(units(s), Units({'a', 'b'}));
    EXPECT_FALSE(fromUtf8(s, {'a', 0xC3, 0, 0xA9}));
    // The one-argument form reads up to the terminator; null is the empty text.
    const unsigned char z[] = {'h', 0xC3, 0xA9, 0};
    ASSERT_TRUE(s.fromUTF8(z));
    EXPECT_EQ(units(s), Units({'h', 0xE9}));
    EXPECT_TRUE(s.fromUTF8(static_cast<const unsigned char*>(nullptr)));
    EXPECT_TRUE(s.isEmpty());
}

TEST(UTFConverter, EncodesPairsAndLoneSurrogates)
{
    EXPECT_EQ(toUtf8(wide({0xD83D, 0xDE00})), Bytes({0xF0, 0x9F, 0x98, 0x80}));
    EXPECT_EQ(toUtf8(wide({'a', 0xD83D})), Bytes({'a', 0xED, 0xA0, 0xBD}));            // lone high at the end
    EXPECT_EQ(toUtf8(wide({0xDE00, 'b'})), Bytes({0xED, 0xB8, 0x80, 'b'}));            // lone low
    EXPECT_EQ(toUtf8(wide({0xD83D, 'x', 0xDE00})), Bytes({0xED, 0xA0, 0xBD, 'x', 0xED, 0xB8, 0x80}));
    EXPECT_EQ(toUtf8(wide({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF})),
              Bytes({0x7F, 0xC2, 0x80, 0xDF, 0xBF, 0xE0, 0xA0, 0x80, 0xEF, 0xBF, 0xBF}));

    // A pair is counted 4 + 3 in the bound, while 4 bytes and a terminator come out.
    const SWCharString pair = wide({0xD83D, 0xDE00});
    EXPECT_EQ(pair.getNBytesForUTF8(), 8u);
    EXPECT_EQ(CUTFConverter::UTF16ToUTF8Length(pair.data()), 8u);
    EXPECT_EQ(CUTFConverter::WideCharToUTF8Length(pair.data()), 8u);
    CUTFConverter conv(pair);
    EXPECT_EQ(conv.getLength(), 5u);
    EXPECT_EQ(Bytes(conv.getBuffer(), conv.getBuffer() + 5), Bytes({0xF0, 0x9F, 0x98, 0x80, 0}));
    // The lone high surrogate at the end, followed only by the terminator.
    conv.setText(wide({0xD83D}));
    EXPECT_EQ(Bytes(conv.getBuffer(), conv.getBuffer() + conv.getLength()), Bytes({0xED, 0xA0, 0xBD, 0}));
    EXPECT_EQ(CUTFConverter::UTF16ToUTF8Length(nullptr), 1u);
}

TEST(UTFConverter, NoByteOrderMarkIsAddedOrRemoved)
{
    SWCharString s;
    ASSERT_TRUE(fromUtf8(s, {0xEF, 0xBB, 0xBF, 'a'}));
    EXPECT_EQ(units(s), Units({0xFEFF, 'a'}));
    EXPECT_EQ(toUtf8(s), Bytes({0xEF, 0xBB, 0xBF, 'a'}));
    EXPECT_EQ(toUtf8(wide({'a'})), Bytes({'a'}));
}

TEST(UTFConverter, ToUtf8BufferRulesDifferBetweenWideAndAscii)
{
    const SWCharString w = wide({'a', 0xE9}); // 3 bytes
    unsigned char buf[8];
    std::memset(buf, 0xCC, sizeof buf);
    // The size covers the bytes; the terminator lands behind them.
    EXPECT_EQ(w.toUTF8(buf, 3), 3u);
    EXPECT_EQ(Bytes(buf, buf + 4), Bytes({'a', 0xC3, 0xA9, 0}));
    EXPECT_EQ(w.toUTF8(buf, 2), 0xFFFFFFFFu); // the two-byte character does not fit
    EXPECT_EQ(SWCharString().toUTF8(buf, 0), 0u);
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(w.toUTF8(nullptr, 100), 0xFFFFFFFFu);

    // ASCII: a copy that needs room for the terminator and counts it.
    const SAsciiString a("abc");
    std::memset(buf, 0xCC, sizeof buf);
    EXPECT_EQ(a.toUTF8(buf, 3), 0xFFFFFFFFu);
    EXPECT_EQ(a.toUTF8(buf, 4), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), Bytes({'a', 'b', 'c', 0}));
    EXPECT_EQ(a.getNBytesForUTF8(), 4u);
}

TEST(UTFConverter, StaticConversionsAndBuffers)
{
    STovoString t;
    const unsigned char smile[] = {'<', 0xF0, 0x9F, 0x98, 0x80, '>', 0};
    ASSERT_TRUE(CUTFConverter::UTF8ToUTF16(smile, t));
    EXPECT_EQ(units(t), Units({'<', 0xD83D, 0xDE00, '>'}));
    const unsigned char broken[] = {'o', 'k', 0xE0, 0x80, 0xAF, 0};
    EXPECT_FALSE(CUTFConverter::UTF8ToUTF16(broken, t));
    EXPECT_TRUE(t.isEmpty());
    t = STovoString(wide({'x'}));
    EXPECT_TRUE(CUTFConverter::UTF8ToUTF16(nullptr, t));
    EXPECT_TRUE(t.isEmpty());

    CSmartRefCountPtr<UTFBuffer_t<unsigned char> > u8;
    ASSERT_TRUE(CUTFConverter::UTF16ToUTF8(STovoString(wide({'a', 0xD83D, 0xDE00, 0xDC00})), u8));
    ASSERT_FALSE(u8.isNull());
    EXPECT_EQ(u8->getLength(), 9u); // 1 + 4 + 3 bytes and the terminator
    EXPECT_EQ(Bytes(u8->data(), u8->data() + 9), Bytes({'a', 0xF0, 0x9F, 0x98, 0x80, 0xED, 0xB0, 0x80, 0}));

    SSimpleBuffer sb;
    ASSERT_TRUE(CUTFConverter::UTF16ToUTF8(STovoString(wide({0xE9, 'z'})), sb));
    EXPECT_EQ(Bytes(sb.data(), sb.data() + sb.size()), Bytes({0xC3, 0xA9, 'z', 0}));

    // UTF-32: pairs joined, lone surrogates kept, and the F4 rule keeps values in range.
    CSmartRefCountPtr<UTFBuffer_t<unsigned long> > u32;
    const unsigned char four[] = {0xF0, 0x9F, 0x98, 0x80, 0xF4, 0x8F, 0xBF, 0xBF, 0xED, 0xA0, 0x80, 0};
    ASSERT_TRUE(CUTFConverter::UTF8ToUCS4(four, u32));
    ASSERT_EQ(u32->getLength(), 4u);
    EXPECT_EQ(std::vector<unsigned long>(u32->data(), u32->data() + 4), std::vector<unsigned long>({0x1F600, 0x10FFFF, 0xD800, 0}));
    const unsigned char above[] = {'a', 0xF4, 0x90, 0x80, 0x80, 0};
    EXPECT_FALSE(CUTFConverter::UTF8ToUCS4(above, u32));
    EXPECT_TRUE(u32.isNull());
    const unsigned char five[] = {0xF8, 0x88, 0x80, 0x80, 0x80, 0};
    EXPECT_FALSE(CUTFConverter::UTF8ToUCS4(five, u32));

    // Code points above U+10FFFF coming from UTF-32 become U+FFFD.
    const unsigned long cps[] = {0x41, 0x110000, 0x1F600, 0xDC00, 0x7FFFFFFF, 0};
    ASSERT_TRUE(CUTFConverter::UCS4ToUTF16(cps, t));
    EXPECT_EQ(units(t), Units({0x41, 0xFFFD, 0xD83D, 0xDE00, 0xDC00, 0xFFFD}));
    ASSERT_TRUE(CUTFConverter::UCS4ToUTF8(cps, u8));
    EXPECT_EQ(Bytes(u8->data(), u8->data() + u8->getLength()),
              Bytes({0x41, 0xEF, 0xBF, 0xBD, 0xF0, 0x9F, 0x98, 0x80, 0xED, 0xB0, 0x80, 0xEF, 0xBF, 0xBD, 0}));

    ASSERT_TRUE(CUTFConverter::UTF16ToUCS4(STovoString(wide({'a', 0xD83D, 0xDE00, 0xD800})), u32));
    EXPECT_EQ(std::vector<unsigned long>(u32->data(), u32->data() + u32->getLength()),
              std::vector<unsigned long>({'a', 0x1F600, 0xD800, 0}));
    const SWCharString src = wide({'a', 0xD83D, 0xDE00, 'b'});
    unsigned long arr[4] = {9, 9, 9, 9};
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), nullptr, 0), 3u);
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), arr, 4), 3u);
    EXPECT_EQ(std::vector<unsigned long>(arr, arr + 4), std::vector<unsigned long>({'a', 0x1F600, 'b', 0}));
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), arr, 3), 0xFFFFFFFFu); // no room for the terminator
}

TEST(UTFConverter, ConverterObjectOwnsItsBuffer)
{
    CUTFConverter empty;
    EXPECT_EQ(empty.getBuffer(), nullptr);
    EXPECT_EQ(empty.getLength(), 0u);
    CUTFConverter c(wide({'h', 0xE9}));
    EXPECT_EQ(c.getLength(), 4u);
    CUTFConverter copy(c);
    EXPECT_NE(copy.getBuffer(), c.getBuffer());
    EXPECT_EQ(std::memcmp(copy.getBuffer(), c.getBuffer(), 4), 0);
    c.setText(SWCharString());
    EXPECT_EQ(c.getBuffer(), nullptr);
    EXPECT_EQ(c.getLength(), 0u);
    c = copy;
    EXPECT_EQ(c.getLength(), 4u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(c.getBuffer())), "h\xC3\xA9");
}

// ---- result codes and positions of the low-level steps ---------------------------------------------

TEST(UTFConverter, StepsReportWhereTheyStopped)
{
    // The steps from UTF-8 are compared with the per-character rules in UTFCore below.
    const unsigned short lone[] = {'a', 0xD800, 'b'};
    const unsigned short* s16 = lone;
    unsigned char b[16];
    unsigned char* t8 = b;
    EXPECT_EQ(ConvertUTF16toUTF8(&s16, lone + 3, &t8, b + 16, strictConversion), sourceIllegal);
    EXPECT_EQ(s16 - lone, 1);
    s16 = lone;
    t8 = b;
    EXPECT_EQ(ConvertUTF16toUTF8(&s16, lone + 3, &t8, b + 3, lenientConversion), targetExhausted);
    EXPECT_EQ(s16 - lone, 1);
    EXPECT_EQ(t8 - b, 1);

    const unsigned long big[] = {0x110000};
    const unsigned long* s32 = big;
    unsigned short out[8];
    unsigned short* t = out;
    EXPECT_EQ(ConvertUTF32toUTF16(&s32, big + 1, &t, out + 8, strictConversion), sourceIllegal);
    s32 = big;
    EXPECT_EQ(ConvertUTF32toUTF16(&s32, big + 1, &t, out + 8, lenientConversion), conversionOK);
    EXPECT_EQ(out[0], 0xFFFD);
}

TEST(UTFConverter, LengthBoundAndRoundTrips)
{
    std::mt19937 rng(77);
    for (int iter = 0; iter < 5000; ++iter) {
        const Units u = randomUtf16(rng, true);
        const SWCharString w = wide(u);
        // The bound: 1, plus 1/2/3 per unit, 4 for a high unit that starts a pair.
        unsigned int expect = 1;
        for (size_t i = 0; i < u.size(); ++i) {
            const unsigned short c = u[i];
            if (c < 0x80) expect += 1;
            else if (c < 0x800) expect += 2;
            else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < u.size() && u[i + 1] >= 0xDC00 && u[i + 1] <= 0xDFFF) expect += 4;
            else expect += 3;
        }
        ASSERT_EQ(w.getNBytesForUTF8(), expect);
        const Bytes b = toUtf8(w);
        EXPECT_LE(b.size() + 1, expect);
        // Every UTF-16 text survives the trip through UTF-8, lone surrogates included.
        SWCharString back;
        ASSERT_TRUE(fromUtf8(back, b));
        ASSERT_EQ(units(back), u);
        CUTFConverter c(w);
        ASSERT_EQ(c.getLength(), u.empty() ? 0u : b.size() + 1);
        ASSERT_EQ(Bytes(c.getBuffer(), c.getBuffer() + b.size()), b);

        // Well-formed UTF-8 without encoded surrogates survives the other way round.
        Bytes v = randomUtf8(rng, true);
        for (unsigned char& x : v)
            if (!x) x = 'z';
        SWCharString t;
        ASSERT_TRUE(fromUtf8(t, v));
        ASSERT_EQ(toUtf8(t), v);
    }
}

// ---- the converter core under every policy ---------------------------------------------------------

namespace {

const Policy kPolicies[] = {Policy::lenient, Policy::strict, Policy::replace, Policy::escapeBytes};

const char* policyName(Policy p)
{
    switch (p) {
    case Policy::lenient: return "lenient";
    case Policy::strict: return "strict";
    case Policy::replace: return "replace";
    default: return "escapeBytes";
    }
}

const size_t kGuard = 32;

// One step of the core into room elements, with guard elements on both sides.
template <class In, class Out, class Step>
Outcome guarded(const std::vector<In>& in, size_t room, Out guard, Step step)
{
    std::vector<Out> buf(room + 2 * kGuard, guard);
    const In* s = in.data();
    Out* t = buf.data() + kGuard;
    const int r = step(&s, in.data() + in.size(), &t, buf.data() + kGuard + room);
    for (size_t k = 0; k < kGuard; ++k) {
        EXPECT_EQ(buf[k], guard) << "written before the target";
        EXPECT_EQ(buf[kGuard + room + k], guard) << "written past the target, room " << room;
    }
    return Outcome{r, static_cast<size_t>(s - in.data()), std::vector<unsigned long>(buf.data() + kGuard, t)};
}

Outcome coreFromUtf8(const Bytes& in, size_t room, Policy policy)
{
    return guarded(in, room, static_cast<unsigned short>(0xA5A5),
                   [policy](const unsigned char** s, const unsigned char* se, unsigned short** t, unsigned short* te) {
                       return utf::utf8ToUtf16Step(s, se, t, te, policy);
                   });
}

Outcome coreToUtf8(const Units& in, size_t room, Policy policy)
{
    return guarded(in, room, static_cast<unsigned char>(0xA5),
                   [policy](const unsigned short** s, const unsigned short* se, unsigned char** t, unsigned char* te) {
                       return utf::utf16ToUtf8Step(s, se, t, te, policy);
                   });
}

// The same input through the public steps (lenient and strict only) must agree too.
void expectPublicAgrees(const Bytes& in, size_t room, Policy policy, const Outcome& expect)
{
    if (policy != Policy::lenient && policy != Policy::strict)
        return;
    std::vector<unsigned short> out(room + 1, 0xA5A5);
    const unsigned char* s = in.data();
    unsigned short* t = out.data();
    const int r = ConvertUTF8toUTF16(&s, in.data() + in.size(), &t, out.data() + room,
                                     policy == Policy::strict ? strictConversion : lenientConversion);
    EXPECT_EQ((Outcome{r, static_cast<size_t>(s - in.data()), std::vector<unsigned long>(out.data(), t)}), expect);
    EXPECT_EQ(out[room], 0xA5A5);
}

// Every malformed form a lead byte can start: stray and invalid leads, overlong forms,
// values above 10FFFF, encoded surrogates, five- and six-byte forms, cut sequences.
std::vector<Bytes> badForms()
{
    std::vector<Bytes> forms;
    for (unsigned b = 0x80; b <= 0xFF; ++b) {
        if (b >= 0xC2 && b <= 0xF4)
            forms.push_back(Bytes{static_cast<unsigned char>(b)}); // cut short (before ASCII)
        else
            forms.push_back(Bytes{static_cast<unsigned char>(b), 0x80, 0x80, 0x80}); // never a lead
    }
    const Bytes fixed[] = {
        {0xC0, 0x80}, {0xC0, 0xAE}, {0xC0, 0xAF}, {0xC1, 0xBF}, {0xC1, 0x81},           // overlong two-byte
        {0xE0, 0x80, 0x80}, {0xE0, 0x80, 0xAE}, {0xE0, 0x9F, 0xBF},                    // overlong three-byte
        {0xF0, 0x80, 0x80, 0x80}, {0xF0, 0x80, 0x80, 0xAE}, {0xF0, 0x8F, 0xBF, 0xBF},  // overlong four-byte
        {0xF4, 0x90, 0x80, 0x80}, {0xF5, 0x80, 0x80, 0x80}, {0xF7, 0xBF, 0xBF, 0xBF},  // above 10FFFF
        {0xED, 0xA0, 0x80}, {0xED, 0xBF, 0xBF}, {0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80},  // encoded surrogates
        {0xF8, 0x88, 0x80, 0x80, 0x80}, {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80},          // five and six bytes
        {0xC3, 0x41}, {0xE2, 0x82, 0x41}, {0xF0, 0x9F, 0x98, 0x41}, {0xE2, 0x41, 0x82}, // bad trailing byte
        {0xC3, 0xC3, 0xA9}, {0xE2, 0x82}, {0xF0, 0x9F, 0x98}, {0x80}, {0xBF, 0xBF},
    };
    forms.insert(forms.end(), std::begin(fixed), std::end(fixed));
    return forms;
}

// Text of a given kind, at least minBytes long: ASCII, two-byte, three-byte, mixed
// with four-byte characters (so every fast path sees it).
Bytes filler(int kind, size_t minBytes)
{
    static const char* const pieces[] = {"plain ascii text, ", "\xD0\xB0\xD0\xB1\xD0\xB2 ",
                                         "\xE4\xB8\xAD\xE6\x96\x87\xE5\xAD\x97",
                                         "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF "};
    Bytes b;
    while (b.size() < minBytes)
        b.insert(b.end(), pieces[kind], pieces[kind] + std::strlen(pieces[kind]));
    return b;
}

} // namespace

TEST(UTFCore, EveryPolicyMatchesThePerCharacterRules)
{
    std::mt19937 rng(4242);
    for (int iter = 0; iter < 3000; ++iter) {
        // Now and then past 4096 bytes, where the block paths run for a long time.
        Bytes in = randomUtf8(rng, (iter & 2) != 0);
        if (iter % 50 == 0)
            while (in.size() < 5000)
                for (unsigned char c : randomUtf8(rng, (iter & 4) != 0))
                    in.push_back(c);
        const Units u = randomUtf16(rng, false);
        for (Policy p : kPolicies) {
            SCOPED_TRACE(policyName(p));
            const size_t rooms[] = {in.size(), std::uniform_int_distribution<size_t>(0, in.size())(rng)};
            for (size_t room : rooms) {
                const Outcome expect = utfref::fromUtf8(in.data(), in.size(), room, p);
                ASSERT_EQ(coreFromUtf8(in, room, p), expect) << "input " << ::testing::PrintToString(in) << " room " << room;
                expectPublicAgrees(in, room, p, expect);
            }
            const size_t rooms8[] = {3 * u.size(), std::uniform_int_distribution<size_t>(0, 3 * u.size())(rng)};
            for (size_t room : rooms8)
                ASSERT_EQ(coreToUtf8(u, room, p), utfref::toUtf8(u.data(), u.size(), room, p))
                    << "input " << ::testing::PrintToString(u) << " room " << room;
        }
        // UTF-32 has one set of rules (lenient, the surrogates kept), with a short target too.
        for (size_t room : {in.size(), in.size() / 2}) {
            std::vector<unsigned long> out32(room + 1, 0xCDCD);
            const unsigned char* s = in.data();
            unsigned long* t32 = out32.data();
            const int r = ConvertUTF8toUTF32(&s, in.data() + in.size(), &t32, out32.data() + room, strictConversion);
            ASSERT_EQ((Outcome{r, static_cast<size_t>(s - in.data()), std::vector<unsigned long>(out32.data(), t32)}),
                      utfref::fromUtf8(in.data(), in.size(), room, Policy::lenient, 0xFFFD, true));
            ASSERT_EQ(out32[room], 0xCDCDu);
        }
        // Names on disk: any bytes come back exactly through the escaping policy.
        std::vector<unsigned short> names;
        ASSERT_TRUE(utf::utf8ToUtf16(in.data(), in.size(), names, Policy::escapeBytes));
        std::string back;
        ASSERT_TRUE(utf::utf16ToUtf8(names.data(), names.size(), back, Policy::escapeBytes));
        ASSERT_EQ(Bytes(back.begin(), back.end()), in);
    }
}

TEST(UTFCore, DefectsDeepInLongTextActAsAtItsStart)
{
    // Every malformed form at every byte offset of 48 bytes and more of each kind of text
    // (so that the sixteen-byte steps and the windows have run before it) gives what the
    // per-character rules give, under every policy and with the target just large enough.
    const std::vector<Bytes> forms = badForms();
    for (int kind = 0; kind < 4; ++kind) {
        const Bytes text = filler(kind, 48);
        for (const Bytes& form : forms) {
            for (size_t at = 0; at <= text.size(); ++at) {
                Bytes in(text.begin(), text.begin() + at);
                in.insert(in.end(), form.begin(), form.end());
                in.insert(in.end(), text.begin() + at, text.end());
                for (Policy p : kPolicies) {
                    const Outcome expect = utfref::fromUtf8(in.data(), in.size(), in.size(), p);
                    const Outcome got = coreFromUtf8(in, in.size(), p);
                    ASSERT_EQ(got, expect) << policyName(p) << " kind " << kind << " form "
                                           << ::testing::PrintToString(form) << " at " << at;
                    expectPublicAgrees(in, in.size(), p, expect);
                }
                // The string conversion refuses it wherever it stands (encoded surrogates
                // excepted: they are legal).
                if (form[0] != 0xED) {
                    SWCharString w;
                    ASSERT_FALSE(fromUtf8(w, in)) << ::testing::PrintToString(form) << " at " << at;
                    ASSERT_TRUE(w.isEmpty());
                }
            }
        }
    }
    // The forms that a careless fast path would take, spelled out.
    Bytes in(40, 'x');
    in.push_back(0xC0);
    in.push_back(0xAE);
    in.insert(in.end(), 20, 'y');
    std::vector<unsigned short> out;
    EXPECT_FALSE(utf::utf8ToUtf16(in.data(), in.size(), out, Policy::lenient));
    ASSERT_TRUE(utf::utf8ToUtf16(in.data(), in.size(), out, Policy::replace));
    EXPECT_EQ(out[40], 0xFFFD);
    EXPECT_EQ(out[41], 0xFFFD);
    ASSERT_TRUE(utf::utf8ToUtf16(in.data(), in.size(), out, Policy::escapeBytes));
    EXPECT_EQ(out[40], 0xDCC0);
    EXPECT_EQ(out[41], 0xDCAE);
}

TEST(UTFCore, NoStepWritesOutsideItsTarget)
{
    // Every target size from 0 to 3n + 2 bytes for n = 9 .. 40 units of text without
    // ASCII (two-byte, three-byte, pairs, lone surrogates), guarded on both sides.
    std::mt19937 rng(99);
    for (size_t n = 9; n <= 40; n += (n < 20 ? 1 : 7)) {
        for (int kind = 0; kind < 4; ++kind) {
            Units u;
            while (u.size() < n) {
                switch (kind) {
                case 0: u.push_back(static_cast<unsigned short>(0x400 + rng() % 0x100)); break;
                case 1: u.push_back(static_cast<unsigned short>(0x4E00 + rng() % 0x5000)); break;
                case 2: u.push_back(0xD83D); u.push_back(static_cast<unsigned short>(0xDE00 + rng() % 0x40)); break;
                default: u.push_back(static_cast<unsigned short>(rng() % 2 ? 0x800 + rng() % 0x100 : 0xDC80 + rng() % 0x80)); break;
                }
            }
            for (Policy p : kPolicies) {
                for (size_t room = 0; room <= 3 * u.size() + 2; ++room)
                    ASSERT_EQ(coreToUtf8(u, room, p), utfref::toUtf8(u.data(), u.size(), room, p))
                        << policyName(p) << " kind " << kind << " units " << u.size() << " room " << room;
            }
            // And the way back, every target size from 0 to the units + 2.
            std::string bytes;
            ASSERT_TRUE(utf::utf16ToUtf8(u.data(), u.size(), bytes, Policy::lenient));
            const Bytes b(bytes.begin(), bytes.end());
            for (Policy p : kPolicies)
                for (size_t room = 0; room <= u.size() + 2; ++room)
                    ASSERT_EQ(coreFromUtf8(b, room, p), utfref::fromUtf8(b.data(), b.size(), room, p))
                        << policyName(p) << " room " << room;
        }
    }
}

TEST(UTFCore, LongTextWithFourByteCharacters)
{
    // Past 4096 bytes the string conversion sizes its buffer by counting units; every
    // four-byte lead (F0 to F4, the last one for U+100000 .. U+10FFFF) needs two.
    std::mt19937 rng(4096);
    for (size_t size : {4090u, 4097u, 4100u, 4111u, 5000u, 8195u, 20000u}) {
        for (unsigned lead = 0xF0; lead <= 0xF4; ++lead) {
            Bytes in;
            while (in.size() + 4 < size) {
                if (rng() % 3 == 0) {
                    in.push_back(static_cast<unsigned char>('a' + rng() % 26));
                    continue;
                }
                in.push_back(static_cast<unsigned char>(lead));
                in.push_back(static_cast<unsigned char>(lead == 0xF0 ? 0x90 + rng() % 0x30 : lead == 0xF4 ? 0x80 + rng() % 0x10 : 0x80 + rng() % 0x40));
                in.push_back(static_cast<unsigned char>(0x80 + rng() % 0x40));
                in.push_back(static_cast<unsigned char>(0x80 + rng() % 0x40));
            }
            ASSERT_EQ(utf::utf8UnitCount(in.data(), in.size()), utfref::unitCount(in.data(), in.size()));
            const Outcome expect = utfref::fromUtf8(in.data(), in.size(), in.size(), Policy::lenient);
            ASSERT_EQ(expect.result, 0);
            SWCharString w;
            ASSERT_TRUE(fromUtf8(w, in)) << "lead " << std::hex << lead << " size " << std::dec << in.size();
            const Units got = units(w);
            ASSERT_EQ(std::vector<unsigned long>(got.begin(), got.end()), expect.out);
            ASSERT_EQ(toUtf8(w), in);
        }
    }
    // The count's per-byte rule for every byte value, in the vector blocks and the tail.
    for (unsigned b = 0; b < 256; ++b) {
        for (size_t n : {7u, 16u, 40u, 4100u}) {
            const Bytes in(n, static_cast<unsigned char>(b));
            const size_t per = (b < 0x80 || b > 0xBF) + (b >= 0xF0 && b <= 0xF4);
            ASSERT_EQ(utf::utf8UnitCount(in.data(), n), per * n) << "byte " << b << " n " << n;
        }
    }
}

TEST(UTFCore, PlainCopiesAndByteOrders)
{
    const unsigned short u[] = {0x0041, 0x00E9, 0xD83D, 0xDE00, 0xFFFE};
    unsigned char le[10], be[10];
    utf::utf16ToBytes(u, 5, le, false);
    utf::utf16ToBytes(u, 5, be, true);
    const unsigned char wantLe[] = {0x41, 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE, 0xFE, 0xFF};
    const unsigned char wantBe[] = {0, 0x41, 0, 0xE9, 0xD8, 0x3D, 0xDE, 0x00, 0xFF, 0xFE};
    EXPECT_EQ(Bytes(le, le + 10), Bytes(wantLe, wantLe + 10));
    EXPECT_EQ(Bytes(be, be + 10), Bytes(wantBe, wantBe + 10));
    unsigned short back[5];
    utf::bytesToUtf16(be, 5, back, true);
    EXPECT_EQ(Units(back, back + 5), Units(u, u + 5));
    utf::bytesToUtf16(le, 5, back, false);
    EXPECT_EQ(Units(back, back + 5), Units(u, u + 5));

    // The replacement of the replace policy is the caller's: "?" for the code sets.
    const Bytes bad = bytesOf("a\xC3(\xF0\x9F\x98\x80z\xE2\x82");
    unsigned short out[16];
    const size_t n = utf::utf8ToUtf16Degrading(bad.data(), bad.size(), out);
    const unsigned short want[] = {'a', '?', '(', 0xD83D, 0xDE00, 'z', '?', '?'};
    EXPECT_EQ(Units(out, out + n), Units(want, want + 8));
    // A lone surrogate becomes the replacement when encoding, too.
    const unsigned short lone[] = {'x', 0xDC00, 'y', 0xD800};
    std::string enc;
    ASSERT_TRUE(utf::utf16ToUtf8(lone, 4, enc, Policy::replace));
    EXPECT_EQ(enc, "x\xEF\xBF\xBDy\xEF\xBF\xBD");
    ASSERT_TRUE(utf::utf16ToUtf8(lone, 4, enc, Policy::replace, '?'));
    EXPECT_EQ(enc, "x?y?");
    EXPECT_FALSE(utf::utf16ToUtf8(lone, 4, enc, Policy::strict));
    EXPECT_TRUE(enc.empty());
    EXPECT_FALSE(utf::utf16ToUtf8(lone, 4, enc, Policy::escapeBytes)); // DC00 is no escaped byte
}
