// SFile and SFileException: opening, bytes, positions, text, failures with their exact
// messages, and the equivalence of readLine's block reads with the byte-at-a-time rule.
#include "vardo/sfile.h"
#include "vardo/strace.h"

#include "child_process.h"
#include "sfile_test_support.h"

#include "text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
namespace fs = std::filesystem;

namespace {

using vardo_test::W;
const auto& U8 = vardo_test::U;



std::string pathU8(const fs::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

std::string reasonFor(int e)
{
    return std::strerror(e);
}

void writeBytes(const fs::path& p, const std::string& bytes)
{
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readBytes(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh folder per test, removed afterwards.
class SFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::random_device rd;
        for (int i = 0; i < 100; ++i) {
            fs::path p = fs::temp_directory_path() / ("vardo_sfile_" + std::to_string(rd()));
            if (fs::create_directory(p)) {
                m_dir = p;
                break;
            }
        }
        ASSERT_FALSE(m_dir.empty());
    }
    void TearDown() override
    {
        std::error_code ec;
        if (!m_dir.empty())
            fs::remove_all(m_dir, ec);
    }
    fs::path at(const std::string& name) const { return m_dir / fs::u8path(name); }
    SWCharString wat(const std::string& name) const { return W(pathU8(at(name))); }

    fs::path m_dir;
};

// Exposes the byte-at-a-time rule of readLine.
class ByteRuleFile : public SFile {
public:
    using SFile::SFile;
    SWCharString lineByBytes() { return readLineByteByByte(); }
};

std::vector<std::string> g_asserts;
void recordAssert(const char*, int, const char* expression, const SWCharString&)
{
    g_asserts.push_back(expression ? expression : "");
}

} // namespace

TEST(SFileExceptionText, TemplatesAndTheLockQuirk)
{
    SWCharString file = W("C:\\data\\x.txt"), reason = W("Permission denied");
    auto text = [&](SFileException::ErrorCodes c) {
        return U8(SFileException(c, 13, file, SFileException::accessDenied, reason, SWCharString()).toString());
    };
    EXPECT_EQ("Failed to open the file C:\\data\\x.txt.  Reason: Permission denied", text(SFileException::openError));
    EXPECT_EQ("Fail to write file C:\\data\\x.txt.  Reason given: Permission denied", text(SFileException::writeError));
    EXPECT_EQ("Fail to flush file C:\\data\\x.txt.  Reason given: Permission denied.  File may not be "
              "completely written to disk.", text(SFileException::flushError));
    EXPECT_EQ("Unknown error (exception).  ", text(SFileException::lockError));
    EXPECT_EQ("Unknown error (exception).  ", text(static_cast<SFileException::ErrorCodes>(7)));

    SFileException e(SFileException::writeError, 28, file, SFileException::otherError, reason, W("extra"));
    EXPECT_EQ(U8(e.toString()) + ":extra", U8(e.summary()));
    SFileException copy;
    copy = e;
    EXPECT_EQ(28, copy.getErrno());
    EXPECT_EQ(U8(e.summary()), U8(SFileException(copy).summary()));

    // A file name holding placeholder text is not substituted again.
    SFileException p(SFileException::openError, 2, W("%2%1"), SFileException::fileNotFound, W("r"), SWCharString());
    EXPECT_EQ("Failed to open the file %2%1.  Reason: r", U8(p.toString()));

    EXPECT_EQ(SFileException::outOfMemory, SFileException::MapErrno(12));
    EXPECT_EQ(SFileException::otherError, SFileException::MapErrno(17));
}

TEST_F(SFileTest, OpenFailures)
{
    // No access mode.
    SFile f(wat("a.txt"));
    try {
        f.open(-1, SFile::readWriteMask, SFile::denyNothing);
        FAIL() << "open(-1) must throw";
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::openError, e.ErrCode());
        EXPECT_EQ(0, e.getErrno());
        EXPECT_EQ(SFileException::otherError, e.DetailCode());
        EXPECT_EQ("Failed to open the file " + pathU8(at("a.txt")) + ".  Reason: No file access mode provided.",
                  U8(e.toString()));
    }
    EXPECT_FALSE(f.isOpened());

