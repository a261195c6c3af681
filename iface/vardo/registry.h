// Registry: one key of the machine registry, addressed by a root handle and a path, with
// text-valued reads, writes, enumeration, copying and deletion. CompanyRegistry fixes the
// root and the path below the suite's company key for the key families.
//
// On Windows the registry is the Win32 registry. On Linux it is kept in SQLite stores:
//   - the machine store, for HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_USERS and
//     HKEY_CURRENT_CONFIG: the file "registry.db" in the folder named by the environment
//     variable "NEBU_REGISTRYHOME"; when the variable is unset or empty the folder is
//     "/var/lib/vardow" if that folder exists and is writable or can be created, else
//     "$HOME/.vardow" (created with mode 0700). Its file keeps the permissions it was
//     given: usually writable by its owner (root) and readable by all;
//   - one store per user, for HKEY_CURRENT_USER as on Windows: "registry.db" in
//     "$NEBU_REGISTRYHOME/users/<uid>" (uid: the process's effective user id) when the
//     variable is set, else in "$HOME/.vardow/user". The folder is made with mode 0700
//     and the file with mode 0600, both owned by the user; a folder or file owned by
//     anybody else is never used (reads find nothing, writes fail with access denied).
//     The shared folder "$NEBU_REGISTRYHOME/users" is made with mode 1777 (like /tmp),
//     so that every user can add their own folder; where it is missing and cannot be
//     made, an administrator creates it so.
// The stores behave like the Win32 registry:
//   - predefined roots HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
//     HKEY_USERS and HKEY_CURRENT_CONFIG, each a separate tree;
//   - key and value names compare case-insensitively (ASCII, Latin-1, Latin
//     Extended-A, Greek and Cyrillic letters) and keep the case they were created with;
//   - value types REG_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD, REG_BINARY, REG_MULTI_SZ
//     (and any other type code) are kept as the exact bytes written;
//   - sub-keys enumerate in the order of their upper-cased names, values in the order
//     they were first created; listing n entries costs O(n). An enumeration reads its
//     entries in batches and goes on after the last entry it returned: while the key
//     changes during an enumeration, every entry that exists throughout is returned
//     exactly once and in order, one created meanwhile is returned when it sorts after
//     the batch in hand, and one deleted meanwhile may still be returned from that batch
//     (its value data as it was then; opening a deleted sub-key fails);
//   - deleting a key that has sub-keys is refused; writing to a store whose file has no
//     write permission bits, or cannot be written at all, fails with access denied;
//   - many processes may use one store at once: every change is one SQLite transaction
//     (write-ahead log, synchronous=NORMAL), writers wait up to 30 seconds for each
//     other, and a process killed in the middle of a write leaves the last committed
//     state. A damaged file reads as empty and refuses writes.
#ifndef VARDO_REGISTRY_H
#define VARDO_REGISTRY_H

#include "vardodefs.h"
#include "sstring.h"
#include "simplebuffer.h"

// The same type as Win32's HKEY (windows.h declares "struct HKEY__" the same way), so the
// predefined HKEY_... values of windows.h may be passed wherever a RegKeyHandle goes.
struct HKEY__;

namespace Vardo400 {

// An open registry key or a predefined root.
typedef ::HKEY__* RegKeyHandle;

// A predefined root from its Win32 number (0x80000000 + n, sign-extended like windows.h).
inline RegKeyHandle RegPredefinedKey(uint32_t value)
{
    return reinterpret_cast<RegKeyHandle>(static_cast<intptr_t>(static_cast<int32_t>(value)));
}

// The predefined roots, equal to the Win32 HKEY_... constants.
const RegKeyHandle RegClassesRoot = RegPredefinedKey(0x80000000u);
const RegKeyHandle RegCurrentUser = RegPredefinedKey(0x80000001u);
const RegKeyHandle RegLocalMachine = RegPredefinedKey(0x80000002u);
const RegKeyHandle RegUsers = RegPredefinedKey(0x80000003u);
const RegKeyHandle RegCurrentConfig = RegPredefinedKey(0x80000005u);

// The root of every company key: HKEY_LOCAL_MACHINE.
extern VARDO_API const RegKeyHandle companyRegistryHandle;
// The company home path below companyRegistryHandle: "Software\\Quorvane\\Suite 12.0".
extern VARDO_API const char companyRegistryHome[];

// Registry value type codes, as Win32 numbers them.
enum RegValueType {
    RegTypeNone = 0,
    RegTypeString = 1,        // REG_SZ
    RegTypeExpandString = 2,  // REG_EXPAND_SZ
    RegTypeBinary = 3,        // REG_BINARY
    RegTypeDword = 4,         // REG_DWORD
    RegTypeDwordBigEndian = 5,
    RegTypeLink = 6,
    RegTypeMultiString = 7,   // REG_MULTI_SZ
    RegTypeQword = 11         // REG_QWORD
};

// One registry key: root handle plus path (prefix + key, no trailing backslash).
//
// Reads give text: missing keys and values read as empty text and are never reported.
// Misuse and unexpected system errors are reported through the assertion entry point and
// answered with empty text or false; nothing throws except std::bad_alloc.
//
// The key is opened for reading on first use and that handle is kept until the object is
// destroyed. Writes open the key for writing each time (creating it when missing).
//
// Thread-safety: an object is not synchronised (its cached handle makes it unfit for
// sharing between threads without a lock); separate objects on the same key are
// independent, also across processes.
class VARDO_API Registry {
public:
    // Enumerates the direct sub-keys of a key. Owns one open enumeration handle. Copying or
    // assigning transfers the handle: the source no longer owns it.
    class VARDO_API KeyIterator {
    public:
        // At its end (false).
        KeyIterator();
        // Takes ownership of enumKey (may be null) and moves to the first sub-key.
        explicit KeyIterator(RegKeyHandle enumKey);
        // Takes over other's handle, index and entry; other keeps its entry but no handle.
        KeyIterator(const KeyIterator& other);
        // As the copy. Assigning into an iterator that still owns a handle is reported
        // ("m_enumKey == NULL"); its old handle is closed rather than leaked.
        KeyIterator& operator=(const KeyIterator& other);
        ~KeyIterator();

