// SLogger: the process-wide logger behind the trace, log and assertion entry points
// (strace.h), with its built-in file logger (InternalLogger) and its plug-in loggers
// (LoggingDLL, libraries named "log_xn_*").
//
// Options. SLogger::Initialize takes a command line (CParamLineArgs). When the first
// Initialize of the process gets an empty one, the value "CmdLine" of the registry key
// "Logging" below the company home key stands in for it. The options, names matched
// ignoring case:
//   -trace [xs|s|m|l|xl]   general traces (type 0), with a size word for the importance
//   -reqTrace -warningTrace -sdkTrace   request (1), warning (2), SDK request (3) traces
//   -noassert              assertions are not reported
//   -stackdump             an assertion report is followed by "Stack Dump:" and the stack
//   -nativeassert / -nonativeassert     kept and handed on; an assertion never stops
//   -notraceoutput         CanTraceOutput() answers false
//   -fileLogFilter a.cpp,b.cpp          trace only from these source files; with the
//                          entry "^" trace from every file except these
//   -loggingPluginDir DIR  where the plug-ins are (else the registry value
//                          "loggingPluginDir"; else the current directory)
//   -logFile NAME          the main log's name (else STEM_yyyyMMdd_HHmmss_PID.log)
//   -loggingPath DIR       the log folder, created when missing (else "loggingPath")
//   -maxLogFileSize BYTES  rotation size, default 500000; 0 writes nothing (else the
//                          registry value "MaxLogFileSize")
//
// Files. The main log NAME.log gets general traces (and, with -trace, every other trace
// type behind a "REQUEST: ", "WARNING: " or "SDKREQ: " prefix); NAME.req, NAME.wrn and
// NAME.sdk get request, warning and SDK request traces. Lines end with "\r\n" and are
// UTF-8. Main log, warning and SDK lines: "[" asctime-form UTC stamp "]\t" pid "\t" tid
// "\t" [ "WARNING\t" | "SDKREQ\t" ] message. Request lines: local "yyyy-MM-dd\tHH:mm:ss\t",
// the milliseconds since 2000-01-01 00:00:00 UTC, "\t", message. A main log starts with
// the header "Timestamp\tProcessID\tThreadID\tMessage". A file that has reached the
// maximum size is renamed to NAME_bakN.EXT (N counting up per process, never reusing a
// name) and a new one begins.
//
// Many processes may write the same files: every line is one locked append (the file is
// opened and closed for each line), the header is written only into an empty file, and
// a rotation never replaces a file. When no free backup name is found the line is
// appended to the current file rather than dropped.
//
// Errors: nothing here throws to its caller (except std::bad_alloc from building texts);
// failures are false results. A re-entrant call (a logger that traces while tracing) is
// refused with false.
// Thread-safety: every member may be called from any thread. Initialize/Terminate are
// serialised; all loggers see traces one at a time, in one order.
#ifndef VARDO_SLOGGER_H
#define VARDO_SLOGGER_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"
#include "refcount.h"
#include "DllWrap.h"
#include "cparamlineargs.h"

#include <memory>

namespace Vardo400 {

class ILogger;

class VARDO_API SLogger {
public:
    // Log levels as stored; GetLogLevel reads every value other than 0, 2, 3 as 1.
    enum loglevel { logNone = 0, logNormal = 1, logVerbose = 2, logDebug = 3 };
    // Categories of log events, handed to the loggers as they are.
    enum logcategory {
        catGeneral = 0, catStartup = 1, catShutdown = 2, catConfiguration = 3,
        catSecurity = 4, catNetwork = 5, catStorage = 6, catRequest = 7
    };
    // 0 none .. 7 everything (see Initialize).
    typedef int tracelog_importance;

