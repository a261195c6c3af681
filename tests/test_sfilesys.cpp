// SFileSys, SFileSysException, SSFileSearch and the path helpers, on real files in a
// private directory below the system's temporary directory.
#include <vardo/sfile.h>
#include <vardo/sfilesearch.h>
#include <vardo/sfilesys.h>

#include "assert_capture.h"
#include "child_process.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "text.h"
#include "thrown.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;
using vardo_test::U;
using vardo_test::W;
typedef SFileSysException X;

namespace {

fs::path P(const SWCharString& s) { return fs::u8path(U(s)); }

bool posix() { return SFileSys::getSeparator() == '/'; }

void writeFile(const SWCharString& path, const std::string& content)
{
    std::ofstream(P(path), std::ios::binary) << content;
}

std::string readFile(const SWCharString& path)
{
    std::ifstream f(P(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

template <class F>
X caught(F f)
{
    return vardo_test::thrownBy<X>(f, "SFileSysException");
}

// The failure of f, checked for its code and reason class, for further checks.
template <class F>
X failure(X::ErrorCodes code, X::ErrorReasons reason, F f)
{
    const X e = caught(f);
    EXPECT_EQ(code, e.getErrorCode());
    EXPECT_EQ(reason, e.getErrorReason());
    return e;
}

class FsTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        // Tests leave read-only entries behind; widen them so that the directory can go.
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(m_base, ec);
             it != fs::recursive_directory_iterator(); it.increment(ec))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
    // A path below the test directory; "/" in rel becomes the platform's separator.
    SWCharString at(const std::string& rel) const
    {
        SWCharString p = m_dir, r = W(rel);
        AppendSlashToDir(p, SFileSys::getSeparator());
        UnifyAllSlashes(r, SFileSys::getSeparator());
        return p + r;
    }

    vardo_test::TempDir m_tmp{"vardo-fs-"};
    const fs::path m_base = m_tmp.path;
    const SWCharString m_dir = W(m_base.u8string());
};

// What a tree holds, for proving that an operation left it alone: every entry below
// root with its kind, permissions, and for files size and modification time.
std::set<std::string> snapshot(const fs::path& root)
{
    std::set<std::string> entries;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        const fs::file_status st = fs::symlink_status(it->path(), ec);
        std::string entry = fs::relative(it->path(), root, ec).u8string() + " type=" +
                            std::to_string(static_cast<int>(st.type())) + " perms=" +
                            std::to_string(static_cast<int>(st.permissions()));
        if (st.type() == fs::file_type::regular)
            entry += " size=" + std::to_string(fs::file_size(it->path(), ec)) + " mtime=" +
                     std::to_string(fs::last_write_time(it->path(), ec).time_since_epoch().count());
        entries.insert(entry);
    }
    return entries;
}

} // namespace

TEST(SFileSysException, TextsAndReasonClasses)
{
    const SWCharString f = W("C:\\a.txt"), g = W("D:\\b.txt"), r = W("Access is denied.");
    const X e(X::copyFailed, X::reasonAccessDenied, f, r, g, W("copyFile"));
    EXPECT_EQ(W("Failed to copy the file C:\\a.txt to D:\\b.txt in file system operation. Please check access rights. Reason given: Access is denied."),
              e.toString());
    EXPECT_EQ(e.toString() + W(", copyFile"), X(e).summary());
    // "give" for "given" is the historical wording; operators grep for it.
    EXPECT_EQ(W("The file C:\\a.txt does not exist.  File system operation failed. Reason give: Access is denied."),
              X(X::fileDoesNotExist, X::reasonNotFound, f, r).toString());
    EXPECT_EQ(X(X::removeFailed, X::reasonOther, f, r).toString(),
              X(X::recursiveRemoveFailed, X::reasonOther, f, r).toString());
    EXPECT_EQ(X(X::unknownError, X::reasonOther, f, r).toString(),
              X((X::ErrorCodes)99, X::reasonOther, f, r).toString());
    // Placeholders inside names are not expanded again.
    EXPECT_EQ(W("Failed to rename %2 to %3. Reason: %1"),
              X(X::renameFailed, X::reasonOther, W("%2"), W("%1"), W("%3")).toString());

    // The run-time's numbers by name: they differ between platforms (ENAMETOOLONG is 38
    // on Windows, 36 on Linux, where 38 is ENOSYS). Every other number is "other".
    std::map<int, X::ErrorReasons> mapped = {
        {ENOMEM, X::reasonOutOfMemory}, {ENOENT, X::reasonNotFound}, {EINVAL, X::reasonInvalidArgument},
        {ENAMETOOLONG, X::reasonInvalidArgument}, {EPERM, X::reasonAccessDenied},
        {EACCES, X::reasonAccessDenied}, {ENOSPC, X::reasonDiskFull}, {EEXIST, X::reasonAlreadyExists}};
    for (int e = 0; e < 200; ++e)
        EXPECT_EQ(mapped.count(e) ? mapped[e] : X::reasonOther, X::mapErrno(e)) << e;
    const std::pair<uint32_t, X::ErrorReasons> win32[] = {
        {1816, X::reasonOutOfMemory}, {2, X::reasonNotFound}, {3, X::reasonNotFound},
        {15, X::reasonNotFound}, {18, X::reasonNotFound}, {53, X::reasonNotFound},
        {67, X::reasonNotFound}, {161, X::reasonNotFound}, {206, X::reasonNotFound},
        {5, X::reasonAccessDenied}, {32, X::reasonAccessDenied}, {112, X::reasonDiskFull},
        {80, X::reasonOther}};
    for (const auto& m : win32)
        EXPECT_EQ(m.second, X::mapError(m.first)) << m.first;
}

