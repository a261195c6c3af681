// The build platform as a text.
#include "os/os_version.h"

namespace Vardo400 {
namespace os {

const char* buildPlatform()
{
#if defined(__x86_64__) || defined(_M_X64)
    return "Windows x86_64";
#elif defined(__i386__) || defined(_M_IX86)
    return "Windows x86";
#elif defined(__aarch64__) || defined(_M_ARM64)
    return "Windows arm64";
#else
    return "Windows";
#endif
}

} // namespace os
} // namespace Vardo400
