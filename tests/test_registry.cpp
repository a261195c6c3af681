// Registry: values, types, enumeration, deletion, copying, remote machines; on Linux also
// the store: one per user, several processes at once, a writer killed mid-write, read-only
// and damaged files. Every test works in a scratch key below HKEY_CURRENT_USER (no rights
// needed on Windows); on Linux NEBU_REGISTRYHOME names a fresh folder for each test.
#include <vardo/regfile.h>
#include <vardo/registry.h>
#include <vardo/senv.h>
#include <vardo/strace.h>

#include "child_process.h"
#include "sfile_test_support.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
using vardo_test::U;
typedef std::vector<std::string> Names;

std::vector<std::string> g_asserts;

void recordAssert(const char*, int, const char* expression, const SWCharString& message)
{
    g_asserts.push_back(std::string(expression) + " | " + U(message));
}

bool sawAssert(const std::string& text)
{
    return std::any_of(g_asserts.begin(), g_asserts.end(),
                       [&](const std::string& a) { return a.find(text) != std::string::npos; });
}

// A text whose content can be checked from itself: "tag:length:" then a pattern.
std::string checkedText(const std::string& tag, size_t length)
{
    std::string s = tag + ":" + std::to_string(length) + ":";
    while (s.size() < length)
        s += static_cast<char>('a' + (s.size() * 7 + tag.size()) % 26);
    return s;
}

Names subKeysOf(Registry r)
{
    Names names;
    for (Registry::KeyIterator it = r.EnumSubKeys(); it; ++it)
        names.push_back(U(it.GetKey()));
    return names;
}

Names valuesOf(Registry r)
{
    Names values;
    for (Registry::ValueIterator it = r.EnumValues(); it; ++it)
        values.push_back(U(it.GetName()) + "=" + U(it.GetValue()));
    return values;
}

// Writes a value of any type from its text form.
bool writeTyped(Registry& r, const char* name, uint32_t type, const std::string& text)
{
    SSimpleBuffer b;
    return SRegText::ParseData(type, W(text), b) &&
           r.WriteValueRaw(W(name), type, b.data(), static_cast<uint32_t>(b.size()));
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_asserts.clear();
        SetAssertObserver(recordAssert);
        static int counter = 0;
        std::string name = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count() % 1000000007) +
                           "-" + std::to_string(++counter);
        m_dir = fs::temp_directory_path() / ("vardo-reg-" + name);
        fs::create_directories(m_dir);
        SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
        m_base = W("Software\\VardoTest\\" + name);
    }
    void TearDown() override
    {
        Registry(m_base, SWCharString(), RegCurrentUser).DeleteKeyRecursive();
        SEnv::unset(W("NEBU_REGISTRYHOME"));
        std::error_code ec;
        fs::permissions(m_dir, fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(m_dir, ec);
        SetAssertObserver(0);
    }
    Registry key(const std::string& sub = std::string())
    {
        return Registry(sub.empty() ? m_base : path(sub), SWCharString(), RegCurrentUser);
    }
    SWCharString path(const std::string& sub) { return m_base + W("\\" + sub); }
    bool onLinuxStore() { return !SRegistryStore::GetPath().isEmpty(); }
    // The tests' keys are below HKEY_CURRENT_USER: on Linux the user's own store.
    std::string userStoreFile() { return U(SRegistryStore::GetRootPath(RegCurrentUser)); }

    fs::path m_dir;
    SWCharString m_base;
};

