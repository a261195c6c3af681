// Registry calls over the Linux store: handle table, path parsing, name folding,
// environment expansion and the stand-in for remote connections.
#include "os/os_registry.h"
#include "os/os_env.h"
#include "os/posix/regstore.h"
#include "sstring_fill.h"
#include "utfcore.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <unordered_map>
#include <memory>
#include <mutex>

#include <unistd.h>

namespace Vardo400 {
namespace os {

// ---- text ----------------------------------------------------------------------------------

unsigned short regFoldUnit(unsigned short c)
{
    if (c < 0x80)
        return (c >= 'a' && c <= 'z') ? static_cast<unsigned short>(c - 32) : c;
    if (c < 0x100) {
        if (c >= 0xE0 && c <= 0xFE && c != 0xF7)
            return static_cast<unsigned short>(c - 32);
        if (c == 0xFF)
            return 0x178;
        if (c == 0xB5)
            return 0x39C;
        return c;
    }
    if (c <= 0x17F) {   // Latin Extended-A: case pairs
        if ((c <= 0x12F) || (c >= 0x132 && c <= 0x137) || (c >= 0x14A && c <= 0x177))
            return static_cast<unsigned short>(c & ~1u);
        if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E))
            return (c & 1) ? c : static_cast<unsigned short>(c - 1);
        return c;
    }
    if (c >= 0x370 && c <= 0x3FF) {   // Greek
        if (c >= 0x3B1 && c <= 0x3CB && c != 0x3C2)
            return static_cast<unsigned short>(c - 0x20);
        if (c == 0x3C2)
            return 0x3A3;
        if (c == 0x3AC)
            return 0x386;
        if (c >= 0x3AD && c <= 0x3AF)
            return static_cast<unsigned short>(c - 0x25);
        if (c == 0x3CC)
            return 0x38C;
        if (c == 0x3CD || c == 0x3CE)
            return static_cast<unsigned short>(c - 0x3F);
        return c;
    }
    if (c >= 0x400 && c <= 0x52F) {   // Cyrillic and its supplement
        if (c >= 0x430 && c <= 0x44F)
            return static_cast<unsigned short>(c - 0x20);
        if (c >= 0x450 && c <= 0x45F)
            return static_cast<unsigned short>(c - 0x50);
        if ((c >= 0x460 && c <= 0x481) || (c >= 0x48A && c <= 0x4BF) || (c >= 0x4D0 && c <= 0x52F))
            return static_cast<unsigned short>(c & ~1u);
        if (c >= 0x4C1 && c <= 0x4CE)
            return (c & 1) ? c : static_cast<unsigned short>(c - 1);
        if (c == 0x4CF)
            return 0x4C0;
        return c;
    }
    if (c >= 0x561 && c <= 0x586)   // Armenian
        return static_cast<unsigned short>(c - 0x30);
    if ((c >= 0x1E00 && c <= 0x1E95) || (c >= 0x1EA0 && c <= 0x1EFF))   // Latin Extended Additional
        return static_cast<unsigned short>(c & ~1u);
    if (c >= 0xFF41 && c <= 0xFF5A)   // fullwidth Latin
        return static_cast<unsigned short>(c - 0x20);
    return c;
}

void regUtf16ToUtf8(const unsigned short* s, size_t units, std::string& out, bool fold)
{
    // Lone surrogates are written as three bytes, so every name comes back exactly.
    if (!fold) {
        utf::utf16ToUtf8(s, units, out, utf::Policy::lenient);
        return;
    }
    // Folding never makes or breaks a surrogate pair, so it can come first.
    std::vector<unsigned short> folded(s, s + units);
    for (unsigned short& c : folded)
        c = regFoldUnit(c);
    utf::utf16ToUtf8(folded.data(), units, out, utf::Policy::lenient);
}

void regAssignUtf8(const char* s, size_t bytes, SWCharString& out)
{
    // One unit a byte at the most, written straight into the room out already has, so a
    // listing allocates once per iterator rather than once per entry.
    sstringfill::fillReusing(out, bytes, [&](unsigned short* d) {
        return utf::utf8ToUtf16(reinterpret_cast<const unsigned char*>(s), bytes, d, bytes,
                                utf::Policy::replace);
    });
}

