// SEventLog: the disk variant's lines and rotation, the system log (syslog through a
// socket of the test's own on Linux), and the system logging plug-in log_xn_system.
#include "vardo/seventlog.h"
#include "vardo/DllWrap.h"
#include "vardo/sloggerplugin.h"

#include "assert_capture.h"
#include "logger_files.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <regex>

#if defined(__linux__)
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#endif

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
using vardo_test::U;
using vardo_test::readLines;

// Opens the protected helpers of the disk variant.
class DiskEventLog : public SEventLog {
public:
    explicit DiskEventLog(const SWCharString& file, int64_t max = DEFAULT_MAXFILE_SIZE) : SEventLog(file, max) {}
    using SEventLog::closeLogFile;
    using SEventLog::getLogFileName;
    using SEventLog::getRotatedFileName;
    using SEventLog::openLogFile;
    using SEventLog::useDiskFile;
};

class SEventLogTest : public ::testing::Test {
protected:
    SWCharString file(const char* name) const { return W(m_tmp.str(name)); }

    vardo_test::TempDir m_tmp{"vardo_evt_"};
    const fs::path& m_dir = m_tmp.path;
};

} // namespace

TEST_F(SEventLogTest, DiskLinesCarryTimeTypeCategoryEventAndMessageAndNamesHaveDefaults)
{
    vardo_test::AssertCapture capture;
    DiskEventLog log(file("app.log"));
    ASSERT_TRUE(log.openSource(SWCharString(), SWCharString()));   // no source: the file
    EXPECT_TRUE(log.useDiskFile());
    EXPECT_TRUE(log.writeStrToLog(W("first message")));
    SWCharString a = W("alpha"), c = W("gamma");
    const unsigned short* strings[4] = {a.data(), nullptr, c.data(), nullptr};   // nulls are skipped
    EXPECT_TRUE(log.reportEvent(SEventLog::errorType, strings, 3, 4, 1234));
    EXPECT_TRUE(log.reportEvent(SEventLog::warningType, nullptr, 1, 0, 77));
    EXPECT_TRUE(log.reportEvent(SEventLog::debugType, W("x"), 2));
    EXPECT_TRUE(log.reportEvent(SEventLog::auditFailure, W("y"), 0));
    EXPECT_TRUE(log.reportEvent(3, W("odd"), 0));   // an unknown type asserts and still logs
    EXPECT_EQ(1u, capture.seen().size());
    EXPECT_TRUE(log.closeSource());

    const std::vector<std::string> want = {
        "Information    Category 0, Event 0      first message",
        "Error    Category 3, Event 1234      alpha gamma",
        "Warning    Category 1, Event 77      Event 77",
        "Debug    Category 2, Event 0      x",
        "AuditFailure    Category 0, Event 0      y",
        "Type 3    Category 0, Event 0      odd",
    };
    std::vector<std::string> got = readLines(m_dir / "app.log");
    ASSERT_EQ(want.size(), got.size());
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_TRUE(std::regex_match(got[i], std::regex(R"(\d{1,2}/\d{1,2}/\d\d   \d{1,2}:\d\d:\d\d    )" + want[i])))
            << got[i];
    // Reset starts the file anew.
    DiskEventLog again(file("app.log"));
    ASSERT_TRUE(again.openLogFile(true));
    EXPECT_TRUE(again.writeStrToLog(W("fresh")));
    again.closeLogFile();
    got = readLines(m_dir / "app.log");
    ASSERT_EQ(1u, got.size());
    EXPECT_NE(std::string::npos, got[0].find("      fresh"));

    // Copies are numbered before the extension; the folder must exist, or nothing is written.
    DiskEventLog nested(file("dir.x/name.ext"));
    EXPECT_EQ(file("dir.x/name_7.ext"), nested.getRotatedFileName(7));
    EXPECT_FALSE(nested.openLogFile(false));
    EXPECT_TRUE(nested.writeStrToLog(W("dropped")));
    EXPECT_FALSE(fs::exists(m_dir / "dir.x"));

    DiskEventLog byDefault{SWCharString()};
    if (vardo_test::onWindows()) {
        EXPECT_FALSE(byDefault.useDiskFile());   // Windows has its event log
    } else {
        EXPECT_EQ(W("event.log"), byDefault.getLogFileName());
    }
    EXPECT_EQ(1024000, byDefault.getMaxFileSize());
}

