// UTF-8 / UTF-16 / UTF-32 conversion: the documented byte-level rules, the whole-or-
// nothing failure of the string conversions, the length bound, and a randomized
// comparison of the fast converters with a plain per-character rendering of the rules.
#include "vardo/UTFConverter.h"

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

// ---- the rules, one character at a time, written independently of the library ----------------

struct Outcome {
    int result;
    size_t consumed;
    std::vector<unsigned long> out;
    bool operator==(const Outcome& o) const { return result == o.result && consumed == o.consumed && out == o.out; }
};

// UTF-8 to UTF-16 (wide = false) or UTF-32 (wide = true).
Outcome refFromUtf8(const Bytes& in, size_t room, bool strict, bool toUtf32)
{
    Outcome o{0, 0, {}};
    size_t i = 0;
    while (i < in.size()) {
        const unsigned b = in[i];
        const unsigned extra = b < 0xC0 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : b < 0xF8 ? 3 : b < 0xFC ? 4 : 5;
        if (i + extra >= in.size()) { o.result = sourceExhausted; break; }
        bool legal = extra <= 3 && !(b >= 0x80 && b <= 0xC1) && b <= 0xF4;
        for (unsigned k = 1; k <= extra && legal; ++k)
            legal = in[i + k] >= 0x80 && in[i + k] <= 0xBF;
        if (legal && extra >= 1) {
            const unsigned a = in[i + 1];
            if ((b == 0xE0 && a < 0xA0) || (b == 0xF0 && a < 0x90) || (b == 0xF4 && a > 0x8F))
                legal = false;
        }
        if (!legal) { o.result = sourceIllegal; break; }
        static const unsigned leadMask[4] = {0x7F, 0x1F, 0x0F, 0x07};
        unsigned long cp = b & leadMask[extra];
        for (unsigned k = 1; k <= extra; ++k)
            cp = (cp << 6) | (in[i + k] & 0x3F);
        if (o.out.size() >= room) { o.result = targetExhausted; break; }
        if (toUtf32) {
            o.out.push_back(cp);
        } else if (cp <= 0xFFFF) {
            if (strict && cp >= 0xD800 && cp <= 0xDFFF) { o.result = sourceIllegal; break; }
            o.out.push_back(cp);
        } else {
            if (o.out.size() + 2 > room) { o.result = targetExhausted; break; }
            o.out.push_back(0xD800 + ((cp - 0x10000) >> 10));
            o.out.push_back(0xDC00 + ((cp - 0x10000) & 0x3FF));
        }
        i += extra + 1;
    }
    o.consumed = i;
    return o;
}

Outcome refUtf16ToUtf8(const Units& in, size_t room, bool strict)
{
    Outcome o{0, 0, {}};
    size_t i = 0;
    while (i < in.size()) {
        unsigned long cp = in[i];
        size_t used = 1;
        const bool high = cp >= 0xD800 && cp <= 0xDBFF;
        const bool low = cp >= 0xDC00 && cp <= 0xDFFF;
        if (high && i + 1 < in.size() && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            used = 2;
        } else if ((high || low) && strict) {
            o.result = sourceIllegal;
            break;
        }
        Bytes enc;
        if (cp < 0x80) enc = {static_cast<unsigned char>(cp)};
        else if (cp < 0x800) enc = {static_cast<unsigned char>(0xC0 | (cp >> 6)), static_cast<unsigned char>(0x80 | (cp & 0x3F))};
        else if (cp < 0x10000) enc = {static_cast<unsigned char>(0xE0 | (cp >> 12)), static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F)), static_cast<unsigned char>(0x80 | (cp & 0x3F))};
        else enc = {static_cast<unsigned char>(0xF0 | (cp >> 18)), static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F)), static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F)), static_cast<unsigned char>(0x80 | (cp & 0x3F))};
        if (o.out.size() + enc.size() > room) { o.result = targetExhausted; break; }
        o.out.insert(o.out.end(), enc.begin(), enc.end());
        i += used;
    }
    o.consumed = i;
    return o;
}

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

    const Bytes bad[] = {
        {0xC0, 0xAF},                   // overlong
        {0xE0, 0x80, 0xAF},             // overlong
        {0xF4, 0x90, 0x80, 0x80},       // above U+10FFFF
        {0xF8, 0x88, 0x80, 0x80, 0x80}, // five bytes
        {0xE2, 0x82},                   // truncated
        {0x80},                         // stray continuation
        {0xC3, 0x28},                   // bad trailing byte
        {0xF4, 0x00, 0x80, 0x80},       // a trailing byte below 80
        {0x80, 0xBF},                   // continuation bytes only
    };
    for (const Bytes& b : bad) {
        // Valid text around the defect: nothing of it may survive.
        Bytes text = bytesOf("valid prefix ");
        text.insert(text.end(), b.begin(), b.end());
        s = wide({'o', 'l', 'd'});
        EXPECT_FALSE(fromUtf8(s, text)) << std::hex << int(b[0]);
        EXPECT_TRUE(s.isEmpty());
        EXPECT_EQ(s.getLength(), 0u);
    }

    // Continuation bytes alone (no text before them) fail too.
    EXPECT_FALSE(fromUtf8(s, {0x80, 0x80}));
    EXPECT_TRUE(s.isEmpty());
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
    c = c;
    EXPECT_EQ(c.getLength(), 4u);
}

