// The one way the platform layer reports a failure: OsError, the system's number and the
// numbering it belongs to. Classification and message texts of those numbers live here
// too, written with the system's named constants, so that nothing above src/os/ ever
// compares a raw error number. Not installed.
#ifndef VARDO_OS_ERROR_H
#define VARDO_OS_ERROR_H

#include "vardo/sstring.h"

#include <cstddef>
#include <cstdint>

namespace Vardo400 {
namespace os {

struct OsError {
    enum Kind {
        none = 0,
        crt = 1,                // a C run-time error number (errno)
        win32 = 2,              // a Win32 error code (GetLastError)
        missingEntryPoint = 3,  // a Windows entry point looked up at run time is missing
        loader = 4              // the dynamic loader's own text (dlerror), no number
    };
    Kind kind = none;
    int number = 0;
    SWCharString text;          // the loader's message (kind loader only)

    void clear() { kind = none; number = 0; text.empty(); }
    void setCrt(int e) { kind = crt; number = e; }
    void setWin32(int e) { kind = win32; number = e; }
    bool isSet() const { return kind != none; }
    // The number as a C run-time error number: 0 for other kinds.
    int crtNumber() const { return kind == crt ? number : 0; }
};

// Records errno as the failure; returns false so that failing paths can end with it.
bool failFromErrno(OsError& err);

// Portable classes of a system error, those SFileSysException reports.
enum class ErrorClass {
    outOfMemory,
    notFound,
    invalidArgument,
    accessDenied,
    diskFull,
    alreadyExists,
    other
};

// C run-time numbers: ENOMEM; ENOENT; EINVAL and ENAMETOOLONG; EPERM and EACCES; ENOSPC;
// EEXIST; everything else other.
ErrorClass classifyCrt(int errorNumber);
// Win32 codes: ERROR_NOT_ENOUGH_QUOTA; ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
// ERROR_INVALID_DRIVE, ERROR_NO_MORE_FILES, ERROR_BAD_NETPATH, ERROR_BAD_NET_NAME,
// ERROR_BAD_PATHNAME, ERROR_FILENAME_EXCED_RANGE; ERROR_ACCESS_DENIED and
// ERROR_SHARING_VIOLATION; ERROR_DISK_FULL; everything else other.
ErrorClass classifyWin32(uint32_t code);
// The class of any failure (a missing entry point or a loader text: other).
ErrorClass classify(const OsError& err);

// The system's message text for the failure: the C run-time's text (in the process code
// page, widened) for an errno, the system message for a Win32 code, the loader's text.
// Empty for none.
SWCharString errorText(const OsError& err);

// The pieces of errorText each platform supplies: the C run-time's text for an error
// number (cut to size, terminated), and the text of a system code (Win32 kinds).
void crtMessage(int errorNumber, char* buffer, size_t size);
SWCharString systemMessage(const OsError& err);

} // namespace os
} // namespace Vardo400

#endif
