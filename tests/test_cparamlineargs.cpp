// CParamLineArgs: command-line text and argument vectors to options and back.
#include "vardo/cparamlineargs.h"

#include "assert_capture.h"
#include "text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& N = vardo_test::ascii;
typedef std::vector<std::string> Words;

// The argument vector form as plain strings, for compact comparisons.
Words vec(const CParamLineArgs& a, bool quoted = false)
{
    SIArray<SWCharString> args;
    if (quoted)
        a.GetArgsWithQuote(args);
    else
        a.GetArgs(args);
    Words r;
    for (const SWCharString& s : args)
        r.push_back(N(s));
    return r;
}

std::string value(const CParamLineArgs& a, const char* name)
{
    SWCharString v = W("<untouched>");
    if (!a.Lookup(W(name), v))
        return "<absent>";
    return N(v);
}

} // namespace

TEST(CParamLineArgs, TextParsesIntoProgramAndOptions)
{
    const struct {
        const char* line;
        unsigned short quote;
        Words args;
    } cases[] = {
        // Loose words go; any number of leading dashes; every kind of separator.
        {"server loose -a -b\t--c\r\n---d  v  tail", '"', {"server", "-a", "-b", "-c", "-d", "v"}},
        // A run of dashes alone is an option named by the dashes themselves.
        {"server - -- x", '"', {"server", "--", "---", "x"}},
        // No name=value, no slash options; a value beginning with a dash is the next option.
        {"server /slash -trace=xl -n -5 -m", '"', {"server", "-trace=xl", "-n", "-5", "-m"}},
        // A repeated option, in any case, replaces the first and moves to the end.
        {"server -a 1 -b -A 2", '"', {"server", "-b", "-A", "2"}},
        // Quoted words stay whole; an empty one is no value; a quote inside a word ends it.
        {"\"c:\\program files\\x.exe\" -dir \"a b\" -q \"\" -e", '"',
         {"c:\\program files\\x.exe", "-dir", "a b", "-q", "-e"}},
        {"p -k ab\"c d\" -z", '"', {"p", "-k", "ab", "-z"}},
        // Another quote character makes double quotes ordinary; a null one quotes nothing.
        {"'my prog' -k 'v\"w' -j \"u", '\'', {"my prog", "-k", "v\"w", "-j", "\"u"}},
        {"p -k \"x y\"", 0, {"p", "-k", "\"x"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        CParamLineArgs a(W(c.line), SWCharString::Char(c.quote));
        EXPECT_EQ(c.args, vec(a));
    }

    // Names ignore case; values keep theirs; an option without a value has an empty one.
    CParamLineArgs t(W("server -TRACE S -flag"));
    EXPECT_EQ("S", value(t, "Trace"));
    EXPECT_EQ("", value(t, "flag"));

    // Empty text changes nothing; blanks only drop the options but keep the program name.
    t.SetArgs(W(""));
    t.SetArgs(SWCharString(), SWCharString::Char('\''));
    EXPECT_EQ((Words{"server", "-TRACE", "S", "-flag"}), vec(t));
    t.SetArgs(W(" \t "));
    EXPECT_EQ((Words{"server"}), vec(t));
}

TEST(CParamLineArgs, ArgumentVectors)
{
    // argc is not consulted: the vector runs to its null pointer.
    const char* argv[] = {"prog", "-a", "", "-b", "-c", "val", "loose", "-d", nullptr};
    CParamLineArgs a(1, argv);
    EXPECT_EQ((Words{"prog", "-a", "-b", "-c", "val", "-d"}), vec(a));

    // An element with blanks is one value; words are not split.
    const char* argv2[] = {"my prog", "--x", "a b", "-y", "-1", nullptr};
    CParamLineArgs b(5, argv2);
    EXPECT_EQ("\"my prog\" -x \"a b\" -y -1", N(b.GetCmdLine()));
    EXPECT_EQ((Words{"\"my prog\"", "-x", "\"a b\"", "-y", "-1"}), vec(b, true));

    // UTF-16 vectors, including text beyond 7 bits.
    const unsigned short p0[] = {'p', 0};
    const unsigned short p1[] = {'-', 0x00C9, 't', 0};
    const unsigned short p2[] = {0x4E2D, 0x6587, 0};
    const unsigned short* wargv[] = {p0, p1, p2, nullptr};
    CParamLineArgs c(3, wargv);
    SWCharString v;
    ASSERT_TRUE(c.Lookup(SWCharString(p1 + 1), v));
    EXPECT_EQ(0, v.compareBinary(p2));

    // A fresh vector replaces everything, including the program name.
    const char* argv3[] = {"other", nullptr};
    c.SetArgs(1, argv3);
    EXPECT_EQ((Words{"other"}), vec(c));
    c.SetArgs(0, static_cast<const char* const*>(nullptr));
    EXPECT_TRUE(c.GetProgramName().isEmpty());
}

TEST(CParamLineArgs, AssertionsReportAndContinue)
{
    vardo_test::AssertCapture capture;
    CParamLineArgs a(W("\"\" -a 1"));
    EXPECT_EQ((Words{"!m_programName.isEmpty()"}), capture.seen());
    EXPECT_EQ("1", value(a, "a"));

    // GetArgs wants an empty array and a program name; it reports both and goes on.
    capture.seen().clear();
    SIArray<SWCharString> args;
    args.push_back(W("old"));
    a.GetArgs(args);
    EXPECT_EQ((Words{"args.GetSize() == 0", "!m_programName.isEmpty()"}), capture.seen());
    ASSERT_EQ(4u, args.size());   // kept, then the (empty) name and the option
    EXPECT_EQ("old", N(args[0]));

    // Nothing else asserts: a good line, GetArgs into an empty array, argv with "" name.
    capture.seen().clear();
    vec(CParamLineArgs(W("p -x")), true);
    const char* argv[] = {"", "-x", nullptr};
    CParamLineArgs v(2, argv);
    EXPECT_TRUE(capture.seen().empty());
}

TEST(CParamLineArgs, CommandLineRoundTrip)
{
    const char* lines[] = {
        "\"c:\\program files\\app.exe\" -logFile \"c:\\log dir\\a.log\" -trace xl -noassert",
        "p -a \"one two\" -B -c 3 -A 4 --dashes -value \"with  double  blanks\"",
    };
    for (const char* text : lines) {
        SCOPED_TRACE(text);
        CParamLineArgs first(W(text));
        CParamLineArgs second(first.GetCmdLine());
        EXPECT_EQ(vec(first), vec(second));
        EXPECT_EQ(N(first.GetCmdLine()), N(second.GetCmdLine()));
    }

    // A value that begins with a double quote is left as it is; without a program name
    // the line starts with the first option's blank.
    CParamLineArgs q;
    q.SetProgramName(W("\"quoted prog\""));
    q.SetArg(W("v"), W("\"already quoted\""));
    EXPECT_EQ("\"quoted prog\" -v \"already quoted\"", N(q.GetCmdLine()));
    EXPECT_EQ((Words{"\"quoted prog\"", "-v", "\"already quoted\""}), vec(q, true));
    q.SetProgramName(SWCharString());
    EXPECT_EQ(" -v \"already quoted\"", N(q.GetCmdLine()));
}

TEST(CParamLineArgs, SetArgMovesToEndRemoveArgReportsCopiesAreIndependent)
{
    CParamLineArgs s(W("server -A 2 -b"));
    s.SetArg(W("B"), W("v"));
    s.SetArg(W("new"), W(""));
    EXPECT_EQ((Words{"server", "-A", "2", "-B", "v", "-new"}), vec(s));
    EXPECT_TRUE(s.RemoveArg(W("a")));
    EXPECT_FALSE(s.RemoveArg(W("a")));
    EXPECT_EQ((Words{"server", "-B", "v", "-new"}), vec(s));

    CParamLineArgs a(W("p -a 1 -b"));
    CParamLineArgs b(a);
    CParamLineArgs c;
    c = a;
    a.SetArg(W("a"), W("changed"));
    a.SetProgramName(W("renamed"));
    const CParamLineArgs& same = c;
    c = same;
    c.SetArgs(same);
    for (const CParamLineArgs* x : {&b, &c})
        EXPECT_EQ((Words{"p", "-a", "1", "-b"}), vec(*x));
    EXPECT_EQ((Words{"renamed", "-b", "-a", "changed"}), vec(a));
}
