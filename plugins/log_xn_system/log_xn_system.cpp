// log_xn_system: the logging plug-in that writes trace messages and log events to the
// operating system's event log (Windows event log; syslog on Linux) through SEventLog.
//
// Initialize(command line): the event source is the command line's program name without
// directory and extension ("Service" when there is none); the option "numcategories"
// gives the number of event categories the source declares. Active (0) when the source
// opened.
// Trace(type, text): one event, event id 0, category 0: a warning trace (type 2) as a
// warning, every other type as information.
// Log(level, category, msgId, params): one event with that id and category, the params
// as its strings; level 3 (debug) as a debug event, every other level as information.
// Settings: "numcategories" (a decimal count) and "source" (the source name; setting it
// opens the source anew).
#include "vardo/cparamlineargs.h"
#include "vardo/seventlog.h"
#include "vardo/sfilesys.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#if defined(_WIN32)
#  define LOG_XN_EXPORT extern "C" __declspec(dllexport)
#else
#  define LOG_XN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

using namespace Vardo400;

namespace {

const int kVersion = 1;
const int kTraceWarning = 2;
const int kLevelDebug = 3;

struct State {
    std::mutex lock;
    std::unique_ptr<SEventLog> log;
    SWCharString source;
    long numCategories = 0;
    bool active = false;
};

State& state()
{
    static State s;
    return s;
}

SWCharString ascii(const char* s)
{
    SWCharString out;
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

bool equalsNoCase(const unsigned short* a, const char* b)
{
    if (!a)
        return false;
    for (;; ++a, ++b) {
        unsigned short x = *a, y = static_cast<unsigned char>(*b);
        if (x >= 'A' && x <= 'Z')
            x += 'a' - 'A';
        if (y >= 'A' && y <= 'Z')
            y += 'a' - 'A';
        if (x != y)
            return false;
        if (!x)
            return true;
    }
}

// A decimal count 0..65535; false for anything else.
bool parseCount(const SWCharString& text, long& out)
{
    if (text.isEmpty() || text.getLength() > 5)
        return false;
    long v = 0;
    for (unsigned int i = 0; i < text.getLength(); ++i) {
        unsigned short c = text.data()[i];
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    if (v > 65535)
        return false;
    out = v;
    return true;
}

SWCharString baseName(const SWCharString& path)
{
    SWCharString dir, name, ext;
    SplitPathEx(path, dir, name, ext, '\\');   // accepts "/" as well
    return name;
}

// A copy the logger gives back through FreeString.
unsigned short* handOut(const SWCharString& s)
{
    unsigned short* p = new (std::nothrow) unsigned short[s.getLength() + 1];
    if (!p)
        return 0;
    std::memcpy(p, s.data(), (s.getLength() + 1) * sizeof(unsigned short));
    return p;
}

// Opens the source anew under the state's name; the state's lock is held.
bool reopen(State& s)
{
    s.log.reset(new SEventLog());
    const long allTypes = SEventLog::errorType | SEventLog::warningType |
                          SEventLog::informationType | SEventLog::auditSuccess |
                          SEventLog::auditFailure;
    s.active = s.log->openSource(SWCharString(), s.source, s.numCategories, allTypes);
    return s.active;
}

} // namespace

LOG_XN_EXPORT int GetDLLVersion()
{
    return kVersion;
}

LOG_XN_EXPORT int Initialize(const unsigned short* cmdLine)
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    CParamLineArgs args;
    if (cmdLine && *cmdLine)
        args.SetArgs(SWCharString(cmdLine));
    SWCharString value;
    long count = 0;
    if (args.Lookup(ascii("numcategories"), value) && parseCount(value, count))
        s.numCategories = count;
    s.source = baseName(args.GetProgramName());
    if (s.source.isEmpty())
        s.source = ascii("Service");
    return reopen(s) ? 0 : 1;
}

LOG_XN_EXPORT void Terminate()
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.log.reset();
    s.active = false;
}

LOG_XN_EXPORT int Trace(int type, const unsigned short* text)
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (!s.active || !text)
        return 1;
    unsigned short eventType =
        type == kTraceWarning ? SEventLog::warningType : SEventLog::informationType;
    return s.log->reportEvent(eventType, SWCharString(text), 0) ? 0 : 1;
}

LOG_XN_EXPORT int Log(int level, int category, unsigned long msgId, unsigned int count,
                      const unsigned short* const* params)
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (!s.active)
        return 1;
    if (count > 0xFFFF)
        count = 0xFFFF;
    unsigned short eventType = level == kLevelDebug ? SEventLog::debugType : SEventLog::informationType;
    unsigned short eventCategory =
        (category >= 0 && category <= 0xFFFF) ? static_cast<unsigned short>(category) : 0;
    return s.log->reportEvent(eventType, const_cast<const unsigned short**>(params), eventCategory,
                              static_cast<unsigned short>(params ? count : 0),
                              static_cast<uint32_t>(msgId))
               ? 0
               : 1;
}

LOG_XN_EXPORT int SetParam(const unsigned short* name, const unsigned short* value)
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (!value)
        return 1;
    if (equalsNoCase(name, "numcategories")) {
        long count = 0;
        if (!parseCount(SWCharString(value), count))
            return 1;
        s.numCategories = count;
        return 0;
    }
    if (equalsNoCase(name, "source")) {
        if (!*value)
            return 1;
        s.source = SWCharString(value);
        return reopen(s) ? 0 : 1;
    }
    return 1;
}

LOG_XN_EXPORT int GetParam(const unsigned short* name, unsigned short** value)
{
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (!value)
        return 1;
    *value = 0;
    if (equalsNoCase(name, "numcategories")) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "%ld", s.numCategories);
        *value = handOut(ascii(buf));
    } else if (equalsNoCase(name, "source") && !s.source.isEmpty()) {
        *value = handOut(s.source);
    }
    return *value ? 0 : 1;
}

LOG_XN_EXPORT void FreeString(unsigned short* text);

LOG_XN_EXPORT int GetParamList(unsigned short** names, unsigned int capacity, unsigned int* count)
{
    if (!count)
        return 1;
    *count = 0;
    if (!names && capacity > 0)
        return 1;
    const char* const all[] = {"numcategories", "source"};
    for (const char* n : all) {
        if (*count >= capacity)
            break;
        unsigned short* p = handOut(ascii(n));
        if (!p) {
            while (*count > 0)
                FreeString(names[--*count]);
            return 1;
        }
        names[(*count)++] = p;
    }
    return 0;
}

LOG_XN_EXPORT void FreeString(unsigned short* text)
{
    delete[] text;
}
