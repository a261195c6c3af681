// Registry: reads, defaults, writes, types, enumeration, deletion, copying, remote
// machines; on Linux also the store itself: many processes at once, a writer killed in
// the middle of a write, read-only and damaged store files.
//
// Every test works in a scratch key below HKEY_CURRENT_USER\Software\VardoTest (no
// administrator rights needed on Windows); on Linux NEBU_REGISTRYHOME points at a fresh
// temporary folder for each test.
#include <vardo/registry.h>
#include <vardo/senv.h>
#include <vardo/strace.h>

#include "child_process.h"
#include "sfile_test_support.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

SWCharString W(const std::string& utf8)
{
    SWCharString s;
    if (!utf8.empty())
        s.fromUTF8(reinterpret_cast<const unsigned char*>(utf8.c_str()));
    return s;
}

std::string U(const SWCharString& s)
{
    std::string out;
    for (const unsigned short* p = s.data(); *p; ++p) {
        unsigned int c = *p;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

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
    EXPECT_FALSE(r.EnumValues());
    EXPECT_FALSE(r.DeleteValue(W("x")));
    EXPECT_FALSE(r.DeleteKey());
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
    EXPECT_TRUE(r.WriteValue(W(""), W("default")));
    EXPECT_TRUE(r.WriteValue(W("Café"), W("accent")));
    EXPECT_TRUE(r.KeyExists());
    EXPECT_EQ(W("hello wörld"), r.ReadValue(W("TEXT")));
    EXPECT_EQ(W("42"), r.ReadValue(W("number")));
    EXPECT_EQ(W("4294967295"), r.ReadValue(W("AllOnes")));
    EXPECT_EQ(W("default"), r.ReadValue(W("")));
    EXPECT_EQ(W("accent"), r.ReadValue(W("CAFÉ")));
    unsigned long type = 0;
    ASSERT_TRUE(r.GetType(W("number"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeDword), type);
    ASSERT_TRUE(r.GetType(W("text"), type));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeString), type);

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
    EXPECT_EQ(W("b"), r.GetKeyName());
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
    int seen = 0;
    for (; it; ++it) {
        if (it.GetName() == W("Big")) {
            EXPECT_EQ(big, U(it.GetValue()));
            ++seen;
        }
    }
    EXPECT_EQ(1, seen);
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
    EXPECT_EQ(W("0"), r.ReadValue(W("Zero"), 0ul));
    // An existing value wins over the default.
    EXPECT_EQ(W("fallback"), r.ReadValue(W("Missing"), W("other")));
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
    ASSERT_TRUE(writeExpand("Unknown", "%VARDO_REG_NO_SUCH_VARIABLE%\\x"));
    ASSERT_TRUE(writeExpand("Long", std::string(300, 'x')));
    ASSERT_TRUE(writeExpand("Fits", std::string(259, 'y')));
    EXPECT_EQ(W("/opt/quorvane\\bin"), r.ReadValue(W("Path")));
    EXPECT_EQ(W("%VARDO_REG_NO_SUCH_VARIABLE%\\x"), r.ReadValue(W("Unknown")));
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
    ASSERT_TRUE(r.WriteValueRaw(W("Empty"), RegTypeBinary, 0, 0));
    for (const char* n : {"Bin", "Multi", "Q", "Empty"})
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
    size = sizeof buf;
    ASSERT_TRUE(r.ReadValueRaw(W("Empty"), type, buf, size));
    EXPECT_EQ(0u, size);

    // CopyValue carries type and bytes.
    ASSERT_TRUE(Registry::CopyValue(RegCurrentUser, m_base, W("Q"), RegCurrentUser, path("copy"), W("Q2")));
    Registry c = key("copy");
    size = sizeof buf;
    ASSERT_TRUE(c.ReadValueRaw(W("Q2"), type, buf, size));
    EXPECT_EQ(static_cast<unsigned long>(RegTypeQword), type);
    EXPECT_EQ(std::vector<unsigned char>(qword, qword + 8), std::vector<unsigned char>(buf, buf + size));
    EXPECT_FALSE(Registry::CopyValue(RegCurrentUser, m_base, W("None"), RegCurrentUser, path("copy"), W("X")));
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
    EXPECT_EQ(W("beta"), c.GetKey());
    EXPECT_TRUE(c.NextKey());
    EXPECT_EQ(W("Gamma"), c.GetKey());
    g_asserts.clear();
    Registry::ValueIterator v1 = r.EnumValues();
    Registry::ValueIterator v2 = r.EnumValues();
    v1 = v2;
    EXPECT_TRUE(sawAssert("m_enumKey == NULL"));

    // detach hands the handle over: the iterator ends at its next step.
    Registry::KeyIterator d = r.EnumSubKeys();
    RegKeyHandle h = d.detach();
    EXPECT_TRUE(h != 0);
    EXPECT_TRUE(d);
    EXPECT_FALSE(d.NextKey());
    Registry::KeyIterator owner(h);   // closes it
    EXPECT_TRUE(owner);
}

