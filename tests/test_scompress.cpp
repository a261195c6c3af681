// SCompression: the buffer format and its results, the tuning integer, byte-for-byte
// agreement with zlib itself, interoperability with gzip, and bad or cut files.
#include "vardo/scompress.h"
#include "vardo/simplebuffer.h"

#include "assert_capture.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;
typedef std::vector<unsigned char> Bytes;

namespace {

using vardo_test::W;

// Text-like bytes (words from a small vocabulary, about 3:1 under deflate), or noise.
Bytes sample(size_t size, uint32_t seed = 1, bool noise = false)
{
    static const char* const words[] = {"alpha ", "report ", "server ", "quarter ", "revenue ", "cube ",
                                        "metric\n", "2026 ", "total ", "region ", "Z\t", "ok "};
    std::mt19937 rng(seed);
    std::string out;
    while (out.size() < size)
        out += noise ? std::string(1, static_cast<char>(rng() >> 24)) : words[rng() % 12];
    return Bytes(out.begin(), out.begin() + size);
}

// Compresses with the raw form; an empty result on failure.
SCompression::ErrCode pack(const Bytes& in, Bytes& out, int level = SCompression::SC_DEFAULT_COMPRESSION,
                           int memLevel = SCompression::SC_DEFAULTZL_MEMORY_LEVEL)
{
    unsigned char* p = nullptr;
    unsigned long n = 0;
    SCompression::ErrCode rc = SCompression::compress_buffer(in.empty() ? nullptr : in.data(),
                                                             static_cast<unsigned long>(in.size()), &p, n, level,
                                                             memLevel);
    out.assign(p, p + (p ? n : 0));
    SCompression::free_buffer(p);
    return rc;
}

SCompression::ErrCode unpack(const Bytes& in, Bytes& out)
{
    unsigned char* p = nullptr;
    unsigned long n = 0;
    SCompression::ErrCode rc =
        SCompression::decompress_buffer(in.data(), static_cast<unsigned long>(in.size()), &p, n);
    EXPECT_TRUE(rc == SCompression::success || (p == nullptr && n == 0)) << "failure leaves no result";
    out.assign(p, p + (p ? n : 0));
    SCompression::free_buffer(p);
    return rc;
}

// The reference: zlib itself with the memory level in deflateInit2, framed.
Bytes reference(const Bytes& in, int level, int memLevel)
{
    z_stream s;
    std::memset(&s, 0, sizeof s);
    EXPECT_EQ(Z_OK, deflateInit2(&s, level, Z_DEFLATED, MAX_WBITS, memLevel, Z_DEFAULT_STRATEGY));
    Bytes out(deflateBound(&s, in.size()) + 4);
    s.next_in = const_cast<Bytef*>(in.data());
    s.avail_in = static_cast<uInt>(in.size());
    s.next_out = out.data() + 4;
    s.avail_out = static_cast<uInt>(out.size() - 4);
    EXPECT_EQ(Z_STREAM_END, deflate(&s, Z_FINISH));
    out.resize(4 + s.total_out);
    deflateEnd(&s);
    const uint32_t n = static_cast<uint32_t>(in.size());
    out[0] = n >> 24, out[1] = (n >> 16) & 0xFF, out[2] = (n >> 8) & 0xFF, out[3] = n & 0xFF;
    return out;
}

// (level, strategy) pairs for compress_file: every edge of both ranges and each strategy.
const std::pair<int, int> kFileSettings[] = {{-1, 0}, {0, 3}, {1, 3}, {3, 1}, {9, 2}, {9, 3}, {9, 4}};

class SCompressionFiles : public ::testing::Test {
protected:
    fs::path at(const std::string& name) const { return m_tmp.path / name; }
    void writeFile(const std::string& name, const Bytes& data) const { m_tmp.write(name, data); }
    Bytes readFile(const std::string& name) const { return m_tmp.read<Bytes>(name); }
    SWCharString w(const std::string& name) const { return W(m_tmp.str(name)); }
    SAnsiString a(const std::string& name) const { return SAnsiString(m_tmp.str(name).c_str()); }

