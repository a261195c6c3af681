// Trace and assertion entry points, routed through the process's logger. Until a logger
// exists they drop every message; an installed assertion observer still sees assertion
// reports.
#include "vardo/strace.h"
#include "vardo/slogger.h"
#include "vardo/sstackwalk.h"
#include "vardo/sresstring.h"
#include "vardo/sdatetime.h"
#include "vardo/neutralstr.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Vardo400 {

namespace {

SAssertObserver g_assertObserver = nullptr;

SWCharString ascii(const char* s)
{
    SWCharString r;
    if (s)
        r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

// 8-bit text as the library's callers pass it (file names, expressions, messages):
// bytes widened one to one.
SWCharString widen(const char* s) { return ascii(s); }

} // namespace

SAssertObserver SetAssertObserver(SAssertObserver observer)
{
    SAssertObserver old = g_assertObserver;
    g_assertObserver = observer;
    return old;
}

namespace TraceSwitches {
std::atomic<uint32_t> Word{0};

bool Filtered(int type, const char* sourceFile)
{
    return SLogger::ShouldTrace(type, sourceFile);
}
} // namespace TraceSwitches

bool ShouldAssert(const char* text)
{
    return g_assertObserver != nullptr || SLogger::ShouldAssert(text);
}

// "Stack Dump:" and the walk of the calling thread's stack, as a general trace. Kept out
// of line so that the one frame skipped is always this function's own.
__attribute__((noinline)) static void traceStackDump()
{
    SWCharString walk;
    SStackWalk::StackWalkAll(walk, 1);
    SLogger::Trace(0, ascii("Stack Dump:") + walk);
}

// The report goes to the observer and to the logger; it never stops the program.
static void report(const char* file, int line, const char* expression, const SWCharString& message)
{
    SAssertObserver o = g_assertObserver;
    if (o)
        o(file, line, expression, message);
    try {
        SResString text("assert failure: (%1:%2). (%3 : %4).", '%');
        text.append(widen(file)).append(line).append(widen(expression)).append(message);
        SLogger::Trace(0, text.format());
        if (SLogger::CanStackDump())
            traceStackDump();
    } catch (...) {
    }
}

void SAssert(const char* file, int line, const char* expression)
{
    report(file, line, expression, ascii("no message"));
}

void SAssert(const char* file, int line, const char* expression, const char* message)
{
    report(file, line, expression, widen(message));
}

void SAssert(const char* file, int line, const char* expression, const unsigned short* message)
{
    report(file, line, expression, SWCharString(message));
}

void STraceMsg(int type, const char* file, int line, const SWCharString& message)
{
    if (type < 0 || type > 3)
        return;
    try {
        SWCharString text;
        if (type == 0) {
            if (file && line != 0) {
                char num[16];
                std::snprintf(num, sizeof num, "%d", line);
                text = ascii("(") + widen(file) + ascii(":") + ascii(num) + ascii("): ");
            }
            text += ascii("trace message: ") + message;
        } else {
            text = message;
        }
        SLogger::Trace(type, text);
    } catch (...) {
    }
}

// printf-style conversions become numbered placeholders: "%d of %5.2f" -> "%1 of %2".
// A percent sign not followed by a conversion letter is kept as written.
static SWCharString numberConversions(const SWCharString& format)
{
    const unsigned short* p = format.data();
    const unsigned short* end = p + format.getLength();
    if (format.findFirst(SWChar('%')).isAtEnd())
        return format;
    static const char letters[] = "sdipfFeExXoungGc";
    SWCharString out;
    int ordinal = 0;
    while (p < end) {
        if (*p != '%') {
            out += SWChar(*p++);
            continue;
        }
        const unsigned short* q = p + 1;
        while (q < end && (*q == ' ' || (*q >= '0' && *q <= '9')))
            ++q;
        if (q < end && *q == '.') {
            ++q;
            while (q < end && *q >= '0' && *q <= '9')
                ++q;
        }
        if (q < end && (*q == 'h' || *q == 'l' || *q == 'L'))
            ++q;
        if (q < end && *q < 128 && *q && std::strchr(letters, static_cast<char>(*q))) {
            char num[16];
            std::snprintf(num, sizeof num, "%%%d", ++ordinal);
            out.concatFromAscii(num, static_cast<unsigned int>(std::strlen(num)));
            p = q + 1;
        } else {
            out += SWChar(*p++);
        }
    }
    return out;
}

SWCharString STraceHelper(const SWCharString& format, const STraceParameter& p1, const STraceParameter& p2,
                          const STraceParameter& p3, const STraceParameter& p4, const STraceParameter& p5,
                          const STraceParameter& p6, const STraceParameter& p7, const STraceParameter& p8,
                          const STraceParameter& p9, const STraceParameter& p10, const STraceParameter& p11,
                          const STraceParameter& p12)
{
    SResString res(numberConversions(format), '%');
    const STraceParameter* params[] = {&p1, &p2, &p3, &p4, &p5, &p6, &p7, &p8, &p9, &p10, &p11, &p12};
    for (const STraceParameter* p : params) {
        if (p->IsEmpty())
            break;
        res.append(p->GetString());
    }
    return res.format();
}

SWCharString STraceHelper(const char* format, const STraceParameter& p1, const STraceParameter& p2,
                          const STraceParameter& p3, const STraceParameter& p4, const STraceParameter& p5,
                          const STraceParameter& p6, const STraceParameter& p7, const STraceParameter& p8,
                          const STraceParameter& p9, const STraceParameter& p10, const STraceParameter& p11,
                          const STraceParameter& p12)
{
    return STraceHelper(widen(format), p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12);
}

SWCharString STraceHelper(const unsigned short* format, const STraceParameter& p1, const STraceParameter& p2,
                          const STraceParameter& p3, const STraceParameter& p4, const STraceParameter& p5,
                          const STraceParameter& p6, const STraceParameter& p7, const STraceParameter& p8,
                          const STraceParameter& p9, const STraceParameter& p10, const STraceParameter& p11,
                          const STraceParameter& p12)
{
    return STraceHelper(SWCharString(format), p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12);
}

template <class Format>
static void traceFormatted(const Format& format, const STraceParameter& p1, const STraceParameter& p2,
                           const STraceParameter& p3, const STraceParameter& p4,
                           const STraceParameter& p5, const STraceParameter& p6,
                           const STraceParameter& p7, const STraceParameter& p8,
                           const STraceParameter& p9, const STraceParameter& p10,
                           const STraceParameter& p11, const STraceParameter& p12)
{
    try {
        SLogger::Trace(0, ascii("trace message: ") +
                              STraceHelper(format, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12));
    } catch (...) {
    }
}

void STrace(const char* format, const STraceParameter& p1, const STraceParameter& p2,
            const STraceParameter& p3, const STraceParameter& p4, const STraceParameter& p5,
            const STraceParameter& p6, const STraceParameter& p7, const STraceParameter& p8,
            const STraceParameter& p9, const STraceParameter& p10, const STraceParameter& p11,
            const STraceParameter& p12)
{
    traceFormatted(format, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12);
}

void STrace(const unsigned short* format, const STraceParameter& p1, const STraceParameter& p2,
            const STraceParameter& p3, const STraceParameter& p4, const STraceParameter& p5,
            const STraceParameter& p6, const STraceParameter& p7, const STraceParameter& p8,
            const STraceParameter& p9, const STraceParameter& p10, const STraceParameter& p11,
            const STraceParameter& p12)
{
    traceFormatted(format, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12);
}

void SLog(SLogger::loglevel level, SLogger::logcategory category, unsigned long msgId,
          const unsigned short* p1, const unsigned short* p2, const unsigned short* p3,
          const unsigned short* p4, const unsigned short* p5, const unsigned short* p6,
          const unsigned short* p7, const unsigned short* p8, const unsigned short* p9,
          const unsigned short* p10)
{
    try {
        const unsigned short* all[] = {p1, p2, p3, p4, p5, p6, p7, p8, p9, p10};
        SIArray<SWCharString> params;
        for (const unsigned short* p : all) {
            if (!p)
                break;
            params.push_back(SWCharString(p));
        }
        SLogger::Log(level, category, msgId, params);
    } catch (...) {
    }
}

// ---- STraceParameter ----------------------------------------------------------------------

static SWCharString formatted(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
static SWCharString formatted(const char* fmt, ...)
{
    char buf[64];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return ascii(buf);
}

STraceParameter::STraceParameter() : m_bEmpty(true) {}
STraceParameter::STraceParameter(const SWCharString& s) : m_text(s), m_bEmpty(false) {}
STraceParameter::STraceParameter(const SString_t<unsigned short, 1>& s) : m_text(s), m_bEmpty(false) {}
STraceParameter::STraceParameter(const char* s) : m_text(widen(s)), m_bEmpty(false) {}
STraceParameter::STraceParameter(const unsigned short* s) : m_text(s), m_bEmpty(false) {}
STraceParameter::STraceParameter(const SChar_t<unsigned short, 1>& c) : m_text(c), m_bEmpty(false) {}
STraceParameter::STraceParameter(int v) : m_text(formatted("%d", v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(unsigned int v) : m_text(formatted("%u", v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(long v) : m_text(formatted("%ld", v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(unsigned long v) : m_text(formatted("%lu", v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(long long v) : m_text(formatted("%lld", v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(double v) : m_text(NeutralString::FromNumber(v)), m_bEmpty(false) {}
STraceParameter::STraceParameter(bool v) : m_text(ascii(v ? "true" : "false")), m_bEmpty(false) {}
STraceParameter::STraceParameter(const void* p) : m_text(formatted("%p", p)), m_bEmpty(false) {}
STraceParameter::STraceParameter(const SDateTime& t)
    : m_text(t.isValid() ? t.format(ascii("yyyy-MM-dd@HH:mm:ss.SS")) : ascii("invalid-date-time")),
      m_bEmpty(false)
{
}

const SWCharString& STraceParameter::GetString() const
{
    return m_text;
}

} // namespace Vardo400
