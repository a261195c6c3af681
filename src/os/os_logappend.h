// Appends to log files that several processes share: an append-only open that also tells
// the size, the write and close of each line, an exclusive append lock on an open
// descriptor, a test whether a descriptor still is the file its name leads to, and a
// rename that never replaces an existing file. Not installed.
#ifndef VARDO_OS_LOGAPPEND_H
#define VARDO_OS_LOGAPPEND_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vardo400 {

class SWCharString;

namespace os {

// A lock on a log file's name, held from before the file is opened until after it is
// closed, for platforms that refuse to rename a file another process holds open: there
// every writer waits here instead of waiting with the file open, so the writer that
// rotates finds nobody else holding it. Windows: a named mutex derived from the full
// path (the session-wide namespace when the global one is refused; an owner that died
// hands it on). POSIX: nothing, the lock on the open file does the job. Released by the
// destructor.
class AppendNameLock {
public:
    explicit AppendNameLock(const SWCharString& path);
    ~AppendNameLock();
    AppendNameLock(const AppendNameLock&) = delete;
    AppendNameLock& operator=(const AppendNameLock&) = delete;

private:
    void* m_handle;
};

// A log file's name as the system takes it, converted once and kept for line after line:
// POSIX holds the UTF-8 bytes, Windows the UTF-16 text of the name itself.
class AppendPath {
public:
    AppendPath() = default;
    explicit AppendPath(const SWCharString& path);
    // False when the name cannot be given to the system (empty, not convertible).
    bool valid() const { return m_valid; }
    const std::string& native() const { return m_native; }

private:
    std::string m_native;
    bool m_valid = false;
};

// Opens path for appending: write-only, binary, non-inheritable, no sharing restriction,
// owner read/write/execute permission bits (Windows keeps read/write); with create the file is made when missing. Answers
// the descriptor and, in size, where the file ends (the position an append would take);
// -1 with errno (C run-time numbers: ENOENT missing, EACCES refused, ...) otherwise. It
// makes no other call: a directory is refused by the system itself, since it is never
// opened for writing.
int appendOpen(const AppendPath& path, bool create, int64_t& size);

// Where the file of fd ends now, or -1 with errno.
int64_t appendEnd(int fd);

// Writes all of data to fd, in as few writes as the system allows. False (errno set) when
// a write fails or takes nothing.
bool appendWrite(int fd, const char* data, size_t size);

// Closes a descriptor from appendOpen.
void appendClose(int fd);

// Blocks until fd holds the exclusive append lock of its file, against every other
// descriptor of the file in this process or another. Closing the descriptor releases
// it. False (errno set) when the platform refuses the lock; the caller then appends
// unlocked.
bool appendLock(int fd);

// Whether one write to a descriptor opened for appending lands whole at the file's end
// even while other descriptors (other processes) append too: true where the system
// appends atomically (POSIX O_APPEND), false where the run-time seeks and then writes
// (the Windows C run-time), so that appends must hold appendLock.
bool appendIsAtomic();

// Whether fd still is the file that path names: false once that name was renamed,
// removed or now leads to another file. True when it cannot tell.
bool appendIsCurrent(int fd, const SWCharString& path);

// Renames the file from to to, never replacing an existing to. 0, or -1 with errno:
// EEXIST when to exists, EBUSY when the platform refuses to rename a file that is open
// (Windows), ENOENT when from is gone, else the system's reason.
int renameNoReplace(const SWCharString& from, const SWCharString& to);

// A number that changes in the child of a fork, so that process and thread ids kept from
// before can be recognised as stale. Constant where processes are not forked (Windows).
uint32_t processGeneration();

} // namespace os
} // namespace Vardo400

#endif