        // Fetches the entry at the current index and advances; at the end closes the
        // handle and returns false.
        bool NextKey();
        KeyIterator& operator++() { NextKey(); return *this; }
        // True while positioned on an entry.
        operator bool() const { return m_bValid; }
        // The current sub-key's name (empty at the end).
        const SWCharStringCI& GetKey() const { return m_key; }
        // Hands the handle to the caller, who must close it; the iterator keeps its
        // current entry and ends at the next advance.
        RegKeyHandle detach();

    private:
        void release();
        mutable RegKeyHandle m_enumKey;
        uint32_t m_dwIndex;
        SWCharStringCI m_key;
        bool m_bValid;
    };

    // Enumerates the values of a key, converting each like ReadValue. Same handle-transfer
    // rule as KeyIterator.
    class VARDO_API ValueIterator {
    public:
        ValueIterator();
        explicit ValueIterator(RegKeyHandle enumKey);
        ValueIterator(const ValueIterator& other);
        ValueIterator& operator=(const ValueIterator& other);
        ~ValueIterator();

        bool NextValue();
        ValueIterator& operator++() { NextValue(); return *this; }
        operator bool() const { return m_bValid; }
        // The current value's name (empty for the unnamed default value) and its text:
        // REG_SZ as it is, REG_DWORD as unsigned decimal, REG_EXPAND_SZ expanded (at most
        // 260 characters), any other type empty.
        const SWCharStringCI& GetName() const { return m_name; }
        const SWCharString& GetValue() const { return m_value; }
        // The current value's type code.
        unsigned long GetType() const { return m_type; }
        RegKeyHandle detach();

    private:
        void release();
        mutable RegKeyHandle m_enumKey;
        uint32_t m_dwIndex;
        SWCharStringCI m_name;
        SWCharString m_value;
        unsigned long m_type;
        bool m_bValid;
    };

    // The key at prefix + key below root. With bCreate the key is created at once when
    // missing (a failure is reported like a failed write).
    explicit Registry(const SWCharString& key = SWCharString(),
                      const SWCharString& prefix = SWCharString(),
                      RegKeyHandle root = companyRegistryHandle, bool bCreate = false);
    // Copies path, root and remote machine (connecting again); the copy opens its own key
    // handle when used.
    Registry(const Registry& other);
    Registry& operator=(const Registry& other);
    virtual ~Registry();

    // Opens the key for reading if not yet open; true when it is open.
    bool KeyExists();

    // The value as text (see the iterators for the conversion); empty when missing.
    SWCharString ReadValue(const SWCharString& name);
    // As ReadValue; when the value reads empty and defaultValue is not, writes the
    // default, reads it back and returns what was read (empty when it could not be
    // written).
    SWCharString ReadValue(const SWCharString& name, const SWCharString& defaultValue);
    // As above with a REG_DWORD default (the low 32 bits of defaultValue).
    SWCharString ReadValue(const SWCharString& name, unsigned long defaultValue);
    // The type code of a value; false when the key or value is missing.
    bool GetType(const SWCharString& name, unsigned long& type);

    // Creates the key when needed and writes a REG_SZ value. False on failure (reported).
    bool WriteValue(const SWCharString& name, const SWCharString& value);
    // Creates the key when needed and writes a REG_DWORD value (the low 32 bits).
    bool WriteValue(const SWCharString& name, unsigned long value);

    // Reads a value's type and exact bytes, Win32 style: size holds the buffer's size in
    // bytes and receives the value's size; when the buffer is too small (or data is
    // null) nothing is copied, size says what is needed and the result is false. False
    // also when the key or value is missing. For tools that show or copy raw data.
    bool ReadValueRaw(const SWCharString& name, unsigned long& type, unsigned char* data,
                      uint32_t& size);
    // Reads a value's type and exact bytes whatever their size into data. False (data
    // empty) when the key or value is missing.
    bool ReadValueRaw(const SWCharString& name, unsigned long& type, SSimpleBuffer& data);
    // Creates the key when needed and writes a value of any type from its exact bytes.
    bool WriteValueRaw(const SWCharString& name, unsigned long type,
                       const unsigned char* data, uint32_t size);