TEST_F(SEventLogTest, RotationShiftsNumberedCopiesUpToTheFirstGapOrTheLimit)
{
    // Each line is 20 + 44 + 5 bytes or so; 200 bytes hold two of them.
    DiskEventLog log(file("ev.log"), 200);
    m_tmp.write("ev_3.log", std::string("older\n"));   // beyond a gap: left alone at first
    for (int i = 0; i < 7; ++i)
        ASSERT_TRUE(log.writeStrToLog(W("msg" + std::to_string(i))));
    log.closeLogFile();
    std::vector<std::string> all;
    for (const char* n : {"ev_3.log", "ev_2.log", "ev_1.log", "ev.log"}) {
        EXPECT_LE(fs::file_size(m_dir / n), 200u) << n;
        for (const std::string& l : readLines(m_dir / n))
            all.push_back(l.substr(l.rfind(' ') + 1));
    }
    // Oldest first across the copies, nothing lost or doubled.
    EXPECT_EQ((std::vector<std::string>{"msg0", "msg1", "msg2", "msg3", "msg4", "msg5", "msg6"}), all);
    // The copy that stood beyond the gap moved up once the shift reached it.
    EXPECT_EQ("older\n", m_tmp.read("ev_4.log"));
    EXPECT_FALSE(fs::exists(m_dir / "ev_5.log"));

    // At the limit the oldest copy is dropped; size 0 never rotates.
    for (int n = 1; n <= SEventLog::maxLogFiles; ++n)
        m_tmp.write("full_" + std::to_string(n) + ".log", std::to_string(n) + "\n");
    m_tmp.write("full.log", std::string(300, 'x') + "\n");
    DiskEventLog full(file("full.log"), 200);
    ASSERT_TRUE(full.writeStrToLog(W("after")));
    full.closeLogFile();
    EXPECT_EQ(std::string(300, 'x') + "\n", m_tmp.read("full_1.log"));
    EXPECT_EQ("1\n", m_tmp.read("full_2.log"));
    EXPECT_EQ("998\n", m_tmp.read("full_999.log"));   // the old 999 is gone
    EXPECT_FALSE(fs::exists(m_dir / "full_1000.log"));
    EXPECT_EQ(1u, readLines(m_dir / "full.log").size());

    DiskEventLog unbounded(file("big.log"), 0);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(unbounded.writeStrToLog(W("line")));
    unbounded.closeLogFile();
    EXPECT_EQ(20u, readLines(m_dir / "big.log").size());
    EXPECT_FALSE(fs::exists(m_dir / "big_1.log"));
}

#if defined(__linux__)
namespace {

// A datagram socket standing in for the syslog daemon, bound in the test's folder; the
// library's syslog sources are pointed at it (not in a build without the test hooks).
struct SyslogSink {
    explicit SyslogSink(const std::string& path) : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
        bound = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        timeval tv = {5, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        redirected = vardo_test::redirectSyslog(path.c_str());
    }
    ~SyslogSink()
    {
        vardo_test::redirectSyslog(nullptr);
        ::close(fd);
    }

    int fd;
    bool bound = false;
    bool redirected = false;
};

// The next datagram is one syslog line of this process.
void expectSyslog(SyslogSink& sink, int pri, const std::string& ident, const std::string& text)
{
    char buf[65536];
    const ssize_t n = ::recv(sink.fd, buf, sizeof buf, 0);
    const std::string got = n < 0 ? std::string("<nothing>") : std::string(buf, static_cast<size_t>(n));
    EXPECT_TRUE(std::regex_match(got, std::regex("^<" + std::to_string(pri) + R"(>[A-Z][a-z]{2} [ 1-3]\d \d\d:\d\d:\d\d )" +
                                                 ident + R"(\[)" + std::to_string(::getpid()) + R"(\]: )" + text + "$")))
        << got;
}

#ifndef VARDO_TEST_PLUGIN
#define VARDO_TEST_PLUGIN ""
#endif

// The system plug-in's exports, called directly.
struct Plugin {
    CSharedLibrary lib;
    LogPlugin::InitializeFn initialize = nullptr;
    LogPlugin::TerminateFn terminate = nullptr;
    LogPlugin::TraceFn trace = nullptr;
    LogPlugin::LogFn log = nullptr;
    LogPlugin::SetParamFn setParam = nullptr;
    LogPlugin::GetParamFn getParam = nullptr;
    LogPlugin::GetParamListFn getParamList = nullptr;
    LogPlugin::FreeStringFn freeString = nullptr;
    LogPlugin::GetDLLVersionFn getVersion = nullptr;

    bool load()
    {
        lib.load(W(VARDO_TEST_PLUGIN));
        return lib.resolve("Initialize", initialize) && lib.resolve("Terminate", terminate) &&
               lib.resolve("Trace", trace) && lib.resolve("Log", log) && lib.resolve("SetParam", setParam) &&
               lib.resolve("GetParam", getParam) && lib.resolve("GetParamList", getParamList) &&
               lib.resolve("FreeString", freeString) && lib.resolve("GetDLLVersion", getVersion);
    }
    std::string param(const char* name)
    {
        unsigned short* value = nullptr;
        if (getParam(W(name).data(), &value) != 0 || !value)
            return "<failed>";
        std::string out = U(SWCharString(value));
        freeString(value);
        return out;
    }
};

} // namespace