TEST(PathHelpers, SeparatorsAndComponents)
{
    SWCharString s = W("a\\b");
    AppendSlashToDir(s, '\\');
    AppendSlashToDir(s, '\\');
    EXPECT_EQ(W("a\\b\\"), s);
    s = W("\\a\\");
    StripSlashOffDirBegin(s, '\\');
    StripSlashOffDirEnd(s, '\\');
    EXPECT_EQ(W("a"), s);
    s = W("a/b\\c/");
    UnifyAllSlashes(s, '/');
    EXPECT_EQ(W("a/b/c/"), s);

    EXPECT_EQ(W("c"), GetBottomLevelDir(W("a\\b\\c\\"), '\\'));
    EXPECT_EQ(W("a\\b"), GetParentLevelDir(W("a\\b\\c\\"), '\\'));
    EXPECT_EQ(W("/"), GetParentLevelDir(W("/c"), '/'));
    EXPECT_EQ(W(""), GetParentLevelDir(W("c"), '/'));
    EXPECT_EQ(W("C:"), GetParentLevelDir(W("C:\\x"), '\\'));

    EXPECT_TRUE(IsAbsolutePath(W("C:\\x")));
    EXPECT_TRUE(IsAbsolutePath(W("/x")));
    EXPECT_FALSE(IsAbsolutePath(W("x\\y")));
    EXPECT_FALSE(IsAbsolutePath(W("")));

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
    // Every part into buffers of every size around its length, followed by guard units:
    // a part fits when the buffer has room for it and its terminator; otherwise it is cut,
    // terminated inside the buffer, and the result says so. Nothing beyond is written.
    // With "/" a drive is an ordinary name and a backslash an ordinary character.
    const unsigned short kGuard = 0xBEEF;
    struct Case { const char* path; unsigned short sep; const char* parts[4]; };
    const Case cases[] = {
        {"C:\\dir\\sub/file.tar.gz", '\\', {"C:", "\\dir\\sub/", "file.tar", ".gz"}},
        {"C:/x\\y.txt", '/', {"", "C:/", "x\\y", ".txt"}},
        {"x", '/', {"", "", "x", ""}},
        {"D:.e", '\\', {"D:", "", "", ".e"}},
        {"", '/', {"", "", "", ""}},
    };
    for (const Case& c : cases) {
        const SWCharString path = W(c.path);
        for (int part = 0; part < 4; ++part) {
            const SWCharString want = W(c.parts[part]);
            const unsigned int n = want.getLength();
            for (unsigned int size = 1; size <= n + 2; ++size) {
                SCOPED_TRACE(std::string(c.path) + " part " + std::to_string(part) + " size " +
                             std::to_string(size));
                std::vector<unsigned short> buf(size + 4, kGuard);
                unsigned short* b[4] = {nullptr, nullptr, nullptr, nullptr};
                unsigned int sizes[4] = {0, 0, 0, 0};
                b[part] = buf.data();
                sizes[part] = size;
                EXPECT_EQ(size > n, SplitPath(path.data(), b[0], sizes[0], b[1], sizes[1], b[2],
                                              sizes[2], b[3], sizes[3], c.sep));
                for (size_t k = size; k < buf.size(); ++k)
                    EXPECT_EQ(kGuard, buf[k]) << "wrote at " << k;
                const unsigned int kept = size > n ? n : size - 1;
                EXPECT_EQ(0, buf[kept]);
                EXPECT_EQ(want.left(kept), SWCharString(buf.data()));
            }
        }
    }
    unsigned short name[4] = {'x', 0};
    EXPECT_TRUE(SplitPath(nullptr, nullptr, 0, nullptr, 0, name, 4, nullptr, 0, '/'));
    EXPECT_EQ(0, name[0]);
}

