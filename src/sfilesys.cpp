// SFileSys, SFileSysException and the path helpers. The system calls live in the
// platform layer (os/os_fs.h); existence tests, recursion, unique names, error
// classification and messages are stated here once for both platforms.
#include "vardo/sfilesys.h"

#include "vardo/csiprocess.h"
#include "vardo/sfile.h"
#include "vardo/sfilesearch.h"
#include "vardo/sresstring.h"
#include "vardo/strace.h"

#include "os/os_fs.h"

#include <atomic>
#include <cerrno>

namespace Vardo400 {

namespace {

// ---- texts ------------------------------------------------------------------------------

const char* const kTemplates[] = {
    "System is out of memory.",
    "Fail to create directory structure in file system operation on file %1.  Reason given: %2",
    "File not found",
    "Fail to get file attributes from operating system in file system operation on file %1.  Reason given: %2",
    "Failed to remove the file %1 in a file system operation. Please check access rights or for a sharing violation.  Reason: %2",
    "Failed to copy the file %1 to %2 in file system operation. Please check access rights. Reason given: %3",
    "The file %1 does not exist.  File system operation failed. Reason give: %2",
    "Fail to get status of file from operating system in file system operation on file %1.  Reason given: %2",
    "Failed to remove the file %1 in a file system operation. Please check access rights or for a sharing violation.  Reason: %2",
    "Fail to set file attributes in file system operation on file %1.  Reason given: %2",
    "Failed to determine the size of the file %1 in file system operation. Reason: %2",
    "Failed to generate a unique filename in dir %1. Reason: %2",
    "Failed to retrieve disk statistics from %1. Reason: %2",
    "Failed to rename %1 to %2. Reason: %3",
    "Unknown error in file system operation on file %1. Reason: %2",
    "Failed to set current directory to %1.  Reason: %2",
    "Failed to change ownership to %1.  Reason: %2",
};
const int kTemplateCount = (int)(sizeof kTemplates / sizeof kTemplates[0]);
const int kUnknownTemplate = 14;

const char kTooBig[] = "Size of file exceeds 4 GBytes.";
const char kNoDiskFreeCall[] =
    "The operating system's call has failed.  Please contact your system administrator.";
const char kDirsNotImplemented[] = "Not implemented for directories";
const char kPermissionDirs[] = "HasOwnerPermission is not implemented for directories";

typedef SFileSysException X;

SWCharString ascii(const char* s)
{
    SWCharString r;
    unsigned int n = 0;
    while (s[n])
        ++n;
    r.concatFromAscii(s, n);
    return r;
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

// The separators of a path for the platform: its own, and "/" as well where the own one
// is the backslash.
bool isSep(unsigned short c, unsigned short separator)
{
    return c == separator || (separator == '\\' && c == '/');
}

bool isSep(unsigned short c)
{
    return isSep(c, sep());
}

bool endsWithSep(const SWCharString& s)
{
    const unsigned int n = s.getLength();
    return n > 0 && isSep(s.data()[n - 1]);
}

SWCharString withSep(const SWCharString& dir)
{
    SWCharString r = dir;
    if (!endsWithSep(r))
        r += SWChar(sep());
    return r;
}

bool isLetter(unsigned short c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

X::ErrorReasons reasonOf(const os::FsError& err)
{
    switch (err.kind) {
    case os::FsError::crt:
        return X::mapErrno(err.number);
    case os::FsError::win32:
        return X::mapError((uint32_t)err.number);
    default:
        return X::reasonOther;
    }
}

[[noreturn]] void throwOs(X::ErrorCodes code, const char* operation, const SWCharString& file,
                          const os::FsError& err, const SWCharString& second = SWCharString())
{
    throw X(code, reasonOf(err), file, os::fsErrorText(err), second, ascii(operation));
}

[[noreturn]] void throwText(X::ErrorCodes code, X::ErrorReasons reason, const char* operation,
                            const SWCharString& file, const char* text)
{
    throw X(code, reason, file, ascii(text), SWCharString(), ascii(operation));
}

// The text of a C run-time error number, whatever the platform's own numbering.
SWCharString crtText(int e)
{
    os::FsError err;
    err.setCrt(e);
    return os::fsErrorText(err);
}

void trace(const char* text)
{
    if (ShouldTrace(0, __FILE__))
        STrace(text);
}

// ---- recursion helpers --------------------------------------------------------------------

// The first failure of a recursive walk.
struct Failure {
    bool m_bFailed = false;
    os::FsError m_error;
    SWCharString m_name;
    SWCharString m_second;

    void record(const os::FsError& err, const SWCharString& name,
                const SWCharString& second = SWCharString())
    {
        if (m_bFailed)
            return;
        m_bFailed = true;
        m_error = err;
        m_name = name;
        m_second = second;
    }
};

void searchFailure(const SSFileSearch& s, os::FsError& err)
{
    if (s.isWin32Error())
        err.setWin32(s.getErrorNumber());
    else
        err.setCrt(s.getErrorNumber());
}

bool isDots(const SWCharString& name)
{
    const unsigned int n = name.getLength();
    const unsigned short* s = name.data();
    return (n == 1 && s[0] == '.') || (n == 2 && s[0] == '.' && s[1] == '.');
}

// Removes what dir holds, and dir itself when removeSelf is set. Goes on past failures;
// the first is kept.
void rremoveHelper(const SWCharString& dir, bool removeSelf, Failure& failure)
{
    os::FsError err;
    {
        SSFileSearch search(dir);
        while (search.next()) {
            if (isDots(search.getName()))
                continue;
            const SWCharString path = search.getPath();
            err.clear();
            if (!os::fsMakeRemovable(path, err)) {
                failure.record(err, path);
                continue;
            }
            if (search.isDirectory() && !search.isLink()) {
                rremoveHelper(path, true, failure);
            } else if (!os::fsRemoveFile(path, err)) {
                // A reparse point standing for a directory goes with the directory call.
                os::FsError dirErr;
                if (!(search.isLink() && os::fsRemoveDirectory(path, dirErr)))
                    failure.record(err, path);
            }
        }
        if (search.failed()) {
            searchFailure(search, err);
            failure.record(err, dir);
        }
    }
    if (removeSelf) {
        err.clear();
        if (!os::fsRemoveDirectory(dir, err))
            failure.record(err, dir);
    }
}

// Adds up the sizes of the files of a tree; false (failure set) when a directory cannot
// be read or, for the 32-bit form, when the total passes 32 bits.
bool rsizeHelper(const SWCharString& dir, int64_t& total, bool wide, Failure& failure,
                 bool& tooBig)
{
    SSFileSearch search(dir);
    while (search.next()) {
        if (isDots(search.getName()))
            continue;
        if (search.isDirectory()) {
            if (!search.isLink() && !rsizeHelper(search.getPath(), total, wide, failure, tooBig))
                return false;
            continue;
        }
        total += search.getSize();
        if (!wide && total > (int64_t)0xFFFFFFFFu) {
            tooBig = true;
            return false;
        }
    }
    if (search.failed()) {
        os::FsError err;
        searchFailure(search, err);
        failure.record(err, dir);
        return false;
    }
    return true;
}

bool countHelper(const SWCharString& dir, bool all, uint32_t& count, Failure& failure)
{
    SSFileSearch search(dir);
    while (search.next()) {
        if (isDots(search.getName()))
            continue;
        if (search.isDirectory()) {
            if (all)
                ++count;
            if (!search.isLink() && !countHelper(search.getPath(), all, count, failure))
                return false;
        } else {
            ++count;
        }
    }
    if (search.failed()) {
        os::FsError err;
        searchFailure(search, err);
        failure.record(err, dir);
        return false;
    }
    return true;
}

// Copies the tree below source (both paths end with a separator) into target; stops at
// the first failure, which is recorded with the source and target names.
bool copyFileHelper(const SWCharString& source, const SWCharString& target, bool overwrite,
                    Failure& failure)
{
    os::FsError err;
    os::FsInfo info;
    if (!os::fsStat(target, info, err)) {
        err.clear();
        if (!os::fsMakeDirectory(target, -1, err)) {
            failure.record(err, source, target);
            return false;
        }
    }
    SSFileSearch search(source);
    while (search.next()) {
        const SWCharString& name = search.getName();
        if (isDots(name))
            continue;
        SWCharString from = source;
        from += name;
        SWCharString to = target;
        to += name;
        if (search.isDirectory()) {
            // A link to a directory is not followed: the tree could contain itself.
            if (search.isLink())
                continue;
            if (!copyFileHelper(withSep(from), withSep(to), overwrite, failure))
                return false;
            continue;
        }
        err.clear();
        if (!os::fsCopyFile(from, to, overwrite, err)) {
            failure.record(err, from, to);
            return false;
        }
    }
    if (search.failed()) {
        searchFailure(search, err);
        failure.record(err, source, target);
        return false;
    }
    return true;
}

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

void giveAccessHelper(const SWCharString& path, uint32_t bits, bool recursive)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::fileDoesNotExist, "giveAccessHelper", path, err);
    if (!os::fsSetMode(path, info.mode | bits, err))
        throwOs(X::setAttributesFailed, "giveAccessHelper", path, err);
    if (!recursive || !info.isDir)
        return;
    SSFileSearch search(path);
    while (search.next()) {
        if (isDots(search.getName()) || search.isLink())
            continue;
        giveAccessHelper(search.getPath(), bits, true);
    }
    if (search.failed()) {
        searchFailure(search, err);
        throwOs(X::setAttributesFailed, "giveAccessHelper", path, err);
    }
}

bool hasOwnerPermissionHelper(const SWCharString& path, uint32_t bit)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::getStatusFailed, "HasOwnerPermissionHelper", path, err);
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
    os::FsError err;
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
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(dir, info, err))
        throwOs(X::fileDoesNotExist, op, dir, err);
    removed = 0;
    SSFileSearch search(dir, pattern);
    while (search.next()) {
        if (search.isDirectory() || isDots(search.getName()))
            continue;
        const int64_t bytes = search.isLink() ? 0 : search.getSize();
        const SWCharString path = search.getPath();
        err.clear();
        if (os::fsRemoveFile(path, err)) {
            removed += bytes;
        } else if (ShouldTrace(0, __FILE__)) {
            STrace("SFileSys::removeContent: Can't remove file %s. Reason: %s", path,
                   os::fsErrorText(err));
        }
    }
    if (search.failed()) {
        searchFailure(search, err);
        throwOs(X::recursiveRemoveFailed, op, dir, err);
    }
}

} // namespace

