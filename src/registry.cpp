// Registry: the read algorithm, defaults, writes, enumeration, deletion and copying,
// stated once over the platform's registry store (os/os_registry.h).
#include "vardo/registry.h"
#include "vardo/strace.h"

#include "os/os_registry.h"
#include "regvalue.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace Vardo400 {

const RegKeyHandle companyRegistryHandle = RegLocalMachine;
const char companyRegistryHome[] = "Software\\Quorvane\\Suite 12.0";

namespace {

// The first read goes into a buffer of this size; larger values are read again.
const uint32_t FirstReadBufferSize = 16300;
// Expanded REG_EXPAND_SZ text is limited to MAX_PATH units, terminator included.
const uint32_t MaxExpandedChars = 260;
// A tree being copied is read whole first; this bounds its depth (Win32's own limit).
const int MaxTreeDepth = 512;

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

SWCharString decimal(unsigned long long v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%llu", v);
    return ascii(buf);
}

// "<call>(<path>) failed. Error code: <code>"
SWCharString failedMessage(const char* call, const SWCharString& path, int32_t code)
{
    SWCharString m = ascii(call);
    m += ascii("(");
    m += path;
    m += ascii(") failed. Error code: ");
    m += decimal(static_cast<uint32_t>(code));
    return m;
}

void reportFailure(const char* file, int line, const char* call, const SWCharString& path,
                   int32_t code)
{
    if (ShouldAssert())
        SAssert(file, line, "ret == ERROR_SUCCESS", failedMessage(call, path, code).data());
}

#define REG_REPORT(call, path, code) reportFailure(__FILE__, __LINE__, call, path, code)

// Opens root\path into key; a failure other than a missing key is reported.
bool openReported(os::RegKey& key, RegKeyHandle root, const SWCharString& path, uint32_t access)
{
    int32_t rc = key.open(root, path.data(), access);
    if (rc != os::RegOk && rc != os::RegFileNotFound)
        REG_REPORT("RegOpenKeyEx", path, rc);
    return rc == os::RegOk;
}

// Opens root\path for writing into key, creating what is missing; a failure is reported.
bool createReported(os::RegKey& key, RegKeyHandle root, const SWCharString& path)
{
    int32_t rc = key.open(root, path.data(), os::RegKeyWrite, true);
    if (rc != os::RegOk)
        REG_REPORT("RegCreateKeyEx", path, rc);
    return rc == os::RegOk;
}

using regvalue::textFromBytes;

// Text to REG_SZ bytes, terminator included.
void bytesFromText(const SWCharString& s, std::vector<unsigned char>& out)
{
    out.clear();
    regvalue::appendTextBytes(s.data(), s.getLength(), out);
}

uint32_t dwordFromBytes(const unsigned char* data, uint32_t size)
{
    uint32_t v = 0;
    for (uint32_t i = 0; i < 4 && i < size; ++i)
        v |= static_cast<uint32_t>(data[i]) << (8 * i);
    return v;
}

// Type conversion shared by ReadValue and ValueIterator::NextValue into out, reusing the
// room out has (an iterator converts every entry into the same strings); expandMessage
// is the caller's report text for an expansion that does not fit.
void convertValue(uint32_t type, const unsigned char* data, uint32_t size, SWCharString& out,
                  const char* file, int line, const char* expandMessage)
{
    switch (type) {
    case RegTypeString:
        regvalue::assignTextFromBytes(data, size, out);
        return;
    case RegTypeDword:
        regvalue::assignDecimal(dwordFromBytes(data, size), out);
        return;
    case RegTypeExpandString: {
        SWCharString raw = textFromBytes(data, size);
        unsigned short expanded[MaxExpandedChars];
        uint32_t numChars = os::regExpandEnvironmentStrings(raw.data(), expanded, MaxExpandedChars);
        if (!(numChars && numChars <= MaxExpandedChars)) {
            if (ShouldAssert())
                SAssert(file, line, "numChars && numChars <= MAX_PATH", expandMessage);
            out.empty();
            return;
        }
        expanded[MaxExpandedChars - 1] = 0;
        out = expanded;
        return;
    }
    default:
        out.empty();
        return;
    }
}

// Reads one value (first into 16300 bytes, then at the reported size) and converts it
// into out. Only a string value is converted after the retry. Returns the store's answer;
// out is empty unless it is RegOk.
template <class Query>
int32_t readConverted(const Query& query, SWCharString& out, const char* file, int line,
                      const char* expandMessage)
{
    // Units, so that a REG_SZ value read on a little-endian host is text where it lies,
    // with room for a terminator behind the largest first read.
    unsigned short firstUnits[FirstReadBufferSize / 2 + 1];
    unsigned char* first = reinterpret_cast<unsigned char*>(firstUnits);
    std::vector<unsigned char> grown;
    const unsigned char* bytes = 0;
    uint32_t type = 0, size = 0;
    bool retried = false;
    int32_t rc = regvalue::readWithRetry(query, type, first, FirstReadBufferSize, grown, bytes,
                                         size, retried);
    if (rc != os::RegOk) {
        out.empty();
    } else if (!retried && type == RegTypeString && regvalue::hostLittleEndian()) {
        firstUnits[size / 2] = 0;
        out = firstUnits;   // up to the value's own terminator, else the one just placed
    } else if (!retried)
        convertValue(type, bytes, size, out, file, line, expandMessage);
    else if (type == RegTypeString)
        regvalue::assignTextFromBytes(bytes, size, out);
    else
        out.empty();
    return rc;
}

SWCharString joinPath(const SWCharString& path, const SWCharString& name)
{
    if (path.isEmpty())
        return name;
    SWCharString r = path;
    r += SWCharString::Char(static_cast<unsigned short>('\\'));
    r += name;
    return r;
}

// A key tree read into memory for CopyKey.
struct TreeValue {
    SWCharString name;
    uint32_t type;
    std::vector<unsigned char> data;
};
struct TreeNode {
    SWCharString name;
    std::vector<TreeValue> values;
    std::vector<TreeNode> children;
};

int32_t readTree(RegKeyHandle root, const SWCharString& path, TreeNode& node, int depth)
{
    if (depth > MaxTreeDepth)
        return os::RegInvalidParameter;
    os::RegKey h;
    int32_t rc = h.open(root, path.data(), os::RegKeyRead);
    if (rc != os::RegOk)
        return rc;
    for (uint32_t i = 0;; ++i) {
        TreeValue v;
        uint32_t size = 0;
        rc = os::regEnumValue(h.get(), i, v.name, &v.type, 0, &size);
        if (rc == os::RegNoMoreItems)
            break;
        if (rc != os::RegOk)
            return rc;
        rc = regvalue::readRaw(h.get(), v.name.data(), v.type, v.data);
        if (rc == os::RegFileNotFound)
            continue;   // removed meanwhile
        if (rc != os::RegOk)
            return rc;
        node.values.push_back(std::move(v));
    }
    std::vector<SWCharString> names;
    for (uint32_t i = 0;; ++i) {
        SWCharString name;
        rc = os::regEnumKey(h.get(), i, name);
        if (rc == os::RegNoMoreItems)
            break;
        if (rc != os::RegOk)
            return rc;
        names.push_back(name);
    }
    for (const SWCharString& name : names) {
        TreeNode child;
        child.name = name;
        rc = readTree(root, joinPath(path, name), child, depth + 1);
        if (rc == os::RegFileNotFound)
            continue;
        if (rc != os::RegOk)
            return rc;
        node.children.push_back(std::move(child));
    }
    return os::RegOk;
}

bool writeTree(RegKeyHandle root, const SWCharString& path, const TreeNode& node)
{
    {
        os::RegKey h;
        if (!createReported(h, root, path))
            return false;
        for (const TreeValue& v : node.values) {
            static const unsigned char none = 0;
            int32_t rc = os::regSetValue(h.get(), v.name.data(), v.type,
                                 v.data.empty() ? &none : v.data.data(),
                                 static_cast<uint32_t>(v.data.size()));
            if (rc != os::RegOk) {
                REG_REPORT("RegSetValueEx", path, rc);
                return false;
            }
        }
    }
    for (const TreeNode& child : node.children)
        if (!writeTree(root, joinPath(path, child.name), child))
            return false;
    return true;
}

} // namespace

