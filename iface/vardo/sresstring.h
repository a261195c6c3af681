// SResString: a message built from a template with numbered placeholders.
#ifndef VARDO_SRESSTRING_H
#define VARDO_SRESSTRING_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"

namespace Vardo400 {

// Formats a template whose placeholders are the mark character (by default '%')
// followed by a number: "%1" stands for the first argument appended, "%2" for the
// second, and so on.
//
// Rules of the template, read left to right in one pass:
// - mark + one or two decimal digits, the first of them 1-9, is a placeholder; the
//   second digit always belongs to it, so "%10" to "%99" are placeholders 10 to 99
//   (write "%1" followed by a literal digit as "%1" + an argument, not in the template);
// - a placeholder is replaced by the argument of that position; every occurrence is
//   replaced, in any order; arguments are inserted as they are and never scanned for
//   placeholders themselves;
// - a placeholder without an argument stays in the result as written ("%3" with two
//   arguments gives "%3");
// - the mark doubled gives one mark ("%%" -> "%"); a mark followed by anything else
//   ("%0", "%x", a mark at the end) is copied as it is.
// Arguments without a placeholder are ignored.
//
// Thread-safety: one object is not safe for concurrent use; distinct objects are
// independent. Errors: std::bad_alloc on memory exhaustion.
class VARDO_API SResString {
public:
    // A template with the given placeholder mark.
    explicit SResString(const SWCharString& format, unsigned short mark = '%');
    // A 7-bit template (each byte becomes one unit).
    explicit SResString(const char* format, unsigned short mark = '%');

    // Appends the next argument (the first call fills %1).
    SResString& append(const SWCharString& arg);
    SResString& append(const unsigned short* arg);   // null appends an empty argument
    SResString& append(const char* arg);             // 7-bit text; null appends empty
    SResString& append(long long value);             // in decimal, '-' when negative
    SResString& append(unsigned long long value);
    SResString& append(int value) { return append(static_cast<long long>(value)); }
    SResString& append(long value) { return append(static_cast<long long>(value)); }
    SResString& append(unsigned int value) { return append(static_cast<unsigned long long>(value)); }
    SResString& append(unsigned long value) { return append(static_cast<unsigned long long>(value)); }

    template <class T>
    SResString& operator<<(const T& arg) { return append(arg); }
    SResString& operator<<(const char* arg) { return append(arg); }
    SResString& operator<<(const unsigned short* arg) { return append(arg); }

    // The template with every placeholder that has an argument replaced.
    SWCharString format() const;
    operator SWCharString() const { return format(); }

    const SWCharString& getTemplate() const { return m_template; }
    unsigned short getMark() const { return m_cMark; }
    unsigned int getArgumentCount() const { return static_cast<unsigned int>(m_args.size()); }
    // Forgets the arguments; the template stays.
    void clearArguments() { m_args.clear(); }

    // One-shot formatting of template with args.
    static SWCharString Format(const SWCharString& format, const SIArray<SWCharString>& args,
                               unsigned short mark = '%');

private:
    SWCharString m_template;
    unsigned short m_cMark;
    SIArray<SWCharString> m_args;
};

} // namespace Vardo400

#endif
