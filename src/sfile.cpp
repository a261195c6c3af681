// SFile: open, close, read, write, 32-bit positions, and the text operations.
// The 64-bit members live in sfile64.cpp.
#include "vardo/sfile.h"

#include "vardo/codesetconverter.h"
#include "vardo/simplebuffer.h"
#include "vardo/strace.h"

#include "os/os_file.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace Vardo400 {

namespace {

const int kBinaryFlag = 0x8000;
const char kNoAccessMode[] = "No file access mode provided.";
const char kNotOpened[] = "File not opened yet.";
// Empty reads that readString and readLine tolerate before giving up.
const int kEmptyReadBudget = 10;
// readLine's first block; it doubles for long lines up to the largest block.
const unsigned int kFirstLineBlock = 256;
const unsigned int kLargestLineBlock = 64 * 1024;
// The largest position and size of the 32-bit forms.
const int64_t kLimit32 = std::numeric_limits<int32_t>::max();

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

// The C run-time's text for an error number, widened from the process code page.
SWCharString reasonText(int errorNumber)
{
    os::OsError err;
    err.setCrt(errorNumber);
    return os::errorText(err);
}

// Bytes read from a file to text: explicit codeset 1 (UTF-8), up to the first zero
// byte as for a terminated buffer; bytes that are not UTF-8 become "?".
SWCharString fileBytesToText(const char* bytes, size_t count)
{
    SWCharString r;
    if (count != 0)
        MBCSCodesetConverter::ExplicitCodesetToT(bytes, static_cast<unsigned int>(count),
                                                 MBCSCodesetConverter::UTF8Codeset, r);
    return r;
}

// Appends the bytes of [p, p + n) without their carriage returns.
void appendWithoutCR(std::string& line, const char* p, size_t n)
{
    const char* end = p + n;
    while (p < end) {
        const char* cr = static_cast<const char*>(std::memchr(p, '\r', static_cast<size_t>(end - p)));
        if (!cr) {
            line.append(p, static_cast<size_t>(end - p));
            return;
        }
        line.append(p, static_cast<size_t>(cr - p));
        p = cr + 1;
    }
}

} // namespace

// ---- class constants (defined here so that they can be bound to references) ------------

const int SFile::readOnly;
const int SFile::writeOnly;
const int SFile::readAndWrite;
const int SFile::append;
const int SFile::create;
const int SFile::truncate;
const int SFile::exclusive;
const int SFile::temporary;
const int SFile::noInherit;
const int SFile::sequential;
const int SFile::random;
const int SFile::ownerRWXMask;
const int SFile::ownerRMask;
const int SFile::ownerWMask;
const int SFile::ownerXMask;
const int SFile::groupRWXMask;
const int SFile::groupRMask;
const int SFile::groupWMask;
const int SFile::groupXMask;
const int SFile::othersRWXMask;
const int SFile::othersRMask;
const int SFile::othersWMask;
const int SFile::othersXMask;
const int SFile::readMask;
const int SFile::writeMask;
const int SFile::readWriteMask;
const int SFile::defaultPermissions;
const int SFile::denyReadAndWrite;
const int SFile::denyWrite;
const int SFile::denyRead;
const int SFile::denyNothing;
const int SFile::seekBegin;
const int SFile::seekSet;
const int SFile::seekCurrent;
const int SFile::seekEnd;
const int SFile::lockUnlock;
const int SFile::lockRetryLock;
const int SFile::lockNoRetryLock;

// ---- construction ----------------------------------------------------------------------

SFile::SFile() : m_nAccessFlags(-1), m_fd(-1), m_bIsOpened(false) {}

SFile::SFile(const SWCharString& path)
    : m_filePath(path), m_nAccessFlags(-1), m_fd(-1), m_bIsOpened(false)
{
}

SFile::SFile(const SWCharString& path, int accessFlags, int permissions, int shareMode)
    : m_filePath(path), m_nAccessFlags(-1), m_fd(-1), m_bIsOpened(false)
{
    open(accessFlags, permissions, shareMode);
}

SFile::~SFile()
{
    close();
}

// ---- failures --------------------------------------------------------------------------

