// SEventLog: the portable part of the event log.
#include "vardo/seventlog.h"

namespace Vardo400 {

const char* const SEventLog::defaultFileName = "event.log";

SEventLog::SEventLog(const SWCharString&, int64_t maxFileSize)
    : m_pSource(0), m_nMaxFileSize(maxFileSize), m_nCategoryCount(0), m_nTypesSupported(0) {}
SEventLog::~SEventLog() {}
bool SEventLog::openSource(const SWCharString&, const SWCharString&, long, long) { return false; }
bool SEventLog::closeSource() { return false; }
bool SEventLog::reportEvent(unsigned short, const unsigned short**, unsigned short, unsigned short,
                            uint32_t, const void*, uint32_t, const void*) { return false; }
bool SEventLog::reportEvent(unsigned short, const SWCharString&, unsigned short, const void*,
                            uint32_t, const void*) { return false; }
bool SEventLog::writeStrToLog(const SWCharString&) { return false; }
bool SEventLog::openLogFile(bool) { return false; }
void SEventLog::closeLogFile() {}
bool SEventLog::useDiskFile() const { return false; }
bool SEventLog::writeToFile(const SWCharString&) { return false; }
SWCharString SEventLog::getLogFileName() const { return SWCharString(); }
void SEventLog::getLogFileNameComponents(SWCharString&, SWCharString&, SWCharString&) const {}
void SEventLog::setLogFileNameComponents(const SWCharString&, const SWCharString&, const SWCharString&) {}
void SEventLog::splitLogFileName(const SWCharString&) {}
SWCharString SEventLog::formatString(const SWCharString&, const SWCharString&, const SWCharString&) { return SWCharString(); }
SWCharString SEventLog::getRotatedFileName(int) const { return SWCharString(); }
bool SEventLog::rotate() { return false; }

} // namespace Vardo400
