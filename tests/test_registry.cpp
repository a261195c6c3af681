// Registry: reads, defaults, writes, types, enumeration, deletion, copying, remote
// machines; on Linux also the store itself: many processes at once, a writer killed in
// the middle of a write, read-only and damaged store files.
//
// Every test works in a scratch key below HKEY_CURRENT_USER\Software\VardoTest (no
// administrator rights needed on Windows); on Linux NEBU_REGISTRYHOME points at a fresh
// temporary folder for each test.
#include <vardo/regfile.h>
#include <vardo/registry.h>
#include <vardo/senv.h>
#include <vardo/strace.h>

#include "child_process.h"
#include "sfile_test_support.h"
#include "vardo_gtest.h"

#include "text.h"

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



std::vector<std::string> g_asserts;

void recordAssert(const char*, int, const char* expression, const SWCharString& message)
{
    g_asserts.push_back(std::string(expression) + " | " + U(message));
}

bool sawAssert(const std::string& text)
{
    for (const std::string& a : g_asserts)
        if (a.find(text) != std::string::npos)
            return true;
    return false;
}

std::string uniqueName()
{
    static int counter = 0;
    return std::to_string(std::chrono::steady_clock::now().time_since_epoch().count() % 1000000007) +
           "-" + std::to_string(++counter);
}

// A text whose content can be checked from itself: "tag:length:" then a pattern.
std::string checkedText(const std::string& tag, size_t length)
{
    std::string s = tag + ":" + std::to_string(length) + ":";
    while (s.size() < length)
        s += static_cast<char>('a' + (s.size() * 7 + tag.size()) % 26);
    return s;
}

bool isCheckedText(const std::string& s)
{
    size_t a = s.find(':');
    size_t b = a == std::string::npos ? a : s.find(':', a + 1);
    if (b == std::string::npos)
        return false;
    size_t length = std::stoul(s.substr(a + 1, b - a - 1));
    return s == checkedText(s.substr(0, a), length);
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_asserts.clear();
        SetAssertObserver(recordAssert);
        std::string name = uniqueName();
        m_dir = fs::temp_directory_path() / ("vardo-reg-" + name);
        fs::create_directories(m_dir);
        if (!vardo_test::isChild())
            SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
        const char* base = vardo_test::childArg("VARDO_REG_BASE");
        m_base = base ? W(base) : W("Software\\VardoTest\\" + name);
    }
    void TearDown() override
    {
        if (!vardo_test::isChild()) {
            Registry(m_base, SWCharString(), RegCurrentUser).DeleteKeyRecursive();
            SEnv::unset(W("NEBU_REGISTRYHOME"));
            std::error_code ec;
            fs::permissions(m_dir, fs::perms::owner_all, fs::perm_options::add, ec);
            fs::remove_all(m_dir, ec);
        }
        SetAssertObserver(0);
    }
    Registry key(const std::string& sub = std::string())
    {
        return Registry(sub.empty() ? m_base : m_base + W("\\" + sub), SWCharString(), RegCurrentUser);
    }
    SWCharString path(const std::string& sub) { return m_base + W("\\" + sub); }
    bool onLinuxStore() { return !SRegistryStore::GetPath().isEmpty(); }
    std::string storeFile() { return U(SRegistryStore::GetPath()); }
    // The tests' keys are below HKEY_CURRENT_USER: on Linux the user's own store.
    std::string userStoreFile() { return U(SRegistryStore::GetRootPath(RegCurrentUser)); }
    SRegistryStore::Status checkUserStore(SWCharString* detail = 0)
    {
        return SRegistryStore::CheckRoot(RegCurrentUser, detail);
    }

    fs::path m_dir;
    SWCharString m_base;
};

TEST_F(RegistryTest, MissingKeysAndValuesReadEmptyWithoutReport)
{
    Registry r = key("nothing\\here");
    EXPECT_FALSE(r.KeyExists());
    EXPECT_TRUE(r.ReadValue(W("x")).isEmpty());
    unsigned long type = 99;
    EXPECT_FALSE(r.GetType(W("x"), type));
    EXPECT_FALSE(r.EnumSubKeys());
    EXPECT_FALSE(r.DeleteValue(W("x")));
    EXPECT_FALSE(r.DeleteKeyRecursive());
    EXPECT_TRUE(g_asserts.empty()) << g_asserts[0];
    // Reading did not create anything.
    EXPECT_FALSE(key("nothing").KeyExists());
}