    // Deletes one value; false when it is missing or cannot be deleted.
    bool DeleteValue(const SWCharString& name);
    // Deletes the key if it has no sub-keys; false when missing, when it has a sub-key
    // (reported) or when the deletion fails.
    bool DeleteKey();
    // Deletes every sub-key depth-first, then the key itself. With bDeleteThisKey false
    // the key stays, emptied of sub-keys and values. False when the key is missing or a
    // deletion fails (reported).
    bool DeleteKeyRecursive(bool bDeleteThisKey = true);

    // Iterators over the direct sub-keys and over the values. When the key cannot be
    // opened the iterator is already at its end (reported unless the key is missing).
    KeyIterator EnumSubKeys();
    ValueIterator EnumValues();

    // Copies the whole tree at srcRoot\srcPath (values with their types and exact bytes)
    // to dstRoot\dstPath, creating keys as needed and overwriting same-named values. The
    // source is read completely first, so copying a key below itself is safe. False when
    // the source is missing or a write fails.
    static bool CopyKey(RegKeyHandle srcRoot, const SWCharString& srcPath,
                        RegKeyHandle dstRoot, const SWCharString& dstPath);
    // Copies one value with its type and bytes. False when the source is missing or the
    // write fails.
    static bool CopyValue(RegKeyHandle srcRoot, const SWCharString& srcPath,
                          const SWCharString& srcName, RegKeyHandle dstRoot,
                          const SWCharString& dstPath, const SWCharString& dstName);

    // Redirects the object to the same path in HKEY_LOCAL_MACHINE of another machine (a
    // name without a leading backslash gets "\\\\" in front). IsRemoteReg becomes true.
    // When the connection fails (reported) every later operation reads empty and writes
    // fail. Linux has no remote store: the names ".", "localhost" and this host's name
    // connect to the local store, every other name fails with ERROR_BAD_NETPATH (53).
    void SetRemoteMachine(const SWCharString& machineName);
    const SWCharString& GetRemoteMachineName() const { return m_remoteMachine; }
    bool IsRemoteReg() const { return m_bRemote; }

    // The last path component.
    SWCharStringCI GetKeyName() const;
    const SWCharStringCI& GetPath() const { return m_subKey; }
    // The root in use (the remote connection after SetRemoteMachine).
    RegKeyHandle GetRoot() const;

protected:
    // Read and write through an explicitly given open handle (reports name m_subKey).
    SWCharString ReadValueFromHandle(RegKeyHandle hKey, const SWCharString& name);
    bool WriteValueToHandle(RegKeyHandle hKey, const SWCharString& name,
                            const SWCharString& value);
    bool WriteValueToHandle(RegKeyHandle hKey, const SWCharString& name,
                            unsigned long value);
    // The cached read handle, opened on demand (null when the key cannot be opened).
    RegKeyHandle OpenForRead();
    void CloseHandle();

    SWCharStringCI m_subKey;
    RegKeyHandle m_hRoot;
    bool m_bRemote;
    SWCharString m_remoteMachine;
    RegKeyHandle m_hKey;

private:
    bool writeRaw(unsigned long type, const SWCharString& name, const unsigned char* data,
                  uint32_t size);
    bool deleteTree(RegKeyHandle root, const SWCharString& path, bool bDeleteThisKey);
    SWCharString readWithDefault(const SWCharString& name, const SWCharString& defaultText,
                                 bool bNumber, unsigned long number);
    void connectRemote();
    bool m_bOwnRoot;   // m_hRoot is this object's connection to a remote machine
};

// A key of the company tree: companyRegistryHandle, path
// companyRegistryHome + "\\" + key (the home key itself when key is empty).
class VARDO_API CompanyRegistry : public Registry {
public:
    explicit CompanyRegistry(const SWCharString& key = SWCharString(), bool bCreate = false);
    // "Software\\Quorvane\\Suite 12.0".
    static SWCharString GetHomePath();
};

// The registry stores themselves: where they live and whether they are sound. On Windows
// the store is the system's registry: the paths are empty and the checks always answer
// StoreOk.
class VARDO_API SRegistryStore {
public:
    enum Status {
        StoreOk = 0,          // opened and passed SQLite's integrity check
        StoreMissing = 1,     // no registry.db yet (it is created on the first write)
        StoreUnreadable = 2,  // the file or its folder cannot be opened
        StoreDamaged = 3      // not a database, or the integrity check found faults
    };
    // Full path of the machine store's registry.db as the environment names it now.
    static SWCharString GetPath();
    // Runs "PRAGMA integrity_check" on a fresh connection to the machine store; detail
    // receives the first fault (or the reason the file could not be opened), empty when
    // sound.
    static Status Check(SWCharString* detail = 0);
    // As GetPath and Check for the store that serves a predefined root: the user's own
    // store for RegCurrentUser, the machine store for the others.
    static SWCharString GetRootPath(RegKeyHandle root);
    static Status CheckRoot(RegKeyHandle root, SWCharString* detail = 0);
};

} // namespace Vardo400

#endif
