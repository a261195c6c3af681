// SFile::readLine by blocks against the byte-at-a-time rule it replaces, on a 100 MB file
// of short lines (generated in a temporary folder and deleted at exit).
//
// BM_ReadLineBlocked and BM_ReadLineByteAtATime read the same first megabyte of lines
// (the byte rule costs seven system calls a byte, so a whole pass would take minutes);
// BM_ReadLineWholeFile reads all 100 MB by blocks.
#include "vardo/sfile.h"

#include "ratio.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

const int64_t kFileBytes = 100LL * 1024 * 1024;
const int64_t kPairBytes = 1024 * 1024;

class ByteRuleFile : public SFile {
public:
    using SFile::SFile;
    SWCharString lineByBytes() { return readLineByteByByte(); }
};

// The test file, made on first use and removed when the program ends.
class LinesFile {
public:
    LinesFile()
    {
        std::random_device rd;
        m_dir = fs::temp_directory_path() / ("vardo_bench_readline_" + std::to_string(rd()));
        fs::create_directories(m_dir);
        fs::path file = m_dir / "lines.txt";
        std::mt19937 rng(12345);
        std::ofstream out(file, std::ios::binary);
        std::string chunk;
        int64_t written = 0;
        while (written < kFileBytes) {
            chunk.clear();
            while (chunk.size() < (1 << 20)) {
                size_t n = 8 + rng() % 48;
                for (size_t i = 0; i < n; ++i)
                    chunk.push_back(static_cast<char>('a' + rng() % 26));
                if (rng() % 8 == 0)
                    chunk.push_back('\r');
                chunk.push_back('\n');
            }
            out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
            written += static_cast<int64_t>(chunk.size());
        }
        auto u8 = file.u8string();
        std::string s(u8.begin(), u8.end());
        m_path.fromUTF8(reinterpret_cast<const unsigned char*>(s.c_str()));
        m_bytes = written;
    }
    ~LinesFile()
    {
        std::error_code ec;
        fs::remove_all(m_dir, ec);
    }
    const SWCharString& path() const { return m_path; }
    int64_t bytes() const { return m_bytes; }

private:
    fs::path m_dir;
    SWCharString m_path;
    int64_t m_bytes = 0;
};

const LinesFile& linesFile()
{
    static LinesFile file;
    return file;
}

template <bool ByBytes>
void readLines(benchmark::State& state, int64_t limit)
{
    const LinesFile& lf = linesFile();
    int64_t lines = 0;
    for (auto _ : state) {
        ByteRuleFile f(lf.path(), SFile::readOnly, 0, SFile::denyNothing);
        while (f.getPositionEx() < limit) {
            SWCharString line = ByBytes ? f.lineByBytes() : f.readLine();
            benchmark::DoNotOptimize(line.getLength());
            ++lines;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * limit);
    state.counters["lines"] = benchmark::Counter(static_cast<double>(lines), benchmark::Counter::kAvgIterations);
}

void BM_ReadLineBlocked(benchmark::State& state) { readLines<false>(state, kPairBytes); }
void BM_ReadLineByteAtATime(benchmark::State& state) { readLines<true>(state, kPairBytes); }
void BM_ReadLineWholeFile(benchmark::State& state) { readLines<false>(state, linesFile().bytes()); }

BENCHMARK(BM_ReadLineBlocked)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLineByteAtATime)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLineWholeFile)->Unit(benchmark::kMillisecond);

const bool g_pairs = (vardo_bench::addPair("BM_ReadLineBlocked", "BM_ReadLineByteAtATime"), true);

} // namespace

VARDO_BENCH_MAIN()
