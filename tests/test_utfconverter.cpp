// UTF-8 / UTF-16 / UTF-32 conversion: the documented byte-level rules, the whole-or-nothing
// failure of the string conversions, and the fast converters against per-character rules.
#include "vardo/UTFConverter.h"
#include "utf_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned char> Bytes;
typedef std::vector<unsigned short> Units;
typedef std::vector<unsigned long> Values;

SWCharString wide(Units u)
{
    u.push_back(0);
    return SWCharString(u.data());
}

Units units(const SString_t<unsigned short, 1>& s) { return Units(s.data(), s.data() + s.getLength()); }

// SWCharString::toUTF8 into a buffer of exactly the bound (plus the byte behind it).
Bytes toUtf8(const SWCharString& s)
{
    Bytes buf(s.getNBytesForUTF8() + 1, 0xCC);
    const unsigned int n = s.toUTF8(buf.data(), s.getNBytesForUTF8());
    EXPECT_EQ(buf.at(n), 0); // throws for the failure value
    buf.resize(n);
    return buf;
}

bool fromUtf8(SWCharString& s, const Bytes& b) { return s.fromUTF8(b.data(), static_cast<unsigned int>(b.size())); }

// A UTF buffer's units; its length counts the terminator.
template <class T>
std::vector<T> contents(const CSmartRefCountPtr<UTFBuffer_t<T> >& b)
{
    return std::vector<T>(b->data(), b->data() + b->getLength());
}

using utfref::Outcome;
using Vardo400::utf::Policy;

// Random UTF-16 text: pieces of one range each, ASCII and letters in runs (spaced or not,
// for the eight-unit and sixteen-byte steps), pairs and lone surrogates.
Units randomUtf16(std::mt19937& rng)
{
    static const unsigned short lo[] = {0, 0x80, 0x800, 0xE000, 0xD800, 0xDC00, 0xD800};
    static const unsigned short hi[] = {0x7F, 0x7FF, 0xD7FF, 0xFFFF, 0xDBFF, 0xDFFF, 0xDBFF};
    auto pick = [&](int a, int b) { return static_cast<unsigned short>(std::uniform_int_distribution<int>(a, b)(rng)); };
    Units u;
    for (int p = pick(0, 24); p > 0; --p) {
        const int r = pick(0, 6);
        const bool spaced = pick(0, 1) != 0;
        for (int k = r < 3 ? pick(0, 40) : 1; k > 0; --k)
            u.push_back(spaced && r > 0 && k % 6 == 5 ? static_cast<unsigned short>(' ') : pick(lo[r], hi[r]));
        if (r == 6)
            u.push_back(pick(0xDC00, 0xDFFF)); // completes a pair
    }
    return u;
}

// Random UTF-8: such text encoded (valid: lone surrogates replaced; else kept as
// encoded surrogates), then unless valid text is asked for, a few bytes overwritten
// with any byte from 80 hex on, making stray bytes, bad leads, overlong and cut forms.
Bytes randomUtf8(std::mt19937& rng, bool validOnly)
{
    const Units u = randomUtf16(rng);
    const Values enc = utfref::toUtf8(u.data(), u.size(), 3 * u.size(), validOnly ? Policy::replace : Policy::lenient).out;
    Bytes b(enc.begin(), enc.end());
    for (int k = validOnly || b.empty() ? 0 : static_cast<int>(rng() % 5); k > 0; --k)
        b[rng() % b.size()] = static_cast<unsigned char>(0x80 + rng() % 0x80);
    return b;
}

const struct { Policy policy; const char* name; } kPolicies[] = {
    {Policy::lenient, "lenient"}, {Policy::strict, "strict"}, {Policy::replace, "replace"}, {Policy::escapeBytes, "escapeBytes"}};

const size_t kGuard = 32;

// One step into room elements, with guard elements on both sides.
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
    return Outcome{r, static_cast<size_t>(s - in.data()), Values(buf.data() + kGuard, t)};
}