TEST_F(FsTest, TypeTestsAndDirectoryChains)
{
    writeFile(at("f.txt"), "abc");
    EXPECT_TRUE(SFileSys::isFile(at("f.txt")));
    EXPECT_FALSE(SFileSys::isDir(at("f.txt")));
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
    SFileSys::makeDirectories(at("a/x/"));
    EXPECT_TRUE(SFileSys::isDir(at("a/x")));
    // One level with a missing parent; a file in the middle of a chain.
    EXPECT_EQ(at("nope/sub"), failure(X::createDirectoryFailed, X::reasonNotFound, [&] {
                                  SFileSys::makeDirectory(at("nope/sub"));
                              }).getFile());
    EXPECT_EQ(at("f.txt/sub"), caught([&] { SFileSys::makeDirectories(at("f.txt/sub/deeper")); }).getFile());

    const SWCharString old = SFileSys::getCurrentDirectory();
    SFileSys::setCurrentDirectory(at("a/b"));
    EXPECT_EQ(SFileSys::getFullPath(at("a/b")), SFileSys::getFullPath(SFileSys::getCurrentDirectory()));
    EXPECT_EQ(SFileSys::getFullPath(at("a/x")), SFileSys::getFullPath(W("c/../../x")));
    SFileSys::setCurrentDirectory(old);
    EXPECT_EQ(X::setCurrentDirectoryFailed,
              caught([&] { SFileSys::setCurrentDirectory(at("missing")); }).getErrorCode());
    EXPECT_EQ(old, SFileSys::getCurrentDirectory());
}

TEST_F(FsTest, NonAsciiAndOverlongNames)
{
    const std::string name = "\xC3\x9C" "n\xC3\xAF-\xE6\x97\xA5\xE6\x9C\xAC-\xF0\x9F\x98\x80";   // Ünï-日本-😀
    SFileSys::makeDirectories(at(name + "/" + name));
    // The bytes on disk are the UTF-8 (Linux) or UTF-16 (Windows) of the name.
    EXPECT_TRUE(fs::is_directory(m_base / fs::u8path(name) / fs::u8path(name)));
    SIArray<FileProp> props;
    SFileSys::listing(at(name), W("*.*"), props);
    ASSERT_EQ(1u, props.size());
    EXPECT_EQ(W(name), props[0].getName());
    SFileSys::rremove(at(name));
    EXPECT_EQ(0u, SFileSys::countAll(m_dir));

    // A component longer than any file system allows fails cleanly with its name.
    const std::string longName(300, 'n');
    const X e = caught([&] { SFileSys::makeDirectory(at(longName)); });
    EXPECT_EQ(X::createDirectoryFailed, e.getErrorCode());
    EXPECT_EQ(at(longName), e.getFile());
    EXPECT_TRUE(!posix() || e.getErrorReason() == X::reasonInvalidArgument);
    EXPECT_THROW(SFileSys::getUniqueFilename(m_dir, W(longName), W("tmp"), true), SFileException);
    EXPECT_EQ(0u, SFileSys::countAll(m_dir));
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
    EXPECT_EQ("bad\\uDCFF\\uDCFEname", U(n));
    EXPECT_EQ(5, SFileSys::rsizeEx(at("") + n));
    SFileSys::rremove(at("") + n);
    EXPECT_FALSE(fs::exists(m_base / raw));
}

