// C run-time text functions that Windows has and Linux lacks, or that differ in the
// width of wchar_t. Each keeps the Windows meaning; the current C locale applies.
#ifndef VARDO_OS_CRT_H
#define VARDO_OS_CRT_H

namespace Vardo400 {
namespace os {

// Value the collation functions return when collation fails (as _wcsicoll does).
const int CollateError = 0x7FFFFFFF;

// wcscoll / _wcsicoll over zero-terminated UTF-16 text.
int ucsCollate(const unsigned short* a, const unsigned short* b);
int ucsCollateNoCase(const unsigned short* a, const unsigned short* b);
// towupper / towlower of one UTF-16 unit (surrogates and unmappable units unchanged).
unsigned short ucsToUpper(unsigned short c);
unsigned short ucsToLower(unsigned short c);

} // namespace os
} // namespace Vardo400

#endif
