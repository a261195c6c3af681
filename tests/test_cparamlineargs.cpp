// CParamLineArgs: command-line text and argument vectors to options and back.
#include "vardo/cparamlineargs.h"
#include "vardo/strace.h"

#include "text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& N = vardo_test::ascii;

// The argument vector form as plain strings, for compact comparisons.
std::vector<std::string> vec(const CParamLineArgs& a, bool quoted = false)
{
    SIArray<SWCharString> args;
    if (quoted)
        a.GetArgsWithQuote(args);
    else
        a.GetArgs(args);
    std::vector<std::string> r;
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

std::vector<std::string> g_asserts;
void recordAssert(const char*, int, const char* expression, const SWCharString&)
{
    g_asserts.push_back(expression);
}

struct AssertRecorder {
    SAssertObserver previous;
    AssertRecorder() : previous(SetAssertObserver(recordAssert)) { g_asserts.clear(); }
    ~AssertRecorder() { SetAssertObserver(previous); }
};

typedef std::vector<std::string> Words;

} // namespace

TEST(CParamLineArgs, ParsesProgramAndOptions)
{
    CParamLineArgs a(W("server -install -name x"));
    EXPECT_EQ("server", N(a.getProgramName()));
    EXPECT_EQ("", value(a, "install"));
    EXPECT_EQ("x", value(a, "name"));
    EXPECT_EQ((Words{"server", "-install", "-name", "x"}), vec(a));

    // Names ignore case; values keep theirs.
    CParamLineArgs t(W("server -TRACE S"));
    EXPECT_EQ("S", value(t, "Trace"));

    // Options without value, loose words, any number of leading dashes, separators.
    CParamLineArgs b(W("server loose -a -b\t--c\r\n---d  v  tail"));
    EXPECT_EQ((Words{"server", "-a", "-b", "-c", "-d", "v"}), vec(b));

    // A lone dash (or run of dashes) is an option whose name is the dashes themselves.
    CParamLineArgs d(W("server - -- x"));
    EXPECT_EQ((Words{"server", "--", "---", "x"}), vec(d));
}

TEST(CParamLineArgs, NoAssignmentSlashOrNegativeValues)
{
    CParamLineArgs a(W("server /slash -trace=xl -n -5 -m"));
    EXPECT_EQ("", value(a, "trace=xl"));
    EXPECT_EQ("<absent>", value(a, "trace"));
    EXPECT_EQ("<absent>", value(a, "slash"));
    // A value beginning with a dash is the next option.
    EXPECT_EQ("", value(a, "n"));
    EXPECT_EQ("", value(a, "5"));
    EXPECT_EQ((Words{"server", "-trace=xl", "-n", "-5", "-m"}), vec(a));
}

TEST(CParamLineArgs, RepeatedOptionReplacesAndMovesToEnd)
{
    CParamLineArgs a(W("server -a 1 -b -A 2"));
    EXPECT_EQ((Words{"server", "-b", "-A", "2"}), vec(a));
    EXPECT_EQ("2", value(a, "a"));

    a.SetArg(W("B"), W("v"));
    EXPECT_EQ((Words{"server", "-A", "2", "-B", "v"}), vec(a));
    a.SetArg(W("new"), W(""));
    EXPECT_EQ((Words{"server", "-A", "2", "-B", "v", "-new"}), vec(a));

    EXPECT_TRUE(a.RemoveArg(W("a")));
    EXPECT_FALSE(a.RemoveArg(W("a")));
    EXPECT_EQ((Words{"server", "-B", "v", "-new"}), vec(a));
}

TEST(CParamLineArgs, QuotedWords)
{
    // Quoted program path with blanks stays whole and is quoted again on output.
    CParamLineArgs a(W("\"c:\\program files\\x.exe\" -dir \"a b\" -q \"\" -e"));
    EXPECT_EQ("c:\\program files\\x.exe", N(a.GetProgramName()));
    EXPECT_EQ("a b", value(a, "dir"));
    // An empty quoted word is no value and is skipped.
    EXPECT_EQ("\"c:\\program files\\x.exe\" -dir \"a b\" -q -e", N(a.GetCmdLine()));
    EXPECT_EQ((Words{"c:\\program files\\x.exe", "-dir", "a b", "-q", "-e"}), vec(a));
    EXPECT_EQ((Words{"\"c:\\program files\\x.exe\"", "-dir", "\"a b\"", "-q", "-e"}), vec(a, true));

    // A quote inside a word ends it and opens a quoted word.
    CParamLineArgs b(W("p -k ab\"c d\" -z"));
    EXPECT_EQ("ab", value(b, "k"));

    // Another quote character: double quotes become ordinary characters.
    CParamLineArgs c(W("p -k 'x y' -j \"u"), SWCharString::Char('\''));
    EXPECT_EQ("x y", value(c, "k"));
    EXPECT_EQ("\"u", value(c, "j"));
    CParamLineArgs d;
    d.SetArgs(W("'my prog' -k 'v\"w'"), SWCharString::Char('\''));
    EXPECT_EQ("my prog", N(d.GetProgramName()));
    EXPECT_EQ("v\"w", value(d, "k"));

    // A null quote character quotes nothing.
    CParamLineArgs e(W("p -k \"x y\""), SWCharString::Char(static_cast<unsigned short>(0)));
    EXPECT_EQ("\"x", value(e, "k"));
}

