// SCompression: zlib one-shot calls for buffers with a 4-byte length header, and the gz
// file interface over descriptors the platform layer opens (non-inheritable, UTF-16
// paths on every platform).
#include "vardo/scompress.h"

#include "vardo/sfile.h"
#include "vardo/sfilesys.h"
#include "vardo/simplebuffer.h"
#include "vardo/strace.h"

#include "os/os_file.h"

#include <zlib.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace Vardo400 {

namespace {

typedef SCompression::ErrCode ErrCode;

const unsigned int kHeaderBytes = 4;
const unsigned int kFileChunk = 16384;
// zlib's gz layer buffers this much on each side; larger than its 8 KiB default so that
// a 16 KiB piece costs one system call, not two.
const unsigned int kGzBuffer = 128 * 1024;
// deflate cannot expand more than this: a 258-byte match coded in two bits.
const uint64_t kMaxInflateRatio = 1032;
// Descriptor flags in the C run-time's values (see SFile).
const int kBinaryFlag = 0x8000;
const int kOwnerReadWrite = SFile::ownerRMask | SFile::ownerWMask;

// The header records 32 bits; unsigned long may be wider.
bool fitsHeader(uint64_t length)
{
    return length <= 0xFFFFFFFFu;
}

ErrCode fromZlib(int code)
{
    switch (code) {
    case Z_OK: return SCompression::success;
    case Z_BUF_ERROR: return SCompression::bufferTooSmall;
    case Z_MEM_ERROR: return SCompression::outOfMemory;
    default: return SCompression::zlibError;
    }
}

void traceCode(const char* format, int code)
{
    if (ShouldTrace(0, __FILE__))
        STrace(format, code);
}

void traceText(const char* format, const char* text = 0)
{
    if (ShouldTrace(0, __FILE__)) {
        if (text)
            STrace(format, text);
        else
            STrace(format);
    }
}

void traceText(const char* format, const SWCharString& text)
{
    if (ShouldTrace(0, __FILE__))
        STrace(format, text);
}

// zlib's one-shot compression with the memory level as the one further parameter: what
// compress2 does, with deflateInit2 in place of deflateInit. The output is sized here,
// once, after zlib has accepted the parameters. On success *out holds header room plus
// the stream and outLength the stream's length.
int compressWithMemLevel(const unsigned char* source, uint64_t length, int level, int memLevel,
                         unsigned char** out, uint64_t& outLength, bool& allocFailed)
{
    allocFailed = false;
    outLength = 0;
    z_stream strm;
    std::memset(&strm, 0, sizeof strm);
    int err = deflateInit2(&strm, level, Z_DEFLATED, MAX_WBITS, memLevel, Z_DEFAULT_STRATEGY);
    if (err != Z_OK)
        return err;

    // length * 1.001 + 13, as integers; zlib's own bound is larger for small memory levels,
    // whose symbol buffer fills after a few hundred bytes and forces many stored blocks.
    uint64_t capacity = length + length / 1000 + 13;
    const uint64_t zbound = deflateBound(&strm, static_cast<uLong>(length));
    if (zbound > capacity)
        capacity = zbound;
    const uint64_t total = capacity + kHeaderBytes;
    unsigned char* buffer = 0;
    if (total <= static_cast<uint64_t>(SIZE_MAX) && total <= static_cast<uint64_t>(ULONG_MAX))
        buffer = SSimpleBuffer::alloc(static_cast<size_t>(total));
    if (!buffer) {
        deflateEnd(&strm);
        allocFailed = true;
        return Z_MEM_ERROR;
    }

    const uInt kMax = UINT_MAX;
    uint64_t leftIn = length, leftOut = capacity;
    strm.next_in = const_cast<Bytef*>(source);
    strm.next_out = buffer + kHeaderBytes;
    do {
        if (strm.avail_out == 0) {
            strm.avail_out = leftOut > kMax ? kMax : static_cast<uInt>(leftOut);
            leftOut -= strm.avail_out;
        }
        if (strm.avail_in == 0) {
            strm.avail_in = leftIn > kMax ? kMax : static_cast<uInt>(leftIn);
            leftIn -= strm.avail_in;
        }
        err = deflate(&strm, leftIn ? Z_NO_FLUSH : Z_FINISH);
    } while (err == Z_OK);
    outLength = capacity - leftOut - strm.avail_out;
    deflateEnd(&strm);
    if (err != Z_STREAM_END) {
        SSimpleBuffer::dealloc(buffer);
        outLength = 0;
        return err;
    }
    *out = buffer;
    return Z_OK;
}

// The gzip path as UTF-16 for the platform layer: the process code page first, then
// UTF-8 (what Linux file names usually are when the locale does not say so).
bool gzPath(const SAnsiString& path, SWCharString& out)
{
    if (out.fromMBCS(path))
        return true;
    return out.fromUTF8(reinterpret_cast<const unsigned char*>(static_cast<const char*>(path)));
}

bool samePath(const SWCharString& a, const SWCharString& b)
{
    if (a == b)
        return true;
    try {
        return SFileSys::getFullPath(a) == SFileSys::getFullPath(b);
    } catch (...) {
        return false;
    }
}

// A gz stream that is closed when it goes out of scope; close() reports what zlib saw.
class GzFile {
public:
    GzFile() : m_gz(0) {}
    ~GzFile() { close(); }
    // Takes over fd (closed here also when zlib refuses it).
    bool open(int fd, const char* mode)
    {
        m_gz = gzdopen(fd, mode);
        if (!m_gz) {
            os::OsError ignored;
            os::fileClose(fd, ignored);
            return false;
        }
        gzbuffer(m_gz, kGzBuffer);
        return true;
    }
    gzFile get() const { return m_gz; }
    int close()
    {
        if (!m_gz)
            return Z_OK;
        int rc = gzclose(m_gz);
        m_gz = 0;
        return rc;
    }

private:
    GzFile(const GzFile&) = delete;
    GzFile& operator=(const GzFile&) = delete;
    gzFile m_gz;
};

ErrCode fromOsError(const os::OsError& err)
{
    return os::classify(err) == os::ErrorClass::outOfMemory ? SCompression::outOfMemory : SCompression::zlibError;
}

// Deletes a partly written target unless disarmed. Only a regular file is deleted: a
// device or pipe named as the target is not the library's to remove.
class PartialTarget {
public:
    explicit PartialTarget(const SWCharString& path) : m_path(path), m_bArmed(false) {}
    // Called once the target is open on fd; declared before the object that owns the
    // descriptor, this deletes only after the descriptor is closed (Windows cannot
    // delete an open file).
    void arm(int fd)
    {
        bool isRegular = false;
        int64_t size = 0;
        os::OsError ignored;
        m_bArmed = os::fileDescribe(fd, isRegular, size, ignored) && isRegular;
    }
    ~PartialTarget()
    {
        os::OsError ignored;
        if (m_bArmed)
            os::fileRemove(m_path, ignored);
    }
    void disarm() { m_bArmed = false; }

private:
    SWCharString m_path;
    bool m_bArmed;
};

} // namespace

