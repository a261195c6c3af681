// The word splitter in both forms (separators dropped or kept, quoted words) and the
// set-based trims.
#include <vardo/sstringhelper.h>

#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& narrow = vardo_test::ascii;



std::vector<std::string> split(const char* text, const char* separators, bool quotes, bool keep)
{
    SIArray<SWCharString> words;
    words.push_back(W("stale"));
    SStringHelper::makeWords(W(text), words, W(separators), quotes, keep);
    std::vector<std::string> r;
    for (const SWCharString& w : words)
        r.push_back(narrow(w));
    return r;
}

typedef std::vector<std::string> Words;

} // namespace

TEST(MakeWords, SeparatorsDroppedOrKept)
{
    EXPECT_EQ(split("a  b", " ", false, false), (Words{"a", "b"}));
    EXPECT_EQ(split("a  b", " ", false, true), (Words{"a", " ", " ", "b"}));
    EXPECT_EQ(split("  lead and trail \t", " \t", false, false), (Words{"lead", "and", "trail"}));
    EXPECT_EQ(split(" x\t", " \t", false, true), (Words{" ", "x", "\t"}));
    EXPECT_EQ(split("one,two;;three", ",;", false, false), (Words{"one", "two", "three"}));
    EXPECT_EQ(split("nosep", " ", false, false), (Words{"nosep"}));
    EXPECT_EQ(split("", " ", false, false), Words{});
    EXPECT_EQ(split("", " ", true, true), Words{});
    EXPECT_EQ(split("   ", " ", false, false), Words{});
    EXPECT_EQ(split("  ", " ", false, true), (Words{" ", " "}));
    // An empty separator set: the whole text is one word.
    EXPECT_EQ(split("a b", "", false, false), (Words{"a b"}));
}

TEST(MakeWords, QuotedWords)
{
    EXPECT_EQ(split("x \"hello world\" y", " ", true, false), (Words{"x", "hello world", "y"}));
    EXPECT_EQ(split("ab\"cd\"", " ", true, false), (Words{"ab", "cd"}));
    EXPECT_EQ(split("\"\"", " ", true, false), (Words{""}));
    EXPECT_EQ(split("a \"\" b", " ", true, false), (Words{"a", "", "b"}));
    EXPECT_EQ(split("\"abc def", " ", true, false), (Words{"abc def"}));
    EXPECT_EQ(split("\"a\"\"b\"", " ", true, false), (Words{"a", "b"}));
    EXPECT_EQ(split("\"a\"b c", " ", true, false), (Words{"a", "b", "c"}));
    EXPECT_EQ(split("x \"a b\" y", " ", true, true), (Words{"x", " ", "a b", " ", "y"}));
    // Without quotes the double quote is ordinary.
    EXPECT_EQ(split("\"a b\"", " ", false, false), (Words{"\"a", "b\""}));
    // A quote that is also a separator is trimmed like any separator.
    EXPECT_EQ(split("\"a\" b", " \"", true, false), (Words{"a", "b"}));
    EXPECT_EQ(split("\"", " ", true, false), (Words{""}));
}

TEST(MakeWords, SingleCharacterFormAddsTheOtherCharacters)
{
    SIArray<SWCharString> words;
    SStringHelper::makeWords(W("a,b;c,,d"), words, SWChar(','), SWCharString(), false, false);
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(narrow(words[0]), "a");
    EXPECT_EQ(narrow(words[1]), "b;c");
    EXPECT_EQ(narrow(words[2]), "d");

    SStringHelper::makeWords(W("a,b;c"), words, SWChar(','), W(";"), false, true);
    std::vector<std::string> got;
    for (const SWCharString& w : words)
        got.push_back(narrow(w));
    EXPECT_EQ(got, (Words{"a", ",", "b", ";", "c"}));

    SStringHelper::makeWords(W("k=\"v w\""), words, SWChar('='), SWCharString(), true, false);
    ASSERT_EQ(words.size(), 2u);
    EXPECT_EQ(narrow(words[1]), "v w");
}

TEST(MakeWords, WideSeparatorsAndAliasing)
{
    // U+3000 as a separator beside ASCII ones.
    SWCharString text = W("a");
    text += SWChar(static_cast<unsigned short>(0x3000));
    text += W("b c");
    SWCharString seps = W(" ");
    seps += SWChar(static_cast<unsigned short>(0x3000));
    SIArray<SWCharString> words;
    SStringHelper::makeWords(text, words, seps, false, true);
    ASSERT_EQ(words.size(), 5u);
    EXPECT_EQ(words[1].getLength(), 1u);
    EXPECT_EQ(words[1].data()[0], 0x3000);
    // A non-ASCII character that is not in the set stays inside its word.
    SWCharString other = W("x");
    other += SWChar(static_cast<unsigned short>(0x3001));
    other += W("y");
    SStringHelper::makeWords(other, words, seps, false, false);
    ASSERT_EQ(words.size(), 1u);
    EXPECT_EQ(words[0].getLength(), 3u);

    // The text may be one of the words that the call clears; the input is not changed.
    words.clear();
    words.push_back(W("p q r"));
    SStringHelper::makeWords(words[0], words, W(" "), false, false);
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(narrow(words[2]), "r");
    const SWCharString input = W(" keep me ");
    SStringHelper::makeWords(input, words, input, false, false);
    EXPECT_EQ(narrow(input), " keep me ");
    EXPECT_TRUE(words.empty());
}

TEST(MakeWords, RandomTextsRejoinToTheInput)
{
    // Without quotes and with kept separators the words are the text, cut up.
    std::mt19937 rng(11);
    const char alphabet[] = "ab \t\"";
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        const int n = static_cast<int>(rng() % 12);
        for (int i = 0; i < n; ++i)
            text += alphabet[rng() % 5];
        SIArray<SWCharString> words;
        SStringHelper::makeWords(W(text.c_str()), words, W(" \t"), false, true);
        std::string joined;
        for (const SWCharString& w : words) {
            ASSERT_FALSE(w.isEmpty());
            joined += narrow(w);
        }
        ASSERT_EQ(joined, text);
        // With quotes no word holds a quote, and there are no more words than characters.
        SStringHelper::makeWords(W(text.c_str()), words, W(" \t"), true, false);
        ASSERT_LE(words.size(), text.size());
        for (const SWCharString& w : words)
            ASSERT_EQ(narrow(w).find('"'), std::string::npos) << text;
    }
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
    SStringHelper::trimLeft(copy, SWCharString());
    EXPECT_EQ(copy.data(), original.data());

    // All of it in the set: the shared empty string.
    SWCharString blank = W("   ");
    SStringHelper::trimRight(blank, W(" "));
    EXPECT_TRUE(blank.isSharedEmpty());
    blank = W("xx");
    SStringHelper::trim(blank, W("x"));
    EXPECT_TRUE(blank.isSharedEmpty());
    SWCharString empty;
    SStringHelper::trimLeft(empty, W(" "));
    EXPECT_TRUE(empty.isSharedEmpty());

    // The set may be the text itself.
    SWCharString self = W("aba");
    SStringHelper::trim(self, self);
    EXPECT_TRUE(self.isEmpty());
}
