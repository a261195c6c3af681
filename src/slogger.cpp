// SLogger: options, the trace file filter, the fan-out to the loggers and the plug-in
// loader.
//
// The logger's state lives for the whole process and is only reset by the last
// Terminate, never freed: a thread that read "running" just before another thread's
// last Terminate still finds valid locks and an empty loggers map, instead of freed
// memory. The words ShouldTrace reads are constant-initialised atomics, so a trace from
// a static initialiser that runs before this file's own is simply dropped.
#include "vardo/slogger.h"
#include "vardo/cs_wrapper.h"
#include "vardo/registry.h"
#include "vardo/senv.h"
#include "vardo/sfilesearch.h"
#include "vardo/sfilesys.h"
#include "vardo/sstringhelper.h"
#include "vardo/strace.h"

#include "logger_internal.h"
#include "os/os_dl.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <set>

namespace Vardo400 {

namespace {

// Bits of the state word: the four trace types, then the booleans of the options.
const uint32_t kTraceGeneral = 1u << 0;
const uint32_t kTraceRequest = 1u << 1;
const uint32_t kTraceWarning = 1u << 2;
const uint32_t kTraceSdk = 1u << 3;
const uint32_t kTraceMask = 0xFu;
const uint32_t kRunning = 1u << 4;
const uint32_t kAssertions = 1u << 5;
const uint32_t kStackDump = 1u << 6;
const uint32_t kNativeAssert = 1u << 7;
const uint32_t kTraceOutput = 1u << 8;
const uint32_t kDefaults = kAssertions | kNativeAssert | kTraceOutput;

std::atomic<uint32_t> g_word{0};
std::atomic<uint32_t> g_filterCount{0};
std::atomic<int32_t> g_importance{0};
std::atomic<int32_t> g_logLevel{1};
std::atomic<int32_t> g_instanceCount{0};

// Ordinal order of the 16-bit units (the string's own operator< puts shorter texts first).
// 8-bit text seen as UTF-16 (each byte one unit), for looking names up without building
// a string.
struct Bytes {
    const unsigned char* begin;
    const unsigned char* end;
};

struct Ordinal {
    typedef void is_transparent;
    bool operator()(const SWCharString& a, const SWCharString& b) const
    {
        return std::lexicographical_compare(a.data(), a.data() + a.getLength(), b.data(),
                                            b.data() + b.getLength());
    }
    bool operator()(const SWCharString& a, const Bytes& b) const
    {
        return std::lexicographical_compare(a.data(), a.data() + a.getLength(), b.begin, b.end);
    }
    bool operator()(const Bytes& a, const SWCharString& b) const
    {
        return std::lexicographical_compare(a.begin, a.end, b.data(), b.data() + b.getLength());
    }
};

typedef std::map<SWCharString, CSmartRefCountPtr<ILogger>, Ordinal> LoggerMap;
typedef std::set<SWCharString, Ordinal> FilterSet;

// The rest of the state, behind its locks.
struct State {
    CS_Wrapper creationLock;
    CS_Wrapper filterLock;
    CS_Wrapper loggerLock;
    // Under filterLock.
    FilterSet filter;
    bool filterExcludes = false;   // the set holds "^": it lists files not to trace
    bool inShouldTrace = false;
    // Under loggerLock.
    LoggerMap loggers;
    SWCharString pluginDir;
    bool inTrace = false;
    bool inLog = false;
};

// Built on first use and never destroyed, so that traces from other objects' destructors
// at process exit still find their locks.
State& state()
{
    alignas(State) static unsigned char storage[sizeof(State)];
    static State* s = new (storage) State();
    return *s;
}

class Locked {
public:
    explicit Locked(CS_Wrapper& cs) : m_cs(cs) { m_cs.Lock(); }
    ~Locked() { m_cs.Unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    CS_Wrapper& m_cs;
};

SWCharString text(const char* s)
{
    SWCharString r;
    if (s)
        r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

SWCharString decimal(long long v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%lld", v);
    return text(buf);
}

// The trace types in force, published for the inline ShouldTrace.
void publishTraceTypes(uint32_t types)
{
    uint32_t old = TraceSwitches::Word.load(std::memory_order_relaxed);
    while (!TraceSwitches::Word.compare_exchange_weak(old, (old & ~kTraceMask) | (types & kTraceMask),
                                                      std::memory_order_release,
                                                      std::memory_order_relaxed)) {
    }
}

// After a change of the filter set, under the filter lock.
void publishFilterCount(size_t count)
{
    State& s = state();
    s.filterExcludes = s.filter.count(SWCharString(SChar_t<unsigned short, 1>('^'))) != 0;
    g_filterCount.store(static_cast<uint32_t>(count), std::memory_order_relaxed);
    if (count)
        TraceSwitches::Word.fetch_or(TraceSwitches::FilterBit, std::memory_order_release);
    else
        TraceSwitches::Word.fetch_and(~TraceSwitches::FilterBit, std::memory_order_release);
}

bool running()
{
    return (g_word.load(std::memory_order_acquire) & kRunning) != 0;
}

uint32_t traceBit(int type)
{
    return 1u << type;
}

// One trailing backslash (or the platform's separator) removed.
SWCharString stripTrailingSlash(const SWCharString& dir)
{
    unsigned int n = dir.getLength();
    if (n == 0)
        return dir;
    unsigned short last = dir.data()[n - 1];
    if (last == '\\' || last == '/' || last == SFileSys::getSeparator())
        return dir.left(n - 1);
    return dir;
}

SWCharString registryValue(const char* name)
{
    CompanyRegistry key(text("Logging"));
    return key.ReadValue(text(name));
}

// The name and extension of a source path given in 8-bit text (either separator).
Bytes sourceFileName(const char* path)
{
    static const unsigned char none = 0;
    if (!path)
        return Bytes{&none, &none};
    const char* name = path;
    const char* p = path;
    for (; *p; ++p)
        if (*p == '/' || *p == '\\')
            name = p + 1;
    return Bytes{reinterpret_cast<const unsigned char*>(name), reinterpret_cast<const unsigned char*>(p)};
}

int importanceOf(int level, uint32_t word)
{
    if (level != 0) {
        if (word & kTraceWarning)
            return 6;
        if (word & kAssertions)
            return 7;
        return level;
    }
    if (word & kTraceGeneral)
        return 1;
    if (word & kTraceWarning)
        return 6;
    if (word & kAssertions)
        return 7;
    return 0;
}

int sizeWordLevel(const SWCharString& value)
{
    static const char* const words[] = {"xs", "s", "m", "l", "xl"};
    for (int i = 0; i < 5; ++i)
        if (value.compareNoCase(text(words[i])) == 0)
            return i + 1;
    return 0;
}

bool hasOption(const CParamLineArgs& args, const char* name, SWCharString* value = nullptr)
{
    SWCharString v;
    if (!args.Lookup(text(name), v))
        return false;
    if (value)
        *value = v;
    return true;
}

// The options of a command line applied to the state word, the importance and the filter.
void applyOptions(const CParamLineArgs& args)
{
    uint32_t word = g_word.load(std::memory_order_relaxed);
    int level = 0;
    SWCharString value;
    if (hasOption(args, "trace", &value)) {
        word |= kTraceGeneral;
        level = sizeWordLevel(value);
    }
    if (hasOption(args, "sdkTrace"))
        word |= kTraceSdk;
    if (hasOption(args, "reqTrace"))
        word |= kTraceRequest;
    if (hasOption(args, "warningTrace"))
        word |= kTraceWarning;
    if (hasOption(args, "noassert"))
        word &= ~kAssertions;
    if (hasOption(args, "stackdump"))
        word |= kStackDump;
    if (hasOption(args, "nativeassert"))
        word |= kNativeAssert;
    g_importance.store(importanceOf(level, word), std::memory_order_relaxed);
    if (hasOption(args, "nonativeassert"))
        word &= ~kNativeAssert;
    if (hasOption(args, "notraceoutput"))
        word &= ~kTraceOutput;
    g_word.store(word, std::memory_order_release);
}

} // namespace

ILogger::~ILogger() {}

// ---- lifecycle --------------------------------------------------------------------------

bool SLogger::Initialize()
{
    SWCharString env = SEnv::get(text("NEBU_LOGGER_ENVIRONMENT"));
    if (env.isEmpty())
        return Initialize(CParamLineArgs(), false);
    return Initialize(CParamLineArgs(text("quorvane ") + env), false);
}

bool SLogger::Initialize(const CParamLineArgs& args, bool reload)
{
    try {
        State& s = state();
        Locked creation(s.creationLock);
        const bool isNew = !running();
        if (isNew) {
            // A fresh instance: the defaults of every field.
            g_word.store(kDefaults, std::memory_order_relaxed);
            g_importance.store(0, std::memory_order_relaxed);
            g_logLevel.store(1, std::memory_order_relaxed);
            g_instanceCount.store(0, std::memory_order_relaxed);
            RemoveAllTraceFilters();
        } else {
            g_instanceCount.fetch_add(1);
        }

        CParamLineArgs copy(args);
        if (isNew && copy.GetCmdLine().isEmpty()) {
            SWCharString stored = registryValue("CmdLine");
            stored.trim();
            if (!stored.isEmpty()) {
                // A stored line may be options alone; they need a program name in front.
                if (stored.data()[0] == '-')
                    stored = text("quorvane ") + stored;
                copy.SetArgs(stored);
                reload = true;
            }
        }
        const bool haveLine = !copy.GetCmdLine().isEmpty();
        SWCharString filter;
        if (haveLine) {
            applyOptions(copy);
            if (hasOption(copy, "fileLogFilter", &filter)) {
                SIArray<SWCharString> names;
                SStringHelper::makeWords(filter, names, text(","), false, false);
                AddTraceFilters(names);
            }
        }

        if (isNew || (haveLine && reload)) {
            CSmartRefCountPtr<ILogger> internal(new InternalLogger());
            internal->Initialize(copy);
            {
                Locked guard(s.loggerLock);
                s.loggers[text("Internal")] = internal;
            }
            SWCharString dir;
            if (!hasOption(copy, "loggingPluginDir", &dir) || dir.isEmpty())
                dir = registryValue("loggingPluginDir");
            if (!dir.isEmpty()) {
                dir = stripTrailingSlash(dir);
                Locked guard(s.loggerLock);
                s.pluginDir = dir;
            }
            LoadAll(dir, copy);
        }

        if (isNew) {
            g_instanceCount.fetch_add(1);
            g_word.fetch_or(kRunning, std::memory_order_release);
        }
        publishTraceTypes(g_word.load(std::memory_order_relaxed));
        return true;
    } catch (...) {
        return false;
    }
}

bool SLogger::Terminate()
{
    State& s = state();
    Locked creation(s.creationLock);
    if (!running())
        return false;
    int32_t before = g_instanceCount.fetch_sub(1);
    if (before >= 2)
        return false;
    g_word.store(0, std::memory_order_release);
    publishTraceTypes(0);
    g_instanceCount.store(0);
    g_importance.store(0, std::memory_order_relaxed);
    RemoveAllTraceFilters();
    LoggerMap gone;
    {
        Locked guard(s.loggerLock);
        gone.swap(s.loggers);
        s.pluginDir.empty();
    }
    // Released outside the lock: a plug-in's "Terminate" may trace.
    gone.clear();
    return true;
}

// ---- queries -------------------------------------------------------------------------------

bool SLogger::ShouldTrace(int type, const char* sourceFile)
{
    const uint32_t word = g_word.load(std::memory_order_acquire);
    if (!(word & kRunning) || type < 0 || type > 3)
        return false;
    if (type == 1 || type == 2) {
        if (!(word & (traceBit(type) | kTraceGeneral)))
            return false;
    } else if (!(word & traceBit(type))) {
        return false;
    }
    if (g_filterCount.load(std::memory_order_relaxed) == 0)
        return true;

    State& s = state();
    Locked guard(s.filterLock);
    if (s.inShouldTrace)
        return false;
    s.inShouldTrace = true;
    bool allowed = true;
    if (!s.filter.empty()) {
        const bool listed = s.filter.find(sourceFileName(sourceFile)) != s.filter.end();
        allowed = s.filterExcludes ? !listed : listed;
    }
    s.inShouldTrace = false;
    return allowed;
}

bool SLogger::ShouldAssert(const char*)
{
    const uint32_t w = g_word.load(std::memory_order_acquire);
    return (w & kRunning) && (w & kAssertions);
}

bool SLogger::CanStackDump()
{
    const uint32_t w = g_word.load(std::memory_order_acquire);
    return (w & kRunning) && (w & kStackDump);
}

bool SLogger::IsNativeAssert()
{
    const uint32_t w = g_word.load(std::memory_order_acquire);
    return (w & kRunning) && (w & kNativeAssert);
}

bool SLogger::CanTraceOutput()
{
    const uint32_t w = g_word.load(std::memory_order_acquire);
    return (w & kRunning) && (w & kTraceOutput);
}

SLogger::tracelog_importance SLogger::TraceLogImportance()
{
    return running() ? g_importance.load(std::memory_order_relaxed) : 0;
}

bool SLogger::InterpretCmdPrompt(const SWCharString&)
{
    return false;
}

void SLogger::SetLogLevel(loglevel level)
{
    g_logLevel.exchange(static_cast<int32_t>(level));
}

SLogger::loglevel SLogger::GetLogLevel()
{
    switch (g_logLevel.load()) {
    case 0: return logNone;
    case 2: return logVerbose;
    case 3: return logDebug;
    default: return logNormal;
    }
}

// ---- fan-out -------------------------------------------------------------------------------

bool SLogger::Trace(int type, const SWCharString& message)
{
    if (!running() || type < 0 || type > 3)
        return false;
    State& s = state();
    Locked guard(s.loggerLock);
    if (s.inTrace)
        return false;
    s.inTrace = true;
    try {
        const uint32_t word = g_word.load(std::memory_order_acquire);
        static const char* const prefixes[] = {"", "REQUEST: ", "WARNING: ", "SDKREQ: "};
        const bool own = (word & traceBit(type)) || type == 0;
        if (type == 0 || !(word & kTraceGeneral)) {
            // The common case, a general trace: no copy of the message for the main log.
            for (LoggerMap::iterator it = s.loggers.begin(); it != s.loggers.end(); ++it) {
                ILogger* logger = it->second.get();
                if (own && logger->IsActive())
                    logger->Trace(type, message);
            }
        } else {
            const SWCharString general = text(prefixes[type]) + message;
            for (LoggerMap::iterator it = s.loggers.begin(); it != s.loggers.end(); ++it) {
                ILogger* logger = it->second.get();
                if (!logger->IsActive())
                    continue;
                if (own)
                    logger->Trace(type, message);
                logger->Trace(0, general);
            }
        }
    } catch (...) {
    }
    s.inTrace = false;
    return true;
}

bool SLogger::Log(loglevel level, logcategory category, unsigned long msgId,
                  const SIArray<SWCharString>& params)
{
    if (!running())
        return false;
    State& s = state();
    Locked guard(s.loggerLock);
    if (s.inLog)
        return false;
    s.inLog = true;
    try {
        const bool asTrace = (g_word.load(std::memory_order_acquire) & kTraceGeneral) != 0;
        SWCharString line;
        if (asTrace) {
            line = text("Log: level=") + decimal(level) + text(" cat=") + decimal(category) +
                   text(" msg=") + decimal(static_cast<long long>(msgId));
            for (size_t i = 0; i < params.size(); ++i)
                line += text(" p=") + params[i];
        }
        for (LoggerMap::iterator it = s.loggers.begin(); it != s.loggers.end(); ++it) {
            ILogger* logger = it->second.get();
            if (!logger->IsActive())
                continue;
            logger->Log(level, category, msgId, params);
            if (asTrace)
                logger->Trace(0, line);
        }
    } catch (...) {
    }
    s.inLog = false;
    return true;
}

// ---- the trace file filter ------------------------------------------------------------------

void SLogger::AddTraceFilter(const SWCharString& name)
{
    State& s = state();
    Locked guard(s.filterLock);
    s.filter.insert(name);
    publishFilterCount(s.filter.size());
}

void SLogger::AddTraceFilters(const SIArray<SWCharString>& names)
{
    State& s = state();
    Locked guard(s.filterLock);
    for (size_t i = 0; i < names.size(); ++i)
        s.filter.insert(names[i]);
    publishFilterCount(s.filter.size());
}

void SLogger::RemoveTraceFilter(const SWCharString& name)
{
    State& s = state();
    Locked guard(s.filterLock);
    s.filter.erase(name);
    publishFilterCount(s.filter.size());
}

void SLogger::RemoveAllTraceFilters()
{
    State& s = state();
    Locked guard(s.filterLock);
    s.filter.clear();
    publishFilterCount(0);
}

void SLogger::GetTraceFilters(SIArray<SWCharString>& names)
{
    State& s = state();
    Locked guard(s.filterLock);
    for (FilterSet::const_iterator it = s.filter.begin(); it != s.filter.end(); ++it)
        names.push_back(*it);
}

// ---- plug-ins --------------------------------------------------------------------------------

void SLogger::LoadAll(const SWCharString& dir, const CParamLineArgs& args)
{
    // Without a folder the plug-ins are looked for where the process runs.
    SWCharString where = dir.isEmpty() ? text(".") : dir;
    SWCharString pattern = text("log_xn_*") + text(os::dlExtension());
    SIArray<SWCharString> files;
    {
        SSFileSearch search(where, pattern);
        while (search.next())
            if (!search.isDirectory())
                files.push_back(search.getName());
    }
    const SWCharString sep{SChar_t<unsigned short, 1>(SFileSys::getSeparator())};
    for (size_t i = 0; i < files.size(); ++i)
        LoadDLL(where + sep + files[i], CSharedLibrary::FileName2DllName(files[i]), args);
}

bool SLogger::LoadDLL(const SWCharString& file, const SWCharString& name, const CParamLineArgs& args)
{
    try {
        State& s = state();
        Locked guard(s.loggerLock);
        CSmartRefCountPtr<LoggingDLL> dll(new LoggingDLL());
        if (!dll->Load(file))
            return false;
        if (name == text("log_xn_system")) {
            SWCharString line = args.GetCmdLine();
            if (line.isEmpty()) {
                line = logger_detail::executableBaseName();
                if (line.isEmpty())
                    line = text("Service");
            }
            CParamLineArgs forSystem(line);
            forSystem.SetArg(text("numcategories"), text("42"));
            dll->Initialize(forSystem);
        } else {
            dll->Initialize(args);
        }
        s.loggers[name] = CSmartRefCountPtr<ILogger>(dll);
        return true;
    } catch (...) {
        return false;
    }
}

bool SLogger::UnloadDLL(const SWCharString& name)
{
    State& s = state();
    CSmartRefCountPtr<ILogger> gone;
    {
        Locked guard(s.loggerLock);
        LoggerMap::iterator it = s.loggers.find(name);
        if (it == s.loggers.end())
            return false;
        gone = it->second;
        s.loggers.erase(it);
    }
    return true;
}

void SLogger::UnloadAll()
{
    State& s = state();
    LoggerMap gone;
    {
        Locked guard(s.loggerLock);
        gone.swap(s.loggers);
    }
}

bool SLogger::SetParam(const SWCharString& logger, const SWCharString& name, const SWCharString& value)
{
    State& s = state();
    Locked guard(s.loggerLock);
    LoggerMap::iterator it = s.loggers.find(logger);
    return it != s.loggers.end() && it->second->SetParam(name, value);
}

SWCharString SLogger::GetParam(const SWCharString& logger, const SWCharString& name)
{
    State& s = state();
    Locked guard(s.loggerLock);
    SWCharString value;
    LoggerMap::iterator it = s.loggers.find(logger);
    if (it == s.loggers.end() || !it->second->GetParam(name, value))
        return SWCharString();
    return value;
}

SIArray<SWCharString> SLogger::GetParamList(const SWCharString& logger)
{
    State& s = state();
    Locked guard(s.loggerLock);
    SIArray<SWCharString> names;
    LoggerMap::iterator it = s.loggers.find(logger);
    if (it != s.loggers.end())
        it->second->GetParamList(names);
    return names;
}

CSmartRefCountPtr<ILogger> SLogger::GetLogger(const SWCharString& name)
{
    State& s = state();
    Locked guard(s.loggerLock);
    LoggerMap::iterator it = s.loggers.find(name);
    return it == s.loggers.end() ? CSmartRefCountPtr<ILogger>() : it->second;
}

SIArray<SWCharString> SLogger::GetLoggerNames()
{
    State& s = state();
    Locked guard(s.loggerLock);
    SIArray<SWCharString> names;
    for (LoggerMap::iterator it = s.loggers.begin(); it != s.loggers.end(); ++it)
        names.push_back(it->first);
    return names;
}

// ---- the settings as a command line ---------------------------------------------------------

SWCharString SLogger::GetCmdLine()
{
    if (!running())
        return SWCharString();
    try {
        const uint32_t word = g_word.load(std::memory_order_acquire);
        const int importance = g_importance.load(std::memory_order_relaxed);
        CParamLineArgs out;
        static const char* const sizes[] = {"s", "m", "l", "xl"};
        if (word & kTraceGeneral)
            out.SetArg(text("trace"), importance >= 2 && importance <= 5
                                          ? text(sizes[importance - 2]) : SWCharString());
        if (word & kTraceRequest)
            out.SetArg(text("reqTrace"), SWCharString());
        if (word & kTraceSdk)
            out.SetArg(text("sdkTrace"), SWCharString());
        if (word & kTraceWarning)
            out.SetArg(text("warningTrace"), SWCharString());
        if (!(word & kAssertions))
            out.SetArg(text("noassert"), SWCharString());
        if (word & kStackDump)
            out.SetArg(text("stackdump"), SWCharString());
        out.SetArg(text((word & kNativeAssert) ? "nativeassert" : "nonativeassert"), SWCharString());
        if (!(word & kTraceOutput))
            out.SetArg(text("notraceoutput"), SWCharString());
        State& s = state();
        {
            Locked guard(s.loggerLock);
            if (!s.pluginDir.isEmpty())
                out.SetArg(text("loggingPluginDir"), s.pluginDir);
            for (LoggerMap::iterator it = s.loggers.begin(); it != s.loggers.end(); ++it) {
                SIArray<SWCharString> names;
                it->second->GetParamList(names);
                for (size_t i = 0; i < names.size(); ++i) {
                    SWCharString value;
                    if (it->second->GetParam(names[i], value))
                        out.SetArg(names[i], value);
                }
            }
        }
        SIArray<SWCharString> filters;
        GetTraceFilters(filters);
        if (!filters.empty()) {
            SWCharString joined;
            for (size_t i = 0; i < filters.size(); ++i) {
                if (i)
                    joined += SWCharString(text(","));
                joined += filters[i];
            }
            out.SetArg(text("fileLogFilter"), joined);
        }
        return out.GetCmdLine();
    } catch (...) {
        return SWCharString();
    }
}

} // namespace Vardo400
