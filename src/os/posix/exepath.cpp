// The running executable, from /proc/self/exe.
#include "os/os_exepath.h"

#include <string>

#include <unistd.h>

namespace Vardo400 {
namespace os {

SWCharString executablePath()
{
    std::string buf(4096, '\0');
    ssize_t n = ::readlink("/proc/self/exe", &buf[0], buf.size() - 1);
    SWCharString path;
    if (n <= 0)
        return path;
    buf.resize(static_cast<size_t>(n));
    if (!path.fromUTF8(reinterpret_cast<const unsigned char*>(buf.data()),
                       static_cast<unsigned int>(buf.size())))
        path.empty();
    return path;
}

} // namespace os
} // namespace Vardo400