SWCharString regUtf8ToUtf16(const char* s, size_t bytes)
{
    SWCharString r;
    regAssignUtf8(s, bytes, r);
    return r;
}

namespace {

const unsigned short NoText[1] = {0};

size_t unitLength(const unsigned short* s)
{
    size_t n = 0;
    if (s)
        while (s[n])
            ++n;
    return n;
}

// Splits a sub-key path into folded components. One trailing backslash is allowed; a
// leading one or an empty component inside is a bad path.
int32_t splitPath(const unsigned short* subKey, std::vector<RegName>& out)
{
    out.clear();
    size_t n = unitLength(subKey);
    if (n == 0)
        return RegOk;
    if (subKey[0] == '\\')
        return RegBadPathName;
    if (subKey[n - 1] == '\\')
        --n;
    size_t start = 0;
    while (start <= n) {
        size_t end = start;
        while (end < n && subKey[end] != '\\')
            ++end;
        size_t len = end - start;
        if (len == 0)
            return RegBadPathName;
        if (len > RegMaxKeyName)
            return RegInvalidParameter;
        RegName c;
        regUtf16ToUtf8(subKey + start, len, c.name, false);
        regUtf16ToUtf8(subKey + start, len, c.fold, true);
        out.push_back(std::move(c));
        if (out.size() > 512)
            return RegInvalidParameter;
        start = end + 1;
    }
    return RegOk;
}

// The batch of a listing that a handle holds: entries first .. first + size - 1.
template <class Batch>
struct Listing {
    Batch batch;
    uint32_t first = 0;
    uint32_t limit = 0;   // size asked for the batch in hand
    bool valid = false;
};

// The first batch is small, so that asking for index 0 again and again stays cheap; each
// further batch of the same enumeration doubles, up to MaxBatch entries.
const uint32_t FirstBatch = 16;
const uint32_t MaxBatch = 1024;
// A batch of values stops once their data passes this many bytes.
const size_t MaxBatchBytes = 1u << 20;

// An open key: its store, its row, the access it was opened with, and its listings.
struct PosixKey {
    std::shared_ptr<RegStore> store;
    int64_t id;
    uint32_t access;
    Listing<RegKeyBatch> keys;
    Listing<RegValueBatch> values;
};

struct HandleTable {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::unique_ptr<PosixKey>> keys;
    bool alive = true;
    // Counts the handles closed so far (bumped under the mutex), so that a thread's memo
    // of the handle it looked up last is known stale once any handle has gone.
    std::atomic<uint64_t> closed{0};
    ~HandleTable()
    {
        alive = false;
        closed.fetch_add(1);
    }
};

// The handle this thread looked up last. A listing asks for the same handle once per
// entry; the memo spares those calls the table's lock and lookup. It is valid while no
// handle has been closed since, and a handle is used by one thread at a time, so the
// key it names cannot go while it is in use.
struct HandleMemo {
    RegKeyHandle handle = 0;
    PosixKey* key = 0;
    uint64_t closed = 0;
};
thread_local HandleMemo t_handleMemo;

HandleTable& handles()
{
    static HandleTable table;
    return table;
}

int64_t rootId(RegKeyHandle h)
{
    intptr_t v = reinterpret_cast<intptr_t>(h);
    switch (static_cast<uint32_t>(v)) {
    case 0x80000000u: return 1;
    case 0x80000001u: return 2;
    case 0x80000002u: return 3;
    case 0x80000003u: return 4;
    case 0x80000005u: return 6;
    default: return 0;
    }
}

// What a call works on: the store and row behind a handle, and the open key itself (null
// for a predefined root, which has no listings of its own).
struct Target {
    // An open key's handle keeps its store alive for the call (a handle is used by one
    // thread at a time), so only a predefined root's store is held here.
    std::shared_ptr<RegStore> held;
    RegStore* store = 0;
    int64_t id = 0;
    uint32_t access = 0;
    PosixKey* key = 0;
    const std::shared_ptr<RegStore>& shared() const { return key ? key->store : held; }
};

// Resolves a handle and checks that it was opened with every right in need.
int32_t resolve(RegKeyHandle h, uint32_t need, Target& t)
{
    if (regIsPredefined(h)) {
        t.id = rootId(h);
        if (!t.id)
            return RegInvalidHandle;
        t.held = regCurrentStore(t.id);
        t.store = t.held.get();
        t.access = RegKeyAllAccess;
    } else {
        HandleTable& table = handles();
        HandleMemo& memo = t_handleMemo;
        if (h && h == memo.handle && table.closed.load(std::memory_order_acquire) == memo.closed) {
            t.key = memo.key;
        } else {
            std::lock_guard<std::mutex> lock(table.mutex);
            if (!table.alive || !h)
                return RegInvalidHandle;
            auto it = table.keys.find(reinterpret_cast<uintptr_t>(h));
            if (it == table.keys.end())
                return RegInvalidHandle;
            t.key = it->second.get();
            memo.handle = h;
            memo.key = t.key;
            memo.closed = table.closed.load(std::memory_order_relaxed);
        }
        t.store = t.key->store.get();
        t.id = t.key->id;
        t.access = t.key->access;
    }
    return (t.access & need) == need ? RegOk : RegAccessDenied;
}

// Resolves parent and splits the sub-key path below it.
int32_t resolvePath(RegKeyHandle parent, const unsigned short* subKey, Target& t,
                    std::vector<RegName>& path)
{
    int32_t r = resolve(parent, 0, t);
    return r == RegOk ? splitPath(subKey, path) : r;
}

RegKeyHandle addHandle(const std::shared_ptr<RegStore>& store, int64_t id, uint32_t access)
{
    std::unique_ptr<PosixKey> k(new PosixKey{store, id, access, {}, {}});
    RegKeyHandle h = reinterpret_cast<RegKeyHandle>(k.get());
    HandleTable& t = handles();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (!t.alive)
        return 0;
    t.keys[reinterpret_cast<uintptr_t>(h)] = std::move(k);
    return h;
}

const uint32_t WriteRights = RegKeySetValue | RegKeyCreateSubKey | 0x00010000 /* DELETE */ |
                             0x00040000 /* WRITE_DAC */ | 0x00080000 /* WRITE_OWNER */;

int32_t openOrCreate(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                     RegKeyHandle* result, bool create)
{
    if (!result)
        return RegInvalidParameter;
    *result = 0;
    Target t;
    std::vector<RegName> path;
    int32_t r = resolvePath(parent, subKey, t, path);
    if (r != RegOk)
        return r;
    if (create && !path.empty() && !(t.access & RegKeyCreateSubKey))
        return RegAccessDenied;
    if ((access & WriteRights) && t.store->readOnly())
        return RegAccessDenied;
    int64_t id = 0;
    r = create ? t.store->createPath(t.id, path, id) : t.store->findPath(t.id, path, id);
    if (r != RegOk)
        return r;
    RegKeyHandle h = addHandle(t.shared(), id, access);
    if (!h)
        return RegInvalidHandle;
    *result = h;
    return RegOk;
}

std::string valueFold(const unsigned short* name, size_t n)
{
    std::string fold;
    regUtf16ToUtf8(name, n, fold, true);
    return fold;
}

// Positions a listing on index, by the rule of os_registry.h, and gives the entry's
// place in its batch. fetch(next, offset, limit, batch) reads a batch into batch: the one
// after the batch it holds when next is true, else from position offset. A predefined
// root has no handle of its own to keep batches in: it reads one entry at a time.
template <class Batch, class Fetch>
int32_t listed(Listing<Batch>* own, uint32_t index, Fetch fetch, Listing<Batch>& scratch,
               size_t& at)
{
    Listing<Batch>& l = own ? *own : scratch;
    size_t end = l.first + l.batch.size();
    bool next = l.valid && index == end && l.batch.size() != 0;
    if (index == 0 || !l.valid || index < l.first || (index >= end && !next)) {
        l.valid = false;
        l.limit = own ? FirstBatch : 1;
        int32_t r = fetch(false, index, l.limit, l.batch);
        if (r != RegOk)
            return r;
        l.first = index;
        l.valid = true;
    } else if (next) {
        // Past the batch in hand: the next one starts after its last entry.
        l.valid = false;
        l.limit = l.limit * 2 < MaxBatch ? l.limit * 2 : MaxBatch;
        int32_t r = fetch(true, 0, l.limit, l.batch);
        if (r != RegOk)
            return r;
        l.first = index;
        l.valid = true;
    }
    at = index - l.first;
    return at < l.batch.size() ? RegOk : RegNoMoreItems;
}

} // namespace

