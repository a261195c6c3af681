// SFileSys: static operations on the file system by name, SFileSysException, the
// exception they throw, and the free path-string helpers.
//
// Paths are UTF-16 text. The directory separator is the platform's: the backslash on
// Windows (where "/" is accepted as well), "/" on Linux (where a backslash is an
// ordinary character of a name). getSeparator() tells which; the path helpers take the
// separator as an argument. On Linux paths reach the system as UTF-8 bytes; names on
// disk that are not valid UTF-8 come back with each stray byte b as the unit U+DC00+b,
// which turns back into the same byte, so such entries can still be removed or copied.
//
// Where Linux necessarily differs from Windows:
// - Drive letters and UNC paths do not exist: isDrive and isUNCPath are always false,
//   makeDirectories treats a leading "//" as the root, and isFullPath means "starts
//   with /". (The free helpers IsAbsolutePath and SplitPath work on the text alone and
//   keep the Windows rules when given the backslash.)
// - Attributes are synthesised (see FileProp); clearing them before a recursive removal
//   means giving the owner full access to a directory so that its entries can go.
// - Permissions are POSIX mode bits (SFile's masks have the POSIX values); Windows can
//   express only the read-only attribute, and marks programs (.exe, .com, .bat, .cmd)
//   as executable.
// - Ownership takes a user name, "user:group" or numeric ids; Windows an account name.
// - Symbolic links: recursive operations never descend into a link to a directory; they
//   remove the link itself, count it as one entry and do not copy it. A link to a file
//   is copied as the file's contents.
// - Names compare case-sensitively in pattern matching (case-insensitively on Windows).
//
// Errors: every operation reports failure by throwing SFileSysException carrying the
// operation's name, the file(s), the system's reason text and its portable class
// (mapErrno of the errno on Linux, mapError of the Win32 code on Windows). The unique-
// name functions also pass on SFileException from creating the file.
// Thread-safety: every operation may be called from any thread; the working directory
// is process-wide, as the system keeps it.
#ifndef VARDO_SFILESYS_H
#define VARDO_SFILESYS_H

#include "vardodefs.h"
#include "containers.h"
#include "sdatetime.h"
#include "sexception.h"
#include "sstring.h"

namespace Vardo400 {

// A failed file-system operation.
class VARDO_API SFileSysException : public SException {
public:
    // What failed; chooses the message template (%1 the file, then the second file
    // and/or the reason text).
    enum ErrorCodes : int {
        outOfMemory = 0,           // "System is out of memory."
        createDirectoryFailed = 1, // "Fail to create directory structure ... %1.  Reason given: %2"
        fileNotFound = 2,          // "File not found"
        getAttributesFailed = 3,   // "Fail to get file attributes ... %1.  Reason given: %2"
        removeFailed = 4,          // "Failed to remove the file %1 ...  Reason: %2"
        copyFailed = 5,            // "Failed to copy the file %1 to %2 ... Reason given: %3"
        fileDoesNotExist = 6,      // "The file %1 does not exist. ... Reason give: %2"
        getStatusFailed = 7,       // "Fail to get status of file ... %1.  Reason given: %2"
        recursiveRemoveFailed = 8, // same text as removeFailed
        setAttributesFailed = 9,   // "Fail to set file attributes ... %1.  Reason given: %2"
        sizeFailed = 10,           // "Failed to determine the size of the file %1 ..."
        uniqueNameFailed = 11,     // "Failed to generate a unique filename in dir %1. ..."
        diskStatisticsFailed = 12, // "Failed to retrieve disk statistics from %1. ..."
        renameFailed = 13,         // "Failed to rename %1 to %2. Reason: %3"
        unknownError = 14,         // "Unknown error in file system operation on file %1. ..."
        setCurrentDirectoryFailed = 15, // "Failed to set current directory to %1.  Reason: %2"
        changeOwnerFailed = 16     // "Failed to change ownership to %1.  Reason: %2"
    };
    // Portable class of the system's error. Values 3 and 5 are never produced.
    enum ErrorReasons : int {
        reasonOutOfMemory = 0,
        reasonNotFound = 1,
        reasonInvalidArgument = 2,
        reasonAccessDenied = 4,
        reasonDiskFull = 6,
        reasonAlreadyExists = 7,
        reasonOther = 8
    };

    // Code unknownError, reason reasonOther, empty texts.
    SFileSysException();
    // In the order the library has always taken them: code, class, file, the system's
    // reason text, second file (copy or rename target), operation name.
    SFileSysException(ErrorCodes code, ErrorReasons errorReason, const SWCharString& file,
                      const SWCharString& reasonText,
                      const SWCharString& secondFile = SWCharString(),
                      const SWCharString& operation = SWCharString());
    SFileSysException(const SFileSysException& e);
    SFileSysException& operator=(const SFileSysException& e);
    ~SFileSysException() override;