// ---- KeyIterator ----------------------------------------------------------------------------

static const char* const ConsumeMessage =
    "You are consuming into a non-empty KeyIterator. This will leak the REG_HANDLE.";

Registry::KeyIterator::KeyIterator() : m_enumKey(0), m_dwIndex(0), m_bValid(false) {}

Registry::KeyIterator::KeyIterator(RegKeyHandle enumKey)
    : m_enumKey(enumKey), m_dwIndex(0), m_bValid(false)
{
    NextKey();
}

Registry::KeyIterator::KeyIterator(const KeyIterator& other)
    : m_enumKey(other.m_enumKey), m_dwIndex(other.m_dwIndex), m_key(other.m_key),
      m_bValid(other.m_bValid)
{
    other.m_enumKey = 0;
}

Registry::KeyIterator& Registry::KeyIterator::operator=(const KeyIterator& other)
{
    if (this == &other)
        return *this;
    if (m_enumKey != 0) {
        if (ShouldAssert())
            SAssert(__FILE__, __LINE__, "m_enumKey == NULL", ConsumeMessage);
        release();
    }
    m_enumKey = other.m_enumKey;
    other.m_enumKey = 0;
    m_dwIndex = other.m_dwIndex;
    m_key = other.m_key;
    m_bValid = other.m_bValid;
    return *this;
}