// ---- the calls -----------------------------------------------------------------------------

bool regIsPredefined(RegKeyHandle h)
{
    uint32_t v = static_cast<uint32_t>(reinterpret_cast<intptr_t>(h));
    intptr_t full = reinterpret_cast<intptr_t>(h);
    return v >= 0x80000000u && v <= 0x80000006u &&
           full == static_cast<intptr_t>(static_cast<int32_t>(v));
}

int32_t regOpenKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                   RegKeyHandle* result)
{
    return openOrCreate(parent, subKey, access, result, false);
}

int32_t regCreateKey(RegKeyHandle parent, const unsigned short* subKey, uint32_t access,
                     RegKeyHandle* result)
{
    return openOrCreate(parent, subKey, access, result, true);
}

int32_t regCloseKey(RegKeyHandle key)
{
    if (!key || regIsPredefined(key))
        return RegOk;
    std::unique_ptr<PosixKey> doomed;
    HandleTable& t = handles();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (!t.alive)
        return RegOk;
    auto it = t.keys.find(reinterpret_cast<uintptr_t>(key));
    if (it == t.keys.end())
        return RegInvalidHandle;
    doomed = std::move(it->second);
    t.keys.erase(it);
    t.closed.fetch_add(1, std::memory_order_release);
    return RegOk;
}