    // A missing file, and a missing parent folder for a file to be created: nothing is
    // created, the descriptor field holds -1.
    for (const char* name : {"missing.txt", "no/such/dir/new.txt"}) {
        SFile g;
        try {
            g.open(wat(name), SFile::readAndWrite | (name[0] == 'n' ? SFile::create : 0),
                   SFile::readWriteMask, SFile::denyNothing);
            FAIL() << name;
        } catch (const SFileException& e) {
            EXPECT_EQ(SFileException::openError, e.ErrCode());
            EXPECT_EQ(ENOENT, e.getErrno());
            EXPECT_EQ(SFileException::fileNotFound, e.DetailCode());
            EXPECT_EQ("Failed to open the file " + pathU8(at(name)) + ".  Reason: " + reasonFor(ENOENT),
                      U8(e.toString()));
        }
        EXPECT_EQ(-1, g.getFd());
    }
    EXPECT_TRUE(fs::is_empty(m_dir));

    // A folder is not a file.
    fs::create_directory(at("folder"));
    SFile d;
    EXPECT_THROW(d.open(wat("folder"), SFile::readOnly, 0, SFile::denyNothing), SFileException);

    // Exclusive creation of an existing file.
    writeBytes(at("there.txt"), "x");
    EXPECT_THROW(SFile(wat("there.txt"), SFile::create | SFile::exclusive | SFile::writeOnly,
                       SFile::readWriteMask, SFile::denyNothing),
                 SFileException);
    EXPECT_EQ("x", readBytes(at("there.txt")));
}