void SFile::throwFromErrno(SFileException::ErrorCodes code, int e) const
{
    SWCharString reason = reasonText(e);
    throw SFileException(code, e, m_filePath, SFileException::MapErrno(e), reason, SWCharString());
}

void SFile::throwNotOpened(SFileException::ErrorCodes code) const
{
    throw SFileException(code, 0, m_filePath, SFileException::fileNotOpened, ascii(kNotOpened),
                         SWCharString());
}

void SFile::throwNoMemory(SFileException::ErrorCodes code) const
{
    throw SFileException(code, 0, m_filePath, SFileException::outOfMemory, reasonText(ENOMEM),
                         SWCharString());
}

// ---- open, close -----------------------------------------------------------------------

void SFile::open(int accessFlags, int permissions, int shareMode)
{
    if (accessFlags == -1)
        throw SFileException(SFileException::openError, 0, m_filePath, SFileException::otherError,
                             ascii(kNoAccessMode), SWCharString());
    // Always binary: the file is never opened in text mode.
    int flags = accessFlags | kBinaryFlag;
    os::OsError err;
    int fd = os::fileOpen(m_filePath, flags, shareMode, permissions, err);
    m_fd = fd;
    if (fd == -1)
        throwFromErrno(SFileException::openError, err.crtNumber());
    m_nAccessFlags = flags;
    m_bIsOpened = true;
}

void SFile::open(const SWCharString& path, int accessFlags, int permissions, int shareMode)
{
    m_filePath = path;
    open(accessFlags, permissions, shareMode);
}

void SFile::close()
{
    if (!m_bIsOpened)
        return;
    os::OsError ignored;
    os::fileClose(m_fd, ignored);
    m_bIsOpened = false;
}

// ---- bytes -----------------------------------------------------------------------------

int SFile::read(void* buffer, unsigned int count)
{
    if (!m_bIsOpened)
        throwNotOpened(SFileException::readError);
    os::OsError err;
    int n = os::fileRead(m_fd, buffer, count, err);
    if (n == -1)
        throwFromErrno(SFileException::readError, err.crtNumber());
    return n;
}

int SFile::write(const void* buffer, unsigned int count)
{
    if (!m_bIsOpened)
        throwNotOpened(SFileException::writeError);
    os::OsError err;
    int n = os::fileWrite(m_fd, buffer, count, err);
    if (n == -1)
        throwFromErrno(SFileException::writeError, err.crtNumber());
    return n;
}

void SFile::flush()
{
    // Opened read-only: nothing to commit.
    if ((m_nAccessFlags & 0x3) == 0)
        return;
    // A closed object's descriptor number may already belong to another file; the commit
    // of an object without an open file must fail, so it goes to no descriptor at all.
    int fd = m_bIsOpened ? m_fd : -1;
    os::OsError err;
    if (os::fileCommit(fd, err) == -1)
        throwFromErrno(SFileException::flushError, err.crtNumber());
}

// ---- 32-bit positions ------------------------------------------------------------------

int32_t SFile::seek(int origin, int32_t offset) const
{
    VARDO_ASSERT(m_fd != -1);
    if (!m_bIsOpened)
        throwNotOpened(SFileException::seekError);
    // A 32-bit seek whose result does not fit fails with EINVAL and leaves the position
    // where it was, as the C run-time's 32-bit seek does.
    const int64_t limit = kLimit32;
    int64_t before = -1;
    os::OsError err;
    if (origin != seekBegin && origin != seekCurrent) {
        before = os::fileSeek(m_fd, 0, seekCurrent, err);
        if (before == -1)
            throwFromErrno(SFileException::seekError, err.crtNumber());
    }
    int64_t r = os::fileSeek(m_fd, offset, origin, err);
    if (r == -1)
        throwFromErrno(SFileException::seekError, err.crtNumber());
    if (r > limit) {
        os::fileSeek(m_fd, origin == seekCurrent ? r - offset : before, seekBegin, err);
        throwFromErrno(SFileException::seekError, EINVAL);
    }
    return static_cast<int32_t>(r);
}