Registry::KeyIterator::~KeyIterator() { release(); }

void Registry::KeyIterator::release()
{
    if (m_enumKey) {
        os::regCloseKey(m_enumKey);
        m_enumKey = 0;
    }
}

bool Registry::KeyIterator::NextKey()
{
    if (m_enumKey) {
        // Into the iterator's own string, which keeps its room from entry to entry.
        if (os::regEnumKey(m_enumKey, m_dwIndex, m_key) == os::RegOk) {
            ++m_dwIndex;
            m_bValid = true;
            return true;
        }
        release();
    }
    m_key.empty();
    m_bValid = false;
    return false;
}

RegKeyHandle Registry::KeyIterator::detach()
{
    RegKeyHandle h = m_enumKey;
    m_enumKey = 0;
    return h;
}

// ---- ValueIterator --------------------------------------------------------------------------

Registry::ValueIterator::ValueIterator()
    : m_enumKey(0), m_dwIndex(0), m_type(RegTypeNone), m_bValid(false) {}

Registry::ValueIterator::ValueIterator(RegKeyHandle enumKey)
    : m_enumKey(enumKey), m_dwIndex(0), m_type(RegTypeNone), m_bValid(false)
{
    NextValue();
}

Registry::ValueIterator::ValueIterator(const ValueIterator& other)
    : m_enumKey(other.m_enumKey), m_dwIndex(other.m_dwIndex), m_name(other.m_name),
      m_value(other.m_value), m_type(other.m_type), m_bValid(other.m_bValid)
{
    other.m_enumKey = 0;
}

Registry::ValueIterator& Registry::ValueIterator::operator=(const ValueIterator& other)
{
    if (this == &other)
        return *this;
    if (m_enumKey != 0) {
        if (ShouldAssert())
            SAssert(__FILE__, __LINE__, "m_enumKey == NULL", ConsumeMessage);
        release();
    }
    m_enumKey = other.m_enumKey;
    other.m_enumKey = 0;
    m_dwIndex = other.m_dwIndex;
    m_name = other.m_name;
    m_value = other.m_value;
    m_type = other.m_type;
    m_bValid = other.m_bValid;
    return *this;
}