TEST_F(SFileTest, OperationsWithoutAnOpenFile)
{
    g_asserts.clear();
    SAssertObserver old = SetAssertObserver(recordAssert);
    SFile f(wat("never.txt"));
    char buf[4];
    auto expectNotOpened = [&](SFileException::ErrorCodes code, auto&& call) {
        try {
            call();
            ADD_FAILURE() << "no exception for code " << code;
        } catch (const SFileException& e) {
            EXPECT_EQ(code, e.ErrCode());
            EXPECT_EQ(0, e.getErrno());
            EXPECT_EQ(SFileException::fileNotOpened, e.DetailCode());
            EXPECT_EQ("File not opened yet.", U8(e.getReason()));
        }
    };
    expectNotOpened(SFileException::readError, [&] { f.read(buf, 1); });
    expectNotOpened(SFileException::writeError, [&] { f.write(buf, 1); });
    expectNotOpened(SFileException::seekError, [&] { f.seekEx(SFile::seekBegin, 0); });
    expectNotOpened(SFileException::seekError, [&] { f.eof(); });
    // readLine and readString measure the file first: a position failure.
    expectNotOpened(SFileException::seekError, [&] { f.readLine(); });
    expectNotOpened(SFileException::seekError, [&] { f.readString(); });
    expectNotOpened(SFileException::writeError, [&] { f.writeString(SWCharString()); });
    SetAssertObserver(old);
    ASSERT_FALSE(g_asserts.empty());
    EXPECT_EQ("m_fd != -1", g_asserts.front());

    // Committing without an open file fails; a read-only file has nothing to commit.
    try {
        f.flush();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::flushError, e.ErrCode());
        EXPECT_EQ(EBADF, e.getErrno());
        EXPECT_EQ("Fail to flush file " + pathU8(at("never.txt")) + ".  Reason given: " + reasonFor(EBADF) +
                      ".  File may not be completely written to disk.",
                  U8(e.toString()));
    }
    writeBytes(at("r.txt"), "abc");
    SFile r(wat("r.txt"), SFile::readOnly, 0, SFile::denyNothing);
    EXPECT_NO_THROW(r.flush());

    SFile w(wat("w.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    int fd = w.getFd();
    EXPECT_NO_THROW(w.flush());
    w.close();
    EXPECT_FALSE(w.isOpened());
    EXPECT_EQ(fd, w.getFd());   // kept after close
    EXPECT_THROW(w.write("x", 1), SFileException);
    // Even when the old descriptor number now belongs to another file.
    SFile other(wat("other.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    EXPECT_THROW(w.flush(), SFileException);
    other.close();
    // Reopened after close.
    w.open(SFile::writeOnly | SFile::append, 0, SFile::denyNothing);
    EXPECT_EQ(1, w.write("x", 1));
}

TEST_F(SFileTest, BytesPositionsAndSizes)
{
    SFile f(wat("data.bin"), SFile::create | SFile::readAndWrite | SFile::truncate, SFile::readWriteMask,
            SFile::denyNothing);
    EXPECT_TRUE(f.eof());
    const char text[] = "hello\0world\r\n";
    EXPECT_EQ(13, f.write(text, 13));
    EXPECT_EQ(13u, f.size());
    EXPECT_EQ(0, f.seekToBegin());
    EXPECT_FALSE(f.eof());
    EXPECT_EQ(0u, f.getPosition());   // eof and size restore the position
    char buf[32] = {};
    EXPECT_EQ(5, f.read(buf, 5));
    EXPECT_EQ(std::string("hello"), std::string(buf, 5));
    EXPECT_EQ(7, f.seek(SFile::seekCurrent, 2));
    EXPECT_EQ(10, f.seek(SFile::seekEnd, -3));
    EXPECT_EQ(3, f.read(buf, 32));
    EXPECT_EQ(0, f.read(buf, 32));
    EXPECT_EQ(4, f.seekEx(SFile::seekBegin, 4));
    // A seek before the start fails and keeps the position.
    try {
        f.seek(SFile::seekBegin, -1);
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::seekError, e.ErrCode());
        EXPECT_EQ(EINVAL, e.getErrno());
    }
    EXPECT_EQ(4, f.getPositionEx());
    EXPECT_THROW(f.seekEx(7, 0), SFileException);   // no such origin
    f.flush();
    f.close();
    EXPECT_EQ(std::string(text, 13), readBytes(at("data.bin")));

    // Binary always: no line-end translation when writing "\n".
    SFile g(wat("nl.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    g.write("a\nb\n", 4);
    g.close();
    EXPECT_EQ("a\nb\n", readBytes(at("nl.txt")));
    // append writes at the end whatever the position.
    SFile a(wat("nl.txt"), SFile::readAndWrite | SFile::append, 0, SFile::denyNothing);
    a.seekToBegin();
    a.write("c", 1);
    a.close();
    EXPECT_EQ("a\nb\nc", readBytes(at("nl.txt")));
    // truncate empties an existing file.
    SFile t(wat("nl.txt"), SFile::writeOnly | SFile::truncate, 0, SFile::denyNothing);
    EXPECT_EQ(0u, t.size());
}

TEST_F(SFileTest, PositionsBeyondThirtyTwoBits)
{
    if (vardo_test::onWindows())
        GTEST_SKIP() << "needs sparse files; Wine extends files with real zeros";
    SFile f(wat("big.bin"), SFile::create | SFile::readAndWrite, SFile::readWriteMask, SFile::denyNothing);
    const int64_t five = 5LL * 1024 * 1024 * 1024;
    EXPECT_EQ(five, f.seekEx(SFile::seekBegin, five));
    EXPECT_EQ(1, f.write("z", 1));
    EXPECT_EQ(five + 1, f.sizeEx());
    // The 32-bit forms cannot express the position: EINVAL, position unchanged.
    try {
        f.getPosition();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::seekError, e.ErrCode());
        EXPECT_EQ(EINVAL, e.getErrno());
    }
    EXPECT_EQ(five + 1, f.getPositionEx());
    f.seekEx(SFile::seekBegin, 100);
    EXPECT_THROW(f.seek(SFile::seekEnd, 0), SFileException);
    EXPECT_EQ(100, f.getPositionEx());
    // size() fails at its seek to the end, which leaves the position at the start.
    EXPECT_THROW(f.size(), SFileException);
    EXPECT_EQ(0, f.getPositionEx());
    // readLine and readString go by the 32-bit measures, so such a file is out of reach.
    EXPECT_THROW(f.readLine(), SFileException);
}

TEST_F(SFileTest, ReadStringAndReadLine)
{
    writeBytes(at("lines.txt"), "ab\r\ncd");
    SFile f(wat("lines.txt"), SFile::readOnly, 0, SFile::denyNothing);
    EXPECT_EQ("ab", U8(f.readLine()));
    EXPECT_EQ(4u, f.getPosition());
    EXPECT_EQ("cd", U8(f.readLine()));
    EXPECT_EQ("", U8(f.readLine()));
    f.seek(SFile::seekBegin, 2);
    EXPECT_EQ("\r\ncd", U8(f.readString()));
    // Beyond the end: readLine sees end of file, readString fails like a short read.
    f.seek(SFile::seekBegin, 100);
    EXPECT_EQ("", U8(f.readLine()));
    EXPECT_EQ(100u, f.getPosition());
    try {
        f.readString();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::readError, e.ErrCode());
    }

    // UTF-8 in, UTF-16 out; a zero byte ends the text; invalid bytes degrade to "?".
    const char utf8[] = "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x98\x80\nz\0ignored\n\xFF\xFEok\n";
    writeBytes(at("utf8.txt"), std::string(utf8, sizeof utf8 - 1));
    SFile u(wat("utf8.txt"), SFile::readOnly, 0, SFile::denyNothing);
    SWCharString first = u.readLine();
    ASSERT_EQ(9u, first.getLength());
    EXPECT_EQ(0x00FC, first.getAt(2));
    EXPECT_EQ(0x65E5, first.getAt(5));
    EXPECT_EQ(0xD83D, first.getAt(7));
    EXPECT_EQ(0xDE00, first.getAt(8));
    EXPECT_EQ("z", U8(u.readLine()));
    EXPECT_EQ("??ok", U8(u.readLine()));
    u.seekToBegin();
    EXPECT_EQ(U8(first) + "\nz", U8(u.readString()));

    // writeString writes UTF-8 without a terminator or line end.
    SFile w(wat("out.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    EXPECT_EQ(7, w.writeString(first.left(5)));
    EXPECT_EQ(4, w.writeString(first.mid(7)));
    w.close();
    EXPECT_EQ("gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80", readBytes(at("out.txt")));
}

TEST_F(SFileTest, NonAsciiAndLongNames)
{
    // UTF-16 in; the name on disk is its UTF-8 form.
    const std::string name = "t\xC3\xABst \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.txt";
    SFile f(wat(name), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    f.writeString(W("x"));
    f.close();
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_dir))
        names.push_back(pathU8(entry.path().filename()));
    ASSERT_EQ(1u, names.size());
    EXPECT_EQ(name, names[0]);
    EXPECT_EQ("x", readBytes(at(name)));

    // A name component far beyond what file systems take: refused, nothing created, and
    // the exception names the whole path.
    std::string longName(300, 'n');
    try {
        SFile g(wat(longName), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::openError, e.ErrCode());
        EXPECT_NE(std::string::npos, U8(e.toString()).find(longName));
    }
    EXPECT_EQ(1, std::distance(fs::directory_iterator(m_dir), fs::directory_iterator()));
}

TEST_F(SFileTest, TemporaryFilesVanish)
{
    {
        SFile t(wat("tmp.bin"), SFile::create | SFile::readAndWrite | SFile::temporary, SFile::readWriteMask,
                SFile::denyNothing);
        EXPECT_EQ(3, t.write("abc", 3));
        t.seekToBegin();
        char buf[3];
        EXPECT_EQ(3, t.read(buf, 3));
    }
    EXPECT_FALSE(fs::exists(at("tmp.bin")));
}

TEST_F(SFileTest, InjectedFaults)
{
    if (!vardo_test::faultsAvailable())
        GTEST_SKIP() << "the library was built without its test hooks";
    // A full disk at write: writeError with ENOSPC, the file keeps what was written.
    SFile f(wat("full.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing);
    EXPECT_EQ(2, f.write("ok", 2));
    vardo_test::injectFault(vardo_test::Fault::write, ENOSPC);
    try {
        f.writeString(W("lost"));
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::writeError, e.ErrCode());
        EXPECT_EQ("Fail to write file " + pathU8(at("full.txt")) + ".  Reason given: " + reasonFor(ENOSPC),
                  U8(e.toString()));
    }
    EXPECT_EQ(4, f.writeString(W("more")));   // one fault only
    vardo_test::injectFault(vardo_test::Fault::commit, EIO);
    try {
        f.flush();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::flushError, e.ErrCode());
        EXPECT_EQ(EIO, e.getErrno());
    }
    f.close();
    EXPECT_EQ("okmore", readBytes(at("full.txt")));

    // A full disk at creation: nothing is left behind.
    vardo_test::injectFault(vardo_test::Fault::open, ENOSPC);
    EXPECT_THROW(SFile(wat("new.txt"), SFile::create | SFile::writeOnly, SFile::readWriteMask, SFile::denyNothing),
                 SFileException);
    EXPECT_FALSE(fs::exists(at("new.txt")));

    // A read failure reaches readLine and readString as readError with its number;
    // out of memory maps to its detail.
    writeBytes(at("r.txt"), "line one\nline two\n");
    SFile r(wat("r.txt"), SFile::readOnly, 0, SFile::denyNothing);
    vardo_test::injectFault(vardo_test::Fault::read, EIO);
    try {
        r.readLine();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::readError, e.ErrCode());
        EXPECT_EQ(EIO, e.getErrno());
    }
    EXPECT_EQ(0u, r.getPosition());
    vardo_test::injectFault(vardo_test::Fault::read, ENOMEM);
    try {
        r.readString();
        FAIL();
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::readError, e.ErrCode());
        EXPECT_EQ(ENOMEM, e.getErrno());
        EXPECT_EQ(SFileException::outOfMemory, e.DetailCode());
    }
    EXPECT_EQ("line one", U8(r.readLine()));
    vardo_test::injectFault(vardo_test::Fault::read, 0);
}

TEST(SFileChild, PermissionDenied)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    ASSERT_TRUE(vardo_test::dropPrivileges());
    std::string dir = vardo_test::childArg("VARDO_CHILD_DIR");
    for (const char* name : {"/secret.txt", "/locked/new.txt"}) {
        std::string path = dir + name;
        try {
            SFile f(W(path), SFile::readAndWrite | SFile::create, SFile::readWriteMask, SFile::denyNothing);
            ADD_FAILURE() << path;
        } catch (const SFileException& e) {
            EXPECT_EQ(SFileException::openError, e.ErrCode());
            EXPECT_EQ(SFileException::accessDenied, e.DetailCode());
            EXPECT_EQ("Failed to open the file " + path + ".  Reason: " + reasonFor(EACCES), U8(e.toString()));
        }
    }
}