TEST_F(RegistryTest, MissingKeysReadEmptyWritesReadBackWithTypesCaseInsensitiveNamesAndDefaults)
{
    Registry r = key("a\\b");
    EXPECT_FALSE(r.KeyExists());
    EXPECT_TRUE(r.ReadValue(W("x")).isEmpty());
    unsigned long type = 99;
    EXPECT_FALSE(r.GetType(W("x"), type));
    EXPECT_FALSE(r.EnumSubKeys());
    EXPECT_FALSE(r.DeleteValue(W("x")));
    EXPECT_FALSE(r.DeleteKeyRecursive());
    EXPECT_FALSE(key("a").KeyExists());   // reading created nothing

    EXPECT_TRUE(r.WriteValue(W("Text"), W("hello wörld")));
    EXPECT_TRUE(r.WriteValue(W("Number"), 42ul));
    EXPECT_TRUE(r.WriteValue(W("AllOnes"), 0xFFFFFFFFul));
    EXPECT_TRUE(r.WriteValue(W("Café"), W("accent")));
    EXPECT_EQ(W("hello wörld"), r.ReadValue(W("TEXT")));
    EXPECT_EQ(W("4294967295"), r.ReadValue(W("AllOnes")));
    EXPECT_EQ(W("accent"), r.ReadValue(W("CAFÉ")));
    EXPECT_EQ(W("42"), Registry(m_base + W("\\A\\B"), SWCharString(), RegCurrentUser).ReadValue(W("Number")));
    // A value written under another case keeps its first spelling and takes the new type.
    EXPECT_TRUE(r.WriteValue(W("TEXT"), 7ul));
    ASSERT_TRUE(r.GetType(W("text"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeDword), type);
    Names values = valuesOf(r);
    EXPECT_NE(std::find(values.begin(), values.end(), "Text=7"), values.end());

    // Values longer than the first read (16300 bytes), either side of its edge and well past.
    for (size_t length : {8149, 8150, 40000}) {
        SCOPED_TRACE(length);
        std::string text = checkedText("long", length);
        ASSERT_TRUE(key("long").WriteValue(W("v"), W(text)));
        EXPECT_EQ(text, U(key("long").ReadValue(W("v"))));
        EXPECT_EQ("v=" + text, valuesOf(key("long"))[0]);
    }

    // A default is written back; a stored value wins; an empty default creates nothing.
    EXPECT_EQ(W("fallback"), r.ReadValue(W("Missing"), W("fallback")));
    EXPECT_EQ(W("fallback"), key("a\\b").ReadValue(W("Missing")));
    EXPECT_EQ(W("1234"), r.ReadValue(W("Num"), 1234ul));
    EXPECT_EQ(W("1234"), r.ReadValue(W("Num"), 99ul));
    ASSERT_TRUE(r.GetType(W("Num"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeDword), type);
    EXPECT_TRUE(r.ReadValue(W("Nothing"), SWCharString()).isEmpty());
    EXPECT_FALSE(r.GetType(W("Nothing"), type));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, ExpandableStringsExpandWithinMaxPathOtherTypesReadEmpty)
{
    SEnv::set(W("VARDO_REG_TEST_DIR"), W("/opt/quorvane"));
    Registry r = key();
    ASSERT_TRUE(writeTyped(r, "Path", RegTypeExpandString, "%VARDO_REG_TEST_DIR%\\bin"));
    ASSERT_TRUE(writeTyped(r, "Fits", RegTypeExpandString, std::string(259, 'y')));
    ASSERT_TRUE(writeTyped(r, "Long", RegTypeExpandString, std::string(300, 'x')));
    EXPECT_EQ(W("/opt/quorvane\\bin"), r.ReadValue(W("Path")));
    EXPECT_EQ(W(std::string(259, 'y')), r.ReadValue(W("Fits")));
    EXPECT_TRUE(g_asserts.empty());
    EXPECT_TRUE(r.ReadValue(W("Long")).isEmpty());
    EXPECT_TRUE(sawAssert("numChars && numChars <= MAX_PATH | Registry::ReadValue: Buffer is not "
                          "big enough to accomodate expanded string from registry"));
    Names values = valuesOf(r);
    EXPECT_NE(std::find(values.begin(), values.end(), "Long="), values.end());
    EXPECT_TRUE(sawAssert("Registry::ValueIterator::NextValue: Buffer is not big enough to "
                          "accomodate expanded string from registry"));
    SEnv::unset(W("VARDO_REG_TEST_DIR"));

    // Other types read as empty text but keep their type and bytes, also when copied.
    ASSERT_TRUE(writeTyped(r, "Multi", RegTypeMultiString, "a\\0b"));
    ASSERT_TRUE(writeTyped(r, "Q", RegTypeQword, "0x0807060504030201"));
    for (const char* n : {"Multi", "Q"})
        EXPECT_TRUE(r.ReadValue(W(n)).isEmpty()) << n;
    const std::vector<unsigned char> multi{'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0};
    unsigned long type = 0;
    unsigned char buf[16];
    uint32_t size = 2;
    EXPECT_FALSE(r.ReadValueRaw(W("Multi"), type, buf, size));   // too small: size told
    EXPECT_EQ(multi.size(), size);
    size = sizeof buf;
    ASSERT_TRUE(r.ReadValueRaw(W("Multi"), type, buf, size));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeMultiString), type);
    EXPECT_EQ(multi, std::vector<unsigned char>(buf, buf + size));
    ASSERT_TRUE(Registry::CopyValue(RegCurrentUser, m_base, W("Q"), RegCurrentUser, path("copy"), W("Q2")));
    SSimpleBuffer q;
    ASSERT_TRUE(key("copy").ReadValueRaw(W("Q2"), type, q));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeQword), type);
    EXPECT_EQ((std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7, 8}), std::vector<unsigned char>(q.data(), q.data() + q.size()));
}

