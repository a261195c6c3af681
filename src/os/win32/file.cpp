// Descriptor-level file calls on Windows: the C run-time's wide-character calls, with
// the flags, share modes and permissions passed through unchanged.
#include "os/os_file.h"

#include "vardo/sstring.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace Vardo400 {
namespace os {

namespace {

enum { faultOpen = 0, faultRead = 1, faultWrite = 2, faultCommit = 3 };

const wchar_t* widePath(const SWCharString& path)
{
    // wchar_t is a 16-bit UTF-16 unit here, the same as the string's units.
    return reinterpret_cast<const wchar_t*>(path.data());
}

// The run-time's invalid-parameter handling is not ours to trigger: refuse descriptors
// that cannot be valid before they reach it.
bool badFd(int fd)
{
    if (fd < 0) {
        errno = EBADF;
        return true;
    }
    return false;
}

} // namespace

int fileOpen(const SWCharString& path, int flags, int share, int permissions)
{
    if (fileFaultTriggered(faultOpen))
        return -1;
    // Never inheritable; the run-time looks only at the read and write permission bits.
    return ::_wsopen(widePath(path), flags | _O_NOINHERIT, share,
                     permissions & (_S_IREAD | _S_IWRITE));
}

int fileRead(int fd, void* buffer, unsigned int count)
{
    if (badFd(fd) || fileFaultTriggered(faultRead))
        return -1;
    return ::_read(fd, buffer, count);
}

int fileWrite(int fd, const void* buffer, unsigned int count)
{
    if (badFd(fd) || fileFaultTriggered(faultWrite))
        return -1;
    return ::_write(fd, buffer, count);
}

int64_t fileSeek(int fd, int64_t offset, int origin)
{
    if (badFd(fd))
        return -1;
    if (origin < SEEK_SET || origin > SEEK_END) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int64_t>(::_lseeki64(fd, offset, origin));
}

int fileCommit(int fd)
{
    if (badFd(fd) || fileFaultTriggered(faultCommit))
        return -1;
    return ::_commit(fd);
}

int fileClose(int fd)
{
    if (badFd(fd))
        return -1;
    return ::_close(fd);
}

bool fileDescribe(int fd, bool& isRegular, int64_t& size)
{
    if (badFd(fd))
        return false;
    struct _stati64 st;
    if (::_fstati64(fd, &st) != 0)
        return false;
    isRegular = (st.st_mode & _S_IFMT) == _S_IFREG;
    size = static_cast<int64_t>(st.st_size);
    return true;
}

int fileStatCreationTime(const SWCharString& path, int64_t& seconds)
{
    struct _stati64 st;
    if (::_wstati64(widePath(path), &st) != 0)
        return -1;
    seconds = static_cast<int64_t>(st.st_ctime);
    return 0;
}

int fileRemove(const SWCharString& path)
{
    return ::_wremove(widePath(path));
}

void errorText(int errorNumber, char* buffer, size_t size)
{
    if (!buffer || size == 0)
        return;
    // The run-time's strerror keeps its text per thread.
    const char* text = ::strerror(errorNumber);
    std::strncpy(buffer, text ? text : "", size - 1);
    buffer[size - 1] = 0;
}

} // namespace os
} // namespace Vardo400
