// SFileSys, SFileSysException, SSFileSearch and the path helpers, on real files in a
// private directory below the system's temporary directory.
#include <vardo/sfile.h>
#include <vardo/sfilesearch.h>
#include <vardo/sfilesys.h>
#include <vardo/strace.h>

#include "child_process.h"
#include "sfile_test_support.h"
#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
using vardo_test::U;



fs::path P(const SWCharString& s)
{
    return fs::u8path(U(s));
}

bool posix()
{
    return SFileSys::getSeparator() == '/';
}

void writeFile(const SWCharString& path, const std::string& content)
{
    std::ofstream f(P(path), std::ios::binary);
    f << content;
}

std::string readFile(const SWCharString& path)
{
    std::ifstream f(P(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

template <class F>
SFileSysException caught(F f)
{
    try {
        f();
    } catch (const SFileSysException& e) {
        return e;
    }
    ADD_FAILURE() << "no SFileSysException";
    return SFileSysException();
}

// A private directory per test, removed afterwards whatever the test left in it.
class FsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        static std::atomic<int> counter(0);
        const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        m_base = fs::temp_directory_path() /
                 fs::u8path("vardo-fs-" + std::to_string(stamp) + "-" + std::to_string(counter++));
        fs::create_directories(m_base);
        m_dir = W(m_base.u8string());
    }
    void TearDown() override
    {
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(m_base, ec);
             it != fs::recursive_directory_iterator(); it.increment(ec))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(m_base, ec);
    }
    // A path below the test directory; "/" in rel becomes the platform's separator.
    SWCharString at(const std::string& rel) const
    {
        SWCharString p = m_dir;
        AppendSlashToDir(p, SFileSys::getSeparator());
        SWCharString r = W(rel);
        UnifyAllSlashes(r, SFileSys::getSeparator());
        p += r;
        return p;
    }

    fs::path m_base;
    SWCharString m_dir;
};

const char* g_lastAssert = nullptr;
void recordAssert(const char*, int, const char* expression, const SWCharString&)
{
    g_lastAssert = expression;
}

} // namespace

// ---- exception --------------------------------------------------------------------------

TEST(SFileSysException, TextsKeepTheirWordingAndSlips)
{
    typedef SFileSysException X;
    const SWCharString f = W("C:\\a.txt"), g = W("D:\\b.txt"), r = W("Access is denied."),
                       op = W("copyFile");
    EXPECT_EQ(W("Failed to copy the file C:\\a.txt to D:\\b.txt in file system operation. Please check access rights. Reason given: Access is denied."),
              X(X::copyFailed, X::reasonAccessDenied, f, r, g, op).toString());
    // "give" for "given" is the historical wording; operators grep for it.
    EXPECT_EQ(W("The file C:\\a.txt does not exist.  File system operation failed. Reason give: Access is denied."),
              X(X::fileDoesNotExist, X::reasonNotFound, f, r).toString());
    EXPECT_EQ(X(X::removeFailed, X::reasonOther, f, r).toString(),
              X(X::recursiveRemoveFailed, X::reasonOther, f, r).toString());
    EXPECT_EQ(W("Failed to rename C:\\a.txt to D:\\b.txt. Reason: Access is denied."),
              X(X::renameFailed, X::reasonOther, f, r, g).toString());
    // Unknown codes share the unknown-error text.
    EXPECT_EQ(X(X::unknownError, X::reasonOther, f, r).toString(),
              X((X::ErrorCodes)99, X::reasonOther, f, r).toString());
    // Placeholders inside names are not expanded again.
    EXPECT_EQ(W("Failed to rename %2 to %3. Reason: %1"),
              X(X::renameFailed, X::reasonOther, W("%2"), W("%1"), W("%3")).toString());
    const X e(X::copyFailed, X::reasonAccessDenied, f, r, g, op);
    EXPECT_EQ(e.toString() + W(", copyFile"), X(e).summary());
}

TEST(SFileSysException, ErrorNumbersMapToReasonClasses)
{
    typedef SFileSysException X;
    // The run-time's numbers by name: they differ between platforms (ENAMETOOLONG is 38
    // on Windows, 36 on Linux, where 38 is ENOSYS). Every other number is "other".
    const std::pair<int, X::ErrorReasons> mapped[] = {
        {ENOMEM, X::reasonOutOfMemory}, {ENOENT, X::reasonNotFound}, {EINVAL, X::reasonInvalidArgument},
        {ENAMETOOLONG, X::reasonInvalidArgument}, {EPERM, X::reasonAccessDenied},
        {EACCES, X::reasonAccessDenied}, {ENOSPC, X::reasonDiskFull}, {EEXIST, X::reasonAlreadyExists}};
    for (int e = 0; e < 200; ++e) {
        X::ErrorReasons want = X::reasonOther;
        for (const auto& m : mapped)
            if (m.first == e)
                want = m.second;
        EXPECT_EQ(want, X::mapErrno(e)) << e;
    }
    EXPECT_EQ(X::reasonOutOfMemory, X::mapError(1816));
    for (uint32_t e : {2u, 3u, 15u, 18u, 53u, 67u, 161u, 206u})
        EXPECT_EQ(X::reasonNotFound, X::mapError(e)) << e;
    EXPECT_EQ(X::reasonAccessDenied, X::mapError(5));
    EXPECT_EQ(X::reasonAccessDenied, X::mapError(32));
    EXPECT_EQ(X::reasonDiskFull, X::mapError(112));
    EXPECT_EQ(X::reasonOther, X::mapError(80));
}

