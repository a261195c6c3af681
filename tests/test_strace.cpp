// The trace and assertion entry points before any logger exists.
#include <vardo/strace.h>
#include <vardo/sdatetime.h>

#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <string>

using namespace Vardo400;
using vardo_test::W;

namespace {
// The last assertion seen, as "file:line expression : message", and how many.
std::string g_seen;
int g_count = 0;

void observe(const char* file, int line, const char* expression, const SWCharString& message)
{
    g_seen = std::string(file) + ":" + std::to_string(line) + " " + expression + " : " + vardo_test::U(message);
    ++g_count;
}
} // namespace

TEST(STrace, SilentWithoutLogger)
{
    for (int type = -1; type <= 4; ++type)
        EXPECT_FALSE(ShouldTrace(type, "file.cpp"));
    EXPECT_FALSE(ShouldAssert("anything"));
    STrace("dropped %d", 1);
    STraceMsg(0, "f.cpp", 3, W(u"dropped"));
    SAssert("f.cpp", 1, "x");   // no observer, no logger: nothing happens
}

TEST(STrace, AssertionsReachTheObserverAndReturn)
{
    SetAssertObserver(observe);
    EXPECT_TRUE(ShouldAssert());
    SAssert("a.cpp", 12, "p != 0");
    EXPECT_EQ("a.cpp:12 p != 0 : no message", g_seen);
    SAssert("a.cpp", 13, "q", "because");
    EXPECT_EQ("a.cpp:13 q : because", g_seen);
    SAssert("a.cpp", 14, "r", vardo_test::units(u"wide ü"));
    EXPECT_EQ("a.cpp:14 r : wide ü", g_seen);
    int value = 0;
    VARDO_ASSERT(value == 1);
    // The build strips the source folder from the file name.
    EXPECT_EQ("tests/test_strace.cpp:" + std::to_string(__LINE__ - 2) + " value == 1 : no message", g_seen);
    VARDO_ASSERT(value == 0);
    EXPECT_EQ(4, g_count);
    EXPECT_EQ(SetAssertObserver(nullptr), &observe);
    EXPECT_FALSE(ShouldAssert());
}

TEST(STrace, HelperNumbersPrintfConversions)
{
    EXPECT_EQ(STraceHelper("%s has %d items", "cart", 3), W(u"cart has 3 items"));
    EXPECT_EQ(STraceHelper("%5.2f|%ld|%lu|%x", 1.5, -7L, 8UL, "ff"), W(u"1.5|-7|8|ff"));
    EXPECT_EQ(STraceHelper("no conversions"), W(u"no conversions"));
    EXPECT_EQ(STraceHelper("100%! %s", "yes"), W(u"100%! yes"));
    // Spaces belong to a conversion, as printf's space flag does: "% s" is one.
    EXPECT_EQ(STraceHelper("5% sure", "x"), W(u"5xure"));
    // Parameters stop at the first empty one; unfilled placeholders stay.
    EXPECT_EQ(STraceHelper("%s %s %s", "a", STraceParameter(), "c"), W(u"a %2 %3"));
    EXPECT_EQ(STraceHelper(W(u"%2-%1"), "x", "y"), W(u"y-x"));
    EXPECT_EQ(STraceHelper("%s%s%s%s%s%s%s%s%s%s%s%s", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12),
              W(u"123456789101112"));
}

TEST(STrace, ParameterTexts)
{
    EXPECT_TRUE(STraceParameter().IsEmpty());
    EXPECT_FALSE(STraceParameter("").IsEmpty());
    const std::pair<STraceParameter, const char16_t*> cases[] = {
        {true, u"true"}, {false, u"false"}, {-42, u"-42"}, {4294967295u, u"4294967295"},
        {-9223372036854775807LL - 1, u"-9223372036854775808"}, {SWChar(0x20AC), u"€"},
        {W(u"text"), u"text"}, {SDateTime(), u"invalid-date-time"}};
    for (const auto& c : cases)
        EXPECT_EQ(W(c.second), c.first.GetString());
    EXPECT_EQ(STraceParameter(SDateTime::now()).GetString().getLength(), 22u);
}
