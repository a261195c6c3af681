// Descriptor-level file calls on POSIX, with the C run-time (Windows) flag values
// translated. Share modes have no POSIX equivalent and are ignored.
#include "os/os_file.h"
#include "os/posix/syspath.h"
#include "os/os_faults.h"

#include "vardo/sstring.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace Vardo400 {
namespace os {

namespace {

// The C run-time's flag values, as SFile defines them.
const int kAccessMask = 0x3;
const int kAppend = 0x8;
const int kRandom = 0x10;
const int kSequential = 0x20;
const int kTemporary = 0x40;
const int kCreate = 0x100;
const int kTruncate = 0x200;
const int kExclusive = 0x400;

} // namespace

bool systemPath(const SWCharString& path, std::string& out)
{
    unsigned int room = path.getNBytesForUTF8();
    if (room == 0 || room == 0xFFFFFFFFu) {
        errno = EINVAL;
        return false;
    }
    out.assign(room + 1, '\0');
    unsigned int n = path.toUTF8(reinterpret_cast<unsigned char*>(&out[0]), room + 1);
    if (n == 0xFFFFFFFFu) {
        errno = EINVAL;
        return false;
    }
    out.resize(n);
    return true;
}

int fileOpen(const SWCharString& path, int flags, int share, int permissions, OsError& err)
{
    (void)share;
    if (faultFires(faultFileOpen, err))
        return -1;
    std::string name;
    if (!systemPath(path, name))
        return failFromErrno(err), -1;
    int oflags = O_CLOEXEC;
    switch (flags & kAccessMask) {
    case 0: oflags |= O_RDONLY; break;
    case 1: oflags |= O_WRONLY; break;
    case 2: oflags |= O_RDWR; break;
    default: err.setCrt(EINVAL); return -1;
    }
    if (flags & kAppend)
        oflags |= O_APPEND;
    if (flags & kCreate) {
        oflags |= O_CREAT;
        if (flags & kExclusive)
            oflags |= O_EXCL;
    }
    if (flags & kTruncate)
        oflags |= O_TRUNC;
    mode_t mode = static_cast<mode_t>(permissions) & 0777;
    int fd;
    do {
        fd = ::open(name.c_str(), oflags, mode);
    } while (fd < 0 && errno == EINTR);
    struct stat st;
    if (fd < 0) {
        // An exclusive create reports an existing directory as existing; it is no file
        // that anyone could hold, so say what it is.
        const int e = errno;
        const bool directory = e == EEXIST && ::stat(name.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
        err.setCrt(directory ? EISDIR : e);
        return -1;
    }
    // A directory is not a file: refuse it as Windows does.
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        err.setCrt(EISDIR);
        return -1;
    }
    if (flags & kTemporary)
        ::unlink(name.c_str());
#if defined(POSIX_FADV_SEQUENTIAL)
    if (flags & kSequential)
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    else if (flags & kRandom)
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
#endif
    return fd;
}

int fileRead(int fd, void* buffer, unsigned int count, OsError& err)
{
    if (faultFires(faultFileRead, err))
        return -1;
    ssize_t n;
    do {
        n = ::read(fd, buffer, count);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        failFromErrno(err);
    return static_cast<int>(n);
}

int fileWrite(int fd, const void* buffer, unsigned int count, OsError& err)
{
    if (faultFires(faultFileWrite, err))
        return -1;
    ssize_t n;
    do {
        n = ::write(fd, buffer, count);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        failFromErrno(err);
    return static_cast<int>(n);
}

int64_t fileSeek(int fd, int64_t offset, int origin, OsError& err)
{
    const off_t r = ::lseek(fd, static_cast<off_t>(offset), origin);
    if (r < 0)
        failFromErrno(err);
    return static_cast<int64_t>(r);
}

int fileCommit(int fd, OsError& err)
{
    if (faultFires(faultFileCommit, err))
        return -1;
    if (::fsync(fd) != 0)
        return failFromErrno(err), -1;
    return 0;
}

int fileClose(int fd, OsError& err)
{
    if (::close(fd) != 0)
        return failFromErrno(err), -1;
    return 0;
}

bool fileDescribe(int fd, bool& isRegular, int64_t& size, OsError& err)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return failFromErrno(err);
    isRegular = S_ISREG(st.st_mode);
    size = static_cast<int64_t>(st.st_size);
    return true;
}

int fileStatCreationTime(const SWCharString& path, int64_t& seconds, OsError& err)
{
    std::string name;
    if (!systemPath(path, name))
        return failFromErrno(err), -1;
    struct stat st;
    if (::stat(name.c_str(), &st) != 0)
        return failFromErrno(err), -1;
    seconds = static_cast<int64_t>(st.st_ctime);
    return 0;
}

int fileRemove(const SWCharString& path, OsError& err)
{
    std::string name;
    if (!systemPath(path, name) || ::unlink(name.c_str()) != 0)
        return failFromErrno(err), -1;
    return 0;
}

} // namespace os
} // namespace Vardo400