Registry::ValueIterator::~ValueIterator() { release(); }

void Registry::ValueIterator::release()
{
    if (m_enumKey) {
        os::regCloseKey(m_enumKey);
        m_enumKey = 0;
    }
}

bool Registry::ValueIterator::NextValue()
{
    if (m_enumKey) {
        // The name and text go straight into the iterator's own strings, which keep their
        // room from entry to entry unless a caller still shares them.
        SWCharString& name = m_name;
        uint32_t type = 0;
        RegKeyHandle key = m_enumKey;
        uint32_t index = m_dwIndex;
        int32_t rc = readConverted(
            [&](uint32_t* t, unsigned char* d, uint32_t* s) {
                int32_t r = os::regEnumValue(key, index, name, t, d, s);
                type = *t;
                return r;
            },
            m_value, __FILE__, __LINE__,
            "Registry::ValueIterator::NextValue: Buffer is not big enough to accomodate "
            "expanded string from registry");
        // A value that kept growing while read still counts as an entry (with empty text).
        if (rc == os::RegOk || rc == os::RegMoreData) {
            ++m_dwIndex;
            m_type = type;
            m_bValid = true;
            return true;
        }
        release();
    }
    m_name.empty();
    m_value.empty();
    m_type = RegTypeNone;
    m_bValid = false;
    return false;
}

RegKeyHandle Registry::ValueIterator::detach()
{
    RegKeyHandle h = m_enumKey;
    m_enumKey = 0;
    return h;
}

// ---- Registry ------------------------------------------------------------------------------

Registry::Registry(const SWCharString& key, const SWCharString& prefix, RegKeyHandle root,
                   bool bCreate)
    : m_subKey(prefix + key), m_hRoot(root), m_bRemote(false), m_hKey(0), m_bOwnRoot(false)
{
    if (bCreate && m_hRoot) {
        os::RegKey h;
        createReported(h, m_hRoot, m_subKey);
    }
}

Registry::Registry(const Registry& other)
    : m_subKey(other.m_subKey), m_hRoot(other.m_hRoot), m_bRemote(other.m_bRemote),
      m_remoteMachine(other.m_remoteMachine), m_hKey(0), m_bOwnRoot(false)
{
    if (other.m_bOwnRoot)
        connectRemote();
}

Registry& Registry::operator=(const Registry& other)
{
    if (this == &other)
        return *this;
    CloseHandle();
    if (m_bOwnRoot)
        os::regCloseKey(m_hRoot);
    m_bOwnRoot = false;
    m_subKey = other.m_subKey;
    m_hRoot = other.m_hRoot;
    m_bRemote = other.m_bRemote;
    m_remoteMachine = other.m_remoteMachine;
    if (other.m_bOwnRoot)
        connectRemote();
    return *this;
}

Registry::~Registry()
{
    CloseHandle();
    if (m_bOwnRoot)
        os::regCloseKey(m_hRoot);
}

void Registry::CloseHandle()
{
    if (m_hKey) {
        os::regCloseKey(m_hKey);
        m_hKey = 0;
    }
}

RegKeyHandle Registry::GetRoot() const { return m_hRoot; }

SWCharStringCI Registry::GetKeyName() const
{
    const unsigned short* p = m_subKey.data();
    const unsigned short* last = p;
    for (; *p; ++p)
        if (*p == '\\')
            last = p + 1;
    return SWCharStringCI(last);
}

