// wchar_t is UTF-16 here, so the C run-time functions take the text as it is.
#include "os/os_crt.h"

#include <wchar.h>
#include <wctype.h>

namespace Vardo400 {
namespace os {

static const wchar_t* w(const unsigned short* s) { return reinterpret_cast<const wchar_t*>(s); }

int ucsCollate(const unsigned short* a, const unsigned short* b) { return wcscoll(w(a), w(b)); }
int ucsCollateNoCase(const unsigned short* a, const unsigned short* b) { return _wcsicoll(w(a), w(b)); }
unsigned short ucsToUpper(unsigned short c) { return static_cast<unsigned short>(towupper(c)); }
unsigned short ucsToLower(unsigned short c) { return static_cast<unsigned short>(towlower(c)); }

} // namespace os
} // namespace Vardo400