// The core's step from UTF-8 or, with publicStep, the public one where the policy has one.
Outcome coreFromUtf8(const Bytes& in, size_t room, Policy policy, bool publicStep = false)
{
    const bool viaPublic = publicStep && (policy == Policy::lenient || policy == Policy::strict);
    const ConversionFlags flags = policy == Policy::strict ? strictConversion : lenientConversion;
    return guarded(in, room, uint16_t{0xA5A5}, [&](auto s, auto se, auto t, auto te) {
        return viaPublic ? static_cast<int>(ConvertUTF8toUTF16(s, se, t, te, flags))
                         : static_cast<int>(utf::utf8ToUtf16Step(s, se, t, te, policy));
    });
}

Outcome coreToUtf8(const Units& in, size_t room, Policy policy)
{
    return guarded(in, room, uint8_t{0xA5}, [&](auto s, auto se, auto t, auto te) {
        return utf::utf16ToUtf8Step(s, se, t, te, policy);
    });
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

TEST(UTFConverter, DecodesAndRejectsUtf8AsDocumented)
{
    SWCharString s;
    ASSERT_TRUE(fromUtf8(s, {0xED, 0xA0, 0x80})); // an encoded surrogate passes through
    EXPECT_EQ(units(s), Units({0xD800}));
    // No byte order mark is added or removed.
    ASSERT_TRUE(fromUtf8(s, {0xEF, 0xBB, 0xBF, 'a'}));
    EXPECT_EQ(units(s), Units({0xFEFF, 'a'}));
    EXPECT_EQ(toUtf8(s), Bytes({0xEF, 0xBB, 0xBF, 'a'}));

    // A defect fails the whole text, and what the string held before is gone.
    s = wide({'o', 'l', 'd'});
    EXPECT_FALSE(fromUtf8(s, {'o', 'k', 0xC0, 0xAF}));
    EXPECT_TRUE(s.isEmpty());
    // Three-byte text gets a buffer sized to its units, not to its bytes.
    Bytes cjk = filler(2, 9000);
    cjk.insert(cjk.end(), {0xF0, 0x9F, 0x98, 0x80});
    ASSERT_TRUE(fromUtf8(s, cjk));
    EXPECT_EQ(s.getLength(), 3002u);
    EXPECT_LT(s.getCapacity(), 3100u);
    cjk.back() = 'x'; // the count is an estimate only for malformed input, which fails
    EXPECT_FALSE(fromUtf8(s, cjk));

    // A 0 byte inside the counted form ends the text.
    ASSERT_TRUE(fromUtf8(s, {'a', 'b', 0, 'c'}));
    EXPECT_EQ(units(s), Units({'a', 'b'}));
    EXPECT_FALSE(fromUtf8(s, {'a', 0xC3, 0, 0xA9}));
    EXPECT_TRUE(s.fromUTF8(static_cast<const unsigned char*>(nullptr))); // the empty text
    EXPECT_TRUE(s.isEmpty());
}

TEST(UTFConverter, EncodesPairsAndLoneSurrogates)
{
    EXPECT_EQ(toUtf8(wide({0xD83D, 0xDE00})), Bytes({0xF0, 0x9F, 0x98, 0x80}));
    EXPECT_EQ(toUtf8(wide({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF})),
              Bytes({0x7F, 0xC2, 0x80, 0xDF, 0xBF, 0xE0, 0xA0, 0x80, 0xEF, 0xBF, 0xBF}));

    // A pair is counted 4 + 3 in the bound, while 4 bytes and a terminator come out.
    const SWCharString pair = wide({0xD83D, 0xDE00});
    EXPECT_EQ(pair.getNBytesForUTF8(), 8u);
    EXPECT_EQ(CUTFConverter::UTF16ToUTF8Length(pair.data()), 8u);
    EXPECT_EQ(CUTFConverter::UTF16ToUTF8Length(nullptr), 1u);
    CUTFConverter conv(pair);
    EXPECT_EQ(Bytes(conv.getBuffer(), conv.getBuffer() + conv.getLength()), Bytes({0xF0, 0x9F, 0x98, 0x80, 0}));
    // The lone high surrogate at the end, followed only by the terminator.
    conv.setText(wide({0xD83D}));
    EXPECT_EQ(Bytes(conv.getBuffer(), conv.getBuffer() + conv.getLength()), Bytes({0xED, 0xA0, 0xBD, 0}));

    // The converter object owns a copy of its buffer.
    CUTFConverter copy(conv);
    EXPECT_NE(copy.getBuffer(), conv.getBuffer());
    conv.setText(SWCharString());
    EXPECT_EQ(conv.getBuffer(), nullptr);
    EXPECT_EQ(conv.getLength(), 0u);
    conv = copy;
    EXPECT_EQ(Bytes(conv.getBuffer(), conv.getBuffer() + conv.getLength()), Bytes({0xED, 0xA0, 0xBD, 0}));
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
    EXPECT_EQ(a.toUTF8(buf, 3), 0xFFFFFFFFu);
    EXPECT_EQ(a.toUTF8(buf, 4), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), Bytes({'a', 'b', 'c', 0}));
    EXPECT_EQ(a.getNBytesForUTF8(), 4u);
}