TEST_F(RegistryTest, WritesReadBackWithTypesAndCaseInsensitiveNames)
{
    Registry r = key("a\\b");
    EXPECT_TRUE(r.WriteValue(W("Text"), W("hello wörld")));
    EXPECT_TRUE(r.WriteValue(W("Number"), 42ul));
    EXPECT_TRUE(r.WriteValue(W("AllOnes"), 0xFFFFFFFFul));
    EXPECT_TRUE(r.WriteValue(W("Café"), W("accent")));
    EXPECT_EQ(W("hello wörld"), r.ReadValue(W("TEXT")));
    EXPECT_EQ(W("4294967295"), r.ReadValue(W("AllOnes")));
    EXPECT_EQ(W("accent"), r.ReadValue(W("CAFÉ")));
    unsigned long type = 0;
    ASSERT_TRUE(r.GetType(W("number"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeDword), type);

    // A value written under another case keeps its first spelling and takes the new type.
    EXPECT_TRUE(r.WriteValue(W("TEXT"), 7ul));
    EXPECT_EQ(W("7"), r.ReadValue(W("Text")));
    std::vector<std::string> names;
    for (Registry::ValueIterator it = r.EnumValues(); it; ++it)
        names.push_back(U(it.GetName()));
    EXPECT_NE(std::find(names.begin(), names.end(), "Text"), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), "TEXT"), names.end());

    // The key path is case-insensitive too.
    EXPECT_EQ(W("42"), Registry(m_base + W("\\A\\B"), SWCharString(), RegCurrentUser).ReadValue(W("Number")));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, LongValuesAreReadWhole)
{
    Registry r = key();
    std::string big = checkedText("big", 40000);   // 80000 bytes, well past 16300
    ASSERT_TRUE(r.WriteValue(W("Big"), W(big)));
    EXPECT_EQ(big, U(r.ReadValue(W("Big"))));
    // Just below and just above the first buffer.
    std::string edge1 = checkedText("e1", 8149);   // 8150 units with the terminator = 16300 bytes
    std::string edge2 = checkedText("e2", 8150);
    ASSERT_TRUE(r.WriteValue(W("E1"), W(edge1)));
    ASSERT_TRUE(r.WriteValue(W("E2"), W(edge2)));
    EXPECT_EQ(edge1, U(r.ReadValue(W("E1"))));
    EXPECT_EQ(edge2, U(r.ReadValue(W("E2"))));
    Registry::ValueIterator it = r.EnumValues();
    ASSERT_EQ(W("Big"), it.GetName());
    EXPECT_EQ(big, U(it.GetValue()));
}

TEST_F(RegistryTest, ReadWithDefaultWritesTheDefaultBack)
{
    Registry r = key("defaults");
    EXPECT_EQ(W("fallback"), r.ReadValue(W("Missing"), W("fallback")));
    EXPECT_EQ(W("fallback"), key("defaults").ReadValue(W("Missing")));   // now stored
    EXPECT_EQ(W("1234"), r.ReadValue(W("Num"), 1234ul));
    unsigned long type = 0;
    ASSERT_TRUE(r.GetType(W("Num"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeDword), type);
    // An existing value wins over the default.
    EXPECT_EQ(W("1234"), r.ReadValue(W("Num"), 99ul));
    // An empty default creates nothing.
    EXPECT_TRUE(r.ReadValue(W("Nothing"), SWCharString()).isEmpty());
    EXPECT_FALSE(r.GetType(W("Nothing"), type));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, ExpandableStringsExpandWithinMaxPath)
{
    SEnv::set(W("VARDO_REG_TEST_DIR"), W("/opt/quorvane"));
    Registry r = key();
    auto writeExpand = [&](const char* name, const std::string& text) {
        std::vector<unsigned char> bytes;
        SWCharString t = W(text);
        for (unsigned int i = 0; i <= t.getLength(); ++i) {
            bytes.push_back(static_cast<unsigned char>(t.data()[i] & 0xFF));
            bytes.push_back(static_cast<unsigned char>(t.data()[i] >> 8));
        }
        return r.WriteValueRaw(W(name), RegTypeExpandString, bytes.data(),
                               static_cast<uint32_t>(bytes.size()));
    };
    ASSERT_TRUE(writeExpand("Path", "%VARDO_REG_TEST_DIR%\\bin"));
    ASSERT_TRUE(writeExpand("Long", std::string(300, 'x')));
    ASSERT_TRUE(writeExpand("Fits", std::string(259, 'y')));
    EXPECT_EQ(W("/opt/quorvane\\bin"), r.ReadValue(W("Path")));
    EXPECT_EQ(W(std::string(259, 'y')), r.ReadValue(W("Fits")));
    EXPECT_TRUE(g_asserts.empty());
    EXPECT_TRUE(r.ReadValue(W("Long")).isEmpty());
    EXPECT_TRUE(sawAssert("numChars && numChars <= MAX_PATH | Registry::ReadValue: Buffer is not "
                          "big enough to accomodate expanded string from registry"));
    g_asserts.clear();
    for (Registry::ValueIterator it = r.EnumValues(); it; ++it) {
        if (it.GetName() == W("Long")) {
            EXPECT_TRUE(it.GetValue().isEmpty());
        }
    }
    EXPECT_TRUE(sawAssert("Registry::ValueIterator::NextValue: Buffer is not big enough to "
                          "accomodate expanded string from registry"));
    SEnv::unset(W("VARDO_REG_TEST_DIR"));
}

TEST_F(RegistryTest, OtherTypesReadEmptyButKeepTheirBytes)
{
    Registry r = key();
    const unsigned char bin[] = {0, 1, 2, 0xFF};
    const unsigned char multi[] = {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0};
    const unsigned char qword[] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_TRUE(r.WriteValueRaw(W("Bin"), RegTypeBinary, bin, sizeof bin));
    ASSERT_TRUE(r.WriteValueRaw(W("Multi"), RegTypeMultiString, multi, sizeof multi));
    ASSERT_TRUE(r.WriteValueRaw(W("Q"), RegTypeQword, qword, sizeof qword));
    for (const char* n : {"Bin", "Multi", "Q"})
        EXPECT_TRUE(r.ReadValue(W(n)).isEmpty()) << n;

    unsigned long type = 0;
    unsigned char buf[16];
    uint32_t size = 2;
    EXPECT_FALSE(r.ReadValueRaw(W("Multi"), type, buf, size));   // too small: size told
    EXPECT_EQ(sizeof multi, size);
    size = sizeof buf;
    ASSERT_TRUE(r.ReadValueRaw(W("Multi"), type, buf, size));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeMultiString), type);
    EXPECT_EQ(std::vector<unsigned char>(multi, multi + sizeof multi),
              std::vector<unsigned char>(buf, buf + size));

    // CopyValue carries type and bytes.
    ASSERT_TRUE(Registry::CopyValue(RegCurrentUser, m_base, W("Q"), RegCurrentUser, path("copy"), W("Q2")));
    size = sizeof buf;
    ASSERT_TRUE(key("copy").ReadValueRaw(W("Q2"), type, buf, size));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeQword), type);
    EXPECT_EQ(std::vector<unsigned char>(qword, qword + 8), std::vector<unsigned char>(buf, buf + size));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, EnumerationAndIteratorHandleTransfer)
{
    Registry r = key("enum");
    for (const char* k : {"zeta", "Alpha", "beta", "Gamma"})
        ASSERT_TRUE(key(std::string("enum\\") + k).WriteValue(W("v"), W(k)));
    for (const char* v : {"second", "first", "Third"})
        ASSERT_TRUE(r.WriteValue(W(v), W(std::string("=") + v)));
    ASSERT_TRUE(r.WriteValue(W("Count"), 3ul));

    std::vector<std::string> keys;
    for (Registry::KeyIterator it = r.EnumSubKeys(); it; ++it)
        keys.push_back(U(it.GetKey()));
    EXPECT_EQ((std::vector<std::string>{"Alpha", "beta", "Gamma", "zeta"}), keys);

    std::vector<std::string> values;
    for (Registry::ValueIterator it = r.EnumValues(); it; ++it)
        values.push_back(U(it.GetName()) + U(it.GetValue()));
    std::vector<std::string> expected{"second=second", "first=first", "Third=Third", "Count3"};
    if (vardo_test::onWindows())
        std::sort(values.begin(), values.end()), std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, values);   // the store keeps creation order

    // Copying moves the handle; the copy goes on from where the source stood.
    Registry::KeyIterator a = r.EnumSubKeys();
    ASSERT_TRUE(a);
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
    EXPECT_TRUE(owner);
}

