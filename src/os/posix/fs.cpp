// File-system operations on Linux: POSIX calls on UTF-8 paths.
#include "os/os_fs.h"
#include "os/os_faults.h"
#include "utfcore.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

namespace Vardo400 {
namespace os {

namespace {

std::atomic<uint32_t> g_tempCounter(0);

// ---- path text -----------------------------------------------------------------------

// UTF-16 to the bytes of a name on disk (see os_fs.h for the stray-byte rule).
bool encodePath(const unsigned short* p, size_t n, std::string& out)
{
    if (std::find(p, p + n, 0) != p + n) {
        out.clear();
        return false;
    }
    return utf::utf16ToUtf8(p, n, out, utf::Policy::escapeBytes);
}

bool encodePath(const SWCharString& s, std::string& out)
{
    return encodePath(s.data(), s.getLength(), out);
}

// Bytes of a name on disk to UTF-16; strict UTF-8, stray bytes kept as U+DC00+byte.
SWCharString decodePath(const char* s, size_t n)
{
    std::vector<unsigned short> units;
    utf::utf8ToUtf16(reinterpret_cast<const unsigned char*>(s), n, units, utf::Policy::escapeBytes);
    SWCharString r;
    if (!units.empty())
        r.concat(units.data(), (unsigned int)units.size());
    return r;
}

SWCharString decodePath(const std::string& s)
{
    return decodePath(s.data(), s.size());
}

bool fail(OsError& err)
{
    return failFromErrno(err);
}

bool invalidPath(OsError& err)
{
    err.setCrt(EINVAL);
    return false;
}

int64_t toMillis(const struct timespec& ts)
{
    return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

bool hiddenName(const char* name)
{
    return name[0] == '.' && strcmp(name, ".") != 0 && strcmp(name, "..") != 0;
}

const char* lastComponent(const std::string& path)
{
    size_t end = path.size();
    while (end > 1 && path[end - 1] == '/')
        --end;
    const size_t slash = path.rfind('/', end ? end - 1 : 0);
    return path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

void fillInfo(const struct stat& st, bool hidden, FsInfo& info)
{
    info.isDir = S_ISDIR(st.st_mode);
    info.isFile = S_ISREG(st.st_mode);
    info.size = info.isDir ? 0 : (int64_t)st.st_size;
    info.mtimeMs = toMillis(st.st_mtim);
    info.mode = st.st_mode & 07777;
    info.ownerId = st.st_uid;
    uint32_t a = 0;
    if (info.isDir)
        a |= fsAttrDirectory;
    if (!(st.st_mode & S_IWUSR))
        a |= fsAttrReadOnly;
    if (hidden)
        a |= fsAttrHidden;
    info.attributes = a;
}

void finishAttributes(FsInfo& info)
{
    if (info.isLink)
        info.attributes |= fsAttrReparsePoint;
    if (info.attributes == 0)
        info.attributes = fsAttrNormal;
}

// Status of an entry relative to a directory descriptor (or the working directory);
// links are reported as links with their target's type when it resolves.
bool linkStatAt(int dirFd, const char* name, bool hidden, FsInfo& info, OsError& err)
{
    struct stat st;
    if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return fail(err);
    info = FsInfo();
    if (S_ISLNK(st.st_mode)) {
        struct stat target;
        if (fstatat(dirFd, name, &target, 0) == 0)
            fillInfo(target, hidden, info);
        else
            fillInfo(st, hidden, info);
        info.isLink = true;
    } else {
        fillInfo(st, hidden, info);
    }
    finishAttributes(info);
    return true;
}

// Writes all of buf. The test build's disk-full fault (faultCopyBytes) may cut the
// write short, failing as a full disk does.
bool writeAll(int fd, const char* buf, size_t n, OsError& err)
{
    while (n > 0) {
        const size_t chunk = (size_t)faultPass(faultCopyBytes, n, err);
        const ssize_t w = chunk ? write(fd, buf, chunk) : 0;
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return fail(err);
        }
        if (chunk < n && (size_t)w == chunk)
            return false;   // the injected fault, err already set
        buf += w;
        n -= (size_t)w;
    }
    return true;
}

class Fd {
public:
    explicit Fd(int fd = -1) : m_fd(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return m_fd; }
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }
    // Closes and reports the close's own failure (delayed write errors surface here).
    bool close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd < 0 || ::close(fd) == 0;
    }
private:
    int m_fd;
};

// Copies the open source into a new file at target (created exclusively); on any
// failure the new file is removed.
bool copyInto(int in, const struct stat& srcStat, const std::string& target, OsError& err)
{
    Fd out(open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (out.get() < 0)
        return fail(err);
    std::vector<char> buf(256 * 1024);
    bool ok = true;
    for (;;) {
        const ssize_t r = read(in, buf.data(), buf.size());
        if (r < 0) {
            if (errno == EINTR)
                continue;
            ok = fail(err);
            break;
        }
        if (r == 0)
            break;
        if (!writeAll(out.get(), buf.data(), (size_t)r, err)) {
            ok = false;
            break;
        }
    }
    if (ok) {
        struct timespec times[2] = {srcStat.st_atim, srcStat.st_mtim};
        if (fchmod(out.get(), srcStat.st_mode & 0777) != 0 || futimens(out.get(), times) != 0)
            ok = fail(err);
    }
    if (ok && !out.close())
        ok = fail(err);
    if (!ok) {
        out.reset();
        unlink(target.c_str());
    }
    return ok;
}

bool copyFileBytes(const std::string& src, const std::string& dst, bool overwrite,
                   OsError& err)
{
    Fd in(open(src.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return fail(err);
    struct stat st;
    if (fstat(in.get(), &st) != 0)
        return fail(err);
    if (S_ISDIR(st.st_mode)) {
        err.setCrt(EISDIR);
        return false;
    }
    if (!overwrite)
        return copyInto(in.get(), st, dst, err);

    // Overwriting: build the copy beside the target and put it in place only when it is
    // complete, so a failure never leaves a half-written target.
    struct stat dstStat;
    if (stat(dst.c_str(), &dstStat) != 0) {
        if (copyInto(in.get(), st, dst, err))
            return true;
        if (err.number != EEXIST)
            return false;
        err.clear();
    } else if (S_ISDIR(dstStat.st_mode)) {
        err.setCrt(EISDIR);
        return false;
    }
    char suffix[48];
    snprintf(suffix, sizeof suffix, ".~vardo%x.%x", (unsigned)getpid(),
             (unsigned)g_tempCounter.fetch_add(1));
    const std::string tmp = dst + suffix;
    if (!copyInto(in.get(), st, tmp, err))
        return false;
    if (rename(tmp.c_str(), dst.c_str()) != 0) {
        fail(err);
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

// Looks up a user or group id: numeric text is taken as it is.
bool parseNumber(const std::string& s, unsigned long& v)
{
    if (s.empty() || s.size() > 10)
        return false;
    v = 0;
    for (char c : s) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (unsigned)(c - '0');
    }
    return true;
}

// Looks a name up with getpwnam_r or getgrnam_r, growing the buffer as they ask.
template <class Entry, class Lookup>
bool lookupEntry(const std::string& name, Lookup lookup, Entry& entry, OsError& err)
{
    std::vector<char> buf(16384);
    for (;;) {
        Entry* res = nullptr;
        const int r = lookup(name.c_str(), &entry, buf.data(), buf.size(), &res);
        if (r == ERANGE && buf.size() < (1u << 20)) {
            buf.resize(buf.size() * 4);
            continue;
        }
        if (r != 0 || !res) {
            err.setCrt(r != 0 ? r : EINVAL);
            return false;
        }
        return true;
    }
}

bool lookupUser(const std::string& name, uid_t& uid, gid_t& gid, OsError& err)
{
    unsigned long n = 0;
    if (parseNumber(name, n)) {
        uid = (uid_t)n;
        gid = (gid_t)-1;
        return true;
    }
    struct passwd pw;
    if (!lookupEntry(name, getpwnam_r, pw, err))
        return false;
    uid = pw.pw_uid;
    gid = pw.pw_gid;
    return true;
}

bool lookupGroup(const std::string& name, gid_t& gid, OsError& err)
{
    unsigned long n = 0;
    if (parseNumber(name, n)) {
        gid = (gid_t)n;
        return true;
    }
    struct group gr;
    if (!lookupEntry(name, getgrnam_r, gr, err))
        return false;
    gid = gr.gr_gid;
    return true;
}

int64_t clampToInt64(unsigned long long v)
{
    return v > (unsigned long long)INT64_MAX ? INT64_MAX : (int64_t)v;
}

} // namespace

// ---- properties -------------------------------------------------------------------------

unsigned short fsSeparator() { return '/'; }
bool fsHasDrives() { return false; }
bool fsIgnoresCase() { return false; }

bool fsStat(const SWCharString& path, FsInfo& info, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    struct stat st;
    if (stat(p.c_str(), &st) != 0)
        return fail(err);
    info = FsInfo();
    fillInfo(st, hiddenName(lastComponent(p)), info);
    finishAttributes(info);
    return true;
}

bool fsLinkStat(const SWCharString& path, FsInfo& info, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    return linkStatAt(AT_FDCWD, p.c_str(), hiddenName(lastComponent(p)), info, err);
}

// ---- changes ----------------------------------------------------------------------------

bool fsMakeDirectory(const SWCharString& path, int mode, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    if (mkdir(p.c_str(), mode < 0 ? 0777 : (mode_t)(mode & 07777)) != 0)
        return fail(err);
    return true;
}

bool fsRemoveFile(const SWCharString& path, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    if (unlink(p.c_str()) != 0)
        return fail(err);
    return true;
}

bool fsRemoveDirectory(const SWCharString& path, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    if (rmdir(p.c_str()) != 0)
        return fail(err);
    return true;
}

bool fsMakeRemovable(const SWCharString& path, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    struct stat st;
    if (lstat(p.c_str(), &st) != 0)
        return fail(err);
    if (!S_ISDIR(st.st_mode) || (st.st_mode & S_IRWXU) == S_IRWXU)
        return true;
    if (chmod(p.c_str(), (st.st_mode | S_IRWXU) & 07777) != 0)
        return fail(err);
    return true;
}

bool fsCopyFile(const SWCharString& source, const SWCharString& target, bool overwrite,
                OsError& err)
{
    std::string s, t;
    if (!encodePath(source, s) || !encodePath(target, t))
        return invalidPath(err);
    return copyFileBytes(s, t, overwrite, err);
}

bool fsMoveFile(const SWCharString& from, const SWCharString& to, OsError& err)
{
    std::string f, t;
    if (!encodePath(from, f) || !encodePath(to, t))
        return invalidPath(err);
    if (rename(f.c_str(), t.c_str()) == 0)
        return true;
    if (errno != EXDEV)
        return fail(err);
    // Another volume: copy, then remove the original; undo the copy if that fails.
    if (!copyFileBytes(f, t, true, err))
        return false;
    if (unlink(f.c_str()) != 0) {
        fail(err);
        unlink(t.c_str());
        return false;
    }
    return true;
}

bool fsDiskSpace(const SWCharString& path, int64_t& availableToCaller, int64_t& total,
                 int64_t& totalFree, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    struct statvfs vfs;
    if (statvfs(p.c_str(), &vfs) != 0)
        return fail(err);
    const unsigned long long unit = vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize;
    availableToCaller = clampToInt64((unsigned long long)vfs.f_bavail * unit);
    total = clampToInt64((unsigned long long)vfs.f_blocks * unit);
    totalFree = clampToInt64((unsigned long long)vfs.f_bfree * unit);
    return true;
}

bool fsSetMode(const SWCharString& path, uint32_t mode, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    if (chmod(p.c_str(), (mode_t)(mode & 07777)) != 0)
        return fail(err);
    return true;
}

bool fsSetOwner(const SWCharString& path, const SWCharString& owner, OsError& err)
{
    std::string p, o;
    if (!encodePath(path, p) || !encodePath(owner, o) || o.empty())
        return invalidPath(err);
    uid_t uid = (uid_t)-1;
    gid_t gid = (gid_t)-1, userGid = (gid_t)-1;
    const size_t colon = o.find(':');
    const std::string user = o.substr(0, colon);
    if (!user.empty() && !lookupUser(user, uid, userGid, err))
        return false;
    if (colon != std::string::npos) {
        const std::string group = o.substr(colon + 1);
        if (!group.empty() && !lookupGroup(group, gid, err))
            return false;
    }
    if (chown(p.c_str(), uid, gid) != 0)
        return fail(err);
    return true;
}

bool fsSetModifiedTime(const SWCharString& path, int64_t unixMillis, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    int64_t secs = unixMillis / 1000;
    int64_t ms = unixMillis % 1000;
    if (ms < 0) {
        ms += 1000;
        --secs;
    }
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = (time_t)secs;
    times[1].tv_nsec = (long)(ms * 1000000);
    if (utimensat(AT_FDCWD, p.c_str(), times, 0) != 0)
        return fail(err);
    return true;
}

// ---- working directory and names ----------------------------------------------------------

bool fsGetCurrentDirectory(SWCharString& dir, OsError& err)
{
    std::vector<char> buf(4096);
    for (;;) {
        if (getcwd(buf.data(), buf.size())) {
            dir = decodePath(buf.data(), strlen(buf.data()));
            return true;
        }
        if (errno != ERANGE || buf.size() > (1u << 20))
            return fail(err);
        buf.resize(buf.size() * 2);
    }
}

bool fsSetCurrentDirectory(const SWCharString& dir, OsError& err)
{
    std::string p;
    if (!encodePath(dir, p))
        return invalidPath(err);
    if (chdir(p.c_str()) != 0)
        return fail(err);
    return true;
}

bool fsFullPath(const SWCharString& path, SWCharString& full, OsError& err)
{
    std::string p;
    if (!encodePath(path, p))
        return invalidPath(err);
    if (p.empty()) {
        err.setCrt(ENOENT);
        return false;
    }
    if (p[0] != '/') {
        SWCharString cwd;
        std::string c;
        if (!fsGetCurrentDirectory(cwd, err) || !encodePath(cwd, c))
            return false;
        p = c + "/" + p;
    }
    const bool trailing = p.size() > 1 && p.back() == '/';
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < p.size()) {
        size_t j = p.find('/', i);
        if (j == std::string::npos)
            j = p.size();
        const std::string part = p.substr(i, j - i);
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        i = j + 1;
    }
    std::string out;
    for (const std::string& part : parts)
        out += "/" + part;
    if (out.empty() || trailing)
        out += "/";
    full = decodePath(out);
    return true;
}

SWCharString fsTempDirectory()
{
    const char* env = getenv("TMPDIR");
    std::string dir = (env && env[0] == '/') ? env : "/tmp";
    if (dir.back() != '/')
        dir += '/';
    return decodePath(dir);
}

// ---- directory enumeration ----------------------------------------------------------------

struct FsDir {
    DIR* m_pDir = nullptr;
    ~FsDir()
    {
        if (m_pDir)
            closedir(m_pDir);
    }
};

void FsDirCloser::operator()(FsDir* d) const
{
    std::default_delete<FsDir>()(d);
}

FsDirHandle fsOpenDirectory(const SWCharString& path, bool followLink, OsError& err)
{
    std::string p;
    if (!encodePath(path, p)) {
        invalidPath(err);
        return FsDirHandle();
    }
    const int fd = open(p.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
    if (fd < 0) {
        fail(err);
        return FsDirHandle();
    }
    DIR* d = fdopendir(fd);
    if (!d) {
        fail(err);
        close(fd);
        return FsDirHandle();
    }
    std::unique_ptr<FsDir> dir = std::make_unique<FsDir>();
    dir->m_pDir = d;
    return FsDirHandle(dir.release());
}

bool fsReadDirectory(FsDir& dir, FsDirEntry& entry, OsError& err)
{
    for (;;) {
        errno = 0;
        struct dirent* e = readdir(dir.m_pDir);
        if (!e) {
            if (errno != 0)
                return fail(err);
            return false;
        }
        entry.name = decodePath(e->d_name, strlen(e->d_name));
        OsError statErr;
        if (!linkStatAt(dirfd(dir.m_pDir), e->d_name, hiddenName(e->d_name), entry.info,
                        statErr)) {
            // Gone since the listing was read: skip it, as a later listing would.
            if (statErr.number == ENOENT)
                continue;
            entry.info = FsInfo();
            entry.info.isDir = e->d_type == DT_DIR;
            entry.info.isFile = e->d_type == DT_REG;
            entry.info.isLink = e->d_type == DT_LNK;
            entry.info.attributes = entry.info.isDir ? fsAttrDirectory : 0;
            finishAttributes(entry.info);
        }
        return true;
    }
}

} // namespace os
} // namespace Vardo400
