// The trace and assertion entry points before any logger exists.
#include <vardo/strace.h>
#include <vardo/sdatetime.h>

#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <string>

using namespace Vardo400;

namespace {
SWCharString W(const char16_t* s) { return SWCharString(reinterpret_cast<const unsigned short*>(s)); }

struct Seen {
    std::string file, expression;
    int line = 0;
    SWCharString message;
    int count = 0;
} g_seen;

void observe(const char* file, int line, const char* expression, const SWCharString& message)
{
    g_seen.file = file;
    g_seen.line = line;
    g_seen.expression = expression;
    g_seen.message = message;
    ++g_seen.count;
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
    g_seen = Seen();
    SAssert("a.cpp", 12, "p != 0");
    EXPECT_EQ(g_seen.expression, "p != 0");
    EXPECT_EQ(g_seen.line, 12);
    EXPECT_EQ(g_seen.message, W(u"no message"));
    SAssert("a.cpp", 13, "q", "because");
    EXPECT_EQ(g_seen.message, W(u"because"));
    SAssert("a.cpp", 14, "r", reinterpret_cast<const unsigned short*>(u"wide ü"));
    EXPECT_EQ(g_seen.message, W(u"wide ü"));
    int value = 0;
    VARDO_ASSERT(value == 1);
    EXPECT_EQ(g_seen.expression, "value == 1");
    EXPECT_EQ(g_seen.file, "tests/test_strace.cpp"); // the build strips the source folder
    EXPECT_EQ(g_seen.count, 4);
    VARDO_ASSERT(value == 0);
    EXPECT_EQ(g_seen.count, 4);
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
    EXPECT_EQ(STraceParameter(true).GetString(), W(u"true"));
    EXPECT_EQ(STraceParameter(false).GetString(), W(u"false"));
    EXPECT_EQ(STraceParameter(-42).GetString(), W(u"-42"));
    EXPECT_EQ(STraceParameter(4294967295u).GetString(), W(u"4294967295"));
    EXPECT_EQ(STraceParameter(-9223372036854775807LL - 1).GetString(), W(u"-9223372036854775808"));
    EXPECT_EQ(STraceParameter(SWChar(0x20AC)).GetString(), W(u"€"));
    EXPECT_EQ(STraceParameter(W(u"text")).GetString(), W(u"text"));
    EXPECT_EQ(STraceParameter(SDateTime()).GetString(), W(u"invalid-date-time"));
    EXPECT_EQ(STraceParameter(SDateTime::now()).GetString().getLength(), 22u);
}
