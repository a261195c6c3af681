// The logger: options, trace filter, log files and their layout, rotation, faults,
// assertions, threads and plug-ins.
#include <vardo/strace.h>
#include <vardo/senv.h>
#include <vardo/registry.h>
#include <vardo/csiprocess.h>
#include <vardo/sdatetime.h>

#include "child_process.h"
#include "logger_files.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <set>
#include <regex>
#include <thread>

namespace fs = std::filesystem;
using namespace Vardo400;
using vardo_test::W;
using vardo_test::U;
using vardo_test::pathU8;
using vardo_test::readLines;
using vardo_test::listFiles;
using vardo_test::initLogger;

namespace Vardo400 {
// The test's door to the logger's private members.
class SLoggerAccess {
public:
    static void AddTraceFilter(const char* n) { SLogger::AddTraceFilter(W(n)); }
    static void RemoveTraceFilter(const char* n) { SLogger::RemoveTraceFilter(W(n)); }
    static void RemoveAllTraceFilters() { SLogger::RemoveAllTraceFilters(); }
    static void SetLogLevel(int l) { SLogger::SetLogLevel(static_cast<SLogger::loglevel>(l)); }
    static int GetLogLevel() { return SLogger::GetLogLevel(); }
    static bool SetParam(const char* l, const char* n, const char* v) { return SLogger::SetParam(W(l), W(n), W(v)); }
    static std::string GetParam(const char* l, const char* n) { return U(SLogger::GetParam(W(l), W(n))); }
    static bool UnloadDLL(const char* n) { return SLogger::UnloadDLL(W(n)); }
};
} // namespace Vardo400

namespace {

const char kHeader[] = "Timestamp\tProcessID\tThreadID\tMessage\r";
const char kStamp[] = R"(\[(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] [0-9]{4}\])";

// The logger's registry values some tests set. On Linux the store lives in the test's
// folder; on Windows it is the machine's registry, so they are removed before and after.
void clearLoggingKey()
{
    CompanyRegistry key(W("Logging"));
    for (const char* name : {"CmdLine", "loggingPath", "MaxLogFileSize", "loggingPluginDir"})
        if (!key.ReadValue(W(name)).isEmpty())
            key.DeleteValue(W(name));
}

// The start of a main-log line of this thread, up to the message.
std::string linePrefix()
{
    return std::string("^") + kStamp + "\t" + std::to_string(CSIProcess::GetCurrentProcessId()) + "\t" +
           std::to_string(CSIProcess::GetCurrentThreadId()) + "\t";
}

bool matches(const std::string& line, const std::string& pattern)
{
    return std::regex_match(line, std::regex(pattern));
}

class SLoggerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        vardo_test::terminateLogger();
        fs::create_directory(m_dir / "reg");
        SEnv::set(W("NEBU_REGISTRYHOME"), W(pathU8(m_dir / "reg")));
        SEnv::unset(W("NEBU_LOGGER_ENVIRONMENT"));
        clearLoggingKey();
    }
    void TearDown() override
    {
        vardo_test::terminateLogger();
        clearLoggingKey();
        SEnv::unset(W("NEBU_REGISTRYHOME"));
    }
    // The logger writing main.log (and main.req, .wrn, .sdk) into the scratch folder.
    bool start(const std::string& options, const std::string& file = "main.log")
    {
        return initLogger("prog -logFile " + file + " -loggingPath " + pathU8(m_dir) + " " + options);
    }
    std::vector<std::string> lines(const std::string& name) { return readLines(m_dir / name); }

    vardo_test::TempDir m_tmp{"vardo_log_"};
    const fs::path& m_dir = m_tmp.path;
};

