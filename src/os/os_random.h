// Random bytes from the platform's cryptographic source.
#ifndef VARDO_OS_RANDOM_H
#define VARDO_OS_RANDOM_H

#include <cstddef>

namespace Vardo400 {
namespace os {

// Fills n bytes at buffer with unpredictable bytes from the system's generator. False
// when the source cannot be used (the buffer's content is then unspecified).
bool randomBytes(unsigned char* buffer, size_t n);

} // namespace os
} // namespace Vardo400

#endif