const int SCompression::SC_NO_COMPRESSION;
const int SCompression::SC_BEST_SPEED;
const int SCompression::SC_BEST_COMPRESSION;
const int SCompression::SC_DEFAULT_COMPRESSION;
const int SCompression::SC_DEFAULT_STRATEGY;
const int SCompression::SC_FILTERED;
const int SCompression::SC_HUFFMAN_ONLY;
const int SCompression::SC_DEFAULTZL_MEMORY_LEVEL;
const int SCompression::SC_EFFICIENT_MEMORY_LEVEL;

// ---- buffers ---------------------------------------------------------------------------

SCompression::ErrCode SCompression::compress_buffer(const unsigned char* source, unsigned long length,
                                                    unsigned char** result, unsigned long& resultLength,
                                                    int level, int memoryLevel)
{
    resultLength = 0;
    if (!source || length == 0 || !result || !fitsHeader(length)) {
        VARDO_ASSERT_TEXT("false");
        return invalidArguments;
    }
    unsigned char* buffer = 0;
    uint64_t streamLength = 0;
    bool allocFailed = false;
    int err = compressWithMemLevel(source, length, level, memoryLevel, &buffer, streamLength, allocFailed);
    if (allocFailed) {
        VARDO_ASSERT_TEXT("false");
        return outOfMemory;
    }
    if (err != Z_OK) {
        traceCode("compression failed, error code: %d ", err);
        return fromZlib(err);
    }
    const uint32_t n = static_cast<uint32_t>(length);
    buffer[0] = static_cast<unsigned char>(n >> 24);
    buffer[1] = static_cast<unsigned char>(n >> 16);
    buffer[2] = static_cast<unsigned char>(n >> 8);
    buffer[3] = static_cast<unsigned char>(n);
    *result = buffer;
    resultLength = static_cast<unsigned long>(streamLength + kHeaderBytes);
    return success;
}

