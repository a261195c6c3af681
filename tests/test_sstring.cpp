// The string template: sharing and sizes, editing, substrings, search, the five orders, case, multi-byte text.
#include <vardo/sstring.h>

#include "locale_support.h"
#include "vardo_gtest.h"

#include "assert_capture.h"

#include "text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
using vardo_test::units;

} // namespace

TEST(SString, EmptyValuesShareTheStaticEmptyBuffer)
{
    // Copies of the empty string never count it.
    SWCharString a, e(a), f = W(u"x");
    f = e;
    EXPECT_EQ(a.getRefCount(), -1);
    EXPECT_EQ(a.data(), SWCharString::GetEmptyBuffer()->data());

    SWCharString b = W(u"   \t ");
    b.trim();
    EXPECT_TRUE(b.isSharedEmpty());
    b = W(u"text");
    b = static_cast<const unsigned short*>(nullptr);
    EXPECT_TRUE(b.isSharedEmpty());
    b = W(u"text");
    b.empty();
    EXPECT_TRUE(b.isSharedEmpty());

    // One empty buffer per instantiation.
    EXPECT_NE(static_cast<const void*>(SAnsiString().data()), static_cast<const void*>(SAsciiString().data()));
}

TEST(SString, CopySharesAndWritesUnshare)
{
    SWCharString a = W(u"shared text");
    SWCharString b(a);
    EXPECT_EQ(a.data(), b.data());
    EXPECT_EQ(a.getRefCount(), 2);

    b += W(u"!");
    EXPECT_EQ(a.getRefCount(), 1);
    EXPECT_EQ(a, W(u"shared text"));

    SWCharString c(a);
    c.setAt(0, SWChar('S'));
    EXPECT_EQ(a, W(u"shared text"));
    EXPECT_EQ(c, W(u"Shared text"));

    SWCharString m(a);
    SWCharString n(std::move(m));
    EXPECT_TRUE(m.isSharedEmpty());
    EXPECT_EQ(n.data(), a.data());
}

TEST(SString, AllocationAndGrowthSizes)
{
    // 32 spare units on every allocation; construction asks for length plus terminator.
    SWCharString a = W(u"abc");
    EXPECT_EQ(a.getCapacity(), 3u + 1 + 32);

    // A zero-length substring owns a fresh buffer of capacity 33.
    SWCharString z = a.mid(10, 2);
    EXPECT_EQ(z.getCapacity(), 33u);

    // Appending to an empty string asks for add + 1.
    SWCharString e;
    e += W(u"xy");
    EXPECT_EQ(e.getCapacity(), 2u + 1 + 32);

    // A unique buffer that is full is reallocated in place to add + 2 * length + 1.
    std::u16string t34(34, u'a');
    SWCharString u = W(t34.c_str());
    ASSERT_EQ(u.getCapacity(), 67u);
    u += W(std::u16string(33, u'b').c_str());
    EXPECT_EQ(u.getCapacity(), 33u + 2 * 34 + 1);

    // The same growth on a shared buffer allocates, so gains the 32 spare units.
    SWCharString s = W(t34.c_str());
    SWCharString keep(s);
    s += W(std::u16string(33, u'b').c_str());
    EXPECT_EQ(s.getCapacity(), 33u + 2 * 34 + 1 + 32);

    // Shared with room: a private copy sized for the new length.
    SWCharString r = W(u"abcdef");
    SWCharString r2(r);
    r += W(u"g");
    EXPECT_EQ(r.getCapacity(), 7u + 1 + 32);

    // setBufferSize(n) makes room for n units plus the terminator, and more.
    SWCharString q = W(u"q");
    SWCharString q2(q);
    q.setBufferSize(100);
    EXPECT_EQ(q.getRefCount(), 1);
    EXPECT_EQ(q.getCapacity(), 101u + 33);
    EXPECT_EQ(q, W(u"q"));
}

