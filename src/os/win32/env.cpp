// Environment variables on Windows: UTF-16 in the process environment block. Changes
// go through the C run-time, which keeps its own copy and the block in step.
#include "os/os_env.h"

#include <windows.h>
#include <stdlib.h>
#include <vector>

namespace Vardo400 {
namespace os {

static const wchar_t* w(const SWCharString& s) { return reinterpret_cast<const wchar_t*>(s.data()); }

bool envGet(const SWCharString& name, SWCharString& value)
{
    std::vector<wchar_t> buf(256);
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        DWORD n = GetEnvironmentVariableW(w(name), buf.data(), static_cast<DWORD>(buf.size()));
        if (n == 0) {
            if (GetLastError() == ERROR_ENVVAR_NOT_FOUND)
                return false;
            value.empty();
            return true;
        }
        if (n < buf.size()) {
            value = reinterpret_cast<const unsigned short*>(buf.data());
            return true;
        }
        buf.resize(n + 1);  // n is the size needed, terminator included
    }
}

bool envSet(const SWCharString& name, const SWCharString* value)
{
    // "NAME=VALUE" sets, "NAME=" removes.
    SWCharString assignment(name);
    assignment += SWCharString(static_cast<unsigned short>('='));
    if (value)
        assignment += *value;
    if (_wputenv(w(assignment)) != 0)
        return false;
    // The run-time normally updates the block itself; make sure of it.
    SetEnvironmentVariableW(w(name), value && !value->isEmpty() ? w(*value) : NULL);
    return true;
}

} // namespace os
} // namespace Vardo400
