// Descriptor-level file calls on Windows: the C run-time's wide-character calls, with
// the flags, share modes and permissions passed through unchanged.
#include "os/os_file.h"
#include "os/os_faults.h"

#include "vardo/sstring.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace Vardo400 {
namespace os {

namespace {

const wchar_t* widePath(const SWCharString& path)
{
    // wchar_t is a 16-bit UTF-16 unit here, the same as the string's units.
    return reinterpret_cast<const wchar_t*>(path.data());
}

// The run-time's invalid-parameter handling is not ours to trigger: refuse descriptors
// that cannot be valid before they reach it.
bool badFd(int fd, OsError& err)
{
    if (fd < 0) {
        err.setCrt(EBADF);
        return true;
    }
    return false;
}

bool isDirectory(const SWCharString& path)
{
    struct _stati64 st;
    return ::_wstati64(widePath(path), &st) == 0 && (st.st_mode & _S_IFMT) == _S_IFDIR;
}

} // namespace

int fileOpen(const SWCharString& path, int flags, int share, int permissions, OsError& err)
{
    if (faultFires(faultFileOpen, err))
        return -1;
    // Never inheritable; the run-time looks only at the read and write permission bits.
    const int fd = ::_wsopen(widePath(path), flags | _O_NOINHERIT, share,
                             permissions & (_S_IREAD | _S_IWRITE));
    if (fd < 0) {
        // A directory is no file that anyone could hold: say what it is.
        const int e = errno;
        err.setCrt(e == EEXIST && isDirectory(path) ? EISDIR : e);
    }
    return fd;
}

int fileRead(int fd, void* buffer, unsigned int count, OsError& err)
{
    if (badFd(fd, err) || faultFires(faultFileRead, err))
        return -1;
    const int n = ::_read(fd, buffer, count);
    if (n < 0)
        failFromErrno(err);
    return n;
}

int fileWrite(int fd, const void* buffer, unsigned int count, OsError& err)
{
    if (badFd(fd, err) || faultFires(faultFileWrite, err))
        return -1;
    const int n = ::_write(fd, buffer, count);
    if (n < 0)
        failFromErrno(err);
    return n;
}

int64_t fileSeek(int fd, int64_t offset, int origin, OsError& err)
{
    if (badFd(fd, err))
        return -1;
    if (origin < SEEK_SET || origin > SEEK_END) {
        err.setCrt(EINVAL);
        return -1;
    }
    const int64_t r = static_cast<int64_t>(::_lseeki64(fd, offset, origin));
    if (r < 0)
        failFromErrno(err);
    return r;
}

int fileCommit(int fd, OsError& err)
{
    if (badFd(fd, err) || faultFires(faultFileCommit, err))
        return -1;
    if (::_commit(fd) != 0)
        return failFromErrno(err), -1;
    return 0;
}

int fileClose(int fd, OsError& err)
{
    if (badFd(fd, err))
        return -1;
    if (::_close(fd) != 0)
        return failFromErrno(err), -1;
    return 0;
}

bool fileDescribe(int fd, bool& isRegular, int64_t& size, OsError& err)
{
    if (badFd(fd, err))
        return false;
    struct _stati64 st;
    if (::_fstati64(fd, &st) != 0)
        return failFromErrno(err);
    isRegular = (st.st_mode & _S_IFMT) == _S_IFREG;
    size = static_cast<int64_t>(st.st_size);
    return true;
}

int fileStatCreationTime(const SWCharString& path, int64_t& seconds, OsError& err)
{
    struct _stati64 st;
    if (::_wstati64(widePath(path), &st) != 0)
        return failFromErrno(err), -1;
    seconds = static_cast<int64_t>(st.st_ctime);
    return 0;
}

int fileRemove(const SWCharString& path, OsError& err)
{
    if (::_wremove(widePath(path)) != 0)
        return failFromErrno(err), -1;
    return 0;
}

} // namespace os
} // namespace Vardo400