TEST_F(RegistryTest, EnumerationAndIteratorHandleTransfer)
{
    Registry r = key("enum");
    for (const char* k : {"zeta", "Alpha", "beta", "Gamma"})
        ASSERT_TRUE(key(std::string("enum\\") + k).WriteValue(W("v"), W(k)));
    for (const char* v : {"second", "first", "Third"})
        ASSERT_TRUE(r.WriteValue(W(v), W(v)));
    ASSERT_TRUE(r.WriteValue(W("Count"), 3ul));
    EXPECT_EQ((Names{"Alpha", "beta", "Gamma", "zeta"}), subKeysOf(r));   // by name, any case
    Names values = valuesOf(r);
    std::sort(values.begin(), values.end());   // the Windows registry promises no order of values
    EXPECT_EQ((Names{"Count=3", "Third=Third", "first=first", "second=second"}), values);

    // Copying moves the handle; the copy goes on from where the source stood.
    Registry::KeyIterator a = r.EnumSubKeys();
    Registry::KeyIterator b(a);
    EXPECT_EQ(W("Alpha"), b.GetKey());
    EXPECT_FALSE(a.NextKey());   // no handle left
    EXPECT_TRUE(b.NextKey());
    EXPECT_EQ(W("beta"), b.GetKey());
    EXPECT_TRUE(g_asserts.empty());

    // Assigning into an iterator that owns a handle is reported (and does not leak).
    Registry::KeyIterator c = r.EnumSubKeys();
    c = b;
    EXPECT_TRUE(sawAssert("m_enumKey == NULL | You are consuming into a non-empty KeyIterator. "
                          "This will leak the REG_HANDLE."));
    EXPECT_TRUE(c.NextKey());
    EXPECT_EQ(W("Gamma"), c.GetKey());

    // detach hands the handle over: the iterator ends at its next step.
    Registry::KeyIterator d = r.EnumSubKeys();
    Registry::KeyIterator owner(d.detach());   // closes it
    EXPECT_FALSE(d.NextKey());
}