// ---- SFileSysException --------------------------------------------------------------------

SFileSysException::SFileSysException()
    : m_errorCode(X::unknownError), m_errorReason(X::reasonOther)
{
}

SFileSysException::SFileSysException(ErrorCodes code, ErrorReasons errorReason,
                                     const SWCharString& file, const SWCharString& reasonText,
                                     const SWCharString& secondFile, const SWCharString& operation)
    : m_errorCode(code), m_reasonText(reasonText), m_file(file), m_secondFile(secondFile),
      m_operation(operation), m_errorReason(errorReason)
{
}

SFileSysException::SFileSysException(const SFileSysException& e) = default;
SFileSysException& SFileSysException::operator=(const SFileSysException& e) = default;
SFileSysException::~SFileSysException() = default;

SFileSysException::ErrorReasons SFileSysException::mapErrno(int errorNumber)
{
    switch (errorNumber) {
    case 12:
        return X::reasonOutOfMemory;
    case 2:
        return X::reasonNotFound;
    case 22:
    case 38:
        return X::reasonInvalidArgument;
    case 1:
    case 13:
        return X::reasonAccessDenied;
    case 28:
        return X::reasonDiskFull;
    case 17:
        return X::reasonAlreadyExists;
    default:
        // 38 is the Windows run-time's ENAMETOOLONG; give the platform's own number the
        // same class.
        if (errorNumber == ENAMETOOLONG)
            return X::reasonInvalidArgument;
        return X::reasonOther;
    }
}