int32_t SFile::seekToBegin() const
{
    return seek(seekBegin, 0);
}

int32_t SFile::seekToEnd() const
{
    return seek(seekEnd, 0);
}

uint32_t SFile::getPosition() const
{
    return static_cast<uint32_t>(seek(seekCurrent, 0));
}

uint32_t SFile::size() const
{
    uint32_t position = getPosition();
    seek(seekBegin, 0);
    uint32_t end = static_cast<uint32_t>(seek(seekEnd, 0));
    seek(seekBegin, static_cast<int32_t>(position));
    return end;
}

bool SFile::eof()
{
    int64_t position = seekEx(seekCurrent, 0);
    int64_t end = seekEx(seekEnd, 0);
    seekEx(seekBegin, position);
    return position >= end;
}

// ---- text ------------------------------------------------------------------------------

SWCharString SFile::readString()
{
    uint32_t fileSize = size();
    uint32_t position = getPosition();
    uint32_t remaining = fileSize - position;
    if (remaining == 0)
        return SWCharString();
    // Positioned beyond the end: the loop below would see end of file at once. Fail the
    // same way without asking for a buffer of the wrapped-around size.
    if (position > fileSize)
        throwFromErrno(SFileException::readError, 0);

    std::unique_ptr<char[]> buffer(new (std::nothrow) char[static_cast<size_t>(remaining) + 1]);
    if (!buffer)
        throwNoMemory(SFileException::readError);

    size_t filled = 0;
    int budget = kEmptyReadBudget;
    bool complete = false;
    int failure = 0;   // the error number of a failed read or end test
    try {
        for (;;) {
            int n = read(buffer.get() + filled, remaining);
            bool atEnd = eof();
            remaining -= static_cast<uint32_t>(n);
            filled += static_cast<size_t>(n);
            if (n == 0)
                --budget;
            if (remaining < 1) {
                complete = true;
                break;
            }
            if (atEnd || budget <= 0)
                break;
        }
    } catch (const SFileException& e) {
        failure = e.getErrno();
    }
    if (!complete)
        throwFromErrno(SFileException::readError, failure);
    buffer[filled] = 0;
    return fileBytesToText(buffer.get(), filled);
}

SWCharString SFile::readLine()
{
    if (m_bIsOpened) {
        // Block reads need a file whose read-ahead a seek can take back, and sizes the
        // 32-bit queries of the byte rule accept.
        bool regular = false;
        int64_t fileSize = 0;
        os::OsError ignored;
        if (os::fileDescribe(m_fd, regular, fileSize, ignored) && regular && fileSize <= kLimit32) {
            SWCharString line;
            if (readLineBlocks(fileSize, line))
                return line;
        }
    }
    return readLineByteByByte();
}

