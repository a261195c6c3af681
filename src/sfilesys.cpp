// SFileSys: the file-system operations by name. The system calls live in the platform
// layer (os/os_fs.h) and every walk over a tree goes through the walker of dirwalk.h;
// existence tests, unique names, error classification and messages are stated here once
// for both platforms. SFileSysException lives in sfilesysexception.cpp, the path-text
// helpers in spath.cpp.
#include "vardo/sfilesys.h"

#include "vardo/csiprocess.h"
#include "vardo/sfile.h"
#include "vardo/strace.h"

#include "dirwalk.h"
#include "os/os_fs.h"

#include <atomic>
#include <cerrno>

namespace Vardo400 {

using detail::DirVisitor;
using detail::WalkEntry;
using detail::WalkFailure;
using detail::endsWithSep;
using detail::isSep;
using detail::withSep;

namespace {

// ---- texts ------------------------------------------------------------------------------

const char kTooBig[] = "Size of file exceeds 4 GBytes.";
const char kNoDiskFreeCall[] =
    "The operating system's call has failed.  Please contact your system administrator.";
const char kDirsNotImplemented[] = "Not implemented for directories";
const char kPermissionDirs[] = "HasOwnerPermission is not implemented for directories";
const unsigned short kAllEntries[] = {'*', '.', '*', 0};

typedef SFileSysException X;

SWCharString ascii(const char* s)
{
    return detail::asciiText(s);
}

SWCharString hex(uint64_t v)
{
    char digits[17];
    int n = 0;
    do {
        digits[n++] = "0123456789abcdef"[v & 0xF];
        v >>= 4;
    } while (v);
    char out[17];
    for (int i = 0; i < n; ++i)
        out[i] = digits[n - 1 - i];
    SWCharString r;
    r.concatFromAscii(out, (unsigned int)n);
    return r;
}

unsigned short sep()
{
    return os::fsSeparator();
}

bool isLetter(unsigned short c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

X::ErrorReasons reasonOf(const os::OsError& err)
{
    switch (err.kind) {
    case os::OsError::crt:
        return X::mapErrno(err.number);
    case os::OsError::win32:
        return X::mapError((uint32_t)err.number);
    default:
        return X::reasonOther;
    }
}

[[noreturn]] void throwOs(X::ErrorCodes code, const char* operation, const SWCharString& file,
                          const os::OsError& err, const SWCharString& second = SWCharString())
{
    throw X(code, reasonOf(err), file, os::errorText(err), second, ascii(operation));
}

[[noreturn]] void throwText(X::ErrorCodes code, X::ErrorReasons reason, const char* operation,
                            const SWCharString& file, const char* text)
{
    throw X(code, reason, file, ascii(text), SWCharString(), ascii(operation));
}

// The status of path (links followed), or the exception code throws.
os::FsInfo statOrThrow(const SWCharString& path, X::ErrorCodes code, const char* operation)
{
    os::FsInfo info;
    os::OsError err;
    if (!os::fsStat(path, info, err))
        throwOs(code, operation, path, err);
    return info;
}

// The text of a C run-time error number, whatever the platform's own numbering.
SWCharString crtText(int e)
{
    os::OsError err;
    err.setCrt(e);
    return os::errorText(err);
}

void trace(const char* text)
{
    if (ShouldTrace(0, __FILE__))
        STrace(text);
}

// ---- the walks ----------------------------------------------------------------------------

// Removes what a tree holds, directories after their contents. Goes on past failures;
// the first is kept. A link is removed as itself, never walked into.
class RemoveVisitor : public DirVisitor {
public:
    Step visit(const WalkEntry& e) override
    {
        os::OsError err;
        if (!os::fsMakeRemovable(e.path, err)) {
            failure.record(err, e.path);
            return goOn;
        }
        if (e.isRealDirectory())
            return descend;
        if (!os::fsRemoveFile(e.path, err)) {
            // A reparse point standing for a directory goes with the directory call.
            os::OsError dirErr;
            if (!(e.isLink() && os::fsRemoveDirectory(e.path, dirErr)))
                failure.record(err, e.path);
        }
        return goOn;
    }
    bool leave(const SWCharString& dir, const SWCharString&) override
    {
        os::OsError err;
        if (!os::fsRemoveDirectory(dir, err))
            failure.record(err, dir);
        return true;
    }
    void readFailed(const SWCharString& dir, const SWCharString&, const os::OsError& err) override
    {
        failure.record(err, dir);
    }
    bool goesOnPastFailures() const override { return true; }
};

// Adds up the sizes of a tree's files (a link to a file counts its target's size).
class SizeVisitor : public DirVisitor {
public:
    explicit SizeVisitor(bool wide) : m_bWide(wide) {}
    Step visit(const WalkEntry& e) override
    {
        if (e.info().isDir)
            return descend;
        m_total += e.info().size;
        if (!m_bWide && m_total > (int64_t)0xFFFFFFFFu) {
            m_bTooBig = true;
            return stop;
        }
        return goOn;
    }
    const bool m_bWide;
    int64_t m_total = 0;
    bool m_bTooBig = false;
};

// Counts a tree's files, and its directories too when asked (a link to a directory
// counts as one entry).
class CountVisitor : public DirVisitor {
public:
    explicit CountVisitor(bool all) : m_bAll(all) {}
    Step visit(const WalkEntry& e) override
    {
        if (!e.info().isDir) {
            ++m_count;
            return goOn;
        }
        if (m_bAll)
            ++m_count;
        return descend;
    }
    const bool m_bAll;
    uint32_t m_count = 0;
};

// Copies a tree below source into target (both end with a separator); stops at the first
// failure, recorded with the source and target names. Links to directories are not
// copied; a link to a file is copied as the file's contents.
class CopyVisitor : public DirVisitor {
public:
    CopyVisitor(const SWCharString& target, bool overwrite)
        : m_target(target), m_bOverwrite(overwrite) {}
    Step visit(const WalkEntry& e) override
    {
        SWCharString to = m_target;
        to += e.relative;
        os::OsError err;
        if (e.info().isDir) {
            if (e.isLink())
                return goOn;
            os::FsInfo info;
            if (!os::fsStat(to, info, err)) {
                err.clear();
                if (!os::fsMakeDirectory(to, -1, err)) {
                    failure.record(err, withSep(e.path), withSep(to));
                    return stop;
                }
            }
            return descend;
        }
        if (!os::fsCopyFile(e.path, to, m_bOverwrite, err)) {
            failure.record(err, e.path, to);
            return stop;
        }
        return goOn;
    }
    void readFailed(const SWCharString& dir, const SWCharString& relative,
                    const os::OsError& err) override
    {
        SWCharString to = m_target;
        to += relative;
        failure.record(err, withSep(dir), withSep(to));
    }
    const SWCharString m_target;
    const bool m_bOverwrite;
};

// Widens the permissions of every entry of a tree that is not a link; throws at the first
// failure.
void giveAccessHelper(const SWCharString& path, uint32_t bits, bool recursive);

class AccessVisitor : public DirVisitor {
public:
    explicit AccessVisitor(uint32_t bits) : m_bits(bits) {}
    Step visit(const WalkEntry& e) override
    {
        if (e.isLink())
            return goOn;
        giveAccessHelper(e.path, m_bits, false);
        return descend;
    }
    void readFailed(const SWCharString& dir, const SWCharString&, const os::OsError& err) override
    {
        throwOs(X::setAttributesFailed, "giveAccessHelper", dir, err);
    }
    const uint32_t m_bits;
};

void giveAccessHelper(const SWCharString& path, uint32_t bits, bool recursive)
{
    const os::FsInfo info = statOrThrow(path, X::fileDoesNotExist, "giveAccessHelper");
    os::OsError err;
    if (!os::fsSetMode(path, info.mode | bits, err))
        throwOs(X::setAttributesFailed, "giveAccessHelper", path, err);
    if (!recursive || !info.isDir)
        return;
    AccessVisitor visitor(bits);
    detail::walkDirectory(path, SWCharString(kAllEntries), visitor);
}

// Removes the files (not directories) of one directory that match a pattern.
class RemoveContentVisitor : public DirVisitor {
public:
    RemoveContentVisitor(const char* op, int64_t& removed) : m_op(op), m_removed(removed) {}
    Step visit(const WalkEntry& e) override
    {
        if (e.info().isDir)
            return goOn;
        const int64_t bytes = e.isLink() ? 0 : e.info().size;
        os::OsError err;
        if (os::fsRemoveFile(e.path, err)) {
            m_removed += bytes;
        } else if (ShouldTrace(0, __FILE__)) {
            STrace("SFileSys::removeContent: Can't remove file %s. Reason: %s", e.path,
                   os::errorText(err));
        }
        return goOn;
    }
    void readFailed(const SWCharString& dir, const SWCharString&, const os::OsError& err) override
    {
        throwOs(X::recursiveRemoveFailed, m_op, dir, err);
    }
    const char* const m_op;
    int64_t& m_removed;   // the caller's total, which keeps what went before a failure
};

// The entries of one directory that match a pattern, as FileProp.
class ListingVisitor : public DirVisitor {
public:
    explicit ListingVisitor(SIArray<FileProp>& props) : m_props(props) {}
    Step visit(const WalkEntry& e) override
    {
        FileProp prop;
        prop.m_name = e.name();
        prop.m_nSize = e.info().size;
        prop.m_lastModified = SDateTime::fromUnixMillis(e.info().mtimeMs);
        prop.m_nAttributes = e.info().attributes;
        m_props.push_back(prop);
        return goOn;
    }
    void readFailed(const SWCharString& dir, const SWCharString&, const os::OsError& err) override
    {
        throwOs(X::getAttributesFailed, "listing", dir, err);
    }
    SIArray<FileProp>& m_props;
};

bool sameOrInside(const SWCharString& inner, const SWCharString& outer)
{
    // Both are full paths ending with a separator.
    const unsigned int n = outer.getLength();
    if (inner.getLength() < n)
        return false;
    SWCharString head = inner.left(n);
    if (os::fsIgnoresCase())
        return head.compareNoCase(outer) == 0 || head.compareBinary(outer) == 0;
    return head.compareBinary(outer) == 0;
}

bool hasOwnerPermissionHelper(const SWCharString& path, uint32_t bit)
{
    const os::FsInfo info = statOrThrow(path, X::getStatusFailed, "HasOwnerPermissionHelper");
    if (info.isDir)
        throwText(X::getStatusFailed, X::reasonInvalidArgument, "HasOwnerPermissionHelper", path,
                  kPermissionDirs);
    return (info.mode & bit) != 0;
}

SWCharString getUniqueFilenameHelper(const SWCharString& dir, const SWCharString& prefix,
                                     const SWCharString& extension, bool create,
                                     int permissions, bool directory)
{
    const char* const op = "getUniqueFilenameHelper";
    os::FsInfo info;
    os::OsError err;
    if (!dir.isEmpty() && os::fsStat(dir, info, err) && !info.isDir)
        throw X(X::uniqueNameFailed, X::reasonInvalidArgument, dir, crtText(20), SWCharString(),
                ascii(op));

    static std::atomic<int32_t> s_counter(-1);
    static const SDateTime s_base(1997, 1, 1, 0, 0, 0, 0);

    SWCharString stem = prefix;
    stem += hex(CSIProcess::GetCurrentProcessId());
    stem += hex((uint64_t)(SDateTime::now() - s_base).getCount());

    SWCharString dirPart = dir;
    if (!dirPart.isEmpty() && !endsWithSep(dirPart))
        dirPart += SWChar(sep());
    SWCharString path;
    do {
        const int32_t n = s_counter.fetch_add(1) + 1;
        SWCharString name = stem;
        name += hex((uint32_t)n);
        name.toLower();
        path = MakePath(nullptr, dirPart, name, extension);
    } while (SFileSys::exists(path));

    if (!create)
        return path;

    SWCharString target = path;
    if (directory)
        AppendSlashToDir(target, sep());
    SWCharString driveAndDir, name, ext;
    SplitPathEx(target, driveAndDir, name, ext, sep());
    const bool isDefault = permissions == SFileSys::defaultPermissions;
    const int dirMode = isDefault ? SFileSys::readWriteMask
                                  : (permissions | ((permissions & 0444) >> 2));
    if (!driveAndDir.isEmpty()) {
        try {
            SFileSys::makeDirectories(driveAndDir, dirMode);
        } catch (...) {
            trace("SFileSys::getUniqueFilenameHelper: fail to create directories.");
            throw;
        }
    }
    if (!directory) {
        try {
            SFile file(path, SFile::create | SFile::exclusive,
                       isDefault ? SFile::ownerRWXMask | SFile::groupRWXMask | SFile::othersRWXMask
                                 : permissions,
                       SFile::denyNothing);
            file.close();
        } catch (...) {
            trace("SFileSys::getUniqueFilenameHelper: Fail to create uniquely-named file.");
            throw;
        }
    }
    return path;
}

void removeContentHelper(const SWCharString& dir, const SWCharString& pattern, int64_t& removed,
                         const char* op)
{
    statOrThrow(dir, X::fileDoesNotExist, op);
    removed = 0;
    RemoveContentVisitor visitor(op, removed);
    detail::walkDirectory(dir, pattern, visitor);
}

} // namespace

// ---- SFileSys: tests ----------------------------------------------------------------------

unsigned short SFileSys::getSeparator()
{
    return sep();
}

bool SFileSys::exists(const SWCharString& path)
{
    os::FsInfo info;
    os::OsError err;
    return os::fsStat(path, info, err) || os::fsLinkStat(path, info, err);
}

bool SFileSys::isFile(const SWCharString& path)
{
    os::FsInfo info;
    os::OsError err;
    return os::fsStat(path, info, err) && !info.isDir;
}

bool SFileSys::isDir(const SWCharString& path)
{
    os::FsInfo info;
    os::OsError err;
    if (!os::fsStat(path, info, err)) {
        if (ShouldTrace(0, __FILE__))
            STrace("Failed to get file attribute for file: %s, error: %d", path, err.number);
        return false;
    }
    return info.isDir;
}

bool SFileSys::isDrive(const SWCharString& path)
{
    if (!os::fsHasDrives())
        return false;
    const unsigned int n = path.getLength();
    const unsigned short* p = path.data();
    return (n == 2 || (n == 3 && isSep(p[2]))) && isLetter(p[0]) && p[1] == ':';
}

bool SFileSys::isFullPath(const SWCharString& path)
{
    const unsigned int n = path.getLength();
    const unsigned short* p = path.data();
    if (!os::fsHasDrives())
        return n > 0 && p[0] == '/';
    return isUNCPath(path) || (n >= 3 && isLetter(p[0]) && p[1] == ':' && isSep(p[2]));
}

bool SFileSys::isUNCPath(const SWCharString& path)
{
    if (!os::fsHasDrives())
        return false;
    return path.getLength() >= 2 && isSep(path.data()[0]) && isSep(path.data()[1]);
}

// ---- SFileSys: directories ------------------------------------------------------------------

void SFileSys::makeDirectory(const SWCharString& path, int permissions)
{
    os::OsError err;
    if (!os::fsMakeDirectory(path, permissions == defaultPermissions ? -1 : permissions, err))
        throwOs(X::createDirectoryFailed, "makeDirectory", path, err);
}

void SFileSys::makeDirectories(const SWCharString& path, int permissions)
{
    if (exists(path))
        return;
    SWCharString p = path;
    if (!endsWithSep(p))
        p += SWChar(sep());
    const unsigned short* s = p.data();
    const unsigned int n = p.getLength();
    unsigned int i = 0;
    if (isUNCPath(p)) {
        // Server and share cannot be created: skip to the separator after the share,
        // which must exist.
        int seen = 0;
        for (i = 1; i < n && seen < 3; ++i)
            if (isSep(s[i]))
                ++seen;
        const SWCharString share = p.left(i > 0 ? i - 1 : 0);
        os::FsInfo info;
        os::OsError err;
        if (seen < 3 || !os::fsStat(share, info, err)) {
            if (!err.isSet())
                err.setCrt(ENOENT);
            throwOs(X::createDirectoryFailed, "makeDirectories", share, err);
        }
    }
    for (; i < n; ++i) {
        if (!isSep(s[i]))
            continue;
        if (i == 0)
            continue;
        const SWCharString prefix = p.left(i);
        if (os::fsHasDrives() && i == 2 && s[1] == ':')
            continue;   // "X:" is a drive, not a directory
        if (exists(prefix))
            continue;
        os::OsError err;
        if (!os::fsMakeDirectory(prefix, permissions == defaultPermissions ? -1 : permissions,
                                 err)) {
            // Someone else may have made it meanwhile.
            os::FsInfo info;
            os::OsError statErr;
            if (os::fsStat(prefix, info, statErr) && info.isDir)
                continue;
            throwOs(X::createDirectoryFailed, "makeDirectory", prefix, err);
        }
    }
}

void SFileSys::setCurrentDirectory(const SWCharString& path)
{
    os::OsError err;
    if (!os::fsSetCurrentDirectory(path, err))
        throwOs(X::setCurrentDirectoryFailed, "setCurrentDirectory", path, err);
}

SWCharString SFileSys::getCurrentDirectory()
{
    SWCharString dir;
    os::OsError err;
    if (!os::fsGetCurrentDirectory(dir, err))
        throwOs(X::unknownError, "getCurrentDirectory", SWCharString(), err);
    return dir;
}

SWCharString SFileSys::getFullPath(const SWCharString& path)
{
    SWCharString full;
    os::OsError err;
    if (!os::fsFullPath(path, full, err))
        throwOs(X::unknownError, "getFullPath", path, err);
    return full;
}

// ---- SFileSys: removal ------------------------------------------------------------------------

void SFileSys::remove(const SWCharString& path)
{
    os::FsInfo info;
    os::OsError err;
    if (!os::fsLinkStat(path, info, err))
        throwOs(X::fileDoesNotExist, "remove", path, err);
    if (!os::fsRemoveFile(path, err))
        throwOs(X::removeFailed, "remove", path, err);
}

namespace {

void rremoveImpl(const SWCharString& dir, bool removeSelf, const char* op)
{
    os::FsInfo info;
    os::OsError err;
    if (!os::fsLinkStat(dir, info, err))
        throwOs(X::fileDoesNotExist, op, dir, err);
    if (!info.isDir || (info.isLink && removeSelf)) {
        // Not a directory of its own: rremove takes just this entry; rremoveContent has
        // nothing to empty.
        if (!removeSelf) {
            err.setCrt(ENOTDIR);
            throwOs(X::recursiveRemoveFailed, op, dir, err);
        }
        if (!os::fsRemoveFile(dir, err) && !(info.isLink && os::fsRemoveDirectory(dir, err)))
            throwOs(X::recursiveRemoveFailed, op, dir, err);
        return;
    }
    if (!os::fsMakeRemovable(dir, err))
        throwOs(X::recursiveRemoveFailed, op, dir, err);
    RemoveVisitor visitor;
    detail::walkDirectory(dir, SWCharString(kAllEntries), visitor);
    if (removeSelf)
        visitor.leave(dir, SWCharString());
    if (visitor.failure.m_bFailed)
        throwOs(X::recursiveRemoveFailed, op, visitor.failure.m_name, visitor.failure.m_error);
}

} // namespace

void SFileSys::rremove(const SWCharString& dir)
{
    rremoveImpl(dir, true, "rremove");
}

void SFileSys::rremoveContent(const SWCharString& dir)
{
    rremoveImpl(dir, false, "rremoveContent");
}

void SFileSys::removeContent(const SWCharString& dir, const SWCharString& pattern,
                             unsigned long& removedBytes)
{
    int64_t removed = 0;
    try {
        removeContentHelper(dir, pattern, removed, "removeContent");
    } catch (...) {
        removedBytes = 0;
        throw;
    }
    removedBytes = removed > (int64_t)0xFFFFFFFFu ? 0xFFFFFFFFul : (unsigned long)removed;
}

void SFileSys::removeContentEx(const SWCharString& dir, const SWCharString& pattern,
                               int64_t& removedBytes)
{
    removedBytes = 0;
    removeContentHelper(dir, pattern, removedBytes, "removeContentEx");
}

// ---- SFileSys: sizes and counts -----------------------------------------------------------------

uint32_t SFileSys::size(const SWCharString& path)
{
    const os::FsInfo info = statOrThrow(path, X::sizeFailed, "size");
    if (info.size > (int64_t)0xFFFFFFFFu)
        throwText(X::sizeFailed, X::reasonOther, "size", path, kTooBig);
    return (uint32_t)info.size;
}

int64_t SFileSys::sizeEx(const SWCharString& path)
{
    return statOrThrow(path, X::sizeFailed, "sizeEx").size;
}

namespace {

int64_t rsizeImpl(const SWCharString& dir, bool wide, const char* op)
{
    const os::FsInfo info = statOrThrow(dir, X::fileDoesNotExist, op);
    if (!info.isDir) {
        if (!wide && info.size > (int64_t)0xFFFFFFFFu)
            throwText(X::sizeFailed, X::reasonOther, op, dir, kTooBig);
        return info.size;
    }
    SizeVisitor visitor(wide);
    if (!detail::walkDirectory(dir, SWCharString(kAllEntries), visitor)) {
        if (visitor.m_bTooBig)
            throwText(X::sizeFailed, X::reasonOther, op, dir, kTooBig);
        throwOs(X::sizeFailed, op, visitor.failure.m_name, visitor.failure.m_error);
    }
    return visitor.m_total;
}

uint32_t countImpl(const SWCharString& dir, bool all, const char* op)
{
    statOrThrow(dir, X::fileDoesNotExist, op);
    CountVisitor visitor(all);
    if (!detail::walkDirectory(dir, SWCharString(kAllEntries), visitor))
        throwOs(X::getAttributesFailed, op, visitor.failure.m_name, visitor.failure.m_error);
    return visitor.m_count;
}

} // namespace

uint32_t SFileSys::rsize(const SWCharString& dir)
{
    return (uint32_t)rsizeImpl(dir, false, "rsize");
}

int64_t SFileSys::rsizeEx(const SWCharString& dir)
{
    return rsizeImpl(dir, true, "rsizeEx");
}

uint32_t SFileSys::countFiles(const SWCharString& dir)
{
    return countImpl(dir, false, "countFiles");
}

uint32_t SFileSys::countAll(const SWCharString& dir)
{
    return countImpl(dir, true, "countAll");
}

void SFileSys::listing(const SWCharString& dir, const SWCharString& pattern,
                       SIArray<FileProp>& props)
{
    props.clear();
    statOrThrow(dir, X::fileDoesNotExist, "listing");
    ListingVisitor visitor(props);
    detail::walkDirectory(dir, pattern, visitor);
}

// ---- SFileSys: copying and renaming -------------------------------------------------------------

void SFileSys::copyFile(const SWCharString& source, const SWCharString& target, bool overwrite)
{
    const char* const op = "copyFile";
    os::FsInfo info;
    os::OsError err;
    if (!os::fsStat(source, info, err))
        throw X(X::fileNotFound, X::reasonNotFound, source, crtText(2), target, ascii(op));

    if (!info.isDir) {
        SWCharString driveAndDir, name, ext;
        SplitPathEx(target, driveAndDir, name, ext, sep());
        if (!driveAndDir.isEmpty())
            makeDirectories(driveAndDir, defaultPermissions);
        err.clear();
        if (!os::fsCopyFile(source, target, overwrite, err))
            throwOs(X::copyFailed, op, source, err, target);
        return;
    }

    const SWCharString from = withSep(source);
    const SWCharString to = withSep(target);
    // A target inside the source would copy itself without end.
    SWCharString fullFrom, fullTo;
    if (os::fsFullPath(from, fullFrom, err) && os::fsFullPath(to, fullTo, err) &&
        sameOrInside(withSep(fullTo), withSep(fullFrom))) {
        err.setCrt(EINVAL);
        throwOs(X::copyFailed, op, source, err, target);
    }
    makeDirectories(to, defaultPermissions);
    CopyVisitor visitor(to, overwrite);
    if (!detail::walkDirectory(from, SWCharString(kAllEntries), visitor))
        throwOs(X::copyFailed, op, visitor.failure.m_name, visitor.failure.m_error,
                visitor.failure.m_second);
}

void SFileSys::renameFile(const SWCharString& from, const SWCharString& to)
{
    os::FsInfo info;
    os::OsError err;
    if (os::fsStat(from, info, err) && info.isDir) {
        VARDO_ASSERT_TEXT("SFileSys::renameFile: Directory rename not supported");
        return;
    }
    err.clear();
    if (!os::fsMoveFile(from, to, err))
        throwOs(X::renameFailed, "renameFile", from, err, to);
}

// ---- SFileSys: times, space, permissions, ownership ------------------------------------------------

SDateTime SFileSys::getLastModifiedTime(const SWCharString& path)
{
    return SDateTime::fromUnixMillis(statOrThrow(path, X::getStatusFailed, "getLastModifiedTime").mtimeMs);
}

void SFileSys::setLastModifiedTime(const SWCharString& path, const SDateTime& time)
{
    const char* const op = "setLastModifiedTime";
    const os::FsInfo info = statOrThrow(path, X::setAttributesFailed, op);
    os::OsError err;
    if (info.isDir)
        throwText(X::setAttributesFailed, X::reasonInvalidArgument, op, path, kDirsNotImplemented);
    if (!time.isValid()) {
        err.setCrt(EINVAL);
        throwOs(X::setAttributesFailed, op, path, err);
    }
    if (!os::fsSetModifiedTime(path, time.toUnixMillis(), err))
        throwOs(X::setAttributesFailed, op, path, err);
}

void SFileSys::diskUsageInfo(const SWCharString& path, int64_t& availableToCaller,
                             int64_t& totalBytes, int64_t& freeBytes)
{
    os::OsError err;
    if (os::fsDiskSpace(path, availableToCaller, totalBytes, freeBytes, err))
        return;
    if (err.kind == os::OsError::missingEntryPoint) {
        trace("GetDiskFreeSpaceEx doesn't eixst");
        throwText(X::diskStatisticsFailed, X::reasonOther, "diskUsageInfo", path, kNoDiskFreeCall);
    }
    throwOs(X::diskStatisticsFailed, "diskUsageInfo", path, err);
}

void SFileSys::giveAccess(const SWCharString& path, int mode)
{
    giveAccessHelper(path, (uint32_t)mode & 07777, false);
}

void SFileSys::giveAllAccess(const SWCharString& path, bool recursive)
{
    giveAccessHelper(path, 0777, recursive);
}

bool SFileSys::HasOwnerExePermission(const SWCharString& path)
{
    return hasOwnerPermissionHelper(path, 0x40);
}

bool SFileSys::HasOwnerWritePermission(const SWCharString& path)
{
    return hasOwnerPermissionHelper(path, 0x80);
}

void SFileSys::setFileOwner(const SWCharString& path, const SWCharString& owner)
{
    os::OsError err;
    if (!os::fsSetOwner(path, owner, err))
        throwOs(X::changeOwnerFailed, "setFileOwner", path, err);
}

// ---- SFileSys: unique and temporary names ---------------------------------------------------------

SWCharString SFileSys::getTempDirname()
{
    SWCharString dir = os::fsTempDirectory();
    if (dir.getLength() > 256)
        VARDO_ASSERT_TEXT("Length of temp dir returned is bigger than _MAX_DIR");
    return dir;
}

SWCharString SFileSys::getTempFilename(const SWCharString& prefix)
{
    return getUniqueFilename(getTempDirname(), prefix, SWCharString(), true, defaultPermissions);
}

SWCharString SFileSys::getUniqueFilename(const SWCharString& dir, const SWCharString& prefix,
                                         const SWCharString& extension, bool create,
                                         int permissions)
{
    return getUniqueFilenameHelper(dir, prefix, extension, create, permissions, false);
}

SWCharString SFileSys::getUniqueDirname(const SWCharString& dir, const SWCharString& prefix,
                                        bool create, int permissions)
{
    return getUniqueFilenameHelper(dir, prefix, SWCharString(), create, permissions, true);
}

} // namespace Vardo400
