// vardo log: what the logger makes of its options, one trace written the way the suite's
// processes write it, and the plug-ins a folder holds.
//   vardo log show [--options "OPTIONS"]
//   vardo log write TYPE TEXT [--options "OPTIONS"]
//   vardo log plugins DIR
// Without --options the logger takes its options where a process started without a
// command line does: "NEBU_LOGGER_ENVIRONMENT", else the value "CmdLine" of the Logging
// registry key; the key's "loggingPath", "MaxLogFileSize" and "loggingPluginDir" fill in.
// Output lines are "name: value". Exit codes: 0 done, 1 the line went nowhere or a
// plug-in was refused, 2 usage or an unreadable folder.
#include "command.h"

#include "vardo/DllWrap.h"
#include "vardo/senv.h"
#include "vardo/sfilesearch.h"
#include "vardo/sfilesys.h"
#include "vardo/slogger.h"

#include <cstdio>
#include <string>

using namespace Vardo400;

namespace Vardo400 {
// The tool's door to the logger's private members.
class SLoggerAccess {
public:
    static void GetTraceFilters(SIArray<SWCharString>& names) { SLogger::GetTraceFilters(names); }
    static SWCharString GetParam(const char* logger, const char* name)
    {
        return SLogger::GetParam(text(logger), text(name));
    }
    static CSmartRefCountPtr<ILogger> GetLogger(const char* name) { return SLogger::GetLogger(text(name)); }
    static SIArray<SWCharString> GetLoggerNames() { return SLogger::GetLoggerNames(); }
    static SWCharString text(const char* s)
    {
        SWCharString r;
        r.concatFromAscii(s, static_cast<unsigned int>(std::char_traits<char>::length(s)));
        return r;
    }
};
} // namespace Vardo400

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

const char kUsage[] =
    "usage: vardo log show [--options \"OPTIONS\"]\n"
    "       vardo log write TYPE TEXT [--options \"OPTIONS\"]   (TYPE 0 general, 1 request, 2 warning, 3 SDK)\n"
    "       vardo log plugins DIR\n";

SWCharString T(const char* s)
{
    return SLoggerAccess::text(s);
}

int usageError(const char* why)
{
    std::fprintf(stderr, "vardo log: %s\n%s", why, kUsage);
    return 2;
}

// Starts the logger with --options (after the program name "quorvane"), or as a process
// without a command line would. source receives where the options came from.
bool startLogger(bool haveOptions, const std::string& options, std::string& source)
{
    if (haveOptions) {
        source = "--options";
        return SLogger::Initialize(CParamLineArgs(T("quorvane ") + argToText(options)), false);
    }
    source = SEnv::get(T("NEBU_LOGGER_ENVIRONMENT")).isEmpty()
                 ? "registry (Logging\\CmdLine) or defaults"
                 : "NEBU_LOGGER_ENVIRONMENT";
    return SLogger::Initialize();
}

SWCharString fileOf(int type)
{
    CSmartRefCountPtr<ILogger> internal = SLoggerAccess::GetLogger("Internal");
    InternalLogger* logger = dynamic_cast<InternalLogger*>(internal.get());
    return logger ? logger->GetFullPath(type) : SWCharString();
}

const char* yesNo(bool b)
{
    return b ? "yes" : "no";
}

int runShow(bool haveOptions, const std::string& options)
{
    std::string source;
    if (!startLogger(haveOptions, options, source)) {
        std::fprintf(stderr, "vardo log: the logger could not be started\n");
        return 1;
    }
    std::printf("source: %s\n", source.c_str());
    std::printf("trace.general: %s\n", yesNo(SLogger::ShouldTrace(0, 0)));
    std::printf("trace.request: %s\n", yesNo(SLogger::ShouldTrace(1, 0)));
    std::printf("trace.warning: %s\n", yesNo(SLogger::ShouldTrace(2, 0)));
    std::printf("trace.sdk: %s\n", yesNo(SLogger::ShouldTrace(3, 0)));
    std::printf("assertions: %s\n", yesNo(SLogger::ShouldAssert()));
    std::printf("stackdump: %s\n", yesNo(SLogger::CanStackDump()));
    std::printf("nativeassert: %s\n", yesNo(SLogger::IsNativeAssert()));
    std::printf("traceoutput: %s\n", yesNo(SLogger::CanTraceOutput()));
    std::printf("importance: %d\n", SLogger::TraceLogImportance());
    static const char* const kinds[] = {"file.main", "file.request", "file.warning", "file.sdk"};
    for (int t = 0; t < 4; ++t)
        std::printf("%s: %s\n", kinds[t], utf8(fileOf(t)).c_str());
    CSmartRefCountPtr<ILogger> internal = SLoggerAccess::GetLogger("Internal");
    std::printf("logging: %s\n", internal && internal->IsActive() ? "active" : "inactive (folder not usable)");
    std::printf("directory: %s\n", utf8(SLoggerAccess::GetParam("Internal", "loggingPath")).c_str());
    std::printf("maxsize: %s\n", utf8(SLoggerAccess::GetParam("Internal", "maxLogFileSize")).c_str());
    SIArray<SWCharString> filters;
    SLoggerAccess::GetTraceFilters(filters);
    std::string list, mode = "none";
    for (size_t i = 0; i < filters.size(); ++i) {
        if (filters[i] == T("^")) {
            mode = "exclude";
            continue;
        }
        if (mode == "none")
            mode = "include";
        list += (list.empty() ? "" : ",") + utf8(filters[i]);
    }
    if (mode == "exclude" && list.empty())
        mode = "none";
    std::printf("filter: %s%s%s\n", mode.c_str(), list.empty() ? "" : " ", list.c_str());
    SIArray<SWCharString> names = SLoggerAccess::GetLoggerNames();
    std::string plugins;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == T("Internal"))
            continue;
        CSmartRefCountPtr<ILogger> l = SLoggerAccess::GetLogger(utf8(names[i]).c_str());
        plugins += (plugins.empty() ? "" : ", ") + utf8(names[i]) +
                   (l && l->IsActive() ? " (active)" : " (inactive)");
    }
    std::printf("plugins: %s\n", plugins.c_str());
    std::printf("cmdline:%s\n", utf8(SLogger::GetCmdLine()).c_str());
    SLogger::Terminate();
    return 0;
}

