// The logger's two costs that callers pay most often, each beside its anchor:
//  - ShouldTrace with no file filter (the test before every trace) against a relaxed
//    atomic load of a flag word behind an out-of-line call, the same call shape a
//    caller of any library function pays; the bare inline load is shown as well. With
//    a 10-entry filter ShouldTrace takes the filter lock and looks the name up: reported.
//  - One general trace through SLogger::Trace into the main log against a plain
//    open/append/close loop writing a line of the same length to a file of its own; the
//    same loop with the one call the logger makes beyond it (lseek to the end, for the
//    size that decides about the header and the rotation) is shown beside it: the floor.
#include <vardo/slogger.h>
#include <vardo/senv.h>
#include <vardo/strace.h>

#include "ratio.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <unistd.h>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

SWCharString A(const std::string& s)
{
    SWCharString r;
    r.concatFromAscii(s.c_str(), static_cast<unsigned int>(s.size()));
    return r;
}

const char kMessage[] = "trace message: request 12345 served from cache in 3 ms";

// A scratch folder and a running logger for the whole run.
struct Logging {
    fs::path dir;
    Logging()
    {
        dir = fs::temp_directory_path() / ("vardo-bench-log-" + std::to_string(::getpid()));
        fs::create_directories(dir / "reg");
        SEnv::set(A("NEBU_REGISTRYHOME"), A((dir / "reg").string()));
        SLogger::Initialize(CParamLineArgs(A("bench -trace -logFile bench.log -maxLogFileSize 4000000000 "
                                             "-loggingPluginDir " + (dir / "none").string() +
                                             " -loggingPath " + dir.string())),
                            false);
    }
    ~Logging()
    {
        SLogger::Terminate();
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

Logging& logging()
{
    static Logging l;
    return l;
}

std::atomic<uint32_t> g_flagWord{1};

__attribute__((noinline)) bool anchorShouldTrace(int type, const char*)
{
    return (g_flagWord.load(std::memory_order_relaxed) >> type) & 1u;
}

void BM_ShouldTrace(benchmark::State& state)
{
    logging();
    for (auto _ : state)
        benchmark::DoNotOptimize(ShouldTrace(0, "bench_logger.cpp"));
}
BENCHMARK(BM_ShouldTrace);

void BM_AtomicFlagLoadCall(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(anchorShouldTrace(0, "bench_logger.cpp"));
}
BENCHMARK(BM_AtomicFlagLoadCall);

void BM_AtomicFlagLoadInline(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(g_flagWord.load(std::memory_order_relaxed) & 1u);
}
BENCHMARK(BM_AtomicFlagLoadInline);

void BM_ShouldTraceFilter10(benchmark::State& state)
{
    logging();
    // A second logger with a 10-name filter; the same answer as before for this file.
    SLogger::Initialize(CParamLineArgs(A("bench -trace -fileLogFilter "
                                         "a.cpp,b.cpp,c.cpp,d.cpp,e.cpp,f.cpp,g.cpp,h.cpp,i.cpp,bench_logger.cpp")),
                        false);
    for (auto _ : state)
        benchmark::DoNotOptimize(ShouldTrace(0, "/src/bench/bench_logger.cpp"));
    // The filter stays until the logger ends; later benchmarks do not consult it.
}
BENCHMARK(BM_ShouldTraceFilter10);

void BM_TraceLine(benchmark::State& state)
{
    logging();
    const SWCharString message = A(kMessage);
    for (auto _ : state)
        SLogger::Trace(0, message);
    state.SetBytesProcessed(state.iterations() * 80);
}
BENCHMARK(BM_TraceLine);

void BM_PlainAppend(benchmark::State& state)
{
    // The main log's line for this message: stamp, ids, text, "\r\n".
    char line[256];
    int n = std::snprintf(line, sizeof line, "[Sun Nov 22 17:04:05 2026]\t%d\t%d\t%s\r\n",
                          static_cast<int>(::getpid()), static_cast<int>(::getpid()), kMessage);
    const std::string path = (logging().dir / "plain.log").string();
    for (auto _ : state) {
        int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) {
            state.SkipWithError("open failed");
            break;
        }
        benchmark::DoNotOptimize(::write(fd, line, static_cast<size_t>(n)));
        ::close(fd);
    }
    state.SetBytesProcessed(state.iterations() * n);
}
BENCHMARK(BM_PlainAppend);

// The plain loop plus the one call the logger makes beyond it: the logger needs the
// file's size to decide about the header and the rotation, and asks for it with a seek
// to the end of its append-only descriptor. The rest of the difference is the logger's
// own work (lock, stamp, formatting).
void BM_PlainAppendWithSize(benchmark::State& state)
{
    char line[256];
    int n = std::snprintf(line, sizeof line, "[Sun Nov 22 17:04:05 2026]\t%d\t%d\t%s\r\n",
                          static_cast<int>(::getpid()), static_cast<int>(::getpid()), kMessage);
    const std::string path = (logging().dir / "plain2.log").string();
    for (auto _ : state) {
        int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) {
            state.SkipWithError("open failed");
            break;
        }
        benchmark::DoNotOptimize(::lseek(fd, 0, SEEK_END));
        benchmark::DoNotOptimize(::write(fd, line, static_cast<size_t>(n)));
        ::close(fd);
    }
    state.SetBytesProcessed(state.iterations() * n);
}
BENCHMARK(BM_PlainAppendWithSize);

struct Pairs {
    Pairs()
    {
        vardo_bench::addPair("BM_ShouldTrace", "BM_AtomicFlagLoadCall");
        vardo_bench::addPair("BM_ShouldTraceFilter10", "BM_AtomicFlagLoadCall");
        vardo_bench::addPair("BM_TraceLine", "BM_PlainAppend");
        vardo_bench::addPair("BM_PlainAppendWithSize", "BM_PlainAppend");
    }
} g_pairs;

} // namespace

VARDO_BENCH_MAIN()