TEST_F(SLoggerTest, InitializeCallsNeedAsManyTerminateCallsAndThenAllIsSilent)
{
    ASSERT_TRUE(start("-trace"));
    // A later Initialize rebuilds the loggers only when asked to reload.
    ASSERT_TRUE(start("-reqTrace", "kept.log"));
    SLogger::Trace(0, W("one"));
    ASSERT_TRUE(initLogger("prog -logFile new.log -loggingPath " + pathU8(m_dir), true));
    SLogger::Trace(0, W("two"));
    EXPECT_EQ((std::vector<std::string>{"main.log", "new.log"}), listFiles(m_dir));
    EXPECT_FALSE(SLogger::Terminate());
    EXPECT_FALSE(SLogger::Terminate());
    EXPECT_TRUE(SLogger::ShouldTrace(0, "a.cpp"));
    EXPECT_TRUE(SLogger::Terminate());
    for (int type = -1; type <= 4; ++type)
        EXPECT_FALSE(SLogger::ShouldTrace(type, "a.cpp"));
    EXPECT_FALSE(ShouldTrace(0, "a.cpp"));
    EXPECT_FALSE(SLogger::Trace(0, W("dropped")));
    EXPECT_FALSE(SLogger::ShouldAssert());
    EXPECT_TRUE(SLogger::GetCmdLine().isEmpty());
    EXPECT_FALSE(SLogger::Terminate());
    EXPECT_FALSE(SLogger::InterpretCmdPrompt(W("trace")));
}

TEST_F(SLoggerTest, OptionsGiveTypeSwitchesAndImportance)
{
    // Per set of options, trace types 0..3 allowed (Y) or not and the importance: requests
    // and warnings ride on "trace", SDK requests need their own switch; the inline
    // ShouldTrace agrees with SLogger's.
    struct Case {
        const char* options;
        const char* types;
        int importance;
    } cases[] = {
        {"-trace xl -warningTrace", "YYYN", 6}, {"-trace xl", "YYYN", 7}, {"-trace XL -noassert", "YYYN", 5},
        {"-trace s -noassert", "YYYN", 2},      {"-trace huge", "YYYN", 1}, {"-warningTrace", "NNYN", 6},
        {"-sdkTrace -reqTrace", "NYNY", 7},     {"-noassert", "NNNN", 0},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(start(c.options));
        EXPECT_EQ(c.importance, SLogger::TraceLogImportance()) << c.options;
        for (int type = -1; type <= 4; ++type) {
            const bool want = type >= 0 && type <= 3 && c.types[type] == 'Y';
            EXPECT_EQ(want, SLogger::ShouldTrace(type, "a.cpp")) << c.options << ", type " << type;
            EXPECT_EQ(want, ShouldTrace(type, nullptr)) << c.options << ", type " << type;
        }
        vardo_test::terminateLogger();
    }

    // The log level is stored as given and read back through its four values.
    for (int level : {0, 2, 3, 9}) {
        SLoggerAccess::SetLogLevel(level);
        EXPECT_EQ(level == 9 ? 1 : level, SLoggerAccess::GetLogLevel());
    }
}

TEST_F(SLoggerTest, FileFilterIncludesOrExcludes)
{
    ASSERT_TRUE(start("-trace -fileLogFilter a.src"));
    EXPECT_TRUE(SLogger::ShouldTrace(0, "d:\\x\\a.src"));
    EXPECT_FALSE(SLogger::ShouldTrace(0, "b.src"));
    EXPECT_FALSE(SLogger::ShouldTrace(0, "A.SRC"));   // exact, case-sensitive
    EXPECT_FALSE(SLogger::ShouldTrace(0, nullptr));
    vardo_test::terminateLogger();

    ASSERT_TRUE(start("-trace -fileLogFilter a.src,^"));
    EXPECT_FALSE(SLogger::ShouldTrace(0, "d:\\x\\a.src"));
    EXPECT_TRUE(SLogger::ShouldTrace(0, "b.src"));
    SLoggerAccess::RemoveTraceFilter("^");
    EXPECT_TRUE(SLogger::ShouldTrace(0, "a.src"));
    EXPECT_FALSE(SLogger::ShouldTrace(0, "b.src"));
    SLoggerAccess::RemoveAllTraceFilters();
    EXPECT_TRUE(SLogger::ShouldTrace(0, "b.src"));
    SLoggerAccess::AddTraceFilter("b.src");
    // After the last Terminate a new logger starts without the old filter.
    vardo_test::terminateLogger();
    ASSERT_TRUE(start("-trace"));
    EXPECT_TRUE(SLogger::ShouldTrace(0, "anything.c"));
}

