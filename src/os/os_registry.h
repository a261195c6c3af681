// The registry store, shaped like the Win32 registry calls: handles, access masks, value
// types and error numbers are Win32's on every platform. Windows forwards to advapi32;
// Linux keeps a SQLite store (see iface/vardo/registry.h for where it lives and how it
// behaves).
//
// Text is zero-terminated UTF-16. Every function is safe to call from several threads;
// one handle must not be used by two threads at once. Handles are non-inheritable.
#ifndef VARDO_OS_REGISTRY_H
#define VARDO_OS_REGISTRY_H

#include "vardo/registry.h"

namespace Vardo400 {
namespace os {

// Win32 error numbers the store answers with.
enum RegError : int32_t {
    RegOk = 0,
    RegFileNotFound = 2,       // ERROR_FILE_NOT_FOUND: key or value missing
    RegAccessDenied = 5,       // ERROR_ACCESS_DENIED (also: deleting a key with sub-keys)
    RegInvalidHandle = 6,      // ERROR_INVALID_HANDLE
    RegOutOfMemory = 14,       // ERROR_OUTOFMEMORY
    RegBadNetPath = 53,        // ERROR_BAD_NETPATH
    RegInvalidParameter = 87,  // ERROR_INVALID_PARAMETER
    RegBusy = 170,             // ERROR_BUSY: the store stayed locked past the wait
    RegBadPathName = 161,      // ERROR_BAD_PATHNAME
    RegMoreData = 234,         // ERROR_MORE_DATA
    RegNoMoreItems = 259,      // ERROR_NO_MORE_ITEMS
    RegBadDb = 1009,           // ERROR_BADDB: the store is damaged
    RegIoFailed = 1016,        // ERROR_REGISTRY_IO_FAILED
    RegKeyDeleted = 1018       // ERROR_KEY_DELETED: the handle's key was deleted
};

// Access masks (Win32 values).
const uint32_t RegKeyQueryValue = 0x0001;
const uint32_t RegKeySetValue = 0x0002;
const uint32_t RegKeyCreateSubKey = 0x0004;
const uint32_t RegKeyEnumerateSubKeys = 0x0008;
const uint32_t RegKeyRead = 0x20019;   // KEY_READ
const uint32_t RegKeyWrite = 0x20006;  // KEY_WRITE
const uint32_t RegKeyAllAccess = 0xF003F;

// Longest key name component and value name, in UTF-16 units (Win32 limits).
const uint32_t RegMaxKeyName = 255;
const uint32_t RegMaxValueName = 16383;

// Whether h is one of the predefined roots (never closed).
bool regIsPredefined(RegKeyHandle h);

// RegOpenKeyEx: opens parent\subKey (parent itself again for empty subKey).
int32_t regOpenKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                   RegKeyHandle* result);
// RegCreateKeyEx: opens parent\subKey, creating every missing component.
int32_t regCreateKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                     RegKeyHandle* result);
// RegCloseKey. Predefined roots and null are accepted and ignored.
int32_t regCloseKey(RegKeyHandle key);

// RegQueryValueEx: *size is the buffer's size on entry and the value's size on return.
// A null data asks only for type and size (RegOk); a buffer too small gives RegMoreData
// with the needed size. type may be null.
int32_t regQueryValue(RegKeyHandle key, const unsigned short* name, uint32_t* type,
                      unsigned char* data, uint32_t* size);
// RegSetValueEx.
int32_t regSetValue(RegKeyHandle key, const unsigned short* name, uint32_t type,
                    const unsigned char* data, uint32_t size);
// RegDeleteValue.
int32_t regDeleteValue(RegKeyHandle key, const unsigned short* name);
// RegDeleteKey: deletes parent\subKey, which must have no sub-keys (RegAccessDenied).
int32_t regDeleteKey(RegKeyHandle parent, const unsigned short* subKey);

// RegEnumKeyEx: the name of sub-key number index; RegNoMoreItems past the last.
//
// Linux: a handle lists its key in batches, so that listing n entries costs O(n). Index
// 0 starts afresh; index i + 1 after index i continues after the name returned for i (a
// keyset cursor, not a count), from the batch in hand or, at its end, from a new batch
// read from the current state of the store; any other index counts from the start of
// the current state. While the key changes during an enumeration 0, 1, 2, ...: every
// sub-key that exists throughout is returned exactly once and in order; a sub-key
// created meanwhile is returned when it sorts after the batch in hand; a sub-key deleted
// meanwhile may still be returned from the batch in hand (opening it then fails).
int32_t regEnumKey(RegKeyHandle key, uint32_t index, SWCharString& name);
// RegEnumValue: name, type and data of value number index (data as regQueryValue; the
// name is filled also when the data needs more room). Linux: batched like regEnumKey,
// the cursor following creation order; a batch carries the values' data as they were
// when it was read.
int32_t regEnumValue(RegKeyHandle key, uint32_t index, SWCharString& name, uint32_t* type,
                     unsigned char* data, uint32_t* size);

// RegConnectRegistry to machine's HKEY_LOCAL_MACHINE; close the result with regCloseKey.
int32_t regConnectRegistry(const unsigned short* machine, RegKeyHandle* result);

// ExpandEnvironmentStrings: expands %NAME% references into dst of size units; returns
// the units needed including the terminator (more than size: dst is not filled), 0 on
// failure.
uint32_t regExpandEnvironmentStrings(const unsigned short* src, unsigned short* dst,
                                     uint32_t size);

// Makes an open key handle non-inheritable (no effect where handles are not inherited).
void regMakeNonInheritable(RegKeyHandle key);

// The file of the store that serves root (empty on Windows) and its integrity check.
SWCharString regStorePath(RegKeyHandle root);
SRegistryStore::Status regStoreCheck(RegKeyHandle root, SWCharString* detail);

// Owns one open key handle and closes it when it goes (predefined roots and null are never
// closed). Move-only: a handle has one owner.
class RegKey {
public:
    RegKey() : m_h(0) {}
    explicit RegKey(RegKeyHandle h) : m_h(h) {}
    RegKey(RegKey&& other) noexcept : m_h(other.m_h) { other.m_h = 0; }
    RegKey& operator=(RegKey&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    RegKey(const RegKey&) = delete;
    RegKey& operator=(const RegKey&) = delete;
    ~RegKey() { reset(); }

    RegKeyHandle get() const { return m_h; }
    explicit operator bool() const { return m_h != 0; }
    // Hands the handle to the caller, who closes it.
    RegKeyHandle release()
    {
        RegKeyHandle h = m_h;
        m_h = 0;
        return h;
    }
    void reset(RegKeyHandle h = 0)
    {
        if (m_h && m_h != h)
            regCloseKey(m_h);
        m_h = h;
    }
    // Closes what it holds, then opens parent\subKey (creating what is missing with
    // create) and makes the handle non-inheritable. Holds nothing on failure.
    int32_t open(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                 bool create = false)
    {
        reset();
        RegKeyHandle h = 0;
        int32_t rc = create ? regCreateKey(parent, subKey, access, &h)
                            : regOpenKey(parent, subKey, access, &h);
        if (rc != RegOk)
            return rc;
        regMakeNonInheritable(h);
        m_h = h;
        return RegOk;
    }

private:
    RegKeyHandle m_h;
};

} // namespace os
} // namespace Vardo400

#endif