TEST_F(RegistryTest, DeleteKeyRefusesSubKeysRecursiveDeletesAllCopyKeyCopiesAll)
{
    ASSERT_TRUE(key("tree\\child\\leaf").WriteValue(W("v"), W("x")));
    ASSERT_TRUE(key("tree").WriteValue(W("top"), W("y")));
    EXPECT_FALSE(key("tree").DeleteKey());
    EXPECT_TRUE(sawAssert("DeleteKey: There is subkey inside key " + U(path("tree"))));
    EXPECT_TRUE(key("tree\\child\\leaf").DeleteKey());
    EXPECT_TRUE(key("tree\\child").KeyExists());
    g_asserts.clear();
    EXPECT_TRUE(key("tree").DeleteKeyRecursive(false));   // empties the key, keeps it
    EXPECT_TRUE(key("tree").KeyExists());
    EXPECT_FALSE(key("tree").EnumSubKeys());
    EXPECT_FALSE(key("tree").EnumValues());
    ASSERT_TRUE(key("tree\\x\\y").WriteValue(W("v"), 1ul));
    EXPECT_TRUE(key("tree").DeleteKeyRecursive());
    EXPECT_FALSE(key("tree").KeyExists());
    EXPECT_TRUE(g_asserts.empty());

    // An object whose key is deleted under its open handle finds the key made again.
    Registry again = key("again");
    ASSERT_TRUE(again.WriteValue(W("v"), W("1")));
    EXPECT_EQ(W("1"), again.ReadValue(W("v")));
    EXPECT_TRUE(key("again").DeleteKey());
    EXPECT_TRUE(again.ReadValue(W("v")).isEmpty());
    ASSERT_TRUE(key("again").WriteValue(W("v"), W("2")));
    EXPECT_EQ(W("2"), again.ReadValue(W("v")));

    // Copies take the whole tree, even into the tree itself: the source is read first.
    ASSERT_TRUE(key("src").WriteValue(W("s"), W("text")));
    ASSERT_TRUE(key("src\\sub\\deep").WriteValue(W("n"), 5ul));
    ASSERT_TRUE(Registry::CopyKey(RegCurrentUser, path("src"), RegCurrentUser, path("dst")));
    EXPECT_EQ(W("text"), key("dst").ReadValue(W("s")));
    EXPECT_EQ(W("5"), key("dst\\sub\\deep").ReadValue(W("n")));   // type and bytes as they were
    ASSERT_TRUE(Registry::CopyKey(RegCurrentUser, path("src"), RegCurrentUser, path("src\\sub\\copy")));
    EXPECT_EQ(W("5"), key("src\\sub\\copy\\sub\\deep").ReadValue(W("n")));
    EXPECT_FALSE(key("src\\sub\\copy\\sub\\copy").KeyExists());
    EXPECT_FALSE(Registry::CopyKey(RegCurrentUser, path("nope"), RegCurrentUser, path("dst2")));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, PathRulesCompanyKeysAndRemoteMachines)
{
    Registry trailing(m_base + W("\\t\\"), SWCharString(), RegCurrentUser);
    trailing.ReadValue(W("x"));
    EXPECT_TRUE(sawAssert("m_subKey.getAt (m_subKey.getNChars() - 1) != _T('\\\\') | Win95 doesn't "
                          "like opening \\ ending reg keys"));
    Registry joined(W("leaf"), m_base + W("\\pre\\"), RegCurrentUser, true);
    EXPECT_TRUE(key("pre\\leaf").KeyExists());   // prefix and key joined; bCreate made it
    CompanyRegistry logging(W("Logging"));
    EXPECT_EQ(W("Software\\Quorvane\\Suite 12.0\\Logging"), logging.GetPath());

    Registry remote = key();
    remote.SetRemoteMachine(W("vardo-no-such-machine.invalid"));
    EXPECT_TRUE(sawAssert("RegConnectRegistry(\\\\vardo-no-such-machine.invalid) failed. Error code: "));
    EXPECT_FALSE(remote.WriteValue(W("v"), W("x")));
    EXPECT_TRUE(remote.ReadValue(W("v")).isEmpty());
    if (!onLinuxStore())
        return;   // HKEY_LOCAL_MACHINE needs rights on Windows
    EXPECT_TRUE(sawAssert("Error code: 53"));
    // This machine's own names reach the local store; copies keep the machine and a
    // handle of their own.
    EXPECT_TRUE(logging.WriteValue(W("loggingPath"), W("/var/log/q")));
    Registry self(W("Software\\QUORVANE\\suite 12.0\\Logging"), SWCharString(), RegCurrentUser);
    self.SetRemoteMachine(W("localhost"));
    EXPECT_EQ(W("/var/log/q"), Registry(self).ReadValue(W("loggingPath")));
    EXPECT_EQ(W("/var/log/q"), self.ReadValue(W("loggingPath")));
}