TEST_F(RegistryTest, DeleteKeyRefusesSubKeysAndRecursiveDeletesAll)
{
    ASSERT_TRUE(key("tree\\child\\leaf").WriteValue(W("v"), W("x")));
    ASSERT_TRUE(key("tree").WriteValue(W("top"), W("y")));
    Registry tree = key("tree");
    EXPECT_FALSE(tree.DeleteKey());
    EXPECT_TRUE(sawAssert("DeleteKey: There is subkey inside key " + U(path("tree"))));
    EXPECT_EQ(W("y"), key("tree").ReadValue(W("top")));
    EXPECT_TRUE(key("tree\\child\\leaf").DeleteKey());
    EXPECT_TRUE(key("tree\\child").KeyExists());
    g_asserts.clear();
    Registry keep = key("tree");
    EXPECT_TRUE(keep.DeleteKeyRecursive(false));   // empties the key, keeps it
    EXPECT_TRUE(key("tree").KeyExists());
    EXPECT_FALSE(key("tree").EnumSubKeys());
    EXPECT_FALSE(key("tree").EnumValues());
    ASSERT_TRUE(key("tree\\x\\y").WriteValue(W("v"), 1ul));
    EXPECT_TRUE(key("tree").DeleteKeyRecursive());
    EXPECT_FALSE(key("tree").KeyExists());
    EXPECT_FALSE(key("tree").DeleteKeyRecursive());
    EXPECT_TRUE(g_asserts.empty());

    // An object keeps working after its own key is deleted and written again.
    Registry again = key("again");
    ASSERT_TRUE(again.WriteValue(W("v"), W("1")));
    EXPECT_TRUE(key("again").DeleteKey());
    EXPECT_TRUE(again.ReadValue(W("v")).isEmpty());
    ASSERT_TRUE(key("again").WriteValue(W("v"), W("2")));
    EXPECT_EQ(W("2"), again.ReadValue(W("v")));
}

