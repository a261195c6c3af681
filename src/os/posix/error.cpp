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

SWCharString widen(const char* text)
{
    SWCharString r;
    if (!r.fromMBCS(text))
        r.concatFromAscii(text, static_cast<unsigned int>(std::strlen(text)));
    return r;
}

} // namespace

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
        takeText(::strerror_r(err.number, buffer, sizeof buffer), buffer, sizeof buffer,
                 err.number);
        return widen(buffer);
    }
    default: {
        // Win32 numbers never arise here; name them rather than guess a text.
        char buffer[48];
        std::snprintf(buffer, sizeof buffer, "Unknown error %d", err.number);
        return widen(buffer);
    }
    }
}

} // namespace os
} // namespace Vardo400