TEST_F(RegistryTest, StoresLiveInNebuRegistryHomeOnePerUser)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "the Windows registry has no store file";
    EXPECT_EQ((m_dir / "registry.db").string(), U(SRegistryStore::GetPath()));
    // HKEY_CURRENT_USER has a store of its own, users/<uid>/registry.db, closed to others.
    const std::string user = userStoreFile();
    const std::string uid = fs::path(user).parent_path().filename().string();
    EXPECT_EQ((m_dir / "users" / uid / "registry.db").string(), user);
    EXPECT_EQ(SRegistryStore::StoreMissing, SRegistryStore::Check());
    ASSERT_TRUE(key().WriteValue(W("v"), W("user")));
    EXPECT_FALSE(fs::exists(m_dir / "registry.db"));
    const fs::perms mask = fs::perms::mask;
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(user).permissions() & mask);
    EXPECT_EQ(fs::perms::owner_all, fs::status(fs::path(user).parent_path()).permissions() & mask);
    EXPECT_EQ(fs::perms::all | fs::perms::sticky_bit, fs::status(m_dir / "users").permissions() & mask);

    // The same path below HKEY_LOCAL_MACHINE is another tree, in the machine store.
    ASSERT_TRUE(Registry(m_base, SWCharString(), RegLocalMachine).WriteValue(W("v"), W("machine")));
    EXPECT_EQ(W("user"), key().ReadValue(W("v")));
    SWCharString detail;
    EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::Check(&detail)) << U(detail);
    EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::CheckRoot(RegCurrentUser, &detail)) << U(detail);

    // Names with characters beyond Latin-1 compare case-insensitively too.
    ASSERT_TRUE(key("Ключ").WriteValue(W("Ωμέγα"), W("greek")));
    EXPECT_EQ(W("greek"), key("КЛЮЧ").ReadValue(W("ΩΜΈΓΑ")));

    // Without a registry home the user's store is in their home folder.
    SWCharString home = SEnv::get(W("HOME"));
    SEnv::unset(W("NEBU_REGISTRYHOME"));
    SEnv::set(W("HOME"), W((m_dir / "home").string()));
    EXPECT_EQ((m_dir / "home" / ".vardow" / "user" / "registry.db").string(), userStoreFile());
    SEnv::set(W("HOME"), home);

    // A user folder that belongs to somebody else is never used.
    if (vardo_test::runningAsRoot()) {
        SEnv::set(W("NEBU_REGISTRYHOME"), W((m_dir / "planted").string()));
        const fs::path folder = fs::path(userStoreFile()).parent_path();
        fs::create_directories(folder);
        ASSERT_EQ(0, std::system(("chown 65534 '" + folder.string() + "'").c_str()));
        EXPECT_FALSE(key().WriteValue(W("v"), W("x")));
        EXPECT_TRUE(sawAssert("Error code: 5"));
        EXPECT_FALSE(fs::exists(userStoreFile()));
    }
    SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
}

// Child, run as user 65534 by StoreOfOneUserIsTheirsAlone: reads the machine store, may
// not write it, and has an HKEY_CURRENT_USER of its own.
TEST(RegistryUserChild, Run)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SetAssertObserver(recordAssert);
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    Registry machine(base, SWCharString(), RegLocalMachine);
    EXPECT_EQ(W("machine"), machine.ReadValue(W("m")));
    EXPECT_FALSE(machine.WriteValue(W("m"), W("changed")));
    EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(base) + ") failed. Error code: 5"));
    Registry user(base, SWCharString(), RegCurrentUser);
    EXPECT_TRUE(user.ReadValue(W("u")).isEmpty());   // root's value is in root's store
    EXPECT_TRUE(user.WriteValue(W("u"), W("nobody")));
}

TEST_F(RegistryTest, StoreOfOneUserIsTheirsAlone)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "Linux stores only";
    if (!vardo_test::runningAsRoot())
        GTEST_SKIP() << "needs root to run a child as another user";
    if (std::system("setpriv --version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "no setpriv to run a child as another user";
    Registry machine(m_base, SWCharString(), RegLocalMachine);
    ASSERT_TRUE(machine.WriteValue(W("m"), W("machine")));
    ASSERT_TRUE(key().WriteValue(W("u"), W("root")));
    fs::permissions(m_dir, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                               fs::perms::others_read | fs::perms::others_exec);
    const std::string cmd = "VARDO_CHILD_ROLE=RegistryUserChild.Run NEBU_REGISTRYHOME='" +
                            m_dir.string() + "' VARDO_REG_BASE='" + U(m_base) +
                            "' setpriv --reuid=65534 --regid=65534 --clear-groups '" +
                            vardo_test::selfPath() + "' --gtest_filter=RegistryUserChild.Run";
    EXPECT_EQ(0, std::system(cmd.c_str()));
    EXPECT_TRUE(fs::exists(m_dir / "users" / "65534" / "registry.db"));
    // Root's own values stay as they were; the machine value was not changed.
    EXPECT_EQ(W("root"), key().ReadValue(W("u")));
    EXPECT_EQ(W("machine"), machine.ReadValue(W("m")));
}

// Child: writes growing values v0, v1, ... into <base>\killed, each with a sub-key, until
// it has written VARDO_REG_WRITES values or is killed.
std::string killedText(int j) { return checkedText("v" + std::to_string(j), 1000 + (j * 7919) % 20000); }

TEST(RegistryChild, Write)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    const char* writes = vardo_test::childArg("VARDO_REG_WRITES");
    Registry r(base + W("\\killed"), SWCharString(), RegCurrentUser);
    for (int j = 0; j < (writes ? std::stoi(writes) : 1000000); ++j) {
        ASSERT_TRUE(r.WriteValue(W("v" + std::to_string(j)), W(killedText(j))));
        ASSERT_TRUE(Registry(base + W("\\killed\\k" + std::to_string(j)), SWCharString(), RegCurrentUser)
                        .WriteValue(W("n"), static_cast<unsigned long>(j)));
    }
}