TEST_F(RegistryTest, CopyKeyCopiesTheTreeEvenIntoItself)
{
    const unsigned char bin[] = {9, 8, 7};
    ASSERT_TRUE(key("src").WriteValue(W("s"), W("text")));
    ASSERT_TRUE(key("src\\sub").WriteValue(W("n"), 5ul));
    ASSERT_TRUE(key("src\\sub\\deep").WriteValueRaw(W("b"), RegTypeBinary, bin, 3));
    ASSERT_TRUE(Registry::CopyKey(RegCurrentUser, path("src"), RegCurrentUser, path("dst")));
    EXPECT_EQ(W("text"), key("dst").ReadValue(W("s")));
    EXPECT_EQ(W("5"), key("dst\\sub").ReadValue(W("n")));
    unsigned long type = 0;
    unsigned char buf[8];
    uint32_t size = sizeof buf;
    ASSERT_TRUE(key("dst\\sub\\deep").ReadValueRaw(W("b"), type, buf, size));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeBinary), type);

    // Into its own sub-tree: the source is read first, so this ends.
    ASSERT_TRUE(Registry::CopyKey(RegCurrentUser, path("src"), RegCurrentUser, path("src\\sub\\copy")));
    EXPECT_EQ(W("5"), key("src\\sub\\copy\\sub").ReadValue(W("n")));
    EXPECT_FALSE(key("src\\sub\\copy\\sub\\copy").KeyExists());
    EXPECT_FALSE(Registry::CopyKey(RegCurrentUser, path("nope"), RegCurrentUser, path("dst2")));
    EXPECT_TRUE(g_asserts.empty());
}

TEST_F(RegistryTest, PathRulesConstructorAndCompanyKeys)
{
    Registry trailing(m_base + W("\\t\\"), SWCharString(), RegCurrentUser);
    trailing.ReadValue(W("x"));
    EXPECT_TRUE(sawAssert("m_subKey.getAt (m_subKey.getNChars() - 1) != _T('\\\\') | Win95 doesn't "
                          "like opening \\ ending reg keys"));

    Registry joined(W("leaf"), m_base + W("\\pre\\"), RegCurrentUser, true);
    EXPECT_EQ(m_base + W("\\pre\\leaf"), joined.GetPath());
    EXPECT_TRUE(key("pre\\leaf").KeyExists());   // bCreate made it

    CompanyRegistry logging(W("Logging"));
    EXPECT_EQ(W("Software\\Quorvane\\Suite 12.0\\Logging"), logging.GetPath());
    EXPECT_EQ(RegLocalMachine, logging.GetRoot());
    if (onLinuxStore()) {   // HKEY_LOCAL_MACHINE needs rights on Windows
        EXPECT_TRUE(logging.WriteValue(W("loggingPath"), W("/var/log/q")));
        EXPECT_EQ(W("/var/log/q"), Registry(W("Software\\QUORVANE\\suite 12.0\\Logging"), SWCharString(),
                                            RegLocalMachine).ReadValue(W("loggingPath")));
        // A copy opens its own handle; both work.
        CompanyRegistry copy = logging;
        EXPECT_EQ(W("/var/log/q"), copy.ReadValue(W("loggingPath")));
        EXPECT_EQ(W("/var/log/q"), logging.ReadValue(W("loggingPath")));
    }
}

TEST_F(RegistryTest, RemoteMachines)
{
    Registry r = key();
    ASSERT_TRUE(r.WriteValue(W("v"), W("local")));
    Registry remote = key();
    remote.SetRemoteMachine(W("vardo-no-such-machine.invalid"));
    EXPECT_TRUE(remote.IsRemoteReg());
    EXPECT_TRUE(sawAssert("RegConnectRegistry(\\\\vardo-no-such-machine.invalid) failed. Error code: "));
    EXPECT_TRUE(remote.ReadValue(W("v")).isEmpty());
    EXPECT_FALSE(remote.WriteValue(W("v"), W("x")));
    if (onLinuxStore()) {
        EXPECT_TRUE(sawAssert("Error code: 53"));
        // This machine's own names reach the local store's HKEY_LOCAL_MACHINE.
        ASSERT_TRUE(Registry(m_base, SWCharString(), RegLocalMachine).WriteValue(W("m"), W("machine")));
        Registry self(m_base, SWCharString(), RegCurrentUser);
        self.SetRemoteMachine(W("localhost"));
        EXPECT_EQ(W("machine"), Registry(self).ReadValue(W("m")));   // copies keep the machine
        EXPECT_TRUE(Registry(m_base, SWCharString(), RegLocalMachine).DeleteKeyRecursive());
    }
}

// ---- the Linux store ---------------------------------------------------------------------