int32_t regQueryValue(RegKeyHandle key, const unsigned short* name, uint32_t* type,
                      unsigned char* data, uint32_t* size)
{
    Target t;
    int32_t r = resolve(key, RegKeyQueryValue, t);
    if (r != RegOk)
        return r;
    if (data && !size)
        return RegInvalidParameter;
    size_t n = unitLength(name);
    if (n > RegMaxValueName)
        return RegFileNotFound;
    return t.store->getValue(t.id, valueFold(name, n), type, data, size);
}

int32_t regSetValue(RegKeyHandle key, const unsigned short* name, uint32_t type,
                    const unsigned char* data, uint32_t size)
{
    Target t;
    int32_t r = resolve(key, RegKeySetValue, t);
    if (r != RegOk)
        return r;
    if (!data && size)
        return RegInvalidParameter;
    if (size > 0x7FFFFFFFu)
        return RegInvalidParameter;
    size_t n = unitLength(name);
    if (n > RegMaxValueName)
        return RegInvalidParameter;
    RegName v;
    regUtf16ToUtf8(name ? name : NoText, n, v.name, false);
    regUtf16ToUtf8(name ? name : NoText, n, v.fold, true);
    return t.store->setValue(t.id, v, type, data, size);
}

int32_t regDeleteValue(RegKeyHandle key, const unsigned short* name)
{
    Target t;
    int32_t r = resolve(key, RegKeySetValue, t);
    if (r != RegOk)
        return r;
    size_t n = unitLength(name);
    if (n > RegMaxValueName)
        return RegFileNotFound;
    return t.store->deleteValue(t.id, valueFold(name, n));
}

int32_t regDeleteKey(RegKeyHandle parent, const unsigned short* subKey)
{
    Target t;
    std::vector<RegName> path;
    int32_t r = resolvePath(parent, subKey, t, path);
    return r == RegOk ? t.store->deleteKey(t.id, path) : r;
}

int32_t regEnumKey(RegKeyHandle key, uint32_t index, SWCharString& name)
{
    Target t;
    int32_t r = resolve(key, RegKeyEnumerateSubKeys, t);
    if (r != RegOk)
        return r;
    Listing<RegKeyBatch> scratch;
    size_t at = 0;
    r = listed(t.key ? &t.key->keys : 0, index,
               [&](bool next, uint32_t offset, uint32_t limit, RegKeyBatch& batch) {
                   if (!next)
                       return t.store->listKeys(t.id, 0, offset, limit, batch);
                   std::string after = batch.lastFold;
                   return t.store->listKeys(t.id, &after, 0, limit, batch);
               },
               scratch, at);
    const RegKeyBatch& batch = t.key ? t.key->keys.batch : scratch.batch;
    if (r == RegOk) {
        const std::string& utf8 = batch.names[at];
        regAssignUtf8(utf8.data(), utf8.size(), name);
    }
    return r;
}