SFileSysException::ErrorReasons SFileSysException::mapError(uint32_t win32Error)
{
    switch (win32Error) {
    case 1816:
        return X::reasonOutOfMemory;
    case 2:
    case 3:
    case 15:
    case 18:
    case 53:
    case 67:
    case 161:
    case 206:
        return X::reasonNotFound;
    case 5:
    case 32:
        return X::reasonAccessDenied;
    case 112:
        return X::reasonDiskFull;
    default:
        return X::reasonOther;
    }
}

SWCharString SFileSysException::toString() const
{
    const int code = (int)m_errorCode;
    const int index = (code >= 0 && code < kTemplateCount) ? code : kUnknownTemplate;
    SResString text(kTemplates[index]);
    text << m_file;
    if (code == X::copyFailed || code == X::renameFailed)
        text << m_secondFile;
    text << m_reasonText;
    return text.format();
}

SWCharString SFileSysException::summary() const
{
    SWCharString s = toString();
    s += ascii(", ");
    s += m_operation;
    return s;
}

// ---- SFileSys: tests ----------------------------------------------------------------------

unsigned short SFileSys::getSeparator()
{
    return sep();
}

bool SFileSys::exists(const SWCharString& path)
{
    os::FsInfo info;
    os::FsError err;
    return os::fsStat(path, info, err) || os::fsLinkStat(path, info, err);
}

