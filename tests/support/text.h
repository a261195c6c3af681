// Text helpers shared by the tests. They convert on their own, so that a fault in the
// library's converters cannot hide behind the helper that builds the expected value.
#ifndef VARDO_TEST_TEXT_H
#define VARDO_TEST_TEXT_H

#include <vardo/sstring.h>

#include <string>

namespace vardo_test {

// UTF-8 to UTF-16, characters above U+FFFF as surrogate pairs. Bytes that are not well-formed
// UTF-8 become U+FFFD, one per byte, so a typo in a test shows up instead of passing quietly.
Vardo400::SWCharString W(const std::string& utf8);
Vardo400::SWCharString W(const char* utf8);
Vardo400::SWCharString W(const char16_t* s);
// A char16_t literal as the library's unit pointer.
inline const unsigned short* units(const char16_t* s) { return reinterpret_cast<const unsigned short*>(s); }

// UTF-16 to UTF-8, surrogate pairs joined; a lone surrogate is written "\uD8xx" to show it.
std::string U(const Vardo400::SString_t<unsigned short, 1>& s);
// Units below 0x80 as they are, every other unit as "?": for output that must be ASCII.
std::string ascii(const Vardo400::SString_t<unsigned short, 1>& s);

} // namespace vardo_test

#endif