TEST_F(SFileTest, PermissionDenied)
{
    writeBytes(at("secret.txt"), "s");
    if (vardo_test::onWindows()) {
        // A folder opened as a file: access denied.
        fs::create_directory(at("folder"));
        try {
            SFile d(wat("folder"), SFile::readOnly, 0, SFile::denyNothing);
            ADD_FAILURE() << "a folder was opened";
        } catch (const SFileException& e) {
            EXPECT_EQ(EACCES, e.getErrno());
            EXPECT_EQ(SFileException::accessDenied, e.DetailCode());
            EXPECT_EQ("Failed to open the file " + pathU8(at("folder")) + ".  Reason: " + reasonFor(EACCES),
                      U8(e.toString()));
        }
        // The read-only attribute refuses writers.
        ASSERT_TRUE(vardo_test::setFileMode(pathU8(at("secret.txt")), 0400));
        bool refused = false;
        try {
            SFile f(wat("secret.txt"), SFile::readAndWrite, 0, SFile::denyNothing);
        } catch (const SFileException& e) {
            refused = true;
            EXPECT_EQ(EACCES, e.getErrno());
            EXPECT_EQ(SFileException::accessDenied, e.DetailCode());
        }
        vardo_test::setFileMode(pathU8(at("secret.txt")), 0600);
        if (!refused)
            GTEST_SKIP() << "the read-only attribute does not stop this (privileged) user";
        return;
    }
    // Linux: a file and a folder that only root may use, tried by an unprivileged
    // process (the child gives up root first, as root passes every permission check).
    fs::create_directory(at("locked"));
    ASSERT_TRUE(vardo_test::setFileMode(pathU8(m_dir), 0755));
    ASSERT_TRUE(vardo_test::setFileMode(pathU8(at("secret.txt")), 0600));
    ASSERT_TRUE(vardo_test::setFileMode(pathU8(at("locked")), 0755));
    if (!vardo_test::runningAsRoot())
        GTEST_SKIP() << "the files belong to this user; an unprivileged child cannot be made";
    auto child = vardo_test::spawnSelf("SFileChild.PermissionDenied", {{"VARDO_CHILD_DIR", pathU8(m_dir)}});
    EXPECT_EQ(0, vardo_test::wait(child));
    EXPECT_FALSE(fs::exists(at("locked/new.txt")));
}

