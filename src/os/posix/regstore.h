// The Linux registry store: SQLite files shared by every process that names the same
// folder: the machine store for every root but HKEY_CURRENT_USER, and one store per user
// for HKEY_CURRENT_USER (see iface/vardo/registry.h for where they live). Internal to the
// posix registry files.
//
// Layout (user_version 1):
//   keys(id, parent, name, fold)   unique (parent, fold); the predefined roots are rows
//                                  1 (HKEY_CLASSES_ROOT), 2 (HKEY_CURRENT_USER),
//                                  3 (HKEY_LOCAL_MACHINE), 4 (HKEY_USERS),
//                                  6 (HKEY_CURRENT_CONFIG) with parent 0
//   vals(id, key, name, fold, type, data)   unique (key, fold); data is the exact bytes
// name keeps the case it was created with; fold is the upper-cased name that lookups
// compare. Both are UTF-8 (a lone surrogate is kept as its 3-byte form). Ids are never
// reused, so a handle to a deleted key stays deleted even when the name comes back.
//
// Every change is one transaction: single statements in autocommit, multi-step changes
// inside BEGIN IMMEDIATE. The database runs in WAL mode with synchronous=NORMAL and waits
// up to BusyTimeoutMs for another process's lock.
#ifndef VARDO_OS_POSIX_REGSTORE_H
#define VARDO_OS_POSIX_REGSTORE_H

#include "vardo/registry.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Vardo400 {
namespace os {

const int BusyTimeoutMs = 30000;

// One path component: as given, and upper-cased for comparison.
struct RegName {
    std::string name;
    std::string fold;
};

// UTF-16 to UTF-8 (optionally upper-cased with the store's fold table).
void regUtf16ToUtf8(const unsigned short* s, size_t units, std::string& out, bool fold);
// UTF-8 (as the store writes it) back to UTF-16; invalid bytes become U+FFFD.
SWCharString regUtf8ToUtf16(const char* s, size_t bytes);
// The same into out, reusing the room out has when it is its only owner.
void regAssignUtf8(const char* s, size_t bytes, SWCharString& out);
// The store's case fold of one UTF-16 unit.
unsigned short regFoldUnit(unsigned short c);

// A batch of a listing, as enumerations fetch them: sub-key names with the folded name of
// the last one (where the next batch starts), or values with their data in one block.
struct RegKeyBatch {
    std::vector<std::string> names;
    std::string lastFold;
    size_t size() const { return names.size(); }
};
struct RegValueBatch {
    // Names and data both live in bytes, so that a batch's entries cost no allocations
    // of their own.
    struct Value {
        int64_t id;
        size_t nameOffset;   // of its UTF-8 name in bytes
        uint32_t nameSize;
        uint32_t type;
        size_t offset;   // of its data in bytes
        uint32_t size;
    };
    std::vector<Value> values;
    std::vector<unsigned char> bytes;
    size_t size() const { return values.size(); }
};

class RegStore {
public:
    // user: a per-user store (folder 0700, file 0600, both owned by the effective user).
    RegStore(const std::string& file, bool user);
    ~RegStore();
    RegStore(const RegStore&) = delete;
    RegStore& operator=(const RegStore&) = delete;

    const std::string& file() const { return m_file; }

    // Whether writes are refused (file without write permission, or unwritable).
    bool readOnly();

    // Walks names below key from; id receives the key found.
    int32_t findPath(int64_t from, const std::vector<RegName>& path, int64_t& id);
    // As findPath, creating what is missing.
    int32_t createPath(int64_t from, const std::vector<RegName>& path, int64_t& id);

    int32_t getValue(int64_t key, const std::string& fold, uint32_t* type, unsigned char* data,
                     uint32_t* size);
    int32_t setValue(int64_t key, const RegName& name, uint32_t type, const unsigned char* data,
                     uint32_t size);
    int32_t deleteValue(int64_t key, const std::string& fold);
    // Deletes the key at path below from (from itself for an empty path): refused with
    // RegAccessDenied when it has sub-keys or is a predefined root.
    int32_t deleteKey(int64_t from, const std::vector<RegName>& path);
    // Up to limit sub-keys of key in the order of their folded names: those after
    // *afterFold, or (afterFold null) from position offset on. An empty result is RegOk
    // while the key exists, RegKeyDeleted once it is gone.
    int32_t listKeys(int64_t key, const std::string* afterFold, uint32_t offset, uint32_t limit,
                     RegKeyBatch& out);
    // As listKeys for values in creation order (after the value row afterId when it is
    // not 0); stops early once the data passes maxBytes (one value at least).
    int32_t listValues(int64_t key, int64_t afterId, uint32_t offset, uint32_t limit,
                       size_t maxBytes, RegValueBatch& out);

private:
    enum State { Closed, Open, Missing, Damaged };
    // Opens the database if it is not open yet. RegOk; RegFileNotFound when there is no
    // file and none can be made (the store then reads as empty); RegBadDb when damaged.
    int32_t openLocked();
    void closeLocked();
    int32_t fail(int rc);
    int32_t usable(bool write);
    int stepRetry(sqlite3_stmt* st);
    int execRetry(const char* sql);
    int32_t begin();
    int32_t commit();
    void rollback();
    int32_t aliveLocked(int64_t id);
    int32_t walk(int64_t from, const std::vector<RegName>& path, int64_t& id, bool create);
    template <class Bind, class Row>
    int32_t listRows(int64_t key, sqlite3_stmt* st, Bind bind, Row row);
    // A user's store: makes its folders (0700) and an empty file (0600) where missing,
    // and checks that the folder is a real one of this user. RegOk, RegFileNotFound when
    // no folder can be named, RegAccessDenied otherwise.
    int32_t createFile();

    std::mutex m_mutex;
    std::string m_file;
    bool m_bUser;
    sqlite3* m_db;
    State m_state;
    bool m_bReadOnly;
    sqlite3_stmt* m_findKey;
    sqlite3_stmt* m_insertKey;
    sqlite3_stmt* m_keyAlive;
    sqlite3_stmt* m_getValue;
    sqlite3_stmt* m_setValue;
    sqlite3_stmt* m_deleteValue;
    sqlite3_stmt* m_hasChild;
    sqlite3_stmt* m_deleteKey;
    sqlite3_stmt* m_deleteKeyValues;
    sqlite3_stmt* m_keysFrom;
    sqlite3_stmt* m_keysAfter;
    sqlite3_stmt* m_valuesFrom;
    sqlite3_stmt* m_valuesAfter;
    unsigned m_generation;   // fork generation that opened the store
};

// Copies a value's type and bytes out Win32 style (see regQueryValue).
int32_t regCopyValueOut(uint32_t valueType, const unsigned char* bytes, uint32_t n,
                        uint32_t* type, unsigned char* data, uint32_t* size);

// The store that serves the predefined root with store row rootId (2 is
// HKEY_CURRENT_USER: the user's own store), for the folders the environment names now;
// shared by every caller in the process.
std::shared_ptr<RegStore> regCurrentStore(int64_t rootId);
// The machine store's folder and its registry.db path as the environment names them now
// ("" when no folder can be found); regUserStoreFile is the per-user store's registry.db.
std::string regStoreFolder();
std::string regStoreFile();
std::string regUserStoreFile();

} // namespace os
} // namespace Vardo400

#endif
