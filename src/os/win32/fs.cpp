// File-system operations on Windows: the Win32 wide-character calls. MoveFileExW and
// GetDiskFreeSpaceExW are looked up in kernel32 at run time, as the library has always
// done, so that it loads on systems that lack them.
#include "os/os_fs.h"
#include "os/os_faults.h"

#include "vardo/strace.h"

#include <windows.h>
#include <aclapi.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace Vardo400 {
namespace os {

namespace {


const wchar_t* wide(const SWCharString& s)
{
    return reinterpret_cast<const wchar_t*>(s.data());
}

SWCharString fromWide(const wchar_t* s, size_t n)
{
    SWCharString r;
    r.concat(reinterpret_cast<const unsigned short*>(s), (unsigned int)n);
    return r;
}

// A path with a zero unit inside would name something else than the caller meant.
bool validPath(const SWCharString& s)
{
    const unsigned short* p = s.data();
    for (unsigned int i = 0; i < s.getLength(); ++i)
        if (p[i] == 0)
            return false;
    return true;
}

bool fail(OsError& err)
{
    err.setWin32((int)GetLastError());
    return false;
}

bool invalidPath(OsError& err)
{
    err.setWin32(ERROR_INVALID_NAME);
    return false;
}

int64_t toMillis(const FILETIME& ft)
{
    ULARGE_INTEGER u;
    u.LowPart = ft.dwLowDateTime;
    u.HighPart = ft.dwHighDateTime;
    return ((int64_t)u.QuadPart - 116444736000000000LL) / 10000;
}

bool endsWith(const wchar_t* name, size_t n, const wchar_t* ext)
{
    const size_t e = wcslen(ext);
    return n >= e && _wcsicmp(name + n - e, ext) == 0;
}

bool isProgram(const wchar_t* name, size_t n)
{
    return endsWith(name, n, L".exe") || endsWith(name, n, L".com") ||
           endsWith(name, n, L".bat") || endsWith(name, n, L".cmd");
}

void fillInfo(DWORD attrs, DWORD sizeHigh, DWORD sizeLow, const FILETIME& mtime,
              const wchar_t* name, size_t nameLength, FsInfo& info)
{
    info = FsInfo();
    info.isDir = (attrs & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.isFile = !info.isDir && !(attrs & FILE_ATTRIBUTE_DEVICE);
    info.isLink = (attrs & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    info.size = info.isDir ? 0 : (int64_t)(((uint64_t)sizeHigh << 32) | sizeLow);
    info.mtimeMs = toMillis(mtime);
    // The owner bits the C run-time's _wstat reports: read always, write unless
    // read-only, execute for directories and programs.
    info.mode = 0x100;
    if (!(attrs & FILE_ATTRIBUTE_READONLY))
        info.mode |= 0x80;
    if (info.isDir || isProgram(name, nameLength))
        info.mode |= 0x40;
    info.attributes = attrs;
}

bool statPath(const SWCharString& path, FsInfo& info, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(wide(path), GetFileExInfoStandard, &data))
        return fail(err);
    fillInfo(data.dwFileAttributes, data.nFileSizeHigh, data.nFileSizeLow, data.ftLastWriteTime,
             wide(path), path.getLength(), info);
    return true;
}

template <class Fn>
Fn kernelEntry(const char* name, bool& noKernel)
{
    HMODULE hKernel = GetModuleHandleW(L"kernel32.dll");
    noKernel = hKernel == nullptr;
    if (noKernel) {
        VARDO_ASSERT_TEXT("hKernel != NULL");
        return nullptr;
    }
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(hKernel, name)));
}

class Handle {
public:
    explicit Handle(HANDLE h) : m_h(h) {}
    ~Handle()
    {
        if (valid())
            CloseHandle(m_h);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    bool valid() const { return m_h != INVALID_HANDLE_VALUE && m_h != nullptr; }
    HANDLE get() const { return m_h; }
private:
    HANDLE m_h;
};

// The Win32 code for an injected C run-time error number.
int win32FromInjected(int e)
{
    switch (e) {
    case ENOSPC: return ERROR_DISK_FULL;
    case EACCES: return ERROR_ACCESS_DENIED;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    default: return ERROR_WRITE_FAULT;
    }
}

// The test build's copy fault: copies like a CopyFileW whose writes fail with the
// injected error after budget bytes.
bool copyUntilFault(const SWCharString& source, const SWCharString& target, bool overwrite,
                    int64_t budget, int injected, OsError& err)
{
    Handle in(CreateFileW(wide(source), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!in.valid())
        return fail(err);
    Handle out(CreateFileW(wide(target), GENERIC_WRITE, 0, nullptr,
                           overwrite ? CREATE_ALWAYS : CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!out.valid())
        return fail(err);
    std::vector<char> buf(64 * 1024);
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(in.get(), buf.data(), (DWORD)buf.size(), &got, nullptr))
            return fail(err);
        if (got == 0)
            break;
        DWORD take = got;
        if ((int64_t)take > budget)
            take = (DWORD)budget;
        DWORD written = 0;
        if (take > 0 && !WriteFile(out.get(), buf.data(), take, &written, nullptr))
            return fail(err);
        budget -= written;
        if (take < got)
            break;
    }
    err.setWin32(win32FromInjected(injected));
    return false;
}

} // namespace

// ---- properties -------------------------------------------------------------------------

unsigned short fsSeparator() { return '\\'; }
bool fsHasDrives() { return true; }
bool fsIgnoresCase() { return true; }

bool fsStat(const SWCharString& path, FsInfo& info, OsError& err)
{
    return statPath(path, info, err);
}

bool fsLinkStat(const SWCharString& path, FsInfo& info, OsError& err)
{
    return statPath(path, info, err);
}

// ---- changes ----------------------------------------------------------------------------

bool fsMakeDirectory(const SWCharString& path, int, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    return CreateDirectoryW(wide(path), nullptr) ? true : fail(err);
}

bool fsRemoveFile(const SWCharString& path, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    return DeleteFileW(wide(path)) ? true : fail(err);
}

bool fsRemoveDirectory(const SWCharString& path, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    return RemoveDirectoryW(wide(path)) ? true : fail(err);
}

bool fsMakeRemovable(const SWCharString& path, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    const DWORD attrs = GetFileAttributesW(wide(path));
    if (attrs == INVALID_FILE_ATTRIBUTES)
        return fail(err);
    const DWORD blocking = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if (!(attrs & blocking))
        return true;
    return SetFileAttributesW(wide(path), FILE_ATTRIBUTE_NORMAL) ? true : fail(err);
}

bool fsCopyFile(const SWCharString& source, const SWCharString& target, bool overwrite,
                OsError& err)
{
    if (!validPath(source) || !validPath(target))
        return invalidPath(err);
    const bool existed = GetFileAttributesW(wide(target)) != INVALID_FILE_ATTRIBUTES;
    // A fault armed for fewer bytes than the source holds makes this copy fail part-way.
    WIN32_FILE_ATTRIBUTE_DATA data;
    uint64_t bytes = 0;
    if (GetFileAttributesExW(wide(source), GetFileExInfoStandard, &data))
        bytes = ((uint64_t)data.nFileSizeHigh << 32) | data.nFileSizeLow;
    OsError injected;
    const uint64_t budget = faultPass(faultCopyBytes, bytes, injected);
    bool ok;
    if (injected.isSet()) {
        ok = (!overwrite && existed)
                 ? (err.setWin32(ERROR_FILE_EXISTS), false)
                 : copyUntilFault(source, target, overwrite, (int64_t)budget, injected.number, err);
    } else {
        ok = CopyFileW(wide(source), wide(target), overwrite ? FALSE : TRUE) ? true : fail(err);
    }
    // A target this call created must not stay behind half-written.
    if (!ok && !existed && err.number != ERROR_FILE_EXISTS && err.number != ERROR_ALREADY_EXISTS)
        DeleteFileW(wide(target));
    return ok;
}

bool fsMoveFile(const SWCharString& from, const SWCharString& to, OsError& err)
{
    if (!validPath(from) || !validPath(to))
        return invalidPath(err);
    typedef BOOL(WINAPI * MoveFileExFn)(LPCWSTR, LPCWSTR, DWORD);
    bool noKernel = false;
    MoveFileExFn moveEx = kernelEntry<MoveFileExFn>("MoveFileExW", noKernel);
    if (noKernel) {
        err.kind = OsError::missingEntryPoint;
        err.number = ERROR_PROC_NOT_FOUND;
        return false;
    }
    BOOL ok;
    if (moveEx)
        ok = moveEx(wide(from), wide(to), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED);
    else
        ok = MoveFileW(wide(from), wide(to));
    return ok ? true : fail(err);
}

bool fsDiskSpace(const SWCharString& path, int64_t& availableToCaller, int64_t& total,
                 int64_t& totalFree, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    typedef BOOL(WINAPI * DiskFreeFn)(LPCWSTR, PULARGE_INTEGER, PULARGE_INTEGER, PULARGE_INTEGER);
    bool noKernel = false;
    DiskFreeFn diskFree = kernelEntry<DiskFreeFn>("GetDiskFreeSpaceExW", noKernel);
    if (!diskFree) {
        err.kind = OsError::missingEntryPoint;
        err.number = ERROR_PROC_NOT_FOUND;
        return false;
    }
    // The call wants a directory: a file stands for the directory that holds it.
    std::wstring dir(wide(path));
    const DWORD attrs = GetFileAttributesW(dir.c_str());
    if (attrs != INVALID_FILE_ATTRIBUTES && !(attrs & FILE_ATTRIBUTE_DIRECTORY)) {
        const size_t cut = dir.find_last_of(L"\\/");
        dir = cut == std::wstring::npos ? std::wstring(L".") : dir.substr(0, cut + 1);
    }
    ULARGE_INTEGER avail, all, free;
    if (!diskFree(dir.c_str(), &avail, &all, &free))
        return fail(err);
    availableToCaller = (int64_t)avail.QuadPart;
    total = (int64_t)all.QuadPart;
    totalFree = (int64_t)free.QuadPart;
    return true;
}

bool fsSetMode(const SWCharString& path, uint32_t mode, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    const DWORD attrs = GetFileAttributesW(wide(path));
    if (attrs == INVALID_FILE_ATTRIBUTES)
        return fail(err);
    DWORD want = (mode & 0x80) ? (attrs & ~(DWORD)FILE_ATTRIBUTE_READONLY)
                               : (attrs | FILE_ATTRIBUTE_READONLY);
    if (want == attrs)
        return true;
    if (want == 0)
        want = FILE_ATTRIBUTE_NORMAL;
    return SetFileAttributesW(wide(path), want) ? true : fail(err);
}

bool fsSetOwner(const SWCharString& path, const SWCharString& owner, OsError& err)
{
    if (!validPath(path) || !validPath(owner) || owner.isEmpty())
        return invalidPath(err);
    std::vector<BYTE> sid(SECURITY_MAX_SID_SIZE);
    DWORD sidSize = (DWORD)sid.size();
    std::vector<wchar_t> domain(256);
    DWORD domainSize = (DWORD)domain.size();
    SID_NAME_USE use;
    if (!LookupAccountNameW(nullptr, wide(owner), sid.data(), &sidSize, domain.data(), &domainSize,
                            &use))
        return fail(err);
    std::vector<wchar_t> name(wide(path), wide(path) + path.getLength() + 1);
    const DWORD r = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
                                          sid.data(), nullptr, nullptr, nullptr);
    if (r != ERROR_SUCCESS) {
        err.setWin32((int)r);
        return false;
    }
    return true;
}