TEST_F(RegistryTest, StoresLiveInNebuRegistryHomeOnePerUser)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "the Windows registry has no store file";
    EXPECT_EQ((m_dir / "registry.db").string(), storeFile());
    // HKEY_CURRENT_USER has a store of its own: users/<uid>/registry.db.
    const std::string user = userStoreFile();
    const std::string users = (m_dir / "users").string() + "/";
    const std::string uid = user.substr(users.size(), user.find("/registry.db", users.size()) - users.size());
    EXPECT_EQ(users + uid + "/registry.db", user);
    EXPECT_TRUE(!uid.empty() && uid.find_first_not_of("0123456789") == std::string::npos) << uid;
    EXPECT_EQ(SRegistryStore::StoreMissing, SRegistryStore::Check());
    EXPECT_EQ(SRegistryStore::StoreMissing, checkUserStore());

    ASSERT_TRUE(key().WriteValue(W("v"), W("user")));
    EXPECT_TRUE(fs::exists(user));
    EXPECT_FALSE(fs::exists(m_dir / "registry.db"));
    const fs::perms mask = fs::perms::mask;
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(user).permissions() & mask);
    EXPECT_EQ(fs::perms::owner_all, fs::status(fs::path(user).parent_path()).permissions() & mask);
    EXPECT_EQ(fs::perms::all | fs::perms::sticky_bit, fs::status(m_dir / "users").permissions() & mask);

    // The same path below HKEY_LOCAL_MACHINE is another tree, in the machine store.
    Registry machine(m_base, SWCharString(), RegLocalMachine);
    ASSERT_TRUE(machine.WriteValue(W("v"), W("machine")));
    EXPECT_TRUE(fs::exists(m_dir / "registry.db"));
    EXPECT_EQ(W("user"), key().ReadValue(W("v")));
    SWCharString detail;
    EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::Check(&detail)) << U(detail);
    EXPECT_EQ(SRegistryStore::StoreOk, checkUserStore(&detail)) << U(detail);
    EXPECT_TRUE(machine.DeleteKeyRecursive());

    // Names with characters beyond Latin-1 compare case-insensitively too.
    ASSERT_TRUE(key("Ключ").WriteValue(W("Ωμέγα"), W("greek")));
    EXPECT_EQ(W("greek"), key("КЛЮЧ").ReadValue(W("ΩΜΈΓΑ")));

    // Without a registry home the user's store is in their home folder.
    SWCharString home = SEnv::get(W("HOME"));
    SEnv::unset(W("NEBU_REGISTRYHOME"));
    SEnv::set(W("HOME"), W((m_dir / "home").string()));
    EXPECT_EQ((m_dir / "home" / ".vardow" / "user" / "registry.db").string(), userStoreFile());
    SEnv::set(W("HOME"), home);
    SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
    g_asserts.clear();

    // A user folder that belongs to somebody else is never used.
    if (vardo_test::runningAsRoot()) {
        fs::path planted = m_dir / "planted";
        SEnv::set(W("NEBU_REGISTRYHOME"), W(planted.string()));
        fs::create_directories(fs::path(userStoreFile()).parent_path());
        ASSERT_EQ(0, std::system(("chown 65534 '" + fs::path(userStoreFile()).parent_path().string() + "'").c_str()));
        EXPECT_FALSE(key().WriteValue(W("v"), W("x")));
        EXPECT_TRUE(sawAssert("Error code: 5"));
        EXPECT_FALSE(fs::exists(userStoreFile()));
        SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
    }
}

// Child, run as user 65534 by StoreOfOneUserIsTheirsAlone: reads the machine store, may
// not write it, and has an HKEY_CURRENT_USER of its own.
TEST(RegistryUserChild, Run)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SetAssertObserver(recordAssert);
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    std::string home = vardo_test::childArg("NEBU_REGISTRYHOME");
    EXPECT_EQ(home + "/users/65534/registry.db", U(SRegistryStore::GetRootPath(RegCurrentUser)));
    Registry machine(base, SWCharString(), RegLocalMachine);
    EXPECT_EQ(W("machine"), machine.ReadValue(W("m")));
    EXPECT_FALSE(machine.WriteValue(W("m"), W("changed")));
    EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(base) + ") failed. Error code: 5"));
    Registry user(base, SWCharString(), RegCurrentUser);
    EXPECT_TRUE(user.ReadValue(W("u")).isEmpty());   // root's value is in root's store
    EXPECT_TRUE(user.WriteValue(W("u"), W("nobody")));
    EXPECT_EQ(W("nobody"), Registry(base, SWCharString(), RegCurrentUser).ReadValue(W("u")));
    EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::CheckRoot(RegCurrentUser));
    SetAssertObserver(0);
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
    // The child's store: its own folder and file, closed to everybody else.
    fs::path theirs = m_dir / "users" / "65534";
    ASSERT_TRUE(fs::exists(theirs / "registry.db"));
    const fs::perms mask = fs::perms::mask;
    EXPECT_EQ(fs::perms::owner_all, fs::status(theirs).permissions() & mask);
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
              fs::status(theirs / "registry.db").permissions() & mask);
    EXPECT_EQ(0, std::system(("test \"$(stat -c %u '" + theirs.string() + "' '" +
                              (theirs / "registry.db").string() + "' | sort -u)\" = 65534")
                                 .c_str()));
    // Root's own values stay as they were; the machine value was not changed.
    EXPECT_EQ(W("root"), key().ReadValue(W("u")));
    EXPECT_EQ(W("machine"), machine.ReadValue(W("m")));
    EXPECT_TRUE(machine.DeleteKeyRecursive());
}

