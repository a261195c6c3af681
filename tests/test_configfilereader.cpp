// ConfigFileReader: sectioned key = value files read from disk.
#include "vardo/configfilereader.h"

#include "assert_capture.h"
#include "text.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
typedef std::vector<std::string> Names;

Names names(const SIArray<SWCharString>& a)
{
    Names r;
    for (const SWCharString& s : a)
        r.push_back(vardo_test::ascii(s));
    return r;
}

// A private folder with files written byte for byte.
class ConfigFileReaderTest : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(m_dir); }
    void TearDown() override { fs::remove_all(m_dir); }
    SWCharString write(const char* name, const std::string& bytes)
    {
        std::ofstream(m_dir / name, std::ios::binary | std::ios::trunc) << bytes;
        return W((m_dir / name).string());
    }
    ConfigFileReader load(const std::string& bytes)
    {
        ConfigFileReader r;
        EXPECT_TRUE(r.initialize(write("c.ini", bytes)));
        return r;
    }
    static std::string get(const ConfigFileReader& r, const char* section, const char* key)
    {
        return vardo_test::ascii(r.getValue(W(section), W(key), W("<default>")));
    }

    const fs::path m_dir = fs::temp_directory_path() /
                           (std::string("vardo_cfg_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

} // namespace

TEST_F(ConfigFileReaderTest, SectionsAndAssignments)
{
    ConfigFileReader r = load("x=1\n[s]\nk = v\n\n[ other ]  \n a b = c d \nk=a=b\nempty=\n=anon\nK=up\n");
    EXPECT_EQ("v", get(r, "s", "k"));
    // Names, keys and values are trimmed; the value is everything after the first "=".
    EXPECT_EQ("c d", get(r, " other\t", "a b"));
    EXPECT_EQ("<default>", get(r, "other", " a b"));
    EXPECT_EQ("a=b", get(r, "other", "k"));
    // An empty value is a value, not the default; an empty key is a key (listed below).
    EXPECT_EQ("", get(r, "other", "empty"));
    // Exact, case-sensitive names and keys.
    EXPECT_EQ("<default>", get(r, "S", "k"));
    EXPECT_EQ("<default>", get(r, "s", "K"));

    SIArray<SWCharString> list;
    list.push_back(W("stale"));
    EXPECT_TRUE(r.getSections(list));
    EXPECT_EQ((Names{"s", "other"}), names(list));
    EXPECT_TRUE(r.enumerateSection(W("other"), list));
    // Keys in exact code-unit order.
    EXPECT_EQ((Names{"", "K", "a b", "empty", "k"}), names(list));
    EXPECT_FALSE(r.enumerateSection(W("nope"), list));
    EXPECT_TRUE(list.empty());
}

TEST_F(ConfigFileReaderTest, OnlyABracketAtTheStartOfALineStartsASection)
{
    ConfigFileReader r = load("[a]\nk=[x]\nj = y [b]\n  [c]\nz=1\n[d]\n# c = not one\nq=2");
    EXPECT_EQ("[x]", get(r, "a", "k"));
    EXPECT_EQ("y [b]", get(r, "a", "j"));
    // "  [c]" is not at the start of a line: the line has no "=", which ends section a.
    EXPECT_EQ("<default>", get(r, "a", "z"));
    // A comment-like line with an equals sign is an assignment like any other.
    EXPECT_EQ("not one", get(r, "d", "# c"));
    EXPECT_EQ("2", get(r, "d", "q"));
    SIArray<SWCharString> list;
    r.getSections(list);
    EXPECT_EQ((Names{"a", "d"}), names(list));

    // A name runs to the next "]", even across lines; an unclosed one to the end.
    ConfigFileReader u = load("[one\ntwo] k=v\nm=n\n[open k=v");
    u.getSections(list);
    EXPECT_EQ((Names{"one\ntwo", "open k=v"}), names(list));
    EXPECT_EQ("v", get(u, "one\ntwo", "k"));
    EXPECT_TRUE(u.enumerateSection(W("open k=v"), list));
    EXPECT_TRUE(list.empty());
}

TEST_F(ConfigFileReaderTest, DuplicateKeysAndSections)
{
    ConfigFileReader r = load("[d]\na=1\na=2\nb = 1\nb = 2\n");
    EXPECT_EQ("1", get(r, "d", "a"));   // written bare: the first stays
    EXPECT_EQ("2", get(r, "d", "b"));   // written with blanks: the last wins

    // The last section of a name decides, even without the key.
    ConfigFileReader s = load("[s]\nk=1\nj=1\n[t]\nk=t\n[s]\nj=2\nm=3\n");
    EXPECT_EQ("<default>", get(s, "s", "k"));
    EXPECT_EQ("2", get(s, "s", "j"));
    SIArray<SWCharString> list;
    EXPECT_TRUE(s.getSections(list));
    EXPECT_EQ((Names{"s", "t", "s"}), names(list));
    EXPECT_TRUE(s.enumerateSection(W("s"), list));
    EXPECT_EQ((Names{"j", "m"}), names(list));
}

TEST_F(ConfigFileReaderTest, LineEndsAndEncoding)
{
    ConfigFileReader r = load("\xEF\xBB\xBFignored\r\n[s]\r\nk = v\r\n\r\n\tx\t=\ty z \r\n"
                              "u=caf\xC3\xA9\r\n[t]\r\nlast=1");
    EXPECT_EQ("v", get(r, "s", "k"));
    EXPECT_EQ("y z", get(r, "s", "x"));
    EXPECT_EQ("1", get(r, "t", "last"));
    EXPECT_EQ("caf\xC3\xA9", vardo_test::U(r.getValue(W("s"), W("u"), W(""))));
}

TEST_F(ConfigFileReaderTest, InitializeOnceFailuresAndCopies)
{
    vardo_test::AssertCapture capture;
    ConfigFileReader r;
    SIArray<SWCharString> list;
    // Before initialisation: an assertion and the default.
    EXPECT_EQ("<default>", get(r, "s", "k"));
    EXPECT_EQ(1u, capture.seen().size());
    EXPECT_FALSE(r.getSections(list));
    EXPECT_FALSE(r.enumerateSection(W("s"), list));

    // Missing file, folder, empty file or text: false, still uninitialised.
    EXPECT_FALSE(r.initialize(W((m_dir / "missing.ini").string())));
    EXPECT_FALSE(r.initialize(write("empty.ini", "")));
    EXPECT_FALSE(r.isInitialized());

    // Content without any section still initialises the reader; later calls return at
    // once and read nothing.
    SWCharString path = write("c.ini", "no sections here\n");
    EXPECT_TRUE(r.initialize(path));
    write("c.ini", "[s]\nk=v\n");
    EXPECT_TRUE(r.initialize(path));
    EXPECT_TRUE(r.initialize(W("/no/such/file")));
    EXPECT_TRUE(r.initializeFromText(W("[s]\nk=v")));
    EXPECT_TRUE(r.getSections(list));
    EXPECT_TRUE(list.empty());

    capture.seen().clear();
    ConfigFileReader fresh;
    EXPECT_TRUE(fresh.initialize(path));
    EXPECT_EQ("v", get(fresh, "s", "k"));
    EXPECT_TRUE(capture.seen().empty());

    // Copies share the sections and outlive the reader they came from.
    ConfigFileReader b(fresh);
    ConfigFileReader c;
    c = fresh;
    fresh = ConfigFileReader();
    EXPECT_FALSE(fresh.isInitialized());
    EXPECT_EQ("v", get(b, "s", "k"));
    EXPECT_EQ("v", get(c, "s", "k"));
}
