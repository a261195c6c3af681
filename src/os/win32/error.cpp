// Message texts of OsError on Windows.
#include "os/os_error.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

namespace Vardo400 {
namespace os {

namespace {

SWCharString fromWide(const wchar_t* s, size_t n)
{
    SWCharString r;
    r.concat(reinterpret_cast<const unsigned short*>(s), static_cast<unsigned int>(n));
    return r;
}

SWCharString unknown(unsigned long code)
{
    char text[48];
    std::snprintf(text, sizeof text, "Unknown error %lu", code);
    SWCharString r;
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
        // The run-time keeps strerror's text per thread.
        const char* text = std::strerror(err.number);
        SWCharString r;
        if (!text || !r.fromMBCS(text))
            return unknown(static_cast<unsigned long>(err.number));
        return r;
    }
    default:
        break;
    }
    const DWORD code = err.kind == OsError::missingEntryPoint ? ERROR_PROC_NOT_FOUND
                                                              : static_cast<DWORD>(err.number);
    wchar_t buf[1024];
    DWORD n = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             code, 0, buf, 1024, nullptr);
    while (n > 0 && (buf[n - 1] == L'\r' || buf[n - 1] == L'\n' || buf[n - 1] == L' '))
        --n;
    if (n == 0)
        return unknown(code);
    return fromWide(buf, n);
}

} // namespace os
} // namespace Vardo400