TEST_F(SFileTest, ShareModes)
{
    writeBytes(at("shared.txt"), "s");
    SFile holder(wat("shared.txt"), SFile::readOnly, 0, SFile::denyWrite);
    SFile reader;
    EXPECT_NO_THROW(reader.open(wat("shared.txt"), SFile::readOnly, 0, SFile::denyNothing));
    SFile writer;
    if (!vardo_test::onWindows()) {
        // POSIX has no share modes: the flag is accepted and has no effect.
        EXPECT_NO_THROW(writer.open(wat("shared.txt"), SFile::writeOnly, 0, SFile::denyNothing));
        return;
    }
    try {
        writer.open(wat("shared.txt"), SFile::writeOnly, 0, SFile::denyNothing);
        FAIL() << "a writer got past denyWrite";
    } catch (const SFileException& e) {
        EXPECT_EQ(SFileException::openError, e.ErrCode());
        EXPECT_EQ(EACCES, e.getErrno());
        EXPECT_EQ(SFileException::accessDenied, e.DetailCode());
    }
    holder.close();
    EXPECT_NO_THROW(writer.open(wat("shared.txt"), SFile::writeOnly, 0, SFile::denyNothing));
    reader.close();
    writer.close();
    // denyReadAndWrite keeps out readers too.
    SFile exclusiveHolder(wat("shared.txt"), SFile::readOnly, 0, SFile::denyReadAndWrite);
    EXPECT_THROW(SFile(wat("shared.txt"), SFile::readOnly, 0, SFile::denyNothing), SFileException);
}