    vardo_test::TempDir m_tmp{"vardo_zip_"};
};

// Interop with the gzip program runs natively only (Wine cannot start it); round trips run everywhere.
class SCompressionGzip : public SCompressionFiles {
protected:
    void SetUp() override
    {
        if (vardo_test::onWindows() || !fs::exists("/bin/gzip"))
            GTEST_SKIP() << "runs natively on Linux only, with /bin/gzip";
    }
    std::string q(const std::string& name) const { return "'" + m_tmp.str(name) + "'"; }
    // True when the shell command line ran and exited with 0.
    bool run(const std::string& command) { return std::system(command.c_str()) == 0; }
};

} // namespace

TEST(SCompression, Crc32AndAllocation)
{
    const unsigned char digits[] = "123456789";
    EXPECT_EQ(0xCBF43926ul, SCompression::crc32(SCompression::crc32(0, digits, 4), digits + 4, 5));

    unsigned char* p = SCompression::alloc_buffer(0);
    EXPECT_NE(nullptr, p);
    SCompression::free_buffer(p);
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(nullptr, SCompression::alloc_buffer(-1));
}

TEST(SCompression, BufferFormatAndRoundTrips)
{
    Bytes in = sample(1000), packed;
    ASSERT_EQ(SCompression::success, pack(in, packed));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x03, 0xE8}), Bytes(packed.begin(), packed.begin() + 4));
    EXPECT_EQ(packed, reference(in, 3, 8)) << "level 3 and memory level 8 by default";
    // zlib's default marker passes through; one byte, the smallest input.
    ASSERT_EQ(SCompression::success, pack(Bytes(1, 'x'), packed, -1));
    EXPECT_EQ(packed, reference(Bytes(1, 'x'), -1, 8));

    // Simple buffers and ASCII strings; the target's old content is replaced.
    SSimpleBuffer src(in.data(), in.size()), zipped(Bytes(10, 'q').data(), 10), plain;
    ASSERT_EQ(SCompression::success, SCompression::compress_buffer(src, zipped));
    EXPECT_EQ(reference(in, 3, 8), Bytes(zipped.data(), zipped.data() + zipped.size()));
    ASSERT_EQ(SCompression::success, SCompression::decompress_buffer(zipped, plain));
    EXPECT_TRUE(plain == src);
    SAsciiString text("The quarter's revenue, region by region, region by region.");
    ASSERT_EQ(SCompression::success, SCompression::compress_buffer(text, zipped, 9, 4));
    SAsciiString textBack("old");
    ASSERT_EQ(SCompression::success, SCompression::decompress_buffer(zipped, textBack));
    EXPECT_EQ(text, textBack);
    // Bytes a string cannot hold: refused, the string kept.
    const Bytes binary = {'a', 'b', 0, 'c'};
    ASSERT_EQ(SCompression::success,
              SCompression::compress_buffer(SSimpleBuffer(binary.data(), binary.size()), zipped));
    EXPECT_EQ(SCompression::zlibError, SCompression::decompress_buffer(zipped, textBack));
    EXPECT_EQ(text, textBack);
}

TEST(SCompression, InvalidArgumentsAssertAndFail)
{
    vardo_test::AssertCapture capture;
    const unsigned char byte = 'x';
    unsigned char* p = nullptr;
    unsigned long n = 99;
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_buffer(nullptr, 1, &p, n));
    EXPECT_EQ(0ul, n);
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_buffer(&byte, 0, &p, n));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_buffer(&byte, 1, nullptr, n));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_buffer(nullptr, 8, &p, n));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_buffer(&byte, 1, &p, n));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(std::vector<std::string>(5, "false"), vardo_test::AssertCapture::seen());

    // Empty simple buffers and strings are zero lengths; the target stays as it was.
    SSimpleBuffer empty, target("keep", 4);
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_buffer(empty, target));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_buffer(SAsciiString(), target));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_buffer(empty, target));
    EXPECT_TRUE(target == SSimpleBuffer("keep", 4));
    // No assertion on success: a valid call raises none.
    vardo_test::AssertCapture::seen().clear();
    EXPECT_EQ(SCompression::success, SCompression::compress_buffer(SAsciiString("abc"), target));
    EXPECT_TRUE(vardo_test::AssertCapture::seen().empty());
}