namespace {

ErrCode compressInto(const unsigned char* data, size_t size, SSimpleBuffer& target, int level, int memoryLevel)
{
    if (static_cast<uint64_t>(size) > ULONG_MAX) {
        VARDO_ASSERT_TEXT("false");
        return SCompression::invalidArguments;
    }
    unsigned char* pDest = 0;
    unsigned long destlen = 0;
    ErrCode rc = SCompression::compress_buffer(data, static_cast<unsigned long>(size), &pDest, destlen,
                                               level, memoryLevel);
    if (rc == SCompression::success) {
        VARDO_ASSERT(pDest != NULL);
        VARDO_ASSERT(destlen > 0);
        target.attach(pDest, destlen, destlen);
    }
    return rc;
}

} // namespace

SCompression::ErrCode SCompression::compress_buffer(const SSimpleBuffer& source, SSimpleBuffer& target,
                                                    int level, int memoryLevel)
{
    return compressInto(source.data(), source.size(), target, level, memoryLevel);
}

SCompression::ErrCode SCompression::compress_buffer(const SAsciiString& source, SSimpleBuffer& target,
                                                    int level, int memoryLevel)
{
    return compressInto(reinterpret_cast<const unsigned char*>(source.data()), source.getLength(), target,
                        level, memoryLevel);
}

SCompression::ErrCode SCompression::decompress_buffer(const unsigned char* source, unsigned long length,
                                                      unsigned char** result, unsigned long& resultLength)
{
    resultLength = 0;
    if (!source || length < kHeaderBytes || !result) {
        VARDO_ASSERT_TEXT("false");
        return invalidArguments;
    }
    const uint32_t claimed = (static_cast<uint32_t>(source[0]) << 24) | (static_cast<uint32_t>(source[1]) << 16) |
                             (static_cast<uint32_t>(source[2]) << 8) | static_cast<uint32_t>(source[3]);
    const uint64_t streamLength = static_cast<uint64_t>(length) - kHeaderBytes;
    // A claim no stream of this size can honour is refused before any memory is asked for.
    if (claimed > streamLength * kMaxInflateRatio) {
        traceCode("decompression failed, error code: %d", Z_DATA_ERROR);
        return zlibError;
    }
    unsigned char* buffer = SSimpleBuffer::alloc(claimed);
    if (!buffer) {
        VARDO_ASSERT_TEXT("false");
        return outOfMemory;
    }
    uLongf produced = claimed;
    uLong consumed = static_cast<uLong>(streamLength);
    int err = uncompress2(buffer, &produced, source + kHeaderBytes, &consumed);
    // The header and the stream must agree exactly: fewer bytes than recorded, or bytes
    // after the stream's end, mean the buffer is not what was stored.
    if (err == Z_OK && (produced != claimed || consumed != streamLength))
        err = Z_DATA_ERROR;
    // zlib reports a stream cut short after its last output byte as a full output buffer;
    // with all input consumed it is a truncation, not a wrong recorded length.
    if (err == Z_BUF_ERROR && consumed == streamLength)
        err = Z_DATA_ERROR;
    if (err != Z_OK) {
        SSimpleBuffer::dealloc(buffer);
        traceCode("decompression failed, error code: %d", err);
        return fromZlib(err);
    }
    *result = buffer;
    resultLength = static_cast<unsigned long>(produced);
    return success;
}