TEST_F(FsTest, UniqueNames)
{
    const std::string base = U(SFileSys::getUniqueFilename(m_dir, W("LogX"), W("tmp"), false)).substr(U(m_dir).size() + 1);
    EXPECT_EQ(0u, base.find("logx")) << base;   // lower case, prefix first
    EXPECT_EQ(".tmp", base.substr(base.size() - 4));

    // Created files and directories, missing parents made on the way; not below a file.
    EXPECT_TRUE(SFileSys::isFile(SFileSys::getUniqueFilename(at("deep/er"), W("p"), W(".dat"), true)));
    EXPECT_TRUE(SFileSys::isDir(SFileSys::getUniqueDirname(m_dir, W("D"), true)));
    writeFile(at("plain"), "x");
    failure(X::uniqueNameFailed, X::reasonInvalidArgument,
            [&] { SFileSys::getUniqueFilename(at("plain"), W("p"), W("x"), true); });

    // Threads of one process never build the same name.
    std::vector<std::string> names[4];
    std::vector<std::thread> threads;
    for (auto& mine : names)
        threads.emplace_back([this, &mine] {
            for (int i = 0; i < 300; ++i)
                mine.push_back(U(SFileSys::getUniqueFilename(m_dir, W("t"), W(""), false)));
        });
    std::set<std::string> all;
    for (size_t t = 0; t < threads.size(); ++t) {
        threads[t].join();
        all.insert(names[t].begin(), names[t].end());
    }
    EXPECT_EQ(1200u, all.size());
}

TEST_F(FsTest, CopyFilesAndTrees)
{
    const std::string data(100000, 'q');
    writeFile(at("src.bin"), data);
    EXPECT_EQ(W("File not found, copyFile"),
              caught([&] { SFileSys::copyFile(at("missing"), at("t"), true); }).summary());
    SFileSys::copyFile(at("src.bin"), at("new/dirs/dst.bin"), false);
    EXPECT_EQ(data, readFile(at("new/dirs/dst.bin")));
    EXPECT_EQ(SFileSys::getLastModifiedTime(at("src.bin")),
              SFileSys::getLastModifiedTime(at("new/dirs/dst.bin")));
    writeFile(at("old.bin"), "old");
    EXPECT_EQ(X::copyFailed, caught([&] { SFileSys::copyFile(at("src.bin"), at("old.bin"), false); }).getErrorCode());
    EXPECT_EQ("old", readFile(at("old.bin")));
    SFileSys::copyFile(at("src.bin"), at("old.bin"), true);
    EXPECT_EQ(data, readFile(at("old.bin")));

    SFileSys::makeDirectories(at("tree/a/b"));
    SFileSys::makeDirectories(at("tree/empty"));
    writeFile(at("tree/top.txt"), "1");
    writeFile(at("tree/a/b/low.txt"), "333");
    SFileSys::copyFile(at("tree"), at("tree2"), false);
    EXPECT_EQ("333", readFile(at("tree2/a/b/low.txt")));
    EXPECT_EQ(5u, SFileSys::countAll(at("tree2")));
    EXPECT_EQ(X::copyFailed, caught([&] { SFileSys::copyFile(at("tree"), at("tree2"), false); }).getErrorCode());
    SFileSys::copyFile(at("tree"), at("tree2"), true);
    EXPECT_EQ(X::copyFailed,
              caught([&] { SFileSys::copyFile(at("tree"), at("tree/a/inside"), false); }).getErrorCode());
    EXPECT_FALSE(SFileSys::exists(at("tree/a/inside")));

    // Rename: files move and replace; directories are refused with an assertion.
    SFileSys::renameFile(at("old.bin"), at("tree/moved.bin"));
    EXPECT_FALSE(SFileSys::exists(at("old.bin")));
    writeFile(at("other"), "o");
    SFileSys::renameFile(at("other"), at("tree/moved.bin"));
    EXPECT_EQ("o", readFile(at("tree/moved.bin")));
    EXPECT_EQ(X::renameFailed, caught([&] { SFileSys::renameFile(at("missing"), at("x")); }).getErrorCode());
    vardo_test::AssertCapture asserts;
    SFileSys::renameFile(at("tree2"), at("tree3"));
    ASSERT_FALSE(asserts.seen().empty());
    EXPECT_EQ("SFileSys::renameFile: Directory rename not supported", asserts.seen().back());
    EXPECT_TRUE(SFileSys::isDir(at("tree2")));
    EXPECT_FALSE(SFileSys::exists(at("tree3")));
}