// readLine on a regular file of fileSize bytes: reads a block, takes the line from it and
// seeks back to just after the line (one relative seek, whose result also tells where the
// line began). The result, the position afterwards and the failures are those of the byte
// rule: the line ends at a line feed, at the size the file had when the call began, or at
// the end of the file. Returns false, with nothing consumed, where the byte rule must
// decide (positions beyond 32 bits, which it refuses).
bool SFile::readLineBlocks(int64_t fileSize, SWCharString& result)
{
    char first[kFirstLineBlock];
    os::OsError err;
    int n = os::fileRead(m_fd, first, sizeof first, err);
    if (n <= 0) {
        os::OsError seekErr;
        int64_t position = os::fileSeek(m_fd, 0, seekCurrent, seekErr);
        if (position < 0 || position > kLimit32)
            return false;
        // At or beyond the end the rule reads nothing: an empty line, even where a read
        // would fail. Before the end a failed read is the rule's failure too.
        if (n == 0 || position >= fileSize) {
            result.empty();
            return true;
        }
        throwFromErrno(SFileException::readError, err.crtNumber());
    }

    const char* lf = static_cast<const char*>(std::memchr(first, '\n', static_cast<size_t>(n)));
    int64_t take = lf ? (lf - first) + 1 : n;
    int64_t after = os::fileSeek(m_fd, take - n, seekCurrent, err);
    if (after < 0)
        throwFromErrno(SFileException::readError, err.crtNumber());
    const int64_t start = after - take;
    if (start > kLimit32) {
        os::fileSeek(m_fd, start, seekBegin, err);
        return false;
    }
    // Never beyond the size the file had when the call began (it may have grown since).
    int64_t remaining = fileSize - start;
    if (take > remaining) {
        take = remaining > 0 ? remaining : 0;
        lf = nullptr;
        if (os::fileSeek(m_fd, start + take, seekBegin, err) < 0)
            throwFromErrno(SFileException::readError, err.crtNumber());
    }
    remaining -= take;

    if (lf) {
        size_t length = static_cast<size_t>(take - 1);
        if (!std::memchr(first, '\r', length)) {
            result = fileBytesToText(first, length);
            return true;
        }
    }

    int64_t consumed = take;
    std::string line;
    try {
        appendWithoutCR(line, first, static_cast<size_t>(lf ? take - 1 : take));
        // A long line: go on by growing blocks until the line feed, the size or the end.
        bool more = !lf && n == static_cast<int>(sizeof first) && remaining > 0;
        std::vector<char> block;
        unsigned int blockSize = 2 * kFirstLineBlock;
        while (more) {
            unsigned int want = remaining < blockSize ? static_cast<unsigned int>(remaining) : blockSize;
            if (block.size() < want)
                block.resize(want);
            int got = os::fileRead(m_fd, block.data(), want, err);
            if (got < 0) {
                os::OsError seekErr;
                os::fileSeek(m_fd, start + consumed, seekBegin, seekErr);
                throwFromErrno(SFileException::readError, err.crtNumber());
            }
            if (got == 0)
                break;
            const char* p = block.data();
            const char* end = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(got)));
            size_t used = end ? static_cast<size_t>(end - p) + 1 : static_cast<size_t>(got);
            appendWithoutCR(line, p, end ? used - 1 : used);
            consumed += static_cast<int64_t>(used);
            remaining -= static_cast<int64_t>(used);
            if (end) {
                // Give back what was read beyond the line.
                if (used != static_cast<size_t>(got) && os::fileSeek(m_fd, start + consumed, seekBegin, err) < 0)
                    throwFromErrno(SFileException::readError, err.crtNumber());
                more = false;
            } else {
                more = remaining > 0;
            }
            if (blockSize < kLargestLineBlock)
                blockSize *= 2;
        }
    } catch (const std::bad_alloc&) {
        VARDO_ASSERT_TEXT("wholebuffer");
        os::fileSeek(m_fd, start + consumed, seekBegin, err);
        throwNoMemory(SFileException::readError);
    }
    result = fileBytesToText(line.data(), line.size());
    return true;
}

SWCharString SFile::readLineByteByByte()
{
    // The line may be as long as the rest of the file.
    int64_t remaining = static_cast<uint32_t>(size() - getPosition());
    std::string line;
    char scratch[2];
    int budget = kEmptyReadBudget;
    try {
        bool sawLineFeed = false;
        do {
            int n = 0;
            if (!eof()) {
                n = read(scratch, 1);
                if (n == 1) {
                    if (scratch[0] == '\n')
                        sawLineFeed = true;
                    else if (scratch[0] != '\r')
                        line.push_back(scratch[0]);
                }
            }
            remaining -= n;
            if (n == 0)
                --budget;
        } while (remaining >= 1 && !sawLineFeed && budget > 0 && !eof());
    } catch (const SFileException& e) {
        throwFromErrno(SFileException::readError, e.getErrno());
    } catch (const std::bad_alloc&) {
        VARDO_ASSERT_TEXT("wholebuffer");
        throwNoMemory(SFileException::readError);
    }
    return fileBytesToText(line.data(), line.size());
}

int SFile::writeString(const SWCharString& text)
{
    SSimpleBuffer bytes;
    unsigned int converted =
        MBCSCodesetConverter::TToExplicitCodeset(text, MBCSCodesetConverter::UTF8Codeset, bytes);
    if (converted == 0)
        return 0;
    int n = write(bytes.data(), converted - 1);
    return n < 1 ? 0 : n;
}

} // namespace Vardo400