TEST_F(SLoggerTest, LogFilesHaveTheirLayoutsAndOnlyTheMainLogAHeader)
{
    ASSERT_TRUE(start("-trace -warningTrace -sdkTrace"));
    STrace("count %d of %s", 3, "items");
    STraceMsg(0, "src/a.cpp", 42, W("hello"));
    STraceMsg(0, nullptr, 42, W("no file"));
    STraceMsg(0, "src/a.cpp", 0, W("no line"));
    SLogger::Trace(0, W("caf\xc3\xa9"));
    // With "trace" the other types reach the main log too, with their own prefix; a
    // request without "reqTrace" reaches only the main log.
    STraceMsg(1, "a.cpp", 3, W("r"));
    STraceMsg(2, "a.cpp", 3, W("w"));
    STraceMsg(3, "a.cpp", 3, W("s"));
    EXPECT_FALSE(SLogger::Trace(7, W("bad type")));
    const char* want[] = {"trace message: count 3 of items", R"(\(src/a.cpp:42\): trace message: hello)",
                          "trace message: no file", "trace message: no line", "caf\xc3\xa9",
                          "REQUEST: r", "WARNING: w", "SDKREQ: s"};
    auto l = lines("main.log");
    ASSERT_EQ(9u, l.size()) << m_tmp.read("main.log");
    EXPECT_EQ(kHeader, l[0]);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_TRUE(matches(l[i + 1], linePrefix() + want[i] + "\r")) << l[i + 1];
    EXPECT_EQ((std::vector<std::string>{"main.log", "main.sdk", "main.wrn"}), listFiles(m_dir));
    EXPECT_TRUE(matches(m_tmp.read("main.wrn"), linePrefix() + "WARNING\tw\r\n")) << m_tmp.read("main.wrn");
    EXPECT_TRUE(matches(m_tmp.read("main.sdk"), linePrefix() + "SDKREQ\ts\r\n")) << m_tmp.read("main.sdk");
    vardo_test::terminateLogger();

    // The request log: local time and milliseconds since 2000-01-01 UTC.
    ASSERT_TRUE(start("-reqTrace", "req.log"));
    STraceMsg(1, "a.cpp", 3, W("req line"));
    const std::string req = m_tmp.read("req.req");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(req, m, std::regex(R"([0-9]{4}-[01][0-9]-[0-3][0-9]\t[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\t([0-9]+)\treq line\r\n)")))
        << req;
    const long long expected = SDateTime::now().toUnixMillis() - 946684800000LL;
    EXPECT_LT(std::llabs(expected - std::stoll(m[1])), 60000);
}

