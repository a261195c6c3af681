// CParamLineArgs: a process command line as a program name plus an ordered list of
// named options, each with an optional value, and back again.
//
// Syntax. Words are separated by blanks, tabs, carriage returns and line feeds; a stretch
// in double quotes (or in the quote character given to the parser) is one word, the
// quotes themselves removed. The first word is the program name. A word that begins with
// a dash is an option: its name is the word without its leading dashes (a word of dashes
// only is kept whole), and the next word is its value when it does not begin with a dash.
// Every other word is ignored. There is no name=value form and a slash does not start an
// option. Option names compare case-insensitively; setting a name again replaces the
// earlier option and moves it to the end.
//
// Errors: nothing throws except std::bad_alloc. An empty program name where one is needed
// and a non-empty output array given to GetArgs are reported through the assertion entry
// point (strace.h) and the call goes on.
// Thread-safety: an object is not synchronised; share one only read-only or under the
// caller's own lock.
#ifndef VARDO_CPARAMLINEARGS_H
#define VARDO_CPARAMLINEARGS_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"

namespace Vardo400 {

class VARDO_API CParamLineArgs {
public:
    // No program name, no options.
    CParamLineArgs();
    // Parses a whole command line (SetArgs(cmdLine)).
    CParamLineArgs(const SWCharString& cmdLine);
    // Parses a whole command line whose quoted words use the given quote character
    // (SetArgs(cmdLine, quote)).
    CParamLineArgs(const SWCharString& cmdLine, const SChar_t<unsigned short, 1>& quote);
    // Parses an argument vector as the C run-time hands it to main (SetArgs(argc, argv)).
    // 8-bit texts are in the process code page.
    CParamLineArgs(int argc, const char* const* argv);
    CParamLineArgs(int argc, const unsigned short* const* argv);
    CParamLineArgs(const CParamLineArgs& other);
    virtual ~CParamLineArgs();

    // Copies the program name and every option.
    CParamLineArgs& operator=(const CParamLineArgs& other);

    // Parses a whole command line, replacing program name and options. An empty text
    // changes nothing. When the text holds no word the program name stays as it was.
    // An empty program name is reported as the assertion "!m_programName.isEmpty()".
    void SetArgs(const SWCharString& cmdLine);
    // The same, with quote as the quote character instead of the double quote. A null
    // quote character means no quoting at all.
    void SetArgs(const SWCharString& cmdLine, const SChar_t<unsigned short, 1>& quote);
    // Parses an argument vector: argv[0] is the program name, the options follow. The
    // vector must end with a null pointer; argc is not consulted. Unlike the text form,
    // an empty element after an option is taken as its (empty) value. A null argv gives
    // an empty program name and no options.
    void SetArgs(int argc, const char* const* argv);
    void SetArgs(int argc, const unsigned short* const* argv);
    // Copies program name and options of other.
    void SetArgs(const CParamLineArgs& other);

    // Removes any option of that name (ignoring case), then appends (name, value).
    void SetArg(const SWCharString& name, const SWCharString& value);
    // Removes the option of that name; false when there is none.
    bool RemoveArg(const SWCharString& name);
    // Finds an option ignoring case. On success value receives its value (possibly
    // empty) and the result is true; otherwise value is left alone and the result false.
    bool Lookup(const SWCharString& name, SWCharString& value) const;

    // Appends the argument vector form to args, which must be empty (else the assertion
    // "args.GetSize() == 0"; the elements are appended anyway): the program name (the
    // assertion "!m_programName.isEmpty()" when it is empty), then for each option
    // "-" + name, followed by the value as an element of its own when it is not empty.
    void GetArgs(SIArray<SWCharString>& args) const;
    // As GetArgs, but the program name and every value that contains a blank and does
    // not begin with a double quote are wrapped in double quotes.
    void GetArgsWithQuote(SIArray<SWCharString>& args) const;
    // The command line as text: the program name (in double quotes when it contains a
    // blank and does not begin with one), then for each option a blank, a dash and the
    // name, and when the value is not empty a blank and the value (quoted by the same
    // rule). Parsing the result gives the same options back as long as no value begins
    // with a dash and no name or value holds a tab, carriage return, line feed or, in a
    // name, a blank; a name made only of dashes gains one dash on every round.
    SWCharString GetCmdLine() const;

    SWCharString GetProgramName() const { return m_programName; }
    SWCharString getProgramName() const { return m_programName; }
    void SetProgramName(const SWCharString& name) { m_programName = name; }

private:
    // Position of the option named name (ignoring case), or 0xFFFFFFFF.
    unsigned int findIndex(const SWCharString& name) const;
    // Drops every option (the program name stays).
    void DeleteAll();
    void parseText(const SWCharString& cmdLine, unsigned short quote);
    // Options from words[1...]; emptyValues: an empty word after an option is its value.
    void parseWords(const SIArray<SWCharString>& words, bool emptyValues);
    void getArgs(SIArray<SWCharString>& args, bool quote) const;

    SIArray<SWCharStringCI> m_argNames;
    SIArray<SWCharString> m_argValues;
    SWCharString m_programName;
};

} // namespace Vardo400

#endif
