// Dynamic libraries: load, resolve, free.
#ifndef VARDO_OS_DL_H
#define VARDO_OS_DL_H

#include "os/os_error.h"
#include "vardo/sstring.h"

namespace Vardo400 {
namespace os {

// The platform's library file extension (".dll", ".so") and the conventional file
// name prefix ("" on Windows, "lib" on Linux), 7-bit.
const char* dlExtension();
const char* dlPrefix();
// Loads the library file; null on failure, described in err (Windows: the Win32 code;
// Linux: the loader's text).
void* dlOpen(const SWCharString& file, OsError& err);
// The named symbol's address, or null.
void* dlSymbol(void* handle, const char* name);
void dlClose(void* handle);
// The folder of the file this library was loaded from, with a trailing separator
// ("/opt/lib/", "C:\\app\\"); empty when it cannot be told. Companion libraries that
// lie beside the library are loaded from here, whatever the search path says.
SWCharString dlOwnDirectory();

} // namespace os
} // namespace Vardo400

#endif
