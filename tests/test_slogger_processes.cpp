// Many processes, one log: child processes of several threads each append numbered
// lines to the same log files through the logger, with a maximum size small enough to
// rotate the files many times. Every line must arrive exactly once, whole, and only the
// main logs (current and rotated) may start with the header.
#include "child_process.h"
#include "logger_files.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>
#include <thread>

namespace fs = std::filesystem;
using namespace Vardo400;
using vardo_test::W;
using vardo_test::pathU8;

namespace {

const int kProcesses = 8;
const int kThreads = 4;
// Wine starts processes and opens files far more slowly; fewer lines keep it short.
int linesPerThread() { return vardo_test::onWindows() ? 60 : 400; }

// Even lines are general traces, odd ones requests (which also reach the main log).
std::string message(int process, int thread, int i)
{
    return "p" + std::to_string(process) + "-t" + std::to_string(thread) + "-n" + std::to_string(i) +
           " padding-to-make-lines-longer";
}

TEST(LoggerChild, WriteLines)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    const int process = std::atoi(vardo_test::childArg("VARDO_LOG_ID"));
    ASSERT_TRUE(vardo_test::initLogger("child -trace -reqTrace -logFile shared.log -maxLogFileSize 4000 -loggingPath " +
                                       std::string(vardo_test::childArg("VARDO_LOG_DIR"))));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([process, t] {
            for (int i = 0; i < linesPerThread(); ++i)
                SLogger::Trace(i % 2, W(message(process, t, i)));
        });
    for (auto& th : threads)
        th.join();
    EXPECT_TRUE(SLogger::Terminate());
}

TEST(SLoggerProcesses, ManyProcessesShareOneRotatingLog)
{
    vardo_test::TempDir tmp("vardo_logmp_");
    fs::create_directory(tmp.path / "reg");
    std::vector<vardo_test::ChildProcess> children;
    for (int p = 0; p < kProcesses; ++p)
        children.push_back(vardo_test::spawnSelf("LoggerChild.WriteLines", {{"VARDO_LOG_DIR", pathU8(tmp.path)},
                                                                           {"VARDO_LOG_ID", std::to_string(p)},
                                                                           {"NEBU_REGISTRYHOME", tmp.str("reg")}}));
    for (auto& c : children)
        EXPECT_EQ(0, vardo_test::wait(c));

    const std::regex mainLine(
        R"(\[(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-9:]{8} [0-9]{4}\]\t[0-9]+\t[0-9]+\t((REQUEST: )?p[0-9]+-t[0-9]+-n[0-9]+ padding-to-make-lines-longer)\r)");
    const std::regex reqLine(
        R"([0-9]{4}-[0-9]{2}-[0-9]{2}\t[0-9:]{8}\t[0-9]+\t(p[0-9]+-t[0-9]+-n[0-9]+ padding-to-make-lines-longer)\r)");
    const std::regex fileName(R"(shared(_bak[0-9]+)?\.(log|req))");

    std::map<std::string, int> mainSeen, reqSeen;
    int mainFiles = 0, reqFiles = 0, torn = 0;
    for (const std::string& name : vardo_test::listFiles(tmp.path)) {
        std::smatch n;
        ASSERT_TRUE(std::regex_match(name, n, fileName)) << "unexpected file " << name;
        const bool isMain = n[2] == "log";
        auto lines = vardo_test::readLines(tmp.path / name);
        ASSERT_FALSE(lines.empty()) << name;
        ++(isMain ? mainFiles : reqFiles);
        EXPECT_TRUE(!isMain || lines[0] == "Timestamp\tProcessID\tThreadID\tMessage\r") << name << ": " << lines[0];
        for (size_t i = isMain ? 1 : 0; i < lines.size(); ++i) {
            std::smatch m;
            if (std::regex_match(lines[i], m, isMain ? mainLine : reqLine)) {
                ++(isMain ? mainSeen : reqSeen)[m[isMain ? 3 : 1]];
            } else {
                ++torn;
                ADD_FAILURE() << name << " line " << i + 1 << " is torn or foreign: " << lines[i];
            }
        }
    }
    size_t missingMain = 0, missingReq = 0, twice = 0;
    for (int p = 0; p < kProcesses; ++p)
        for (int t = 0; t < kThreads; ++t)
            for (int i = 0; i < linesPerThread(); ++i) {
                const std::string m = message(p, t, i);
                const int inMain = mainSeen[i % 2 ? "REQUEST: " + m : m];
                const int inReq = i % 2 ? reqSeen[m] : 1;
                missingMain += inMain == 0;
                missingReq += inReq == 0;
                twice += (inMain > 1) + (inReq > 1);
            }
    std::printf("[ measured ] %d traces sent; missing: %zu main, %zu request; duplicated: %zu; torn: %d; "
                "files: %d main, %d request\n",
                kProcesses * kThreads * linesPerThread(), missingMain, missingReq, twice, torn, mainFiles, reqFiles);
    EXPECT_EQ(0u, missingMain + missingReq + twice);
    EXPECT_GT(mainFiles, 20);
    EXPECT_GT(reqFiles, 10);
}

} // namespace