    ErrorCodes getErrorCode() const { return m_errorCode; }
    ErrorReasons getErrorReason() const { return m_errorReason; }
    // The system's message text.
    const SWCharString& reason() const { return m_reasonText; }
    const SWCharString& getFile() const { return m_file; }
    const SWCharString& getSecondFile() const { return m_secondFile; }
    // Name of the operation that threw, such as "copyFile".
    const SWCharString& getOperation() const { return m_operation; }

    // C run-time error numbers, by their names: ENOMEM out of memory; ENOENT not found;
    // EINVAL and ENAMETOOLONG invalid argument (ENAMETOOLONG is 38 on Windows, 36 on
    // Linux, where 38 is ENOSYS and maps to other); EPERM and EACCES access denied;
    // ENOSPC disk full; EEXIST already exists; else other.
    static ErrorReasons mapErrno(int errorNumber);
    // Win32 error codes: 1816 out of memory; 2, 3, 15, 18, 53, 67, 161, 206 not found;
    // 5 and 32 access denied; 112 disk full; else other.
    static ErrorReasons mapError(uint32_t win32Error);

    // The code's template filled with the file, second file and reason text.
    SWCharString toString() const override;
    // toString(), ", ", the operation name.
    SWCharString summary() const override;

private:
    ErrorCodes m_errorCode;
    SWCharString m_reasonText;
    SWCharString m_file;
    SWCharString m_secondFile;
    SWCharString m_operation;
    ErrorReasons m_errorReason;
};

// One directory entry as listing() reports it.
class VARDO_API FileProp {
public:
    // Attribute bits, the Windows FILE_ATTRIBUTE_ values. Linux synthesises them:
    // attrReadOnly when the owner lacks write permission, attrHidden for names starting
    // with a full stop, attrDirectory, attrReparsePoint for a symbolic link, attrNormal
    // when nothing else applies.
    enum Attributes {
        attrReadOnly = 0x1,
        attrHidden = 0x2,
        attrSystem = 0x4,
        attrDirectory = 0x10,
        attrArchive = 0x20,
        attrNormal = 0x80,
        attrReparsePoint = 0x400
    };

    FileProp() : m_nSize(0), m_nAttributes(0) {}

    const SWCharString& getName() const { return m_name; }
    // Bytes; 0 for a directory.
    int64_t getSize() const { return m_nSize; }
    const SDateTime& getLastModified() const { return m_lastModified; }
    uint32_t getAttributes() const { return m_nAttributes; }
    bool isDirectory() const { return (m_nAttributes & attrDirectory) != 0; }
    bool isReadOnly() const { return (m_nAttributes & attrReadOnly) != 0; }
    bool isHidden() const { return (m_nAttributes & attrHidden) != 0; }
    bool isLink() const { return (m_nAttributes & attrReparsePoint) != 0; }

    SWCharString m_name;        // name within the directory
    int64_t m_nSize;
    SDateTime m_lastModified;
    uint32_t m_nAttributes;
};

// Static operations on files and directories by name. Pattern arguments are wildcard
// patterns as SSFileSearch matches them ("*" any run, "?" one character; "*.*" matches
// every name).
class VARDO_API SFileSys {
public:
    // Sentinel for "the platform's default permissions" (never a real mode).
    static const int defaultPermissions = 0x60000000;
    // SFile::readWriteMask: owner read, write and execute.
    static const int readWriteMask = 0x1C0;

    // '\\' on Windows, '/' on Linux.
    static unsigned short getSeparator();

    // ---- tests ------------------------------------------------------------------------
    // The path names an existing file or directory (on Linux also a dangling link).
    static bool exists(const SWCharString& path);
    static bool isFile(const SWCharString& path);
    // Traces "Failed to get file attribute for file: %1, error: %2" when the attributes
    // cannot be read.
    static bool isDir(const SWCharString& path);
    // "X:" or "X:" plus one separator (Windows; always false on Linux).
    static bool isDrive(const SWCharString& path);
    // Windows: a drive plus separator, or a UNC path; Linux: a leading "/".
    static bool isFullPath(const SWCharString& path);
    // Windows: begins with two separators; always false on Linux.
    static bool isUNCPath(const SWCharString& path);

