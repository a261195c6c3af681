// vardo gzip / gunzip: gzip files through SCompression, as the servers write them.
// vardo zpack / zunpack: the compressed-buffer format (4-byte big-endian length, then a
// zlib stream), so an operator can read a blob the servers stored, or make one.
// Output: one line "<command>: <input> (<bytes>) -> <output> (<bytes>)". Exit codes:
// 0 done, 1 failed (one line on stderr with the library's code and its meaning),
// 2 usage.
#include "command.h"
#include "progress.h"

#include "vardo/scompress.h"
#include "vardo/sfile.h"
#include "vardo/sfilesys.h"
#include "vardo/simplebuffer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace Vardo400;

namespace {

using vardo_tool::argToText;
using vardo_tool::utf8;

const char kGzipUsage[] =
    "usage: vardo gzip FILE [--level N] [--strategy default|filtered|huffman|rle|fixed] [--keep] [--force]\n";
const char kGunzipUsage[] = "usage: vardo gunzip FILE.gz [--keep] [--force] [--output FILE]\n";
const char kZpackUsage[] = "usage: vardo zpack IN OUT [--level N] [--memlevel N]\n";
const char kZunpackUsage[] = "usage: vardo zunpack IN OUT\n";

const char* meaning(int code)
{
    switch (code) {
    case SCompression::success: return "success";
    case SCompression::bufferTooSmall: return "output space too small (the recorded length is too small for the data)";
    case SCompression::outOfMemory: return "out of memory";
    case SCompression::zlibError: return "failed (file cannot be opened or written, or the data is corrupt or truncated)";
    case SCompression::invalidArguments: return "invalid arguments";
    }
    return "unknown";
}

bool parseInt(const std::string& s, int minimum, int maximum, int& out)
{
    long v = 0;
    if (!vardo_tool::parseNumber(s, minimum, maximum, v))
        return false;
    out = static_cast<int>(v);
    return true;
}

bool parseStrategy(const std::string& s, int& out)
{
    static const char* const names[] = {"default", "filtered", "huffman", "rle", "fixed"};
    for (int i = 0; i < 5; ++i)
        if (s == names[i]) {
            out = i;
            return true;
        }
    return parseInt(s, 0, 4, out);
}

// The gzip side of the library takes process code-page text; the tool's arguments are
// UTF-8 or the code page, as the argument converter reads them.
SAnsiString ansiPath(const std::string& arg)
{
    SWCharString text = argToText(arg);
    SAnsiString out;
    std::string bytes(text.getNBytesForMBCS() + 1, '\0');
    const unsigned int n = text.toMBCS(&bytes[0], static_cast<unsigned int>(bytes.size()));
    if (n != 0xFFFFFFFFu) {
        bytes.resize(n);
        out = bytes.c_str();
    } else {
        out = arg.c_str();
    }
    return out;
}

long long fileSize(const std::string& path)
{
    try {
        return SFileSys::sizeEx(argToText(path));
    } catch (const SException&) {
        return -1;
    }
}

bool exists(const std::string& path)
{
    return SFileSys::exists(argToText(path));
}

int fail(const char* command, const std::string& what, int code)
{
    std::fprintf(stderr, "vardo %s: %s: %d %s\n", command, what.c_str(), code, meaning(code));
    return 1;
}

bool wantsHelp(const std::vector<std::string>& args, const char* usage)
{
    for (const std::string& a : args)
        if (a == "--help" || a == "-h") {
            std::fputs(usage, stdout);
            return true;
        }
    return false;
}

// The steps gzip and gunzip share around the library call: the input must exist, the
// output must not (unless forced); then the result line, and the check that a source
// meant to be removed is gone. convert runs the library call.
template <class Convert>
int convertFile(const char* command, const std::string& file, const std::string& target, bool force, bool keep,
                Convert convert)
{
    if (!exists(file)) {
        std::fprintf(stderr, "vardo %s: %s: no such file\n", command, file.c_str());
        return 1;
    }
    if (!force && exists(target)) {
        std::fprintf(stderr, "vardo %s: %s already exists (--force replaces it)\n", command, target.c_str());
        return 1;
    }
    const long long before = fileSize(file);
    int rc;
    {
        // The target's growth is the only progress the library call lets us see.
        vardo_tool::Progress progress(std::string(command) + " " + file, 0, [&] { return static_cast<int64_t>(fileSize(target)); });
        rc = convert();
    }
    if (rc != SCompression::success)
        return fail(command, file, rc);
    std::printf("%s: %s (%lld) -> %s (%lld)\n", command, file.c_str(), before, target.c_str(), fileSize(target));
    if (!keep && exists(file)) {
        std::fprintf(stderr, "vardo %s: %s could not be removed\n", command, file.c_str());
        return 1;
    }
    return 0;
}

int runGzip(const std::vector<std::string>& args)
{
    if (wantsHelp(args, kGzipUsage))
        return 0;
    std::string file;
    int level = SCompression::SC_DEFAULT_COMPRESSION, strategy = SCompression::SC_DEFAULT_STRATEGY;
    bool keep = false, force = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--level" && hasValue && parseInt(args[i + 1], -1, 9, level))
            ++i;
        else if (a == "--strategy" && hasValue && parseStrategy(args[i + 1], strategy))
            ++i;
        else if (a == "--keep")
            keep = true;
        else if (a == "--force")
            force = true;
        else if (a.compare(0, 2, "--") != 0 && file.empty())
            file = a;
        else
            return std::fputs(kGzipUsage, stderr), 2;
    }
    if (file.empty())
        return std::fputs(kGzipUsage, stderr), 2;
    const std::string target = file + ".gz";
    return convertFile("gzip", file, target, force, keep, [&] {
        return SCompression::compress_file(argToText(file), ansiPath(target), level, strategy, !keep);
    });
}

