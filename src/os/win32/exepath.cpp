// The running executable, from the module name of the process.
#include "os/os_exepath.h"

#include <vector>

#include <windows.h>

namespace Vardo400 {
namespace os {

SWCharString executablePath()
{
    std::vector<wchar_t> buf(MAX_PATH);
    for (int i = 0; i < 6; ++i) {
        DWORD n = ::GetModuleFileNameW(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
        if (n == 0)
            return SWCharString();
        if (n < buf.size()) {
            buf[n] = 0;
            return SWCharString(reinterpret_cast<const unsigned short*>(buf.data()));
        }
        buf.resize(buf.size() * 4);
    }
    return SWCharString();
}

} // namespace os
} // namespace Vardo400
