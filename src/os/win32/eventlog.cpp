// The system's event log on Windows: a registered event source and ReportEventW.
#include "os/os_eventlog.h"

#include <windows.h>

namespace Vardo400 {
namespace os {

bool eventLogIsNT() { return true; }

void* eventSourceOpen(const SWCharString& serverName, const SWCharString& sourceName)
{
    const wchar_t* server =
        serverName.isEmpty() ? NULL : reinterpret_cast<const wchar_t*>(serverName.data());
    HANDLE h = RegisterEventSourceW(server, reinterpret_cast<const wchar_t*>(sourceName.data()));
    return h;
}

void eventSourceClose(void* source)
{
    if (source)
        DeregisterEventSource(static_cast<HANDLE>(source));
}

bool eventSourceReport(void* source, unsigned short type, unsigned short category,
                       uint32_t eventId, const void* userSid, const SWCharString& message,
                       uint32_t dataSize, const void* data)
{
    if (!source)
        return false;
    const wchar_t* strings[1] = {reinterpret_cast<const wchar_t*>(message.data())};
    return ReportEventW(static_cast<HANDLE>(source), type, category, eventId,
                        const_cast<PSID>(userSid), 1, dataSize, strings,
                        const_cast<void*>(data)) != FALSE;
}

} // namespace os

namespace Testing {

void EventLogSetSyslogSocket(const char*) {}

} // namespace Testing

} // namespace Vardo400