// ---- path helpers -------------------------------------------------------------------------

TEST(PathHelpers, SeparatorsAndComponents)
{
    SWCharString s = W("a\\b");
    AppendSlashToDir(s, '\\');
    EXPECT_EQ(W("a\\b\\"), s);
    AppendSlashToDir(s, '/');
    EXPECT_EQ(W("a\\b\\/"), s);

    s = W("\\a\\");
    StripSlashOffDirBegin(s, '\\');
    StripSlashOffDirEnd(s, '\\');
    EXPECT_EQ(W("a"), s);
    s = W("a/b\\c/");
    UnifyAllSlashes(s, '/');
    EXPECT_EQ(W("a/b/c/"), s);

    EXPECT_EQ(W("c"), GetBottomLevelDir(W("a\\b\\c\\"), '\\'));
    EXPECT_EQ(W("c"), GetBottomLevelDir(W("a/b/c"), '/'));
    EXPECT_EQ(W("a\\b"), GetParentLevelDir(W("a\\b\\c\\"), '\\'));
    EXPECT_EQ(W("/"), GetParentLevelDir(W("/c"), '/'));
    EXPECT_EQ(W(""), GetParentLevelDir(W("c"), '/'));
    EXPECT_EQ(W("C:"), GetParentLevelDir(W("C:\\x"), '\\'));

    EXPECT_TRUE(IsAbsolutePath(W("C:\\x")));
    EXPECT_TRUE(IsAbsolutePath(W("/x")));
    EXPECT_FALSE(IsAbsolutePath(W("x\\y")));
    EXPECT_FALSE(IsAbsolutePath(W("")));
}

TEST(PathHelpers, SplitAndMake)
{
    unsigned short drive[8], dir[64], name[64], ext[16];
    ASSERT_TRUE(SplitPath(W("C:\\dir\\sub/file.tar.gz"), drive, 8, dir, 64, name, 64, ext, 16, '\\'));
    EXPECT_EQ(W("C:"), SWCharString(drive));
    EXPECT_EQ(W("\\dir\\sub/"), SWCharString(dir));
    EXPECT_EQ(W("file.tar"), SWCharString(name));
    EXPECT_EQ(W(".gz"), SWCharString(ext));
    // With "/" a drive is an ordinary name and a backslash an ordinary character.
    ASSERT_TRUE(SplitPath(W("C:/x\\y.txt"), drive, 8, dir, 64, name, 64, ext, 16, '/'));
    EXPECT_EQ(W(""), SWCharString(drive));
    EXPECT_EQ(W("C:/"), SWCharString(dir));
    EXPECT_EQ(W("x\\y"), SWCharString(name));
    EXPECT_TRUE(SplitPath(nullptr, drive, 8, dir, 64, name, 64, ext, 16, '/'));
    EXPECT_EQ(W(""), SWCharString(name));

    SWCharString dd, n, e;
    SplitPathEx(W("D:\\a\\b.c"), dd, n, e, '\\');
    EXPECT_EQ(W("D:\\a\\"), dd);
    EXPECT_EQ(W("b"), n);
    EXPECT_EQ(W(".c"), e);

    const SWCharString sep(SWChar(SFileSys::getSeparator()));
    EXPECT_EQ(W("dir") + sep + W("name.log"), MakePath(nullptr, W("dir") + sep, W("name"), W(".log")));
    EXPECT_EQ(W("C:x"), MakePath(W("C"), nullptr, W("x"), nullptr));
    EXPECT_EQ(W("name"), MakePath(nullptr, W(""), W("name"), W("")));
}

TEST(PathHelpers, SplitPathNeverWritesPastABuffer)
{
    // Every part of several paths into buffers of every size around the part's length,
    // each followed by guard units: a part fits exactly when the buffer has room for it
    // and its terminator; otherwise it is cut, still terminated inside the buffer, and the
    // result says so. Nothing beyond the buffer is ever written.
    const unsigned short kGuard = 0xBEEF;
    struct Case { const char* path; unsigned short sep; const char* parts[4]; };
    const Case cases[] = {
        {"C:\\dir\\sub\\file.tar.gz", '\\', {"C:", "\\dir\\sub\\", "file.tar", ".gz"}},
        {"/a/b.c", '/', {"", "/a/", "b", ".c"}},
        {"x", '/', {"", "", "x", ""}},
        {"D:.e", '\\', {"D:", "", "", ".e"}},
    };
    for (const Case& c : cases) {
        const SWCharString path = W(c.path);
        for (int part = 0; part < 4; ++part) {
            const SWCharString want = W(c.parts[part]);
            const unsigned int n = want.getLength();
            for (unsigned int size = 1; size <= n + 2; ++size) {
                std::vector<unsigned short> buf(size + 4, kGuard);
                unsigned short* b[4] = {nullptr, nullptr, nullptr, nullptr};
                unsigned int sizes[4] = {0, 0, 0, 0};
                b[part] = buf.data();
                sizes[part] = size;
                const bool fits = SplitPath(path.data(), b[0], sizes[0], b[1], sizes[1], b[2],
                                            sizes[2], b[3], sizes[3], c.sep);
                const std::string where = std::string(c.path) + " part " + std::to_string(part) +
                                          " size " + std::to_string(size);
                EXPECT_EQ(size > n, fits) << where;
                for (size_t k = size; k < buf.size(); ++k)
                    EXPECT_EQ(kGuard, buf[k]) << where << " wrote at " << k;
                const unsigned int kept = size > n ? n : size - 1;
                EXPECT_EQ(0, buf[kept]) << where;
                EXPECT_EQ(want.left(kept), SWCharString(buf.data())) << where;
            }
        }
    }
}