SCompression::ErrCode SCompression::decompress_buffer(const SSimpleBuffer& source, SSimpleBuffer& target)
{
    if (static_cast<uint64_t>(source.size()) > ULONG_MAX) {
        VARDO_ASSERT_TEXT("false");
        return invalidArguments;
    }
    unsigned char* pDest = 0;
    unsigned long destlen = 0;
    ErrCode rc = decompress_buffer(source.data(), static_cast<unsigned long>(source.size()), &pDest, destlen);
    if (rc == success)
        target.attach(pDest, destlen, destlen ? destlen : 1);
    return rc;
}

SCompression::ErrCode SCompression::decompress_buffer(const SSimpleBuffer& source, SAsciiString& target)
{
    SSimpleBuffer bytes;
    ErrCode rc = decompress_buffer(source, bytes);
    if (rc != success)
        return rc;
    if (bytes.size() > 0xFFFFFFFEu) {
        VARDO_ASSERT_TEXT("false");
        return outOfMemory;
    }
    // A string ends at its first zero byte: data holding one would come back cut short.
    if (bytes.size() && std::memchr(bytes.data(), 0, bytes.size())) {
        traceCode("decompression failed, error code: %d", Z_DATA_ERROR);
        return zlibError;
    }
    SAsciiString text;
    if (bytes.size())
        text.concat(reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned int>(bytes.size()));
    target = text;
    return success;
}

// ---- files -------------------------------------------------------------------------------

SCompression::ErrCode SCompression::compress_file(const SWCharString& source, const SAnsiString& target,
                                                  int level, int strategy, bool removeSource)
{
    static const char kStrategyLetters[] = {0, 'f', 'h', 'R', 'F'};
    SWCharString targetPath;
    if (source.isEmpty() || target.isEmpty() || level < -1 || level > 9 || strategy < 0 || strategy > 4 ||
        !gzPath(target, targetPath) || samePath(source, targetPath))
        return invalidArguments;

    SFile in(source);
    try {
        in.open(SFile::readOnly | SFile::sequential, 0, SFile::denyWrite);
    } catch (const SFileException& e) {
        traceText("Failed to open the file %s for read.", source);
        return e.DetailCode() == SFileException::outOfMemory ? outOfMemory : zlibError;
    }

    char mode[5] = {'w', 'b', 0, 0, 0};
    int m = 2;
    if (level >= 0)
        mode[m++] = static_cast<char>('0' + level);
    if (strategy > 0)
        mode[m++] = kStrategyLetters[strategy];

    os::OsError openError;
    const int fd = os::fileOpen(targetPath, SFile::writeOnly | SFile::create | SFile::truncate | kBinaryFlag,
                                SFile::denyWrite, kOwnerReadWrite, openError);
    if (fd < 0) {
        traceText("Failed to open a gz file %s for write.", target);
        return fromOsError(openError);
    }
    PartialTarget partial(targetPath);
    partial.arm(fd);
    GzFile gz;
    if (!gz.open(fd, mode)) {
        traceText("Failed to open a gz file %s for write.", target);
        return outOfMemory;
    }

    unsigned char chunk[kFileChunk];
    for (;;) {
        int n = 0;
        try {
            n = in.read(chunk, kFileChunk);
        } catch (const SFileException&) {
            traceText("file read error.");
            return zlibError;
        }
        if (n <= 0)
            break;
        if (gzwrite(gz.get(), chunk, static_cast<unsigned int>(n)) != n) {
            traceText("file read error.");
            return zlibError;
        }
    }
    // Buffered data and the trailer are written here; a full disk shows only now.
    if (gz.close() != Z_OK) {
        traceText("file read error.");
        return zlibError;
    }
    partial.disarm();
    in.close();
    os::OsError removeError;
    if (removeSource && os::fileRemove(source, removeError) != 0)
        traceText("SCompress::Compress_file: failed to remove the source file %s.", source);
    return success;
}

