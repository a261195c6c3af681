// Fuzzes the logger's options: SLogger::Initialize with the bytes as the options of a
// command line (after the program name "quorvane"), then GetCmdLine, one trace, and a
// new logger started from GetCmdLine's options.
//
// Input: the bytes, each one UTF-16 unit, are the options. The options that reach the
// machine are pinned after parsing: "loggingPath" is a scratch folder of this process,
// "loggingPluginDir" a folder that does not exist (no library is ever loaded), "logFile"
// a fixed name and "maxLogFileSize" small; the registry store is an empty scratch one.
// The raw maximum-size text goes to InternalLogger::SetParam instead.
// Checked: no crash, leak or hang; Initialize succeeds and pairs with Terminate; the
// importance is 0..7; invalid types never trace; GetCmdLine is non-empty while the
// logger runs and, when it holds no quote or control characters, gives the same
// command line again when a new logger is started from it (the importance may differ:
// the size word of "trace" is handed on only for importance 2 to 5); everything is
// silent after the last Terminate.
#include "fuzz_check.h"
#include "vardo/cparamlineargs.h"
#include "vardo/senv.h"
#include "vardo/slogger.h"
#include "vardo/strace.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include <unistd.h>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

SWCharString ascii(const std::string& s)
{
    SWCharString r;
    r.concatFromAscii(s.c_str(), static_cast<unsigned int>(s.size()));
    return r;
}

struct Scratch {
    std::string dir;
    Scratch()
    {
        fs::path p = fs::temp_directory_path() / ("vardo-fuzz-logger-" + std::to_string(::getpid()));
        fs::create_directories(p / "reg");
        dir = p.string();
        SEnv::set(ascii("NEBU_REGISTRYHOME"), ascii((p / "reg").string()));
        SEnv::unset(ascii("NEBU_LOGGER_ENVIRONMENT"));
    }
    ~Scratch()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

Scratch& scratch()
{
    static Scratch s;
    return s;
}

void pin(CParamLineArgs& args)
{
    args.SetArg(ascii("loggingPath"), ascii(scratch().dir + "/logs"));
    args.SetArg(ascii("loggingPluginDir"), ascii(scratch().dir + "/no-plugins"));
    args.SetArg(ascii("logFile"), ascii("fuzz.log"));
    args.SetArg(ascii("maxLogFileSize"), ascii("20000"));
}

bool plain(const SWCharString& s)
{
    for (unsigned int i = 0; i < s.getLength(); ++i) {
        unsigned short c = s.data()[i];
        if (c == '"' || c < 0x20)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    scratch();
    SWCharString options;
    for (size_t i = 0; i < size; ++i)
        options += SWCharString(SChar_t<unsigned short, 1>(data[i]));

    CParamLineArgs args(ascii("quorvane ") + options);
    SWCharString rawSize;
    args.Lookup(ascii("maxLogFileSize"), rawSize);
    pin(args);

    FUZZ_CHECK(SLogger::Initialize(args, false));
    const int importance = SLogger::TraceLogImportance();
    FUZZ_CHECK(importance >= 0 && importance <= 7);
    FUZZ_CHECK(!ShouldTrace(4, "a.cpp") && !ShouldTrace(-1, "a.cpp"));
    FUZZ_CHECK(!SLogger::Trace(4, ascii("bad type")));
    ShouldTrace(0, "dir/a.cpp");
    SLogger::Trace(0, options);
    SLogger::Trace(1, options);

    const SWCharString line = SLogger::GetCmdLine();
    FUZZ_CHECK(!line.isEmpty());
    FUZZ_CHECK(SLogger::Terminate());
    FUZZ_CHECK(SLogger::GetCmdLine().isEmpty());

    // A filter whose first entry (in order) begins with a dash cannot be handed on: the
    // command line syntax reads a value that begins with a dash as the next option.
    const bool dashValue = !line.find(ascii("-fileLogFilter -")).isAtEnd();
    if (plain(line) && !dashValue) {
        CParamLineArgs again(ascii("quorvane") + line);
        FUZZ_CHECK(SLogger::Initialize(again, false));
        FUZZ_CHECK(SLogger::GetCmdLine() == line);
        FUZZ_CHECK(SLogger::Terminate());
    }
    FUZZ_CHECK(!ShouldTrace(0, "a.cpp") && !SLogger::ShouldAssert());

    CSmartRefCountPtr<InternalLogger> logger(new InternalLogger());
    if (logger->SetParam(ascii("maxLogFileSize"), rawSize)) {
        SWCharString back;
        FUZZ_CHECK(logger->GetParam(ascii("maxLogFileSize"), back));
    }
    return 0;
}
