// UTF-16 <-> UTF-8 against ICU (u_strToUTF8, u_strFromUTF8) on four kinds of text of
// about 64 KiB each, plus a plain unit-by-unit converter to show what the runs of ASCII
// gain.
#include "ratio.h"

#include "vardo/UTFConverter.h"

#include <unicode/ustring.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::vector<unsigned short> Units;

// Word-shaped text: words of 2 to 9 letters drawn by pick(), separated by spaces, with
// punctuation and line breaks now and then.
template <class Pick>
Units makeText(unsigned seed, Pick pick, bool spaces = true)
{
    std::mt19937 rng(seed);
    Units u;
    while (u.size() < 32 * 1024) {
        const int len = std::uniform_int_distribution<int>(2, 9)(rng);
        for (int i = 0; i < len; ++i)
            u.push_back(pick(rng));
        const int r = std::uniform_int_distribution<int>(0, 99)(rng);
        if (r < 8)
            u.push_back(spaces ? ',' : 0xFF0C);
        else if (r < 12)
            u.push_back(spaces ? '.' : 0x3002);
        if (r >= 97)
            u.push_back('\n');
        else if (spaces)
            u.push_back(' ');
    }
    return u;
}

unsigned short latin(std::mt19937& rng) { return static_cast<unsigned short>('a' + rng() % 26); }

unsigned short european(std::mt19937& rng)
{
    static const unsigned short accents[] = {0xE9, 0xE8, 0xE0, 0xFC, 0xF6, 0xE4, 0xDF, 0xE7, 0xEA, 0xF1};
    return rng() % 16 == 0 ? accents[rng() % 10] : latin(rng);
}

unsigned short cyrillic(std::mt19937& rng) { return static_cast<unsigned short>(0x430 + rng() % 32); }
unsigned short cjk(std::mt19937& rng) { return static_cast<unsigned short>(0x4E00 + rng() % 0x5000); }

struct Text {
    SWCharString wide;
    std::string utf8;
    Units units;
};

Text build(const Units& u)
{
    Text t;
    t.units = u;
    Units z(u);
    z.push_back(0);
    t.wide.fromUChar(z.data());
    std::vector<unsigned char> buf(t.wide.getNBytesForUTF8() + 1);
    const unsigned int n = t.wide.toUTF8(buf.data(), t.wide.getNBytesForUTF8());
    t.utf8.assign(reinterpret_cast<const char*>(buf.data()), n);
    return t;
}

const Text& text(int kind)
{
    static const Text texts[4] = {build(makeText(1, latin)), build(makeText(2, european)),
                                  build(makeText(3, cyrillic)), build(makeText(4, cjk, false))};
    return texts[kind];
}

// ---- a plain per-character converter, the baseline for the runs of ASCII ------------------------

size_t unitLoopToUtf8(const unsigned short* s, size_t n, unsigned char* t)
{
    unsigned char* const start = t;
    for (size_t i = 0; i < n; ++i) {
        uint32_t c = s[i];
        if (c < 0x80) {
            *t++ = static_cast<unsigned char>(c);
        } else if (c < 0x800) {
            *t++ = static_cast<unsigned char>(0xC0 | (c >> 6));
            *t++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
        } else {
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
                *t++ = static_cast<unsigned char>(0xF0 | (c >> 18));
                *t++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
            } else {
                *t++ = static_cast<unsigned char>(0xE0 | (c >> 12));
            }
            *t++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            *t++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
        }
    }
    return static_cast<size_t>(t - start);
}

size_t unitLoopFromUtf8(const unsigned char* s, size_t n, unsigned short* t)
{
    unsigned short* const start = t;
    size_t i = 0;
    while (i < n) {
        const uint32_t b = s[i];
        if (b < 0x80) {
            *t++ = static_cast<unsigned short>(b);
            ++i;
        } else if (b < 0xE0 && i + 1 < n) {
            *t++ = static_cast<unsigned short>(((b & 0x1F) << 6) | (s[i + 1] & 0x3F));
            i += 2;
        } else if (b < 0xF0 && i + 2 < n) {
            *t++ = static_cast<unsigned short>(((b & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F));
            i += 3;
        } else {
            return SIZE_MAX; // not in these texts
        }
    }
    return static_cast<size_t>(t - start);
}

// ---- the benchmarks ------------------------------------------------------------------------------------

void setBytes(benchmark::State& state, const Text& t, bool fromUtf16)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(fromUtf16 ? t.units.size() * 2 : t.utf8.size()));
}

void oursToUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    const unsigned int size = t.wide.getNBytesForUTF8();
    std::vector<unsigned char> out(size + 1);
    for (auto _ : state) {
        const unsigned int n = t.wide.toUTF8(out.data(), size);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, true);
}

void icuToUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    std::vector<char> out(t.wide.getNBytesForUTF8() + 1);
    const UChar* src = reinterpret_cast<const UChar*>(t.units.data());
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t len = 0;
        u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &len, src, static_cast<int32_t>(t.units.size()), &err);
        benchmark::DoNotOptimize(len);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, true);
}

void bmUnitLoopToUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    std::vector<unsigned char> out(3 * t.units.size() + 1);
    for (auto _ : state) {
        const size_t n = unitLoopToUtf8(t.units.data(), t.units.size(), out.data());
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, true);
}

void oursFromUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    const unsigned char* src = reinterpret_cast<const unsigned char*>(t.utf8.data());
    SWCharString s;
    for (auto _ : state) {
        const bool ok = s.fromUTF8(src, static_cast<unsigned int>(t.utf8.size()));
        benchmark::DoNotOptimize(ok);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, false);
}

// The converter step alone, into a buffer kept between iterations (what ICU does).
void oursRawFromUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    std::vector<unsigned short> out(t.utf8.size() + 1);
    const unsigned char* src = reinterpret_cast<const unsigned char*>(t.utf8.data());
    for (auto _ : state) {
        const unsigned char* s = src;
        unsigned short* d = out.data();
        const ConversionResult r = ConvertUTF8toUTF16(&s, src + t.utf8.size(), &d, out.data() + out.size(), lenientConversion);
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, false);
}

void icuFromUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    std::vector<UChar> out(t.utf8.size() + 1);
    for (auto _ : state) {
        UErrorCode err = U_ZERO_ERROR;
        int32_t len = 0;
        u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &len, t.utf8.data(),
                      static_cast<int32_t>(t.utf8.size()), &err);
        benchmark::DoNotOptimize(len);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, false);
}

void bmUnitLoopFromUtf8(benchmark::State& state, int kind)
{
    const Text& t = text(kind);
    std::vector<unsigned short> out(t.utf8.size() + 1);
    for (auto _ : state) {
        const size_t n = unitLoopFromUtf8(reinterpret_cast<const unsigned char*>(t.utf8.data()), t.utf8.size(), out.data());
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
    setBytes(state, t, false);
}

const char* const kNames[4] = {"ASCII", "European", "Cyrillic", "CJK"};

int registerAll()
{
    for (int k = 0; k < 4; ++k) {
        const std::string n = kNames[k];
        benchmark::RegisterBenchmark(("BM_Ours_ToUTF8_" + n).c_str(), oursToUtf8, k);
        benchmark::RegisterBenchmark(("BM_ICU_ToUTF8_" + n).c_str(), icuToUtf8, k);
        benchmark::RegisterBenchmark(("BM_Ours_FromUTF8_" + n).c_str(), oursFromUtf8, k);
        benchmark::RegisterBenchmark(("BM_OursRaw_FromUTF8_" + n).c_str(), oursRawFromUtf8, k);
        benchmark::RegisterBenchmark(("BM_ICU_FromUTF8_" + n).c_str(), icuFromUtf8, k);
        vardo_bench::addPair(("BM_Ours_ToUTF8_" + n).c_str(), ("BM_ICU_ToUTF8_" + n).c_str());
        vardo_bench::addPair(("BM_Ours_FromUTF8_" + n).c_str(), ("BM_ICU_FromUTF8_" + n).c_str());
        vardo_bench::addPair(("BM_OursRaw_FromUTF8_" + n).c_str(), ("BM_ICU_FromUTF8_" + n).c_str());
    }
    benchmark::RegisterBenchmark("BM_UnitLoop_ToUTF8_ASCII", bmUnitLoopToUtf8, 0);
    benchmark::RegisterBenchmark("BM_UnitLoop_FromUTF8_ASCII", bmUnitLoopFromUtf8, 0);
    vardo_bench::addPair("BM_Ours_ToUTF8_ASCII", "BM_UnitLoop_ToUTF8_ASCII");
    vardo_bench::addPair("BM_Ours_FromUTF8_ASCII", "BM_UnitLoop_FromUTF8_ASCII");
    return 0;
}

const int registered = registerAll();

} // namespace

VARDO_BENCH_MAIN()
