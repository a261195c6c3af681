// Random bytes on Linux: getrandom(2) from the kernel's pool.
#include "os/os_random.h"

#include <sys/random.h>

#include <cerrno>

namespace Vardo400 {
namespace os {

bool randomBytes(unsigned char* buffer, size_t n)
{
    while (n > 0) {
        // At most 256 bytes at a time never return short once the pool is ready;
        // larger requests may, and any may be interrupted by a signal.
        size_t ask = n < 256 ? n : 256;
        ssize_t got = ::getrandom(buffer, ask, 0);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        buffer += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

} // namespace os
} // namespace Vardo400
