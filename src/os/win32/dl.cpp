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

SWCharString dlOwnDirectory()
{
    HMODULE self = NULL;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&dlOwnDirectory), &self))
        return SWCharString();
    std::vector<wchar_t> path(MAX_PATH);
    for (;;) {
        DWORD n = GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size()));
        if (n == 0)
            return SWCharString();
        if (n < path.size())
            break;
        if (path.size() >= 32768)
            return SWCharString();
        path.resize(path.size() * 2);
    }
    size_t cut = 0;
    for (size_t i = 0; path[i]; ++i)
        if (path[i] == L'\\' || path[i] == L'/')
            cut = i + 1;
    if (cut == 0)
        return SWCharString();
    path[cut] = 0;
    return SWCharString(reinterpret_cast<const unsigned short*>(path.data()));
}

} // namespace os
} // namespace Vardo400