bool SFileSys::isFile(const SWCharString& path)
{
    os::FsInfo info;
    os::FsError err;
    return os::fsStat(path, info, err) && !info.isDir;
}

bool SFileSys::isDir(const SWCharString& path)
{
    os::FsInfo info;
    os::FsError err;
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
    os::FsError err;
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
        os::FsError err;
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
        os::FsError err;
        if (!os::fsMakeDirectory(prefix, permissions == defaultPermissions ? -1 : permissions,
                                 err)) {
            // Someone else may have made it meanwhile.
            os::FsInfo info;
            os::FsError statErr;
            if (os::fsStat(prefix, info, statErr) && info.isDir)
                continue;
            throwOs(X::createDirectoryFailed, "makeDirectory", prefix, err);
        }
    }
}

void SFileSys::setCurrentDirectory(const SWCharString& path)
{
    os::FsError err;
    if (!os::fsSetCurrentDirectory(path, err))
        throwOs(X::setCurrentDirectoryFailed, "setCurrentDirectory", path, err);
}

SWCharString SFileSys::getCurrentDirectory()
{
    SWCharString dir;
    os::FsError err;
    if (!os::fsGetCurrentDirectory(dir, err))
        throwOs(X::unknownError, "getCurrentDirectory", SWCharString(), err);
    return dir;
}

SWCharString SFileSys::getFullPath(const SWCharString& path)
{
    SWCharString full;
    os::FsError err;
    if (!os::fsFullPath(path, full, err))
        throwOs(X::unknownError, "getFullPath", path, err);
    return full;
}

// ---- SFileSys: removal ------------------------------------------------------------------------

void SFileSys::remove(const SWCharString& path)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsLinkStat(path, info, err))
        throwOs(X::fileDoesNotExist, "remove", path, err);
    if (!os::fsRemoveFile(path, err))
        throwOs(X::removeFailed, "remove", path, err);
}

namespace {

void rremoveImpl(const SWCharString& dir, bool removeSelf, const char* op)
{
    os::FsInfo info;
    os::FsError err;
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
    Failure failure;
    rremoveHelper(dir, removeSelf, failure);
    if (failure.m_bFailed)
        throwOs(X::recursiveRemoveFailed, op, failure.m_name, failure.m_error);
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
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::sizeFailed, "size", path, err);
    if (info.size > (int64_t)0xFFFFFFFFu)
        throwText(X::sizeFailed, X::reasonOther, "size", path, kTooBig);
    return (uint32_t)info.size;
}

int64_t SFileSys::sizeEx(const SWCharString& path)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::sizeFailed, "sizeEx", path, err);
    return info.size;
}

namespace {

int64_t rsizeImpl(const SWCharString& dir, bool wide, const char* op)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(dir, info, err))
        throwOs(X::fileDoesNotExist, op, dir, err);
    if (!info.isDir) {
        if (!wide && info.size > (int64_t)0xFFFFFFFFu)
            throwText(X::sizeFailed, X::reasonOther, op, dir, kTooBig);
        return info.size;
    }
    int64_t total = 0;
    Failure failure;
    bool tooBig = false;
    if (!rsizeHelper(dir, total, wide, failure, tooBig)) {
        if (tooBig)
            throwText(X::sizeFailed, X::reasonOther, op, dir, kTooBig);
        throwOs(X::sizeFailed, op, failure.m_name, failure.m_error);
    }
    return total;
}

