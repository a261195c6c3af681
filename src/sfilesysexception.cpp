// SFileSysException: the code, the files, the system's reason and its class, and the
// message built from them.
#include "vardo/sfilesys.h"

#include "vardo/sresstring.h"

#include "dirwalk.h"
#include "os/os_error.h"

namespace Vardo400 {

namespace {

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

typedef SFileSysException X;

X::ErrorReasons reasonOf(os::ErrorClass c)
{
    switch (c) {
    case os::ErrorClass::outOfMemory: return X::reasonOutOfMemory;
    case os::ErrorClass::notFound: return X::reasonNotFound;
    case os::ErrorClass::invalidArgument: return X::reasonInvalidArgument;
    case os::ErrorClass::accessDenied: return X::reasonAccessDenied;
    case os::ErrorClass::diskFull: return X::reasonDiskFull;
    case os::ErrorClass::alreadyExists: return X::reasonAlreadyExists;
    default: return X::reasonOther;
    }
}

} // namespace

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
    return reasonOf(os::classifyCrt(errorNumber));
}

SFileSysException::ErrorReasons SFileSysException::mapError(uint32_t win32Error)
{
    return reasonOf(os::classifyWin32(win32Error));
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
    s += detail::asciiText(", ");
    s += m_operation;
    return s;
}

} // namespace Vardo400