// ---- tests and directories ------------------------------------------------------------------

TEST_F(FsTest, TypeTestsAndDirectoryChains)
{
    writeFile(at("f.txt"), "abc");
    EXPECT_TRUE(SFileSys::exists(at("f.txt")));
    EXPECT_TRUE(SFileSys::isFile(at("f.txt")));
    EXPECT_FALSE(SFileSys::isDir(at("f.txt")));
    EXPECT_FALSE(SFileSys::exists(at("missing")));
    EXPECT_TRUE(SFileSys::isFullPath(m_dir));
    EXPECT_FALSE(SFileSys::isFullPath(W("rel")));
    if (posix()) {
        EXPECT_FALSE(SFileSys::isDrive(W("C:")));
        EXPECT_FALSE(SFileSys::isUNCPath(W("//server/share")));
    } else {
        EXPECT_TRUE(SFileSys::isDrive(W("c:\\")));
        EXPECT_FALSE(SFileSys::isDrive(W("C:\\x")));
        EXPECT_TRUE(SFileSys::isFullPath(W("\\\\server\\share\\x")));
    }

    SFileSys::makeDirectories(at("a/b/c/d"));
    EXPECT_TRUE(SFileSys::isDir(at("a/b/c/d")));
    SFileSys::makeDirectories(at("a/x/") );
    EXPECT_TRUE(SFileSys::isDir(at("a/x")));

    // One level with a missing parent; a file in the middle of a chain.
    SFileSysException e = caught([&] { SFileSys::makeDirectory(at("nope/sub")); });
    EXPECT_EQ(SFileSysException::createDirectoryFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonNotFound, e.getErrorReason());
    EXPECT_EQ(at("nope/sub"), e.getFile());
    EXPECT_EQ(at("f.txt/sub"), caught([&] { SFileSys::makeDirectories(at("f.txt/sub/deeper")); }).getFile());

    // Working directory and full paths.
    const SWCharString old = SFileSys::getCurrentDirectory();
    SFileSys::setCurrentDirectory(at("a/b"));
    const SWCharString cwd = SFileSys::getCurrentDirectory();
    EXPECT_EQ(SFileSys::getFullPath(at("a/b")), SFileSys::getFullPath(cwd));
    EXPECT_EQ(SFileSys::getFullPath(at("a/x")), SFileSys::getFullPath(W("c/../../x")));
    SFileSys::setCurrentDirectory(old);
    e = caught([&] { SFileSys::setCurrentDirectory(at("missing")); });
    EXPECT_EQ(SFileSysException::setCurrentDirectoryFailed, e.getErrorCode());
    EXPECT_EQ(old, SFileSys::getCurrentDirectory());
}

TEST_F(FsTest, NonAsciiAndOverlongNames)
{
    const std::string name = "\xC3\x9C" "n\xC3\xAF-\xE6\x97\xA5\xE6\x9C\xAC-\xF0\x9F\x98\x80";   // Ünï-日本-😀
    SFileSys::makeDirectories(at(name + "/" + name));
    writeFile(at(name + "/" + name + "/f.txt"), "x");
    SFileSys::copyFile(at(name), at("copy-" + name), false);
    // The bytes on disk are the UTF-8 (Linux) or UTF-16 (Windows) of the name.
    EXPECT_TRUE(fs::exists(m_base / fs::u8path(name) / fs::u8path(name) / "f.txt"));
    EXPECT_TRUE(fs::exists(m_base / fs::u8path("copy-" + name) / fs::u8path(name) / "f.txt"));
    SIArray<FileProp> props;
    SFileSys::listing(at(name), W("*.*"), props);
    ASSERT_EQ(1u, props.size());
    EXPECT_EQ(W(name), props[0].getName());
    SFileSys::rremove(at(name));
    SFileSys::rremove(at("copy-" + name));
    EXPECT_EQ(0u, SFileSys::countAll(m_dir));

    // A component longer than any file system allows fails cleanly with its name.
    const std::string longName(300, 'n');
    SFileSysException e = caught([&] { SFileSys::makeDirectory(at(longName)); });
    EXPECT_EQ(SFileSysException::createDirectoryFailed, e.getErrorCode());
    EXPECT_EQ(at(longName), e.getFile());
    if (posix()) {
        EXPECT_EQ(SFileSysException::reasonInvalidArgument, e.getErrorReason());
    }
    EXPECT_THROW(SFileSys::getUniqueFilename(m_dir, W(longName), W("tmp"), true), SFileException);
    EXPECT_EQ(0u, SFileSys::countAll(m_dir));   // nothing left behind
}

