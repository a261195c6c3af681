// The bridge between the library's UTF-16 units and the platform's wchar_t, which is
// UTF-16 on Windows (the bridge copies) and UTF-32 on Linux (pairs become one value
// and back). Not installed.
#ifndef VARDO_OS_WCHAR_H
#define VARDO_OS_WCHAR_H

#include <cstddef>
#include <wchar.h>

namespace Vardo400 {
namespace os {

// Converts n wide characters of src into UTF-16 at dst, writing at most len units and
// never half a surrogate pair. Wide values above 10FFFF (or negative) become U+FFFD;
// wide surrogate values are copied as they are. With a null dst nothing is written
// and len is ignored. Returns the units written (or needed); *consumed, when given,
// gets the wide characters converted.
size_t wideToUcs2(unsigned short* dst, size_t len, const wchar_t* src, size_t n, size_t* consumed);

// Converts n UTF-16 units of src into wide characters at dst, writing at most len.
// Where wchar_t is 32-bit a high surrogate followed by a low one becomes one value and
// lone surrogates keep their value. With a null dst nothing is written and len is
// ignored. Returns the wide characters written (or needed); *consumed, when given, gets
// the units converted.
size_t ucs2ToWide(wchar_t* dst, size_t len, const unsigned short* src, size_t n, size_t* consumed);

} // namespace os
} // namespace Vardo400

#endif
