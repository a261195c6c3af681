// SEventLog: message building, the disk variant and its rotation; the system's event
// log itself is in the platform layer.
#include "vardo/seventlog.h"
#include "vardo/sdatetime.h"
#include "vardo/sfilesys.h"
#include "vardo/sresstring.h"
#include "vardo/strace.h"

#include "os/os_eventlog.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace Vardo400 {

const char* const SEventLog::defaultFileName = "event.log";

namespace {

SWCharString ascii(const char* s)
{
    SWCharString out;
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

const char kTypeAssertion[] =
    "(wType == EVENTLOG_ERROR_TYPE) || (wType == EVENTLOG_WARNING_TYPE) || "
    "(wType == EVENTLOG_INFORMATION_TYPE) || (wType == EVENTLOG_DEBUG_TYPE) || "
    "(wType == EVENTLOG_AUDIT_SUCCESS) || (wType == EVENTLOG_AUDIT_FAILURE)";

bool isKnownType(unsigned short type)
{
    return type == SEventLog::errorType || type == SEventLog::warningType ||
           type == SEventLog::informationType || type == SEventLog::debugType ||
           type == SEventLog::auditSuccess || type == SEventLog::auditFailure;
}

SWCharString typeName(unsigned short type)
{
    switch (type) {
    case SEventLog::errorType: return ascii("Error");
    case SEventLog::warningType: return ascii("Warning");
    case SEventLog::informationType: return ascii("Information");
    case SEventLog::debugType: return ascii("Debug");
    case SEventLog::auditSuccess: return ascii("AuditSuccess");
    case SEventLog::auditFailure: return ascii("AuditFailure");
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, "Type %u", static_cast<unsigned>(type));
    return ascii(buf);
}

// The message of an event: the id's template (the strings joined by one space) filled
// with the non-null strings in order; "Event E" when there are none.
SWCharString buildMessage(uint32_t eventId, const unsigned short** strings,
                          unsigned short numStrings)
{
    std::vector<const unsigned short*> present;
    if (strings)
        for (unsigned int i = 0; i < numStrings; ++i)
            if (strings[i])
                present.push_back(strings[i]);
    if (present.empty()) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "Event %lu", static_cast<unsigned long>(eventId));
        return ascii(buf);
    }
    // Placeholders go up to %99; any further strings follow the same way.
    const size_t placeholders = present.size() < 99 ? present.size() : 99;
    std::string tmpl;
    for (size_t i = 1; i <= placeholders; ++i) {
        if (i > 1)
            tmpl += ' ';
        tmpl += '%';
        tmpl += std::to_string(i);
    }
    SResString res(tmpl.c_str(), '%');
    for (size_t i = 0; i < placeholders; ++i)
        res.append(present[i]);
    SWCharString message = res.format();
    for (size_t i = placeholders; i < present.size(); ++i) {
        message.concatFromAscii(" ", 1);
        message += present[i];
    }
    return message;
}

} // namespace

SEventLog::SEventLog(const SWCharString& fileName, int64_t maxFileSize)
    : m_pSource(0), m_nMaxFileSize(maxFileSize), m_nCategoryCount(0), m_nTypesSupported(0)
{
    if (fileName.isEmpty() && !os::eventLogIsNT())
        splitLogFileName(ascii(defaultFileName));
    else
        splitLogFileName(fileName);
}

SEventLog::~SEventLog()
{
    closeSource();
    closeLogFile();
}

bool SEventLog::openSource(const SWCharString& serverName, const SWCharString& sourceName,
                           long categoryCount, long typesSupported)
{
    m_nCategoryCount = categoryCount;
    m_nTypesSupported = typesSupported;
    if (sourceName.isEmpty())
        return openLogFile(false);
    closeSource();
    m_pSource = os::eventSourceOpen(serverName, sourceName);
    return m_pSource != 0;
}

bool SEventLog::closeSource()
{
    bool wasOpen = m_pSource != 0 || m_file.isOpened();
    if (m_pSource) {
        os::eventSourceClose(m_pSource);
        m_pSource = 0;
    }
    closeLogFile();
    return wasOpen;
}

bool SEventLog::reportEvent(unsigned short type, const unsigned short** strings,
                            unsigned short category, unsigned short numStrings, uint32_t eventId,
                            const void* userSid, uint32_t dataSize, const void* data)
{
    if (!isKnownType(type))
        VARDO_ASSERT_TEXT(kTypeAssertion);
    SWCharString message = buildMessage(eventId, strings, numStrings);
    if (m_pSource)
        return os::eventSourceReport(m_pSource, type, category, eventId, userSid, message,
                                     data ? dataSize : 0, data);
    // The disk variant: a line that cannot be written is dropped.
    char buf[64];
    std::snprintf(buf, sizeof buf, "Category %u, Event %lu", static_cast<unsigned>(category),
                  static_cast<unsigned long>(eventId));
    if (!m_file.isOpened() && useDiskFile())
        openLogFile(false);
    writeToFile(formatString(typeName(type), ascii(buf), message));
    return true;
}

