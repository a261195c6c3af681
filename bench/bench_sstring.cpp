// SWCharString against std::u16string: copy, append, find, equal-length compare.
#include <vardo/sstring.h>

#include "ratio.h"

#include <string>

using namespace Vardo400;

namespace {

std::u16string text(size_t n, unsigned seed)
{
    std::u16string s;
    s.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        s.push_back(static_cast<char16_t>(u'a' + (seed >> 16) % 26));
    }
    return s;
}

const unsigned short* U(const std::u16string& s) { return reinterpret_cast<const unsigned short*>(s.c_str()); }

void BM_SWCharString_Copy1K(benchmark::State& st)
{
    SWCharString s(U(text(512, 1)));
    for (auto _ : st) {
        SWCharString c(s);
        benchmark::DoNotOptimize(c.data());
    }
}
void BM_u16string_Copy1K(benchmark::State& st)
{
    std::u16string s = text(512, 1);
    for (auto _ : st) {
        std::u16string c(s);
        benchmark::DoNotOptimize(c.data());
    }
}

void BM_SWCharString_AppendChar1M(benchmark::State& st)
{
    for (auto _ : st) {
        SWCharString s;
        for (int i = 0; i < 1000000; ++i)
            s += SWChar(static_cast<unsigned short>('a' + (i & 15)));
        benchmark::DoNotOptimize(s.data());
    }
}
void BM_u16string_AppendChar1M(benchmark::State& st)
{
    for (auto _ : st) {
        std::u16string s;
        for (int i = 0; i < 1000000; ++i)
            s += static_cast<char16_t>(u'a' + (i & 15));
        benchmark::DoNotOptimize(s.data());
    }
}

const std::u16string& haystack()
{
    static std::u16string h = text(512 * 1024, 2) + u"needle-at-the-end";
    return h;
}
void BM_SWCharString_Find1M(benchmark::State& st)
{
    SWCharString h(U(haystack()));
    SWCharString n(U(std::u16string(u"needle-at-the-end")));
    for (auto _ : st)
        benchmark::DoNotOptimize(h.find(n));
}
void BM_u16string_Find1M(benchmark::State& st)
{
    std::u16string h = haystack();
    std::u16string n = u"needle-at-the-end";
    for (auto _ : st)
        benchmark::DoNotOptimize(h.find(n));
}

void BM_SWCharString_CompareFast1K(benchmark::State& st)
{
    SWCharString a(U(text(512, 3))), b(U(text(512, 3)));
    for (auto _ : st)
        benchmark::DoNotOptimize(a.compareFast(b));
}
void BM_u16string_Compare1K(benchmark::State& st)
{
    std::u16string a = text(512, 3), b = text(512, 3);
    for (auto _ : st)
        benchmark::DoNotOptimize(a.compare(b));
}

BENCHMARK(BM_SWCharString_Copy1K);
BENCHMARK(BM_u16string_Copy1K);
BENCHMARK(BM_SWCharString_AppendChar1M)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_u16string_AppendChar1M)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SWCharString_Find1M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_u16string_Find1M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SWCharString_CompareFast1K);
BENCHMARK(BM_u16string_Compare1K);

const bool registered = [] {
    vardo_bench::addPair("BM_SWCharString_Copy1K", "BM_u16string_Copy1K");
    vardo_bench::addPair("BM_SWCharString_AppendChar1M", "BM_u16string_AppendChar1M");
    vardo_bench::addPair("BM_SWCharString_Find1M", "BM_u16string_Find1M");
    vardo_bench::addPair("BM_SWCharString_CompareFast1K", "BM_u16string_Compare1K");
    return true;
}();

} // namespace

VARDO_BENCH_MAIN()