// A store written by another process (one this process has not opened yet), and the
// file's path.
std::string storeWrittenByChild(const fs::path& home, const SWCharString& base, int writes)
{
    fs::create_directories(home);
    auto child = vardo_test::spawnSelf("RegistryChild.Write", {{"NEBU_REGISTRYHOME", home.string()},
                                                              {"VARDO_REG_BASE", U(base)},
                                                              {"VARDO_REG_WRITES", std::to_string(writes)}});
    EXPECT_EQ(0, vardo_test::wait(child));
    SEnv::set(W("NEBU_REGISTRYHOME"), W(home.string()));
    return U(SRegistryStore::GetRootPath(RegCurrentUser));
}

TEST_F(RegistryTest, ReadOnlyAndDamagedStoresRefuseWritesWithReport)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "Linux store only";
    ASSERT_TRUE(vardo_test::setFileMode(storeWrittenByChild(m_dir / "frozen", m_base, 3), 0444));
    g_asserts.clear();
    Registry r = key("w0");
    EXPECT_EQ(W(checkedText("w0-0", 100)), r.ReadValue(W("v0")));
    EXPECT_FALSE(r.WriteValue(W("v0"), W("changed")));
    EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("w0")) + ") failed. Error code: 5"));
    EXPECT_FALSE(key("w0").DeleteValue(W("v0")));
    EXPECT_FALSE(key().DeleteKeyRecursive());
    EXPECT_EQ(W(checkedText("w0-0", 100)), key("w0").ReadValue(W("v0")));

    std::ifstream in(storeWrittenByChild(m_dir / "sound", m_base, 200), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 8192u);
    std::string header = bytes;
    for (size_t i = 0; i < 100; ++i)
        header[i] = static_cast<char>(0x5A ^ i);
    const std::pair<const char*, std::string> damages[] = {
        {"garbage", std::string(20000, 'G')}, {"truncated", bytes.substr(0, bytes.size() / 2)}, {"header", header}};
    for (const auto& d : damages) {
        SCOPED_TRACE(d.first);
        SEnv::set(W("NEBU_REGISTRYHOME"), W((m_dir / d.first).string()));
        fs::path file = userStoreFile();
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << d.second;
        SWCharString detail;
        EXPECT_EQ(SRegistryStore::StoreDamaged, checkUserStore(&detail));
        EXPECT_FALSE(detail.isEmpty());
        g_asserts.clear();
        EXPECT_TRUE(key("w0").ReadValue(W("v199")).isEmpty());
        EXPECT_FALSE(key("w0").EnumValues());
        EXPECT_FALSE(key("w0").WriteValue(W("v0"), W("new")));
        EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("w0")) + ") failed. Error code: 1009"));
        EXPECT_TRUE(key("w0").ReadValue(W("v0"), W("default")).isEmpty());
        // The file is left as it was for the operator to inspect.
        EXPECT_EQ(d.second.size(), fs::file_size(file));
    }
    SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
}

// Child: writes VARDO_REG_WRITES checked values v0.. into <base>\w0 and exits.
TEST(RegistryChild, Write)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    int n = std::stoi(vardo_test::childArg("VARDO_REG_WRITES"));
    Registry r(base + W("\\w0"), SWCharString(), RegCurrentUser);
    for (int j = 0; j < n; ++j)
        ASSERT_TRUE(r.WriteValue(W("v" + std::to_string(j)), W(checkedText("w0-" + std::to_string(j), 100))));
}

// Child: writer number VARDO_REG_WRITER. Writes its own values, overwrites a shared one,
// creates the same deep keys as the others, and checks every value it reads is whole.
TEST(RegistryChild, Hammer)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SetAssertObserver(recordAssert);
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    std::string me = vardo_test::childArg("VARDO_REG_WRITER");
    int writers = std::stoi(vardo_test::childArg("VARDO_REG_WRITERS"));
    int rounds = std::stoi(vardo_test::childArg("VARDO_REG_ROUNDS"));
    Registry shared(base + W("\\shared"), SWCharString(), RegCurrentUser);
    for (int j = 0; j < rounds; ++j) {
        size_t length = 50 + (j * 997 + std::stoi(me) * 131) % 3000 + (j % 10 == 0 ? 9000 : 0);
        std::string tag = "p" + me + "-" + std::to_string(j);
        ASSERT_TRUE(shared.WriteValue(W(tag), W(checkedText(tag, length))));
        ASSERT_TRUE(shared.WriteValue(W("common"), W(checkedText("c" + me + "-" + std::to_string(j), length))));
        Registry deep(base + W("\\deep\\k" + std::to_string(j % 7) + "\\x"), SWCharString(), RegCurrentUser);
        ASSERT_TRUE(deep.WriteValue(W("w" + me), static_cast<unsigned long>(j)));
        // Whatever is read is a whole value of one writer.
        ASSERT_TRUE(isCheckedText(U(shared.ReadValue(W("common")))));
        int other = (std::stoi(me) + 1) % writers;
        std::string theirs = U(shared.ReadValue(W("p" + std::to_string(other) + "-" + std::to_string(j))));
        ASSERT_TRUE(theirs.empty() || isCheckedText(theirs)) << theirs.substr(0, 40);
        ASSERT_EQ(checkedText(tag, length), U(shared.ReadValue(W(tag))));
    }
    EXPECT_TRUE(g_asserts.empty()) << g_asserts[0];
}

