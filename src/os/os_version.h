// What the library was built for.
#ifndef VARDO_OS_VERSION_H
#define VARDO_OS_VERSION_H

namespace Vardo400 {
namespace os {

// "Windows x86", "Linux x86_64", ...: the system, a space, the processor.
const char* buildPlatform();

} // namespace os
} // namespace Vardo400

#endif