uint32_t countImpl(const SWCharString& dir, bool all, const char* op)
{
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(dir, info, err))
        throwOs(X::fileDoesNotExist, op, dir, err);
    uint32_t count = 0;
    Failure failure;
    if (!countHelper(dir, all, count, failure))
        throwOs(X::getAttributesFailed, op, failure.m_name, failure.m_error);
    return count;
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
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(dir, info, err))
        throwOs(X::fileDoesNotExist, "listing", dir, err);
    SSFileSearch search(dir, pattern);
    while (search.next()) {
        if (isDots(search.getName()))
            continue;
        FileProp prop;
        prop.m_name = search.getName();
        prop.m_nSize = search.getSize();
        prop.m_lastModified = search.getLastModified();
        prop.m_nAttributes = search.getAttributes();
        props.push_back(prop);
    }
    if (search.failed()) {
        searchFailure(search, err);
        throwOs(X::getAttributesFailed, "listing", dir, err);
    }
}

// ---- SFileSys: copying and renaming -------------------------------------------------------------

void SFileSys::copyFile(const SWCharString& source, const SWCharString& target, bool overwrite)
{
    const char* const op = "copyFile";
    os::FsInfo info;
    os::FsError err;
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
    Failure failure;
    if (!copyFileHelper(from, to, overwrite, failure))
        throwOs(X::copyFailed, op, failure.m_name, failure.m_error, failure.m_second);
}

void SFileSys::renameFile(const SWCharString& from, const SWCharString& to)
{
    os::FsInfo info;
    os::FsError err;
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
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::getStatusFailed, "getLastModifiedTime", path, err);
    return SDateTime::fromUnixMillis(info.mtimeMs);
}