bool SEventLog::reportEvent(unsigned short type, const SWCharString& string,
                            unsigned short category, const void* userSid, uint32_t dataSize,
                            const void* data)
{
    const unsigned short* strings[1] = {string.data()};
    return reportEvent(type, strings, category, 1, 0, userSid, dataSize, data);
}

bool SEventLog::writeStrToLog(const SWCharString& text)
{
    return reportEvent(informationType, text, 0, 0, 0, 0);
}

bool SEventLog::openLogFile(bool reset)
{
    closeLogFile();
    SWCharString name = getLogFileName();
    if (name.isEmpty())
        return false;
    int flags = SFile::writeOnly | SFile::append | SFile::create | SFile::noInherit;
    if (reset)
        flags |= SFile::truncate;
    try {
        m_file.open(name, flags, SFile::ownerRMask | SFile::ownerWMask, SFile::denyNothing);
    } catch (const SFileException&) {
        return false;
    }
    return true;
}

void SEventLog::closeLogFile()
{
    if (m_file.isOpened()) {
        try {
            m_file.close();
        } catch (const SFileException&) {
        }
    }
}

bool SEventLog::useDiskFile() const
{
    return m_pSource == 0 && !getLogFileName().isEmpty();
}

bool SEventLog::writeToFile(const SWCharString& text)
{
    if (!m_file.isOpened())
        return false;
    unsigned int bytes = text.getNBytesForUTF8();
    if (bytes == 0xFFFFFFFFu)
        return false;
    try {
        if (m_nMaxFileSize > 0) {
            int64_t size = m_file.sizeEx();
            if (size > 0 && size + static_cast<int64_t>(bytes) > m_nMaxFileSize)
                rotate();
        }
        if (!m_file.isOpened())
            return false;
        return m_file.writeString(text) == static_cast<int>(bytes);
    } catch (const SFileException&) {
        return false;
    }
}

SWCharString SEventLog::getRotatedFileName(int n) const
{
    SWCharString name = m_fileName;
    char buf[16];
    std::snprintf(buf, sizeof buf, "_%d", n);
    name += ascii(buf);
    return MakePath(0, m_driveAndDir.data(), name.data(), m_fileExt.data());
}

// Moves the numbered copies up by one as far as the first free number (the copy at
// maxLogFiles is overwritten), the file itself to number 1, and starts it anew. When the
// file cannot be moved, it stays and grows: no event is lost.
bool SEventLog::rotate()
{
    const SWCharString current = getLogFileName();
    closeLogFile();
    bool moved = false;
    try {
        int top = 1;
        while (top < maxLogFiles && SFileSys::exists(getRotatedFileName(top)))
            ++top;
        for (int n = top; n > 1; --n)
            if (SFileSys::exists(getRotatedFileName(n - 1)))
                SFileSys::renameFile(getRotatedFileName(n - 1), getRotatedFileName(n));
        SFileSys::renameFile(current, getRotatedFileName(1));
        moved = true;
    } catch (const SFileSysException&) {
    }
    return openLogFile(moved) && moved;
}

SWCharString SEventLog::getLogFileName() const
{
    if (m_fileName.isEmpty() && m_fileExt.isEmpty())
        return SWCharString();
    return MakePath(0, m_driveAndDir.data(), m_fileName.data(), m_fileExt.data());
}

void SEventLog::getLogFileNameComponents(SWCharString& driveAndDir, SWCharString& name,
                                         SWCharString& ext) const
{
    driveAndDir = m_driveAndDir;
    name = m_fileName;
    ext = m_fileExt;
}

void SEventLog::setLogFileNameComponents(const SWCharString& driveAndDir,
                                         const SWCharString& name, const SWCharString& ext)
{
    m_driveAndDir = driveAndDir;
    m_fileName = name;
    m_fileExt = ext;
}

void SEventLog::splitLogFileName(const SWCharString& fileName)
{
    if (fileName.isEmpty()) {
        setLogFileNameComponents(SWCharString(), SWCharString(), SWCharString());
        return;
    }
    SWCharString driveAndDir, name, ext;
    SplitPathEx(fileName, driveAndDir, name, ext, SFileSys::getSeparator());
    setLogFileNameComponents(driveAndDir, name, ext);
}

SWCharString SEventLog::formatString(const SWCharString& first, const SWCharString& second,
                                     const SWCharString& third)
{
    SWCharString line = SDateTime::now().format(ascii("M'/'d'/'yy'   'H':'mm':'ss'    '"), true);
    line += first;
    line += ascii("    ");
    line += second;
    line += ascii("      ");
    line += third;
    line.concatFromAscii("\n", 1);
    return line;
}

} // namespace Vardo400