bool fsSetModifiedTime(const SWCharString& path, int64_t unixMillis, OsError& err)
{
    if (!validPath(path))
        return invalidPath(err);
    if (unixMillis < -11644473600000LL) {
        err.setWin32(ERROR_INVALID_PARAMETER);
        return false;
    }
    ULARGE_INTEGER u;
    u.QuadPart = (ULONGLONG)(unixMillis * 10000 + 116444736000000000LL);
    FILETIME ft;
    ft.dwLowDateTime = u.LowPart;
    ft.dwHighDateTime = u.HighPart;
    Handle h(CreateFileW(wide(path), FILE_WRITE_ATTRIBUTES,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!h.valid())
        return fail(err);
    return SetFileTime(h.get(), nullptr, nullptr, &ft) ? true : fail(err);
}

// ---- working directory and names ----------------------------------------------------------

bool fsGetCurrentDirectory(SWCharString& dir, OsError& err)
{
    for (int attempt = 0; attempt < 4; ++attempt) {
        const DWORD need = GetCurrentDirectoryW(0, nullptr);
        if (need == 0)
            return fail(err);
        std::vector<wchar_t> buf(need + 1);
        const DWORD got = GetCurrentDirectoryW((DWORD)buf.size(), buf.data());
        if (got == 0)
            return fail(err);
        if (got < buf.size()) {
            dir = fromWide(buf.data(), got);
            return true;
        }
    }
    err.setWin32(ERROR_INSUFFICIENT_BUFFER);
    return false;
}

bool fsSetCurrentDirectory(const SWCharString& dir, OsError& err)
{
    if (!validPath(dir))
        return invalidPath(err);
    return SetCurrentDirectoryW(wide(dir)) ? true : fail(err);
}

bool fsFullPath(const SWCharString& path, SWCharString& full, OsError& err)
{
    if (!validPath(path) || path.isEmpty())
        return invalidPath(err);
    const DWORD need = GetFullPathNameW(wide(path), 0, nullptr, nullptr);
    if (need == 0)
        return fail(err);
    std::vector<wchar_t> buf(need + 1);
    const DWORD got = GetFullPathNameW(wide(path), (DWORD)buf.size(), buf.data(), nullptr);
    if (got == 0 || got >= buf.size())
        return fail(err);
    full = fromWide(buf.data(), got);
    return true;
}

SWCharString fsTempDirectory()
{
    const DWORD need = GetTempPathW(0, nullptr);
    if (need == 0)
        return fromWide(L"C:\\", 3);
    std::vector<wchar_t> buf(need + 1);
    const DWORD got = GetTempPathW((DWORD)buf.size(), buf.data());
    if (got == 0 || got >= buf.size())
        return fromWide(L"C:\\", 3);
    SWCharString dir = fromWide(buf.data(), got);
    if (got == 0 || (buf[got - 1] != L'\\' && buf[got - 1] != L'/'))
        dir += SWChar((unsigned short)'\\');
    return dir;
}

// ---- directory enumeration ----------------------------------------------------------------

struct FsDir {
    HANDLE m_hFind = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW m_data;
    bool m_bPending = false;   // m_data holds an entry not yet returned
    ~FsDir()
    {
        if (m_hFind != INVALID_HANDLE_VALUE)
            FindClose(m_hFind);
    }
};

void FsDirCloser::operator()(FsDir* d) const
{
    std::default_delete<FsDir>()(d);
}

FsDirHandle fsOpenDirectory(const SWCharString& path, bool followLink, OsError& err)
{
    if (!validPath(path) || path.isEmpty()) {
        invalidPath(err);
        return FsDirHandle();
    }
    if (!followLink) {
        const DWORD attrs = GetFileAttributesW(wide(path));
        if (attrs != INVALID_FILE_ATTRIBUTES && (attrs & FILE_ATTRIBUTE_REPARSE_POINT)) {
            err.setWin32(ERROR_CANT_ACCESS_FILE);
            return FsDirHandle();
        }
    }
    std::wstring pattern(wide(path));
    if (pattern.back() != L'\\' && pattern.back() != L'/' && pattern.back() != L':')
        pattern += L'\\';
    pattern += L'*';
    std::unique_ptr<FsDir> dir = std::make_unique<FsDir>();
    dir->m_hFind = FindFirstFileW(pattern.c_str(), &dir->m_data);
    if (dir->m_hFind == INVALID_HANDLE_VALUE) {
        const DWORD e = GetLastError();
        if (e != ERROR_FILE_NOT_FOUND) {
            err.setWin32((int)e);
            return FsDirHandle();
        }
        // An empty match (a drive's root without entries) is an empty listing.
    } else {
        dir->m_bPending = true;
    }
    return FsDirHandle(dir.release());
}

bool fsReadDirectory(FsDir& dir, FsDirEntry& entry, OsError& err)
{
    if (dir.m_hFind == INVALID_HANDLE_VALUE)
        return false;
    if (!dir.m_bPending) {
        if (!FindNextFileW(dir.m_hFind, &dir.m_data)) {
            const DWORD e = GetLastError();
            if (e != ERROR_NO_MORE_FILES)
                err.setWin32((int)e);
            return false;
        }
    }
    dir.m_bPending = false;
    const size_t n = wcslen(dir.m_data.cFileName);
    entry.name = fromWide(dir.m_data.cFileName, n);
    fillInfo(dir.m_data.dwFileAttributes, dir.m_data.nFileSizeHigh, dir.m_data.nFileSizeLow,
             dir.m_data.ftLastWriteTime, dir.m_data.cFileName, n, entry.info);
    return true;
}

} // namespace os
} // namespace Vardo400