// ---- readLine: block reads against the byte-at-a-time rule --------------------------------

namespace {

struct LineStep {
    std::string line;
    int64_t position;
    bool eof;
};

// Reads the file to its end from offset with one of the two paths, recording every
// observable result; an exception ends the record with its code and number.
std::vector<LineStep> readAll(const SWCharString& path, int64_t offset, bool byBytes, int openFlags,
                              std::string& failure)
{
    std::vector<LineStep> steps;
    ByteRuleFile f(path, openFlags, 0, SFile::denyNothing);
    if (offset)
        f.seekEx(SFile::seekBegin, offset);
    try {
        for (int guard = 0; guard < 100000; ++guard) {
            SWCharString line = byBytes ? f.lineByBytes() : f.readLine();
            LineStep s{U8(line), f.getPositionEx(), f.eof()};
            steps.push_back(s);
            if (s.eof && s.line.empty())
                break;
        }
    } catch (const SFileException& e) {
        failure = std::to_string(e.ErrCode()) + "/" + std::to_string(e.getErrno()) + "/" +
                  std::to_string(e.DetailCode()) + " at " + std::to_string(f.getPositionEx());
    }
    return steps;
}

void expectSamePaths(const SWCharString& path, int64_t offset, const std::string& what, int openFlags = 0)
{
    std::string failBlocks, failBytes;
    auto blocks = readAll(path, offset, false, openFlags, failBlocks);
    auto bytes = readAll(path, offset, true, openFlags, failBytes);
    ASSERT_EQ(bytes.size(), blocks.size()) << what;
    for (size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(bytes[i].line, blocks[i].line) << what << " line " << i;
        EXPECT_EQ(bytes[i].position, blocks[i].position) << what << " line " << i;
        EXPECT_EQ(bytes[i].eof, blocks[i].eof) << what << " line " << i;
    }
    EXPECT_EQ(failBytes, failBlocks) << what;
}

} // namespace