TEST_F(RegistryTest, DeleteKeyRefusesSubKeysAndRecursiveDeletesAll)
{
    ASSERT_TRUE(key("tree\\child\\leaf").WriteValue(W("v"), W("x")));
    ASSERT_TRUE(key("tree").WriteValue(W("top"), W("y")));
    Registry tree = key("tree");
    EXPECT_FALSE(tree.DeleteKey());
    EXPECT_TRUE(sawAssert("DeleteKey: There is subkey inside key " + U(path("tree"))));
    EXPECT_TRUE(key("tree\\child\\leaf").KeyExists());
    EXPECT_EQ(W("y"), key("tree").ReadValue(W("top")));

    EXPECT_TRUE(key("tree\\child\\leaf").DeleteKey());
    EXPECT_FALSE(key("tree\\child\\leaf").KeyExists());
    EXPECT_TRUE(key("tree\\child").KeyExists());

    ASSERT_TRUE(key("tree\\c2\\d\\e").WriteValue(W("v"), 1ul));
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
    EXPECT_EQ(W("1"), again.ReadValue(W("v")));
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
    EXPECT_EQ(3u, size);
    EXPECT_EQ(static_cast<unsigned long>(RegTypeBinary), type);

    // Into its own sub-tree: the source is read first, so this ends.
    ASSERT_TRUE(Registry::CopyKey(RegCurrentUser, path("src"), RegCurrentUser, path("src\\sub\\copy")));
    EXPECT_EQ(W("5"), key("src\\sub\\copy\\sub").ReadValue(W("n")));
    EXPECT_FALSE(key("src\\sub\\copy\\sub\\copy").KeyExists());
    EXPECT_FALSE(Registry::CopyKey(RegCurrentUser, path("nope"), RegCurrentUser, path("dst2")));
    EXPECT_FALSE(key("dst2").KeyExists());
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
    EXPECT_EQ(W("leaf"), joined.GetKeyName());
    EXPECT_TRUE(key("pre\\leaf").KeyExists());   // bCreate made it

    EXPECT_EQ(RegLocalMachine, companyRegistryHandle);
    EXPECT_EQ(W("Software\\Quorvane\\Suite 12.0"), CompanyRegistry::GetHomePath());
    CompanyRegistry logging(W("Logging"));
    EXPECT_EQ(W("Software\\Quorvane\\Suite 12.0\\Logging"), logging.GetPath());
    EXPECT_EQ(RegLocalMachine, logging.GetRoot());
    EXPECT_EQ(W("Logging"), logging.GetKeyName());
    EXPECT_EQ(W("Software\\Quorvane\\Suite 12.0"), CompanyRegistry().GetPath());
    if (onLinuxStore()) {   // HKEY_LOCAL_MACHINE needs rights on Windows
        EXPECT_TRUE(logging.WriteValue(W("loggingPath"), W("/var/log/q")));
        EXPECT_EQ(W("/var/log/q"), CompanyRegistry(W("logging")).ReadValue(W("LOGGINGPATH")));
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
    EXPECT_EQ(W("vardo-no-such-machine.invalid"), remote.GetRemoteMachineName());
    EXPECT_TRUE(sawAssert("RegConnectRegistry(\\\\vardo-no-such-machine.invalid) failed. Error code: "));
    EXPECT_TRUE(remote.ReadValue(W("v")).isEmpty());
    EXPECT_FALSE(remote.WriteValue(W("v"), W("x")));
    Registry copy(remote);
    EXPECT_TRUE(copy.IsRemoteReg());
    if (onLinuxStore()) {
        EXPECT_TRUE(sawAssert("Error code: 53"));
        // This machine's own names reach the local store's HKEY_LOCAL_MACHINE.
        ASSERT_TRUE(Registry(m_base, SWCharString(), RegLocalMachine).WriteValue(W("m"), W("machine")));
        Registry self(m_base, SWCharString(), RegCurrentUser);
        self.SetRemoteMachine(W("localhost"));
        EXPECT_TRUE(self.IsRemoteReg());
        EXPECT_EQ(W("machine"), self.ReadValue(W("m")));
        Registry selfCopy(self);
        EXPECT_EQ(W("machine"), selfCopy.ReadValue(W("m")));
        EXPECT_TRUE(Registry(m_base, SWCharString(), RegLocalMachine).DeleteKeyRecursive());
    }
}

// ---- the Linux store ---------------------------------------------------------------------

TEST_F(RegistryTest, StoreLivesInNebuRegistryHome)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "the Windows registry has no store file";
    EXPECT_EQ((m_dir / "registry.db").string(), storeFile());
    EXPECT_EQ(SRegistryStore::StoreMissing, SRegistryStore::Check());
    ASSERT_TRUE(key().WriteValue(W("v"), W("x")));
    EXPECT_TRUE(fs::exists(m_dir / "registry.db"));
    SWCharString detail;
    EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::Check(&detail)) << U(detail);
    // Names with characters beyond Latin-1 compare case-insensitively too.
    ASSERT_TRUE(key("Ключ").WriteValue(W("Ωμέγα"), W("greek")));
    EXPECT_EQ(W("greek"), key("КЛЮЧ").ReadValue(W("ΩΜΈΓΑ")));
    EXPECT_EQ(W("Ключ"), key().EnumSubKeys().GetKey());
}

