// Descriptor-level file calls with the C run-time's meanings. Flags, permissions, share
// modes and seek origins are the C run-time (Windows) values that SFile defines; the
// POSIX implementation translates them. A failing call returns -1 (false for the queries)
// and describes the failure in err, always as a C run-time error number, the numbering
// SFileException carries. Every descriptor is opened non-inheritable. Not installed.
#ifndef VARDO_OS_FILE_H
#define VARDO_OS_FILE_H

#include "os/os_error.h"

#include <cstddef>
#include <cstdint>

namespace Vardo400 {
namespace os {

// _wsopen(path, flags, share, permissions): a descriptor, or -1. A directory is never
// opened as a file (Windows: EACCES, Linux: EISDIR), and an exclusive create on an
// existing directory fails with EISDIR rather than EEXIST: there is no file there.
int fileOpen(const SWCharString& path, int flags, int share, int permissions, OsError& err);
// _read / _write: bytes transferred, or -1.
int fileRead(int fd, void* buffer, unsigned int count, OsError& err);
int fileWrite(int fd, const void* buffer, unsigned int count, OsError& err);
// _lseeki64: the new position, or -1.
int64_t fileSeek(int fd, int64_t offset, int origin, OsError& err);
// _commit: 0, or -1.
int fileCommit(int fd, OsError& err);
// _close: 0, or -1.
int fileClose(int fd, OsError& err);

// What a descriptor refers to: whether it is a regular file (positions and sizes are
// meaningful and reading ahead can be undone by a seek) and its size. False when the
// descriptor cannot be queried.
bool fileDescribe(int fd, bool& isRegular, int64_t& size, OsError& err);

// _wstat: 0 with the file's creation time in seconds (Windows: creation time; Linux:
// status-change time), or -1.
int fileStatCreationTime(const SWCharString& path, int64_t& seconds, OsError& err);
// _wremove: 0, or -1.
int fileRemove(const SWCharString& path, OsError& err);

} // namespace os
} // namespace Vardo400

#endif
