// Dynamic libraries on Windows: LoadLibraryW, without the system's error dialogs.
#include "os/os_dl.h"

#include <windows.h>

#include <vector>

namespace Vardo400 {
namespace os {

const char* dlExtension() { return ".dll"; }
const char* dlPrefix() { return ""; }

void* dlOpen(const SWCharString& file, OsError& err)
{
    // LoadLibraryW wants backslashes in a path.
    std::vector<wchar_t> path(file.data(), file.data() + file.getLength() + 1);
    for (wchar_t& c : path)
        if (c == L'/')
            c = L'\\';
    DWORD oldMode = 0;
    bool modeSet = SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &oldMode) != 0;
    HMODULE h = LoadLibraryW(path.data());
    const DWORD code = h ? 0 : GetLastError();
    if (modeSet)
        SetThreadErrorMode(oldMode, NULL);
    if (!h)
        err.setWin32(static_cast<int>(code));
    return reinterpret_cast<void*>(h);
}

void* dlSymbol(void* handle, const char* name)
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}

void dlClose(void* handle)
{
    FreeLibrary(static_cast<HMODULE>(handle));
}

} // namespace os
} // namespace Vardo400