TEST(CParamLineArgs, EmptyTextChangesNothing)
{
    CParamLineArgs a(W("server -a 1"));
    a.SetArgs(W(""));
    a.SetArgs(SWCharString(), SWCharString::Char('\''));
    EXPECT_EQ((Words{"server", "-a", "1"}), vec(a));

    // Blanks only: no words, so the options go but the program name stays.
    a.SetArgs(W(" \t "));
    EXPECT_EQ((Words{"server"}), vec(a));
}

TEST(CParamLineArgs, ArgumentVectors)
{
    const char* argv[] = {"prog", "-a", "", "-b", "-c", "val", "loose", "-d", nullptr};
    // argc is not consulted: the vector runs to its null pointer.
    CParamLineArgs a(1, argv);
    EXPECT_EQ("prog", N(a.GetProgramName()));
    // An empty element after an option is its value here (unlike in text).
    EXPECT_EQ("", value(a, "a"));
    EXPECT_EQ((Words{"prog", "-a", "-b", "-c", "val", "-d"}), vec(a));

    // An element with blanks is one value; words are not split.
    const char* argv2[] = {"my prog", "--x", "a b", "-y", "-1", nullptr};
    CParamLineArgs b;
    b.SetArgs(5, argv2);
    EXPECT_EQ("a b", value(b, "x"));
    EXPECT_EQ("\"my prog\" -x \"a b\" -y -1", N(b.GetCmdLine()));

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
    AssertRecorder rec;
    CParamLineArgs a(W("\"\" -a 1"));
    ASSERT_EQ(1u, g_asserts.size());
    EXPECT_EQ("!m_programName.isEmpty()", g_asserts[0]);
    EXPECT_EQ("1", value(a, "a"));

    g_asserts.clear();
    CParamLineArgs blank(W("   "));
    ASSERT_EQ(1u, g_asserts.size());
    EXPECT_EQ("!m_programName.isEmpty()", g_asserts[0]);

    // GetArgs wants an empty array and a program name; it reports both and goes on.
    g_asserts.clear();
    SIArray<SWCharString> args;
    args.push_back(W("old"));
    a.GetArgs(args);
    EXPECT_EQ((std::vector<std::string>{"args.GetSize() == 0", "!m_programName.isEmpty()"}), g_asserts);
    ASSERT_EQ(4u, args.size());
    EXPECT_EQ("old", N(args[0]));
    EXPECT_EQ("", N(args[1]));
    EXPECT_EQ("-a", N(args[2]));

    // Nothing else asserts: a good line, GetArgs into an empty array, argv with "" name.
    g_asserts.clear();
    CParamLineArgs good(W("p -x"));
    SIArray<SWCharString> fresh;
    good.GetArgsWithQuote(fresh);
    const char* argv[] = {"", "-x", nullptr};
    CParamLineArgs v(2, argv);
    EXPECT_TRUE(g_asserts.empty());
}

TEST(CParamLineArgs, CommandLineRoundTrip)
{
    const char* lines[] = {
        "server -install -name x",
        "\"c:\\program files\\app.exe\" -logFile \"c:\\log dir\\a.log\" -trace xl -noassert",
        "p -a \"one two\" -B -c 3 -A 4 --dashes -value \"with  double  blanks\"",
    };
    for (const char* text : lines) {
        CParamLineArgs first(W(text));
        CParamLineArgs second(first.GetCmdLine());
        EXPECT_EQ(vec(first), vec(second)) << text;
        EXPECT_EQ(N(first.GetCmdLine()), N(second.GetCmdLine())) << text;

        // The vector form parses back to the same options as well.
        SIArray<SWCharString> args;
        first.GetArgs(args);
        std::vector<const unsigned short*> argv;
        for (const SWCharString& s : args)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        CParamLineArgs third(static_cast<int>(args.size()), argv.data());
        EXPECT_EQ(vec(first), vec(third)) << text;
    }

    // A value that begins with a double quote is left as it is.
    CParamLineArgs q;
    q.SetProgramName(W("\"quoted prog\""));
    q.SetArg(W("v"), W("\"already quoted\""));
    EXPECT_EQ("\"quoted prog\" -v \"already quoted\"", N(q.GetCmdLine()));
    EXPECT_EQ((Words{"\"quoted prog\"", "-v", "\"already quoted\""}), vec(q, true));

    // No program name: the line starts with the first option's blank.
    CParamLineArgs none;
    none.SetArg(W("a"), W("1"));
    EXPECT_EQ(" -a 1", N(none.GetCmdLine()));
}

TEST(CParamLineArgs, CopiesAreIndependent)
{
    CParamLineArgs a(W("p -a 1 -b"));
    CParamLineArgs b(a);
    CParamLineArgs c;
    c = a;
    CParamLineArgs d(W("other -z"));
    d.SetArgs(a);
    a.SetArg(W("a"), W("changed"));
    a.SetProgramName(W("renamed"));
    for (const CParamLineArgs* x : {&b, &c, &d})
        EXPECT_EQ((Words{"p", "-a", "1", "-b"}), vec(*x));
    EXPECT_EQ((Words{"renamed", "-b", "-a", "changed"}), vec(a));
    const CParamLineArgs& same = d;
    d = same;
    d.SetArgs(same);
    EXPECT_EQ((Words{"p", "-a", "1", "-b"}), vec(d));
}
