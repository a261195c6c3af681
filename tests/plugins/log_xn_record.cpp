// A logging plug-in for the tests: it records every call it receives, one line each, to
// the file named by its "-recordFile" option, so a test can read back what the logger
// handed it. Built three times:
//   log_xn_record     all nine exports
//   log_xn_noexport   without "GetParamList" (the logger must refuse it)
//   log_xn_failinit   "Initialize" returns 1 (kept, inactive)
// A trace text holding "reenter" makes it trace from inside the trace and record the result.
// The logger calls a plug-in from one thread at a time, so the state needs no lock.
#include <vardo/sloggerplugin.h>
#include <vardo/slogger.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string g_file;
std::string g_paramValue = "initial";
std::atomic<int> g_outstanding{0};

// UTF-16 to 7-bit (tests use ASCII texts; anything else shows as '?').
std::string narrow(const unsigned short* s)
{
    std::string r;
    for (; s && *s; ++s)
        r += *s < 128 ? static_cast<char>(*s) : '?';
    return r;
}

unsigned short* handOut(const std::string& s)
{
    unsigned short* p = static_cast<unsigned short*>(std::malloc((s.size() + 1) * 2));
    if (p) {
        std::copy(s.c_str(), s.c_str() + s.size() + 1, p);
        ++g_outstanding;
    }
    return p;
}

void record(const std::string& line)
{
    if (FILE* f = g_file.empty() ? nullptr : std::fopen(g_file.c_str(), "ab")) {
        std::fputs((line + "\n").c_str(), f);
        std::fclose(f);
    }
}

} // namespace

VARDO_LOGPLUGIN_EXPORT int Initialize(const unsigned short* cmdLine)
{
    // The value of "-recordFile" (the path holds no blanks).
    const std::string line = narrow(cmdLine), key = "-recordFile ";
    size_t at = line.find(key);
    at = at == std::string::npos ? line.size() : at + key.size();
    g_file = line.substr(at, line.find(' ', at) - at);
    record("init " + line);
#ifdef RECORD_FAIL_INIT
    return 1;
#else
    return 0;
#endif
}

VARDO_LOGPLUGIN_EXPORT void Terminate() { record("terminate outstanding=" + std::to_string(g_outstanding.load())); }

VARDO_LOGPLUGIN_EXPORT int Trace(int type, const unsigned short* text)
{
    std::string t = narrow(text);
    record("trace " + std::to_string(type) + " " + t);
    if (t.find("reenter") != std::string::npos) {
        bool inner = Vardo400::SLogger::Trace(0, Vardo400::SWCharString(reinterpret_cast<const unsigned short*>(u"inner")));
        record(std::string("reenter result=") + (inner ? "true" : "false"));
    }
    return 0;
}

VARDO_LOGPLUGIN_EXPORT int Log(int level, int category, unsigned long msgId, unsigned int count,
                               const unsigned short* const* params)
{
    std::string line = "log " + std::to_string(level) + " " + std::to_string(category) + " " +
                       std::to_string(msgId) + " " + std::to_string(count);
    for (unsigned int i = 0; i < count; ++i)
        line += " " + narrow(params[i]);
    record(line);
    return 0;
}

VARDO_LOGPLUGIN_EXPORT int SetParam(const unsigned short* name, const unsigned short* value)
{
    std::string n = narrow(name), v = narrow(value);
    record("setparam " + n + " " + v);
    if (n == "level")
        g_paramValue = v;
    return n == "level" ? 0 : 1;
}

VARDO_LOGPLUGIN_EXPORT int GetParam(const unsigned short* name, unsigned short** value)
{
    std::string n = narrow(name);
    record("getparam " + n);
    *value = n == "level" ? handOut(g_paramValue) : nullptr;
    return *value ? 0 : 1;
}

#ifndef RECORD_NO_GETPARAMLIST
VARDO_LOGPLUGIN_EXPORT int GetParamList(unsigned short** names, unsigned int capacity, unsigned int* count)
{
    record("getparamlist");
    const char* const list[] = {"level", "unset"};
    unsigned int n = 0;
    for (; n < 2 && n < capacity; ++n)
        names[n] = handOut(list[n]);
    *count = n;
    return 0;
}
#endif

VARDO_LOGPLUGIN_EXPORT void FreeString(unsigned short* text)
{
    if (text) {
        --g_outstanding;
        std::free(text);
    }
}

VARDO_LOGPLUGIN_EXPORT int GetDLLVersion() { return 42; }
