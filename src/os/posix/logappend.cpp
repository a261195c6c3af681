// Shared log appends on POSIX: flock (one lock per open file description, so threads
// with descriptors of their own exclude each other as processes do), inode identity,
// and renameat2 with RENAME_NOREPLACE (link and unlink where the file system lacks it).
#include "os/os_logappend.h"
#include "os/posix/syspath.h"
#include "os/os_faults.h"

#include "vardo/sstring.h"

#include <atomic>
#include <cerrno>
#include <pthread.h>
#include <string>

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Vardo400 {
namespace os {

namespace {

std::atomic<uint32_t> g_generation{1};

void forkedChild()
{
    g_generation.fetch_add(1, std::memory_order_relaxed);
}

// Registered while the library loads, before any thread of it can fork.
struct ForkWatch {
    ForkWatch() { ::pthread_atfork(nullptr, nullptr, forkedChild); }
} g_forkWatch;

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE (1 << 0)
#endif

} // namespace

AppendPath::AppendPath(const SWCharString& path)
{
    m_valid = systemPath(path, m_native);
}

int appendOpen(const AppendPath& path, bool create, int64_t& size)
{
    OsError injected;
    if (faultFires(faultFileOpen, injected)) {
        errno = injected.crtNumber();
        return -1;
    }
    if (!path.valid()) {
        errno = EINVAL;
        return -1;
    }
    int flags = O_WRONLY | O_APPEND | O_CLOEXEC | (create ? O_CREAT : 0);
    int fd;
    do {
        fd = ::open(path.native().c_str(), flags, 0700);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return -1;
    // The end of an append-only descriptor: one cheap call, no status record.
    const off_t end = ::lseek(fd, 0, SEEK_END);
    if (end < 0) {
        const int e = errno;
        ::close(fd);
        errno = e;
        return -1;
    }
    size = static_cast<int64_t>(end);
    return fd;
}

int64_t appendEnd(int fd)
{
    return static_cast<int64_t>(::lseek(fd, 0, SEEK_END));
}

bool appendWrite(int fd, const char* data, size_t size)
{
    OsError injected;
    if (faultFires(faultFileWrite, injected)) {
        errno = injected.crtNumber();
        return false;
    }
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

void appendClose(int fd)
{
    ::close(fd);   // never retried: the descriptor is gone even when close reports EINTR
}

bool appendLock(int fd)
{
    for (;;) {
        if (::flock(fd, LOCK_EX) == 0)
            return true;
        if (errno != EINTR)
            return false;
    }
}

AppendNameLock::AppendNameLock(const SWCharString&) : m_handle(nullptr) {}

AppendNameLock::~AppendNameLock()
{
    (void)m_handle;   // POSIX keeps no name lock
}

uint32_t processGeneration()
{
    return g_generation.load(std::memory_order_relaxed);
}

bool appendIsAtomic()
{
    return true;
}

bool appendIsCurrent(int fd, const SWCharString& path)
{
    std::string name;
    struct stat open, named;
    if (!systemPath(path, name) || ::fstat(fd, &open) != 0)
        return true;
    if (::stat(name.c_str(), &named) != 0)
        return errno != ENOENT;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int renameNoReplace(const SWCharString& from, const SWCharString& to)
{
    std::string src, dst;
    if (!systemPath(from, src) || !systemPath(to, dst))
        return -1;
#ifdef SYS_renameat2
    if (::syscall(SYS_renameat2, AT_FDCWD, src.c_str(), AT_FDCWD, dst.c_str(),
                  RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return -1;
#endif
    // A second name first: link fails with EEXIST rather than replacing.
    if (::link(src.c_str(), dst.c_str()) != 0)
        return -1;
    if (::unlink(src.c_str()) != 0) {
        int e = errno;
        ::unlink(dst.c_str());
        errno = e;
        return -1;
    }
    return 0;
}

} // namespace os
} // namespace Vardo400
