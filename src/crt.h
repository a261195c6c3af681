// C run-time text functions with their Windows meaning, provided once for both
// platforms. Not installed.
#ifndef VARDO_CRT_H
#define VARDO_CRT_H

#include <cstddef>

namespace Vardo400 {
namespace crt {

// mblen with a limit of 6: 0 at the terminator, -1 for an invalid sequence.
int mbCharLen(const char* p);
// _mbstrlen: characters of multi-byte text; an invalid byte counts as one character.
size_t mbStrLen(const char* s);
// _mbsstr: first occurrence of sub starting on a character boundary, or null.
const char* mbsStr(const char* s, const char* sub);
// _mbscmp, _stricmp: binary and case-insensitive byte comparison (raw sign).
int mbsCmp(const char* a, const char* b);
int strICmp(const char* a, const char* b);
// _mbscoll, _mbsicoll: collation of the current C locale; 0x7FFFFFFF on error.
int mbsCollate(const char* a, const char* b);
int mbsCollateNoCase(const char* a, const char* b);
// wcscmp, _wcsicmp over UTF-16 units (raw sign).
int ucsCmp(const unsigned short* a, const unsigned short* b);
int ucsICmp(const unsigned short* a, const unsigned short* b);
size_t ucsLen(const unsigned short* s);

} // namespace crt
} // namespace Vardo400

#endif
