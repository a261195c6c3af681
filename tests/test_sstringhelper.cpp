// The word splitter in both forms (separators dropped or kept, quoted words) and the set-based trims.
#include <vardo/sstringhelper.h>

#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& narrow = vardo_test::ascii;

typedef std::vector<std::string> Words;

Words narrowAll(const SIArray<SWCharString>& words)
{
    Words r;
    for (const SWCharString& w : words)
        r.push_back(narrow(w));
    return r;
}

// Splits into an array that holds a stale word, which the call must clear.
Words split(const char* text, const char* separators, bool quotes, bool keep)
{
    SIArray<SWCharString> words;
    words.push_back(W("stale"));
    SStringHelper::makeWords(W(text), words, W(separators), quotes, keep);
    return narrowAll(words);
}

} // namespace

TEST(MakeWords, SeparatorsDroppedOrKept)
{
    EXPECT_EQ(split("a  b", " ", false, false), (Words{"a", "b"}));
    EXPECT_EQ(split("a  b", " ", false, true), (Words{"a", " ", " ", "b"}));
    EXPECT_EQ(split("  lead and trail \t", " \t", false, false), (Words{"lead", "and", "trail"}));
    EXPECT_EQ(split(" x\t", " \t", false, true), (Words{" ", "x", "\t"}));
    EXPECT_EQ(split("", " ", true, true), Words{});
    EXPECT_EQ(split("   ", " ", false, false), Words{});
    // An empty separator set: the whole text is one word.
    EXPECT_EQ(split("a b", "", false, false), (Words{"a b"}));
}

TEST(MakeWords, QuotedWords)
{
    EXPECT_EQ(split("x \"hello world\" y", " ", true, false), (Words{"x", "hello world", "y"}));
    EXPECT_EQ(split("ab\"cd\"", " ", true, false), (Words{"ab", "cd"}));
    EXPECT_EQ(split("\"\"", " ", true, false), (Words{""}));
    EXPECT_EQ(split("\"abc def", " ", true, false), (Words{"abc def"}));
    EXPECT_EQ(split("\"a\"b c", " ", true, false), (Words{"a", "b", "c"}));
    EXPECT_EQ(split("x \"a b\" y", " ", true, true), (Words{"x", " ", "a b", " ", "y"}));
    // Without quotes the double quote is ordinary.
    EXPECT_EQ(split("\"a b\"", " ", false, false), (Words{"\"a", "b\""}));
    // A quote that is also a separator is trimmed like any separator.
    EXPECT_EQ(split("\"a\" b", " \"", true, false), (Words{"a", "b"}));
}

TEST(MakeWords, SingleCharacterFormAddsTheOtherCharacters)
{
    SIArray<SWCharString> words;
    SStringHelper::makeWords(W("a,b;c,,d"), words, SWChar(','), SWCharString(), false, false);
    EXPECT_EQ(narrowAll(words), (Words{"a", "b;c", "d"}));
    SStringHelper::makeWords(W("a,b;c"), words, SWChar(','), W(";"), false, true);
    EXPECT_EQ(narrowAll(words), (Words{"a", ",", "b", ";", "c"}));
    SStringHelper::makeWords(W("k=\"v w\""), words, SWChar('='), SWCharString(), true, false);
    EXPECT_EQ(narrowAll(words), (Words{"k", "v w"}));
}

TEST(MakeWords, WideSeparatorsAndAliasing)
{
    // U+3000 as a separator beside an ASCII one; U+3001, not in the set, stays in its word.
    const SWCharString text = W(u"a\x3000" u"b\x3001" u"c d");
    SIArray<SWCharString> words;
    SStringHelper::makeWords(text, words, W(u" \x3000"), false, true);
    ASSERT_EQ(words.size(), 5u);
    EXPECT_EQ(words[1], W(u"\x3000"));
    EXPECT_EQ(words[2], W(u"b\x3001" u"c"));

    // The text may be one of the words that the call clears, or the separator set.
    words.clear();
    words.push_back(W("p q r"));
    SStringHelper::makeWords(words[0], words, W(" "), false, false);
    EXPECT_EQ(narrowAll(words), (Words{"p", "q", "r"}));
    const SWCharString input = W(" keep me ");
    SStringHelper::makeWords(input, words, input, false, false);
    EXPECT_EQ(narrow(input), " keep me ");
    EXPECT_TRUE(words.empty());
}

TEST(SetTrim, RemovesCharactersOfTheSet)
{
    SWCharString s = W("--==value=-");
    SStringHelper::trimLeft(s, W("-="));
    EXPECT_EQ(narrow(s), "value=-");
    SStringHelper::trimRight(s, W("-="));
    EXPECT_EQ(narrow(s), "value");
    SWCharString both = W(" \tx y\t ");
    SStringHelper::trim(both, W(" \t"));
    EXPECT_EQ(narrow(both), "x y");

    // Nothing to trim: the buffer stays shared with the original.
    const SWCharString original = W("abc");
    SWCharString copy = original;
    SStringHelper::trim(copy, W("xyz"));
    EXPECT_EQ(copy.data(), original.data());

    // All of it in the set: the shared empty string. The set may be the text itself.
    SWCharString blank = W("   ");
    SStringHelper::trimRight(blank, W(" "));
    EXPECT_TRUE(blank.isSharedEmpty());
    blank = W("aba");
    SStringHelper::trim(blank, blank);
    EXPECT_TRUE(blank.isSharedEmpty());
}
