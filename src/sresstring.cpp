// SResString: numbered placeholders filled in one pass over the template.
#include "vardo/sresstring.h"

namespace Vardo400 {

static SWCharString asciiText(const char* s)
{
    SWCharString out;
    if (s) {
        unsigned int n = 0;
        while (s[n])
            ++n;
        out.concatFromAscii(s, n);
    }
    return out;
}

static SWCharString decimalText(unsigned long long v, bool negative)
{
    char digits[24];
    int i = sizeof(digits);
    digits[--i] = 0;
    do {
        digits[--i] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v);
    if (negative)
        digits[--i] = '-';
    return asciiText(digits + i);
}

SResString::SResString(const SWCharString& format, unsigned short mark)
    : m_template(format), m_cMark(mark)
{
}

SResString::SResString(const char* format, unsigned short mark)
    : m_template(asciiText(format)), m_cMark(mark)
{
}

SResString& SResString::append(const SWCharString& arg)
{
    m_args.push_back(arg);
    return *this;
}

SResString& SResString::append(const unsigned short* arg)
{
    return append(SWCharString(arg));
}

SResString& SResString::append(const char* arg)
{
    return append(asciiText(arg));
}

SResString& SResString::append(long long value)
{
    // The magnitude of the most negative value does not fit in long long; compute it
    // unsigned.
    unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                             : static_cast<unsigned long long>(value);
    return append(decimalText(magnitude, value < 0));
}

SResString& SResString::append(unsigned long long value)
{
    return append(decimalText(value, false));
}

SWCharString SResString::format() const
{
    return Format(m_template, m_args, m_cMark);
}

SWCharString SResString::Format(const SWCharString& format, const SIArray<SWCharString>& args,
                                unsigned short mark)
{
    const unsigned short* p = format.data();
    const unsigned short* end = p + format.getLength();
    // Nothing to replace: share the template's buffer.
    const unsigned short* q = p;
    while (q < end && *q != mark)
        ++q;
    if (q == end)
        return format;

    SWCharString out;
    const unsigned short* run = p;  // start of the literal text not yet copied
    while (q < end) {
        // q points at a mark.
        const unsigned short* next = q + 1;
        if (next < end && *next == mark) {
            // Doubled mark: keep one.
            out.concat(run, static_cast<unsigned int>(next - run));
            run = next + 1;
            q = run;
        } else if (next < end && *next >= '1' && *next <= '9') {
            unsigned int index = *next - '0';
            ++next;
            if (next < end && *next >= '0' && *next <= '9') {
                index = index * 10 + (*next - '0');
                ++next;
            }
            if (index <= args.size()) {
                out.concat(run, static_cast<unsigned int>(q - run));
                out += args[index - 1];
                run = next;
            }
            // Without an argument the placeholder stays part of the literal run.
            q = next;
        } else {
            q = next;
        }
        while (q < end && *q != mark)
            ++q;
    }
    out.concat(run, static_cast<unsigned int>(end - run));
    return out;
}

} // namespace Vardo400
