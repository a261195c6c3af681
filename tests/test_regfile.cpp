// SRegFile: decoding, parsing and writing the regedit text format, and export followed
// by import reproducing a registry tree exactly.
#include <vardo/regfile.h>
#include <vardo/registry.h>
#include <vardo/senv.h>

#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
using vardo_test::U;

std::string hex(const unsigned char* data, size_t size)
{
    std::string r;
    char buf[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(buf, sizeof buf, "%02x", data[i]);
        r += buf;
    }
    return r;
}

// Byte strings stand for files and value data.
std::string utf16le(const SWCharString& s)
{
    std::string b;
    for (const unsigned short* p = s.data(); *p; ++p) {
        b += static_cast<char>(*p & 0xFF);
        b += static_cast<char>(*p >> 8);
    }
    return b;
}

// REG_SZ data: UTF-16LE with its terminator.
std::string sz(const std::string& utf8) { return utf16le(W(utf8)) + std::string(2, '\0'); }

const unsigned char* bytes(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }
uint32_t size32(const std::string& s) { return static_cast<uint32_t>(s.size()); }

// Records entries as readable lines.
struct Recorder : SRegFileSink {
    std::vector<std::string> lines;
    bool onKey(const SWCharString& fullPath, bool bDelete) override
    {
        lines.push_back((bDelete ? "-key " : "key ") + U(fullPath));
        return true;
    }
    bool onValue(const SWCharString& name, uint32_t type, const unsigned char* data, uint32_t size) override
    {
        lines.push_back("value " + U(name) + " " + std::to_string(type) + " " + hex(data, size));
        return true;
    }
    bool onDeleteValue(const SWCharString& name) override
    {
        lines.push_back("-value " + U(name));
        return true;
    }
};

TEST(RegFile, DecodesByByteOrderMark)
{
    SWCharString t;
    const std::string text = "Windows Registry Editor Version 5.00\r\n[HKLM\\é]";
    const std::string le = "\xFF\xFE" + utf16le(W(text));
    std::string be = le;
    for (size_t i = 0; i < be.size(); i += 2)
        std::swap(be[i], be[i + 1]);
    for (const std::string& file : {le, be, text, "\xEF\xBB\xBF" + text}) {
        ASSERT_TRUE(SRegFile::Decode(bytes(file), file.size(), t));
        EXPECT_EQ(W(text), t);
    }
    for (const std::string& bad : {std::string("\xC3("), std::string("a\0b", 3), std::string("\xED\xA0\x80"),
                                   std::string("\xFF\xFE" "a"), std::string("\xE2\x82")}) {
        EXPECT_FALSE(SRegFile::Decode(bytes(bad), bad.size(), t));
        EXPECT_TRUE(t.isEmpty());
    }
}

TEST(RegFile, ParsesEverySyntax)
{
    const std::string text =
        "\r\n"
        "Windows Registry Editor Version 5.00\r\n"
        "\r\n"
        "; a comment\r\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Quorvane\\Suite 12.0\\Logging]\r\n"
        "\"loggingPath\"=\"C:\\\\logs \\\"q\\\"\"\r\n"
        "@=\"default\"\r\n"
        "\"Max\"=dword:0010000A\r\n"
        "\"Bin\"=hex:01,02,\\\r\n"
        "  ff,0a\r\n"
        "\"Exp\"=hex(2):25,00,00,00\r\n"
        "\"Q\"=hex(b):01,00,00,00,00,00,00,00\r\n"
        "\"Empty\"=hex:\r\n"
        "\"Gone\"=-\r\n"
        "\n"
        "[-HKCU\\Software\\Old]\r\n"
        "\"ignored\"=\"x\"\r\n"
        "[hkcu\\Software\\New]\n"
        "\"e\"=\"\"";
    Recorder r;
    SWCharString error;
    ASSERT_TRUE(SRegFile::Parse(W(text), r, &error)) << U(error);
    std::vector<std::string> expected{
        "key HKEY_LOCAL_MACHINE\\Software\\Quorvane\\Suite 12.0\\Logging",
        "value loggingPath 1 " + std::string("43003a005c006c006f0067007300200022007100220000") + "00",
        "value  1 640065006600610075006c0074000000",
        "value Max 4 0a001000",
        "value Bin 3 0102ff0a",
        "value Exp 2 25000000",
        "value Q 11 0100000000000000",
        "value Empty 3 ",
        "-value Gone",
        "-key HKCU\\Software\\Old",
        "key hkcu\\Software\\New",
        "value e 1 0000",
    };
    EXPECT_EQ(expected, r.lines);
}