TEST_F(FsTest, NamesThatAreNotUtf8StayReachable)
{
    if (!posix())
        GTEST_SKIP() << "Windows names are UTF-16 by construction";
    const std::string raw = "bad\xFF\xFE" "name";
    fs::create_directory(m_base / raw);
    std::ofstream(m_base / raw / "inner") << "12345";
    SIArray<FileProp> props;
    SFileSys::listing(m_dir, W("bad*"), props);
    ASSERT_EQ(1u, props.size());
    const SWCharString& n = props[0].getName();
    ASSERT_EQ(9u, n.getLength());
    EXPECT_EQ(0xDCFF, n.data()[3]);
    EXPECT_EQ(0xDCFE, n.data()[4]);
    SWCharString path = m_dir;
    AppendSlashToDir(path, '/');
    path += n;
    SFileSys::copyFile(path, at("copied"), false);
    EXPECT_EQ("12345", readFile(at("copied/inner")));
    SFileSys::rremove(path);
    EXPECT_FALSE(fs::exists(m_base / raw));
}

// ---- unique names ---------------------------------------------------------------------------

TEST_F(FsTest, UniqueNames)
{
    const std::string a = U(SFileSys::getUniqueFilename(m_dir, W("LogX"), W("tmp"), false));
    const std::string base = a.substr(U(m_dir).size() + 1);
    EXPECT_EQ(0u, base.find("logx")) << base;   // lower case, prefix first
    EXPECT_EQ(".tmp", base.substr(base.size() - 4));
    for (char c : base)
        EXPECT_FALSE(c >= 'A' && c <= 'Z') << base;

    // Created files and directories, with missing parents made on the way.
    const SWCharString file = SFileSys::getUniqueFilename(at("deep/er"), W("p"), W(".dat"), true);
    EXPECT_TRUE(SFileSys::isFile(file));
    EXPECT_TRUE(SFileSys::isDir(SFileSys::getUniqueDirname(m_dir, W("D"), true)));

    // A file where the directory should be.
    writeFile(at("plain"), "x");
    const SFileSysException e =
        caught([&] { SFileSys::getUniqueFilename(at("plain"), W("p"), W("x"), true); });
    EXPECT_EQ(SFileSysException::uniqueNameFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonInvalidArgument, e.getErrorReason());

    // Threads of one process never build the same name.
    std::vector<std::vector<SWCharString>> names(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i)
                names[t].push_back(SFileSys::getUniqueFilename(m_dir, W("t"), W(""), false));
        });
    for (std::thread& t : threads)
        t.join();
    std::set<std::string> all;
    for (const auto& v : names)
        for (const SWCharString& n : v)
            all.insert(U(n));
    EXPECT_EQ(1200u, all.size());
}

// ---- copying, renaming, removing --------------------------------------------------------------