TEST(SString, AppendsAndAssignsIncludingFromItself)
{
    SWCharString s = W(u"ab");
    s += s;
    EXPECT_EQ(s, W(u"abab"));
    s.concat(s.data() + 1, 2);
    EXPECT_EQ(s, W(u"ababba"));
    s.concat(units(u"xyz"), 0);
    s.concat(nullptr, 5);
    s += static_cast<const unsigned short*>(nullptr);
    EXPECT_EQ(s, W(u"ababba"));
    s.concat(units(u"q\0r"), 3); // stops at the terminator
    EXPECT_EQ(s, W(u"ababbaq"));
    s.concatFromAscii("12\x7f", 10);
    EXPECT_EQ(s, W(u"ababbaq12\x7f"));
    // A unique buffer is reused for a text from inside it.
    const unsigned short* own = s.data();
    s = s.data() + 2;
    EXPECT_EQ(s, W(u"abbaq12\x7f"));
    EXPECT_EQ(s.data(), own);
    SAsciiString a8("xy");
    a8.concatFromAscii(a8.data(), 2);
    EXPECT_EQ(a8, "xyxy");

    SWCharString it = W(u"0123456789");
    SWCharString other;
    other.concat(it.begin(), it.end());
    SWCharString::iterator from(it), to(it);
    from += 2;
    to += 5;
    other.concat(from, to);
    EXPECT_EQ(other, W(u"0123456789234"));
}

TEST(SString, InsertDeleteAndSetAt)
{
    SWCharString s = W(u"hello world");
    SWCharString shared(s);
    s.insertChars(5, W(u","));
    EXPECT_EQ(s, W(u"hello, world"));
    EXPECT_EQ(shared, W(u"hello world"));
    s.insertChar(0u, SWChar('>'));
    EXPECT_EQ(s, W(u">hello, world"));
    s.insertChars(s.getLength(), W(u"!"));
    EXPECT_EQ(s, W(u">hello, world!"));

    SWCharString::iterator it(s);
    it += 1;
    s.deleteChars(it, 5);
    EXPECT_EQ(s, W(u">, world!"));
    EXPECT_EQ(*it, SWChar(','));
    s.deleteChar(0u);
    EXPECT_EQ(s, W(u", world!"));
    s.deleteChars(2, 1000); // clamped at the end by the iterator
    EXPECT_EQ(s, W(u", "));
    s.deleteChars(5, 1); // nothing there
    EXPECT_EQ(s, W(u", "));

    SWCharString t = W(u"abc");
    t.insertChars(1, t);
    EXPECT_EQ(t, W(u"aabcbc"));
    t.setAt(5, SWChar('Z'));
    EXPECT_EQ(t, W(u"aabcbZ"));
    t.setAt(3, SWChar());  // the null character ends the text there
    EXPECT_EQ(t, W(u"aab"));
}

TEST(SString, MisuseAssertsAndContinues)
{
    vardo_test::AssertCapture capture;
    const std::vector<std::string>& asserts = capture.seen();
    SWCharString s = W(u"abc");
    SWCharString other = W(u"xyz");
    EXPECT_EQ(s.getCharIndex(SWCharString::iterator(other)), 3u);
    EXPECT_EQ(asserts, std::vector<std::string>{"iter2 == iter"});

    SWCharString::iterator foreign(other.data() + 1);
    s.insertChars(foreign, W(u"q"));
    EXPECT_EQ(s, W(u"abc"));
    EXPECT_EQ(asserts.size(), 2u);
}

TEST(SString, SubstringsClampAtTheEnd)
{
    SWCharString s = W(u"abc");
    EXPECT_EQ(s.left(100), W(u"abc"));
    EXPECT_EQ(s.right(7), W(u"abc"));
    EXPECT_EQ(s.mid(1), W(u"bc"));
    EXPECT_EQ(s.mid(1, 1), W(u"b"));
    EXPECT_TRUE(s.mid(10, 2).isEmpty());

    SWCharString::iterator b(s);
    ++b;
    SWCharString::iterator e(b);
    e += 100;
    EXPECT_TRUE(e.isAtEnd());
    EXPECT_EQ(s.left(b), W(u"a"));
    EXPECT_EQ(s.right(b), W(u"bc"));
    EXPECT_EQ(s.mid(b), W(u"bc"));
    EXPECT_EQ(s.mid(b, 1), W(u"b"));
    EXPECT_EQ(s.mid(b, e), W(u"bc"));
}

TEST(SString, SearchGivesTheEndWhenAbsent)
{
    SWCharString s = W(u"one two one");
    EXPECT_EQ(s.find(W(u"three")), s.end());
    EXPECT_EQ(s.find(SWCharString()), s.begin());
    const SWCharString run = W(u"xaaaaa");
    EXPECT_EQ(run.getCharIndex(run.find(W(u"aa"))), 1u); // the first of several hits close together
    EXPECT_EQ(s.getCharIndex(s.findLast(SWChar('o'))), 8u);
    EXPECT_TRUE(s.findLast(SWChar('z')).isAtEnd());

    SWCharString::iterator it(s);
    it += 1;
    it.find(W(u"one"));
    EXPECT_EQ(s.getCharIndex(it), 8u);
    it.find(SWChar('x'));
    EXPECT_TRUE(it.isAtEnd());

    SWCharStringCI ci = W(u"Hello World");
    EXPECT_EQ(ci.getCharIndex(ci.find(W(u"WORLD"))), 6u);
    EXPECT_TRUE(ci.find(W(u"planet")).isAtEnd());
}