TEST(RegFile, SyntaxErrorsNameTheLine)
{
    const std::pair<std::string, std::string> cases[] = {
        {"REGEDIT4\r\n[HKLM\\x]", "line 1: not a regedit file"},
        {"Windows Registry Editor Version 5.00\r\n\"v\"=\"x\"", "line 2: value before the first key"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x", "line 2: key line without closing bracket"},
        {"Windows Registry Editor Version 5.00\r\n[NOPE\\x]", "line 2: key path does not start"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v=\"x\"", "line 3: expected ="},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v\"=\"x", "line 3: string without closing quote"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v\"=dword:123456789", "line 3: dword"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v\"=hex:01,\\\r\n 123", "line 4: bad hex byte list"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v\"=hex:01,\\", "line 3: continuation"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\n\"v\"=str:x", "line 3: unknown value data"},
        {"Windows Registry Editor Version 5.00\r\n[HKLM\\x]\r\nv=1", "line 3: expected a key"},
    };
    for (const auto& c : cases) {
        Recorder r;
        SWCharString error;
        EXPECT_FALSE(SRegFile::Parse(W(c.first), r, &error)) << c.first;
        EXPECT_EQ(0u, U(error).find(c.second)) << U(error) << " for " << c.first;
    }
}

TEST(RegText, DataAndTypesParseAndShow)
{
    const struct {
        uint32_t type;
        const char* text;
        const char* bytes;
        const char* shown;   // null: shown as text
    } cases[] = {
        {RegTypeString, "C:\\ä", "43003a005c00e4000000", nullptr},   // with its terminator
        // Numbers: decimal or 0x hex, within range; shown as 0x hex.
        {RegTypeDword, "4294967295", "ffffffff", "0xffffffff"},
        {RegTypeDword, "0x1A", "1a000000", "0x1a"},
        {RegTypeQword, "0X0102030405060708", "0807060504030201", "0x102030405060708"},
        {RegTypeQword, "18446744073709551615", "ffffffffffffffff", "0xffffffffffffffff"},
        // Strings joined by \0, each terminated, then the closing empty string.
        {RegTypeMultiString, "one\\0two\\0", "6f006e0065000000740077006f00000000000000", "one\\0two"},
        {RegTypeMultiString, "", "0000", nullptr},
        // Anything else as hex bytes; commas and blanks between pairs are allowed.
        {RegTypeBinary, "01,ff 0A", "01ff0a", "01FF0A"},
    };
    SSimpleBuffer b;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_TRUE(SRegText::ParseData(c.type, W(c.text), b));
        EXPECT_EQ(c.bytes, hex(b.data(), b.size()));
        EXPECT_EQ(c.shown ? c.shown : c.text,
                  U(SRegText::FormatData(c.type, b.data(), static_cast<uint32_t>(b.size()))));
    }
    const std::pair<uint32_t, const char*> refused[] = {
        {RegTypeDword, "4294967296"}, {RegTypeDword, "0x100000000"}, {RegTypeDword, "-1"},
        {RegTypeDword, " 1"}, {RegTypeDword, "1 "}, {RegTypeDword, "0x"}, {RegTypeDword, ""},
        {RegTypeDword, "0x0x1"}, {RegTypeQword, "18446744073709551616"}, {RegTypeBinary, "0"},
        {RegTypeBinary, "0g"}, {21, "01;02"}};
    for (const auto& r : refused) {
        b.append(static_cast<unsigned char>(1));
        EXPECT_FALSE(SRegText::ParseData(r.first, W(r.second), b)) << r.second;
        EXPECT_TRUE(b.isEmpty()) << r.second;
    }
    // Text is shown up to its first zero unit; a number of the wrong size as bytes.
    std::string two = sz("ab");
    two[2] = 0;
    EXPECT_EQ("a", U(SRegText::FormatData(RegTypeExpandString, bytes(two), 6)));
    const unsigned char three[] = {1, 2, 0xAB};
    EXPECT_EQ("0102AB", U(SRegText::FormatData(RegTypeDword, three, 3)));

    // Type names and the types a text may be written as.
    EXPECT_STREQ("REG_QWORD", SRegText::TypeName(11));
    EXPECT_EQ(nullptr, SRegText::TypeName(12));
    EXPECT_EQ("REG_RESOURCE_LIST", U(SRegText::TypeText(8)));
    EXPECT_EQ("0x1F", U(SRegText::TypeText(31)));
    uint32_t type = 99;
    const std::pair<const char*, uint32_t> writable[] = {{"REG_NONE", 0}, {"reg_sz", 1}, {"REG_QWORD", 11}};
    for (const auto& w : writable) {
        ASSERT_TRUE(SRegText::ParseType(W(w.first), type)) << w.first;
        EXPECT_EQ(w.second, type) << w.first;
    }
    for (const char* bad : {"REG_LINK", "REG_SZX", "REG_S", ""})
        EXPECT_FALSE(SRegText::ParseType(W(bad), type)) << bad;
}

