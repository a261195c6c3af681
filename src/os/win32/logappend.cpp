// Shared log appends on Windows: LockFileEx on a byte far beyond any log's end (so
// writes of other handles are never refused), file identity by volume and index, and
// MoveFileExW without MOVEFILE_REPLACE_EXISTING. Windows refuses to rename a file that
// any handle holds open; that is reported as EBUSY so the caller can close and retry.
#include "os/os_logappend.h"
#include "os/os_faults.h"

#include "vardo/sstring.h"

#include <cerrno>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <string>

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

namespace Vardo400 {
namespace os {

namespace {

const wchar_t* widePath(const SWCharString& path)
{
    return reinterpret_cast<const wchar_t*>(path.data());
}

HANDLE osHandle(int fd)
{
    return reinterpret_cast<HANDLE>(::_get_osfhandle(fd));
}

int errnoOf(DWORD e)
{
    switch (e) {
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
        return EEXIST;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        return EBUSY;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return ENOENT;
    case ERROR_ACCESS_DENIED:
        return EACCES;
    default:
        return EIO;
    }
}

// The mutex name for a path: the full path, upper-cased, hashed (FNV-1a, 64 bits).
std::wstring mutexSuffix(const SWCharString& path)
{
    wchar_t full[4096];
    DWORD n = ::GetFullPathNameW(widePath(path), 4096, full, nullptr);
    const wchar_t* p = (n > 0 && n < 4096) ? full : widePath(path);
    uint64_t h = 1469598103934665603ull;
    for (; *p; ++p) {
        wchar_t c = *p == L'/' ? L'\\' : *p;
        c = static_cast<wchar_t>(std::towupper(c));
        h ^= static_cast<unsigned short>(c);
        h *= 1099511628211ull;
    }
    wchar_t buf[40];
    ::swprintf(buf, 40, L"vardo-log-%016llx", static_cast<unsigned long long>(h));
    return buf;
}

} // namespace

AppendNameLock::AppendNameLock(const SWCharString& path) : m_handle(nullptr)
{
    const std::wstring suffix = mutexSuffix(path);
    HANDLE h = ::CreateMutexW(nullptr, FALSE, (L"Global\\" + suffix).c_str());
    if (!h)
        h = ::CreateMutexW(nullptr, FALSE, (L"Local\\" + suffix).c_str());
    if (!h)
        return;   // appends go on under the file lock alone
    DWORD w = ::WaitForSingleObject(h, INFINITE);
    if (w != WAIT_OBJECT_0 && w != WAIT_ABANDONED) {
        ::CloseHandle(h);
        return;
    }
    m_handle = h;
}

AppendNameLock::~AppendNameLock()
{
    if (m_handle) {
        ::ReleaseMutex(static_cast<HANDLE>(m_handle));
        ::CloseHandle(static_cast<HANDLE>(m_handle));
    }
}

AppendPath::AppendPath(const SWCharString& path)
{
    // The UTF-16 units and their terminator, kept as bytes.
    const unsigned int n = path.getLength();
    m_valid = n > 0;
    if (m_valid)
        m_native.assign(reinterpret_cast<const char*>(path.data()),
                        (static_cast<size_t>(n) + 1) * sizeof(unsigned short));
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
    const int flags = _O_WRONLY | _O_APPEND | _O_BINARY | _O_NOINHERIT | (create ? _O_CREAT : 0);
    const int fd = ::_wsopen(reinterpret_cast<const wchar_t*>(path.native().data()), flags,
                             _SH_DENYNO, _S_IREAD | _S_IWRITE);
    if (fd < 0)
        return -1;
    const int64_t end = ::_lseeki64(fd, 0, SEEK_END);
    if (end < 0) {
        const int e = errno;
        ::_close(fd);
        errno = e;
        return -1;
    }
    size = end;
    return fd;
}

int64_t appendEnd(int fd)
{
    return static_cast<int64_t>(::_lseeki64(fd, 0, SEEK_END));
}

bool appendWrite(int fd, const char* data, size_t size)
{
    OsError injected;
    if (faultFires(faultFileWrite, injected)) {
        errno = injected.crtNumber();
        return false;
    }
    while (size > 0) {
        const unsigned int chunk = size > 0x40000000u ? 0x40000000u : static_cast<unsigned int>(size);
        const int n = ::_write(fd, data, chunk);
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
    ::_close(fd);
}

bool appendLock(int fd)
{
    HANDLE h = osHandle(fd);
    if (h == INVALID_HANDLE_VALUE) {
        errno = EBADF;
        return false;
    }
    OVERLAPPED at = {};
    at.Offset = 0xFFFFFFFEu;
    at.OffsetHigh = 0x7FFFFFFFu;
    if (!::LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &at)) {
        errno = errnoOf(::GetLastError());
        return false;
    }
    return true;
}

uint32_t processGeneration()
{
    return 1;
}

bool appendIsAtomic()
{
    return false;
}

bool appendIsCurrent(int fd, const SWCharString& path)
{
    HANDLE h = osHandle(fd);
    BY_HANDLE_FILE_INFORMATION open, named;
    if (h == INVALID_HANDLE_VALUE || !::GetFileInformationByHandle(h, &open))
        return true;
    HANDLE n = ::CreateFileW(widePath(path), 0,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (n == INVALID_HANDLE_VALUE)
        return ::GetLastError() != ERROR_FILE_NOT_FOUND;
    bool same = true;
    if (::GetFileInformationByHandle(n, &named))
        same = open.dwVolumeSerialNumber == named.dwVolumeSerialNumber &&
               open.nFileIndexHigh == named.nFileIndexHigh &&
               open.nFileIndexLow == named.nFileIndexLow;
    ::CloseHandle(n);
    return same;
}

int renameNoReplace(const SWCharString& from, const SWCharString& to)
{
    if (::MoveFileExW(widePath(from), widePath(to), 0))
        return 0;
    errno = errnoOf(::GetLastError());
    return -1;
}

} // namespace os
} // namespace Vardo400