SCompression::ErrCode SCompression::decompress_file(const SAnsiString& source, const SWCharString& target,
                                                    bool removeSource)
{
    SWCharString sourcePath;
    if (source.isEmpty() || target.isEmpty() || !gzPath(source, sourcePath) || samePath(sourcePath, target))
        return invalidArguments;

    os::OsError openError;
    const int fd = os::fileOpen(sourcePath, SFile::readOnly | SFile::sequential | kBinaryFlag,
                                SFile::denyWrite, 0, openError);
    if (fd < 0) {
        traceText("Failed to open the file %s for read.", source);
        return fromOsError(openError);
    }
    GzFile gz;
    if (!gz.open(fd, "rb")) {
        traceText("Failed to open the file %s for read.", source);
        return outOfMemory;
    }

    PartialTarget partial(target);
    SFile out(target);
    try {
        out.open(SFile::writeOnly | SFile::create | SFile::truncate | SFile::sequential, kOwnerReadWrite,
                 SFile::denyWrite);
    } catch (const SFileException& e) {
        traceText("Failed to open the file %s for write.", target);
        return e.DetailCode() == SFileException::outOfMemory ? outOfMemory : zlibError;
    }
    partial.arm(out.getFd());

    // zlib reads anything that is not gzip as plain data; a file that is not gzip is refused.
    if (gzdirect(gz.get())) {
        traceText("file read error.");
        return zlibError;
    }
    unsigned char chunk[kFileChunk];
    bool looked = false;
    for (;;) {
        const int n = gzread(gz.get(), chunk, kFileChunk);
        if (n < 0) {
            traceText("file read error.");
            return zlibError;
        }
        if (n == 0) {
            int zerr = Z_OK;
            gzerror(gz.get(), &zerr);
            if (zerr != Z_OK) {
                traceText("file read error.");
                return zlibError;
            }
            if (looked)
                break;
            // zlib's reader can stop at the end of the file without noticing that the last
            // member's trailer is cut short (when its output buffer filled at that very
            // byte); one more read with the end flag cleared makes it look, and report.
            gzclearerr(gz.get());
            looked = true;
            continue;
        }
        looked = false;
        try {
            if (out.write(chunk, static_cast<unsigned int>(n)) != n) {
                traceText("file read error.");
                return zlibError;
            }
        } catch (const SFileException&) {
            traceText("file read error.");
            return zlibError;
        }
    }
    // A bad trailer or a cut member is also reported when the file is closed.
    if (gz.close() != Z_OK) {
        traceText("file read error.");
        return zlibError;
    }
    try {
        out.close();
    } catch (const SFileException&) {
        traceText("file read error.");
        return zlibError;
    }
    partial.disarm();
    os::OsError removeError;
    if (removeSource && os::fileRemove(sourcePath, removeError) != 0)
        traceText("SCompress::Compress_file: failed to remove the source file");
    return success;
}

// ---- helpers -------------------------------------------------------------------------------

unsigned long SCompression::crc32(unsigned long crc, const unsigned char* data, unsigned long length)
{
    return ::crc32_z(crc, data, length);
}

unsigned char* SCompression::alloc_buffer(long size)
{
    if (size < 0)
        return 0;
    return SSimpleBuffer::alloc(static_cast<size_t>(size));
}

void SCompression::free_buffer(unsigned char*& buffer)
{
    if (buffer) {
        SSimpleBuffer::dealloc(buffer);
        buffer = 0;
    }
}

} // namespace Vardo400
