// Registry calls over advapi32. UTF-16 text passes straight through (wchar_t is 16-bit).
#include "os/os_registry.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <vector>

namespace Vardo400 {
namespace os {

namespace {

const wchar_t* w(const unsigned short* s) { return reinterpret_cast<const wchar_t*>(s); }

const wchar_t EmptyText[1] = {0};

} // namespace

bool regIsPredefined(RegKeyHandle h)
{
    ULONG_PTR v = reinterpret_cast<ULONG_PTR>(h);
    uint32_t low = static_cast<uint32_t>(v);
    return low >= 0x80000000u && low <= 0x80000006u &&
           static_cast<LONG_PTR>(v) == static_cast<LONG_PTR>(static_cast<LONG>(low));
}

int32_t regOpenKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                   RegKeyHandle* result)
{
    HKEY h = 0;
    LONG rc = RegOpenKeyExW(parent, subKey ? w(subKey) : EmptyText, 0, access, &h);
    *result = rc == ERROR_SUCCESS ? h : 0;
    return rc;
}

int32_t regCreateKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                     RegKeyHandle* result)
{
    HKEY h = 0;
    DWORD disposition = 0;
    LONG rc = RegCreateKeyExW(parent, subKey ? w(subKey) : EmptyText, 0, 0, REG_OPTION_NON_VOLATILE,
                              access, 0, &h, &disposition);
    *result = rc == ERROR_SUCCESS ? h : 0;
    return rc;
}

int32_t regCloseKey(RegKeyHandle key)
{
    if (!key || regIsPredefined(key))
        return ERROR_SUCCESS;
    return RegCloseKey(key);
}

int32_t regQueryValue(RegKeyHandle key, const unsigned short* name, uint32_t* type,
                      unsigned char* data, uint32_t* size)
{
    DWORD t = 0;
    DWORD n = size ? *size : 0;
    LONG rc = RegQueryValueExW(key, name ? w(name) : EmptyText, 0, &t, data, size ? &n : 0);
    if (type)
        *type = t;
    if (size)
        *size = n;
    return rc;
}

int32_t regSetValue(RegKeyHandle key, const unsigned short* name, uint32_t type,
                    const unsigned char* data, uint32_t size)
{
    return RegSetValueExW(key, name ? w(name) : EmptyText, 0, type, data, size);
}

int32_t regDeleteValue(RegKeyHandle key, const unsigned short* name)
{
    return RegDeleteValueW(key, name ? w(name) : EmptyText);
}

int32_t regDeleteKey(RegKeyHandle parent, const unsigned short* subKey)
{
    return RegDeleteKeyW(parent, subKey ? w(subKey) : EmptyText);
}

int32_t regEnumKey(RegKeyHandle key, uint32_t index, SWCharString& name)
{
    wchar_t buf[RegMaxKeyName + 2];
    DWORD n = RegMaxKeyName + 2;
    LONG rc = RegEnumKeyExW(key, index, buf, &n, 0, 0, 0, 0);
    if (rc == ERROR_SUCCESS) {
        buf[n < RegMaxKeyName + 1 ? n : RegMaxKeyName + 1] = 0;
        name = SWCharString(reinterpret_cast<const unsigned short*>(buf));
    }
    return rc;
}

int32_t regEnumValue(RegKeyHandle key, uint32_t index, SWCharString& name, uint32_t* type,
                     unsigned char* data, uint32_t* size)
{
    std::vector<wchar_t> buf(RegMaxValueName + 2);
    DWORD n = static_cast<DWORD>(buf.size());
    DWORD t = 0;
    DWORD bytes = size ? *size : 0;
    LONG rc = RegEnumValueW(key, index, buf.data(), &n, 0, &t, data, size ? &bytes : 0);
    if (rc == ERROR_MORE_DATA && data) {
        // The name buffer is always large enough: only the data can be short. Ask for
        // the name and sizes alone so the caller learns the size it needs.
        n = static_cast<DWORD>(buf.size());
        DWORD need = 0;
        LONG again = RegEnumValueW(key, index, buf.data(), &n, 0, &t, 0, &need);
        if (again != ERROR_SUCCESS)
            return again;
        bytes = need;
    }
    if (rc == ERROR_SUCCESS || rc == ERROR_MORE_DATA) {
        buf[n < buf.size() ? n : buf.size() - 1] = 0;
        name = SWCharString(reinterpret_cast<const unsigned short*>(buf.data()));
        if (type)
            *type = t;
        if (size)
            *size = bytes;
    }
    return rc;
}

int32_t regConnectRegistry(const unsigned short* machine, RegKeyHandle* result)
{
    HKEY h = 0;
    LONG rc = RegConnectRegistryW(machine ? w(machine) : 0, HKEY_LOCAL_MACHINE, &h);
    *result = rc == ERROR_SUCCESS ? h : 0;
    return rc;
}

uint32_t regExpandEnvironmentStrings(const unsigned short* src, unsigned short* dst, uint32_t size)
{
    return ExpandEnvironmentStringsW(w(src), reinterpret_cast<wchar_t*>(dst), size);
}

void regMakeNonInheritable(RegKeyHandle key)
{
    if (key && !regIsPredefined(key))
        SetHandleInformation(reinterpret_cast<HANDLE>(key), HANDLE_FLAG_INHERIT, 0);
}

SWCharString regStorePath(RegKeyHandle) { return SWCharString(); }

SRegistryStore::Status regStoreCheck(RegKeyHandle, SWCharString* detail)
{
    if (detail)
        detail->empty();
    return SRegistryStore::StoreOk;
}

} // namespace os
} // namespace Vardo400
