// The library's name, version and build platform.
#ifndef VARDO_VERSION_H
#define VARDO_VERSION_H

#include "vardodefs.h"

#define VARDO_VERSION_MAJOR 4
#define VARDO_VERSION_MINOR 0
#define VARDO_VERSION_PATCH 0

namespace Vardo400 {

// Static 7-bit texts of the library as loaded (which may be newer than the headers a
// caller was compiled with). Thread-safe; never null.
// "vardow-4-0".
VARDO_API const char* LibraryName();
// "4.0.0": major, minor, patch.
VARDO_API const char* LibraryVersion();
// The platform the library was built for: the system ("Windows" or "Linux") and the
// processor ("x86", "x86_64", ...), separated by a space, e.g. "Windows x86".
VARDO_API const char* LibraryPlatform();

} // namespace Vardo400

#endif
