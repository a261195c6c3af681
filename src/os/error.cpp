// OsError's classification, written once for both platforms: the C run-time's numbers by
// their <cerrno> names, the Win32 codes by their winerror.h names (spelled out here, since
// Linux has no such header; the values are fixed by the Win32 interface).
#include "os/os_error.h"

#include <cerrno>
#include <cstring>

namespace Vardo400 {
namespace os {

namespace {

const uint32_t ERROR_FILE_NOT_FOUND_ = 2;
const uint32_t ERROR_PATH_NOT_FOUND_ = 3;
const uint32_t ERROR_ACCESS_DENIED_ = 5;
const uint32_t ERROR_INVALID_DRIVE_ = 15;
const uint32_t ERROR_NO_MORE_FILES_ = 18;
const uint32_t ERROR_SHARING_VIOLATION_ = 32;
const uint32_t ERROR_BAD_NETPATH_ = 53;
const uint32_t ERROR_BAD_NET_NAME_ = 67;
const uint32_t ERROR_DISK_FULL_ = 112;
const uint32_t ERROR_BAD_PATHNAME_ = 161;
const uint32_t ERROR_FILENAME_EXCED_RANGE_ = 206;
const uint32_t ERROR_NOT_ENOUGH_QUOTA_ = 1816;

} // namespace

bool failFromErrno(OsError& err)
{
    err.setCrt(errno);
    return false;
}

ErrorClass classifyCrt(int e)
{
    switch (e) {
    case ENOMEM:
        return ErrorClass::outOfMemory;
    case ENOENT:
        return ErrorClass::notFound;
    case EINVAL:
    case ENAMETOOLONG:
        return ErrorClass::invalidArgument;
    case EPERM:
    case EACCES:
        return ErrorClass::accessDenied;
    case ENOSPC:
        return ErrorClass::diskFull;
    case EEXIST:
        return ErrorClass::alreadyExists;
    default:
        return ErrorClass::other;
    }
}

ErrorClass classifyWin32(uint32_t code)
{
    switch (code) {
    case ERROR_NOT_ENOUGH_QUOTA_:
        return ErrorClass::outOfMemory;
    case ERROR_FILE_NOT_FOUND_:
    case ERROR_PATH_NOT_FOUND_:
    case ERROR_INVALID_DRIVE_:
    case ERROR_NO_MORE_FILES_:
    case ERROR_BAD_NETPATH_:
    case ERROR_BAD_NET_NAME_:
    case ERROR_BAD_PATHNAME_:
    case ERROR_FILENAME_EXCED_RANGE_:
        return ErrorClass::notFound;
    case ERROR_ACCESS_DENIED_:
    case ERROR_SHARING_VIOLATION_:
        return ErrorClass::accessDenied;
    case ERROR_DISK_FULL_:
        return ErrorClass::diskFull;
    default:
        return ErrorClass::other;
    }
}

ErrorClass classify(const OsError& err)
{
    switch (err.kind) {
    case OsError::crt:
        return classifyCrt(err.number);
    case OsError::win32:
        return classifyWin32(static_cast<uint32_t>(err.number));
    default:
        return ErrorClass::other;
    }
}

SWCharString errorText(const OsError& err)
{
    switch (err.kind) {
    case OsError::none:
        return SWCharString();
    case OsError::loader:
        return err.text;
    case OsError::crt: {
        char buffer[1024];
        buffer[0] = 0;
        crtMessage(err.number, buffer, sizeof buffer);
        // In the process code page; plain 7-bit text if that cannot be read.
        SWCharString r;
        if (!r.fromMBCS(buffer))
            r.concatFromAscii(buffer, static_cast<unsigned int>(std::strlen(buffer)));
        return r;
    }
    default:
        return systemMessage(err);
    }
}

} // namespace os
} // namespace Vardo400