TEST_F(RegistryTest, ReadOnlyStoreRefusesWritesWithReport)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "Linux store only";
    // Another process writes a store that this process has not opened yet; then its file
    // loses every write permission bit.
    fs::path third = m_dir / "frozen";
    fs::create_directories(third);
    {
        auto child = vardo_test::spawnSelf("RegistryChild.Write",
                                           {{"NEBU_REGISTRYHOME", third.string()},
                                            {"VARDO_REG_BASE", U(m_base)},
                                            {"VARDO_REG_WRITES", "3"}});
        ASSERT_EQ(0, vardo_test::wait(child));
    }
    ASSERT_TRUE(vardo_test::setFileMode((third / "registry.db").string(), 0444));
    SEnv::set(W("NEBU_REGISTRYHOME"), W(third.string()));
    g_asserts.clear();
    Registry r = key("w0");
    EXPECT_EQ(W(checkedText("w0-0", 100)), r.ReadValue(W("v0")));
    EXPECT_FALSE(r.WriteValue(W("v0"), W("changed")));
    EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("w0")) + ") failed. Error code: 5"));
    EXPECT_FALSE(key("new").WriteValue(W("v"), 1ul));
    EXPECT_FALSE(key("w0").DeleteValue(W("v0")));
    EXPECT_EQ(W(checkedText("w0-0", 100)), key("w0").ReadValue(W("v0")));
    EXPECT_FALSE(key().DeleteKeyRecursive());
    EXPECT_EQ(W(checkedText("w0-0", 100)), key("w0").ReadValue(W("v0")));
    SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
}