void SFileSys::setLastModifiedTime(const SWCharString& path, const SDateTime& time)
{
    const char* const op = "setLastModifiedTime";
    os::FsInfo info;
    os::FsError err;
    if (!os::fsStat(path, info, err))
        throwOs(X::setAttributesFailed, op, path, err);
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
    os::FsError err;
    if (os::fsDiskSpace(path, availableToCaller, totalBytes, freeBytes, err))
        return;
    if (err.kind == os::FsError::missingEntryPoint) {
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
    os::FsError err;
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

// ---- path helpers -----------------------------------------------------------------------------------

void AppendSlashToDir(SWCharString& dir, unsigned short separator)
{
    const unsigned int n = dir.getLength();
    if (n == 0 || dir.data()[n - 1] != separator)
        dir += SWChar(separator);
}

void StripSlashOffDirBegin(SWCharString& dir, unsigned short separator)
{
    if (dir.getLength() > 0 && dir.data()[0] == separator)
        dir.deleteChars(0u, 1u);
}

void StripSlashOffDirEnd(SWCharString& dir, unsigned short separator)
{
    const unsigned int n = dir.getLength();
    if (n > 0 && dir.data()[n - 1] == separator)
        dir.deleteChars(n - 1, 1u);
}

void UnifyAllSlashes(SWCharString& path, unsigned short separator)
{
    const unsigned int n = path.getLength();
    for (unsigned int i = 0; i < n; ++i) {
        const unsigned short c = path.data()[i];
        if ((c == '/' || c == '\\') && c != separator)
            path.setAt(i, SWChar(separator));
    }
}

SWCharString GetBottomLevelDir(const SWCharString& path, unsigned short separator)
{
    const unsigned short* s = path.data();
    unsigned int end = path.getLength();
    while (end > 0 && s[end - 1] == separator)
        --end;
    unsigned int start = end;
    while (start > 0 && s[start - 1] != separator)
        --start;
    return path.mid(start, end - start);
}

SWCharString GetParentLevelDir(const SWCharString& path, unsigned short separator)
{
    const unsigned short* s = path.data();
    unsigned int end = path.getLength();
    while (end > 0 && s[end - 1] == separator)
        --end;
    while (end > 0 && s[end - 1] != separator)
        --end;
    if (end == 0)
        return SWCharString();
    // Drop the separators before the last component, but keep a root separator.
    unsigned int cut = end;
    while (cut > 1 && s[cut - 1] == separator)
        --cut;
    if (cut == 1 && s[0] == separator)
        return path.left(1);
    return path.left(cut);
}

bool IsAbsolutePath(const SWCharString& path)
{
    const unsigned int n = path.getLength();
    const unsigned short* s = path.data();
    if (n == 0)
        return false;
    if (s[0] == '\\' || s[0] == '/')
        return true;
    return n >= 2 && isLetter(s[0]) && s[1] == ':';
}

namespace {

// Positions of the parts of a path, as the C run-time's splitpath finds them.
struct PathParts {
    unsigned int driveEnd = 0;   // drive is [0, driveEnd)
    unsigned int dirEnd = 0;     // directory is [driveEnd, dirEnd)
    unsigned int nameEnd = 0;    // name is [dirEnd, nameEnd), extension [nameEnd, length)
};

PathParts splitParts(const unsigned short* s, unsigned int n, unsigned short separator)
{
    PathParts parts;
    if (separator == '\\' && n >= 2 && s[1] == ':')
        parts.driveEnd = 2;
    parts.dirEnd = parts.driveEnd;
    for (unsigned int i = parts.driveEnd; i < n; ++i)
        if (isSep(s[i], separator))
            parts.dirEnd = i + 1;
    parts.nameEnd = n;
    for (unsigned int i = n; i > parts.dirEnd; --i) {
        if (s[i - 1] == '.') {
            parts.nameEnd = i - 1;
            break;
        }
    }
    return parts;
}

bool copyPart(const unsigned short* from, unsigned int n, unsigned short* buffer,
              unsigned int size)
{
    if (!buffer || size == 0)
        return true;
    const unsigned int take = n < size ? n : size - 1;
    for (unsigned int i = 0; i < take; ++i)
        buffer[i] = from[i];
    buffer[take] = 0;
    return take == n;
}

} // namespace

bool SplitPath(const unsigned short* path, unsigned short* drive, unsigned int driveSize,
               unsigned short* dir, unsigned int dirSize, unsigned short* name,
               unsigned int nameSize, unsigned short* ext, unsigned int extSize,
               unsigned short separator)
{
    static const unsigned short kEmpty[] = {0};
    const unsigned short* s = path ? path : kEmpty;
    unsigned int n = 0;
    while (s[n])
        ++n;
    const PathParts p = splitParts(s, n, separator);
    bool ok = copyPart(s, p.driveEnd, drive, driveSize);
    ok = copyPart(s + p.driveEnd, p.dirEnd - p.driveEnd, dir, dirSize) && ok;
    ok = copyPart(s + p.dirEnd, p.nameEnd - p.dirEnd, name, nameSize) && ok;
    ok = copyPart(s + p.nameEnd, n - p.nameEnd, ext, extSize) && ok;
    return ok;
}

void SplitPathEx(const SWCharString& path, SWCharString& driveAndDir, SWCharString& name,
                 SWCharString& ext, unsigned short separator)
{
    const PathParts p = splitParts(path.data(), path.getLength(), separator);
    driveAndDir = path.left(p.dirEnd);
    name = path.mid(p.dirEnd, p.nameEnd - p.dirEnd);
    ext = path.mid(p.nameEnd);
}

SWCharString MakePath(const unsigned short* drive, const unsigned short* dir,
                      const unsigned short* name, const unsigned short* ext)
{
    SWCharString path;
    if (drive && drive[0]) {
        path += drive;
        if (drive[1] == 0)
            path += SWChar((unsigned short)':');
    }
    if (dir && dir[0]) {
        path += dir;
        if (!endsWithSep(path))
            path += SWChar(sep());
    }
    if (name)
        path += name;
    if (ext && ext[0]) {
        if (ext[0] != '.')
            path += SWChar((unsigned short)'.');
        path += ext;
    }
    return path;
}

// ---- testing hook -------------------------------------------------------------------------------------

namespace Testing {
void SFileSysInjectDiskFull(int64_t afterBytes)
{
    os::fsInjectDiskFull(afterBytes);
}
} // namespace Testing

} // namespace Vardo400
