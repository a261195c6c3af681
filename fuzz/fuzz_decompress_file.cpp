// Fuzzes SCompression::decompress_file with arbitrary files against a model built on
// zlib's inflate: a gzip file is one or more members, each a complete gzip stream;
// after the last member, bytes that do not start another member ("\x1f\x8b") are
// ignored, as gzip does. A file that does not start with a member (also an empty file)
// is refused. Checked: no crash or leak; success exactly when the model accepts the file,
// with the same output; on failure no target file is left behind and the source stays.
#include "fuzz_check.h"
#include "vardo/scompress.h"

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

const size_t kLimit = 64u << 20;

bool model(const uint8_t* data, size_t size, std::vector<unsigned char>& out)
{
    size_t pos = 0;
    bool first = true;
    for (;;) {
        const bool magic = size - pos >= 2 && data[pos] == 0x1F && data[pos + 1] == 0x8B;
        if (!magic)
            return !first;   // nothing that is gzip, or stray bytes after the last member
        first = false;
        z_stream s;
        std::memset(&s, 0, sizeof s);
        if (inflateInit2(&s, 16 + MAX_WBITS) != Z_OK)
            return false;
        s.next_in = const_cast<Bytef*>(data + pos);
        s.avail_in = static_cast<uInt>(size - pos);
        unsigned char piece[65536];
        int rc = Z_OK;
        while (rc == Z_OK && out.size() <= kLimit) {
            s.next_out = piece;
            s.avail_out = sizeof piece;
            rc = inflate(&s, Z_NO_FLUSH);
            out.insert(out.end(), piece, piece + (sizeof piece - s.avail_out));
            if (rc == Z_BUF_ERROR && s.avail_out != 0)
                break;   // needs input there is none of
            if (rc == Z_BUF_ERROR)
                rc = Z_OK;
        }
        pos = size - s.avail_in;
        inflateEnd(&s);
        if (rc != Z_STREAM_END)
            return false;
    }
}

std::string g_dir;

// A folder of this process's own for the two files, removed at exit.
const std::string& dir()
{
    if (g_dir.empty()) {
        namespace fs = std::filesystem;
        std::random_device rd;
        for (int i = 0; i < 100 && g_dir.empty(); ++i) {
            fs::path p = fs::temp_directory_path() / ("vardo_fuzz_gz_" + std::to_string(rd()));
            if (fs::create_directory(p))
                g_dir = p.string();
        }
        FUZZ_CHECK(!g_dir.empty());
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(g_dir, ec);
        });
    }
    return g_dir;
}

std::vector<unsigned char> readAll(const std::string& path, bool& exists)
{
    std::vector<unsigned char> bytes;
    FILE* f = std::fopen(path.c_str(), "rb");
    exists = f != nullptr;
    if (!f)
        return bytes;
    unsigned char piece[65536];
    size_t n;
    while ((n = std::fread(piece, 1, sizeof piece, f)) > 0)
        bytes.insert(bytes.end(), piece, piece + n);
    std::fclose(f);
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<unsigned char> expected;
    const bool valid = model(data, size, expected);
    if (expected.size() > kLimit)
        return 0;   // a bomb beyond what one run should write

    const std::string in = dir() + "/in.gz", out = dir() + "/out";
    FILE* f = std::fopen(in.c_str(), "wb");
    FUZZ_CHECK(f != nullptr);
    FUZZ_CHECK(size == 0 || std::fwrite(data, 1, size, f) == size);
    FUZZ_CHECK(std::fclose(f) == 0);
    std::remove(out.c_str());

    SWCharString target;
    target.fromUTF8(reinterpret_cast<const unsigned char*>(out.c_str()));
    const SCompression::ErrCode rc = SCompression::decompress_file(SAnsiString(in.c_str()), target);
    bool exists = false;
    const std::vector<unsigned char> got = readAll(out, exists);
    if (valid) {
        FUZZ_CHECK(rc == SCompression::success);
        FUZZ_CHECK(exists && got == expected);
    } else {
        FUZZ_CHECK(rc == SCompression::zlibError);
        FUZZ_CHECK(!exists);
    }
    bool sourceKept = false;
    readAll(in, sourceKept);
    FUZZ_CHECK(sourceKept);
    return 0;
}