TEST_F(SFileTest, ReadLineBlocksMatchTheByteRule)
{
    std::vector<std::string> awkward = {
        "",
        "ab\r\ncd",
        "ab\r\ncd\n",
        "\n",
        "\n\n\r\n",
        "\r",
        "a\rb\rc",
        "line\r",
        "\r\r\r\n\r",
        "no final line feed",
        std::string("a\0b\nc\0\0\n\0", 9),
        "\xFF\xFE\n\xC3\xA9\n\xC3",
        std::string(255, 'x') + "\r\n" + std::string(300, 'y') + "\n",
        std::string(256, 'x') + "\n" + std::string(511, 'y') + "\r" + "\n" + "z",
        std::string(254, 'x') + "\xC3\xA9\xC3\xA9\n",
        std::string(70000, 'l') + "\r\n" + "short\n" + std::string(20000, 'm'),
        std::string(66000, '\r') + "\n" + std::string(2000, '\n'),
    };
    for (size_t i = 0; i < awkward.size(); ++i) {
        std::string name = "awkward" + std::to_string(i);
        writeBytes(at(name), awkward[i]);
        expectSamePaths(wat(name), 0, name);
        expectSamePaths(wat(name), static_cast<int64_t>(awkward[i].size() / 2), name + " from the middle");
        expectSamePaths(wat(name), static_cast<int64_t>(awkward[i].size() + 7), name + " beyond the end");
    }

    // Random files from an alphabet of awkward bytes, read from random offsets.
    std::mt19937 rng(20240611);
    const char alphabet[] = {'a', 'b', '\r', '\n', '\0', '\xC3', '\xA9', '\xFF', ' '};
    for (int round = 0; round < 150; ++round) {
        std::string content;
        size_t length = rng() % (round < 100 ? 600 : 5000);
        for (size_t k = 0; k < length; ++k)
            content.push_back(alphabet[rng() % sizeof alphabet]);
        writeBytes(at("random"), content);
        int64_t offset = length ? static_cast<int64_t>(rng() % (length + 2)) : 0;
        expectSamePaths(wat("random"), offset, "random round " + std::to_string(round));
    }

    // The same failures: a file open for writing only cannot be read.
    writeBytes(at("wo"), "abc\ndef\n");
    expectSamePaths(wat("wo"), 0, "write-only", SFile::writeOnly);
    {
        std::string f1, f2;
        readAll(wat("wo"), 0, false, SFile::writeOnly, f1);
        EXPECT_EQ(std::to_string(SFileException::readError) + "/" + std::to_string(EBADF) + "/5 at 0", f1);
    }
    // An injected read failure at the first read.
    for (bool byBytes : {false, true}) {
        if (!vardo_test::faultsAvailable())
            break;
        ByteRuleFile f(wat("wo"), SFile::readOnly, 0, SFile::denyNothing);
        f.seekEx(SFile::seekBegin, 4);
        vardo_test::injectFault(vardo_test::Fault::read, EIO);
        try {
            byBytes ? f.lineByBytes() : f.readLine();
            ADD_FAILURE();
        } catch (const SFileException& e) {
            EXPECT_EQ(SFileException::readError, e.ErrCode());
            EXPECT_EQ(EIO, e.getErrno());
        }
        EXPECT_EQ(4, f.getPositionEx());
    }
}

TEST_F(SFileTest, ReadLineOnDevicesAndPipes)
{
    if (vardo_test::onWindows())
        GTEST_SKIP() << "uses /dev/zero and a FIFO";
    // A character device that claims size 0: end of file at once, nothing consumed.
    SFile zero(W("/dev/zero"), SFile::readOnly, 0, SFile::denyNothing);
    EXPECT_EQ("", U8(zero.readLine()));

    // A pipe has no positions: the rule's size query fails.
    std::string fifo = pathU8(at("fifo"));
    ASSERT_TRUE(vardo_test::makeFifo(fifo));
    std::thread writer([&] {
        std::ofstream out(fifo, std::ios::binary);
        out << "one\ntwo\n";
    });
    {
        SFile pipe(W(fifo), SFile::readOnly, 0, SFile::denyNothing);
        try {
            pipe.readLine();
            ADD_FAILURE();
        } catch (const SFileException& e) {
            EXPECT_EQ(SFileException::seekError, e.ErrCode());
            EXPECT_EQ(ESPIPE, e.getErrno());
        }
        char buf[16];
        EXPECT_GT(pipe.read(buf, sizeof buf), 0);   // nothing was consumed by the attempt
        EXPECT_EQ('o', buf[0]);
    }
    writer.join();
}