TEST_F(FsTest, RemovalSizesCountsAndListings)
{
    SFileSys::makeDirectories(at("r/sub.log/deep"));
    writeFile(at("r/a.log"), "aaaa");
    writeFile(at("r/b.log"), "bb");
    writeFile(at("r/c.txt"), "c");
    writeFile(at("r/sub.log/d.log"), "dddddddd");
    writeFile(at("r/sub.log/deep/e"), "eeeeeeeeeeeeeeee");
    fs::permissions(P(at("r/sub.log/d.log")), fs::perms::owner_read, fs::perm_options::replace);
    EXPECT_EQ(5u, SFileSys::countFiles(at("r")));
    EXPECT_EQ(7u, SFileSys::countAll(at("r")));
    EXPECT_EQ(31u, SFileSys::rsize(at("r")));
    EXPECT_EQ(16, SFileSys::sizeEx(at("r/sub.log/deep/e")));

    SIArray<FileProp> props;
    SFileSys::listing(at("r"), W("*.log"), props);
    ASSERT_EQ(3u, props.size());
    EXPECT_EQ((std::set<std::string>{"a.log", "b.log", "sub.log"}),
              (std::set<std::string>{U(props[0].getName()), U(props[1].getName()), U(props[2].getName())}));
    SFileSys::listing(at("r"), W("*.*"), props);
    EXPECT_EQ(4u, props.size());

    int64_t removedEx = 5;
    SFileSys::removeContentEx(at("r"), W("*.txt"), removedEx);
    EXPECT_EQ(1, removedEx);
    unsigned long removed = 7;
    SFileSys::removeContent(at("r"), W("*.log"), removed);
    EXPECT_EQ(6ul, removed);   // a.log and b.log, not below sub.log
    // rremoveContent empties (read-only entries included) and keeps the directory.
    SFileSys::rremoveContent(at("r/sub.log"));
    EXPECT_EQ(0u, SFileSys::countAll(at("r/sub.log")));
    SFileSys::rremove(at("r"));
    for (auto op : {+[](const SWCharString& p) { SFileSys::rremove(p); },
                    +[](const SWCharString& p) { SFileSys::rsize(p); },
                    +[](const SWCharString& p) { SFileSys::countFiles(p); },
                    +[](const SWCharString& p) { unsigned long n; SFileSys::removeContent(p, W("*"), n); }})
        EXPECT_EQ(at("r"), failure(X::fileDoesNotExist, X::reasonNotFound, [&] { op(at("r")); }).getFile());
    EXPECT_EQ(X::sizeFailed, caught([&] { SFileSys::size(at("r")); }).getErrorCode());

    // The 32-bit forms stop at 4 GBytes; the 64-bit forms go on (a sparse file).
    SFileSys::makeDirectory(at("big"));
    writeFile(at("big/huge"), "");
    fs::resize_file(P(at("big/huge")), 5000000000ULL);
    EXPECT_EQ(5000000000LL, SFileSys::sizeEx(at("big/huge")));
    EXPECT_EQ(5000000000LL, SFileSys::rsizeEx(at("big")));
    for (const X& e : {caught([&] { SFileSys::size(at("big/huge")); }), caught([&] { SFileSys::rsize(at("big")); })}) {
        EXPECT_EQ(X::sizeFailed, e.getErrorCode());
        EXPECT_EQ(W("Size of file exceeds 4 GBytes."), e.reason());
    }
}

TEST_F(FsTest, LinksAreNeverFollowedIntoDirectories)
{
    if (!posix())
        GTEST_SKIP() << "symbolic links need privileges on Windows";
    // Outside the tree: a directory with a nested, read-only directory and file; in the
    // tree: links to the outside and back to the tree itself, beside real entries.
    SFileSys::makeDirectories(at("outside/inner"));
    writeFile(at("outside/keep"), "keep");
    writeFile(at("outside/inner/deep"), "deep");
    fs::permissions(P(at("outside/inner/deep")), fs::perms::owner_read);
    fs::permissions(P(at("outside/inner")), fs::perms::owner_read | fs::perms::owner_exec);
    const std::set<std::string> before = snapshot(P(at("outside")));

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

    // A link named as the tree itself: rremove takes the link, not the directory behind.
    fs::create_directory_symlink(P(at("outside")), P(at("top-link")));
    SFileSys::rremove(at("top-link"));
    EXPECT_FALSE(fs::exists(fs::symlink_status(P(at("top-link")))));
    EXPECT_EQ(before, snapshot(P(at("outside"))));
}

