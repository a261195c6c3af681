// SStackWalk against glibc's backtrace() + backtrace_symbols() on a stack of 20 frames.
// Ours resolves module, symbol and source line (DWARF, through elfutils); the anchor
// gives module and dynamic symbol only. "First" walks load the symbol tables afresh
// each time (an SStackWalk made and dropped around the walk); "Later" walks reuse them
// and the descriptions of addresses already seen (the same call sites recur).
#include "vardo/sstackwalk.h"

#include "ratio.h"

#include <execinfo.h>

#include <cstdlib>
#include <cstring>
#include <functional>

using namespace Vardo400;

namespace {

const int kFrames = 20;
volatile int g_sink = 0;

// Calls fn at a depth where the stack holds kFrames frames in all.
__attribute__((noinline)) void atDepth(int depth, const std::function<void()>& fn)
{
    if (depth <= 0)
        fn();
    else
        atDepth(depth - 1, fn);
    g_sink = g_sink + 1;
}

int framesHere()
{
    void* pcs[256];
    return backtrace(pcs, 256);
}

// Recursion depth that makes the walk see kFrames frames.
int depthFor20()
{
    int base = 0;
    atDepth(0, [&] { base = framesHere(); });
    int d = kFrames - base + 1;   // + 1: framesHere's own frame is not in the walk
    return d < 0 ? 0 : d;
}

void BM_SStackWalk_First(benchmark::State& state)
{
    const int depth = depthFor20();
    size_t bytes = 0;
    for (auto _ : state) {
        atDepth(depth, [&] {
            SStackWalk walker;   // the only object: the tables load now, go with it
            SWCharString out;
            SStackWalk::StackWalkAll(out, 0);
            bytes += out.getLength();
        });
    }
    benchmark::DoNotOptimize(bytes);
}

void BM_SStackWalk_Later(benchmark::State& state)
{
    const int depth = depthFor20();
    SStackWalk walker;
    size_t bytes = 0;
    {
        SWCharString warm;
        SStackWalk::StackWalkAll(warm, 0);
    }
    for (auto _ : state) {
        atDepth(depth, [&] {
            SWCharString out;
            SStackWalk::StackWalkAll(out, 0);
            bytes += out.getLength();
        });
    }
    benchmark::DoNotOptimize(bytes);
}

void BM_Backtrace_Symbols(benchmark::State& state)
{
    const int depth = depthFor20();
    size_t bytes = 0;
    for (auto _ : state) {
        atDepth(depth, [&] {
            void* pcs[64];
            int n = backtrace(pcs, 64);
            char** names = backtrace_symbols(pcs, n);
            for (int i = 0; names && i < n; ++i)
                bytes += std::strlen(names[i]);
            std::free(names);
        });
    }
    benchmark::DoNotOptimize(bytes);
}

} // namespace

// Every time in microseconds: the ratio lines divide the times as reported.
BENCHMARK(BM_SStackWalk_First)->Unit(benchmark::kMicrosecond)->Iterations(20);
BENCHMARK(BM_SStackWalk_Later)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Backtrace_Symbols)->Unit(benchmark::kMicrosecond);

static const bool g_pairs = (vardo_bench::addPair("BM_SStackWalk_Later", "BM_Backtrace_Symbols"),
                             vardo_bench::addPair("BM_SStackWalk_First/iterations:20", "BM_Backtrace_Symbols"),
                             true);

VARDO_BENCH_MAIN()
