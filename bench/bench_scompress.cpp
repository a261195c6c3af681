// SCompression beside zlib itself and gzip.
//
// Buffers: compress_buffer / decompress_buffer of 1 MiB of text and of random bytes at
// level 3, each beside zlib's compress2 / uncompress doing the same work (output buffer
// allocated and freed on every call, as a caller of either has to).
// Files: compress_file of a 100 MiB file at level 3 beside "gzip -3" on the same file
// (both write a gzip file into the same temporary folder); measured in wall time, since
// gzip runs as a child process, and printed as a line of its own after the ratios.
#include "vardo/scompress.h"

#include "ratio.h"

#include <zlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;
typedef std::vector<unsigned char> Bytes;

namespace {

const int kLevel = 3;

// Text-like bytes: words from a small vocabulary with numbers, about 3:1 under deflate.
Bytes text(size_t size, uint32_t seed)
{
    static const char* const words[] = {"revenue ", "region ", "quarter ", "total ", "cube ", "metric ",
                                        "server ", "report\n", "north ", "south ", "= ", ", "};
    std::mt19937 rng(seed);
    Bytes out;
    out.reserve(size);
    while (out.size() < size) {
        const char* w = words[rng() % 12];
        for (; *w && out.size() < size; ++w)
            out.push_back(static_cast<unsigned char>(*w));
        if (rng() % 4 == 0) {
            std::string n = std::to_string(rng() % 100000) + " ";
            for (char c : n)
                if (out.size() < size)
                    out.push_back(static_cast<unsigned char>(c));
        }
    }
    return out;
}

Bytes noise(size_t size)
{
    std::mt19937 rng(99);
    Bytes out(size);
    for (auto& b : out)
        b = static_cast<unsigned char>(rng());
    return out;
}

const Bytes& input(bool random)
{
    static const Bytes t = text(1 << 20, 1), r = noise(1 << 20);
    return random ? r : t;
}

const Bytes& packed(bool random)
{
    static Bytes p[2];
    Bytes& out = p[random ? 1 : 0];
    if (out.empty()) {
        unsigned char* buf = nullptr;
        unsigned long n = 0;
        const Bytes& in = input(random);
        SCompression::compress_buffer(in.data(), static_cast<unsigned long>(in.size()), &buf, n, kLevel);
        out.assign(buf, buf + n);
        SCompression::free_buffer(buf);
    }
    return out;
}

void ours_compress(benchmark::State& state, bool random)
{
    const Bytes& in = input(random);
    for (auto _ : state) {
        unsigned char* out = nullptr;
        unsigned long n = 0;
        if (SCompression::compress_buffer(in.data(), static_cast<unsigned long>(in.size()), &out, n, kLevel) != 0)
            state.SkipWithError("compress_buffer failed");
        benchmark::DoNotOptimize(out);
        SCompression::free_buffer(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.size()));
}

void zlib_compress(benchmark::State& state, bool random)
{
    const Bytes& in = input(random);
    for (auto _ : state) {
        uLongf n = compressBound(static_cast<uLong>(in.size()));
        unsigned char* out = static_cast<unsigned char*>(std::malloc(n));
        if (compress2(out, &n, in.data(), static_cast<uLong>(in.size()), kLevel) != Z_OK)
            state.SkipWithError("compress2 failed");
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.size()));
}

void ours_decompress(benchmark::State& state, bool random)
{
    const Bytes& in = packed(random);
    for (auto _ : state) {
        unsigned char* out = nullptr;
        unsigned long n = 0;
        if (SCompression::decompress_buffer(in.data(), static_cast<unsigned long>(in.size()), &out, n) != 0)
            state.SkipWithError("decompress_buffer failed");
        benchmark::DoNotOptimize(out);
        SCompression::free_buffer(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
}

void zlib_uncompress(benchmark::State& state, bool random)
{
    const Bytes& in = packed(random);
    for (auto _ : state) {
        uLongf n = 1 << 20;
        unsigned char* out = static_cast<unsigned char*>(std::malloc(n));
        if (uncompress(out, &n, in.data() + 4, static_cast<uLong>(in.size() - 4)) != Z_OK)
            state.SkipWithError("uncompress failed");
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
}

void BM_CompressBufferText(benchmark::State& s) { ours_compress(s, false); }
void BM_Compress2Text(benchmark::State& s) { zlib_compress(s, false); }
void BM_CompressBufferRandom(benchmark::State& s) { ours_compress(s, true); }
void BM_Compress2Random(benchmark::State& s) { zlib_compress(s, true); }
void BM_DecompressBufferText(benchmark::State& s) { ours_decompress(s, false); }
void BM_UncompressText(benchmark::State& s) { zlib_uncompress(s, false); }
void BM_DecompressBufferRandom(benchmark::State& s) { ours_decompress(s, true); }
void BM_UncompressRandom(benchmark::State& s) { zlib_uncompress(s, true); }

BENCHMARK(BM_CompressBufferText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Compress2Text)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompressBufferRandom)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Compress2Random)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecompressBufferText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UncompressText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecompressBufferRandom)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UncompressRandom)->Unit(benchmark::kMillisecond);

const bool g_pairs = (vardo_bench::addPair("BM_CompressBufferText", "BM_Compress2Text"),
                      vardo_bench::addPair("BM_CompressBufferRandom", "BM_Compress2Random"),
                      vardo_bench::addPair("BM_DecompressBufferText", "BM_UncompressText"),
                      vardo_bench::addPair("BM_DecompressBufferRandom", "BM_UncompressRandom"), true);

// ---- 100 MiB file against gzip -3 ------------------------------------------------------------

double seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

void compareWithGzip(int rounds)
{
    std::random_device rd;
    const fs::path dir = fs::temp_directory_path() / ("vardo_bench_gzip_" + std::to_string(rd()));
    fs::create_directories(dir);
    const fs::path file = dir / "data";
    {
        std::ofstream out(file, std::ios::binary);
        for (int i = 0; i < 100; ++i) {
            Bytes piece = text(1 << 20, static_cast<uint32_t>(i + 10));
            out.write(reinterpret_cast<const char*>(piece.data()), static_cast<std::streamsize>(piece.size()));
        }
    }
    const std::string path = file.string();
    SWCharString source;
    source.fromUTF8(reinterpret_cast<const unsigned char*>(path.c_str()));
    const SAnsiString target((path + ".ours.gz").c_str());
    const std::string gzipCommand = "gzip -3 -c '" + path + "' > '" + path + ".gzip.gz'";

    double ours = 1e30, gzip = 1e30;
    for (int i = 0; i < rounds; ++i) {
        auto t0 = std::chrono::steady_clock::now();
        if (SCompression::compress_file(source, target, kLevel) != 0)
            std::printf("compress_file failed\n");
        ours = std::min(ours, seconds(t0));
        t0 = std::chrono::steady_clock::now();
        if (std::system(gzipCommand.c_str()) != 0)
            std::printf("gzip failed\n");
        gzip = std::min(gzip, seconds(t0));
    }
    std::printf("file compress_file 100 MiB level 3: %.3f s (%llu bytes); gzip -3: %.3f s (%llu bytes); "
                "ratio %.3f (best of %d, wall time)\n",
                ours, static_cast<unsigned long long>(fs::file_size(path + ".ours.gz")), gzip,
                static_cast<unsigned long long>(fs::file_size(path + ".gzip.gz")), ours / gzip, rounds);
    std::error_code ec;
    fs::remove_all(dir, ec);
}

} // namespace

int main(int argc, char** argv)
{
    const int rc = vardo_bench::runAndReport(argc, argv);
    compareWithGzip(3);
    return rc;
}
