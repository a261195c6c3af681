// Registry on the Linux store against the same SQLite statements run directly (the floor
// the store can reach): reading an existing value through a kept key object, writing a
// new value, and enumerating 10,000 sub-keys and 10,000 values against one query that
// returns the same rows (each side runs 2 s: a listing takes milliseconds, and shorter runs
// scatter by several percent). Also the write throughput of several processes writing at once.
#include <vardo/regfile.h>
#include <vardo/registry.h>
#include <vardo/senv.h>

#include "ratio.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

SWCharString A(const std::string& s)
{
    SWCharString r;
    r.concatFromAscii(s.c_str(), static_cast<unsigned int>(s.size()));
    return r;
}

const char* const KeyPath = "Software\\Quorvane\\Suite 12.0\\Bench";
// A key with ListSize sub-keys and ListSize values, for the enumerations.
const char* const ListPath = "Software\\Quorvane\\Suite 12.0\\BenchList";
const int ListSize = 10000;

// One store folder for the whole run, with one existing value.
struct Store {
    fs::path dir;
    std::string file;
    Store()
    {
        dir = fs::temp_directory_path() / ("vardo-bench-reg-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        SEnv::set(A("NEBU_REGISTRYHOME"), A(dir.string()));
        file = (dir / "registry.db").string();
        Registry(A(KeyPath), SWCharString(), RegLocalMachine)
            .WriteValue(A("Existing"), A("C:\\Program Files\\Quorvane\\Suite 12.0\\logs"));
        // One regedit file, imported in one go: the sub-keys, then the values.
        std::string text = std::string(SRegFile::Header) + "\r\n\r\n";
        const std::string list = std::string("[HKEY_LOCAL_MACHINE\\") + ListPath;
        for (int i = 0; i < ListSize; ++i)
            text += list + "\\Sub key " + std::to_string(i * 7919 % ListSize) + "]\r\n";
        text += list + "]\r\n";
        for (int i = 0; i < ListSize; ++i)
            text += "\"Value " + std::to_string(i) + "\"=\"data of value " + std::to_string(i) + "\"\r\n";
        if (!SRegFile::Import(reinterpret_cast<const unsigned char*>(text.data()), text.size()))
            std::fprintf(stderr, "bench_registry: could not fill %s\n", ListPath);
    }
    ~Store()
    {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

Store& store()
{
    static Store s;
    return s;
}

// A direct connection to the same file, set up as the store sets up its own, with the
// store's statements.
struct Direct {
    sqlite3* db = nullptr;
    sqlite3_stmt* findKey = nullptr;
    sqlite3_stmt* getValue = nullptr;
    sqlite3_stmt* setValue = nullptr;
    Direct()
    {
        sqlite3_open_v2(store().file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
        sqlite3_busy_timeout(db, 30000);
        sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
        sqlite3_prepare_v3(db, "SELECT id FROM keys WHERE parent=?1 AND fold=?2", -1,
                           SQLITE_PREPARE_PERSISTENT, &findKey, nullptr);
        sqlite3_prepare_v3(db, "SELECT type, data FROM vals WHERE key=?1 AND fold=?2", -1,
                           SQLITE_PREPARE_PERSISTENT, &getValue, nullptr);
        sqlite3_prepare_v3(db,
                           "INSERT INTO vals(key, name, fold, type, data) SELECT ?1, ?2, ?3, ?4, ?5"
                           " WHERE EXISTS(SELECT 1 FROM keys WHERE id=?1)"
                           " ON CONFLICT(key, fold) DO UPDATE SET type=excluded.type, data=excluded.data",
                           -1, SQLITE_PREPARE_PERSISTENT, &setValue, nullptr);
    }
    ~Direct()
    {
        sqlite3_finalize(findKey);
        sqlite3_finalize(getValue);
        sqlite3_finalize(setValue);
        sqlite3_close_v2(db);
    }
    // The walk the store does from HKEY_LOCAL_MACHINE (row 3).
    sqlite3_int64 walk(const char* last = "BENCH")
    {
        sqlite3_int64 id = 3;
        for (const char* fold : {"SOFTWARE", "QUORVANE", "SUITE 12.0", last}) {
            sqlite3_bind_int64(findKey, 1, id);
            sqlite3_bind_text(findKey, 2, fold, -1, SQLITE_STATIC);
            if (sqlite3_step(findKey) == SQLITE_ROW)
                id = sqlite3_column_int64(findKey, 0);
            sqlite3_reset(findKey);
        }
        return id;
    }
};

void BM_RegistryRead(benchmark::State& state)
{
    store();
    Registry key(A(KeyPath), SWCharString(), RegLocalMachine);
    SWCharString name = A("Existing");
    for (auto _ : state) {
        SWCharString v = key.ReadValue(name);
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK(BM_RegistryRead);

void BM_SqliteRead(benchmark::State& state)
{
    store();
    Direct d;
    sqlite3_int64 id = d.walk();
    unsigned char buffer[16300];
    for (auto _ : state) {
        sqlite3_bind_int64(d.getValue, 1, id);
        sqlite3_bind_text(d.getValue, 2, "EXISTING", 8, SQLITE_STATIC);
        if (sqlite3_step(d.getValue) == SQLITE_ROW) {
            int n = sqlite3_column_bytes(d.getValue, 1);
            std::memcpy(buffer, sqlite3_column_blob(d.getValue, 1), static_cast<size_t>(n));
            benchmark::DoNotOptimize(sqlite3_column_int(d.getValue, 0));
        }
        sqlite3_reset(d.getValue);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_SqliteRead);

void BM_RegistryWrite(benchmark::State& state)
{
    store();
    Registry key(A(KeyPath), SWCharString(), RegLocalMachine);
    static int counter = 0;
    SWCharString value = A("a new value of ordinary length");
    for (auto _ : state) {
        SWCharString name = A("r" + std::to_string(++counter));
        if (!key.WriteValue(name, value))
            state.SkipWithError("write failed");
    }
}
BENCHMARK(BM_RegistryWrite);

void BM_SqliteWrite(benchmark::State& state)
{
    store();
    Direct d;
    static int counter = 0;
    // The same bytes the registry writes: UTF-16LE text and its terminator.
    std::string text = "a new value of ordinary length";
    std::vector<unsigned char> bytes;
    for (char c : text) {
        bytes.push_back(static_cast<unsigned char>(c));
        bytes.push_back(0);
    }
    bytes.push_back(0);
    bytes.push_back(0);
    for (auto _ : state) {
        std::string name = "d" + std::to_string(++counter);
        std::string fold = "D" + std::to_string(counter);
        sqlite3_int64 id = d.walk();
        sqlite3_bind_int64(d.setValue, 1, id);
        sqlite3_bind_text(d.setValue, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        sqlite3_bind_text(d.setValue, 3, fold.data(), static_cast<int>(fold.size()), SQLITE_STATIC);
        sqlite3_bind_int64(d.setValue, 4, 1);
        sqlite3_bind_blob(d.setValue, 5, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
        if (sqlite3_step(d.setValue) != SQLITE_DONE)
            state.SkipWithError("insert failed");
        sqlite3_reset(d.setValue);
    }
}
BENCHMARK(BM_SqliteWrite);

void BM_RegistryEnumSubKeys(benchmark::State& state)
{
    store();
    int64_t items = 0;
    for (auto _ : state) {
        Registry key(A(ListPath), SWCharString(), RegLocalMachine);
        for (Registry::KeyIterator it = key.EnumSubKeys(); it; ++it) {
            benchmark::DoNotOptimize(it.GetKey().data());
            ++items;
        }
    }
    if (items != state.iterations() * ListSize)
        state.SkipWithError("wrong number of sub-keys");
    state.SetItemsProcessed(items);
}
BENCHMARK(BM_RegistryEnumSubKeys)->Unit(benchmark::kMillisecond)->MinTime(2);

// The same rows from one query, each name copied out.
void BM_SqliteEnumSubKeys(benchmark::State& state)
{
    store();
    Direct d;
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(d.db, "SELECT name FROM keys WHERE parent=?1 ORDER BY fold", -1, &st, nullptr);
    int64_t items = 0;
    std::string name;
    for (auto _ : state) {
        sqlite3_bind_int64(st, 1, d.walk("BENCHLIST"));
        while (sqlite3_step(st) == SQLITE_ROW) {
            name.assign(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)),
                        static_cast<size_t>(sqlite3_column_bytes(st, 0)));
            benchmark::DoNotOptimize(name.data());
            ++items;
        }
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    if (items != state.iterations() * ListSize)
        state.SkipWithError("wrong number of sub-keys");
    state.SetItemsProcessed(items);
}
BENCHMARK(BM_SqliteEnumSubKeys)->Unit(benchmark::kMillisecond)->MinTime(2);

void BM_RegistryEnumValues(benchmark::State& state)
{
    store();
    int64_t items = 0;
    for (auto _ : state) {
        Registry key(A(ListPath), SWCharString(), RegLocalMachine);
        for (Registry::ValueIterator it = key.EnumValues(); it; ++it) {
            benchmark::DoNotOptimize(it.GetName().data());
            benchmark::DoNotOptimize(it.GetValue().data());
            ++items;
        }
    }
    if (items != state.iterations() * ListSize)
        state.SkipWithError("wrong number of values");
    state.SetItemsProcessed(items);
}
BENCHMARK(BM_RegistryEnumValues)->Unit(benchmark::kMillisecond)->MinTime(2);

// The same rows from one query, each name and its data copied out.
void BM_SqliteEnumValues(benchmark::State& state)
{
    store();
    Direct d;
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(d.db, "SELECT name, type, data FROM vals WHERE key=?1 ORDER BY id", -1, &st,
                       nullptr);
    int64_t items = 0;
    std::string name;
    std::vector<unsigned char> data;
    for (auto _ : state) {
        sqlite3_bind_int64(st, 1, d.walk("BENCHLIST"));
        while (sqlite3_step(st) == SQLITE_ROW) {
            name.assign(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)),
                        static_cast<size_t>(sqlite3_column_bytes(st, 0)));
            const unsigned char* p = static_cast<const unsigned char*>(sqlite3_column_blob(st, 2));
            data.assign(p, p + sqlite3_column_bytes(st, 2));
            benchmark::DoNotOptimize(sqlite3_column_int(st, 1));
            benchmark::DoNotOptimize(name.data());
            benchmark::DoNotOptimize(data.data());
            ++items;
        }
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    if (items != state.iterations() * ListSize)
        state.SkipWithError("wrong number of values");
    state.SetItemsProcessed(items);
}
BENCHMARK(BM_SqliteEnumValues)->Unit(benchmark::kMillisecond)->MinTime(2);

// N processes each write 500 new values into the same key at once; items/s is the
// store's total write throughput.
void BM_RegistryWriteProcesses(benchmark::State& state)
{
    store();
    const int processes = static_cast<int>(state.range(0));
    const int perProcess = 500;
    static int round = 0;
    for (auto _ : state) {
        ++round;
        std::vector<pid_t> children;
        for (int p = 0; p < processes; ++p) {
            pid_t pid = ::fork();
            if (pid == 0) {
                Registry key(A(KeyPath), SWCharString(), RegLocalMachine);
                SWCharString value = A("a new value of ordinary length");
                int failures = 0;
                for (int i = 0; i < perProcess; ++i)
                    if (!key.WriteValue(A("p" + std::to_string(round) + "-" + std::to_string(p) + "-" +
                                          std::to_string(i)),
                                        value))
                        ++failures;
                ::_exit(failures ? 1 : 0);
            }
            children.push_back(pid);
        }
        bool ok = true;
        for (pid_t pid : children) {
            int status = 0;
            ::waitpid(pid, &status, 0);
            ok = ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        if (!ok)
            state.SkipWithError("a writer failed");
    }
    state.SetItemsProcessed(state.iterations() * processes * perProcess);
}
BENCHMARK(BM_RegistryWriteProcesses)->Arg(1)->Arg(4)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond);

struct Pairs {
    Pairs()
    {
        vardo_bench::addPair("BM_RegistryRead", "BM_SqliteRead");
        vardo_bench::addPair("BM_RegistryWrite", "BM_SqliteWrite");
        vardo_bench::addPair("BM_RegistryEnumSubKeys", "BM_SqliteEnumSubKeys");
        vardo_bench::addPair("BM_RegistryEnumValues", "BM_SqliteEnumValues");
    }
} g_pairs;

} // namespace

VARDO_BENCH_MAIN()