    // ---- directories --------------------------------------------------------------------
    // Creates one directory. permissions: SFile permission bits, or defaultPermissions
    // for the platform's default (Linux: 0777 less the umask; Windows ignores them).
    // Throws createDirectoryFailed ("makeDirectory").
    static void makeDirectory(const SWCharString& path, int permissions = defaultPermissions);
    // Creates every missing level of the path; nothing happens when it exists. A UNC
    // path's share must exist. Throws createDirectoryFailed ("makeDirectory" for a
    // level that cannot be made, "makeDirectories" for a missing share).
    static void makeDirectories(const SWCharString& path, int permissions = defaultPermissions);
    // Throws setCurrentDirectoryFailed ("setCurrentDirectory").
    static void setCurrentDirectory(const SWCharString& path);
    // The working directory, without a trailing separator (except the root). Throws
    // unknownError ("getCurrentDirectory").
    static SWCharString getCurrentDirectory();
    // The absolute, normalised form of path ("." and ".." resolved as text; the path
    // need not exist). Throws unknownError ("getFullPath").
    static SWCharString getFullPath(const SWCharString& path);

    // ---- removal ------------------------------------------------------------------------
    // Deletes one file (a link itself on Linux). Throws fileDoesNotExist when it is
    // missing, removeFailed otherwise ("remove"); a directory gives removeFailed.
    static void remove(const SWCharString& path);
    // Deletes a directory with everything in it (a file or link: just that). Entries'
    // attributes are cleared first; removal goes on past a failure and the first one is
    // reported. Throws fileDoesNotExist or recursiveRemoveFailed ("rremove").
    static void rremove(const SWCharString& dir);
    // As rremove, but the directory itself stays ("rremoveContent").
    static void rremoveContent(const SWCharString& dir);
    // Deletes the files (not directories) of dir that match pattern, not recursing, and
    // sets removedBytes to the sum of their sizes (removeContent stops counting at
    // 0xFFFFFFFF). A file that cannot be deleted is traced ("SFileSys::removeContent:
    // Can't remove file %s. Reason: %s") and skipped. Throws fileDoesNotExist when dir is
    // missing, recursiveRemoveFailed when it cannot be read.
    static void removeContent(const SWCharString& dir, const SWCharString& pattern,
                              unsigned long& removedBytes);
    static void removeContentEx(const SWCharString& dir, const SWCharString& pattern,
                                int64_t& removedBytes);

    // ---- sizes and counts ----------------------------------------------------------------
    // Size of one file (0 for a directory). The 32-bit form throws sizeFailed with the
    // reason "Size of file exceeds 4 GBytes." beyond 0xFFFFFFFF. Throws sizeFailed
    // ("size", "sizeEx") when the status cannot be read.
    static uint32_t size(const SWCharString& path);
    static int64_t sizeEx(const SWCharString& path);
    // Total size of the files of a tree, the same 4 GByte rule for the 32-bit form.
    // Throws fileDoesNotExist, or sizeFailed ("rsize", "rsizeEx").
    static uint32_t rsize(const SWCharString& dir);
    static int64_t rsizeEx(const SWCharString& dir);
    // Files in a tree; files and directories in a tree (the top directory not counted).
    // Throws fileDoesNotExist, or getAttributesFailed ("countFiles", "countAll").
    static uint32_t countFiles(const SWCharString& dir);
    static uint32_t countAll(const SWCharString& dir);
    // The entries of dir that match pattern ("." and ".." left out), appended to props
    // after clearing it. Throws fileDoesNotExist or getAttributesFailed ("listing").
    static void listing(const SWCharString& dir, const SWCharString& pattern,
                        SIArray<FileProp>& props);

    // ---- copying and renaming ------------------------------------------------------------
    // Copies a file, or a whole tree when source is a directory, creating the target's
    // directories. With overwrite false an existing target file is an error. A failed
    // copy leaves no partial target file. Throws fileNotFound when source is missing,
    // copyFailed otherwise ("copyFile"), and createDirectoryFailed from the directories.
    static void copyFile(const SWCharString& source, const SWCharString& target, bool overwrite);
    // Renames or moves a file (replacing an existing target; across volumes by copying).
    // A directory raises the assertion "SFileSys::renameFile: Directory rename not
    // supported" and is left alone. Throws renameFailed ("renameFile").
    static void renameFile(const SWCharString& from, const SWCharString& to);

    // ---- times, space, permissions, ownership -------------------------------------------
    // Throws getStatusFailed ("getLastModifiedTime").
    static SDateTime getLastModifiedTime(const SWCharString& path);
    // Throws setAttributesFailed ("setLastModifiedTime"); a directory or an unset time
    // gives the reason "Not implemented for directories" / invalid argument.
    static void setLastModifiedTime(const SWCharString& path, const SDateTime& time);
    // The volume of path: bytes available to the caller, total bytes, free bytes.
    // Throws diskStatisticsFailed ("diskUsageInfo").
    static void diskUsageInfo(const SWCharString& path, int64_t& availableToCaller,
                              int64_t& totalBytes, int64_t& freeBytes);
    // Adds the permission bits of mode (SFile masks) to the file's. Throws
    // fileDoesNotExist or setAttributesFailed ("giveAccessHelper").
    static void giveAccess(const SWCharString& path, int mode);
    // Gives read, write and execute to everyone (Windows: clears read-only); recursive
    // applies it to a whole tree when path is a directory. Throws as giveAccess.
    static void giveAllAccess(const SWCharString& path, bool recursive);
    // Whether the owner may execute / write the file. Directories are refused with
    // getStatusFailed and the reason "HasOwnerPermission is not implemented for
    // directories"; a missing file throws getStatusFailed ("HasOwnerPermissionHelper").
    static bool HasOwnerExePermission(const SWCharString& path);
    static bool HasOwnerWritePermission(const SWCharString& path);
    // Gives the file to owner. Throws changeOwnerFailed ("setFileOwner").
    static void setFileOwner(const SWCharString& path, const SWCharString& owner);

