// Fuzzes CParamLineArgs: command-line text (with the double quote or another quote
// character) and argument vectors.
//
// Input: plain bytes are the command line, each byte one UTF-16 unit. A first byte of
//   0xFF: the rest is UTF-16LE units;
//   0xFE: the next byte is the quote character, the rest the command line;
//   0xFD: the rest is an argument vector, elements separated by zero bytes.
// Checked: no crash or out-of-bounds access; options are unique ignoring case and all
// found by Lookup; no value begins with a dash; the argument vector form parses back to
// the same options; the text form parses back to the same options wherever quoting can
// carry them (no tab, carriage return or line feed in the texts, no blank in a name, no
// name made of dashes only).
#include "fuzz_check.h"
#include "vardo/cparamlineargs.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned short> Units;

struct Option {
    SWCharString name;
    SWCharString value;
};

SWCharString text(const Units& u)
{
    Units z(u);
    z.push_back(0);
    return SWCharString(z.data());
}

bool beginsWith(const SWCharString& s, unsigned short c)
{
    return !s.isEmpty() && s.data()[0] == c;
}

bool contains(const SWCharString& s, unsigned short c)
{
    for (unsigned int i = 0; i < s.getLength(); ++i)
        if (s.data()[i] == c)
            return true;
    return false;
}

bool hasLineBreakOrTab(const SWCharString& s)
{
    return contains(s, '\t') || contains(s, '\r') || contains(s, '\n');
}

bool onlyDashes(const SWCharString& s)
{
    for (unsigned int i = 0; i < s.getLength(); ++i)
        if (s.data()[i] != '-')
            return false;
    return true;
}

bool same(const SWCharString& a, const SWCharString& b)
{
    return a.getLength() == b.getLength() && a.compareBinary(b.data()) == 0;
}

// The options, read back from the argument vector form (values never begin with a dash,
// so the form is unambiguous).
std::vector<Option> options(const CParamLineArgs& a)
{
    SIArray<SWCharString> args;
    a.GetArgs(args);
    FUZZ_CHECK(!args.empty());
    FUZZ_CHECK(same(args[0], a.GetProgramName()));
    std::vector<Option> r;
    for (size_t i = 1; i < args.size(); ++i) {
        FUZZ_CHECK(beginsWith(args[i], '-'));
        Option o;
        o.name = args[i].mid(1);
        if (i + 1 < args.size() && !beginsWith(args[i + 1], '-')) {
            o.value = args[i + 1];
            FUZZ_CHECK(!o.value.isEmpty());
            ++i;
        }
        r.push_back(o);
    }
    return r;
}

bool sameOptions(const std::vector<Option>& a, const std::vector<Option>& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!same(a[i].name, b[i].name) || !same(a[i].value, b[i].value))
            return false;
    return true;
}

void checkInvariants(const CParamLineArgs& a, bool fromText)
{
    std::vector<Option> opts = options(a);
    for (size_t i = 0; i < opts.size(); ++i) {
        FUZZ_CHECK(!opts[i].name.isEmpty());
        SWCharString v;
        FUZZ_CHECK(a.Lookup(opts[i].name, v));
        FUZZ_CHECK(same(v, opts[i].value));
        for (size_t j = i + 1; j < opts.size(); ++j)
            FUZZ_CHECK(SWCharStringCI(opts[i].name) != opts[j].name);
    }

    // GetArgsWithQuote differs from GetArgs only by added quotes.
    SIArray<SWCharString> plain, quoted;
    a.GetArgs(plain);
    a.GetArgsWithQuote(quoted);
    FUZZ_CHECK(plain.size() == quoted.size());

    // Copies are equal.
    CParamLineArgs copy(a);
    FUZZ_CHECK(same(copy.GetProgramName(), a.GetProgramName()));
    FUZZ_CHECK(sameOptions(options(copy), opts));

    bool dashNames = false;
    for (const Option& o : opts)
        dashNames = dashNames || onlyDashes(o.name);

    // The vector form parses back to the same options.
    if (!dashNames) {
        std::vector<const unsigned short*> argv;
        for (const SWCharString& s : plain)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        CParamLineArgs back(static_cast<int>(plain.size()), argv.data());
        FUZZ_CHECK(same(back.GetProgramName(), a.GetProgramName()));
        FUZZ_CHECK(sameOptions(options(back), opts));
    }

    // The text form parses back where quoting can carry the texts.
    if (!fromText || a.GetProgramName().isEmpty() || hasLineBreakOrTab(a.GetProgramName()) ||
        dashNames)
        return;
    for (const Option& o : opts)
        if (hasLineBreakOrTab(o.name) || contains(o.name, ' ') || hasLineBreakOrTab(o.value) ||
            contains(o.value, '"') || contains(o.name, '"'))
            return;
    if (contains(a.GetProgramName(), '"'))
        return;
    CParamLineArgs again(a.GetCmdLine());
    FUZZ_CHECK(same(again.GetProgramName(), a.GetProgramName()));
    FUZZ_CHECK(sameOptions(options(again), opts));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1 && data[0] == 0xFF) {
        Units u;
        for (size_t i = 1; i + 1 < size; i += 2) {
            unsigned short c = static_cast<unsigned short>(data[i] | (data[i + 1] << 8));
            if (c == 0)
                break;
            u.push_back(c);
        }
        CParamLineArgs a(text(u));
        if (!text(u).isEmpty())
            checkInvariants(a, true);
        return 0;
    }
    if (size > 1 && data[0] == 0xFE) {
        Units u;
        for (size_t i = 2; i < size && data[i]; ++i)
            u.push_back(data[i]);
        SWCharString line = text(u);
        CParamLineArgs a(line, SWCharString::Char(static_cast<unsigned short>(data[1])));
        if (!line.isEmpty())
            checkInvariants(a, data[1] == '"');
        return 0;
    }
    if (size > 0 && data[0] == 0xFD) {
        std::vector<SWCharString> elements;
        Units u;
        for (size_t i = 1; i < size; ++i) {
            if (data[i] == 0) {
                elements.push_back(text(u));
                u.clear();
            } else {
                u.push_back(data[i]);
            }
        }
        elements.push_back(text(u));
        std::vector<const unsigned short*> argv;
        for (const SWCharString& s : elements)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        CParamLineArgs a(static_cast<int>(elements.size()), argv.data());
        // An empty element after an option becomes its value; GetArgs leaves such values
        // out, which is all the difference the vector form may show.
        checkInvariants(a, false);
        return 0;
    }
    Units u;
    for (size_t i = 0; i < size && data[i]; ++i)
        u.push_back(data[i]);
    SWCharString line = text(u);
    CParamLineArgs a(line);
    if (!line.isEmpty())
        checkInvariants(a, true);
    // Parsing the same text again into the same object gives the same options.
    CParamLineArgs b(a);
    b.SetArgs(line);
    FUZZ_CHECK(sameOptions(options(a), options(b)));
    return 0;
}