int runGunzip(const std::vector<std::string>& args)
{
    if (wantsHelp(args, kGunzipUsage))
        return 0;
    std::string file, target;
    bool keep = false, force = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--keep")
            keep = true;
        else if (a == "--force")
            force = true;
        else if (a == "--output" && i + 1 < args.size() && target.empty())
            target = args[++i];
        else if (a.compare(0, 2, "--") != 0 && file.empty())
            file = a;
        else
            return std::fputs(kGunzipUsage, stderr), 2;
    }
    if (file.empty())
        return std::fputs(kGunzipUsage, stderr), 2;
    if (target.empty()) {
        if (file.size() <= 3 || file.compare(file.size() - 3, 3, ".gz") != 0) {
            std::fprintf(stderr, "vardo gunzip: %s does not end in .gz (name the output with --output)\n",
                         file.c_str());
            return 2;
        }
        target = file.substr(0, file.size() - 3);
    }
    return convertFile("gunzip", file, target, force, keep, [&] {
        return SCompression::decompress_file(ansiPath(file), argToText(target), !keep);
    });
}

// Reads a whole file into buffer; false with a message on failure.
bool readWhole(const char* command, const std::string& path, SSimpleBuffer& buffer)
{
    try {
        SFile f(argToText(path), SFile::readOnly | SFile::sequential, 0, SFile::denyWrite);
        unsigned char piece[65536];
        int n;
        while ((n = f.read(piece, sizeof piece)) > 0)
            buffer.append(piece, static_cast<size_t>(n));
        return true;
    } catch (const SException& e) {
        std::fprintf(stderr, "vardo %s: %s\n", command, utf8(e.toString()).c_str());
        return false;
    }
}

// Writes the buffer to a new file; a failed write leaves no partial file.
bool writeWhole(const char* command, const std::string& path, const SSimpleBuffer& buffer)
{
    bool opened = false;
    try {
        SFile f(argToText(path), SFile::writeOnly | SFile::create | SFile::truncate,
                SFile::ownerRMask | SFile::ownerWMask, SFile::denyWrite);
        opened = true;
        size_t done = 0;
        while (done < buffer.size()) {
            const size_t piece = buffer.size() - done > (1u << 30) ? (1u << 30) : buffer.size() - done;
            done += static_cast<size_t>(f.write(buffer.data() + done, static_cast<unsigned int>(piece)));
        }
        f.close();
        return true;
    } catch (const SException& e) {
        std::fprintf(stderr, "vardo %s: %s\n", command, utf8(e.toString()).c_str());
        if (opened) {
            try {
                SFileSys::remove(argToText(path));
            } catch (const SException&) {
            }
        }
        return false;
    }
}

int runZpack(const std::vector<std::string>& args)
{
    if (wantsHelp(args, kZpackUsage))
        return 0;
    std::vector<std::string> files;
    int level = SCompression::SC_DEFAULT_COMPRESSION, memLevel = SCompression::SC_DEFAULTZL_MEMORY_LEVEL;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--level" && hasValue && parseInt(args[i + 1], -1, 9, level))
            ++i;
        else if (a == "--memlevel" && hasValue && parseInt(args[i + 1], 1, 9, memLevel))
            ++i;
        else if (a.compare(0, 2, "--") != 0 && files.size() < 2)
            files.push_back(a);
        else
            return std::fputs(kZpackUsage, stderr), 2;
    }
    if (files.size() != 2)
        return std::fputs(kZpackUsage, stderr), 2;
    SSimpleBuffer in, out;
    if (!readWhole("zpack", files[0], in))
        return 1;
    int rc = SCompression::compress_buffer(in, out, level, memLevel);
    if (rc != SCompression::success)
        return fail("zpack", files[0], rc);
    if (!writeWhole("zpack", files[1], out))
        return 1;
    std::printf("zpack: %s (%llu) -> %s (%llu)\n", files[0].c_str(), static_cast<unsigned long long>(in.size()),
                files[1].c_str(), static_cast<unsigned long long>(out.size()));
    return 0;
}

int runZunpack(const std::vector<std::string>& args)
{
    if (wantsHelp(args, kZunpackUsage))
        return 0;
    if (args.size() != 2 || args[0].compare(0, 2, "--") == 0 || args[1].compare(0, 2, "--") == 0)
        return std::fputs(kZunpackUsage, stderr), 2;
    SSimpleBuffer in, out;
    if (!readWhole("zunpack", args[0], in))
        return 1;
    int rc = SCompression::decompress_buffer(in, out);
    if (rc != SCompression::success)
        return fail("zunpack", args[0], rc);
    if (!writeWhole("zunpack", args[1], out))
        return 1;
    std::printf("zunpack: %s (%llu) -> %s (%llu)\n", args[0].c_str(), static_cast<unsigned long long>(in.size()),
                args[1].c_str(), static_cast<unsigned long long>(out.size()));
    return 0;
}

} // namespace

VARDO_TOOL_COMMAND(gzip, "gzip",
                   "gzip FILE [--level N] [--strategy S] [--keep] [--force]   compresses FILE into FILE.gz",
                   runGzip);
VARDO_TOOL_COMMAND(gunzip, "gunzip", "gunzip FILE.gz [--keep] [--force] [--output FILE]   decompresses a gzip file",
                   runGunzip);
VARDO_TOOL_COMMAND(zpack, "zpack", "zpack IN OUT [--level N] [--memlevel N]   makes a compressed buffer (length + zlib)",
                   runZpack);
VARDO_TOOL_COMMAND(zunpack, "zunpack", "zunpack IN OUT   reads a compressed buffer the servers stored", runZunpack);