TEST(SString, FiveComparisonOrders)
{
    SWCharString a = W(u"b"), b = W(u"aa");
    // Base relational operators: length first.
    EXPECT_TRUE(a < b);
    EXPECT_EQ(a.compareFast(b), -1);
    EXPECT_EQ(W(u"\xFFFF").compareFast(W(u"\x0001")), 1); // units are unsigned
    // Collation: "aa" before "b".
    EXPECT_GT(a.compare(b), 0);
    EXPECT_GT(a.compare(static_cast<const unsigned short*>(nullptr)), 0);
    EXPECT_EQ(SWCharString().compare(static_cast<const unsigned short*>(nullptr)), 0);
    // CI classes order by collation without case.
    SWCharStringCI ca = W(u"B"), cb = W(u"aa");
    EXPECT_TRUE(cb < ca);
    EXPECT_TRUE(ca == W(u"b"));
    EXPECT_EQ(W(u"ABC").compareNoCase(units(u"abd")), -1);
    EXPECT_EQ(W(u"abc").compareNoCase(units(u"ABC")), 0);
    EXPECT_EQ(W(u"b").compareNoCase(nullptr), 1);
    EXPECT_LT(W(u"A").compareBinary(units(u"a")), 0);
    EXPECT_EQ(SAsciiString("abc").compareNoCase("ABZ"), -1);
    EXPECT_TRUE(SAnsiStringCI("Hello") == "hello");

    // Pointer equality: null equals only the empty string.
    EXPECT_TRUE(SWCharString() == static_cast<const unsigned short*>(nullptr));
    EXPECT_FALSE(W(u"x") == static_cast<const unsigned short*>(nullptr));
    EXPECT_TRUE(W(u"x") == units(u"x"));
}

TEST(SString, UcscmpFastMatchesUnitOrder)
{
    // Aligned, by words: the first differing unit decides, unsigned, also as the second of
    // its word; an odd count ends inside a word, and the unit after it does not count.
    alignas(8) unsigned short a[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0xFFFF, 11, 0};
    alignas(8) unsigned short b[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 12, 0};
    EXPECT_EQ(ucscmp_fast(a, b, 9), 0);
    EXPECT_EQ(ucscmp_fast(a, b, 10), 1);
    EXPECT_EQ(ucscmp_fast(b, a, 11), -1);
    b[8] = 10;
    EXPECT_EQ(ucscmp_fast(a, b, 9), -1);
    EXPECT_EQ(ucscmp_fast(a + 2, b + 2, 8), -1);
    // Unaligned, the C library's comparison up to the terminator decides.
    EXPECT_LT(ucscmp_fast(a + 1, b + 1, 1), 0);
}

TEST(SString, CaseAndBlanks)
{
    // In the "C" locale only ASCII letters have a case mapping, as on Windows.
    SWCharString w = W(u"Straße ÉTÉ");
    SWCharString keep(w);
    w.toUpper();
    EXPECT_EQ(keep, W(u"Straße ÉTÉ"));
    EXPECT_EQ(w, W(u"STRAßE ÉTÉ"));
    w.toLower();
    EXPECT_EQ(w, W(u"straße ÉtÉ"));

    SWCharString t = W(u"\x3000 text \x00A0");
    t.trim();
    EXPECT_EQ(t, W(u"text"));
    SWCharString untouched = W(u"x  ");
    SWCharString alias(untouched);
    untouched.trimLeft();
    EXPECT_EQ(untouched.data(), alias.data()); // nothing to trim: still shared
    untouched.trimRight();
    EXPECT_EQ(untouched, W(u"x"));
    SWCharString nel = W(u"\x0085x");
    nel.trimLeft();
    EXPECT_EQ(nel.getLength(), 2u); // U+0085 is not white space here

    char buf[16] = "abc";
    MakeUpperCase(buf, -1);
    EXPECT_STREQ(buf, "ABC");
    unsigned short wb[8] = {'A', 0xC9, 'Z', 0};
    MakeLowerCase(wb, -1);
    EXPECT_EQ(SWCharString(wb), W(u"a\xC9z"));
}