int64_t sizeOrMinus(const SWCharString& path)
{
    try {
        return path.isEmpty() || !SFileSys::exists(path) ? -1 : SFileSys::sizeEx(path);
    } catch (...) {
        return -1;
    }
}

int runWrite(int type, const std::string& message, bool haveOptions, const std::string& options)
{
    std::string source;
    if (!startLogger(haveOptions, options, source)) {
        std::fprintf(stderr, "vardo log: the logger could not be started\n");
        return 1;
    }
    int64_t before[4];
    for (int t = 0; t < 4; ++t)
        before[t] = sizeOrMinus(fileOf(t));
    const bool sent = SLogger::Trace(type, argToText(message));
    int written = 0;
    for (int t = 0; t < 4; ++t) {
        SWCharString f = fileOf(t);
        if (!f.isEmpty() && sizeOrMinus(f) != before[t]) {
            std::printf("written: %s\n", utf8(f).c_str());
            ++written;
        }
    }
    const SIArray<SWCharString> names = SLoggerAccess::GetLoggerNames();
    for (size_t i = 0; i < names.size(); ++i) {
        CSmartRefCountPtr<ILogger> l = SLoggerAccess::GetLogger(utf8(names[i]).c_str());
        if (names[i] != T("Internal") && l && l->IsActive())
            std::printf("plugin: %s\n", utf8(names[i]).c_str());
    }
    SLogger::Terminate();
    if (!written) {
        std::fprintf(stderr, "vardo log: nothing written to the log files (%s)\n",
                     !sent ? "the logger refused the trace"
                           : "the type is not switched on, the maximum size is 0 or the folder is not usable");
        return 1;
    }
    return 0;
}

int runPlugins(const std::string& dirArg)
{
    const SWCharString dir = argToText(dirArg);
    if (!SFileSys::isDir(dir)) {
        std::fprintf(stderr, "vardo log: %s is not a readable folder\n", dirArg.c_str());
        return 2;
    }
    SSFileSearch search(dir, T("log_xn_*"));
    int refused = 0, found = 0;
    const SWCharString sep{SChar_t<unsigned short, 1>(SFileSys::getSeparator())};
    while (search.next()) {
        if (search.isDirectory())
            continue;
        const SWCharString name = search.getName();
        const SWCharString dllName = CSharedLibrary::FileName2DllName(name);
        // Only library files count: the name loses its library extension.
        if (dllName == name)
            continue;
        ++found;
        CSmartRefCountPtr<LoggingDLL> dll(new LoggingDLL());
        if (dll->Load(dir + sep + name)) {
            std::printf("%s: loads (%s, version %d)\n", utf8(dllName).c_str(), utf8(name).c_str(),
                        dll->GetVersion());
        } else {
            ++refused;
            std::printf("%s: refused (%s): %s\n", utf8(dllName).c_str(), utf8(name).c_str(),
                        utf8(dll->GetLoadError()).c_str());
        }
    }
    if (search.failed()) {
        std::fprintf(stderr, "vardo log: cannot read %s: %s\n", dirArg.c_str(),
                     utf8(search.getErrorText()).c_str());
        return 2;
    }
    if (!found)
        std::printf("no plug-ins (log_xn_*) in %s\n", dirArg.c_str());
    return refused ? 1 : 0;
}

int runLog(const std::vector<std::string>& args)
{
    if (args.empty())
        return usageError("missing subcommand");
    if (args[0] == "--help" || args[0] == "help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    // --options may stand anywhere after the subcommand.
    std::vector<std::string> rest;
    bool haveOptions = false;
    std::string options;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--options") {
            if (i + 1 >= args.size())
                return usageError("--options needs a value");
            haveOptions = true;
            options = args[++i];
        } else {
            rest.push_back(args[i]);
        }
    }
    const std::string& sub = args[0];
    if (sub == "show") {
        if (!rest.empty())
            return usageError("show takes no arguments besides --options");
        return runShow(haveOptions, options);
    }
    if (sub == "write") {
        if (rest.size() != 2)
            return usageError("write needs TYPE and TEXT");
        const std::string& t = rest[0];
        if (t.size() != 1 || t[0] < '0' || t[0] > '3')
            return usageError("TYPE must be 0, 1, 2 or 3");
        return runWrite(t[0] - '0', rest[1], haveOptions, options);
    }
    if (sub == "plugins") {
        if (rest.size() != 1 || haveOptions)
            return usageError("plugins needs DIR");
        return runPlugins(rest[0]);
    }
    return usageError("unknown subcommand");
}

} // namespace

VARDO_TOOL_COMMAND(log, "log", "log show|write TYPE TEXT|plugins DIR [--options \"OPTIONS\"]", runLog);