TEST(RegFile, FormatsAsRegeditWrites)
{
    SWCharString line;
    const std::string dir = sz("C:\\dir \"x\"");
    ASSERT_TRUE(SRegFile::FormatValue(W("a\"b\\c"), RegTypeString, bytes(dir), size32(dir), line));
    EXPECT_EQ("\"a\\\"b\\\\c\"=\"C:\\\\dir \\\"x\\\"\"\r\n", U(line));
    const unsigned char dw[] = {0x0A, 0, 0x10, 0xFF};
    ASSERT_TRUE(SRegFile::FormatValue(SWCharString(), RegTypeDword, dw, 4, line));
    EXPECT_EQ("@=dword:ff10000a\r\n", U(line));
    // Strings that a quoted form cannot carry exactly go as hex(1).
    ASSERT_TRUE(SRegFile::FormatValue(W("n"), RegTypeString, bytes(sz("ab")), 4, line));
    EXPECT_EQ("\"n\"=hex(1):61,00,62,00\r\n", U(line));
    const std::string newline = sz("a\nb");
    ASSERT_TRUE(SRegFile::FormatValue(W("n"), RegTypeString, bytes(newline), size32(newline), line));
    EXPECT_EQ(0u, U(line).find("\"n\"=hex(1):61,00,0a,00"));
    ASSERT_TRUE(SRegFile::FormatValue(W("d"), RegTypeDword, dw, 3, line));
    EXPECT_EQ("\"d\"=hex(4):0a,00,10\r\n", U(line));
    EXPECT_FALSE(SRegFile::FormatValue(W("bad\nname"), RegTypeBinary, dw, 4, line));
    // Long data wraps as regedit wraps it: 80 columns at most, ",\" then two blanks.
    auto ab = [](int n) {
        std::string r;
        for (int i = 0; i < n; ++i)
            r += "ab,";
        return r;
    };
    ASSERT_TRUE(SRegFile::FormatValue(W("big"), RegTypeBinary, bytes(std::string(60, '\xAB')), 60, line));
    EXPECT_EQ("\"big\"=hex:" + ab(23) + "\\\r\n  " + ab(25) + "\\\r\n  " + ab(11) + "ab\r\n", U(line));
    EXPECT_EQ("[-HKEY_USERS\\x]\r\n", U(SRegFile::FormatKey(W("HKEY_USERS\\x"), true)));

    RegKeyHandle root = 0;
    SWCharString path;
    ASSERT_TRUE(SRegFile::SplitKeyPath(W("hkcu\\Software\\x\\"), root, path));
    EXPECT_EQ(RegCurrentUser, root);
    EXPECT_EQ(W("Software\\x"), path);
    EXPECT_FALSE(SRegFile::SplitKeyPath(W("HKEY_LOCAL_MACHINEX\\a"), root, path));
}

class RegFileStore : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string name = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count() % 1000000007);
        m_dir = fs::temp_directory_path() / ("vardo-regfile-" + name);
        fs::create_directories(m_dir);
        SEnv::set(W("NEBU_REGISTRYHOME"), W(m_dir.string()));
        m_path = "Software\\VardoTest\\regfile-" + name;
        m_full = "HKEY_CURRENT_USER\\" + m_path;
    }
    void TearDown() override
    {
        Registry(W(m_path), SWCharString(), RegCurrentUser).DeleteKeyRecursive();
        SEnv::unset(W("NEBU_REGISTRYHOME"));
        std::error_code ec;
        fs::remove_all(m_dir, ec);
    }
    Registry key(const std::string& sub)
    {
        return Registry(W(m_path + (sub.empty() ? "" : "\\" + sub)), SWCharString(), RegCurrentUser);
    }
    fs::path m_dir;
    std::string m_path;
    std::string m_full;
};

