// One line appended to a log file that other threads and processes append to as well.
//
// Each line is: open (up to 5 attempts), rotate when the file is full, write header (into
// an empty main log only) and line as ONE write, close. An empty or full file is handled
// under the file's append lock, which makes "is it empty / is it full" and the write or
// rotation that follows one step, so two writers never both put a header into a new file
// and never both rotate the same file. Any other line is one appending write: atomic
// where the system appends atomically, locked where it does not.
//
// Rotation renames the full file to STEM_bakN.EXT, N from a process-wide counter that
// never repeats within the process, and never replaces an existing file. Each process
// counts from 1, so a process that joins late finds the low numbers taken by the others
// and may use up its 10 tries on taken names. Dropping the line then loses data: with
// 8 processes of 4 threads writing 12,800 lines into a log rotated about 260 times, 98
// to 105 lines were lost that way in each run. So the line goes into the current file
// instead, which grows past the maximum until a later write finds a free name; the same
// test then loses none.
//
// A writer that opened the file just before another writer rotated it holds the renamed
// file: after taking the lock it sees a full file that its name no longer leads to, and
// opens the name again.
//
// A line costs the system four calls: open (append-only, non-inheritable), one seek to
// the end for the size, the write, close. The caller keeps the name converted for the
// system (PathCache), once per thread.
#include "vardo/sfilesys.h"
#include "vardo/csiprocess.h"

#include "logger_internal.h"
#include "os/os_logappend.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Vardo400 {
namespace logger_detail {

namespace {

const int kOpenAttempts = 5;
const uint32_t kOpenRetryMs = 10;
const int kBackupTries = 10;
// Rounds of "the name moved under us, open it again"; each round means another writer
// rotated in the meantime, so running out is practically impossible.
const int kReopenRounds = 64;

std::atomic<uint32_t> g_backupNumber{1};

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

// An open log file, closed when it goes.
class LogFd {
public:
    LogFd() = default;
    ~LogFd() { close(); }
    LogFd(const LogFd&) = delete;
    LogFd& operator=(const LogFd&) = delete;
    void reset(int fd)
    {
        close();
        m_fd = fd;
    }
    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    void close()
    {
        if (m_fd >= 0) {
            os::appendClose(m_fd);
            m_fd = -1;
        }
    }

private:
    int m_fd = -1;
};

// Opens the log for appending, without creating at first. A refused access gives up at
// once; a missing file makes the later attempts create it; anything else is retried
// after a short sleep. Someone else creating the file between our attempts is not a
// failure: the attempt after that appends to it.
bool openForAppend(LogFd& f, const SWCharString& name, const os::AppendPath& path, bool createNow,
                   int64_t& size)
{
    bool create = createNow;
    for (int attempt = 1; attempt <= kOpenAttempts; ++attempt) {
        const int fd = os::appendOpen(path, create, size);
        if (fd >= 0) {
            f.reset(fd);
            return true;
        }
        const int e = errno;
        if (e == EACCES)
            return false;
        if (e == ENOENT) {
            // Creating fails the same way when the folder itself is missing.
            if (create) {
                SWCharString dir = GetParentLevelDir(name, SFileSys::getSeparator());
                if (!dir.isEmpty() && !SFileSys::isDir(dir))
                    return false;
            }
            create = true;
        }
        if (attempt < kOpenAttempts)
            CSIProcess::MilliSleep(kOpenRetryMs);
    }
    return false;
}

// name split into "dir/stem" and ".ext" (the extension of the last component only).
void splitExtension(const SWCharString& name, SWCharString& stem, SWCharString& ext)
{
    const unsigned short* p = name.data();
    unsigned int n = name.getLength();
    unsigned int dot = n;
    for (unsigned int i = n; i > 0; --i) {
        unsigned short c = p[i - 1];
        if (c == '/' || c == '\\')
            break;
        if (c == '.') {
            dot = i - 1;
            break;
        }
    }
    stem = name.left(dot);
    ext = name.mid(dot);
}

enum RotateResult { rotated, noFreeName, notRotated };

// Renames the full file (open in f, lock held) to the next free backup name. Where the
// platform refuses to rename an open file, f is closed first; if the rename still fails
// the caller starts over on the current name.
RotateResult rotate(LogFd& f, const SWCharString& name)
{
    SWCharString stem, ext;
    splitExtension(name, stem, ext);
    for (int i = 0; i < kBackupTries; ++i) {
        char number[16];
        std::snprintf(number, sizeof number, "%u", g_backupNumber.fetch_add(1));
        SWCharString backup = stem + ascii("_bak") + ascii(number) + ext;
        int rc = os::renameNoReplace(name, backup);
        if (rc != 0 && errno == EBUSY && f.isOpen()) {
            f.close();
            rc = os::renameNoReplace(name, backup);
        }
        if (rc == 0)
            return rotated;
        if (errno != EEXIST)
            return notRotated;
    }
    return noFreeName;
}

} // namespace

const os::AppendPath& PathCache::get(const SWCharString& name)
{
    for (unsigned int i = 0; i < 4; ++i)
        if (m_names[i].data() == name.data() && !name.isEmpty())
            return m_paths[i];
    for (unsigned int i = 0; i < 4; ++i)
        if (!name.isEmpty() && m_names[i] == name) {
            m_names[i] = name;   // share the caller's buffer from now on
            return m_paths[i];
        }
    const unsigned int i = m_next++ % 4;
    m_paths[i] = os::AppendPath(name);
    m_names[i] = name;
    return m_paths[i];
}

AppendResult appendLine(const SWCharString& fullName, const os::AppendPath& path,
                        const char* line, size_t lineSize, const char* headerLine,
                        uint32_t maxSize)
{
    try {
        AppendResult result = appendWritten;
        bool mayRotate = true;
        bool justRotated = false;
        const int64_t max = maxSize;
        os::AppendNameLock nameLock(fullName);
        for (int round = 0; round < kReopenRounds; ++round) {
            LogFd f;
            int64_t size = 0;
            if (!openForAppend(f, fullName, path, justRotated, size))
                return appendFailed;
            // A line into a file that is neither empty nor full needs no decision, and
            // where appends are atomic it needs no lock either.
            if (!os::appendIsAtomic() || size == 0 || (size >= max && mayRotate)) {
                os::appendLock(f.get());
                size = os::appendEnd(f.get());
                if (size < 0)
                    return appendFailed;
            }
            if (size >= max && mayRotate) {
                if (!os::appendIsCurrent(f.get(), fullName))
                    continue;   // rotated away by another writer: open the name again
                RotateResult r = rotate(f, fullName);
                if (r == rotated) {
                    justRotated = true;
                    continue;   // f (if still open) is the backup; start the new file
                }
                // No rotation this time: the line goes into the current file.
                mayRotate = false;
                if (r == noFreeName)
                    result = appendOverSize;
                if (!f.isOpen())
                    continue;   // closed for a refused rename: open the name again
            }
            if (size == 0 && headerLine) {
                std::string bytes(headerLine);
                bytes.append(line, lineSize);
                if (!os::appendWrite(f.get(), bytes.data(), bytes.size()))
                    return appendFailed;
            } else if (!os::appendWrite(f.get(), line, lineSize)) {
                return appendFailed;
            }
            return result;
        }
        return appendFailed;
    } catch (...) {
        return appendFailed;
    }
}

} // namespace logger_detail
} // namespace Vardo400
