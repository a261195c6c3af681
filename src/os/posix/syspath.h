// Paths handed to the POSIX file calls: one conversion for every caller that opens files
// by name, so the same name always reaches the same file.
#ifndef VARDO_OS_POSIX_SYSPATH_H
#define VARDO_OS_POSIX_SYSPATH_H

#include "vardo/sstring.h"

#include <string>

namespace Vardo400 {
namespace os {

// The path as UTF-8 bytes; false (errno EINVAL) when it is empty or cannot be converted.
bool systemPath(const SWCharString& path, std::string& out);

} // namespace os
} // namespace Vardo400

#endif
