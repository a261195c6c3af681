// is_alpha / is_punct over 16-bit text against ICU's u_isalpha / u_ispunct.
#include <vardo/schar.h>

#include "ratio.h"

#include <unicode/uchar.h>

#include <vector>

using namespace Vardo400;

namespace {

// Mixed text: a third ASCII, the rest spread over Latin, Greek, Cyrillic, CJK and
// Hangul, so the table search runs at full depth most of the time.
std::vector<unsigned short> mixedText()
{
    std::vector<unsigned short> v;
    unsigned int seed = 7;
    static const unsigned short bases[] = {0x0020, 0x00C0, 0x0391, 0x0410, 0x3001, 0x4E00, 0xAC00, 0x2010};
    for (int i = 0; i < 4096; ++i) {
        seed = seed * 1103515245u + 12345u;
        unsigned int b = (seed >> 16) % 8;
        unsigned short base = (b < 3) ? 0x0020 : bases[b];
        v.push_back(static_cast<unsigned short>(base + (seed >> 8) % 0x5F));
    }
    return v;
}

const std::vector<unsigned short>& text()
{
    static const std::vector<unsigned short> t = mixedText();
    return t;
}

void BM_is_alpha(benchmark::State& st)
{
    const std::vector<unsigned short>& t = text();
    for (auto _ : st) {
        unsigned int n = 0;
        for (unsigned short c : t)
            n += is_alpha(c) + is_punct(c);
        benchmark::DoNotOptimize(n);
    }
    st.SetItemsProcessed(st.iterations() * t.size());
}

void BM_u_isalpha(benchmark::State& st)
{
    const std::vector<unsigned short>& t = text();
    for (auto _ : st) {
        unsigned int n = 0;
        for (unsigned short c : t)
            n += u_isalpha(c) + u_ispunct(c);
        benchmark::DoNotOptimize(n);
    }
    st.SetItemsProcessed(st.iterations() * t.size());
}

} // namespace

BENCHMARK(BM_is_alpha);
BENCHMARK(BM_u_isalpha);

static const bool s_pairs = (vardo_bench::addPair("BM_is_alpha", "BM_u_isalpha"), true);

VARDO_BENCH_MAIN()
