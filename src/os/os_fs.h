// Platform layer: operations on the file system by name, directory enumeration and the
// operating system's error texts. Portable policy (existence tests, recursion, messages,
// error classification) stays in sfilesys.cpp and sfilesearch.cpp.
//
// Failures are reported as OsError (os_error.h): errno numbers on Linux, Win32 codes on
// Windows.
//
// Paths are UTF-16. On Linux they become UTF-8 bytes; a name read from disk that is not
// valid UTF-8 keeps each stray byte b as the lone surrogate U+DC00+b and turns back into
// the same byte, so every entry can be named, copied and removed. A path holding a zero
// unit, or a lone surrogate outside U+DC80..U+DCFF, is refused as an invalid argument.
#ifndef VARDO_OS_FS_H
#define VARDO_OS_FS_H

#include "os/os_error.h"
#include "vardo/sstring.h"

#include <cstdint>
#include <memory>

namespace Vardo400 {
namespace os {

// Attribute bits of a directory entry: the Windows FILE_ATTRIBUTE_ values. Linux
// synthesises them: read-only when the owner has no write permission, hidden for names
// that start with a full stop, directory, reparse point for a symbolic link, normal when
// no other bit applies.
enum {
    fsAttrReadOnly = 0x1,
    fsAttrHidden = 0x2,
    fsAttrSystem = 0x4,
    fsAttrDirectory = 0x10,
    fsAttrArchive = 0x20,
    fsAttrNormal = 0x80,
    fsAttrReparsePoint = 0x400
};

// What the system tells about one name.
struct FsInfo {
    bool isDir = false;        // a directory (for a link: the link's target)
    bool isFile = false;       // a regular file (for a link: the link's target)
    bool isLink = false;       // the name itself is a symbolic link or reparse point
    int64_t size = 0;          // bytes; 0 for directories
    int64_t mtimeMs = 0;       // last modification, milliseconds since 1970-01-01 UTC
    uint32_t mode = 0;         // permission bits in the 0777 layout (Windows: owner bits
                               // 0x100 always, 0x80 unless read-only, 0x40 for programs)
    uint32_t attributes = 0;   // fsAttr* bits
    uint32_t ownerId = 0;      // numeric owner (Linux); 0 on Windows
};

// The directory separator of the platform: '\\' on Windows, '/' on Linux.
unsigned short fsSeparator();
// True where paths may carry drive letters and UNC server names (Windows).
bool fsHasDrives();
// True where names compare without regard to case (Windows).
bool fsIgnoresCase();

// Status of the name, following symbolic links (Linux: a dangling link fails).
bool fsStat(const SWCharString& path, FsInfo& info, OsError& err);
// Status of the name itself: a symbolic link is described as a link.
bool fsLinkStat(const SWCharString& path, FsInfo& info, OsError& err);

// Creates one directory; mode < 0 asks for the platform's default.
bool fsMakeDirectory(const SWCharString& path, int mode, OsError& err);
// Deletes a file (or a symbolic link itself).
bool fsRemoveFile(const SWCharString& path, OsError& err);
// Deletes an empty directory (or a reparse point standing for one).
bool fsRemoveDirectory(const SWCharString& path, OsError& err);
// Makes an entry deletable before a recursive removal: Windows clears its attribute
// flags; Linux gives the owner full access to a directory (not through a link) so that
// its contents can be listed and removed, and leaves everything else alone.
bool fsMakeRemovable(const SWCharString& path, OsError& err);

// Copies one file's contents (and its modification time and permission bits). Fails when
// the target exists unless overwrite is set. A copy that fails leaves no partial target:
// a target it created is removed, and an overwritten target is replaced only once the
// copy is complete (Linux; Windows relies on CopyFileW and removes a target it created).
bool fsCopyFile(const SWCharString& source, const SWCharString& target, bool overwrite,
                OsError& err);
// Renames or moves a file, replacing an existing target, copying across volumes.
// Windows looks up "MoveFileExW" at run time.
bool fsMoveFile(const SWCharString& from, const SWCharString& to, OsError& err);
// The three figures of the volume holding path: bytes available to the caller, total
// bytes, free bytes. Windows looks up "GetDiskFreeSpaceExW" at run time.
bool fsDiskSpace(const SWCharString& path, int64_t& availableToCaller, int64_t& total,
                 int64_t& totalFree, OsError& err);
// Sets the permission bits (0777 layout). Windows can only express the owner's write
// bit, as the read-only attribute.
bool fsSetMode(const SWCharString& path, uint32_t mode, OsError& err);
// Changes the owner: a user name, "user:group", or numeric ids (Linux); an account name
// (Windows).
bool fsSetOwner(const SWCharString& path, const SWCharString& owner, OsError& err);
// Sets the last-modification time, leaving the access time as it is.
bool fsSetModifiedTime(const SWCharString& path, int64_t unixMillis, OsError& err);

bool fsGetCurrentDirectory(SWCharString& dir, OsError& err);
bool fsSetCurrentDirectory(const SWCharString& dir, OsError& err);
// Absolute, normalised form of the path ("." and ".." resolved as text, links not
// followed); the path need not exist.
bool fsFullPath(const SWCharString& path, SWCharString& full, OsError& err);
// The system's directory for temporary files, ending with the separator.
SWCharString fsTempDirectory();

// ---- directory enumeration ---------------------------------------------------------------
struct FsDir;
struct FsDirCloser {
    void operator()(FsDir* d) const;
};
typedef std::unique_ptr<FsDir, FsDirCloser> FsDirHandle;

struct FsDirEntry {
    SWCharString name;
    FsInfo info;          // the entry as the directory lists it (links as links)
};

// Opens a directory for reading; null with err set on failure. With followLink false a
// symbolic link (reparse point) at path is refused instead of followed, so that a walk
// never leaves its tree through a link swapped in after the entry was listed.
FsDirHandle fsOpenDirectory(const SWCharString& path, bool followLink, OsError& err);
// The next entry, "." and ".." included where the system lists them. False at the end
// (err not set) or on failure (err set).
bool fsReadDirectory(FsDir& dir, FsDirEntry& entry, OsError& err);

} // namespace os
} // namespace Vardo400

#endif
