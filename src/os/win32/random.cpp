// Random bytes on Windows: the CryptoAPI generator (CryptGenRandom) through an ephemeral
// provider context; RtlGenRandom when no context can be had.
#include "os/os_random.h"

#include <windows.h>
#include <wincrypt.h>

namespace Vardo400 {
namespace os {

namespace {

typedef BOOLEAN(WINAPI* RtlGenRandomFn)(PVOID, ULONG);

bool rtlGenRandom(unsigned char* buffer, size_t n)
{
    HMODULE advapi = GetModuleHandleW(L"advapi32.dll");
    if (!advapi)
        return false;
    RtlGenRandomFn fn = reinterpret_cast<RtlGenRandomFn>(
        reinterpret_cast<void*>(GetProcAddress(advapi, "SystemFunction036")));
    if (!fn)
        return false;
    while (n > 0) {
        ULONG now = n > 0x10000000u ? 0x10000000u : static_cast<ULONG>(n);
        if (!fn(buffer, now))
            return false;
        buffer += now;
        n -= now;
    }
    return true;
}

} // namespace

bool randomBytes(unsigned char* buffer, size_t n)
{
    HCRYPTPROV prov = 0;
    if (!CryptAcquireContextW(&prov, NULL, NULL, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT | CRYPT_SILENT))
        return rtlGenRandom(buffer, n);
    bool ok = true;
    while (ok && n > 0) {
        DWORD now = n > 0x10000000u ? 0x10000000u : static_cast<DWORD>(n);
        ok = CryptGenRandom(prov, now, buffer) != FALSE;
        buffer += now;
        n -= now;
    }
    CryptReleaseContext(prov, 0);
    return ok;
}

} // namespace os
} // namespace Vardo400