RegKeyHandle Registry::OpenForRead()
{
    if (m_hKey)
        return m_hKey;
    if (!m_hRoot)
        return 0;
    os::RegKey h;
    int32_t rc = h.open(m_hRoot, m_subKey.data(), os::RegKeyRead);
    if (rc != os::RegOk) {
        if (rc == os::RegAccessDenied)
            REG_REPORT("RegOpenKeyEx", m_subKey, rc);
        return 0;
    }
    m_hKey = h.release();
    return m_hKey;
}

bool Registry::KeyExists() { return OpenForRead() != 0; }

static const char* const ReadExpandMessage =
    "Registry::ReadValue: Buffer is not big enough to accomodate expanded string from registry";

static SWCharString readFromHandle(RegKeyHandle hKey, const SWCharString& name, int32_t& rc,
                                   const char* file, int line)
{
    SWCharString text;
    rc = readConverted(
        [&](uint32_t* t, unsigned char* d, uint32_t* s) {
            return os::regQueryValue(hKey, name.data(), t, d, s);
        },
        text, file, line, ReadExpandMessage);
    return text;
}

SWCharString Registry::ReadValueFromHandle(RegKeyHandle hKey, const SWCharString& name)
{
    int32_t rc = os::RegOk;
    return readFromHandle(hKey, name, rc, __FILE__, __LINE__);
}

SWCharString Registry::ReadValue(const SWCharString& name)
{
    unsigned int n = m_subKey.getNChars();
    if (n && static_cast<unsigned short>(m_subKey.getAt(n - 1)) == static_cast<unsigned short>(0x5C) && ShouldAssert())
        SAssert(__FILE__, __LINE__, "m_subKey.getAt (m_subKey.getNChars() - 1) != _T('\\\\')",
                "Win95 doesn't like opening \\ ending reg keys");
    RegKeyHandle h = OpenForRead();
    if (!h)
        return SWCharString();
    int32_t rc = os::RegOk;
    SWCharString r = readFromHandle(h, name, rc, __FILE__, __LINE__);
    if (rc == os::RegKeyDeleted) {
        // The cached handle names a key deleted since; the key may exist again.
        CloseHandle();
        h = OpenForRead();
        if (h)
            r = readFromHandle(h, name, rc, __FILE__, __LINE__);
    }
    return r;
}

SWCharString Registry::readWithDefault(const SWCharString& name, const SWCharString& defaultText,
                                       bool bNumber, unsigned long number)
{
    SWCharString retval = ReadValue(name);
    if (!retval.isEmpty())
        return retval;
    if (bNumber) {
        if (!WriteValue(name, number))
            return SWCharString();
        retval = ReadValue(name);
        if (!(retval == decimal(static_cast<unsigned int>(number))) && ShouldAssert())
            SAssert(__FILE__, __LINE__,
                    "retval == SStringConv::ToString((unsigned int)defaultValue)",
                    "Registry::ReadValue: Value written to registry not the same as the default "
                    "value");
        return retval;
    }
    if (defaultText.isEmpty())
        return retval;
    if (!WriteValue(name, defaultText))
        return SWCharString();
    retval = ReadValue(name);
    if (!(defaultText == retval) && ShouldAssert())
        SAssert(__FILE__, __LINE__, "defaultValue == retval",
                "Registry::ReadValue: Value written to registry not the same as the default "
                "value");
    return retval;
}

SWCharString Registry::ReadValue(const SWCharString& name, const SWCharString& defaultValue)
{
    return readWithDefault(name, defaultValue, false, 0);
}

SWCharString Registry::ReadValue(const SWCharString& name, unsigned long defaultValue)
{
    return readWithDefault(name, SWCharString(), true, defaultValue);
}

bool Registry::GetType(const SWCharString& name, unsigned long& type)
{
    RegKeyHandle h = OpenForRead();
    if (!h)
        return false;
    uint32_t t = 0, size = 0;
    if (os::regQueryValue(h, name.data(), &t, 0, &size) != os::RegOk)
        return false;
    type = t;
    return true;
}