TEST_F(RegistryTest, ReadOnlyAndDamagedStoresRefuseWritesWithReport)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "Linux store only";
    // Stores written by another process, one this process has not opened yet.
    auto storeWrittenByChild = [&](const fs::path& home, int writes) {
        fs::create_directories(home);
        auto child = vardo_test::spawnSelf("RegistryChild.Write", {{"NEBU_REGISTRYHOME", home.string()},
                                                                  {"VARDO_REG_BASE", U(m_base)},
                                                                  {"VARDO_REG_WRITES", std::to_string(writes)}});
        EXPECT_EQ(0, vardo_test::wait(child));
        SEnv::set(W("NEBU_REGISTRYHOME"), W(home.string()));
        return userStoreFile();
    };
    ASSERT_TRUE(vardo_test::setFileMode(storeWrittenByChild(m_dir / "frozen", 3), 0444));
    Registry r = key("killed");
    EXPECT_EQ(killedText(0), U(r.ReadValue(W("v0"))));
    EXPECT_FALSE(r.WriteValue(W("v0"), W("changed")));
    EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("killed")) + ") failed. Error code: 5"));
    EXPECT_FALSE(r.DeleteValue(W("v0")));
    EXPECT_FALSE(key().DeleteKeyRecursive());
    EXPECT_EQ(killedText(0), U(key("killed").ReadValue(W("v0"))));

    std::ifstream in(storeWrittenByChild(m_dir / "sound", 50), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::pair<const char*, std::string> damages[] = {
        {"garbage", std::string(20000, 'G')}, {"truncated", bytes.substr(0, bytes.size() / 2)}};
    for (const auto& d : damages) {
        SCOPED_TRACE(d.first);
        SEnv::set(W("NEBU_REGISTRYHOME"), W((m_dir / d.first).string()));
        fs::path file = userStoreFile();
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << d.second;
        EXPECT_EQ(SRegistryStore::StoreDamaged, SRegistryStore::CheckRoot(RegCurrentUser));
        g_asserts.clear();
        EXPECT_TRUE(key("killed").ReadValue(W("v49")).isEmpty());
        EXPECT_FALSE(key("killed").EnumValues());
        EXPECT_FALSE(key("killed").WriteValue(W("v0"), W("new")));
        EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("killed")) + ") failed. Error code: 1009"));
        EXPECT_TRUE(key("killed").ReadValue(W("v0"), W("default")).isEmpty());
        EXPECT_EQ(d.second.size(), fs::file_size(file));   // left for the operator to inspect
    }
    SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
}

TEST_F(RegistryTest, WriterKilledMidWriteLeavesConsistentStore)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "the store check is for the Linux store";
    auto child = vardo_test::spawnSelf("RegistryChild.Write", {{"VARDO_REG_BASE", U(m_base)}});
    // Let it commit a good number of writes while this process writes too (each must wait
    // for the other's lock), then kill it wherever it is.
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (key("killed").ReadValue(W("v77")).isEmpty() && std::chrono::steady_clock::now() < until)
        ASSERT_TRUE(key("parent").WriteValue(W("v"), W(checkedText("parent", 5000))));
    vardo_test::kill(child);
    ASSERT_FALSE(key("killed").ReadValue(W("v77")).isEmpty()) << "the writer made no progress";
    SWCharString detail;
    ASSERT_EQ(SRegistryStore::StoreOk, SRegistryStore::CheckRoot(RegCurrentUser, &detail)) << U(detail);
    // Every committed value is whole, and the values form an unbroken run.
    Names values = valuesOf(key("killed"));
    for (size_t j = 0; j < values.size(); ++j)
        ASSERT_EQ("v" + std::to_string(j) + "=" + killedText(static_cast<int>(j)), values[j]);
    EXPECT_TRUE(key("killed").WriteValue(W("after"), W("ok")));   // writes go on at once
}

