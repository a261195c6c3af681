// Locale-neutral numbers beside the standard library's locale-free conversions:
// NeutralString::ToNumber against std::from_chars and NeutralString::FromNumber against
// std::to_chars. Both sides read the same prepared texts and format the same values; the
// formatting anchors build an owning UTF-16 string (std::u16string) from to_chars' output,
// as FromNumber returns an owning SWCharString. The buffer-only pairs compare the raw
// formatter StringConvFromInteger with to_chars into the same kind of buffer.
#include <vardo/neutralstr.h>

#include "ratio.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

const size_t kCount = 1024;

SWCharString wide(const std::string& s)
{
    SWCharString w;
    w.concatFromAscii(s.data(), static_cast<unsigned int>(s.size()));
    return w;
}

std::string shortest(double v)
{
    char buf[64];
    const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

// Integers of every length from 1 to 10 digits, both signs.
std::vector<int> intValues()
{
    std::mt19937_64 rng(1);
    std::vector<int> v;
    for (size_t i = 0; i < kCount; ++i) {
        const int x = static_cast<int>(static_cast<uint32_t>(rng()) >> (rng() % 32));
        v.push_back(i % 3 == 0 ? -x : x);
    }
    return v;
}

// long values of every length up to its width, both signs.
std::vector<long> longValues()
{
    std::mt19937_64 rng(2);
    std::vector<long> v;
    for (size_t i = 0; i < kCount; ++i) {
        const long x = static_cast<long>(rng() >> (1 + rng() % (8 * sizeof(long) - 1)));
        v.push_back(i % 3 == 0 ? -x : x);
    }
    return v;
}

// Doubles as configuration files hold them: amounts with two decimals, measurements of
// full precision in a human range, whole numbers.
std::vector<double> typicalDoubles()
{
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> wideRange(-1e6, 1e6);
    std::vector<double> v;
    for (size_t i = 0; i < kCount; ++i) {
        switch (i % 3) {
        case 0: v.push_back(static_cast<double>(static_cast<long long>(rng() % 10000000)) / 100.0); break;
        case 1: v.push_back(wideRange(rng)); break;
        default: v.push_back(static_cast<double>(static_cast<long long>(rng() % 100000))); break;
        }
    }
    return v;
}

// Random bit patterns above the parser's exponent floor: 17 digits, exponents everywhere.
std::vector<double> randomDoubles()
{
    std::mt19937_64 rng(4);
    std::vector<double> v;
    while (v.size() < kCount) {
        const uint64_t b = rng();
        double d;
        std::memcpy(&d, &b, sizeof d);
        if (std::isfinite(d) && std::fabs(d) >= 1e-292)
            v.push_back(d);
    }
    return v;
}

template <class T>
std::vector<std::string> texts(const std::vector<T>& values)
{
    std::vector<std::string> t;
    for (T x : values) {
        if constexpr (std::is_floating_point<T>::value)
            t.push_back(shortest(x));
        else
            t.push_back(std::to_string(x));
    }
    return t;
}

std::vector<SWCharString> wideTexts(const std::vector<std::string>& t)
{
    std::vector<SWCharString> w;
    for (const std::string& s : t)
        w.push_back(wide(s));
    return w;
}

// ---- parsing ----------------------------------------------------------------------------------

void BM_ToNumberInt(benchmark::State& state)
{
    const std::vector<SWCharString> in = wideTexts(texts(intValues()));
    size_t i = 0;
    for (auto _ : state) {
        int v;
        benchmark::DoNotOptimize(NeutralString::ToNumber(in[i++ % kCount], v));
        benchmark::DoNotOptimize(v);
    }
}
BENCHMARK(BM_ToNumberInt);

void BM_FromCharsInt(benchmark::State& state)
{
    const std::vector<std::string> in = texts(intValues());
    size_t i = 0;
    for (auto _ : state) {
        const std::string& s = in[i++ % kCount];
        int v;
        benchmark::DoNotOptimize(std::from_chars(s.data(), s.data() + s.size(), v));
        benchmark::DoNotOptimize(v);
    }
}
BENCHMARK(BM_FromCharsInt);

template <std::vector<double> (*Values)()>
void BM_ToNumberDouble(benchmark::State& state)
{
    const std::vector<SWCharString> in = wideTexts(texts(Values()));
    size_t i = 0;
    for (auto _ : state) {
        double v;
        benchmark::DoNotOptimize(NeutralString::ToNumber(in[i++ % kCount], v));
        benchmark::DoNotOptimize(v);
    }
}

template <std::vector<double> (*Values)()>
void BM_FromCharsDouble(benchmark::State& state)
{
    const std::vector<std::string> in = texts(Values());
    size_t i = 0;
    for (auto _ : state) {
        const std::string& s = in[i++ % kCount];
        double v;
        benchmark::DoNotOptimize(std::from_chars(s.data(), s.data() + s.size(), v));
        benchmark::DoNotOptimize(v);
    }
}
BENCHMARK(BM_ToNumberDouble<typicalDoubles>)->Name("BM_ToNumberDoubleTypical");
BENCHMARK(BM_FromCharsDouble<typicalDoubles>)->Name("BM_FromCharsDoubleTypical");
BENCHMARK(BM_ToNumberDouble<randomDoubles>)->Name("BM_ToNumberDoubleRandom");
BENCHMARK(BM_FromCharsDouble<randomDoubles>)->Name("BM_FromCharsDoubleRandom");

// ---- formatting -------------------------------------------------------------------------------

std::u16string u16(const char* p, const char* e)
{
    std::u16string s;
    s.resize(static_cast<size_t>(e - p));
    for (size_t k = 0; p + k < e; ++k)
        s[k] = static_cast<char16_t>(p[k]);
    return s;
}

void BM_FromNumberLong(benchmark::State& state)
{
    const std::vector<long> in = longValues();
    size_t i = 0;
    for (auto _ : state) {
        SWCharString s = NeutralString::FromNumber(in[i++ % kCount]);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_FromNumberLong);

void BM_ToCharsLong(benchmark::State& state)
{
    const std::vector<long> in = longValues();
    size_t i = 0;
    for (auto _ : state) {
        char buf[32];
        const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, in[i++ % kCount]);
        std::u16string s = u16(buf, r.ptr);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_ToCharsLong);

void BM_StringConvFromIntegerLong(benchmark::State& state)
{
    const std::vector<long> in = longValues();
    size_t i = 0;
    for (auto _ : state) {
        char buf[72];
        benchmark::DoNotOptimize(StringConvFromInteger(buf, in[i++ % kCount], 10));
        benchmark::DoNotOptimize(buf[0]);
    }
}
BENCHMARK(BM_StringConvFromIntegerLong);

void BM_ToCharsLongBuffer(benchmark::State& state)
{
    const std::vector<long> in = longValues();
    size_t i = 0;
    for (auto _ : state) {
        char buf[72];
        const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, in[i++ % kCount]);
        *r.ptr = 0;
        benchmark::DoNotOptimize(r.ptr);
        benchmark::DoNotOptimize(buf[0]);
    }
}
BENCHMARK(BM_ToCharsLongBuffer);

template <std::vector<double> (*Values)()>
void BM_FromNumberDouble(benchmark::State& state)
{
    const std::vector<double> in = Values();
    size_t i = 0;
    for (auto _ : state) {
        SWCharString s = NeutralString::FromNumber(in[i++ % kCount]);
        benchmark::DoNotOptimize(s.data());
    }
}

template <std::vector<double> (*Values)()>
void BM_ToCharsDouble(benchmark::State& state)
{
    const std::vector<double> in = Values();
    size_t i = 0;
    for (auto _ : state) {
        char buf[64];
        const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, in[i++ % kCount]);
        std::u16string s = u16(buf, r.ptr);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_FromNumberDouble<typicalDoubles>)->Name("BM_FromNumberDoubleTypical");
BENCHMARK(BM_ToCharsDouble<typicalDoubles>)->Name("BM_ToCharsDoubleTypical");
BENCHMARK(BM_FromNumberDouble<randomDoubles>)->Name("BM_FromNumberDoubleRandom");
BENCHMARK(BM_ToCharsDouble<randomDoubles>)->Name("BM_ToCharsDoubleRandom");

struct Pairs {
    Pairs()
    {
        vardo_bench::addPair("BM_ToNumberInt", "BM_FromCharsInt");
        vardo_bench::addPair("BM_ToNumberDoubleTypical", "BM_FromCharsDoubleTypical");
        vardo_bench::addPair("BM_ToNumberDoubleRandom", "BM_FromCharsDoubleRandom");
        vardo_bench::addPair("BM_FromNumberLong", "BM_ToCharsLong");
        vardo_bench::addPair("BM_StringConvFromIntegerLong", "BM_ToCharsLongBuffer");
        vardo_bench::addPair("BM_FromNumberDoubleTypical", "BM_ToCharsDoubleTypical");
        vardo_bench::addPair("BM_FromNumberDoubleRandom", "BM_ToCharsDoubleRandom");
    }
} g_pairs;

} // namespace

VARDO_BENCH_MAIN()
