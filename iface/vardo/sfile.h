// SFile: the library's handle on one open file, and SFileException, the exception every
// SFile failure throws.
//
// SFile is a thin wrapper over the C run-time's descriptor calls. The constants below
// carry the C run-time's values (open flags, permission bits, share modes, seek origins,
// region-lock modes) on every platform. On Windows they reach _wsopen unchanged; on
// Linux the platform layer translates them to the POSIX equivalents:
//   readOnly/writeOnly/readAndWrite -> O_RDONLY/O_WRONLY/O_RDWR (both low bits: EINVAL),
//   append -> O_APPEND, create -> O_CREAT, truncate -> O_TRUNC, exclusive -> O_EXCL,
//   temporary -> the name is unlinked as soon as the file is open (the data lives until
//   the last descriptor closes), sequential/random -> posix_fadvise hints,
//   noInherit -> always in force (every descriptor is opened with O_CLOEXEC);
//   permissions -> the low nine bits are the POSIX mode (the owner masks have the same
//   values as S_IRUSR, S_IWUSR, S_IXUSR), filtered by the umask;
//   share modes -> no effect (POSIX has no share modes);
//   the binary flag 0x8000 and the text flag 0x4000 -> no effect (no text mode).
// A folder cannot be opened as a file (Windows refuses it with EACCES, Linux with EISDIR).
// Paths are UTF-16; on Linux they reach the system as UTF-8 bytes.
//
// Thread-safety: an SFile has no locking; one object belongs to one thread at a time.
#ifndef VARDO_SFILE_H
#define VARDO_SFILE_H

#include "vardodefs.h"
#include "sexception.h"
#include "sstring.h"

namespace Vardo400 {

// The failure of one SFile operation: which operation, the file, the system's reason.
// Copyable; holds its texts by value.
class VARDO_API SFileException : public SException {
public:
    // Which operation failed; chooses the message template of toString().
    enum ErrorCodes {
        openError = 0,   // "Failed to open the file %1.  Reason: %2"
        readError = 1,   // read, readString, readLine
        writeError = 2,  // write, writeString
        flushError = 3,  // flush
        seekError = 4,   // seek, seekEx, eof and what is built on them (no template)
        lockError = 5    // region locks (no operation of SFile throws it)
    };
    // Classification of the cause.
    enum DetailCodes {
        accessDenied = 0,   // EACCES
        fileNotFound = 1,   // ENOENT
        fileNotOpened = 2,  // the object has no open file
        outOfMemory = 3,    // ENOMEM, or no buffer could be obtained
        unusedDetail = 4,   // never produced
        otherError = 5      // any other error number, and a missing access mode
    };

    SFileException();
    // The arguments in the order the library has always taken them: code, C run-time
    // error number (0 when none applies), file name, detail, reason text, extra text.
    SFileException(ErrorCodes code, int errorNumber, const SWCharString& fileName,
                   DetailCodes detail, const SWCharString& reason, const SWCharString& extra);
    SFileException(const SFileException& e);
    SFileException& operator=(const SFileException& e);
    ~SFileException() override;

    ErrorCodes ErrCode() const { return m_errorCode; }
    DetailCodes DetailCode() const { return m_detailCode; }
    int getErrno() const { return m_nErrno; }
    // The file named in the message (the SFile's path) and the reason text.
    const SWCharString& getFileName() const { return m_fileName; }
    const SWCharString& getReason() const { return m_reason; }
    const SWCharString& getExtra() const { return m_extra; }

    // ENOENT (2) gives fileNotFound, ENOMEM (12) outOfMemory, EACCES (13) accessDenied,
    // anything else otherError.
    static DetailCodes MapErrno(int errorNumber);

    // The code's template with %1 the file name and %2 the reason. Codes 4, 5 and any
    // unknown code give "Unknown error (exception).  ".
    SWCharString toString() const override;
    // toString(), ":", then the extra text.
    SWCharString summary() const override;

private:
    ErrorCodes m_errorCode;
    SWCharString m_fileName;
    SWCharString m_reason;
    SWCharString m_extra;
    DetailCodes m_detailCode;
    int32_t m_nErrno;
};

// One file opened through the C run-time's descriptor calls. Every failure throws
// SFileException. Not copyable.
class VARDO_API SFile {
public:
    // ---- access flags (open) -----------------------------------------------------------
    static const int readOnly = 0x0;
    static const int writeOnly = 0x1;
    static const int readAndWrite = 0x2;
    static const int append = 0x8;
    static const int create = 0x100;
    static const int truncate = 0x200;
    static const int exclusive = 0x400;
    static const int temporary = 0x40;
    static const int noInherit = 0x80;
    static const int sequential = 0x20;
    static const int random = 0x10;
    // ---- permissions (mode of a file that open creates) --------------------------------
    static const int ownerRWXMask = 0x1C0;
    static const int ownerRMask = 0x100;
    static const int ownerWMask = 0x80;
    static const int ownerXMask = 0x40;
    // The group and others masks are zero by design: the library's permission model
    // knows only the owner.
    static const int groupRWXMask = 0;
    static const int groupRMask = 0;
    static const int groupWMask = 0;
    static const int groupXMask = 0;
    static const int othersRWXMask = 0;
    static const int othersRMask = 0;
    static const int othersWMask = 0;
    static const int othersXMask = 0;
    static const int readMask = 0x100;
    static const int writeMask = 0x1C0;      // equal to readWriteMask by design
    static const int readWriteMask = 0x1C0;
    // A sentinel, not a mode: the file-system operations replace it by the platform's
    // default mode. Passed to open it is not translated.
    static const int defaultPermissions = 0x60000000;
    // ---- share modes (Windows only; no effect on Linux) --------------------------------
    static const int denyReadAndWrite = 0x10;
    static const int denyWrite = 0x20;
    static const int denyRead = 0x30;
    static const int denyNothing = 0x40;
    // ---- seek origins ------------------------------------------------------------------
    static const int seekBegin = 0;
    static const int seekSet = 0;
    static const int seekCurrent = 1;
    static const int seekEnd = 2;
    // ---- region-lock modes (kept for callers; no operation of this class uses them) ----
    static const int lockUnlock = 0;
    static const int lockRetryLock = 1;
    static const int lockNoRetryLock = 2;