TEST_F(FsTest, TimesSpaceAndPermissions)
{
    writeFile(at("f"), "data");
    const SDateTime when(2001, 2, 3, 4, 5, 6, 7);
    SFileSys::setLastModifiedTime(at("f"), when);
    EXPECT_EQ(when, SFileSys::getLastModifiedTime(at("f")));
    SFileSys::makeDirectory(at("d"));
    EXPECT_EQ(X::setAttributesFailed, caught([&] { SFileSys::setLastModifiedTime(at("d"), when); }).getErrorCode());
    EXPECT_EQ(X::getStatusFailed, caught([&] { SFileSys::getLastModifiedTime(at("missing")); }).getErrorCode());

    int64_t avail = -1, total = -1, freeBytes = -1;
    SFileSys::diskUsageInfo(m_dir, avail, total, freeBytes);
    EXPECT_GT(total, 0);
    EXPECT_GE(freeBytes, avail);
    EXPECT_LE(freeBytes, total);
    EXPECT_EQ(X::diskStatisticsFailed,
              caught([&] { SFileSys::diskUsageInfo(at("missing/x"), avail, total, freeBytes); }).getErrorCode());

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
    EXPECT_EQ(X::getStatusFailed, caught([&] { SFileSys::HasOwnerWritePermission(at("d")); }).getErrorCode());
    EXPECT_EQ(X::fileDoesNotExist, caught([&] { SFileSys::giveAccess(at("missing"), 0x80); }).getErrorCode());
    EXPECT_EQ(X::changeOwnerFailed,
              caught([&] { SFileSys::setFileOwner(at("f"), W("no-such-user-vardo")); }).getErrorCode());
}

TEST_F(FsTest, AFullDiskLeavesNoPartialCopy)
{
    if (!vardo_test::faultsAvailable())
        GTEST_SKIP() << "the library was built without its test hooks";
    const std::string data(300000, 'z');
    writeFile(at("src"), data);
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 1000);
    failure(X::copyFailed, X::reasonDiskFull, [&] { SFileSys::copyFile(at("src"), at("dst"), false); });
    EXPECT_EQ(1u, SFileSys::countAll(m_dir));

    // Overwriting: the old target survives a failed copy (Linux builds the copy aside).
    writeFile(at("dst"), "precious");
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 0);
    failure(X::copyFailed, X::reasonDiskFull, [&] { SFileSys::copyFile(at("src"), at("dst"), true); });
    if (posix()) {
        EXPECT_EQ("precious", readFile(at("dst")));
        EXPECT_EQ(2u, SFileSys::countAll(m_dir));
    }

    // In a tree the failing file is named and removed; the hook is one-shot.
    SFileSys::makeDirectories(at("tree/sub"));
    writeFile(at("tree/sub/one"), data);
    vardo_test::injectFault(vardo_test::Fault::copyBytes, ENOSPC, 10);
    const X e = failure(X::copyFailed, X::reasonDiskFull,
                        [&] { SFileSys::copyFile(at("tree"), at("tree-copy"), false); });
    EXPECT_EQ(at("tree/sub/one"), e.getFile());
    EXPECT_EQ(at("tree-copy/sub/one"), e.getSecondFile());
    EXPECT_FALSE(SFileSys::exists(at("tree-copy/sub/one")));
    SFileSys::copyFile(at("tree"), at("tree-copy"), false);
    EXPECT_EQ(data, readFile(at("tree-copy/sub/one")));
}