TEST_F(RegistryTest, ThreadsWithObjectsOfTheirOwnShareTheStore)
{
    SetAssertObserver(0);   // the recorder is not made for several threads
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Registry r = key("threads");
            for (int j = 0; j < 100; ++j) {
                std::string tag = "t" + std::to_string(t) + "-" + std::to_string(j);
                failures[t] += !r.WriteValue(W(tag), W(checkedText(tag, 200 + j))) ||
                               U(r.ReadValue(W(tag))) != checkedText(tag, 200 + j) || !subKeysOf(r).empty();
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::vector<int>(4, 0), failures);
}

bool importText(const std::string& utf8, SWCharString* error = 0)
{
    return SRegFile::Import(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), error);
}

std::string numbered(const char* prefix, int i)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%s%04d", prefix, i);
    return buf;
}

// Child: imports one regedit file that writes VARDO_REG_VALUES values into
// <base>\<VARDO_REG_KEY>, all through one key handle. Exit code 0: the import succeeded;
// 10: it failed because the key was deleted under it (error 1018); 20: another failure.
TEST(RegistryChild, ImportMany)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    std::string text = "Windows Registry Editor Version 5.00\r\n[HKEY_CURRENT_USER\\" +
                       std::string(vardo_test::childArg("VARDO_REG_BASE")) + "\\" +
                       vardo_test::childArg("VARDO_REG_KEY") + "]\r\n";
    for (int j = 0; j < std::stoi(vardo_test::childArg("VARDO_REG_VALUES")); ++j)
        text += "\"" + numbered("v", j) + "\"=\"" + checkedText(numbered("v", j), 300) + "\"\r\n";
    SWCharString error;
    bool ok = importText(text, &error);
    std::exit(ok ? 0 : U(error).find("(error 1018)") != std::string::npos ? 10 : 20);
}

// Child: deletes <base>\<VARDO_REG_KEY> unless its last value VARDO_REG_LAST is there
// already, and writes "deleted", "late" or "failed" to the file VARDO_REG_MARK.
TEST(RegistryChild, DeleteUnlessDone)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    Registry doomed(W(vardo_test::childArg("VARDO_REG_BASE")) + W("\\") + W(vardo_test::childArg("VARDO_REG_KEY")),
                    SWCharString(), RegCurrentUser);
    std::string outcome = !doomed.ReadValue(W(vardo_test::childArg("VARDO_REG_LAST"))).isEmpty()
                              ? "late"
                              : doomed.DeleteKey() ? "deleted" : "failed";
    std::string mark = vardo_test::childArg("VARDO_REG_MARK");
    std::ofstream(mark + ".tmp") << outcome;
    fs::rename(mark + ".tmp", mark);
}

TEST_F(RegistryTest, WriteIntoAKeyDeletedByAnotherProcessFails)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "stops and continues processes with Linux signals";
    const int values = 20000;
    for (int attempt = 0; attempt < 4; ++attempt) {
        SCOPED_TRACE(attempt);
        const std::string name = "doomed" + std::to_string(attempt);
        auto writer = vardo_test::spawnSelf("RegistryChild.ImportMany",
                                            {{"VARDO_REG_BASE", U(m_base)},
                                             {"VARDO_REG_KEY", name},
                                             {"VARDO_REG_VALUES", std::to_string(values)}});
        const std::string pid = std::to_string(writer.id());
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        while (key(name).ReadValue(W(numbered("v", 100))).isEmpty() &&
               std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_FALSE(key(name).ReadValue(W(numbered("v", 100))).isEmpty()) << "the writer made no progress";
        // Freeze the writer between two writes through its handle and delete the key. A
        // writer frozen while it holds the store's lock would keep the deleter waiting:
        // then it runs on a little and is frozen again.
        std::string outcome;
        const fs::path mark = m_dir / ("mark-" + name);
        for (int round = 0; outcome.empty() && round < 50; ++round) {
            ASSERT_EQ(0, std::system(("kill -STOP " + pid).c_str()));
            auto deleter = vardo_test::spawnSelf("RegistryChild.DeleteUnlessDone",
                                                 {{"VARDO_REG_BASE", U(m_base)},
                                                  {"VARDO_REG_KEY", name},
                                                  {"VARDO_REG_LAST", numbered("v", values - 1)},
                                                  {"VARDO_REG_MARK", mark.string()}});
            auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(3);
            while (!fs::exists(mark) && std::chrono::steady_clock::now() < giveUp)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (fs::exists(mark)) {
                EXPECT_EQ(0, vardo_test::wait(deleter));
                std::getline(std::ifstream(mark), outcome);
            } else {
                vardo_test::kill(deleter);
            }
            ASSERT_EQ(0, std::system(("kill -CONT " + pid).c_str()));
            if (outcome.empty())
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        int code = vardo_test::wait(writer);
        if (outcome == "late")
            continue;   // the writer was done before the deletion: try again
        ASSERT_EQ("deleted", outcome);
        // Every write after the deletion went to a key that no longer exists: the import
        // must fail with ERROR_KEY_DELETED instead of reporting values that are lost.
        EXPECT_EQ(10, code) << "the import succeeded although its key was deleted under it";
        return;
    }
    FAIL() << "the writer always finished before its key could be deleted";
}

// Child: changes <base>\list while the parent is in the middle of enumerating it.
TEST(RegistryChild, ChangeListing)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString list = W(vardo_test::childArg("VARDO_REG_BASE")) + W("\\list");
    auto sub = [&](const std::string& k) { return Registry(list + W("\\" + k), SWCharString(), RegCurrentUser); };
    ASSERT_TRUE(sub("k2500").DeleteKey());
    ASSERT_TRUE(sub("k9999x").WriteValue(W("n"), 1ul));   // sorts after all others
    ASSERT_TRUE(sub("a000").WriteValue(W("n"), 1ul));     // sorts before all others
    Registry values(list, SWCharString(), RegCurrentUser);
    ASSERT_TRUE(values.DeleteValue(W("v2500")));
    ASSERT_TRUE(values.WriteValue(W("v2600"), W("changed")));
    ASSERT_TRUE(values.WriteValue(W("new"), W("last")));
}