    // ---- unique and temporary names ------------------------------------------------------
    // The system's temporary directory, ending with the separator (Windows: GetTempPath;
    // Linux: TMPDIR when it is absolute, else /tmp). Asserts "Length of temp dir returned
    // is bigger than _MAX_DIR" beyond 256 characters, and returns it all the same.
    static SWCharString getTempDirname();
    // A new, empty, uniquely named file in the temporary directory.
    static SWCharString getTempFilename(const SWCharString& prefix);
    // A lower-case name: prefix, process id, time since 1997-01-01 and a process-wide
    // counter, all in hexadecimal, then the extension ("log" or ".log"), that does not
    // exist in dir (an empty dir means the working directory). With create the missing
    // directories are made and the file is created exclusively (a race with another
    // creator throws SFileException). permissions: defaultPermissions gives owner read,
    // write and execute; otherwise the bits given, plus execute wherever read is set for
    // the directories. Throws uniqueNameFailed (reason invalid argument, "Not a
    // directory") when dir is a file.
    static SWCharString getUniqueFilename(const SWCharString& dir, const SWCharString& prefix,
                                          const SWCharString& extension, bool create,
                                          int permissions = defaultPermissions);
    // The same for a directory (no extension); with create it is made with its parents.
    static SWCharString getUniqueDirname(const SWCharString& dir, const SWCharString& prefix,
                                         bool create, int permissions = defaultPermissions);
};

// ---- path helpers ---------------------------------------------------------------------------
// Each works on the text alone and recognises only the separator it is given, except
// UnifyAllSlashes and SplitPath/SplitPathEx, which with the backslash also accept "/" and
// take "X:" as a drive (as the C run-time's splitpath does).

// Appends separator unless dir already ends with it (an empty dir becomes the separator).
VARDO_API void AppendSlashToDir(SWCharString& dir, unsigned short separator);
// Removes one leading separator.
VARDO_API void StripSlashOffDirBegin(SWCharString& dir, unsigned short separator);
// Removes one trailing separator.
VARDO_API void StripSlashOffDirEnd(SWCharString& dir, unsigned short separator);
// Turns every "/" and "\\" into separator.
VARDO_API void UnifyAllSlashes(SWCharString& path, unsigned short separator);
// The last component, trailing separators ignored: "a\\b\\c\\" gives "c".
VARDO_API SWCharString GetBottomLevelDir(const SWCharString& path, unsigned short separator);
// The path without its last component and without the separator before it, the root
// kept: "a\\b\\c\\" gives "a\\b", "\\c" gives "\\", "c" gives "".
VARDO_API SWCharString GetParentLevelDir(const SWCharString& path, unsigned short separator);
// True when the text starts with a drive ("X:") or with "\\" or "/".
VARDO_API bool IsAbsolutePath(const SWCharString& path);
// Splits path into drive ("X:"), directory (with its trailing separator), base name and
// extension (with its full stop), each copied into the caller's buffer of the given size
// in units, terminator included; a null buffer or size 0 skips that part. Returns false
// when a part did not fit (it is then cut to the buffer).
VARDO_API bool SplitPath(const unsigned short* path, unsigned short* drive, unsigned int driveSize,
                         unsigned short* dir, unsigned int dirSize, unsigned short* name,
                         unsigned int nameSize, unsigned short* ext, unsigned int extSize,
                         unsigned short separator);
// The same into strings, drive and directory together.
VARDO_API void SplitPathEx(const SWCharString& path, SWCharString& driveAndDir, SWCharString& name,
                           SWCharString& ext, unsigned short separator);
// Joins drive, directory, name and extension (any may be null or empty) with the
// platform's separator: ":" is added to a one-letter drive, a separator after a
// directory that lacks one, a full stop before an extension that lacks one.
VARDO_API SWCharString MakePath(const unsigned short* drive, const unsigned short* dir,
                                const unsigned short* name, const unsigned short* ext);

} // namespace Vardo400

#endif