TEST_F(RegFileStore, ExportThenImportReproducesTheTree)
{
    std::string big;
    for (int i = 0; i < 5000; ++i)
        big += static_cast<char>(i * 31);
    const struct {
        const char* name;
        uint32_t type;
        std::string data;
    } values[] = {
        {"Text", 1, sz("plain \"quoted\" C:\\path\\ ünïcødé ✓")}, {"", 1, sz("the default")},
        {"Number", 4, "\xFF\xFF\xFF\xFF"}, {"Empty", 1, sz("")}, {"NoTerminator", 1, utf16le(W("abc"))},
        {"Lines", 1, sz("one\r\ntwo")}, {"Expand", 2, sz("%PATH%;x")}, {"Multi", 7, sz("a") + sz("b") + sz("")},
        {"Q", 11, "\x01\x02\x03\x04\x05\x06\x07\x08"}, {"Big", 3, big}, {"None", 0, ""},
        {"Odd", 0x1234, "\x01"}, {"ShortDword", 4, "\x01\x02"},
    };
    for (const auto& v : values)
        ASSERT_TRUE(key("tree").WriteValueRaw(W(v.name), v.type, bytes(v.data), size32(v.data))) << v.name;
    ASSERT_TRUE(key("tree\\Sub Key [1]").WriteValue(W("a"), 1ul));
    ASSERT_TRUE(key("tree\\Ärger\\Deep").WriteValue(W("b"), W("deep")));
    ASSERT_TRUE(Registry(W(m_path + "\\tree\\empty"), SWCharString(), RegCurrentUser, true).KeyExists());

    SWCharString first, again, error;
    ASSERT_TRUE(SRegFile::Export(W(m_full + "\\tree"), first, &error)) << U(error);
    EXPECT_EQ(0u, U(first).find("Windows Registry Editor Version 5.00\r\n\r\n[" + m_full + "\\tree]\r\n"));
    ASSERT_TRUE(key("tree").DeleteKeyRecursive());
    const std::string file = "\xFF\xFE" + utf16le(first);
    ASSERT_TRUE(SRegFile::Import(bytes(file), file.size(), &error)) << U(error);
    ASSERT_TRUE(SRegFile::Export(W(m_full + "\\tree"), again, &error)) << U(error);
    EXPECT_EQ(U(first), U(again));
    unsigned long type = 0;
    SSimpleBuffer read;
    ASSERT_TRUE(key("tree").ReadValueRaw(W("Big"), type, read));
    EXPECT_EQ(big, std::string(reinterpret_cast<const char*>(read.data()), read.size()));
    EXPECT_EQ(W("deep"), key("tree\\ärger\\deep").ReadValue(W("b")));
    EXPECT_TRUE(key("tree\\empty").KeyExists());
}

TEST_F(RegFileStore, ImportDeletesAndChangesNothingOnError)
{
    ASSERT_TRUE(key("imp\\old\\sub").WriteValue(W("x"), W("1")));
    ASSERT_TRUE(key("imp").WriteValue(W("keep"), W("k")));
    ASSERT_TRUE(key("imp").WriteValue(W("drop"), W("d")));
    std::string text = "Windows Registry Editor Version 5.00\r\n\r\n"
                       "[-" + m_full + "\\imp\\old]\r\n\r\n"
                       "[" + m_full + "\\imp]\r\n"
                       "\"drop\"=-\r\n"
                       "\"new\"=dword:00000005\r\n"
                       "\"missing\"=-\r\n";
    SWCharString error;
    ASSERT_TRUE(SRegFile::Import(bytes(text), text.size(), &error)) << U(error);
    EXPECT_FALSE(key("imp\\old").KeyExists());
    EXPECT_EQ(W("k"), key("imp").ReadValue(W("keep")));
    EXPECT_TRUE(key("imp").ReadValue(W("drop")).isEmpty());
    EXPECT_EQ(W("5"), key("imp").ReadValue(W("new")));

    std::string broken = "Windows Registry Editor Version 5.00\r\n"
                         "[" + m_full + "\\imp]\r\n"
                         "\"keep\"=-\r\n"
                         "\"bad\"=hex:zz\r\n";
    EXPECT_FALSE(SRegFile::Import(bytes(broken), broken.size(), &error));
    EXPECT_EQ("line 4: bad hex byte list", U(error));
    EXPECT_EQ(W("k"), key("imp").ReadValue(W("keep")));

    const std::string root = "Windows Registry Editor Version 5.00\r\n[-HKEY_CURRENT_USER]\r\n";
    EXPECT_FALSE(SRegFile::Import(bytes(root), root.size(), &error));
    SWCharString exported;
    EXPECT_FALSE(SRegFile::Export(W(m_full + "\\no\\such"), exported, &error));
    EXPECT_EQ(0u, U(error).find("key not found"));
}

} // namespace