// The second integer is zlib's memLevel: the output equals deflateInit2 with that memory
// level, byte for byte, over its whole range; outside it zlib refuses (-3). Memory level 1
// on noise needs more than length * 1.001 + 13: the output is sized by zlib's bound.
TEST(SCompression, SecondIntegerIsTheMemoryLevel)
{
    const Bytes text = sample(300000, 3), noise = sample(100000, 7, true);
    Bytes packed;
    for (int memLevel : {1, 2, 5, 9}) {
        for (int level : {0, 1, 3, 9}) {
            for (const Bytes* data : {&text, &noise}) {
                ASSERT_EQ(SCompression::success, pack(*data, packed, level, memLevel)) << level << "/" << memLevel;
                EXPECT_EQ(reference(*data, level, memLevel), packed) << level << "/" << memLevel;
            }
        }
    }
    // Edges of the memory level and of the level: refused by zlib, nothing returned.
    const std::pair<int, int> refused[] = {{3, 0}, {3, 10}, {-2, 8}, {10, 8}};
    for (auto [level, memLevel] : refused) {
        EXPECT_EQ(SCompression::zlibError, pack(text, packed, level, memLevel)) << level << "/" << memLevel;
        EXPECT_TRUE(packed.empty());
    }
}

TEST(SCompression, BadBuffersAreRefused)
{
    const Bytes in = sample(5000);
    Bytes packed, back;
    ASSERT_EQ(SCompression::success, pack(in, packed));

    // A changed stream byte: a data error (or a check-value mismatch).
    for (size_t at : {size_t(4), size_t(5), packed.size() / 2, packed.size() - 1}) {
        Bytes bad = packed;
        bad[at] ^= 0x55;
        EXPECT_EQ(SCompression::zlibError, unpack(bad, back)) << at;
    }
    // A recorded length too small for the data: -1; larger than the data: -3.
    Bytes small = packed;
    small[2] = 0;   // 5000 -> 136
    EXPECT_EQ(SCompression::bufferTooSmall, unpack(small, back));
    Bytes large = packed;
    large[2] += 1;
    EXPECT_EQ(SCompression::zlibError, unpack(large, back));
    // Cut short, or with bytes after the stream.
    EXPECT_EQ(SCompression::zlibError, unpack(Bytes(packed.begin(), packed.end() - 3), back));
    EXPECT_EQ(SCompression::zlibError, unpack(Bytes(packed.begin(), packed.begin() + 4), back));
    Bytes trailing = packed;
    trailing.push_back(0);
    EXPECT_EQ(SCompression::zlibError, unpack(trailing, back));

    // A 4 GB claim on a 30-byte buffer: refused (before any allocation).
    Bytes claim(packed.begin(), packed.begin() + 30);
    claim[0] = claim[1] = claim[2] = claim[3] = 0xFF;
    EXPECT_EQ(SCompression::zlibError, unpack(claim, back));
    // The densest streams zlib makes still pass that limit: 64 MiB of zeros at every level.
    const Bytes zeros(64u << 20, 0);
    for (int level : {1, 3, 9}) {
        ASSERT_EQ(SCompression::success, pack(zeros, packed, level)) << level;
        ASSERT_EQ(SCompression::success, unpack(packed, back)) << level;
        EXPECT_TRUE(back == zeros) << level;
    }
    // A recorded length of 0 with zlib's stream of nothing: an empty result.
    const Bytes nothing = reference(Bytes(), 3, 8);
    ASSERT_EQ(SCompression::success, unpack(nothing, back));
    EXPECT_TRUE(back.empty());
    SSimpleBuffer zipped(nothing.data(), nothing.size()), out("x", 1);
    EXPECT_EQ(SCompression::success, SCompression::decompress_buffer(zipped, out));
    EXPECT_EQ(0u, out.size());
}

