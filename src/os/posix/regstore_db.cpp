// The Linux registry store in SQLite: opening and repairing state, the statements, and
// the mapping of SQLite's answers onto Win32 error numbers.
#include "os/posix/regstore.h"
#include "os/os_registry.h"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

#include <pthread.h>
#include <pwd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vardo400 {
namespace os {

namespace {

// Bumped in the child after fork: a child must neither use nor close its parent's
// connections (closing could checkpoint and truncate the log under the parent).
std::atomic<unsigned> g_forkGeneration(0);

void onForkChild() { g_forkGeneration.fetch_add(1); }

const char* const SchemaSql =
    "CREATE TABLE IF NOT EXISTS keys("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER NOT NULL,"
    " name TEXT NOT NULL,"
    " fold TEXT NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS keys_by_name ON keys(parent, fold);"
    "CREATE TABLE IF NOT EXISTS vals("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " key INTEGER NOT NULL,"
    " name TEXT NOT NULL,"
    " fold TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " data BLOB NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS vals_by_name ON vals(key, fold);"
    "CREATE INDEX IF NOT EXISTS vals_by_key ON vals(key, id);"
    "INSERT OR IGNORE INTO keys(id, parent, name, fold) VALUES"
    " (1, 0, 'HKEY_CLASSES_ROOT', 'HKEY_CLASSES_ROOT'),"
    " (2, 0, 'HKEY_CURRENT_USER', 'HKEY_CURRENT_USER'),"
    " (3, 0, 'HKEY_LOCAL_MACHINE', 'HKEY_LOCAL_MACHINE'),"
    " (4, 0, 'HKEY_USERS', 'HKEY_USERS'),"
    " (6, 0, 'HKEY_CURRENT_CONFIG', 'HKEY_CURRENT_CONFIG');"
    "PRAGMA user_version = 1;";

const int SchemaVersion = 1;
// Ids up to this one are the predefined roots: never deleted.
const int64_t LastRootId = 6;

bool isBusy(int rc)
{
    int primary = rc & 0xFF;
    return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

std::chrono::steady_clock::time_point deadline()
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(BusyTimeoutMs);
}

void makeDirectories(const std::string& dir, mode_t mode)
{
    if (dir.empty())
        return;
    struct stat st;
    if (::stat(dir.c_str(), &st) == 0)
        return;
    std::string::size_type slash = dir.find_last_of('/');
    if (slash != std::string::npos && slash > 0)
        makeDirectories(dir.substr(0, slash), 0755);
    ::mkdir(dir.c_str(), mode);
}

std::string homeFolder()
{
    const char* home = std::getenv("HOME");
    if (home && *home)
        return home;
    struct passwd pw;
    struct passwd* result = 0;
    char buf[4096];
    if (::getpwuid_r(::getuid(), &pw, buf, sizeof buf, &result) == 0 && result && result->pw_dir)
        return result->pw_dir;
    return std::string();
}

} // namespace

// ---- store location ---------------------------------------------------------------------------

static const char* const SystemFolder = "/var/lib/vardow";

namespace {

// The folder NEBU_REGISTRYHOME names, without trailing slashes ("" when unset or empty).
std::string registryHome()
{
    const char* env = std::getenv("NEBU_REGISTRYHOME");
    std::string f = env ? env : "";
    while (f.size() > 1 && f[f.size() - 1] == '/')
        f.erase(f.size() - 1);
    return f;
}

} // namespace

std::string regStoreFolder()
{
    std::string home = registryHome();
    if (!home.empty())
        return home;
    if (::access(SystemFolder, W_OK) == 0)
        return SystemFolder;
    struct stat st;
    if (::stat(SystemFolder, &st) != 0 && ::access("/var/lib", W_OK) == 0)
        return SystemFolder;
    home = homeFolder();
    if (home.empty())
        return std::string();
    if (home[home.size() - 1] != '/')
        home += '/';
    return home + ".vardow";
}

namespace {

std::string dbIn(std::string folder)
{
    if (folder.empty())
        return std::string();
    if (folder[folder.size() - 1] != '/')
        folder += '/';
    return folder + "registry.db";
}

// HKEY_CURRENT_USER's folder: "users/<euid>" below the registry home when the environment
// names one (tests and services keep everything there), else ".vardow/user" in the home.
std::string userStoreFolder()
{
    std::string f = registryHome();
    if (!f.empty()) {
        if (f[f.size() - 1] != '/')
            f += '/';
        return f + "users/" + std::to_string(static_cast<unsigned long>(::geteuid()));
    }
    std::string home = homeFolder();
    if (home.empty())
        return std::string();
    if (home[home.size() - 1] != '/')
        home += '/';
    return home + ".vardow/user";
}

} // namespace

std::string regStoreFile() { return dbIn(regStoreFolder()); }

std::string regUserStoreFile() { return dbIn(userStoreFolder()); }

namespace {

struct StoreTable {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<RegStore>> stores;
    unsigned generation = 0;
};

StoreTable& storeTable()
{
    static StoreTable table;
    return table;
}

} // namespace

std::shared_ptr<RegStore> regCurrentStore(int64_t rootId)
{
    static std::once_flag forkHook;
    std::call_once(forkHook, [] { ::pthread_atfork(0, 0, onForkChild); });
    const bool user = rootId == 2;
    std::string file = user ? regUserStoreFile() : regStoreFile();
    StoreTable& t = storeTable();
    std::lock_guard<std::mutex> lock(t.mutex);
    unsigned generation = g_forkGeneration.load();
    if (generation != t.generation) {
        // Inherited stores are left alone (their destructors skip closing, see below).
        t.stores.clear();
        t.generation = generation;
    }
    std::shared_ptr<RegStore>& s = t.stores[file];
    if (!s)
        s = std::make_shared<RegStore>(file, user);
    return s;
}

// ---- RegStore ---------------------------------------------------------------------------------

RegStore::RegStore(const std::string& file, bool user)
    : m_file(file), m_bUser(user), m_db(0), m_state(Closed), m_bReadOnly(false), m_findKey(0),
      m_insertKey(0), m_keyAlive(0), m_getValue(0), m_setValue(0), m_deleteValue(0),
      m_hasChild(0), m_deleteKey(0), m_deleteKeyValues(0), m_keysFrom(0), m_keysAfter(0),
      m_valuesFrom(0), m_valuesAfter(0), m_generation(g_forkGeneration.load())
{
}

RegStore::~RegStore()
{
    if (m_generation == g_forkGeneration.load())
        closeLocked();
}

void RegStore::closeLocked()
{
    sqlite3_stmt** all[] = {&m_findKey,   &m_insertKey,       &m_keyAlive,  &m_getValue,
                            &m_setValue,  &m_deleteValue,     &m_hasChild,  &m_deleteKey,
                            &m_deleteKeyValues, &m_keysFrom,  &m_keysAfter, &m_valuesFrom,
                            &m_valuesAfter};
    for (sqlite3_stmt** st : all) {
        sqlite3_finalize(*st);
        *st = 0;
    }
    if (m_db) {
        if (!sqlite3_get_autocommit(m_db))
            sqlite3_exec(m_db, "ROLLBACK", 0, 0, 0);
        sqlite3_close_v2(m_db);
        m_db = 0;
    }
    if (m_state == Open)
        m_state = Closed;
}

int RegStore::execRetry(const char* sql)
{
    std::chrono::steady_clock::time_point until = deadline();
    for (;;) {
        int rc = sqlite3_exec(m_db, sql, 0, 0, 0);
        if (!isBusy(rc) || std::chrono::steady_clock::now() > until)
            return rc;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int RegStore::stepRetry(sqlite3_stmt* st)
{
    std::chrono::steady_clock::time_point until;
    bool first = true;
    for (;;) {
        int rc = sqlite3_step(st);
        if (!isBusy(rc))
            return rc;
        sqlite3_reset(st);
        if (first) {
            until = deadline();
            first = false;
        }
        if (std::chrono::steady_clock::now() > until)
            return rc;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int32_t RegStore::fail(int rc)
{
    rollback();
    switch (rc & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
        closeLocked();
        m_state = Damaged;
        return RegBadDb;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return RegBusy;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
    case SQLITE_CANTOPEN:
        return RegAccessDenied;
    case SQLITE_NOMEM:
        return RegOutOfMemory;
    case SQLITE_TOOBIG:
        return RegInvalidParameter;
    default:
        return RegIoFailed;
    }
}

int32_t RegStore::openLocked()
{
    if (m_generation != g_forkGeneration.load(std::memory_order_relaxed))
        return RegInvalidHandle;
    if (m_state == Open)
        return RegOk;
    if (m_state == Damaged)
        return RegBadDb;
    if (m_file.empty()) {
        m_state = Missing;
        m_bReadOnly = true;
        return RegFileNotFound;
    }
    struct stat st;
    bool exists = ::stat(m_file.c_str(), &st) == 0;
    if (m_bUser) {
        // Makes what is missing and checks the folder, which only its user may enter.
        int32_t r = createFile();
        if (r == RegOk)
            exists = ::stat(m_file.c_str(), &st) == 0;
        // A user's store that belongs to someone else is never used: it could be read or
        // planted by them.
        if (r != RegOk || !exists || st.st_uid != ::geteuid()) {
            m_state = Missing;
            m_bReadOnly = true;
            return r == RegFileNotFound ? RegFileNotFound : RegAccessDenied;
        }
    }
    // A store file without any write permission bit is read-only for everyone (root too):
    // that is how an administrator freezes a store.
    bool frozen = exists && (st.st_mode & 0222) == 0;
    if (!exists) {
        std::string folder = m_file.substr(0, m_file.find_last_of('/'));
        const char* env = std::getenv("NEBU_REGISTRYHOME");
        makeDirectories(folder, (env && *env) || folder == SystemFolder ? 0755 : 0700);
    }
    int flags = (frozen ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                SQLITE_OPEN_NOMUTEX;
    int rc = sqlite3_open_v2(m_file.c_str(), &m_db, flags, 0);
    if (rc != SQLITE_OK) {
        sqlite3_close_v2(m_db);
        m_db = 0;
        if (exists && !frozen)
            rc = sqlite3_open_v2(m_file.c_str(), &m_db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, 0);
        if (rc != SQLITE_OK) {
            sqlite3_close_v2(m_db);
            m_db = 0;
            m_state = Missing;
            m_bReadOnly = true;
            return exists ? RegAccessDenied : RegFileNotFound;
        }
    }
    sqlite3_extended_result_codes(m_db, 1);
    sqlite3_busy_timeout(m_db, BusyTimeoutMs);
    m_bReadOnly = frozen || sqlite3_db_readonly(m_db, "main") == 1;

    if (!m_bReadOnly) {
        rc = execRetry("PRAGMA journal_mode=WAL");
        if (rc == SQLITE_OK)
            rc = execRetry("PRAGMA synchronous=NORMAL");
        if (rc != SQLITE_OK) {
            int32_t e = fail(rc);
            if (m_state != Damaged) {
                closeLocked();
                m_state = Closed;
            }
            return e;
        }
        int persist = 1;
        sqlite3_file_control(m_db, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    }

    // The schema version tells a new store from ours and from a foreign database.
    int version = -1;
    {
        sqlite3_stmt* st = 0;
        rc = sqlite3_prepare_v2(m_db, "PRAGMA user_version", -1, &st, 0);
        if (rc == SQLITE_OK) {
            rc = stepRetry(st);
            if (rc == SQLITE_ROW) {
                version = sqlite3_column_int(st, 0);
                rc = SQLITE_OK;
            }
        }
        sqlite3_finalize(st);
        if (rc != SQLITE_OK) {
            int32_t e = fail(rc);
            if (m_state != Damaged) {
                closeLocked();
                m_state = Closed;
            }
            return e;
        }
    }
    if (version == 0) {
        if (m_bReadOnly) {
            // An empty store nobody may write: reads find nothing.
            closeLocked();
            m_state = Missing;
            return RegFileNotFound;
        }
        rc = execRetry("BEGIN IMMEDIATE");
        if (rc == SQLITE_OK) {
            rc = execRetry(SchemaSql);
            if (rc == SQLITE_OK)
                rc = execRetry("COMMIT");
        }
        if (rc != SQLITE_OK) {
            int32_t e = fail(rc);
            if (m_state != Damaged) {
                closeLocked();
                m_state = Closed;
            }
            return e;
        }
        version = SchemaVersion;
    }
    if (version != SchemaVersion) {
        closeLocked();
        m_state = Damaged;
        return RegBadDb;
    }

    struct Prepared {
        sqlite3_stmt** st;
        const char* sql;
    } statements[] = {
        {&m_findKey, "SELECT id FROM keys WHERE parent=?1 AND fold=?2"},
        {&m_insertKey, "INSERT INTO keys(parent, name, fold) VALUES(?1, ?2, ?3)"},
        {&m_keyAlive, "SELECT 1 FROM keys WHERE id=?1"},
        {&m_getValue, "SELECT type, data FROM vals WHERE key=?1 AND fold=?2"},
        {&m_setValue,
         "INSERT INTO vals(key, name, fold, type, data) SELECT ?1, ?2, ?3, ?4, ?5"
         " WHERE EXISTS(SELECT 1 FROM keys WHERE id=?1)"
         " ON CONFLICT(key, fold) DO UPDATE SET type=excluded.type, data=excluded.data"},
        {&m_deleteValue, "DELETE FROM vals WHERE key=?1 AND fold=?2"},
        {&m_hasChild, "SELECT 1 FROM keys WHERE parent=?1 LIMIT 1"},
        {&m_deleteKey, "DELETE FROM keys WHERE id=?1"},
        {&m_deleteKeyValues, "DELETE FROM vals WHERE key=?1"},
        {&m_keysFrom, "SELECT name, fold FROM keys WHERE parent=?1 ORDER BY fold LIMIT ?2 OFFSET ?3"},
        {&m_keysAfter,
         "SELECT name, fold FROM keys WHERE parent=?1 AND fold>?2 ORDER BY fold LIMIT ?3"},
        {&m_valuesFrom,
         "SELECT id, name, type, data FROM vals WHERE key=?1 ORDER BY id LIMIT ?2 OFFSET ?3"},
        {&m_valuesAfter,
         "SELECT id, name, type, data FROM vals WHERE key=?1 AND id>?2 ORDER BY id LIMIT ?3"},
    };
    for (const Prepared& p : statements) {
        rc = sqlite3_prepare_v3(m_db, p.sql, -1, SQLITE_PREPARE_PERSISTENT, p.st, 0);
        if (rc != SQLITE_OK) {
            // Our version number on a database without our tables: not a store of ours.
            int primary = rc & 0xFF;
            closeLocked();
            if (primary == SQLITE_ERROR || primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB) {
                m_state = Damaged;
                return RegBadDb;
            }
            m_state = Closed;
            return primary == SQLITE_NOMEM ? RegOutOfMemory : RegIoFailed;
        }
    }
    m_state = Open;
    return RegOk;
}

bool RegStore::readOnly()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    openLocked();
    return m_bReadOnly;
}

int32_t RegStore::usable(bool write)
{
    int32_t r = openLocked();
    if (r == RegFileNotFound)
        return write ? RegAccessDenied : RegFileNotFound;
    if (r != RegOk)
        return r;
    if (write && m_bReadOnly)
        return RegAccessDenied;
    return RegOk;
}

int32_t RegStore::createFile()
{
    // The shared "users" folder is open to all with the sticky bit, as /tmp is, so that
    // each user can add a folder of their own and nobody can remove another's.
    if (m_file.empty())
        return RegFileNotFound;
    std::string folder = m_file.substr(0, m_file.find_last_of('/'));
    std::string parent = folder.substr(0, folder.find_last_of('/'));
    struct stat st;
    if (::stat(parent.c_str(), &st) != 0) {
        bool shared = !registryHome().empty();
        makeDirectories(parent.substr(0, parent.find_last_of('/')), shared ? 0755 : 0700);
        if (::mkdir(parent.c_str(), shared ? 0777 : 0700) == 0 && shared)
            ::chmod(parent.c_str(), 01777);
    }
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        return RegAccessDenied;
    if (::lstat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid())
        return RegAccessDenied;
    if ((st.st_mode & 077) != 0 && ::chmod(folder.c_str(), 0700) != 0)
        return RegAccessDenied;
    int fd = ::open(m_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return errno == EEXIST ? RegOk : RegAccessDenied;
    ::close(fd);
    return RegOk;
}

int32_t RegStore::begin()
{
    int rc = execRetry("BEGIN IMMEDIATE");
    return rc == SQLITE_OK ? RegOk : fail(rc);
}

int32_t RegStore::commit()
{
    int rc = execRetry("COMMIT");
    if (rc == SQLITE_OK)
        return RegOk;
    int32_t e = fail(rc);
    if (m_db && !sqlite3_get_autocommit(m_db))
        sqlite3_exec(m_db, "ROLLBACK", 0, 0, 0);
    return e;
}

void RegStore::rollback()
{
    if (m_db && !sqlite3_get_autocommit(m_db))
        sqlite3_exec(m_db, "ROLLBACK", 0, 0, 0);
}

namespace {

// Resets a statement and clears its bindings when the scope ends.
struct Reset {
    sqlite3_stmt* st;
    explicit Reset(sqlite3_stmt* s) : st(s) {}
    ~Reset()
    {
        sqlite3_reset(st);
        sqlite3_clear_bindings(st);
    }
};

} // namespace

// Inside the lock: RegOk while the key exists, RegKeyDeleted once it is gone.
int32_t RegStore::aliveLocked(int64_t id)
{
    if (id <= LastRootId)
        return RegOk;
    sqlite3_bind_int64(m_keyAlive, 1, id);
    int rc = stepRetry(m_keyAlive);
    sqlite3_reset(m_keyAlive);
    if (rc == SQLITE_ROW)
        return RegOk;
    if (rc == SQLITE_DONE)
        return RegKeyDeleted;
    return fail(rc);
}

int32_t RegStore::walk(int64_t from, const std::vector<RegName>& path, int64_t& id, bool create)
{
    int64_t cur = from;
    for (const RegName& c : path) {
        int rc;
        {
            Reset reset(m_findKey);
            sqlite3_bind_int64(m_findKey, 1, cur);
            sqlite3_bind_text(m_findKey, 2, c.fold.data(), static_cast<int>(c.fold.size()),
                              SQLITE_STATIC);
            rc = stepRetry(m_findKey);
            if (rc == SQLITE_ROW) {
                cur = sqlite3_column_int64(m_findKey, 0);
                continue;
            }
        }
        if (rc != SQLITE_DONE)
            return fail(rc);
        if (!create) {
            if (cur == from) {
                int32_t alive = aliveLocked(from);
                if (alive != RegOk)
                    return alive;
            }
            return RegFileNotFound;
        }
        {
            Reset reset(m_insertKey);
            sqlite3_bind_int64(m_insertKey, 1, cur);
            sqlite3_bind_text(m_insertKey, 2, c.name.data(), static_cast<int>(c.name.size()),
                              SQLITE_STATIC);
            sqlite3_bind_text(m_insertKey, 3, c.fold.data(), static_cast<int>(c.fold.size()),
                              SQLITE_STATIC);
            rc = stepRetry(m_insertKey);
        }
        if (rc != SQLITE_DONE)
            return fail(rc);
        cur = sqlite3_last_insert_rowid(m_db);
    }
    if (path.empty()) {
        int32_t alive = aliveLocked(from);
        if (alive != RegOk)
            return alive;
    }
    id = cur;
    return RegOk;
}

int32_t RegStore::findPath(int64_t from, const std::vector<RegName>& path, int64_t& id)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(false);
    if (r != RegOk)
        return r;
    return walk(from, path, id, false);
}

int32_t RegStore::createPath(int64_t from, const std::vector<RegName>& path, int64_t& id)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(true);
    if (r != RegOk)
        return r;
    // Most creates find the key in place: no write transaction for them.
    r = walk(from, path, id, false);
    if (r != RegFileNotFound)
        return r;
    r = begin();
    if (r != RegOk)
        return r;
    int32_t alive = aliveLocked(from);
    if (alive != RegOk) {
        rollback();
        return alive;
    }
    r = walk(from, path, id, true);
    if (r != RegOk) {
        rollback();
        return r;
    }
    return commit();
}

int32_t regCopyValueOut(uint32_t valueType, const unsigned char* bytes, uint32_t n,
                        uint32_t* type, unsigned char* data, uint32_t* size)
{
    if (type)
        *type = valueType;
    if (!size)
        return data ? RegInvalidParameter : RegOk;
    if (!data) {
        *size = n;
        return RegOk;
    }
    if (*size < n) {
        *size = n;
        return RegMoreData;
    }
    if (n)
        std::memcpy(data, bytes, n);
    *size = n;
    return RegOk;
}

int32_t RegStore::getValue(int64_t key, const std::string& fold, uint32_t* type,
                           unsigned char* data, uint32_t* size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(false);
    if (r != RegOk)
        return r == RegFileNotFound ? RegKeyDeleted : r;
    int rc;
    {
        Reset reset(m_getValue);
        sqlite3_bind_int64(m_getValue, 1, key);
        sqlite3_bind_text(m_getValue, 2, fold.data(), static_cast<int>(fold.size()), SQLITE_STATIC);
        rc = stepRetry(m_getValue);
        if (rc == SQLITE_ROW)
            return regCopyValueOut(static_cast<uint32_t>(sqlite3_column_int64(m_getValue, 0)),
                                   static_cast<const unsigned char*>(sqlite3_column_blob(m_getValue, 1)),
                                   static_cast<uint32_t>(sqlite3_column_bytes(m_getValue, 1)),
                                   type, data, size);
    }
    if (rc != SQLITE_DONE)
        return fail(rc);
    r = aliveLocked(key);
    return r == RegOk ? RegFileNotFound : r;
}

int32_t RegStore::setValue(int64_t key, const RegName& name, uint32_t type,
                           const unsigned char* data, uint32_t size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(true);
    if (r != RegOk)
        return r == RegFileNotFound ? RegKeyDeleted : r;
    int rc;
    {
        Reset reset(m_setValue);
        sqlite3_bind_int64(m_setValue, 1, key);
        sqlite3_bind_text(m_setValue, 2, name.name.data(), static_cast<int>(name.name.size()),
                          SQLITE_STATIC);
        sqlite3_bind_text(m_setValue, 3, name.fold.data(), static_cast<int>(name.fold.size()),
                          SQLITE_STATIC);
        sqlite3_bind_int64(m_setValue, 4, type);
        static const unsigned char none = 0;
        sqlite3_bind_blob(m_setValue, 5, size ? data : &none, static_cast<int>(size), SQLITE_STATIC);
        rc = stepRetry(m_setValue);
    }
    if (rc != SQLITE_DONE)
        return fail(rc);
    return sqlite3_changes(m_db) ? RegOk : RegKeyDeleted;
}

int32_t RegStore::deleteValue(int64_t key, const std::string& fold)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(true);
    if (r != RegOk)
        return r;
    int rc;
    {
        Reset reset(m_deleteValue);
        sqlite3_bind_int64(m_deleteValue, 1, key);
        sqlite3_bind_text(m_deleteValue, 2, fold.data(), static_cast<int>(fold.size()),
                          SQLITE_STATIC);
        rc = stepRetry(m_deleteValue);
    }
    if (rc != SQLITE_DONE)
        return fail(rc);
    if (sqlite3_changes(m_db))
        return RegOk;
    r = aliveLocked(key);
    return r == RegOk ? RegFileNotFound : r;
}

int32_t RegStore::deleteKey(int64_t from, const std::vector<RegName>& path)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(true);
    if (r != RegOk)
        return r;
    r = begin();
    if (r != RegOk)
        return r;
    int64_t id = 0;
    r = walk(from, path, id, false);
    if (r == RegKeyDeleted)
        r = RegFileNotFound;
    if (r == RegOk && id <= LastRootId)
        r = RegAccessDenied;
    if (r == RegOk) {
        int rc;
        {
            Reset reset(m_hasChild);
            sqlite3_bind_int64(m_hasChild, 1, id);
            rc = stepRetry(m_hasChild);
        }
        if (rc == SQLITE_ROW)
            r = RegAccessDenied;
        else if (rc != SQLITE_DONE)
            return fail(rc);
    }
    if (r == RegOk) {
        int rc;
        {
            Reset reset(m_deleteKeyValues);
            sqlite3_bind_int64(m_deleteKeyValues, 1, id);
            rc = stepRetry(m_deleteKeyValues);
        }
        if (rc == SQLITE_DONE) {
            Reset reset(m_deleteKey);
            sqlite3_bind_int64(m_deleteKey, 1, id);
            rc = stepRetry(m_deleteKey);
        }
        if (rc != SQLITE_DONE)
            return fail(rc);
        return commit();
    }
    rollback();
    return r;
}

namespace {

std::string columnText(sqlite3_stmt* st, int col)
{
    const char* p = reinterpret_cast<const char*>(sqlite3_column_text(st, col));
    return std::string(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(st, col)));
}

} // namespace

// Runs a listing statement for key: bind(st) binds what follows the key, row(st) takes
// each row and answers false to stop early. An empty listing is RegOk while the key
// exists and RegKeyDeleted once it is gone.
template <class Bind, class Row>
int32_t RegStore::listRows(int64_t key, sqlite3_stmt* st, Bind bind, Row row)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int32_t r = usable(false);
    if (r != RegOk)
        return r == RegFileNotFound ? RegOk : r;
    int rc;
    bool any = false;
    {
        Reset reset(st);
        sqlite3_bind_int64(st, 1, key);
        bind(st);
        // Only the first step may wait for a lock: a retry starts the query afresh.
        for (rc = stepRetry(st); rc == SQLITE_ROW; rc = sqlite3_step(st)) {
            any = true;
            if (!row(st)) {
                rc = SQLITE_DONE;
                break;
            }
        }
    }
    if (rc != SQLITE_DONE)
        return fail(rc);
    return any ? RegOk : aliveLocked(key);
}

int32_t RegStore::listKeys(int64_t key, const std::string* afterFold, uint32_t offset,
                           uint32_t limit, RegKeyBatch& out)
{
    out.names.clear();
    int32_t r = listRows(
        key, afterFold ? m_keysAfter : m_keysFrom,
        [&](sqlite3_stmt* st) {
            if (afterFold) {
                sqlite3_bind_text(st, 2, afterFold->data(), static_cast<int>(afterFold->size()),
                                  SQLITE_STATIC);
                sqlite3_bind_int64(st, 3, limit);
            } else {
                sqlite3_bind_int64(st, 2, limit);
                sqlite3_bind_int64(st, 3, offset);
            }
        },
        [&](sqlite3_stmt* st) {
            out.names.push_back(columnText(st, 0));
            out.lastFold.assign(reinterpret_cast<const char*>(sqlite3_column_text(st, 1)),
                                static_cast<size_t>(sqlite3_column_bytes(st, 1)));
            return true;
        });
    if (r != RegOk)
        out.names.clear();
    return r;
}

int32_t RegStore::listValues(int64_t key, int64_t afterId, uint32_t offset, uint32_t limit,
                             size_t maxBytes, RegValueBatch& out)
{
    out.values.clear();
    out.bytes.clear();
    size_t dataBytes = 0;
    int32_t r = listRows(
        key, afterId ? m_valuesAfter : m_valuesFrom,
        [&](sqlite3_stmt* st) {
            sqlite3_bind_int64(st, 2, afterId ? afterId : static_cast<int64_t>(limit));
            sqlite3_bind_int64(st, 3, afterId ? static_cast<int64_t>(limit) : offset);
        },
        [&](sqlite3_stmt* st) {
            const unsigned char* name = sqlite3_column_text(st, 1);
            const size_t nameSize = name ? static_cast<size_t>(sqlite3_column_bytes(st, 1)) : 0;
            const unsigned char* p = static_cast<const unsigned char*>(sqlite3_column_blob(st, 3));
            const size_t n = p ? static_cast<size_t>(sqlite3_column_bytes(st, 3)) : 0;
            // Name and data side by side in one block, grown by hand: the vector's range
            // insert is a call of its own per piece.
            const size_t nameAt = out.bytes.size();
            if (out.bytes.capacity() - nameAt < nameSize + n)
                out.bytes.reserve(2 * out.bytes.capacity() + nameSize + n);
            out.bytes.resize(nameAt + nameSize + n);
            if (nameSize)
                std::memcpy(out.bytes.data() + nameAt, name, nameSize);
            if (n)
                std::memcpy(out.bytes.data() + nameAt + nameSize, p, n);
            out.values.push_back(RegValueBatch::Value{
                sqlite3_column_int64(st, 0), nameAt, static_cast<uint32_t>(nameSize),
                static_cast<uint32_t>(sqlite3_column_int64(st, 2)), nameAt + nameSize,
                static_cast<uint32_t>(n)});
            dataBytes += n;
            return dataBytes <= maxBytes;
        });
    if (r != RegOk)
        out.values.clear();
    return r;
}

// ---- the integrity check ----------------------------------------------------------------------

SRegistryStore::Status regStoreCheck(RegKeyHandle root, SWCharString* detail)
{
    std::string file = root == RegCurrentUser ? regUserStoreFile() : regStoreFile();
    auto say = [&](const std::string& text) {
        if (detail)
            *detail = regUtf8ToUtf16(text.data(), text.size());
    };
    if (file.empty()) {
        say("no folder for the registry store (NEBU_REGISTRYHOME and HOME are unset)");
        return SRegistryStore::StoreUnreadable;
    }
    struct stat st;
    if (::stat(file.c_str(), &st) != 0) {
        if (errno == ENOENT) {
            say(std::string());
            return SRegistryStore::StoreMissing;
        }
        say(file + ": " + std::strerror(errno));
        return SRegistryStore::StoreUnreadable;
    }
    sqlite3* db = 0;
    int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, 0);
    if (rc != SQLITE_OK) {
        say(file + ": " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)));
        sqlite3_close_v2(db);
        return SRegistryStore::StoreUnreadable;
    }
    sqlite3_busy_timeout(db, BusyTimeoutMs);
    std::string first;
    int rows = 0;
    sqlite3_stmt* stmt = 0;
    rc = sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &stmt, 0);
    while (rc == SQLITE_OK || rc == SQLITE_ROW) {
        rc = sqlite3_step(stmt);
        if (rc == SQLITE_ROW) {
            const char* t = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
            if (rows++ == 0 && t)
                first = t;
        }
    }
    sqlite3_finalize(stmt);
    SRegistryStore::Status status = SRegistryStore::StoreOk;
    if (rc != SQLITE_DONE) {
        int primary = rc & 0xFF;
        say(file + ": " + sqlite3_errmsg(db));
        status = (primary == SQLITE_CANTOPEN || primary == SQLITE_PERM ||
                  primary == SQLITE_BUSY || primary == SQLITE_IOERR)
                     ? SRegistryStore::StoreUnreadable
                     : SRegistryStore::StoreDamaged;
    } else if (first != "ok") {
        say(file + ": " + first);
        status = SRegistryStore::StoreDamaged;
    } else {
        // A sound database must also be ours: our version and tables, or still empty.
        int version = -1;
        int tables = 0;
        if (sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &stmt, 0) == SQLITE_OK &&
            sqlite3_step(stmt) == SQLITE_ROW)
            version = sqlite3_column_int(stmt, 0);
        sqlite3_finalize(stmt);
        if (sqlite3_prepare_v2(db,
                               "SELECT count(*) FROM sqlite_master WHERE type='table' AND"
                               " name IN ('keys','vals')",
                               -1, &stmt, 0) == SQLITE_OK &&
            sqlite3_step(stmt) == SQLITE_ROW)
            tables = sqlite3_column_int(stmt, 0);
        sqlite3_finalize(stmt);
        if (!((version == 0 && tables == 0) || (version == SchemaVersion && tables == 2))) {
            say(file + ": not a registry store of this library");
            status = SRegistryStore::StoreDamaged;
        } else {
            say(std::string());
        }
    }
    sqlite3_close_v2(db);
    return status;
}

} // namespace os
} // namespace Vardo400