// ---- result codes and positions of the low-level steps ---------------------------------------------

TEST(UTFConverter, StepsReportWhereTheyStopped)
{
    const Bytes in = {'a', 0xE2, 0x82};
    unsigned short out[8];
    const unsigned char* s = in.data();
    unsigned short* t = out;
    EXPECT_EQ(ConvertUTF8toUTF16(&s, in.data() + in.size(), &t, out + 8, lenientConversion), sourceExhausted);
    EXPECT_EQ(s - in.data(), 1);
    EXPECT_EQ(t - out, 1);

    const Bytes pair = {0xF0, 0x9F, 0x98, 0x80};
    s = pair.data();
    t = out;
    EXPECT_EQ(ConvertUTF8toUTF16(&s, pair.data() + 4, &t, out + 1, lenientConversion), targetExhausted);
    EXPECT_EQ(s, pair.data());
    EXPECT_EQ(t, out);

    const Bytes sur = {'x', 0xED, 0xA0, 0x80};
    s = sur.data();
    t = out;
    EXPECT_EQ(ConvertUTF8toUTF16(&s, sur.data() + 4, &t, out + 8, strictConversion), sourceIllegal);
    EXPECT_EQ(s - sur.data(), 1);
    unsigned long u32[4];
    unsigned long* t32 = u32;
    s = sur.data();
    EXPECT_EQ(ConvertUTF8toUTF32(&s, sur.data() + 4, &t32, u32 + 4, lenientConversion), conversionOK);
    EXPECT_EQ(t32 - u32, 2);
    EXPECT_EQ(u32[1], 0xD800u);

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
    t = out;
    EXPECT_EQ(ConvertUTF32toUTF16(&s32, big + 1, &t, out + 8, strictConversion), sourceIllegal);
    s32 = big;
    EXPECT_EQ(ConvertUTF32toUTF16(&s32, big + 1, &t, out + 8, lenientConversion), conversionOK);
    EXPECT_EQ(out[0], 0xFFFD);
}

// ---- the fast paths against the rules ---------------------------------------------------------------

TEST(UTFConverter, FastPathsMatchThePerCharacterRules)
{
    std::mt19937 rng(20240611);
    for (int iter = 0; iter < 8000; ++iter) {
        const bool strict = (iter & 1) != 0;
        const ConversionFlags flags = strict ? strictConversion : lenientConversion;

        // UTF-8 to UTF-16 and UTF-32 with enough room and with a random smaller room.
        const Bytes in = randomUtf8(rng, (iter & 2) != 0);
        for (int pass = 0; pass < 2; ++pass) {
            const size_t room = pass == 0 ? in.size() : std::uniform_int_distribution<size_t>(0, in.size())(rng);
            std::vector<unsigned short> out(room + 1, 0xCDCD);
            const unsigned char* s = in.data();
            unsigned short* t = out.data();
            Outcome got{ConvertUTF8toUTF16(&s, in.data() + in.size(), &t, out.data() + room, flags),
                        static_cast<size_t>(s - in.data()), std::vector<unsigned long>(out.data(), t)};
            ASSERT_EQ(got, refFromUtf8(in, room, strict, false)) << "iteration " << iter << " input " << ::testing::PrintToString(in) << " room " << room;
            EXPECT_EQ(out[room], 0xCDCD); // nothing beyond the target

            std::vector<unsigned long> out32(room + 1, 0xCDCD);
            s = in.data();
            unsigned long* t32 = out32.data();
            Outcome got32{ConvertUTF8toUTF32(&s, in.data() + in.size(), &t32, out32.data() + room, flags),
                          static_cast<size_t>(s - in.data()), std::vector<unsigned long>(out32.data(), t32)};
            ASSERT_EQ(got32, refFromUtf8(in, room, strict, true)) << "iteration " << iter;
        }

        // UTF-16 to UTF-8.
        const Units u = randomUtf16(rng, false);
        for (int pass = 0; pass < 2; ++pass) {
            const size_t room = pass == 0 ? 3 * u.size() : std::uniform_int_distribution<size_t>(0, 3 * u.size())(rng);
            Bytes out(room + 1, 0xCD);
            const unsigned short* s = u.data();
            unsigned char* t = out.data();
            Outcome got{ConvertUTF16toUTF8(&s, u.data() + u.size(), &t, out.data() + room, flags),
                        static_cast<size_t>(s - u.data()), std::vector<unsigned long>(out.data(), t)};
            ASSERT_EQ(got, refUtf16ToUtf8(u, room, strict)) << "iteration " << iter;
            EXPECT_EQ(out[room], 0xCD);
        }
    }
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