TEST_F(RegistryTest, ManyProcessesAndThreadsWriteAndReadTheSameKeys)
{
    const int writers = 4;
    const int rounds = vardo_test::onWindows() ? 40 : 120;
    std::vector<vardo_test::ChildProcess> children;
    for (int i = 0; i < writers; ++i)
        children.push_back(vardo_test::spawnSelf(
            "RegistryChild.Hammer", {{"VARDO_REG_BASE", U(m_base)},
                                     {"VARDO_REG_WRITER", std::to_string(i)},
                                     {"VARDO_REG_WRITERS", std::to_string(writers)},
                                     {"VARDO_REG_ROUNDS", std::to_string(rounds)}}));
    for (auto& c : children)
        EXPECT_EQ(0, vardo_test::wait(c));
    // No write was lost: every writer's every value is there, whole.
    Registry shared = key("shared");
    for (int i = 0; i < writers; ++i)
        for (int j = 0; j < rounds; ++j) {
            size_t length = 50 + (j * 997 + i * 131) % 3000 + (j % 10 == 0 ? 9000 : 0);
            std::string tag = "p" + std::to_string(i) + "-" + std::to_string(j);
            ASSERT_EQ(checkedText(tag, length), U(shared.ReadValue(W(tag)))) << tag;
        }
    EXPECT_TRUE(isCheckedText(U(shared.ReadValue(W("common")))));
    for (int k = 0; k < 7; ++k)
        for (int i = 0; i < writers; ++i)
            EXPECT_FALSE(key("deep\\k" + std::to_string(k) + "\\x").ReadValue(W("w" + std::to_string(i))).isEmpty());
    // Threads of one process, each with its own objects, share the store as well.
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    SetAssertObserver(0);   // the recorder is not made for several threads
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Registry r(m_base + W("\\threads"), SWCharString(), RegCurrentUser);
            for (int j = 0; j < 100; ++j) {
                std::string tag = "t" + std::to_string(t) + "-" + std::to_string(j);
                failures[t] += !r.WriteValue(W(tag), W(checkedText(tag, 200 + j))) ||
                               U(r.ReadValue(W(tag))) != checkedText(tag, 200 + j);
                for (Registry::KeyIterator it = r.EnumSubKeys(); it; ++it) {
                }
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::vector<int>(4, 0), failures);
    if (onLinuxStore()) {
        SWCharString detail;
        EXPECT_EQ(SRegistryStore::StoreOk, checkUserStore(&detail)) << U(detail);
    }
}

// Child: writes growing values v0, v1, ... into <base>\killed until it is killed.
TEST(RegistryChild, WriteUntilKilled)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    Registry r(base + W("\\killed"), SWCharString(), RegCurrentUser);
    for (int j = 0; j < 1000000; ++j) {
        std::string tag = "v" + std::to_string(j);
        ASSERT_TRUE(r.WriteValue(W(tag), W(checkedText(tag, 1000 + (j * 7919) % 20000))));
        ASSERT_TRUE(Registry(base + W("\\killed\\k" + std::to_string(j)), SWCharString(), RegCurrentUser)
                        .WriteValue(W("n"), static_cast<unsigned long>(j)));
    }
}

TEST_F(RegistryTest, WriterKilledMidWriteLeavesConsistentStore)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "the store check is for the Linux store";
    for (int attempt = 0; attempt < 3; ++attempt) {
        SCOPED_TRACE(attempt);
        auto child = vardo_test::spawnSelf("RegistryChild.WriteUntilKilled", {{"VARDO_REG_BASE", U(m_base)}});
        // Let it commit a good number of writes, then kill it wherever it is.
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        std::string watch = "v" + std::to_string(40 + attempt * 37);
        while (key("killed").ReadValue(W(watch)).isEmpty() && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(5 + attempt * 3));
        vardo_test::kill(child);
        ASSERT_FALSE(key("killed").ReadValue(W(watch)).isEmpty()) << "the writer made no progress";

        SWCharString detail;
        ASSERT_EQ(SRegistryStore::StoreOk, checkUserStore(&detail)) << U(detail);
        // Every committed value is whole, and the values form an unbroken run.
        Registry r = key("killed");
        int count = 0;
        for (Registry::ValueIterator it = r.EnumValues(); it; ++it) {
            std::string expectTag = "v" + std::to_string(count);
            ASSERT_EQ(W(expectTag), it.GetName());
            ASSERT_EQ(checkedText(expectTag, 1000 + (count * 7919) % 20000), U(it.GetValue()));
            ++count;
        }
        EXPECT_GT(count, 40);
        // The store takes writes again at once.
        EXPECT_TRUE(r.WriteValue(W("after"), W("ok")));
        EXPECT_TRUE(key("killed").DeleteKeyRecursive());
    }
}

// ---- keys that change under a handle ------------------------------------------------------

// Regedit file bytes: UTF-16LE with its byte-order mark.
std::vector<unsigned char> regBytes(const std::string& utf8)
{
    SWCharString text = W(utf8);
    std::vector<unsigned char> bytes{0xFF, 0xFE};
    for (const unsigned short* p = text.data(); *p; ++p) {
        bytes.push_back(static_cast<unsigned char>(*p & 0xFF));
        bytes.push_back(static_cast<unsigned char>(*p >> 8));
    }
    return bytes;
}