    // Initialize with the options of "NEBU_LOGGER_ENVIRONMENT" ("quorvane" + " " + value),
    // or with no options when it is unset or empty.
    static bool Initialize();
    // The first call creates the logger; each later call adds one to the count that
    // Terminate pairs with and reapplies the options (rebuilding the loggers only when
    // reload is true and args carries a command line). False only when the logger could
    // not be allocated.
    static bool Initialize(const CParamLineArgs& args, bool reload);
    // Ends one Initialize. The call that ends the last one destroys the logger (plug-ins
    // get "Terminate" and are unloaded) and returns true; the others return false.
    static bool Terminate();

    // Whether a trace of type (0..3) from sourceFile (a path; its name and extension are
    // matched against the file filter) would be written. Lock-free without a filter.
    static bool ShouldTrace(int type, const char* sourceFile);
    // Sends message to every active logger. False without a logger or when re-entered.
    static bool Trace(int type, const SWCharString& message);
    // Sends a log event to every active logger (and as a general trace with -trace).
    static bool Log(loglevel level, logcategory category, unsigned long msgId,
                    const SIArray<SWCharString>& params);

    // The option booleans; all false without a logger. The text is not consulted.
    static bool ShouldAssert(const char* text = 0);
    static bool CanStackDump();
    static bool IsNativeAssert();
    static bool CanTraceOutput();
    static tracelog_importance TraceLogImportance();
    // The current settings as a command line for child processes; empty without a logger.
    static SWCharString GetCmdLine();
    // Always false.
    static bool InterpretCmdPrompt(const SWCharString& command);

private:
    friend class SLoggerAccess;   // the library's own tools and tests
    struct Impl;
    static void SetLogLevel(loglevel level);
    static loglevel GetLogLevel();
    static void AddTraceFilter(const SWCharString& name);
    static void AddTraceFilters(const SIArray<SWCharString>& names);
    static void RemoveTraceFilter(const SWCharString& name);
    static void RemoveAllTraceFilters();
    static void GetTraceFilters(SIArray<SWCharString>& names);
    static void LoadAll(const SWCharString& dir, const CParamLineArgs& args);
    static bool LoadDLL(const SWCharString& file, const SWCharString& name,
                        const CParamLineArgs& args);
    static bool UnloadDLL(const SWCharString& name);
    static void UnloadAll();
    static bool SetParam(const SWCharString& logger, const SWCharString& name,
                         const SWCharString& value);
    static SWCharString GetParam(const SWCharString& logger, const SWCharString& name);
    static SIArray<SWCharString> GetParamList(const SWCharString& logger);
    // The logger registered under name, or null.
    static CSmartRefCountPtr<ILogger> GetLogger(const SWCharString& name);
    // The names of the registered loggers, in order.
    static SIArray<SWCharString> GetLoggerNames();
};

// Sends a log event whose parameters are the texts up to the first null one (none when
// p1 is null) through SLogger::Log.
VARDO_API void SLog(SLogger::loglevel level, SLogger::logcategory category, unsigned long msgId,
                    const unsigned short* p1 = 0, const unsigned short* p2 = 0,
                    const unsigned short* p3 = 0, const unsigned short* p4 = 0,
                    const unsigned short* p5 = 0, const unsigned short* p6 = 0,
                    const unsigned short* p7 = 0, const unsigned short* p8 = 0,
                    const unsigned short* p9 = 0, const unsigned short* p10 = 0);

// A named logger the SLogger fans messages out to. Starts with one reference.
class VARDO_API ILogger : public CRefCount {
public:
    // Prepares the logger from a library name (plug-ins); false when it cannot.
    virtual bool Load(const SWCharString& name) = 0;
    // Takes the logger's settings from the command line. The result is the active flag.
    virtual bool Initialize(const CParamLineArgs& args) = 0;
    // Whether the logger takes messages.
    virtual bool IsActive() = 0;
    // The names of the logger's settings, appended to names.
    virtual bool GetParamList(SIArray<SWCharString>& names) = 0;
    virtual bool SetParam(const SWCharString& name, const SWCharString& value) = 0;
    // value receives the setting; false when the logger has no such setting (or no value).
    virtual bool GetParam(const SWCharString& name, SWCharString& value) = 0;
    // One trace of type 0..3.
    virtual bool Trace(int type, const SWCharString& message) = 0;
    // One log event.
    virtual bool Log(SLogger::loglevel level, SLogger::logcategory category,
                     unsigned long msgId, const SIArray<SWCharString>& params) = 0;

protected:
    ~ILogger() override;
};

// The built-in file logger, registered as "Internal": four log files in the logging
// folder (see the file comment), one locked append per line.
class VARDO_API InternalLogger : public ILogger {
public:
    InternalLogger();
    // Does nothing; true.
    bool Load(const SWCharString& name) override;
    // Runs once (later calls return true at once): file names from "logFile" or
    // STEM_yyyyMMdd_HHmmss_PID.log, the folder from "loggingPath" (created; when it
    // cannot be, a warning on standard error and the logger stays inactive), the size
    // from "maxLogFileSize"; the registry's "loggingPath" and "MaxLogFileSize" fill in.
    bool Initialize(const CParamLineArgs& args) override;
    bool IsActive() override;
    // "logFile", "maxLogFileSize", "loggingPath".
    bool GetParamList(SIArray<SWCharString>& names) override;
    // Names are exact: "logFile" (re-derives the other three files), "maxLogFileSize"
    // (unsigned 32-bit decimal), "loggingPath" (one trailing separator removed).
    bool SetParam(const SWCharString& name, const SWCharString& value) override;
    bool GetParam(const SWCharString& name, SWCharString& value) override;
    // Appends one line to the type's file; false when inactive, for a type outside 0..3
    // or when the line could not be written.
    bool Trace(int type, const SWCharString& message) override;
    // Ignores the event; true.
    bool Log(SLogger::loglevel level, SLogger::logcategory category, unsigned long msgId,
             const SIArray<SWCharString>& params) override;