TEST(FsDeniedChild, Run)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as an unprivileged child process only";
    ASSERT_TRUE(vardo_test::dropPrivileges());
    const X::ErrorReasons denied = X::reasonAccessDenied;
    const std::string sep(1, static_cast<char>(SFileSys::getSeparator()));
    const std::string locked = vardo_test::childArg("VARDO_FS_LOCKED");
    const std::string open = vardo_test::childArg("VARDO_FS_OPEN");
    const SWCharString kept = W(locked + sep + "kept");
    EXPECT_EQ(W(locked + sep + "new"), failure(X::createDirectoryFailed, denied, [&] {
                                           SFileSys::makeDirectory(W(locked + sep + "new"));
                                       }).getFile());
    failure(X::removeFailed, denied, [&] { SFileSys::remove(kept); });
    failure(X::copyFailed, denied,
            [&] { SFileSys::copyFile(W(open + sep + "source"), W(locked + sep + "copy"), false); });
    EXPECT_FALSE(SFileSys::exists(W(locked + sep + "copy")));
    failure(X::recursiveRemoveFailed, denied, [&] { SFileSys::rremove(W(locked)); });
    EXPECT_TRUE(SFileSys::exists(kept));
    // An unreadable source into a writable directory: nothing is created.
    failure(X::copyFailed, denied,
            [&] { SFileSys::copyFile(W(locked + sep + "secret"), W(open + sep + "leak"), false); });
    EXPECT_FALSE(SFileSys::exists(W(open + sep + "leak")));
    // A directory of another user that it may not read, inside a tree: removal goes on
    // past it.
    const std::string tree = open + sep + "tree";
    failure(X::recursiveRemoveFailed, X::reasonAccessDenied, [&] { SFileSys::rremove(W(tree)); });
    EXPECT_EQ(1, std::distance(fs::directory_iterator(fs::u8path(tree)), fs::directory_iterator()));
}

TEST_F(FsTest, PermissionDeniedIsReportedAsSuch)
{
    if (!posix()) {
        // Windows: the read-only attribute denies deletion.
        writeFile(at("ro"), "x");
        fs::permissions(P(at("ro")), fs::perms::owner_read, fs::perm_options::replace);
        failure(X::removeFailed, X::reasonAccessDenied, [&] { SFileSys::remove(at("ro")); });
        EXPECT_TRUE(SFileSys::exists(at("ro")));
        SFileSys::rremove(m_dir);   // rremove clears the attribute first
        EXPECT_FALSE(SFileSys::exists(m_dir));
        return;
    }
    // Linux: entries only root may change, tried by a child that gives up root (root
    // passes every permission check, and an owner may change the modes).
    if (!vardo_test::runningAsRoot())
        GTEST_SKIP() << "an unprivileged child cannot be made";
    fs::permissions(m_base, fs::perms::all, fs::perm_options::replace);
    SFileSys::makeDirectories(at("open/tree/closed"));
    SFileSys::makeDirectory(at("locked"));
    for (const char* name : {"locked/kept", "locked/secret", "open/source", "open/tree/a", "open/tree/closed/x"})
        writeFile(at(name), "x");
    fs::permissions(P(at("locked/secret")), fs::perms::none, fs::perm_options::replace);
    fs::permissions(P(at("locked")), static_cast<fs::perms>(0555), fs::perm_options::replace);
    fs::permissions(P(at("open/tree/closed")), fs::perms::owner_all, fs::perm_options::replace);
    for (const char* dir : {"open", "open/tree"})
        fs::permissions(P(at(dir)), fs::perms::all, fs::perm_options::replace);
    auto child = vardo_test::spawnSelf("FsDeniedChild.Run",
                                       {{"VARDO_FS_LOCKED", U(at("locked"))}, {"VARDO_FS_OPEN", U(at("open"))}});
    EXPECT_EQ(0, vardo_test::wait(child));
}

TEST_F(FsTest, FileSearchMatchesWildcards)
{
    EXPECT_FALSE(SSFileSearch::Matches(W("log_xn_system.sox"), W("log_xn_*.so")));
    EXPECT_TRUE(SSFileSearch::Matches(W("noext"), W("*.*")));
    EXPECT_TRUE(SSFileSearch::Matches(W("log"), W("log.*")));
    EXPECT_FALSE(SSFileSearch::Matches(W("ac"), W("a?c")));
    EXPECT_TRUE(SSFileSearch::Matches(W("ABC.TXT"), W("*.txt"), true));
    EXPECT_FALSE(SSFileSearch::Matches(W("ABC.TXT"), W("*.txt"), false));
    EXPECT_FALSE(SSFileSearch::Matches(W("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab"), W("*a*a*a*a*a*a*a*a*c")));

    writeFile(at("log_xn_one.so"), "1");
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
    EXPECT_EQ((std::set<std::string>{"log_xn_dir.so", "log_xn_one.so"}), found);
    int all = 0;
    for (SSFileSearch every(m_dir); every.next();)
        ++all;
    EXPECT_EQ(3, all);   // "." and ".." are never reported
    SSFileSearch missing(at("missing"));
    EXPECT_FALSE(missing.next());
    EXPECT_TRUE(missing.failed());
}
