// CParamLineArgs: command lines to program name plus options, and back.
#include "vardo/cparamlineargs.h"
#include "vardo/sstringhelper.h"
#include "vardo/strace.h"

#include <cstring>

namespace Vardo400 {

namespace {

const unsigned short kDash = '-';
const unsigned short kDoubleQuote = '"';
const unsigned short kBlank = ' ';
const unsigned short kSeparators[] = { ' ', '\t', '\r', '\n', 0 };

bool beginsWith(const SWCharString& s, unsigned short c)
{
    return !s.isEmpty() && s.data()[0] == c;
}

bool containsBlank(const SWCharString& s)
{
    const unsigned short* p = s.data();
    for (unsigned int i = 0, n = s.getLength(); i < n; ++i)
        if (p[i] == kBlank)
            return true;
    return false;
}

// Text in double quotes when it holds a blank and is not already quoted.
SWCharString quotedIfBlank(const SWCharString& s)
{
    if (!containsBlank(s) || beginsWith(s, kDoubleQuote))
        return s;
    SWCharString r;
    r.setBufferSize(s.getLength() + 2);
    r += SWCharString::Char(kDoubleQuote);
    r += s;
    r += SWCharString::Char(kDoubleQuote);
    return r;
}

// The option name of a word that begins with a dash: without its leading dashes, unless
// nothing else is left.
SWCharString optionName(const SWCharString& word)
{
    const unsigned short* p = word.data();
    unsigned int n = word.getLength();
    unsigned int i = 0;
    while (i < n && p[i] == kDash)
        ++i;
    if (i == n)
        return word;
    return word.mid(i);
}

// Exchanges every a for b and every b for a.
SWCharString swapUnits(const SWCharString& s, unsigned short a, unsigned short b)
{
    const unsigned short* p = s.data();
    unsigned int n = s.getLength();
    SIArray<unsigned short> units(p, p + n);
    units.push_back(0);
    for (unsigned int i = 0; i < n; ++i) {
        if (units[i] == a)
            units[i] = b;
        else if (units[i] == b)
            units[i] = a;
    }
    return SWCharString(units.data());
}

// Splits a command line into words, keeping stretches between quote characters together.
// The word splitter knows only the double quote as quote character; for another one the
// text is mapped so that the two characters trade places, split, and mapped back.
void splitCommandLine(const SWCharString& line, unsigned short quote, SIArray<SWCharString>& words)
{
    const SWCharString separators(kSeparators);
    if (quote == 0) {
        // A quote character that cannot occur in text: nothing is quoted.
        SStringHelper::makeWords(line, words, separators, false, false);
        return;
    }
    if (quote == kDoubleQuote) {
        SStringHelper::makeWords(line, words, separators, true, false);
        return;
    }
    SStringHelper::makeWords(swapUnits(line, quote, kDoubleQuote), words,
                             swapUnits(separators, quote, kDoubleQuote), true, false);
    for (SWCharString& w : words)
        w = swapUnits(w, quote, kDoubleQuote);
}

template <class CharT>
SWCharString argText(const CharT* s);

template <>
SWCharString argText<char>(const char* s)
{
    SWCharString r;
    if (!r.fromMBCS(s) && !r.fromUTF8(reinterpret_cast<const unsigned char*>(s))) {
        // Neither the current code page nor UTF-8: keep the 7-bit bytes rather than
        // losing the whole argument.
        r.empty();
        for (const char* p = s; *p; ++p)
            r += SWCharString::Char(static_cast<unsigned short>(
                (static_cast<unsigned char>(*p) < 0x80) ? static_cast<unsigned char>(*p) : '?'));
    }
    return r;
}

template <>
SWCharString argText<unsigned short>(const unsigned short* s)
{
    return SWCharString(s);
}

template <class CharT>
void vectorWords(const CharT* const* argv, SIArray<SWCharString>& words)
{
    if (!argv)
        return;
    for (const CharT* const* p = argv; *p; ++p)
        words.push_back(argText<CharT>(*p));
}

} // namespace

// ---- construction ---------------------------------------------------------------------------

CParamLineArgs::CParamLineArgs() {}

CParamLineArgs::CParamLineArgs(const SWCharString& cmdLine)
{
    SetArgs(cmdLine);
}

CParamLineArgs::CParamLineArgs(const SWCharString& cmdLine, const SChar_t<unsigned short, 1>& quote)
{
    SetArgs(cmdLine, quote);
}

CParamLineArgs::CParamLineArgs(int argc, const char* const* argv)
{
    SetArgs(argc, argv);
}

CParamLineArgs::CParamLineArgs(int argc, const unsigned short* const* argv)
{
    SetArgs(argc, argv);
}

CParamLineArgs::CParamLineArgs(const CParamLineArgs& other)
{
    SetArgs(other);
}

CParamLineArgs::~CParamLineArgs() {}

CParamLineArgs& CParamLineArgs::operator=(const CParamLineArgs& other)
{
    SetArgs(other);
    return *this;
}

// ---- parsing --------------------------------------------------------------------------------

void CParamLineArgs::SetArgs(const SWCharString& cmdLine)
{
    parseText(cmdLine, kDoubleQuote);
}

void CParamLineArgs::SetArgs(const SWCharString& cmdLine, const SChar_t<unsigned short, 1>& quote)
{
    parseText(cmdLine, static_cast<unsigned short>(quote));
}

void CParamLineArgs::parseText(const SWCharString& cmdLine, unsigned short quote)
{
    if (cmdLine.isEmpty())
        return;
    DeleteAll();
    SIArray<SWCharString> words;
    splitCommandLine(cmdLine, quote, words);
    if (!words.empty())
        m_programName = words[0];
    if (m_programName.isEmpty())
        VARDO_ASSERT_TEXT("!m_programName.isEmpty()");
    parseWords(words, false);
}

void CParamLineArgs::SetArgs(int, const char* const* argv)
{
    DeleteAll();
    SIArray<SWCharString> words;
    vectorWords(argv, words);
    m_programName = words.empty() ? SWCharString() : words[0];
    parseWords(words, true);
}

void CParamLineArgs::SetArgs(int, const unsigned short* const* argv)
{
    DeleteAll();
    SIArray<SWCharString> words;
    vectorWords(argv, words);
    m_programName = words.empty() ? SWCharString() : words[0];
    parseWords(words, true);
}

void CParamLineArgs::SetArgs(const CParamLineArgs& other)
{
    if (this == &other)
        return;
    m_argNames = other.m_argNames;
    m_argValues = other.m_argValues;
    m_programName = other.m_programName;
}

void CParamLineArgs::parseWords(const SIArray<SWCharString>& words, bool emptyValues)
{
    const size_t n = words.size();
    for (size_t i = 1; i < n; ++i) {
        const SWCharString& word = words[i];
        if (!beginsWith(word, kDash))
            continue;   // empty words and loose words
        SWCharString value;
        if (i + 1 < n) {
            const SWCharString& next = words[i + 1];
            if ((emptyValues || !next.isEmpty()) && !beginsWith(next, kDash)) {
                value = next;
                ++i;
            }
        }
        SetArg(optionName(word), value);
    }
}

// ---- options --------------------------------------------------------------------------------

unsigned int CParamLineArgs::findIndex(const SWCharString& name) const
{
    for (size_t i = 0, n = m_argNames.size(); i < n; ++i)
        if (m_argNames[i].compareNoCase(name.data()) == 0)
            return static_cast<unsigned int>(i);
    return 0xFFFFFFFFu;
}

void CParamLineArgs::DeleteAll()
{
    m_argNames.clear();
    m_argValues.clear();
}

void CParamLineArgs::SetArg(const SWCharString& name, const SWCharString& value)
{
    RemoveArg(name);
    m_argNames.push_back(SWCharStringCI(name));
    m_argValues.push_back(value);
}

bool CParamLineArgs::RemoveArg(const SWCharString& name)
{
    unsigned int i = findIndex(name);
    if (i == 0xFFFFFFFFu)
        return false;
    m_argNames.erase(m_argNames.begin() + i);
    m_argValues.erase(m_argValues.begin() + i);
    return true;
}

bool CParamLineArgs::Lookup(const SWCharString& name, SWCharString& value) const
{
    unsigned int i = findIndex(name);
    if (i == 0xFFFFFFFFu)
        return false;
    value = m_argValues[i];
    return true;
}

// ---- output ---------------------------------------------------------------------------------

void CParamLineArgs::getArgs(SIArray<SWCharString>& args, bool quote) const
{
    if (args.size() != 0)
        VARDO_ASSERT_TEXT("args.GetSize() == 0");
    if (m_programName.isEmpty())
        VARDO_ASSERT_TEXT("!m_programName.isEmpty()");
    args.reserve(args.size() + 1 + 2 * m_argNames.size());
    args.push_back(quote ? quotedIfBlank(m_programName) : m_programName);
    const SWCharString dash{SWCharString::Char(kDash)};
    for (size_t i = 0, n = m_argNames.size(); i < n; ++i) {
        args.push_back(dash + m_argNames[i]);
        const SWCharString& value = m_argValues[i];
        if (!value.isEmpty())
            args.push_back(quote ? quotedIfBlank(value) : value);
    }
}

void CParamLineArgs::GetArgs(SIArray<SWCharString>& args) const
{
    getArgs(args, false);
}

void CParamLineArgs::GetArgsWithQuote(SIArray<SWCharString>& args) const
{
    getArgs(args, true);
}

SWCharString CParamLineArgs::GetCmdLine() const
{
    SWCharString line = quotedIfBlank(m_programName);
    const SWCharString::Char blank(kBlank);
    const SWCharString::Char dash(kDash);
    for (size_t i = 0, n = m_argNames.size(); i < n; ++i) {
        line += blank;
        line += dash;
        line += m_argNames[i];
        const SWCharString& value = m_argValues[i];
        if (!value.isEmpty()) {
            line += blank;
            line += quotedIfBlank(value);
        }
    }
    return line;
}

} // namespace Vardo400