int32_t regEnumValue(RegKeyHandle key, uint32_t index, SWCharString& name, uint32_t* type,
                     unsigned char* data, uint32_t* size)
{
    Target t;
    int32_t r = resolve(key, RegKeyQueryValue, t);
    if (r != RegOk)
        return r;
    if (data && !size)
        return RegInvalidParameter;
    Listing<RegValueBatch> scratch;
    size_t at = 0;
    r = listed(t.key ? &t.key->values : 0, index,
               [&](bool next, uint32_t offset, uint32_t limit, RegValueBatch& batch) {
                   return t.store->listValues(t.id, next ? batch.values.back().id : 0, offset,
                                              limit, MaxBatchBytes, batch);
               },
               scratch, at);
    const RegValueBatch& batch = t.key ? t.key->values.batch : scratch.batch;
    const RegValueBatch::Value* entry = r == RegOk ? &batch.values[at] : 0;
    if (r == RegOk)
        r = regCopyValueOut(entry->type, batch.bytes.data() + entry->offset, entry->size, type,
                            data, size);
    if (r == RegOk || r == RegMoreData) {
        regAssignUtf8(reinterpret_cast<const char*>(batch.bytes.data() + entry->nameOffset),
                      entry->nameSize, name);
    }
    return r;
}

int32_t regConnectRegistry(const unsigned short* machine, RegKeyHandle* result)
{
    if (!result)
        return RegInvalidParameter;
    *result = 0;
    // There is no remote store: only names of this machine connect, to the local store.
    std::string name;
    size_t n = unitLength(machine);
    regUtf16ToUtf8(machine ? machine : NoText, n, name, true);
    size_t skip = 0;
    while (skip < name.size() && name[skip] == '\\')
        ++skip;
    name.erase(0, skip);
    bool local = name.empty() || name == "." || name == "LOCALHOST" || name == "127.0.0.1";
    if (!local) {
        char host[256] = {0};
        if (::gethostname(host, sizeof host - 1) == 0) {
            std::string h;
            std::vector<unsigned short> wide;
            for (const char* p = host; *p; ++p)
                wide.push_back(static_cast<unsigned char>(*p));
            regUtf16ToUtf8(wide.data(), wide.size(), h, true);
            std::string shortName = h.substr(0, h.find('.'));
            local = name == h || name == shortName;
        }
    }
    if (!local)
        return RegBadNetPath;
    std::shared_ptr<RegStore> store = regCurrentStore(rootId(RegLocalMachine));
    RegKeyHandle h = addHandle(store, rootId(RegLocalMachine), RegKeyAllAccess);
    if (!h)
        return RegInvalidHandle;
    *result = h;
    return RegOk;
}

uint32_t regExpandEnvironmentStrings(const unsigned short* src, unsigned short* dst, uint32_t size)
{
    if (!src)
        return 0;
    std::vector<unsigned short> out;
    size_t n = unitLength(src);
    size_t i = 0;
    while (i < n) {
        if (src[i] == '%') {
            size_t j = i + 1;
            while (j < n && src[j] != '%')
                ++j;
            if (j < n && j > i + 1) {
                std::vector<unsigned short> nameUnits(src + i + 1, src + j);
                nameUnits.push_back(0);
                SWCharString value;
                if (envGet(SWCharString(nameUnits.data()), value)) {
                    out.insert(out.end(), value.data(), value.data() + value.getLength());
                    i = j + 1;
                    continue;
                }
                // Unknown names stay as written, percent signs included; the closing
                // sign may open the next reference.
                out.insert(out.end(), src + i, src + j);
                i = j;
                continue;
            }
        }
        out.push_back(src[i]);
        ++i;
    }
    uint32_t needed = static_cast<uint32_t>(out.size() + 1);
    if (dst && needed <= size) {
        if (!out.empty())
            std::memcpy(dst, out.data(), out.size() * sizeof(unsigned short));
        dst[out.size()] = 0;
    }
    return needed;
}

void regMakeNonInheritable(RegKeyHandle)
{
    // Handles are table entries, not descriptors; SQLite opens its files with O_CLOEXEC.
}

SWCharString regStorePath(RegKeyHandle root)
{
    std::string f = root == RegCurrentUser ? regUserStoreFile() : regStoreFile();
    return regUtf8ToUtf16(f.data(), f.size());
}

} // namespace os
} // namespace Vardo400