TEST_F(RegistryTest, DamagedStoreReadsEmptyAndReportsWrites)
{
    if (!onLinuxStore())
        GTEST_SKIP() << "Linux store only";
    // A sound store written by another process, then damaged copies of its file.
    fs::path sound = m_dir / "sound";
    fs::create_directories(sound);
    {
        auto child = vardo_test::spawnSelf("RegistryChild.Write",
                                           {{"NEBU_REGISTRYHOME", sound.string()},
                                            {"VARDO_REG_BASE", U(m_base)},
                                            {"VARDO_REG_WRITES", "200"}});
        ASSERT_EQ(0, vardo_test::wait(child));
    }
    std::ifstream in(sound / "registry.db", std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 8192u);

    struct Damage {
        const char* name;
        std::string content;
    };
    std::string header = bytes;
    for (size_t i = 0; i < 100; ++i)
        header[i] = static_cast<char>(0x5A ^ i);
    std::vector<Damage> damages{
        {"garbage", std::string(20000, 'G')},
        {"truncated", bytes.substr(0, bytes.size() / 2)},
        {"header", header},
    };
    for (const Damage& d : damages) {
        SCOPED_TRACE(d.name);
        fs::path dir = m_dir / d.name;
        fs::create_directories(dir);
        {
            std::ofstream outFile(dir / "registry.db", std::ios::binary);
            outFile.write(d.content.data(), static_cast<std::streamsize>(d.content.size()));
        }
        SEnv::set(W("NEBU_REGISTRYHOME"), W(dir.string()));
        SWCharString detail;
        EXPECT_EQ(SRegistryStore::StoreDamaged, SRegistryStore::Check(&detail));
        EXPECT_FALSE(detail.isEmpty());
        g_asserts.clear();
        Registry r = key("w0");
        EXPECT_TRUE(r.ReadValue(W("v0")).isEmpty());
        EXPECT_TRUE(key("w0").ReadValue(W("v199")).isEmpty());
        EXPECT_FALSE(r.EnumValues());
        EXPECT_FALSE(r.WriteValue(W("v0"), W("new")));
        EXPECT_TRUE(sawAssert("RegCreateKeyEx(" + U(path("w0")) + ") failed. Error code: 1009"))
            << (g_asserts.empty() ? std::string("no report") : g_asserts[0]);
        EXPECT_FALSE(key("w1").WriteValue(W("n"), 1ul));
        EXPECT_TRUE(key("w0").ReadValue(W("v0"), W("default")).isEmpty());
        // The file is left as it was for the operator to inspect.
        EXPECT_EQ(d.content.size(), fs::file_size(dir / "registry.db"));
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
        std::string common = U(shared.ReadValue(W("common")));
        ASSERT_TRUE(isCheckedText(common)) << common.substr(0, 40);
        int other = (std::stoi(me) + 1) % writers;
        std::string theirs = U(shared.ReadValue(W("p" + std::to_string(other) + "-" + std::to_string(j))));
        ASSERT_TRUE(theirs.empty() || isCheckedText(theirs)) << theirs.substr(0, 40);
        ASSERT_EQ(checkedText(tag, length), U(shared.ReadValue(W(tag))));
    }
    EXPECT_TRUE(g_asserts.empty()) << g_asserts[0];
}

TEST_F(RegistryTest, ManyProcessesWriteAndReadTheSameKeys)
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
    int values = 0;
    for (Registry::ValueIterator it = shared.EnumValues(); it; ++it)
        ++values;
    EXPECT_EQ(writers * rounds + 1, values);
    std::string common = U(shared.ReadValue(W("common")));
    EXPECT_TRUE(isCheckedText(common));
    EXPECT_EQ("c", common.substr(0, 1));
    for (int k = 0; k < 7; ++k) {
        Registry deep = key("deep\\k" + std::to_string(k) + "\\x");
        for (int i = 0; i < writers; ++i)
            EXPECT_FALSE(deep.ReadValue(W("w" + std::to_string(i))).isEmpty());
    }
    if (onLinuxStore()) {
        SWCharString detail;
        EXPECT_EQ(SRegistryStore::StoreOk, SRegistryStore::Check(&detail)) << U(detail);
    }
}

TEST_F(RegistryTest, ThreadsWithTheirOwnObjectsShareTheStore)
{
    SetAssertObserver(0);   // the recorder is not made for several threads
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Registry r(m_base + W("\\threads"), SWCharString(), RegCurrentUser);
            for (int j = 0; j < 100; ++j) {
                std::string tag = "t" + std::to_string(t) + "-" + std::to_string(j);
                if (!r.WriteValue(W(tag), W(checkedText(tag, 200 + j))) ||
                    U(r.ReadValue(W(tag))) != checkedText(tag, 200 + j))
                    ++failures[t];
                for (Registry::KeyIterator it = r.EnumSubKeys(); it; ++it) {
                }
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::vector<int>(4, 0), failures);
    int values = 0;
    for (Registry::ValueIterator it = key("threads").EnumValues(); it; ++it)
        ++values;
    EXPECT_EQ(400, values);
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
        ASSERT_EQ(SRegistryStore::StoreOk, SRegistryStore::Check(&detail)) << U(detail);
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
        int keys = 0;
        for (Registry::KeyIterator it = r.EnumSubKeys(); it; ++it)
            ++keys;
        EXPECT_TRUE(keys == count || keys == count - 1) << keys << " keys, " << count << " values";
        // The store takes writes again at once.
        EXPECT_TRUE(r.WriteValue(W("after"), W("ok")));
        EXPECT_TRUE(key("killed").DeleteKeyRecursive());
    }
}

} // namespace