TEST(UTFConverter, StaticConversionsBuffersAndSteps)
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
    EXPECT_EQ(contents(u8), Bytes({'a', 0xF0, 0x9F, 0x98, 0x80, 0xED, 0xB0, 0x80, 0}));
    SSimpleBuffer sb;
    ASSERT_TRUE(CUTFConverter::UTF16ToUTF8(STovoString(wide({0xE9, 'z'})), sb));
    EXPECT_EQ(Bytes(sb.data(), sb.data() + sb.size()), Bytes({0xC3, 0xA9, 'z', 0}));

    // UTF-32: pairs joined, lone surrogates kept, and the F4 rule keeps values in range.
    CSmartRefCountPtr<UTFBuffer_t<unsigned long> > u32;
    const unsigned char four[] = {0xF0, 0x9F, 0x98, 0x80, 0xF4, 0x8F, 0xBF, 0xBF, 0xED, 0xA0, 0x80, 0};
    ASSERT_TRUE(CUTFConverter::UTF8ToUCS4(four, u32));
    EXPECT_EQ(contents(u32), Values({0x1F600, 0x10FFFF, 0xD800, 0}));
    const unsigned char above[] = {'a', 0xF4, 0x90, 0x80, 0x80, 0};
    EXPECT_FALSE(CUTFConverter::UTF8ToUCS4(above, u32));
    EXPECT_TRUE(u32.isNull());

    // Code points above U+10FFFF coming from UTF-32 become U+FFFD.
    const unsigned long cps[] = {0x41, 0x110000, 0x1F600, 0xDC00, 0x7FFFFFFF, 0};
    ASSERT_TRUE(CUTFConverter::UCS4ToUTF16(cps, t));
    EXPECT_EQ(units(t), Units({0x41, 0xFFFD, 0xD83D, 0xDE00, 0xDC00, 0xFFFD}));
    ASSERT_TRUE(CUTFConverter::UCS4ToUTF8(cps, u8));
    EXPECT_EQ(contents(u8), Bytes({0x41, 0xEF, 0xBF, 0xBD, 0xF0, 0x9F, 0x98, 0x80, 0xED, 0xB0, 0x80, 0xEF, 0xBF, 0xBD, 0}));

    ASSERT_TRUE(CUTFConverter::UTF16ToUCS4(STovoString(wide({'a', 0xD83D, 0xDE00, 0xD800})), u32));
    EXPECT_EQ(contents(u32), Values({'a', 0x1F600, 0xD800, 0}));
    const SWCharString src = wide({'a', 0xD83D, 0xDE00, 'b'});
    unsigned long arr[4] = {9, 9, 9, 9};
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), nullptr, 0), 3u);
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), arr, 4), 3u);
    EXPECT_EQ(Values(arr, arr + 4), Values({'a', 0x1F600, 'b', 0}));
    EXPECT_EQ(CUTFConverter::UTF16ToUCS4(src.data(), arr, 3), 0xFFFFFFFFu); // no room for the terminator

    // The other steps report where they stopped (those from UTF-8: UTFCore below).
    const Units lone = {'a', 0xD800, 'b'};
    auto to8 = [](ConversionFlags f) { return [f](auto s, auto se, auto t, auto te) { return ConvertUTF16toUTF8(s, se, t, te, f); }; };
    EXPECT_EQ(guarded(lone, 16, uint8_t{0}, to8(strictConversion)), (Outcome{sourceIllegal, 1, {'a'}}));
    EXPECT_EQ(guarded(lone, 3, uint8_t{0}, to8(lenientConversion)), (Outcome{targetExhausted, 1, {'a'}}));
    auto to16 = [](ConversionFlags f) { return [f](auto s, auto se, auto t, auto te) { return ConvertUTF32toUTF16(s, se, t, te, f); }; };
    EXPECT_EQ(guarded(Values{0x110000}, 8, uint16_t{0}, to16(strictConversion)), (Outcome{sourceIllegal, 0, {}}));
    EXPECT_EQ(guarded(Values{0x110000}, 8, uint16_t{0}, to16(lenientConversion)), (Outcome{conversionOK, 1, {0xFFFD}}));
    auto strict32to8 = [](auto s, auto se, auto t, auto te) { return ConvertUTF32toUTF8(s, se, t, te, strictConversion); };
    EXPECT_EQ(guarded(Values{'a', 0x110000}, 8, uint8_t{0}, strict32to8), (Outcome{sourceIllegal, 1, {'a'}}));
}

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
        const Units u = randomUtf16(rng);
        for (const auto& [p, name] : kPolicies) {
            SCOPED_TRACE(name);
            for (size_t room : {in.size(), std::uniform_int_distribution<size_t>(0, in.size())(rng)}) {
                const Outcome expect = utfref::fromUtf8(in.data(), in.size(), room, p);
                ASSERT_EQ(coreFromUtf8(in, room, p), expect) << "input " << ::testing::PrintToString(in) << " room " << room;
                ASSERT_EQ(coreFromUtf8(in, room, p, true), expect);
            }
            for (size_t room : {3 * u.size(), std::uniform_int_distribution<size_t>(0, 3 * u.size())(rng)})
                ASSERT_EQ(coreToUtf8(u, room, p), utfref::toUtf8(u.data(), u.size(), room, p))
                    << "input " << ::testing::PrintToString(u) << " room " << room;
        }
        // The length bound counts 4 + 3 for a pair (four bytes out) and the terminator.
        const Values enc = utfref::toUtf8(u.data(), u.size(), 3 * u.size(), Policy::lenient).out;
        const size_t pairs = static_cast<size_t>(std::count_if(enc.begin(), enc.end(), [](unsigned long c) { return c >= 0xF0; }));
        ASSERT_EQ(utf::utf8LengthBound(u.data(), u.size()), enc.size() + 1 + 3 * pairs);
        // UTF-32 has one set of rules (lenient, the surrogates kept), with a short target too.
        for (size_t room : {in.size(), in.size() / 2}) {
            auto step = [](auto s, auto se, auto t, auto te) { return ConvertUTF8toUTF32(s, se, t, te, strictConversion); };
            ASSERT_EQ(guarded(in, room, 0xCDCDul, step), utfref::fromUtf8(in.data(), in.size(), room, Policy::lenient, 0xFFFD, true));
        }
    }
}