TEST_F(SLoggerTest, DefaultFileNameAndFolderCreationOrWarning)
{
    fs::path deep = m_dir / "a" / "b";
    ASSERT_TRUE(initLogger("/opt/suite/bin/server.exe -trace -loggingPath " + pathU8(deep) + "/"));
    STrace("x");
    auto files = listFiles(deep);
    ASSERT_EQ(1u, files.size());
    EXPECT_TRUE(matches(files[0], "server_20[0-9]{6}_[0-9]{6}_" + std::to_string(CSIProcess::GetCurrentProcessId()) +
                                      "\\.log"))
        << files[0];
    EXPECT_EQ(pathU8(deep), SLoggerAccess::GetParam("Internal", "loggingPath"));
    EXPECT_EQ(files[0], SLoggerAccess::GetParam("Internal", "logFile"));
    vardo_test::terminateLogger();

    // Without a program name the stem is "quorvane".
    CParamLineArgs args;
    args.SetArg(W("loggingPath"), W(pathU8(m_dir / "c")));
    ASSERT_TRUE(SLogger::Initialize(args, false));
    STrace("y");
    files = listFiles(m_dir / "c");
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(0u, files[0].find("quorvane_"));
    vardo_test::terminateLogger();

    // A folder that cannot be made: a warning, and the logger writes nothing.
    m_tmp.write("plainfile", std::string("x"));
    fs::path bad = m_dir / "plainfile" / "sub";
    testing::internal::CaptureStderr();
    ASSERT_TRUE(initLogger("prog -trace -logFile main.log -loggingPath " + pathU8(bad)));
    EXPECT_EQ("WARNING: The internal logger could not be initialized.\n"
              "         The specified path " + pathU8(bad) + " is not accessible or does not exist.\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(SLogger::Trace(0, W("dropped")));   // the fan-out itself works
    EXPECT_EQ((std::vector<std::string>{"plainfile"}), listFiles(m_dir));
    EXPECT_EQ(pathU8(bad), SLoggerAccess::GetParam("Internal", "loggingPath"));
}

TEST_F(SLoggerTest, DeletedFullReadOnlyMissingAndZeroSizedFiles)
{
    CSmartRefCountPtr<InternalLogger> logger(new InternalLogger());
    ASSERT_TRUE(logger->Initialize(CParamLineArgs(W("prog -logFile main.log -loggingPath " + pathU8(m_dir)))));
    EXPECT_TRUE(logger->Initialize(CParamLineArgs(W("prog -logFile other.log"))));   // runs once
    EXPECT_TRUE(logger->Trace(0, W("one")));

    // Deleted between lines: the next line starts a new file, header first. Then a full
    // disk: the write fails, the line is dropped, the next one is written.
    fs::remove(m_dir / "main.log");
    EXPECT_TRUE(logger->Trace(0, W("two")));
    if (vardo_test::injectFault(vardo_test::Fault::write, ENOSPC, 0)) {
        EXPECT_FALSE(logger->Trace(0, W("lost")));
    }
    EXPECT_TRUE(logger->Trace(0, W("three")));
    auto l = lines("main.log");
    ASSERT_EQ(3u, l.size());
    EXPECT_EQ(kHeader, l[0]);
    EXPECT_NE(std::string::npos, l[2].find("\tthree\r"));

    // Read-only: refused at once, nothing thrown, nothing changed.
    // (Wine runs as root and lets root write read-only files, as Linux does.)
    if (!vardo_test::runningAsRoot() && !vardo_test::onWindows()) {
        ASSERT_TRUE(vardo_test::setFileMode(pathU8(m_dir / "main.log"), 0444));
        EXPECT_FALSE(logger->Trace(0, W("refused")));
        EXPECT_EQ(3u, lines("main.log").size());
        ASSERT_TRUE(vardo_test::setFileMode(pathU8(m_dir / "main.log"), 0644));
    }

    // The folder removed: nothing is written and nothing is created.
    fs::path sub = m_dir / "gone";
    fs::create_directory(sub);
    ASSERT_TRUE(logger->SetParam(W("loggingPath"), W(pathU8(sub))));
    fs::remove(sub);
    EXPECT_FALSE(logger->Trace(0, W("nowhere")));
    EXPECT_FALSE(fs::exists(sub));

    // With maximum size 0 nothing is written.
    ASSERT_TRUE(logger->SetParam(W("loggingPath"), W(pathU8(m_dir))));
    ASSERT_TRUE(logger->SetParam(W("maxLogFileSize"), W("0")));
    logger->Trace(0, W("none"));
    EXPECT_EQ(3u, lines("main.log").size());
}

TEST_F(SLoggerTest, InternalLoggerSettings)
{
    CSmartRefCountPtr<InternalLogger> logger(new InternalLogger());
    SWCharString v;
    EXPECT_FALSE(logger->GetParam(W("logFile"), v));       // no files yet
    EXPECT_FALSE(logger->GetParam(W("loggingPath"), v));   // empty
    EXPECT_TRUE(logger->GetParam(W("maxLogFileSize"), v));
    EXPECT_EQ(W("500000"), v);
    EXPECT_TRUE(logger->SetParam(W("maxLogFileSize"), W("4294967295")));
    for (const char* bad : {"4294967296", "12k", ""})
        EXPECT_FALSE(logger->SetParam(W("maxLogFileSize"), W(bad))) << bad;
    EXPECT_FALSE(logger->SetParam(W("MAXLOGFILESIZE"), W("1")));   // names are exact
    EXPECT_TRUE(logger->GetParam(W("maxLogFileSize"), v));
    EXPECT_EQ(W("4294967295"), v);
    // The other files take the extension's place, not a dot in a folder's name.
    EXPECT_TRUE(logger->SetParam(W("logFile"), W("dir.x/run.1.log")));
    EXPECT_EQ(W("dir.x/run.1.req"), logger->GetFullPath(1));
    EXPECT_TRUE(logger->SetParam(W("logFile"), W("dir.x/plain")));
    EXPECT_EQ(W("dir.x/plain.wrn"), logger->GetFullPath(2));
    EXPECT_TRUE(logger->SetParam(W("loggingPath"), W("C:\\logs\\")));
    EXPECT_TRUE(logger->GetParam(W("loggingPath"), v));
    EXPECT_EQ(W("C:\\logs"), v);
}

TEST_F(SLoggerTest, GetCmdLineRebuildsTheOptions)
{
    ASSERT_TRUE(start("-trace m -noassert -reqTrace -stackdump -notraceoutput -maxLogFileSize 1234 "
                      "-fileLogFilter b.c,a.c -loggingPluginDir " + pathU8(m_dir / "none") + "/"));
    EXPECT_TRUE(SLogger::CanStackDump());
    EXPECT_FALSE(SLogger::CanTraceOutput());
    EXPECT_FALSE(ShouldAssert());
    const std::string line = U(SLogger::GetCmdLine());
    EXPECT_EQ(" -trace m -reqTrace -noassert -stackdump -nativeassert -notraceoutput -loggingPluginDir " +
                  pathU8(m_dir / "none") + " -logFile main.log -maxLogFileSize 1234 -loggingPath " +
                  pathU8(m_dir) + " -fileLogFilter a.c,b.c",
              line);
    // A child started with it gets the same settings.
    vardo_test::terminateLogger();
    ASSERT_TRUE(initLogger("child" + line));
    EXPECT_EQ(line, U(SLogger::GetCmdLine()));
    EXPECT_EQ(3, SLogger::TraceLogImportance());
    vardo_test::terminateLogger();

    // Importance 6 and 7 give "trace" without a size word; "nonativeassert" wins.
    ASSERT_TRUE(start("-trace xl -nativeassert -nonativeassert"));
    EXPECT_EQ(0u, U(SLogger::GetCmdLine()).find(" -trace -nonativeassert -logFile"));
    EXPECT_FALSE(SLogger::IsNativeAssert());
    EXPECT_FALSE(SLogger::CanStackDump());
    EXPECT_TRUE(SLogger::CanTraceOutput());
    EXPECT_TRUE(ShouldAssert());
}

TEST_F(SLoggerTest, OptionsFromEnvironmentAndRegistry)
{
    SEnv::set(W("NEBU_LOGGER_ENVIRONMENT"), W("-warningTrace -logFile env.log -loggingPath " + pathU8(m_dir)));
    ASSERT_TRUE(SLogger::Initialize());
    SLogger::Trace(2, W("from env"));
    EXPECT_TRUE(SLogger::Log(SLogger::logNormal, SLogger::catGeneral, 5, SIArray<SWCharString>()));
    EXPECT_EQ(1u, lines("env.wrn").size());
    EXPECT_FALSE(fs::exists(m_dir / "env.log"));   // log events reach the main log with "trace" only
    vardo_test::terminateLogger();
    SEnv::unset(W("NEBU_LOGGER_ENVIRONMENT"));

    // An empty command line falls back on the Logging key below the company home.
    CompanyRegistry key(W("Logging"));
    ASSERT_TRUE(key.WriteValue(W("CmdLine"), W("-trace -logFile reg.log")));
    ASSERT_TRUE(key.WriteValue(W("loggingPath"), W(pathU8(m_dir / "fromreg"))));
    ASSERT_TRUE(key.WriteValue(W("MaxLogFileSize"), W("100")));
    ASSERT_TRUE(SLogger::Initialize());
    for (int i = 0; i < 5; ++i)
        STrace("registry line %d", i);
    auto files = listFiles(m_dir / "fromreg");
    EXPECT_GE(files.size(), 3u);   // 100 bytes: rotated
    EXPECT_TRUE(std::find(files.begin(), files.end(), "reg.log") != files.end());
    vardo_test::terminateLogger();

    // Given options win over the registry's "CmdLine"; the folder still comes from it.
    ASSERT_TRUE(initLogger("prog -reqTrace -logFile given.log"));
    EXPECT_FALSE(SLogger::ShouldTrace(0, "a.c"));
    SLogger::Trace(1, W("r"));
    EXPECT_TRUE(fs::exists(m_dir / "fromreg" / "given.req"));
}

TEST_F(SLoggerTest, AssertionsAreReportedAndReturn)
{
    ASSERT_TRUE(start(""));
    SAssert("dir/f.cpp", 12, "p != 0");
    SAssert("f.cpp", 13, "q", "because");
    SAssert("f.cpp", 14, "r", reinterpret_cast<const unsigned short*>(u"wide"));
    auto l = lines("main.log");
    ASSERT_EQ(4u, l.size());
    EXPECT_NE(std::string::npos, l[1].find("\tassert failure: (dir/f.cpp:12). (p != 0 : no message).\r"));
    EXPECT_NE(std::string::npos, l[2].find("\tassert failure: (f.cpp:13). (q : because).\r"));
    EXPECT_NE(std::string::npos, l[3].find("\tassert failure: (f.cpp:14). (r : wide).\r"));
    vardo_test::terminateLogger();

    // With "stackdump" the report is followed by the walk of the asserting thread.
    ASSERT_TRUE(start("-stackdump", "dump.log"));
    SAssert("g.cpp", 1, "dumped");
    const std::string dump = m_tmp.read("dump.log");
    size_t report = dump.find("\tassert failure: (g.cpp:1). (dumped : no message).\r\n");
    ASSERT_NE(std::string::npos, report) << dump;
    size_t stack = dump.find("\tStack Dump:0x", report);
    EXPECT_NE(std::string::npos, stack) << dump;
    // Symbols: Linux reads the library's symbol table; the Windows build carries none.
    if (!vardo_test::onWindows()) {
        EXPECT_NE(std::string::npos, dump.find("SAssert", stack)) << dump;
    }
    vardo_test::terminateLogger();

    ASSERT_TRUE(start("-noassert", "quiet.log"));
    VARDO_ASSERT(m_dir.empty());   // not even reported
    EXPECT_FALSE(fs::exists(m_dir / "quiet.log"));
}

TEST_F(SLoggerTest, ThreadsTraceWhileFiltersAndSettingsChange)
{
    ASSERT_TRUE(start("-trace -maxLogFileSize 4000"));
    const int threads = 6, perThread = 150;
    std::atomic<bool> stop{false};
    std::thread changer([&] {
        int i = 0;
        while (!stop.load()) {
            SLoggerAccess::AddTraceFilter("other.cpp");
            SLoggerAccess::AddTraceFilter("^");
            SLoggerAccess::RemoveAllTraceFilters();
            SLoggerAccess::SetParam("Internal", "maxLogFileSize", (i++ & 1) ? "4000" : "3000");
            SLogger::GetCmdLine();
            initLogger("prog -sdkTrace");   // a nested Initialize/Terminate pair
            SLogger::Terminate();
        }
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([t] {
            for (int i = 0; i < perThread; ++i) {
                ShouldTrace(0, "this.cpp");
                SLogger::Trace(0, W("t" + std::to_string(t) + "-" + std::to_string(i)));
            }
        });
    for (auto& w : workers)
        w.join();
    stop = true;
    changer.join();
    std::set<std::string> seen;
    size_t written = 0;
    const auto files = listFiles(m_dir);
    EXPECT_GT(files.size(), 5u);
    for (const std::string& name : files) {
        auto l = lines(name);
        EXPECT_EQ(kHeader, l.at(0)) << name;
        // Rotation waits for the size, so a rotated file holds more than one line.
        if (name != "main.log") {
            EXPECT_GE(fs::file_size(m_dir / name), 3000u) << name;
        }
        for (size_t i = 1; i < l.size(); ++i, ++written)
            seen.insert(l[i].substr(l[i].rfind('\t') + 1));
    }
    EXPECT_EQ(static_cast<size_t>(threads * perThread), seen.size());
    EXPECT_EQ(seen.size(), written);   // none twice
}

std::string pluginDir()
{
    return pathU8(fs::u8path(vardo_test::selfPath()).parent_path() / "logplugins");
}

TEST_F(SLoggerTest, PluginsReceiveEveryMessageAndTerminate)
{
    const std::string rec = pathU8(m_dir / "rec.txt");
    // Each plug-in reads its record file from the command line; the failing and the
    // incomplete one share the directory and must not disturb the good one.
    ASSERT_TRUE(start("-trace -reqTrace -recordFile " + rec + " -loggingPluginDir " + pluginDir()));
    STrace("to all %d", 1);
    SLogger::Trace(1, W("a request"));
    SLogger::Trace(3, W("sdk not switched on"));
    // The parameters end at the first null one.
    SLog(SLogger::logDebug, SLogger::catStorage, 9, reinterpret_cast<const unsigned short*>(u"p1"),
         reinterpret_cast<const unsigned short*>(u"p2"), nullptr, reinterpret_cast<const unsigned short*>(u"p4"));
    EXPECT_TRUE(SLoggerAccess::SetParam("log_xn_record", "level", "high"));
    EXPECT_FALSE(SLoggerAccess::SetParam("log_xn_record", "other", "x"));
    // GetCmdLine asks every plug-in for its list and values; "unset" has none.
    const std::string cmd = U(SLogger::GetCmdLine());
    EXPECT_NE(std::string::npos, cmd.find(" -level high")) << cmd;
    EXPECT_EQ(std::string::npos, cmd.find(" -unset")) << cmd;
    SLogger::Trace(0, W("reenter"));
    // Plug-ins are kept under their library names, also when inactive.
    EXPECT_TRUE(SLoggerAccess::UnloadDLL("log_xn_failinit"));
    EXPECT_FALSE(SLoggerAccess::UnloadDLL("log_xn_failinit"));
    EXPECT_FALSE(SLoggerAccess::UnloadDLL("log_xn_noexport"));
    vardo_test::terminateLogger();

    // First the inits of log_xn_record and log_xn_failinit (which records into the same
    // file; log_xn_noexport is never loaded), then the calls in order: traces and events
    // to the active plug-in only, the settings of both for GetCmdLine, the re-entrant
    // trace refused, and Terminate for the active one, with every handed-out text back.
    auto r = readLines(rec);
    ASSERT_EQ(19u, r.size());
    EXPECT_EQ(0u, r[0].find("init prog -logFile main.log")) << r[0];
    EXPECT_EQ(0u, r[1].find("init prog -logFile main.log")) << r[1];
    const std::vector<std::string> want = {
        "trace 0 trace message: to all 1", "trace 1 a request", "trace 0 REQUEST: a request",
        "trace 0 SDKREQ: sdk not switched on", "log 3 6 9 2 p1 p2", "trace 0 Log: level=3 cat=6 msg=9 p=p1 p=p2",
        "setparam level high", "setparam other x",
        "getparamlist", "getparam level", "getparam unset",
        "getparamlist", "getparam level", "getparam unset",
        "trace 0 reenter", "reenter result=false", "terminate outstanding=0",
    };
    EXPECT_EQ(want, std::vector<std::string>(r.begin() + 2, r.end()));
    // The internal logger kept its own file all along.
    EXPECT_NE(std::string::npos, lines("main.log").back().find("\treenter\r"));
}

TEST_F(SLoggerTest, SystemPluginStartsWithItsCategoryCount)
{
#ifndef VARDO_SYSTEM_PLUGIN_DIR
    GTEST_SKIP() << "the system plug-in is built with the tools";
#else
    // Found by its library name, registered as "log_xn_system", started with the
    // process's command line plus "numcategories" 42.
    ASSERT_TRUE(initLogger("/opt/bin/myserver.exe -logFile main.log -loggingPath " + pathU8(m_dir) +
                           " -loggingPluginDir " + VARDO_SYSTEM_PLUGIN_DIR));
    const std::string cmd = U(SLogger::GetCmdLine());
    EXPECT_NE(std::string::npos, cmd.find(" -numcategories 42 -source myserver")) << cmd;
#endif
}

TEST_F(SLoggerTest, PluginLoaderRefusesIncompleteLibraries)
{
    const std::string dir = pluginDir();
    const char* ext = vardo_test::onWindows() ? ".dll" : ".so";
    CSmartRefCountPtr<LoggingDLL> dll(new LoggingDLL());
    EXPECT_FALSE(dll->Load(W(dir + "/log_xn_noexport" + ext)));
    EXPECT_EQ("missing export GetParamList", U(dll->GetLoadError()));
    EXPECT_FALSE(dll->Initialize(CParamLineArgs(W("x"))));
    EXPECT_FALSE(dll->Trace(0, W("x")));
    EXPECT_FALSE(dll->Load(W(dir + "/log_xn_absent" + ext)));
    EXPECT_FALSE(dll->GetLoadError().isEmpty());
    ASSERT_TRUE(dll->Load(W(dir + "/log_xn_record" + ext))) << U(dll->GetLoadError());
    EXPECT_EQ(42, dll->GetVersion());
}

} // namespace
