// Descriptor-level file calls with the C run-time's conventions: a failing call returns
// -1 and leaves the reason in errno. Flags, permissions, share modes and seek origins
// are the C run-time (Windows) values that SFile defines; the POSIX implementation
// translates them. Every descriptor is opened non-inheritable. Not installed.
#ifndef VARDO_OS_FILE_H
#define VARDO_OS_FILE_H

#include <cstddef>
#include <cstdint>

namespace Vardo400 {

class SWCharString;

namespace os {

// _wsopen(path, flags, share, permissions): a descriptor, or -1.
int fileOpen(const SWCharString& path, int flags, int share, int permissions);
// _read / _write: bytes transferred, or -1.
int fileRead(int fd, void* buffer, unsigned int count);
int fileWrite(int fd, const void* buffer, unsigned int count);
// _lseeki64: the new position, or -1.
int64_t fileSeek(int fd, int64_t offset, int origin);
// _commit: 0, or -1.
int fileCommit(int fd);
// _close: 0, or -1.
int fileClose(int fd);

// What a descriptor refers to: whether it is a regular file (positions and sizes are
// meaningful and reading ahead can be undone by a seek) and its size. False (errno set)
// when the descriptor cannot be queried.
bool fileDescribe(int fd, bool& isRegular, int64_t& size);

// _wstat: 0 with the file's creation time in seconds (Windows: creation time; Linux:
// status-change time), or -1.
int fileStatCreationTime(const SWCharString& path, int64_t& seconds);
// _wremove: 0, or -1.
int fileRemove(const SWCharString& path);

// The C run-time's message text for an error number, in the process code page.
void errorText(int errorNumber, char* buffer, size_t size);

// ---- fault injection for tests (src/os/file_faults.cpp) ----------------------------------
// True when the next call of op must fail; sets errno to the injected number.
bool fileFaultTriggered(int op);

} // namespace os
} // namespace Vardo400

#endif