TEST_F(SCompressionFiles, FileRoundTripsAndArguments)
{
    const Bytes data = sample(1u << 20, 5);
    writeFile("data", data);
    for (auto [level, strategy] : kFileSettings) {
        const std::string gz = "data" + std::to_string(level) + std::to_string(strategy) + ".gz";
        ASSERT_EQ(SCompression::success, SCompression::compress_file(w("data"), a(gz), level, strategy)) << gz;
        ASSERT_EQ(SCompression::success, SCompression::decompress_file(a(gz), w("back"))) << gz;
        EXPECT_TRUE(readFile("back") == data) << gz;
    }
    EXPECT_LT(fs::file_size(at("data13.gz")), fs::file_size(at("data03.gz"))) << "level 0 stores";
    EXPECT_LT(fs::file_size(at("data31.gz")), fs::file_size(at("data92.gz"))) << "Huffman codes alone do less";

    // An empty file compresses to a valid gzip file of nothing and back.
    writeFile("empty", Bytes());
    ASSERT_EQ(SCompression::success, SCompression::compress_file(w("empty"), a("empty.gz")));
    ASSERT_EQ(SCompression::success, SCompression::decompress_file(a("empty.gz"), w("empty.out")));
    EXPECT_EQ(0u, fs::file_size(at("empty.out")));

    // A UTF-16 name with characters beyond Latin-1, on the library's UTF-16 side.
    const std::string name = "r\xC3\xA9sum\xC3\xA9 \xE2\x82\xAC \xE6\x97\xA5.txt";
    writeFile(name, data);
    ASSERT_EQ(SCompression::success, SCompression::compress_file(w(name), a("u.gz"), 1));
    ASSERT_EQ(SCompression::success, SCompression::decompress_file(a("u.gz"), w(name + ".back")));
    EXPECT_TRUE(readFile(name + ".back") == data);

    writeFile("gone", data);
    ASSERT_EQ(SCompression::success, SCompression::compress_file(w("gone"), a("gone.gz"), 3, 0, true));
    EXPECT_FALSE(fs::exists(at("gone")));
    ASSERT_EQ(SCompression::success, SCompression::decompress_file(a("gone.gz"), w("gone"), true));
    EXPECT_FALSE(fs::exists(at("gone.gz")));
    EXPECT_TRUE(readFile("gone") == data);

    // Arguments: nothing is created.
    const std::pair<int, int> outOfRange[] = {{10, 0}, {-2, 0}, {3, 5}, {3, -1}};
    for (auto [level, strategy] : outOfRange)
        EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_file(w("data"), a("x.gz"), level, strategy));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_file(SWCharString(), a("x.gz")));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_file(w("data"), SAnsiString()));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_file(SAnsiString(), w("x")));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_file(a("data13.gz"), SWCharString()));
    EXPECT_FALSE(fs::exists(at("x.gz")));
    // A target naming the source would truncate it before reading.
    EXPECT_EQ(SCompression::invalidArguments, SCompression::compress_file(w("data"), a("data")));
    EXPECT_EQ(SCompression::invalidArguments, SCompression::decompress_file(a("data13.gz"), w("data13.gz")));
    EXPECT_TRUE(readFile("data") == data);

    // Missing source, unwritable target: -3, nothing left behind, the source kept.
    EXPECT_EQ(SCompression::zlibError, SCompression::compress_file(w("missing"), a("m.gz")));
    EXPECT_FALSE(fs::exists(at("m.gz")));
    EXPECT_EQ(SCompression::zlibError, SCompression::compress_file(w("data"), a("no/dir.gz"), 3, 0, true));
    EXPECT_TRUE(fs::exists(at("data")));
    EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a("missing.gz"), w("m")));
    EXPECT_FALSE(fs::exists(at("m")));
    EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a("data13.gz"), w("no/dir"), true));
    EXPECT_TRUE(fs::exists(at("data13.gz")));
}

