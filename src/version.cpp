// The library's name, version and build platform.
#include "vardo/version.h"

#include "os/os_version.h"

#define VARDO_STR2(x) #x
#define VARDO_STR(x) VARDO_STR2(x)

namespace Vardo400 {

const char* LibraryName() { return "vardow-4-0"; }

const char* LibraryVersion()
{
    return VARDO_STR(VARDO_VERSION_MAJOR) "." VARDO_STR(VARDO_VERSION_MINOR) "." VARDO_STR(VARDO_VERSION_PATCH);
}

const char* LibraryPlatform() { return os::buildPlatform(); }

} // namespace Vardo400
