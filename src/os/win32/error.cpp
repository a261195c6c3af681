// Message texts of OsError on Windows.
#include "os/os_error.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

namespace Vardo400 {
namespace os {

void crtMessage(int errorNumber, char* buffer, size_t size)
{
    // The run-time keeps strerror's text per thread.
    const char* text = std::strerror(errorNumber);
    std::strncpy(buffer, text ? text : "Unknown error", size - 1);
    buffer[size - 1] = 0;
}

SWCharString systemMessage(const OsError& err)
{
    const DWORD code = err.kind == OsError::missingEntryPoint ? ERROR_PROC_NOT_FOUND
                                                              : static_cast<DWORD>(err.number);
    wchar_t buf[1024];
    DWORD n = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             code, 0, buf, 1024, nullptr);
    while (n > 0 && (buf[n - 1] == L'\r' || buf[n - 1] == L'\n' || buf[n - 1] == L' '))
        --n;
    SWCharString r;
    if (n == 0) {
        char text[48];
        const int len = std::snprintf(text, sizeof text, "Unknown error %lu", static_cast<unsigned long>(code));
        r.concatFromAscii(text, static_cast<unsigned int>(len));
        return r;
    }
    r.concat(reinterpret_cast<const unsigned short*>(buf), static_cast<unsigned int>(n));
    return r;
}

} // namespace os
} // namespace Vardo400