bool Registry::ReadValueRaw(const SWCharString& name, unsigned long& type, unsigned char* data,
                            uint32_t& size)
{
    RegKeyHandle h = OpenForRead();
    if (!h)
        return false;
    uint32_t t = 0;
    int32_t rc = os::regQueryValue(h, name.data(), &t, data, &size);
    if (rc == os::RegOk || rc == os::RegMoreData)
        type = t;
    return rc == os::RegOk && (data || size == 0);
}

bool Registry::ReadValueRaw(const SWCharString& name, unsigned long& type, SSimpleBuffer& data)
{
    data.clear();
    RegKeyHandle h = OpenForRead();
    if (!h)
        return false;
    uint32_t t = 0;
    std::vector<unsigned char> bytes;
    if (regvalue::readRaw(h, name.data(), t, bytes) != os::RegOk)
        return false;
    type = t;
    data.append(bytes.data(), bytes.size());
    return true;
}

bool Registry::writeRaw(unsigned long type, const SWCharString& name, const unsigned char* data,
                        uint32_t size)
{
    if (!m_hRoot) {
        REG_REPORT("RegCreateKeyEx", m_subKey, os::RegInvalidHandle);
        return false;
    }
    os::RegKey h;
    if (!createReported(h, m_hRoot, m_subKey))
        return false;
    int32_t rc = os::regSetValue(h.get(), name.data(), static_cast<uint32_t>(type), data, size);
    if (rc != os::RegOk) {
        REG_REPORT("RegSetValueEx", m_subKey, rc);
        return false;
    }
    return true;
}