    // Empty path, not opened.
    SFile();
    // Stores the path; does not open.
    explicit SFile(const SWCharString& path);
    // Stores the path and opens it at once: open(accessFlags, permissions, shareMode).
    SFile(const SWCharString& path, int accessFlags, int permissions, int shareMode);
    // Closes the file if it is open. Never throws.
    virtual ~SFile();

    // Opens the stored path. accessFlags are the flags above (the binary flag 0x8000 is
    // always added); permissions is the mode a created file gets; shareMode one of the
    // deny constants. Throws openError: detail otherError with "No file access mode
    // provided." when accessFlags is -1, else from the system's error number.
    // A failed open leaves the descriptor field at -1. Opening an object that is already
    // open does not close the earlier descriptor (it stays open until the process ends).
    void open(int accessFlags, int permissions, int shareMode);
    // Stores path, then opens as above.
    void open(const SWCharString& path, int accessFlags, int permissions, int shareMode);
    // Closes the descriptor if open; the descriptor number and flags stay readable.
    void close();

    // Reads up to count bytes; returns the bytes read, 0 at end of file. Throws readError
    // (fileNotOpened when not open).
    int read(void* buffer, unsigned int count);
    // Writes count bytes; returns the bytes written. Throws writeError.
    int write(const void* buffer, unsigned int count);

    // Moves the position (origin first, then offset) and returns the new position.
    // seek works with 32-bit positions and fails (EINVAL, position unchanged) when the
    // result does not fit. Both throw seekError.
    int32_t seek(int origin, int32_t offset) const;
    int64_t seekEx(int origin, int64_t offset) const;
    // seek(seekBegin, 0) and seek(seekEnd, 0); return the new position.
    int32_t seekToBegin() const;
    int32_t seekToEnd() const;
    // The current position (a seek by 0 from seekCurrent).
    uint32_t getPosition() const;
    int64_t getPositionEx() const;
    // The file's size, measured by seeking to its end; the position is restored.
    uint32_t size() const;
    int64_t sizeEx() const;
    // True when the position is at or beyond the end of the file. Throws seekError.
    bool eof();
    // Commits written data to disk; does nothing when the file was opened read-only.
    // Throws flushError, also for an object that was never opened or is closed.
    void flush();

    // The rest of the file from the current position, decoded from UTF-8 (invalid bytes
    // become "?"; the text stops at a zero byte). Empty at end of file. Throws readError.
    SWCharString readString();
    // The next line from the current position: the bytes up to a line feed (which is
    // consumed, not returned), carriage returns dropped wherever they stand, decoded as
    // readString does. At end of file the result is empty; a last line without a line
    // feed is returned whole. Leaves the position just after the line. Throws readError.
    SWCharString readLine();
    // Writes the text as UTF-8 (no line end added); returns the bytes written, 0 when
    // nothing was written. Throws writeError.
    int writeString(const SWCharString& text);

    int getFd() const { return m_fd; }
    bool isOpened() const { return m_bIsOpened; }
    SWCharString getFilename() const { return m_filePath; }
    void setFilePath(const SWCharString& path) { m_filePath = path; }

protected:
    // readLine by its reference rule: one byte per read, the end-of-file test before and
    // after every byte. readLine gives the same results (lines, position, errors) from
    // block reads on regular files and uses this rule for every other descriptor; it is
    // reachable here so that derived classes and tests can compare the two.
    SWCharString readLineByteByByte();

private:
    SFile(const SFile&) = delete;
    SFile& operator=(const SFile&) = delete;

    [[noreturn]] void throwFromErrno(SFileException::ErrorCodes code, int errorNumber) const;
    [[noreturn]] void throwNotOpened(SFileException::ErrorCodes code) const;
    [[noreturn]] void throwNoMemory(SFileException::ErrorCodes code) const;
    bool readLineBlocks(int64_t fileSize, SWCharString& line);

    SWCharString m_filePath;
    int32_t m_nAccessFlags;
    int32_t m_fd;
    bool m_bIsOpened;
};

} // namespace Vardo400

#endif
