// SFileException: the code, the file, the reason, and the message built from them.
#include "vardo/sfile.h"

#include "vardo/sresstring.h"

#include <cerrno>

namespace Vardo400 {

namespace {

const char kOpenTemplate[] = "Failed to open the file %1.  Reason: %2";
const char kReadTemplate[] = "Fail to read file %1.  Reason given: %2";
const char kWriteTemplate[] = "Fail to write file %1.  Reason given: %2";
const char kFlushTemplate[] =
    "Fail to flush file %1.  Reason given: %2.  File may not be completely written to disk.";
const char kLockTemplate[] = "Fail to lock bytes of file %1.  Reason given: %2";
const char kUnknownText[] = "Unknown error (exception).  ";

} // namespace

SFileException::SFileException()
    : m_errorCode(openError), m_detailCode(otherError), m_nErrno(0)
{
}

SFileException::SFileException(ErrorCodes code, int errorNumber, const SWCharString& fileName,
                               DetailCodes detail, const SWCharString& reason,
                               const SWCharString& extra)
    : m_errorCode(code), m_fileName(fileName), m_reason(reason), m_extra(extra),
      m_detailCode(detail), m_nErrno(errorNumber)
{
}

SFileException::SFileException(const SFileException& e)
    : SException(), m_errorCode(e.m_errorCode), m_fileName(e.m_fileName),
      m_reason(e.m_reason), m_extra(e.m_extra), m_detailCode(e.m_detailCode),
      m_nErrno(e.m_nErrno)
{
}

SFileException& SFileException::operator=(const SFileException& e)
{
    m_errorCode = e.m_errorCode;
    m_fileName = e.m_fileName;
    m_reason = e.m_reason;
    m_extra = e.m_extra;
    m_detailCode = e.m_detailCode;
    m_nErrno = e.m_nErrno;
    return *this;
}

SFileException::~SFileException() {}

SFileException::DetailCodes SFileException::MapErrno(int errorNumber)
{
    switch (errorNumber) {
    case ENOENT: return fileNotFound;
    case ENOMEM: return outOfMemory;
    case EACCES: return accessDenied;
    default: return otherError;
    }
}

SWCharString SFileException::toString() const
{
    const char* tmpl;
    switch (m_errorCode) {
    case openError: tmpl = kOpenTemplate; break;
    case readError: tmpl = kReadTemplate; break;
    case writeError: tmpl = kWriteTemplate; break;
    case flushError: tmpl = kFlushTemplate; break;
    case lockError:
        // The lock template is chosen and then replaced by the unknown-error text: the
        // message callers have always seen for this code.
        tmpl = kLockTemplate;
        tmpl = kUnknownText;
        break;
    default: tmpl = kUnknownText; break;
    }
    SResString message(tmpl, '%');
    message << m_fileName << m_reason;
    return message.format();
}

SWCharString SFileException::summary() const
{
    SWCharString s = toString();
    s.concatFromAscii(":", 1);
    s += m_extra;
    return s;
}

} // namespace Vardo400
