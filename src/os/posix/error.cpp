// Message texts of OsError on Linux.
#include "os/os_error.h"

#include <cstdio>
#include <cstring>

namespace Vardo400 {
namespace os {

namespace {

// strerror_r comes in two shapes; both end up in buffer.
inline void takeText(int result, char* buffer, size_t size, int e)
{
    if (result != 0)
        std::snprintf(buffer, size, "Unknown error %d", e);
}
inline void takeText(const char* result, char* buffer, size_t size, int)
{
    if (result != buffer) {
        std::strncpy(buffer, result ? result : "", size - 1);
        buffer[size - 1] = 0;
    }
}

} // namespace

void crtMessage(int errorNumber, char* buffer, size_t size)
{
    takeText(::strerror_r(errorNumber, buffer, size), buffer, size, errorNumber);
}

SWCharString systemMessage(const OsError& err)
{
    // Win32 codes never arise here; name the number rather than guess a text.
    char buffer[48];
    const int n = std::snprintf(buffer, sizeof buffer, "Unknown error %d", err.number);
    SWCharString r;
    r.concatFromAscii(buffer, static_cast<unsigned int>(n));
    return r;
}

} // namespace os
} // namespace Vardo400