TEST_F(FsTest, CopyFilesAndTrees)
{
    const std::string data(100000, 'q');
    writeFile(at("src.bin"), data);
    SFileSysException e = caught([&] { SFileSys::copyFile(at("missing"), at("t"), true); });
    EXPECT_EQ(SFileSysException::fileNotFound, e.getErrorCode());
    EXPECT_EQ(W("File not found, copyFile"), e.summary());

    SFileSys::copyFile(at("src.bin"), at("new/dirs/dst.bin"), false);
    EXPECT_EQ(data, readFile(at("new/dirs/dst.bin")));
    EXPECT_EQ(SFileSys::getLastModifiedTime(at("src.bin")),
              SFileSys::getLastModifiedTime(at("new/dirs/dst.bin")));

    writeFile(at("old.bin"), "old");
    e = caught([&] { SFileSys::copyFile(at("src.bin"), at("old.bin"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_EQ("old", readFile(at("old.bin")));
    SFileSys::copyFile(at("src.bin"), at("old.bin"), true);
    EXPECT_EQ(data, readFile(at("old.bin")));

    // Trees: nested directories, an empty one, files at every level.
    SFileSys::makeDirectories(at("tree/a/b"));
    SFileSys::makeDirectories(at("tree/empty"));
    writeFile(at("tree/top.txt"), "1");
    writeFile(at("tree/a/mid.txt"), "22");
    writeFile(at("tree/a/b/low.txt"), "333");
    SFileSys::copyFile(at("tree"), at("tree2"), false);
    EXPECT_EQ("333", readFile(at("tree2/a/b/low.txt")));
    EXPECT_TRUE(SFileSys::isDir(at("tree2/empty")));
    EXPECT_EQ(SFileSys::countAll(at("tree")), SFileSys::countAll(at("tree2")));
    EXPECT_EQ(6, SFileSys::rsizeEx(at("tree2")));
    e = caught([&] { SFileSys::copyFile(at("tree"), at("tree2"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    SFileSys::copyFile(at("tree"), at("tree2"), true);
    // A tree cannot be copied into itself.
    e = caught([&] { SFileSys::copyFile(at("tree"), at("tree/a/inside"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_FALSE(SFileSys::exists(at("tree/a/inside")));

    // Rename: files move and replace; directories are refused with an assertion.
    SFileSys::renameFile(at("old.bin"), at("tree/moved.bin"));
    EXPECT_FALSE(SFileSys::exists(at("old.bin")));
    EXPECT_EQ(data, readFile(at("tree/moved.bin")));
    writeFile(at("other"), "o");
    SFileSys::renameFile(at("other"), at("tree/moved.bin"));
    EXPECT_EQ("o", readFile(at("tree/moved.bin")));
    e = caught([&] { SFileSys::renameFile(at("missing"), at("x")); });
    EXPECT_EQ(SFileSysException::renameFailed, e.getErrorCode());
    g_lastAssert = nullptr;
    SAssertObserver previous = SetAssertObserver(recordAssert);
    SFileSys::renameFile(at("tree2"), at("tree3"));
    SetAssertObserver(previous);
    ASSERT_NE(nullptr, g_lastAssert);
    EXPECT_STREQ("SFileSys::renameFile: Directory rename not supported", g_lastAssert);
    EXPECT_TRUE(SFileSys::isDir(at("tree2")));
    EXPECT_FALSE(SFileSys::exists(at("tree3")));
}

TEST_F(FsTest, RemovalSizesCountsAndListings)
{
    SFileSys::makeDirectories(at("r/sub/deep"));
    writeFile(at("r/a.log"), "aaaa");
    writeFile(at("r/b.log"), "bb");
    writeFile(at("r/c.txt"), "c");
    writeFile(at("r/sub/d.log"), "dddddddd");
    writeFile(at("r/sub/deep/e"), "eeeeeeeeeeeeeeee");
    fs::permissions(P(at("r/sub/d.log")), fs::perms::owner_read, fs::perm_options::replace);

    EXPECT_EQ(5u, SFileSys::countFiles(at("r")));
    EXPECT_EQ(7u, SFileSys::countAll(at("r")));
    EXPECT_EQ(31u, SFileSys::rsize(at("r")));
    EXPECT_EQ(16, SFileSys::sizeEx(at("r/sub/deep/e")));

    SIArray<FileProp> props;
    SFileSys::listing(at("r"), W("*.log"), props);
    ASSERT_EQ(2u, props.size());
    std::set<std::string> names;
    for (const FileProp& p : props)
        names.insert(U(p.getName()));
    EXPECT_EQ((std::set<std::string>{"a.log", "b.log"}), names);
    SFileSys::listing(at("r"), W("*.*"), props);
    EXPECT_EQ(4u, props.size());

    unsigned long removed = 7;
    SFileSys::removeContent(at("r"), W("*.log"), removed);
    EXPECT_EQ(6ul, removed);
    EXPECT_FALSE(SFileSys::exists(at("r/a.log")));
    EXPECT_TRUE(SFileSys::exists(at("r/c.txt")));
    EXPECT_TRUE(SFileSys::exists(at("r/sub/d.log")));   // not recursive

    // rremoveContent empties (read-only entries included) and keeps the directory.
    SFileSys::rremoveContent(at("r/sub"));
    EXPECT_TRUE(SFileSys::isDir(at("r/sub")));
    EXPECT_EQ(0u, SFileSys::countAll(at("r/sub")));
    SFileSys::rremove(at("r"));
    EXPECT_FALSE(SFileSys::exists(at("r")));

    for (auto op : {+[](const SWCharString& p) { SFileSys::rremove(p); },
                    +[](const SWCharString& p) { SFileSys::rsize(p); },
                    +[](const SWCharString& p) { SFileSys::countFiles(p); },
                    +[](const SWCharString& p) { unsigned long n; SFileSys::removeContent(p, W("*"), n); }}) {
        const SFileSysException e = caught([&] { op(at("r")); });
        EXPECT_EQ(SFileSysException::fileDoesNotExist, e.getErrorCode());
        EXPECT_EQ(SFileSysException::reasonNotFound, e.getErrorReason());
        EXPECT_EQ(at("r"), e.getFile());
    }
    SFileSysException e = caught([&] { SFileSys::size(at("r")); });
    EXPECT_EQ(SFileSysException::sizeFailed, e.getErrorCode());

    // The 32-bit forms stop at 4 GBytes; the 64-bit forms go on (a sparse file).
    SFileSys::makeDirectory(at("big"));
    {
        std::ofstream(P(at("big/huge"))) << "";
    }
    fs::resize_file(P(at("big/huge")), 5000000000ULL);
    EXPECT_EQ(5000000000LL, SFileSys::sizeEx(at("big/huge")));
    EXPECT_EQ(5000000000LL, SFileSys::rsizeEx(at("big")));
    for (int whole = 0; whole < 2; ++whole) {
        e = caught([&] {
            if (whole)
                SFileSys::rsize(at("big"));
            else
                SFileSys::size(at("big/huge"));
        });
        EXPECT_EQ(SFileSysException::sizeFailed, e.getErrorCode());
        EXPECT_EQ(W("Size of file exceeds 4 GBytes."), e.reason());
    }
}

namespace {

// What a tree holds, for proving that an operation left it alone: every entry below
// root with its kind, size, permissions and modification time.
std::string snapshot(const fs::path& root)
{
    std::string out;
    std::error_code ec;
    std::vector<std::string> lines;
    for (auto it = fs::recursive_directory_iterator(root, ec); it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        const fs::path p = it->path();
        const fs::file_status st = fs::symlink_status(p, ec);
        std::string line = fs::relative(p, root, ec).u8string();
        line += " type=" + std::to_string(static_cast<int>(st.type()));
        line += " perms=" + std::to_string(static_cast<int>(st.permissions()));
        if (st.type() == fs::file_type::regular) {
            line += " size=" + std::to_string(fs::file_size(p, ec));
            line += " mtime=" + std::to_string(fs::last_write_time(p, ec).time_since_epoch().count());
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    for (const std::string& l : lines)
        out += l + "\n";
    return out;
}

} // namespace

TEST_F(FsTest, LinksAreNeverFollowedIntoDirectories)
{
    if (!posix())
        GTEST_SKIP() << "symbolic links need privileges on Windows";
    // Outside the tree: a directory with a nested, read-only directory and file.
    SFileSys::makeDirectories(at("outside/inner"));
    writeFile(at("outside/keep"), "keep");
    writeFile(at("outside/inner/deep"), "deep");
    fs::permissions(P(at("outside/inner/deep")), fs::perms::owner_read);
    fs::permissions(P(at("outside/inner")), fs::perms::owner_read | fs::perms::owner_exec);
    const std::string before = snapshot(P(at("outside")));

    // The tree: links to the outside and back to the tree itself, at the top and deeper
    // down, beside real entries.
    SFileSys::makeDirectories(at("t/a/b"));
    writeFile(at("t/a/b/file"), "12345");
    fs::create_directory_symlink(P(at("outside")), P(at("t/link")));
    fs::create_directory_symlink(P(at("outside/inner")), P(at("t/a/b/inner-link")));
    fs::create_directory_symlink(P(at("t")), P(at("t/a/loop")));
    fs::create_symlink(P(at("outside/keep")), P(at("t/a/file-link")));

    // Links count as one entry each; a link to a file counts its file's size.
    EXPECT_EQ(7u, SFileSys::countAll(at("t")));     // a, b, file, three directory links, file link
    EXPECT_EQ(2u, SFileSys::countFiles(at("t")));  // file and file-link
    EXPECT_EQ(5 + 4, SFileSys::rsizeEx(at("t")));
    SIArray<FileProp> props;
    SFileSys::listing(at("t/a"), W("*"), props);
    EXPECT_EQ(3u, props.size());

    // A copy holds no copy of what lies behind a directory link.
    SFileSys::copyFile(at("t"), at("t-copy"), false);
    EXPECT_TRUE(SFileSys::exists(at("t-copy/a/b/file")));
    EXPECT_EQ("keep", readFile(at("t-copy/a/file-link")));
    EXPECT_FALSE(SFileSys::exists(at("t-copy/link")));
    EXPECT_FALSE(SFileSys::exists(at("t-copy/a/loop")));
    EXPECT_FALSE(SFileSys::exists(at("t-copy/a/b/inner-link")));

    // Permissions are widened in the tree, never behind a link.
    SFileSys::giveAllAccess(at("t"), true);
    EXPECT_EQ(before, snapshot(P(at("outside"))));

    // Removing by pattern takes links, not what they point to.
    unsigned long removed = 0;
    SFileSys::removeContent(at("t/a"), W("*link*"), removed);
    EXPECT_EQ(0ul, removed);
    EXPECT_FALSE(fs::exists(fs::symlink_status(P(at("t/a/file-link")))));
    fs::create_symlink(P(at("outside/keep")), P(at("t/a/file-link")));

    // Emptying and removing the tree removes the links themselves.
    SFileSys::rremoveContent(at("t/a"));
    EXPECT_EQ(0u, SFileSys::countAll(at("t/a")));
    SFileSys::rremove(at("t"));
    EXPECT_FALSE(SFileSys::exists(at("t")));
    EXPECT_EQ(before, snapshot(P(at("outside"))));
    EXPECT_EQ("keep", readFile(at("outside/keep")));

    // A link named as the tree itself: rremove takes the link, not the directory behind.
    fs::create_directory_symlink(P(at("outside")), P(at("top-link")));
    SFileSys::rremove(at("top-link"));
    EXPECT_FALSE(fs::exists(fs::symlink_status(P(at("top-link")))));
    EXPECT_EQ(before, snapshot(P(at("outside"))));
}

// ---- times, space, permissions ------------------------------------------------------------------

TEST_F(FsTest, TimesSpaceAndPermissions)
{
    writeFile(at("f"), "data");
    const SDateTime when(2001, 2, 3, 4, 5, 6, 7);
    SFileSys::setLastModifiedTime(at("f"), when);
    EXPECT_EQ(when, SFileSys::getLastModifiedTime(at("f")));
    SFileSys::makeDirectory(at("d"));
    SFileSysException e = caught([&] { SFileSys::setLastModifiedTime(at("d"), when); });
    EXPECT_EQ(SFileSysException::setAttributesFailed, e.getErrorCode());
    e = caught([&] { SFileSys::getLastModifiedTime(at("missing")); });
    EXPECT_EQ(SFileSysException::getStatusFailed, e.getErrorCode());

    int64_t avail = -1, total = -1, freeBytes = -1;
    SFileSys::diskUsageInfo(m_dir, avail, total, freeBytes);
    EXPECT_GT(total, 0);
    EXPECT_GE(freeBytes, avail);
    EXPECT_LE(freeBytes, total);
    e = caught([&] { SFileSys::diskUsageInfo(at("missing/x"), avail, total, freeBytes); });
    EXPECT_EQ(SFileSysException::diskStatisticsFailed, e.getErrorCode());

    fs::permissions(P(at("f")), fs::perms::owner_read, fs::perm_options::replace);
    EXPECT_FALSE(SFileSys::HasOwnerWritePermission(at("f")));
    SFileSys::giveAccess(at("f"), SFile::ownerWMask);
    EXPECT_TRUE(SFileSys::HasOwnerWritePermission(at("f")));
    if (posix()) {
        EXPECT_FALSE(SFileSys::HasOwnerExePermission(at("f")));
        SFileSys::giveAccess(at("f"), SFile::ownerXMask);
        EXPECT_TRUE(SFileSys::HasOwnerExePermission(at("f")));
        SFileSys::makeDirectories(at("d/sub"));
        writeFile(at("d/sub/g"), "g");
        SFileSys::giveAllAccess(at("d"), true);
        EXPECT_EQ(fs::perms::all, fs::status(P(at("d/sub/g"))).permissions() & fs::perms::all);
    } else {
        writeFile(at("run.exe"), "MZ");
        EXPECT_TRUE(SFileSys::HasOwnerExePermission(at("run.exe")));
        EXPECT_FALSE(SFileSys::HasOwnerExePermission(at("f")));
    }
    e = caught([&] { SFileSys::HasOwnerWritePermission(at("d")); });
    EXPECT_EQ(SFileSysException::getStatusFailed, e.getErrorCode());
    e = caught([&] { SFileSys::giveAccess(at("missing"), 0x80); });
    EXPECT_EQ(SFileSysException::fileDoesNotExist, e.getErrorCode());

    e = caught([&] { SFileSys::setFileOwner(at("f"), W("no-such-user-vardo")); });
    EXPECT_EQ(SFileSysException::changeOwnerFailed, e.getErrorCode());
}

// ---- faults ---------------------------------------------------------------------------------------

TEST_F(FsTest, AFullDiskLeavesNoPartialCopy)
{
    if (!vardo_test::faultsAvailable())
        GTEST_SKIP() << "the library was built without its test hooks";
    const std::string data(300000, 'z');
    writeFile(at("src"), data);
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 1000);
    SFileSysException e = caught([&] { SFileSys::copyFile(at("src"), at("dst"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonDiskFull, e.getErrorReason());
    EXPECT_FALSE(SFileSys::exists(at("dst")));
    EXPECT_EQ(1u, SFileSys::countAll(m_dir));

    // Overwriting: the old target survives a failed copy (Linux builds the copy aside).
    writeFile(at("dst"), "precious");
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 0);
    e = caught([&] { SFileSys::copyFile(at("src"), at("dst"), true); });
    EXPECT_EQ(SFileSysException::reasonDiskFull, e.getErrorReason());
    if (posix()) {
        EXPECT_EQ("precious", readFile(at("dst")));
        EXPECT_EQ(2u, SFileSys::countAll(m_dir));
    }

    // In a tree the failing file is named and removed; the hook is one-shot.
    SFileSys::makeDirectories(at("tree/sub"));
    writeFile(at("tree/sub/one"), data);
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 10);
    e = caught([&] { SFileSys::copyFile(at("tree"), at("tree-copy"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_EQ(at("tree/sub/one"), e.getFile());
    EXPECT_EQ(at("tree-copy/sub/one"), e.getSecondFile());
    EXPECT_FALSE(SFileSys::exists(at("tree-copy/sub/one")));
    SFileSys::copyFile(at("tree"), at("tree-copy"), false);
    EXPECT_EQ(data, readFile(at("tree-copy/sub/one")));
}

namespace {

// The checks of a process that lacks the rights: run directly when this process is
// unprivileged, in a child that dropped root otherwise.
void checkDenied(const SWCharString& locked, const SWCharString& open, const SWCharString& source)
{
    const SWCharString sep(SWChar(SFileSys::getSeparator()));
    SFileSysException e = caught([&] { SFileSys::makeDirectory(locked + sep + W("new")); });
    EXPECT_EQ(SFileSysException::createDirectoryFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
    EXPECT_EQ(locked + sep + W("new"), e.getFile());

    e = caught([&] { SFileSys::remove(locked + sep + W("kept")); });
    EXPECT_EQ(SFileSysException::removeFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
    EXPECT_TRUE(SFileSys::exists(locked + sep + W("kept")));

    e = caught([&] { SFileSys::copyFile(source, locked + sep + W("copy"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
    EXPECT_FALSE(SFileSys::exists(locked + sep + W("copy")));

    e = caught([&] { SFileSys::rremove(locked); });
    EXPECT_EQ(SFileSysException::recursiveRemoveFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
    EXPECT_TRUE(SFileSys::exists(locked + sep + W("kept")));

    // An unreadable source into a writable directory: nothing is created.
    e = caught([&] { SFileSys::copyFile(locked + sep + W("secret"), open + sep + W("leak"), false); });
    EXPECT_EQ(SFileSysException::copyFailed, e.getErrorCode());
    EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
    EXPECT_FALSE(SFileSys::exists(open + sep + W("leak")));
}

} // namespace

TEST(FsDeniedChild, Run)
{
    const char* locked = std::getenv("VARDO_FS_LOCKED");
    if (!locked)
        GTEST_SKIP() << "runs as an unprivileged child process only";
    checkDenied(W(locked), W(std::getenv("VARDO_FS_OPEN")), W(std::getenv("VARDO_FS_SOURCE")));
}

TEST_F(FsTest, PermissionDeniedIsReportedAsSuch)
{
    if (!posix()) {
        // Windows: the read-only attribute denies deletion.
        writeFile(at("ro"), "x");
        fs::permissions(P(at("ro")), fs::perms::owner_read, fs::perm_options::replace);
        const SFileSysException e = caught([&] { SFileSys::remove(at("ro")); });
        EXPECT_EQ(SFileSysException::removeFailed, e.getErrorCode());
        EXPECT_EQ(SFileSysException::reasonAccessDenied, e.getErrorReason());
        EXPECT_TRUE(SFileSys::exists(at("ro")));
        SFileSys::rremove(m_dir);   // rremove clears the attribute first
        EXPECT_FALSE(SFileSys::exists(m_dir));
        return;
    }
    fs::permissions(m_base, fs::perms::all, fs::perm_options::replace);
    SFileSys::makeDirectory(at("locked"));
    SFileSys::makeDirectory(at("open"));
    writeFile(at("locked/kept"), "k");
    writeFile(at("locked/secret"), "s");
    writeFile(at("source"), "s");
    fs::permissions(P(at("locked/secret")), fs::perms::none, fs::perm_options::replace);
    fs::permissions(P(at("locked")), fs::perms::owner_read | fs::perms::owner_exec |
                                          fs::perms::group_read | fs::perms::group_exec |
                                          fs::perms::others_read | fs::perms::others_exec,
                    fs::perm_options::replace);
    fs::permissions(P(at("open")), fs::perms::all, fs::perm_options::replace);
    fs::permissions(P(at("source")), fs::perms::all, fs::perm_options::replace);

    std::error_code ec;
    if (!fs::create_directory(P(at("locked/probe")), ec)) {
        checkDenied(at("locked"), at("open"), at("source"));
        return;
    }
    // Root passes permission checks: ask a child running as "nobody".
    fs::remove(P(at("locked/probe")));
    if (std::system("setpriv --version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "running with privileges and no setpriv to drop them";
    const std::string cmd = "VARDO_FS_LOCKED='" + U(at("locked")) + "' VARDO_FS_OPEN='" +
                            U(at("open")) + "' VARDO_FS_SOURCE='" + U(at("source")) +
                            "' setpriv --reuid=65534 --regid=65534 --clear-groups '" +
                            vardo_test::selfPath() + "' --gtest_filter=FsDeniedChild.Run";
    EXPECT_EQ(0, std::system(cmd.c_str()));
}

// ---- directory search -------------------------------------------------------------------------------

TEST_F(FsTest, FileSearchMatchesWildcards)
{
    EXPECT_TRUE(SSFileSearch::Matches(W("log_xn_system.so"), W("log_xn_*.so")));
    EXPECT_FALSE(SSFileSearch::Matches(W("log_xn_system.sox"), W("log_xn_*.so")));
    EXPECT_TRUE(SSFileSearch::Matches(W("noext"), W("*.*")));
    EXPECT_TRUE(SSFileSearch::Matches(W("log"), W("log.*")));
    EXPECT_FALSE(SSFileSearch::Matches(W("ac"), W("a?c")));
    EXPECT_TRUE(SSFileSearch::Matches(W("ABC.TXT"), W("*.txt"), true));
    EXPECT_FALSE(SSFileSearch::Matches(W("ABC.TXT"), W("*.txt"), false));
    EXPECT_FALSE(SSFileSearch::Matches(W("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab"), W("*a*a*a*a*a*a*a*a*c")));

    writeFile(at("log_xn_one.so"), "1");
    writeFile(at("log_xn_two.so"), "22");
    writeFile(at("log_other.so"), "3");
    SFileSys::makeDirectory(at("log_xn_dir.so"));
    std::set<std::string> found;
    SSFileSearch search(m_dir, W("log_xn_*.so"));
    while (search.next()) {
        found.insert(U(search.getName()));
        EXPECT_EQ(at(U(search.getName())), search.getPath());
        EXPECT_EQ(search.getName() == W("log_xn_dir.so"), search.isDirectory());
    }
    EXPECT_FALSE(search.failed());
    EXPECT_EQ((std::set<std::string>{"log_xn_dir.so", "log_xn_one.so", "log_xn_two.so"}), found);

    int all = 0;
    SSFileSearch every(m_dir);
    while (every.next())
        ++all;
    EXPECT_EQ(4, all);   // "." and ".." are never reported

    SSFileSearch missing(at("missing"));
    EXPECT_FALSE(missing.next());
    EXPECT_TRUE(missing.failed());
}
