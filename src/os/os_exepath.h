// The running program's own file. Not installed.
#ifndef VARDO_OS_EXEPATH_H
#define VARDO_OS_EXEPATH_H

#include "vardo/sstring.h"

namespace Vardo400 {
namespace os {

// Full path of the running executable; empty when the system cannot tell.
SWCharString executablePath();

} // namespace os
} // namespace Vardo400

#endif