bool importText(const std::string& utf8, SWCharString* error = 0)
{
    std::vector<unsigned char> bytes = regBytes(utf8);
    return SRegFile::Import(bytes.data(), bytes.size(), error);
}

std::string regHeader() { return "Windows Registry Editor Version 5.00\r\n\r\n"; }

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
    std::string base = vardo_test::childArg("VARDO_REG_BASE");
    std::string name = vardo_test::childArg("VARDO_REG_KEY");
    int n = std::stoi(vardo_test::childArg("VARDO_REG_VALUES"));
    std::string text = regHeader() + "[HKEY_CURRENT_USER\\" + base + "\\" + name + "]\r\n";
    for (int j = 0; j < n; ++j)
        text += "\"" + numbered("v", j) + "\"=\"" + checkedText(numbered("v", j), 300) + "\"\r\n";
    SWCharString error;
    bool ok = importText(text, &error);
    if (!ok)
        std::printf("import: %s\n", U(error).c_str());
    std::fflush(stdout);
    std::exit(ok ? 0 : U(error).find("(error 1018)") != std::string::npos ? 10 : 20);
}

// Child: deletes <base>\<VARDO_REG_KEY> unless its last value VARDO_REG_LAST is there
// already, and writes "deleted", "late" or "failed" to the file VARDO_REG_MARK.
TEST(RegistryChild, DeleteUnlessDone)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString base = W(vardo_test::childArg("VARDO_REG_BASE"));
    Registry doomed(base + W("\\") + W(vardo_test::childArg("VARDO_REG_KEY")), SWCharString(),
                    RegCurrentUser);
    std::string outcome = !doomed.ReadValue(W(vardo_test::childArg("VARDO_REG_LAST"))).isEmpty()
                              ? "late"
                              : doomed.DeleteKey() ? "deleted" : "failed";
    std::string mark = vardo_test::childArg("VARDO_REG_MARK");
    {
        std::ofstream out(mark + ".tmp");
        out << outcome;
    }
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
                std::ifstream in(mark);
                std::getline(in, outcome);
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
        EXPECT_FALSE(key(name).KeyExists());
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
    std::string text = regHeader();
    for (int i = n - 1; i >= 0; --i)
        text += "[HKEY_CURRENT_USER\\" + U(m_base) + "\\list\\" + numbered("K", i) + "]\r\n";
    text += "[HKEY_CURRENT_USER\\" + U(m_base) + "\\list]\r\n";
    for (int i = 0; i < n; ++i)
        text += "\"" + numbered("v", i) + "\"=\"" + numbered("=", i) + "\"\r\n";
    ASSERT_TRUE(importText(text));

    Registry list = key("list");
    std::vector<std::string> keys, values;
    for (Registry::KeyIterator it = list.EnumSubKeys(); it; ++it)
        keys.push_back(U(it.GetKey()));
    for (Registry::ValueIterator it = list.EnumValues(); it; ++it)
        values.push_back(U(it.GetName()) + U(it.GetValue()));
    std::vector<std::string> expectKeys, expectValues;
    for (int i = 0; i < n; ++i) {
        expectKeys.push_back(numbered("K", i));
        expectValues.push_back(numbered("v", i) + numbered("=", i));
    }
    EXPECT_EQ(expectKeys, keys);   // by name, whatever the creation order
    if (vardo_test::onWindows())
        std::sort(values.begin(), values.end());
    EXPECT_EQ(expectValues, values);   // the store keeps creation order
    if (!onLinuxStore())
        return;

    // Another process changes the key while both listings stand at index 20.
    Registry::KeyIterator kit = list.EnumSubKeys();
    Registry::ValueIterator vit = list.EnumValues();
    keys.clear();
    values.clear();
    for (int i = 0; i < 20; ++i, ++kit, ++vit) {
        keys.push_back(U(kit.GetKey()));
        values.push_back(U(vit.GetName()) + U(vit.GetValue()));
    }
    {
        auto child = vardo_test::spawnSelf("RegistryChild.ChangeListing", {{"VARDO_REG_BASE", U(m_base)}});
        ASSERT_EQ(0, vardo_test::wait(child));
    }
    for (; kit; ++kit)
        keys.push_back(U(kit.GetKey()));
    for (; vit; ++vit)
        values.push_back(U(vit.GetName()) + U(vit.GetValue()));
    // Entries that lived throughout come once and in order; what was deleted beyond the
    // batch in hand does not come; what was created after the cursor does, in its place.
    expectKeys.erase(expectKeys.begin() + 2500);
    expectKeys.push_back("k9999x");
    EXPECT_EQ(expectKeys, keys);
    expectValues[2600] = "v2600changed";
    expectValues.erase(expectValues.begin() + 2500);
    expectValues.push_back("newlast");
    EXPECT_EQ(expectValues, values);
    // Index 0 starts afresh.
    Registry::KeyIterator again = list.EnumSubKeys();
    EXPECT_EQ(W("a000"), again.GetKey());
}

} // namespace
