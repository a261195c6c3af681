// Helpers for benchmarks that run our code beside an anchor and print the ratio.
#ifndef VARDO_BENCH_RATIO_H
#define VARDO_BENCH_RATIO_H

#include <benchmark/benchmark.h>

namespace vardo_bench {

// Runs the registered benchmarks, then prints "ratio NAME: ours/anchor" for every pair
// registered with addPair (benchmark names without arguments).
int runAndReport(int argc, char** argv);
void addPair(const char* ours, const char* anchor);

} // namespace vardo_bench

#define VARDO_BENCH_MAIN()                                                                \
    int main(int argc, char** argv) { return vardo_bench::runAndReport(argc, argv); }

#endif