TEST_F(RegistryTest, ListingsAreWholeOrderedAndFollowACursorWhileKeysChange)
{
    const int n = vardo_test::onWindows() ? 300 : 3000;
    std::string text = "Windows Registry Editor Version 5.00\r\n";
    for (int i = n - 1; i >= 0; --i)
        text += "[HKEY_CURRENT_USER\\" + U(m_base) + "\\list\\" + numbered("K", i) + "]\r\n";
    text += "[HKEY_CURRENT_USER\\" + U(m_base) + "\\list]\r\n";
    for (int i = 0; i < n; ++i)
        text += "\"" + numbered("v", i) + "\"=\"" + numbered("x", i) + "\"\r\n";
    ASSERT_TRUE(importText(text));
    Names expectKeys, expectValues;
    for (int i = 0; i < n; ++i) {
        expectKeys.push_back(numbered("K", i));
        expectValues.push_back(numbered("v", i) + "=" + numbered("x", i));
    }
    Registry list = key("list");
    Registry::KeyIterator kit = list.EnumSubKeys();
    Registry::ValueIterator vit = list.EnumValues();
    Names keys, values;
    for (int i = 0; i < 20; ++i, ++kit, ++vit) {
        keys.push_back(U(kit.GetKey()));
        values.push_back(U(vit.GetName()) + "=" + U(vit.GetValue()));
    }
    if (onLinuxStore()) {
        // Another process changes the key while both listings stand at index 20. Entries
        // that live throughout come once and in order; what is deleted beyond the batch in
        // hand does not come; what is created after the cursor does, in its place.
        auto child = vardo_test::spawnSelf("RegistryChild.ChangeListing", {{"VARDO_REG_BASE", U(m_base)}});
        ASSERT_EQ(0, vardo_test::wait(child));
        expectKeys.erase(expectKeys.begin() + 2500);
        expectKeys.push_back("k9999x");
        expectValues[2600] = "v2600=changed";
        expectValues.erase(expectValues.begin() + 2500);
        expectValues.push_back("new=last");
    }
    for (; kit; ++kit)
        keys.push_back(U(kit.GetKey()));
    for (; vit; ++vit)
        values.push_back(U(vit.GetName()) + "=" + U(vit.GetValue()));
    if (vardo_test::onWindows())
        std::sort(values.begin(), values.end());   // the Windows registry promises no order
    EXPECT_EQ(expectKeys, keys);       // by name, whatever the creation order
    EXPECT_EQ(expectValues, values);   // the store keeps creation order
    if (onLinuxStore()) {
        EXPECT_EQ("a000", subKeysOf(list)[0]);   // index 0 starts afresh
    }
}

} // namespace
