// Descriptor-level file calls on POSIX, with the C run-time (Windows) flag values
// translated. Share modes have no POSIX equivalent and are ignored.
#include "os/os_file.h"

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

enum { faultOpen = 0, faultRead = 1, faultWrite = 2, faultCommit = 3 };

// The path as UTF-8 bytes; false (errno EINVAL) when it cannot be converted.
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

// strerror_r comes in two shapes; both end up in buffer.
inline void takeText(int result, char* buffer, size_t size, int e)
{
    if (result != 0)
        std::snprintf(buffer, size, "Unknown error %d", e);
}
inline void takeText(const char* result, char* buffer, size_t size, int)
{
    if (result != buffer) {
        std::strncpy(buffer, result, size - 1);
        buffer[size - 1] = 0;
    }
}

} // namespace

int fileOpen(const SWCharString& path, int flags, int share, int permissions)
{
    (void)share;
    if (fileFaultTriggered(faultOpen))
        return -1;
    std::string name;
    if (!systemPath(path, name))
        return -1;
    int oflags = O_CLOEXEC;
    switch (flags & kAccessMask) {
    case 0: oflags |= O_RDONLY; break;
    case 1: oflags |= O_WRONLY; break;
    case 2: oflags |= O_RDWR; break;
    default: errno = EINVAL; return -1;
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
    if (fd < 0)
        return -1;
    // A directory is not a file: refuse it as Windows does.
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        errno = EISDIR;
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

int fileRead(int fd, void* buffer, unsigned int count)
{
    if (fileFaultTriggered(faultRead))
        return -1;
    ssize_t n;
    do {
        n = ::read(fd, buffer, count);
    } while (n < 0 && errno == EINTR);
    return static_cast<int>(n);
}

int fileWrite(int fd, const void* buffer, unsigned int count)
{
    if (fileFaultTriggered(faultWrite))
        return -1;
    ssize_t n;
    do {
        n = ::write(fd, buffer, count);
    } while (n < 0 && errno == EINTR);
    return static_cast<int>(n);
}

int64_t fileSeek(int fd, int64_t offset, int origin)
{
    return static_cast<int64_t>(::lseek(fd, static_cast<off_t>(offset), origin));
}

int fileCommit(int fd)
{
    if (fileFaultTriggered(faultCommit))
        return -1;
    return ::fsync(fd);
}

int fileClose(int fd)
{
    return ::close(fd);
}

bool fileDescribe(int fd, bool& isRegular, int64_t& size)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    isRegular = S_ISREG(st.st_mode);
    size = static_cast<int64_t>(st.st_size);
    return true;
}

int fileStatCreationTime(const SWCharString& path, int64_t& seconds)
{
    std::string name;
    if (!systemPath(path, name))
        return -1;
    struct stat st;
    if (::stat(name.c_str(), &st) != 0)
        return -1;
    seconds = static_cast<int64_t>(st.st_ctime);
    return 0;
}

int fileRemove(const SWCharString& path)
{
    std::string name;
    if (!systemPath(path, name))
        return -1;
    return ::unlink(name.c_str());
}

void errorText(int errorNumber, char* buffer, size_t size)
{
    if (!buffer || size == 0)
        return;
    buffer[0] = 0;
    takeText(::strerror_r(errorNumber, buffer, size), buffer, size, errorNumber);
}

} // namespace os
} // namespace Vardo400