TEST(SString, CharacterValues)
{
    EXPECT_TRUE(SWChar(0x3000).isBlank());
    EXPECT_FALSE(SWChar(0x00A0).isBlank());
    EXPECT_TRUE(SWChar(0x00A0).isWhiteSpace());
    EXPECT_EQ(SWChar('a').toUpper(), SWChar('A'));
    EXPECT_EQ(SAsciiChar('Q').toLower(), SAsciiChar('q'));
    char out[4];
    EXPECT_EQ(SWChar(0xE9).toAsciiChar(out), 1);
    EXPECT_EQ(out[0], '?');
    EXPECT_EQ(SAnsiChar().getLength(), 0);
}

TEST(SString, RawTextHelpers)
{
    char b[6];
    EXPECT_STREQ(CopyString(b, "abcdefgh", sizeof b), "abcde");
    EXPECT_STREQ(CopyStringN(b, "abcdefgh", 2, sizeof b), "ab");
    EXPECT_STREQ(ConcatString(b, "xyz", sizeof b), "abxyz");
    EXPECT_STREQ(ConcatStringN(b, "q", 1, sizeof b), "abxyz");
    unsigned short w[4];
    CopyString(w, units(u"hello"), 4);
    EXPECT_EQ(SWCharString(w), W(u"hel"));
    CopyStringN(w, units(u"hello"), 1, 4);
    ConcatStringN(w, units(u"xyz"), 1, 4);
    EXPECT_EQ(SWCharString(w), W(u"hx"));
}

TEST(SAnsiStringLocale, Utf8CountsCharactersNotBytes)
{
    vardo_test::ScopedLocale loc("C.UTF-8");
    if (!loc.ok())
        GTEST_SKIP() << "C.UTF-8 is not available";
    SAnsiString s("a\xC3\xA9z"); // a é z
    EXPECT_EQ(s.getLength(), 4u);
    EXPECT_EQ(s.getNChars(), 3u);
    SAnsiString::iterator it(s);
    it += 2;
    EXPECT_EQ(it - SAnsiString::iterator(s), 3);
    EXPECT_EQ(s.getCharIndex(it), 2u);
    EXPECT_EQ(s.mid(1, 1), SAnsiString("\xC3\xA9"));
    s.toUpper();
    EXPECT_EQ(s, SAnsiString("A\xC3\x89Z"));
    // The wide mapping follows the C locale too.
    SWCharString w = W(u"ÉTÉ");
    w.toLower();
    EXPECT_EQ(w, W(u"été"));
    EXPECT_TRUE(SAnsiChar("\xC3\x89").isUpper());
    EXPECT_TRUE(SAnsiChar("\xE3\x80\x80").isBlank()); // U+3000

    // An invalid byte is one character; classification says no.
    SAnsiString bad("x\xFFy");
    EXPECT_EQ(bad.getNChars(), 3u);
    EXPECT_EQ(bad.mid(2), SAnsiString("y"));
    EXPECT_FALSE(SAnsiChar("\xFF").isAlpha());
    EXPECT_EQ(SAnsiChar("\xFF").getLength(), -1);
}

TEST(SAnsiStringLocale, DoubleByteCodePage)
{
    vardo_test::ScopedLocale loc("zh_CN.GBK");
    if (!loc.ok())
        GTEST_SKIP() << "zh_CN.GBK could not be generated here";
    // "中文a": two lead-trail pairs and one ASCII byte.
    SAnsiString s("\xD6\xD0\xCE\xC4" "a");
    EXPECT_EQ(s.getLength(), 5u);
    EXPECT_EQ(s.getNChars(), 3u);
    SAnsiString::iterator it(s);
    ++it;
    EXPECT_EQ(it - SAnsiString::iterator(s), 2);
    EXPECT_EQ(s.getAt(1u), SAnsiChar("\xCE\xC4"));
    EXPECT_EQ(s.getCharIndex(s.findLast(SAnsiChar("a"))), 2u);
    // A trail byte that looks like ASCII is not found on its own.
    SAnsiString t("\x81\x61" "a");  // lead 0x81 + trail 'a', then 'a'
    EXPECT_EQ(t.getNChars(), 2u);
    EXPECT_EQ(t.getCharIndex(t.find(SAnsiString("a"))), 1u);
    EXPECT_EQ(t.getCharIndex(t.findFirst(SAnsiChar("a"))), 1u);
    s.deleteChar(0u);
    EXPECT_EQ(s, SAnsiString("\xCE\xC4" "a"));
}