// Information, warning and debug events and a missing socket come through the system
// plug-in below.
TEST_F(SEventLogTest, SystemLogIsSyslogUnderTheSourceName)
{
    SyslogSink sink(m_tmp.str("log.sock"));
    ASSERT_TRUE(sink.bound);
    if (!sink.redirected)
        GTEST_SKIP() << "needs the library's test hooks";
    SEventLog log{SWCharString()};
    ASSERT_TRUE(log.openSource(SWCharString(), W("vardotest"), 42, 7));
    SWCharString a = W("a"), b = W("b");
    const unsigned short* strings[2] = {a.data(), b.data()};
    EXPECT_TRUE(log.reportEvent(SEventLog::errorType, strings, 2, 2, 9));
    expectSyslog(sink, 11, "vardotest", R"(\[category 2, event 9\] a b)");
    vardo_test::AssertCapture capture;
    EXPECT_TRUE(log.reportEvent(3, W("odd type"), 0));
    EXPECT_EQ(1u, capture.seen().size());
    expectSyslog(sink, 14, "vardotest", "odd type");
    EXPECT_TRUE(log.closeSource());
}

TEST_F(SEventLogTest, SystemPluginSettingsAndSyslog)
{
    if (std::string(VARDO_TEST_PLUGIN).empty())
        GTEST_SKIP() << "built without the plug-ins";
    Plugin p;
    ASSERT_TRUE(p.load());
    EXPECT_EQ(1, p.getVersion());
    unsigned short* names[8] = {};
    unsigned int count = 0;
    ASSERT_EQ(0, p.getParamList(names, 1, &count));   // no more than asked for
    EXPECT_EQ(1u, count);
    p.freeString(names[0]);
    EXPECT_NE(0, p.setParam(W("bogus").data(), W("1").data()));
    EXPECT_NE(0, p.setParam(W("numcategories").data(), W("many").data()));
    EXPECT_EQ("<failed>", p.param("bogus"));
    {
        SyslogSink sink(m_tmp.str("log.sock"));
        ASSERT_TRUE(sink.bound);
        if (!sink.redirected)
            GTEST_SKIP() << "needs the library's test hooks";
        ASSERT_EQ(0, p.initialize(W("/opt/suite/myserver.bin -trace -numcategories 42").data()));
        EXPECT_EQ("myserver", p.param("source"));
        EXPECT_LE(p.trace(2, W("careful").data()), 0);
        expectSyslog(sink, 12, "myserver", "careful");
        SWCharString p1 = W("p1"), p2 = W("p2");
        const unsigned short* params[2] = {p1.data(), p2.data()};
        EXPECT_EQ(0, p.log(3, 5, 1001, 2, params));
        expectSyslog(sink, 15, "myserver", R"(\[category 5, event 1001\] p1 p2)");
        EXPECT_EQ(0, p.setParam(W("source").data(), W("renamed").data()));
        EXPECT_LE(p.trace(1, W("again").data()), 0);
        expectSyslog(sink, 14, "renamed", "again");
        p.terminate();
        EXPECT_GT(p.trace(0, W("after").data()), 0);   // inactive after Terminate

        // Without a command line the source is "Service".
        ASSERT_EQ(0, p.initialize(W("").data()));
        EXPECT_EQ("Service", p.param("source"));
        p.terminate();
    }
    // No syslog socket: the plug-in stays inactive and refuses messages.
    vardo_test::redirectSyslog(m_tmp.str("absent.sock").c_str());
    EXPECT_NE(0, p.initialize(W("srv").data()));
    EXPECT_GT(p.trace(0, W("lost").data()), 0);
    p.terminate();
    vardo_test::redirectSyslog(nullptr);
}
#endif

TEST_F(SEventLogTest, WindowsEventLog)
{
    if (!vardo_test::onWindows())
        GTEST_SKIP() << "the Windows event log";
    DiskEventLog log{SWCharString()};
    ASSERT_TRUE(log.openSource(SWCharString(), W("vardotest"), 42, 7));
    EXPECT_TRUE(log.writeStrToLog(W("hello from the tests")));
    SWCharString a = W("a");
    const unsigned short* strings[1] = {a.data()};
    EXPECT_TRUE(log.reportEvent(SEventLog::warningType, strings, 1, 1, 5));
    EXPECT_TRUE(log.closeSource());
    EXPECT_FALSE(log.closeSource());
}
