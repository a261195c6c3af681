// GoogleTest printers for the library's string types, so failures show text.
#ifndef VARDO_TEST_VARDO_GTEST_H
#define VARDO_TEST_VARDO_GTEST_H

#include <vardo/sstring.h>

#include <ostream>

namespace Vardo400 {

// UTF-16 text as UTF-8 (lone surrogates as \uXXXX), 8-bit text as it is.
void PrintTo(const SString_t<unsigned short, 1>& s, std::ostream* os);
void PrintTo(const SString_t<char, 0>& s, std::ostream* os);
void PrintTo(const SString_t<char, 1>& s, std::ostream* os);
inline void PrintTo(const SWCharString& s, std::ostream* os) { PrintTo(static_cast<const SString_t<unsigned short, 1>&>(s), os); }
inline void PrintTo(const STovoString& s, std::ostream* os) { PrintTo(static_cast<const SString_t<unsigned short, 1>&>(s), os); }
inline void PrintTo(const SAnsiString& s, std::ostream* os) { PrintTo(static_cast<const SString_t<char, 0>&>(s), os); }
inline void PrintTo(const SAsciiString& s, std::ostream* os) { PrintTo(static_cast<const SString_t<char, 1>&>(s), os); }

} // namespace Vardo400

#endif