// Bad gzip files fail, and the target they were writing is removed; a failing write or
// read on the way does the same.
TEST_F(SCompressionFiles, BadGzipFilesFailAndLeaveNoTarget)
{
    const Bytes data = sample(1u << 20, 9);
    writeFile("data", data);
    ASSERT_EQ(SCompression::success, SCompression::compress_file(w("data"), a("good.gz"), 6));
    const Bytes gz = readFile("good.gz");
    auto flip = [&gz](size_t at) {
        Bytes copy = gz;
        copy.at(at) ^= 1;
        return copy;
    };
    Bytes second = gz;
    second.insert(second.end(), gz.begin(), gz.begin() + gz.size() / 3);
    const std::pair<const char*, Bytes> cases[] = {
        // 1 MiB of output ends exactly where zlib's read buffer fills, the case in which its
        // reader stops before it notices the missing length field.
        {"truncated-trailer", Bytes(gz.begin(), gz.end() - 4)},
        {"truncated-half", Bytes(gz.begin(), gz.begin() + gz.size() / 2)},
        {"header-only", Bytes(gz.begin(), gz.begin() + 10)},
        {"bad-crc", flip(gz.size() - 6)},
        {"bad-length", flip(gz.size() - 1)},
        {"corrupt-body", flip(gz.size() / 2)},
        {"not-gzip", data},
        {"empty", Bytes()},
        {"second-member-truncated", second},
    };
    for (const auto& c : cases) {
        const std::string src = std::string(c.first) + ".gz", out = std::string(c.first) + ".out";
        writeFile(src, c.second);
        EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a(src), w(out), true)) << c.first;
        EXPECT_FALSE(fs::exists(at(out))) << c.first;
        EXPECT_TRUE(fs::exists(at(src))) << c.first << ": the source is kept on failure";
    }

    // A target that already existed is not left holding a partial copy either.
    writeFile("old.out", Bytes(100, 'o'));
    EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a("truncated-half.gz"), w("old.out")));
    EXPECT_FALSE(fs::exists(at("old.out")));

    // Stray bytes after the last member are ignored, as gzip does.
    Bytes garbage = gz;
    garbage.insert(garbage.end(), {0, 0});
    writeFile("garbage.gz", garbage);
    EXPECT_EQ(SCompression::success, SCompression::decompress_file(a("garbage.gz"), w("garbage.out")));
    EXPECT_TRUE(readFile("garbage.out") == data);

    // Failing reads and writes of the library's own descriptors: the partial output goes.
    if (vardo_test::faultsAvailable()) {
        vardo_test::injectFault(vardo_test::Fault::write, ENOSPC, 3);
        EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a("good.gz"), w("full.out")));
        vardo_test::injectFault(vardo_test::Fault::write, 0);
        EXPECT_FALSE(fs::exists(at("full.out")));
        vardo_test::injectFault(vardo_test::Fault::read, EIO, 10);
        EXPECT_EQ(SCompression::zlibError, SCompression::compress_file(w("data"), a("eio.gz")));
        vardo_test::injectFault(vardo_test::Fault::read, 0);
        EXPECT_FALSE(fs::exists(at("eio.gz")));
    }

    // A full device: gz writes fail (at the latest on closing); the device is not removed.
    if (!vardo_test::onWindows() && fs::exists("/dev/full")) {
        EXPECT_EQ(SCompression::zlibError, SCompression::compress_file(w("data"), SAnsiString("/dev/full")));
        writeFile("small", Bytes(10, 's'));  // stays in zlib's buffer until the close
        EXPECT_EQ(SCompression::zlibError, SCompression::compress_file(w("small"), SAnsiString("/dev/full")));
        EXPECT_EQ(SCompression::zlibError, SCompression::decompress_file(a("good.gz"), W("/dev/full")));
        EXPECT_TRUE(fs::exists("/dev/full"));
    }
}

// gzip reads every file compress_file writes; decompress_file reads gzip's files, also
// several members in one file.
TEST_F(SCompressionGzip, GzipInteroperates)
{
    const Bytes text = sample(2u << 20, 21), noise = sample(1u << 20, 22, true);
    writeFile("text", text);
    writeFile("noise", noise);
    writeFile("empty", Bytes());
    for (const char* in : {"text", "noise", "empty"}) {
        for (auto [level, strategy] : kFileSettings) {
            const std::string tag = std::string(in) + std::to_string(level) + std::to_string(strategy);
            ASSERT_EQ(SCompression::success, SCompression::compress_file(w(in), a(tag + ".gz"), level, strategy))
                << tag;
            ASSERT_TRUE(run("gzip -t " + q(tag + ".gz") + " && gzip -d -c " + q(tag + ".gz") + " > " +
                            q(tag + ".gunzip"))) << tag;
            EXPECT_TRUE(readFile(tag + ".gunzip") == readFile(in)) << tag;
        }
        // gzip's own files at its fastest and best.
        for (const char* level : {"-1", "-9"}) {
            const std::string gz = std::string(in) + level + ".gz";
            ASSERT_TRUE(run(std::string("gzip ") + level + " -c " + q(in) + " > " + q(gz)));
            ASSERT_EQ(SCompression::success, SCompression::decompress_file(a(gz), w(gz + ".out"))) << gz;
            EXPECT_TRUE(readFile(gz + ".out") == readFile(in)) << gz;
        }
    }

    // Several members: gzip's, the library's and a member of nothing, concatenated.
    ASSERT_TRUE(run("cat " + q("text-1.gz") + " " + q("noise03.gz") + " " + q("empty-9.gz") + " > " +
                    q("multi.gz")));
    ASSERT_EQ(SCompression::success, SCompression::decompress_file(a("multi.gz"), w("multi.out")));
    Bytes all = text;
    all.insert(all.end(), noise.begin(), noise.end());
    EXPECT_TRUE(readFile("multi.out") == all);
}