TEST(UTFCore, DefectsDeepInLongTextActAsAtItsStart)
{
    // Every malformed form at every offset of 48 bytes or more of each kind of text (the
    // vector steps and windows run before it) acts as the per-character rules say.
    const std::vector<Bytes> forms = badForms();
    for (int kind = 0; kind < 4; ++kind) {
        const Bytes text = filler(kind, 48);
        for (const Bytes& form : forms) {
            for (size_t at = 0; at <= text.size(); ++at) {
                Bytes in(text.begin(), text.begin() + at);
                in.insert(in.end(), form.begin(), form.end());
                in.insert(in.end(), text.begin() + at, text.end());
                for (const auto& [p, name] : kPolicies) {
                    const Outcome expect = utfref::fromUtf8(in.data(), in.size(), in.size(), p);
                    ASSERT_EQ(coreFromUtf8(in, in.size(), p), expect) << name << " kind " << kind << " form "
                                                                      << ::testing::PrintToString(form) << " at " << at;
                    ASSERT_EQ(coreFromUtf8(in, in.size(), p, true), expect);
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
}

TEST(UTFCore, NoStepWritesOutsideItsTarget)
{
    // Every target size 0 .. 3n + 2 for n = 9 .. 40 units of non-ASCII text, guarded.
    std::mt19937 rng(99);
    for (size_t n = 9; n <= 40; n += (n < 20 ? 1 : 7)) {
        for (int kind = 0; kind < 4; ++kind) {
            Units u;
            while (u.size() < n) {
                switch (kind) {
                case 0: u.push_back(static_cast<unsigned short>(0x7F8 + rng() % 0x10)); break; // both sides of 800
                case 1: u.push_back(static_cast<unsigned short>(0x4E00 + rng() % 0x5000)); break;
                case 2: u.insert(u.end(), {0xD83D, static_cast<unsigned short>(0xDE00 + rng() % 0x40)}); break;
                default: u.push_back(static_cast<unsigned short>(rng() % 2 ? 0x800 + rng() % 0x100 : 0xDC80 + rng() % 0x80)); break;
                }
            }
            // Both ways: from UTF-8, every target size from 0 to the units + 2.
            std::string bytes;
            ASSERT_TRUE(utf::utf16ToUtf8(u.data(), u.size(), bytes, Policy::lenient));
            const Bytes b(bytes.begin(), bytes.end());
            for (const auto& [p, name] : kPolicies) {
                for (size_t room = 0; room <= 3 * u.size() + 2; ++room)
                    ASSERT_EQ(coreToUtf8(u, room, p), utfref::toUtf8(u.data(), u.size(), room, p))
                        << name << " kind " << kind << " units " << u.size() << " room " << room;
                for (size_t room = 0; room <= u.size() + 2; ++room)
                    ASSERT_EQ(coreFromUtf8(b, room, p), utfref::fromUtf8(b.data(), b.size(), room, p))
                        << name << " room " << room;
            }
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
            Values enc;
            while (in.size() + 4 < size) {
                const unsigned long cp = rng() % 3 == 0 ? 'a' + rng() % 26
                                         : lead == 0xF0 ? 0x10000 + rng() % 0x30000
                                         : ((lead & 7ul) << 18) + rng() % (lead == 0xF4 ? 0x10000 : 0x40000);
                utfref::encodeUtf8(cp, enc);
                in.insert(in.end(), enc.begin(), enc.end());
            }
            const Outcome expect = utfref::fromUtf8(in.data(), in.size(), in.size(), Policy::lenient);
            ASSERT_EQ(expect.result, 0);
            ASSERT_EQ(utf::utf8UnitCount(in.data(), in.size()), expect.out.size());
            SWCharString w;
            ASSERT_TRUE(fromUtf8(w, in)) << "lead " << std::hex << lead << " size " << std::dec << in.size();
            ASSERT_EQ(Values(w.data(), w.data() + w.getLength()), expect.out);
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
    EXPECT_EQ(Bytes(le, le + 10), Bytes({0x41, 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE, 0xFE, 0xFF}));
    EXPECT_EQ(Bytes(be, be + 10), Bytes({0, 0x41, 0, 0xE9, 0xD8, 0x3D, 0xDE, 0x00, 0xFF, 0xFE}));
    unsigned short back[5];
    utf::bytesToUtf16(be, 5, back, true);
    EXPECT_EQ(Units(back, back + 5), Units(u, u + 5));
    utf::bytesToUtf16(le, 5, back, false);
    EXPECT_EQ(Units(back, back + 5), Units(u, u + 5));

    // The replacement of the replace policy is the caller's: "?" for the code sets.
    const unsigned char bad[] = "a\xC3(\xF0\x9F\x98\x80z\xE2\x82";
    unsigned short out[16];
    const size_t n = utf::utf8ToUtf16Degrading(bad, sizeof bad - 1, out);
    EXPECT_EQ(Units(out, out + n), Units({'a', '?', '(', 0xD83D, 0xDE00, 'z', '?', '?'}));
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
    const unsigned short escaped[] = {0xDC80, 'a', 0xDCFF};
    ASSERT_TRUE(utf::utf16ToUtf8(escaped, 3, enc, Policy::escapeBytes));
    EXPECT_EQ(enc, "\x80" "a\xFF");
}