    // The file of a trace type as it is opened (folder joined), empty when none.
    SWCharString GetFullPath(int type) const;

protected:
    ~InternalLogger() override;

private:
    SWCharString joinPath(int type) const;
    void joinPaths();

    bool m_bInitialized;
    bool m_bInitializeRan;
    SWCharString m_paths[4];
    SWCharString m_fullPaths[4];   // m_paths joined to the logging folder
    SWCharString m_loggingPath;
    uint32_t m_nMaxFileSize;
};

// A plug-in logger: one library exporting "Initialize", "Terminate", "Trace", "Log",
// "SetParam", "GetParam", "GetParamList", "FreeString" and "GetDLLVersion" (see
// sloggerplugin.h). Releasing the last reference calls "Terminate" (when active) and
// frees the library.
class VARDO_API LoggingDLL : public ILogger {
public:
    LoggingDLL();
    // Loads the library and resolves the nine exports in that order, then calls
    // "GetDLLVersion". False (library freed) when any step fails; GetLoadError tells why.
    bool Load(const SWCharString& name) override;
    // "Initialize" with the command line; active when it returns 0.
    bool Initialize(const CParamLineArgs& args) override;
    bool IsActive() override;
    bool GetParamList(SIArray<SWCharString>& names) override;
    bool SetParam(const SWCharString& name, const SWCharString& value) override;
    bool GetParam(const SWCharString& name, SWCharString& value) override;
    bool Trace(int type, const SWCharString& message) override;
    bool Log(SLogger::loglevel level, SLogger::logcategory category, unsigned long msgId,
             const SIArray<SWCharString>& params) override;

    int GetVersion() const { return m_nVersion; }
    // Why Load failed: the loader's message, or "missing export NAME".
    const SWCharString& GetLoadError() const { return m_loadError; }

protected:
    ~LoggingDLL() override;

private:
    struct Exports;
    CSharedLibrary m_library;
    std::unique_ptr<Exports> m_pExports;
    int m_nVersion;
    bool m_bActive;
    SWCharString m_loadError;
};

} // namespace Vardo400

#endif
