// Trace and assertion entry points. They are silent until the logger is initialised
// (and again after its last termination), so every part of the library works, untraced,
// before a logger exists. An assertion never stops the program: it reports and returns,
// and the caller continues with a safe result.
#ifndef VARDO_STRACE_H
#define VARDO_STRACE_H

#include "sstring.h"

#include <atomic>
#include <cstdint>

namespace Vardo400 {

class SDateTime;

// One formatting argument of STrace/STraceHelper: a text plus an empty flag.
class VARDO_API STraceParameter {
public:
    STraceParameter();                        // empty: IsEmpty() is true
    STraceParameter(const SWCharString& s);
    STraceParameter(const SString_t<unsigned short, 1>& s);
    STraceParameter(const char* s);
    STraceParameter(const unsigned short* s);
    STraceParameter(const SChar_t<unsigned short, 1>& c);
    STraceParameter(int v);
    STraceParameter(unsigned int v);
    STraceParameter(long v);
    STraceParameter(unsigned long v);
    STraceParameter(long long v);
    STraceParameter(double v);
    STraceParameter(bool v);
    STraceParameter(const void* p);
    // Local time as "yyyy-MM-dd@HH:mm:ss.SS"; "invalid-date-time" when unset.
    STraceParameter(const SDateTime& t);
    bool IsEmpty() const { return m_bEmpty; }
    const SWCharString& GetString() const;
private:
    SWCharString m_text;
    bool m_bEmpty;
};

// What the inline ShouldTrace reads; written by the logger only, not for callers.
namespace TraceSwitches {
// Bits 0-3: the trace types switched on (all clear while no logger exists); bit 4: a
// trace file filter exists.
extern VARDO_API std::atomic<uint32_t> Word;
const uint32_t FilterBit = 1u << 4;
// The full test of SLogger::ShouldTrace, with the file filter.
VARDO_API bool Filtered(int type, const char* sourceFile);
} // namespace TraceSwitches

// Whether a trace of this type (0 general, 1 request, 2 warning, 3 SDK request) from
// this source file would be written: the type is switched on (requests and warnings
// also by general traces) and the file passes the file filter. False while no logger
// exists. Without a filter this is one relaxed load and a few bit tests, inline.
inline bool ShouldTrace(int type, const char* sourceFile)
{
    const uint32_t word = TraceSwitches::Word.load(std::memory_order_relaxed);
    if (word & TraceSwitches::FilterBit)
        return TraceSwitches::Filtered(type, sourceFile);
    // Per type the switches that allow it: 0 -> bit 0, 1 -> bits 0|1, 2 -> bits 0|2,
    // 3 -> bit 3; none for any other type.
    const uint32_t allowedBy = static_cast<unsigned>(type) < 4u ? (0x8531u >> (type * 4)) & 0xFu : 0u;
    return (word & allowedBy) != 0;
}
// Whether assertions are reported. The text is not consulted.
VARDO_API bool ShouldAssert(const char* text = 0);

// Formats a message: printf-style conversions become %1, %2, ... placeholders filled
// with the parameters in order up to the first empty one.
#define VARDO_TRACE_PARAMS                                                                \
    const STraceParameter& p1 = STraceParameter(), const STraceParameter& p2 = STraceParameter(), \
    const STraceParameter& p3 = STraceParameter(), const STraceParameter& p4 = STraceParameter(), \
    const STraceParameter& p5 = STraceParameter(), const STraceParameter& p6 = STraceParameter(), \
    const STraceParameter& p7 = STraceParameter(), const STraceParameter& p8 = STraceParameter(), \
    const STraceParameter& p9 = STraceParameter(), const STraceParameter& p10 = STraceParameter(), \
    const STraceParameter& p11 = STraceParameter(), const STraceParameter& p12 = STraceParameter()
VARDO_API SWCharString STraceHelper(const char* format, VARDO_TRACE_PARAMS);
VARDO_API SWCharString STraceHelper(const unsigned short* format, VARDO_TRACE_PARAMS);
VARDO_API SWCharString STraceHelper(const SWCharString& format, VARDO_TRACE_PARAMS);
// "trace message: " + STraceHelper(...), as a general trace. Does not consult ShouldTrace.
VARDO_API void STrace(const char* format, VARDO_TRACE_PARAMS);
VARDO_API void STrace(const unsigned short* format, VARDO_TRACE_PARAMS);
#undef VARDO_TRACE_PARAMS

// Sends message as a trace of the given type; a general trace is prefixed with
// "(file:line): " when file is set and line is non-zero, then "trace message: ".
VARDO_API void STraceMsg(int type, const char* file, int line, const SWCharString& message);

// Reports an assertion failure ("assert failure: (%1:%2). (%3 : %4).") and returns.
VARDO_API void SAssert(const char* file, int line, const char* expression);
VARDO_API void SAssert(const char* file, int line, const char* expression, const char* message);
VARDO_API void SAssert(const char* file, int line, const char* expression, const unsigned short* message);

// Observer of assertion reports, for hosts and tests that want to see assertions before
// (or without) a logger. While one is installed ShouldAssert() is true. Pass null to
// remove it. Returns the previous observer. Not synchronised with concurrent asserts:
// install it before the threads that may assert start.
typedef void (*SAssertObserver)(const char* file, int line, const char* expression,
                                const SWCharString& message);
VARDO_API SAssertObserver SetAssertObserver(SAssertObserver observer);

} // namespace Vardo400

// Raise an assertion with this file and line when expr is false; costs a test of
// ShouldAssert() only when it holds.
#define VARDO_ASSERT(expr)                                                                \
    do {                                                                                  \
        if (!(expr) && ::Vardo400::ShouldAssert())                                        \
            ::Vardo400::SAssert(__FILE__, __LINE__, #expr);                               \
    } while (0)
#define VARDO_ASSERT_MSG(expr, msg)                                                       \
    do {                                                                                  \
        if (!(expr) && ::Vardo400::ShouldAssert())                                        \
            ::Vardo400::SAssert(__FILE__, __LINE__, #expr, msg);                          \
    } while (0)
// Report an assertion whose expression text is given (the documented message texts).
#define VARDO_ASSERT_TEXT(text)                                                           \
    do {                                                                                  \
        if (::Vardo400::ShouldAssert())                                                   \
            ::Vardo400::SAssert(__FILE__, __LINE__, text);                                \
    } while (0)

#endif