bool Registry::WriteValue(const SWCharString& name, const SWCharString& value)
{
    std::vector<unsigned char> bytes;
    bytesFromText(value, bytes);
    return writeRaw(RegTypeString, name, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool Registry::WriteValue(const SWCharString& name, unsigned long value)
{
    uint32_t v = static_cast<uint32_t>(value);
    unsigned char bytes[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                              static_cast<unsigned char>(v >> 16),
                              static_cast<unsigned char>(v >> 24)};
    return writeRaw(RegTypeDword, name, bytes, 4);
}

bool Registry::WriteValueRaw(const SWCharString& name, unsigned long type,
                             const unsigned char* data, uint32_t size)
{
    static const unsigned char none = 0;
    if (!data && size)
        return false;
    return writeRaw(type, name, data ? data : &none, size);
}

bool Registry::WriteValueToHandle(RegKeyHandle hKey, const SWCharString& name,
                                  const SWCharString& value)
{
    std::vector<unsigned char> bytes;
    bytesFromText(value, bytes);
    int32_t rc = os::regSetValue(hKey, name.data(), RegTypeString, bytes.data(),
                                 static_cast<uint32_t>(bytes.size()));
    if (rc != os::RegOk) {
        REG_REPORT("RegSetValueEx", m_subKey, rc);
        return false;
    }
    return true;
}

bool Registry::WriteValueToHandle(RegKeyHandle hKey, const SWCharString& name,
                                  unsigned long value)
{
    uint32_t v = static_cast<uint32_t>(value);
    unsigned char bytes[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                              static_cast<unsigned char>(v >> 16),
                              static_cast<unsigned char>(v >> 24)};
    int32_t rc = os::regSetValue(hKey, name.data(), RegTypeDword, bytes, 4);
    if (rc != os::RegOk) {
        REG_REPORT("RegSetValueEx", m_subKey, rc);
        return false;
    }
    return true;
}

bool Registry::DeleteValue(const SWCharString& name)
{
    if (!m_hRoot)
        return false;
    os::RegKey h;
    if (!openReported(h, m_hRoot, m_subKey, os::RegKeyWrite))
        return false;
    int32_t rc = os::regDeleteValue(h.get(), name.data());
    if (rc != os::RegOk && rc != os::RegFileNotFound)
        REG_REPORT("RegDeleteValue", m_subKey, rc);
    return rc == os::RegOk;
}

bool Registry::DeleteKey()
{
    if (!KeyExists())
        return false;
    SWCharString first;
    if (os::regEnumKey(m_hKey, 0, first) == os::RegOk) {
        if (ShouldAssert()) {
            SWCharString m = ascii("DeleteKey: There is subkey inside key ");
            m += m_subKey;
            SAssert(__FILE__, __LINE__, "numSubKeys == 0", m.data());
        }
        return false;
    }
    CloseHandle();
    return os::regDeleteKey(m_hRoot, m_subKey.data()) == os::RegOk;
}

// Deletes the sub-keys of root\path depth-first, then the key (or, when it stays, its
// values). A key that vanishes meanwhile counts as deleted.
bool Registry::deleteTree(RegKeyHandle root, const SWCharString& path, bool bDeleteThisKey)
{
    // A sub-key created by someone else while we delete makes the last step fail: go
    // round again a few times before giving up.
    for (int round = 0; round < 4; ++round) {
        std::vector<SWCharString> names;
        {
            os::RegKey h;
            int32_t rc = h.open(root, path.data(), os::RegKeyRead | os::RegKeySetValue);
            if (rc != os::RegOk)
                return rc == os::RegFileNotFound && round > 0;
            for (uint32_t i = 0;; ++i) {
                SWCharString name;
                rc = os::regEnumKey(h.get(), i, name);
                if (rc != os::RegOk)
                    break;
                names.push_back(name);
            }
            if (rc != os::RegNoMoreItems)
                return false;
            if (!bDeleteThisKey && names.empty()) {
                // Empty the key of its values, last first so indexes stay valid.
                std::vector<SWCharString> values;
                for (uint32_t i = 0;; ++i) {
                    SWCharString name;
                    uint32_t size = 0;
                    rc = os::regEnumValue(h.get(), i, name, 0, 0, &size);
                    if (rc != os::RegOk && rc != os::RegMoreData)
                        break;
                    values.push_back(name);
                }
                if (rc != os::RegNoMoreItems)
                    return false;
                for (const SWCharString& v : values) {
                    rc = os::regDeleteValue(h.get(), v.data());
                    if (rc != os::RegOk && rc != os::RegFileNotFound)
                        return false;
                }
                return true;
            }
        }
        for (const SWCharString& name : names) {
            SWCharString child = joinPath(path, name);
            if (!deleteTree(root, child, true)) {
                // Gone already is fine; anything else is a failure.
                os::RegKey probe;
                if (probe.open(root, child.data(), os::RegKeyRead) == os::RegOk)
                    return false;
            }
        }
        if (!bDeleteThisKey)
            continue;   // next round empties the values
        int32_t rc = os::regDeleteKey(root, path.data());
        if (rc == os::RegOk || rc == os::RegFileNotFound)
            return true;
        if (rc != os::RegAccessDenied)
            return false;
    }
    return false;
}

bool Registry::DeleteKeyRecursive(bool bDeleteThisKey)
{
    CloseHandle();
    if (!m_hRoot)
        return false;
    if (os::RegKey().open(m_hRoot, m_subKey.data(), os::RegKeyRead) != os::RegOk)
        return false;
    if (!deleteTree(m_hRoot, m_subKey, bDeleteThisKey)) {
        VARDO_ASSERT_TEXT("DeleteKeyRecursive: Could not delete subkey recursively");
        return false;
    }
    return true;
}

Registry::KeyIterator Registry::EnumSubKeys()
{
    if (!m_hRoot)
        return KeyIterator();
    os::RegKey h;
    if (!openReported(h, m_hRoot, m_subKey, os::RegKeyEnumerateSubKeys))
        return KeyIterator();
    return KeyIterator(h.release());
}

Registry::ValueIterator Registry::EnumValues()
{
    if (!m_hRoot)
        return ValueIterator();
    os::RegKey h;
    if (!openReported(h, m_hRoot, m_subKey, os::RegKeyQueryValue))
        return ValueIterator();
    return ValueIterator(h.release());
}

bool Registry::CopyKey(RegKeyHandle srcRoot, const SWCharString& srcPath, RegKeyHandle dstRoot,
                       const SWCharString& dstPath)
{
    TreeNode tree;
    int32_t rc = readTree(srcRoot, srcPath, tree, 0);
    if (rc != os::RegOk) {
        if (rc != os::RegFileNotFound)
            REG_REPORT("RegOpenKeyEx", srcPath, rc);
        return false;
    }
    return writeTree(dstRoot, dstPath, tree);
}

bool Registry::CopyValue(RegKeyHandle srcRoot, const SWCharString& srcPath,
                         const SWCharString& srcName, RegKeyHandle dstRoot,
                         const SWCharString& dstPath, const SWCharString& dstName)
{
    uint32_t type = 0;
    std::vector<unsigned char> data;
    {
        os::RegKey src;
        if (!openReported(src, srcRoot, srcPath, os::RegKeyRead))
            return false;
        if (regvalue::readRaw(src.get(), srcName.data(), type, data) != os::RegOk)
            return false;
    }
    os::RegKey dst;
    if (!createReported(dst, dstRoot, dstPath))
        return false;
    static const unsigned char none = 0;
    int32_t rc = os::regSetValue(dst.get(), dstName.data(), type, data.empty() ? &none : data.data(),
                         static_cast<uint32_t>(data.size()));
    if (rc != os::RegOk) {
        REG_REPORT("RegSetValueEx", dstPath, rc);
        return false;
    }
    return true;
}

void Registry::connectRemote()
{
    SWCharString machine = m_remoteMachine;
    if (machine.isEmpty() || static_cast<unsigned short>(machine.getAt(0)) != static_cast<unsigned short>(0x5C))
        machine = ascii("\\\\") + machine;
    RegKeyHandle h = 0;
    int32_t rc = os::regConnectRegistry(machine.data(), &h);
    if (rc != os::RegOk) {
        REG_REPORT("RegConnectRegistry", machine, rc);
        m_hRoot = 0;
        m_bOwnRoot = false;
        return;
    }
    m_hRoot = h;
    m_bOwnRoot = true;
}

void Registry::SetRemoteMachine(const SWCharString& machineName)
{
    CloseHandle();
    if (m_bOwnRoot)
        os::regCloseKey(m_hRoot);
    m_bOwnRoot = false;
    m_bRemote = true;
    m_remoteMachine = machineName;
    connectRemote();
}

// ---- CompanyRegistry ------------------------------------------------------------------------

SWCharString CompanyRegistry::GetHomePath() { return ascii(companyRegistryHome); }

static SWCharString companyPrefix(const SWCharString& key)
{
    SWCharString p = CompanyRegistry::GetHomePath();
    if (!key.isEmpty())
        p += SWCharString::Char(static_cast<unsigned short>('\\'));
    return p;
}

CompanyRegistry::CompanyRegistry(const SWCharString& key, bool bCreate)
    : Registry(key, companyPrefix(key), companyRegistryHandle, bCreate)
{
}

// ---- SRegistryStore -------------------------------------------------------------------------

SWCharString SRegistryStore::GetPath() { return os::regStorePath(RegLocalMachine); }

SRegistryStore::Status SRegistryStore::Check(SWCharString* detail)
{
    return CheckRoot(RegLocalMachine, detail);
}

SWCharString SRegistryStore::GetRootPath(RegKeyHandle root) { return os::regStorePath(root); }

SRegistryStore::Status SRegistryStore::CheckRoot(RegKeyHandle root, SWCharString* detail)
{
    SWCharString d;
    Status s = os::regStoreCheck(root, &d);
    if (detail)
        *detail = d;
    return s;
}

} // namespace Vardo400
