// Platform layer: the operating system's event log (Windows event log; syslog on
// Linux). Not installed.
#ifndef VARDO_OS_EVENTLOG_H
#define VARDO_OS_EVENTLOG_H

#include "vardo/sstring.h"
#include "vardo/vardodefs.h"

#include <cstdint>

namespace Vardo400 {
namespace os {

// True where the system has the Windows event log (which needs no disk file).
bool eventLogIsNT();

// Opens an event source: Windows registers sourceName on serverName (empty: this
// computer); Linux connects to the syslog socket and keeps sourceName as the identity
// of its lines. Null on failure.
void* eventSourceOpen(const SWCharString& serverName, const SWCharString& sourceName);
void eventSourceClose(void* source);

// Writes one event with exactly one string, message. type: the Windows event type
// (1 error, 2 warning, 4 information, 8 audit success, 16 audit failure, 256 debug; any
// other value passes unchanged on Windows and as information to syslog). Linux prefixes
// the message with "[category C, event E] " when either is non-zero and ignores userSid
// and data. True when the system accepted it.
bool eventSourceReport(void* source, unsigned short type, unsigned short category,
                       uint32_t eventId, const void* userSid, const SWCharString& message,
                       uint32_t dataSize, const void* data);

} // namespace os

// Internal hooks for the library's own tests; not for applications and not installed.
namespace Testing {
// Linux: the socket later event sources connect to instead of "/dev/log" (null or empty:
// back to "/dev/log"). No effect on Windows.
VARDO_API void EventLogSetSyslogSocket(const char* path);
} // namespace Testing

} // namespace Vardo400

#endif
