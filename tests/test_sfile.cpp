// SFile and SFileException: opening, bytes, positions, text, failures with their exact
// messages, and the equivalence of readLine's block reads with the byte-at-a-time rule.
#include "vardo/sfile.h"

#include "assert_capture.h"
#include "child_process.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "text.h"
#include "thrown.h"

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
using vardo_test::W;
typedef SFileException E;

namespace {

const auto& U8 = vardo_test::U;

template <class F>
E thrown(F&& call)
{
    return vardo_test::thrownBy<E>(call, "SFileException");
}

std::string text(const E& e) { return U8(e.toString()); }

class SFileTest : public ::testing::Test {
protected:
    fs::path at(const std::string& name) const { return m_tmp.path / fs::u8path(name); }
    std::string str(const std::string& name) const { return m_tmp.str(name); }
    SWCharString wat(const std::string& name) const { return W(m_tmp.str(name)); }
    void write(const std::string& name, const std::string& bytes) const { m_tmp.write(name, bytes); }
    std::string read(const std::string& name) const { return m_tmp.read(name); }
    // Opens name with flags, read and write permission for a file it creates, no sharing rule.
    SFile open(const std::string& name, int flags) const
    {
        return SFile(wat(name), flags, SFile::readWriteMask, SFile::denyNothing);
    }

    vardo_test::TempDir m_tmp{"vardo_sfile_"};
};

// Opens up readLine's byte-at-a-time rule, which its block reads must match.
class ByteRuleFile : public SFile {
public:
    using SFile::SFile;
    SWCharString lineByBytes() { return readLineByteByByte(); }
};

// Reads the file to its end from offset by one of the two paths, recording every
// observable result; a failure ends the record.
std::vector<std::string> readAll(const SWCharString& path, int64_t offset, bool byBytes, int openFlags)
{
    std::vector<std::string> steps;
    ByteRuleFile f(path, openFlags, 0, SFile::denyNothing);
    if (offset)
        f.seekEx(SFile::seekBegin, offset);
    try {
        for (int guard = 0; guard < 100000; ++guard) {
            const std::string line = U8(byBytes ? f.lineByBytes() : f.readLine());
            const bool eof = f.eof();
            steps.push_back(line + " @" + std::to_string(f.getPositionEx()) + (eof ? " eof" : ""));
            if (eof && line.empty())
                break;
        }
    } catch (const E& e) {
        steps.push_back("failed " + std::to_string(e.ErrCode()) + "/" + std::to_string(e.getErrno()) + "/" +
                        std::to_string(e.DetailCode()) + " @" + std::to_string(f.getPositionEx()));
    }
    return steps;
}

void expectSamePaths(const SWCharString& path, int64_t offset, const std::string& what, int openFlags = 0)
{
    SCOPED_TRACE(what);
    EXPECT_EQ(readAll(path, offset, true, openFlags), readAll(path, offset, false, openFlags));
}

} // namespace

TEST(SFileExceptionText, TemplatesAndTheLockQuirk)
{
    auto textOf = [](E::ErrorCodes c) {
        return text(E(c, 13, W("C:\\data\\x.txt"), E::accessDenied, W("Permission denied"), SWCharString()));
    };
    EXPECT_EQ("Failed to open the file C:\\data\\x.txt.  Reason: Permission denied", textOf(E::openError));
    EXPECT_EQ("Fail to read file C:\\data\\x.txt.  Reason given: Permission denied", textOf(E::readError));
    EXPECT_EQ("Fail to write file C:\\data\\x.txt.  Reason given: Permission denied", textOf(E::writeError));
    EXPECT_EQ("Fail to flush file C:\\data\\x.txt.  Reason given: Permission denied.  File may not be "
              "completely written to disk.", textOf(E::flushError));
    EXPECT_EQ("Unknown error (exception).  ", textOf(E::lockError));
    EXPECT_EQ("Unknown error (exception).  ", textOf(static_cast<E::ErrorCodes>(7)));

    E e(E::writeError, 28, W("f"), E::otherError, W("r"), W("extra"));
    EXPECT_EQ(text(e) + ":extra", U8(e.summary()));
    E copy;
    copy = e;
    EXPECT_EQ(28, copy.getErrno());
    EXPECT_EQ(U8(e.summary()), U8(E(copy).summary()));
    // A file name holding placeholder text is not substituted again.
    EXPECT_EQ("Failed to open the file %2%1.  Reason: r",
              text(E(E::openError, 2, W("%2%1"), E::fileNotFound, W("r"), SWCharString())));
}

TEST_F(SFileTest, OpenFailures)
{
    SFile f(wat("a.txt"));
    E e = thrown([&] { f.open(-1, SFile::readWriteMask, SFile::denyNothing); });
    EXPECT_EQ(0, e.getErrno());
    EXPECT_EQ(E::otherError, e.DetailCode());
    EXPECT_EQ("Failed to open the file " + str("a.txt") + ".  Reason: No file access mode provided.", text(e));

    // A missing file, and a missing parent folder for a file to be created: nothing is
    // created, the descriptor field holds -1.
    for (const char* name : {"missing.txt", "no/such/dir/new.txt"}) {
        SFile g;
        e = thrown([&] {
            g.open(wat(name), SFile::readAndWrite | (name[0] == 'n' ? SFile::create : 0), SFile::readWriteMask,
                   SFile::denyNothing);
        });
        EXPECT_EQ(ENOENT, e.getErrno());
        EXPECT_EQ(E::fileNotFound, e.DetailCode());
        EXPECT_EQ("Failed to open the file " + str(name) + ".  Reason: " + std::strerror(ENOENT), text(e));
        EXPECT_EQ(-1, g.getFd());
    }
    EXPECT_TRUE(fs::is_empty(m_tmp.path));

    // A folder is not a file; exclusive creation refuses an existing file.
    fs::create_directory(at("folder"));
    EXPECT_THROW(open("folder", SFile::readOnly), E);
    write("there.txt", "x");
    EXPECT_THROW(open("there.txt", SFile::create | SFile::exclusive | SFile::writeOnly), E);
}

TEST_F(SFileTest, OperationsWithoutAnOpenFile)
{
    SFile f(wat("never.txt"));
    vardo_test::AssertCapture asserts;
    char buf[4];
    auto expectNotOpened = [&](E::ErrorCodes code, auto&& call) {
        const E e = thrown(call);
        EXPECT_EQ(code, e.ErrCode());
        EXPECT_EQ(0, e.getErrno());
        EXPECT_EQ(E::fileNotOpened, e.DetailCode());
        EXPECT_EQ("File not opened yet.", U8(e.getReason()));
    };
    expectNotOpened(E::readError, [&] { f.read(buf, 1); });
    expectNotOpened(E::writeError, [&] { f.write(buf, 1); });
    expectNotOpened(E::seekError, [&] { f.seekEx(SFile::seekBegin, 0); });
    // readLine measures the file first: a position failure.
    expectNotOpened(E::seekError, [&] { f.readLine(); });
    ASSERT_FALSE(asserts.seen().empty());
    EXPECT_EQ("m_fd != -1", asserts.seen().front());

    // Committing without an open file fails; a read-only file has nothing to commit.
    const E e = thrown([&] { f.flush(); });
    EXPECT_EQ(E::flushError, e.ErrCode());
    EXPECT_EQ(EBADF, e.getErrno());
    write("r.txt", "abc");
    open("r.txt", SFile::readOnly).flush();

    SFile w = open("w.txt", SFile::create | SFile::writeOnly);
    const int fd = w.getFd();
    w.flush();
    w.close();
    EXPECT_EQ(fd, w.getFd());   // kept after close
    EXPECT_THROW(w.write("x", 1), E);
    // Even when the old descriptor number now belongs to another file.
    SFile other = open("other.txt", SFile::create | SFile::writeOnly);
    EXPECT_THROW(w.flush(), E);
    other.close();
    w.open(SFile::writeOnly | SFile::append, 0, SFile::denyNothing);
    EXPECT_EQ(1, w.write("x", 1));
}

TEST_F(SFileTest, BytesPositionsAndSizes)
{
    SFile f = open("data.bin", SFile::create | SFile::readAndWrite | SFile::truncate);
    EXPECT_TRUE(f.eof());
    const char bytes[] = "hello\0world\r\n";
    EXPECT_EQ(13, f.write(bytes, 13));
    EXPECT_EQ(13u, f.size());
    EXPECT_EQ(0, f.seekToBegin());
    EXPECT_FALSE(f.eof());
    EXPECT_EQ(0u, f.getPosition());   // eof and size restore the position
    char buf[32] = {};
    EXPECT_EQ(5, f.read(buf, 5));
    EXPECT_EQ("hello", std::string(buf, 5));
    EXPECT_EQ(7, f.seek(SFile::seekCurrent, 2));
    EXPECT_EQ(10, f.seek(SFile::seekEnd, -3));
    EXPECT_EQ(3, f.read(buf, 32));
    EXPECT_EQ(4, f.seekEx(SFile::seekBegin, 4));
    const E e = thrown([&] { f.seek(SFile::seekBegin, -1); });
    EXPECT_EQ(E::seekError, e.ErrCode());
    EXPECT_EQ(EINVAL, e.getErrno());
    EXPECT_EQ(4, f.getPositionEx());
    EXPECT_THROW(f.seekEx(7, 0), E);   // no such origin
    f.close();
    EXPECT_EQ(std::string(bytes, 13), read("data.bin"));

    // Binary always: no line-end translation when writing "\n".
    open("nl.txt", SFile::create | SFile::writeOnly).write("a\nb\n", 4);
    EXPECT_EQ("a\nb\n", read("nl.txt"));
    // append writes at the end whatever the position.
    SFile a = open("nl.txt", SFile::readAndWrite | SFile::append);
    a.seekToBegin();
    a.write("c", 1);
    a.close();
    EXPECT_EQ("a\nb\nc", read("nl.txt"));
    EXPECT_EQ(0u, open("nl.txt", SFile::writeOnly | SFile::truncate).size());
    // A temporary file vanishes by the time it is closed, readable until then.
    {
        SFile t = open("tmp.bin", SFile::create | SFile::readAndWrite | SFile::temporary);
        EXPECT_EQ(3, t.write("abc", 3));
        t.seekToBegin();
        EXPECT_EQ(3, t.read(buf, 3));
    }
    EXPECT_FALSE(fs::exists(at("tmp.bin")));
}

TEST_F(SFileTest, PositionsBeyondThirtyTwoBits)
{
    if (vardo_test::onWindows())
        GTEST_SKIP() << "needs sparse files; Wine extends files with real zeros";
    SFile f = open("big.bin", SFile::create | SFile::readAndWrite);
    const int64_t five = 5LL * 1024 * 1024 * 1024;
    EXPECT_EQ(five, f.seekEx(SFile::seekBegin, five));
    EXPECT_EQ(1, f.write("z", 1));
    EXPECT_EQ(five + 1, f.sizeEx());
    // The 32-bit forms cannot express the position: EINVAL, position unchanged.
    const E e = thrown([&] { f.getPosition(); });
    EXPECT_EQ(E::seekError, e.ErrCode());
    EXPECT_EQ(EINVAL, e.getErrno());
    EXPECT_EQ(five + 1, f.getPositionEx());
    f.seekEx(SFile::seekBegin, 100);
    EXPECT_THROW(f.seek(SFile::seekEnd, 0), E);
    EXPECT_EQ(100, f.getPositionEx());
    // size() fails at its seek to the end, which leaves the position at the start.
    EXPECT_THROW(f.size(), E);
    EXPECT_EQ(0, f.getPositionEx());
    // readLine and readString go by the 32-bit measures, so such a file is out of reach.
    EXPECT_THROW(f.readLine(), E);
}

TEST_F(SFileTest, ReadStringAndReadLine)
{
    write("lines.txt", "ab\r\ncd");
    SFile f = open("lines.txt", SFile::readOnly);
    EXPECT_EQ("ab", U8(f.readLine()));
    EXPECT_EQ(4u, f.getPosition());
    EXPECT_EQ("cd", U8(f.readLine()));
    EXPECT_EQ("", U8(f.readLine()));
    f.seek(SFile::seekBegin, 2);
    EXPECT_EQ("\r\ncd", U8(f.readString()));
    // Beyond the end readString fails like a short read.
    f.seek(SFile::seekBegin, 100);
    EXPECT_EQ(E::readError, thrown([&] { f.readString(); }).ErrCode());

    // UTF-8 in, UTF-16 out; a zero byte ends the text; invalid bytes degrade to "?".
    const char utf8[] = "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x98\x80\nz\0ignored\n\xFF\xFEok\n";
    write("utf8.txt", std::string(utf8, sizeof utf8 - 1));
    SFile u = open("utf8.txt", SFile::readOnly);
    const SWCharString first = u.readLine();
    EXPECT_EQ("gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x98\x80", U8(first));
    EXPECT_EQ("z", U8(u.readLine()));
    EXPECT_EQ("??ok", U8(u.readLine()));
    u.seekToBegin();
    EXPECT_EQ(U8(first) + "\nz", U8(u.readString()));
}

TEST_F(SFileTest, NonAsciiAndLongNames)
{
    // UTF-16 in; the name on disk is its UTF-8 form.
    const std::string name = "t\xC3\xABst \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.txt";
    open(name, SFile::create | SFile::writeOnly).writeString(W(name));
    ASSERT_EQ(1, std::distance(fs::directory_iterator(m_tmp.path), fs::directory_iterator()));
    EXPECT_EQ(name, fs::directory_iterator(m_tmp.path)->path().filename().u8string());
    EXPECT_EQ(name, read(name));   // writeString writes UTF-8, nothing more

    // A name component far beyond what file systems take: refused, nothing created, and
    // the exception names the whole path.
    const std::string longName(300, 'n');
    const E e = thrown([&] { open(longName, SFile::create | SFile::writeOnly); });
    EXPECT_EQ(E::openError, e.ErrCode());
    EXPECT_NE(std::string::npos, text(e).find(longName));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(m_tmp.path), fs::directory_iterator()));
}

TEST_F(SFileTest, InjectedFaults)
{
    if (!vardo_test::faultsAvailable())
        GTEST_SKIP() << "the library was built without its test hooks";
    // A full disk at write: writeError with ENOSPC, the file keeps what was written.
    SFile f = open("full.txt", SFile::create | SFile::writeOnly);
    EXPECT_EQ(2, f.write("ok", 2));
    vardo_test::injectFault(vardo_test::Fault::write, ENOSPC);
    E e = thrown([&] { f.writeString(W("lost")); });
    EXPECT_EQ("Fail to write file " + str("full.txt") + ".  Reason given: " + std::strerror(ENOSPC), text(e));
    EXPECT_EQ(4, f.writeString(W("more")));   // one fault only
    vardo_test::injectFault(vardo_test::Fault::commit, EIO);
    e = thrown([&] { f.flush(); });
    EXPECT_EQ(E::flushError, e.ErrCode());
    EXPECT_EQ(EIO, e.getErrno());
    f.close();
    EXPECT_EQ("okmore", read("full.txt"));

    // A read failure reaches readString as readError; out of memory maps to its detail.
    write("r.txt", "line one\nline two\n");
    SFile r = open("r.txt", SFile::readOnly);
    vardo_test::injectFault(vardo_test::Fault::read, ENOMEM);
    e = thrown([&] { r.readString(); });
    EXPECT_EQ(E::readError, e.ErrCode());
    EXPECT_EQ(E::outOfMemory, e.DetailCode());
    EXPECT_EQ("line one", U8(r.readLine()));
    vardo_test::injectFault(vardo_test::Fault::read, 0);
}

TEST(SFileChild, PermissionDenied)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    ASSERT_TRUE(vardo_test::dropPrivileges());
    const std::string dir = vardo_test::childArg("VARDO_CHILD_DIR");
    for (const char* name : {"/secret.txt", "/locked/new.txt"}) {
        const std::string path = dir + name;
        const E e = thrown([&] {
            SFile opened(W(path), SFile::readAndWrite | SFile::create, SFile::readWriteMask, SFile::denyNothing);
        });
        EXPECT_EQ(E::accessDenied, e.DetailCode());
        EXPECT_EQ("Failed to open the file " + path + ".  Reason: " + std::strerror(EACCES), text(e));
    }
}

TEST_F(SFileTest, PermissionDenied)
{
    write("secret.txt", "s");
    if (vardo_test::onWindows()) {
        // A folder opened as a file: access denied.
        fs::create_directory(at("folder"));
        const E e = thrown([&] { open("folder", SFile::readOnly); });
        EXPECT_EQ(E::accessDenied, e.DetailCode());
        EXPECT_EQ("Failed to open the file " + str("folder") + ".  Reason: " + std::strerror(EACCES), text(e));
        // The read-only attribute refuses writers.
        ASSERT_TRUE(vardo_test::setFileMode(str("secret.txt"), 0400));
        bool refused = false;
        try {
            open("secret.txt", SFile::readAndWrite);
        } catch (const E& e) {
            refused = true;
            EXPECT_EQ(E::accessDenied, e.DetailCode());
        }
        vardo_test::setFileMode(str("secret.txt"), 0600);
        if (!refused)
            GTEST_SKIP() << "the read-only attribute does not stop this (privileged) user";
        return;
    }
    // Linux: a file and a folder that only root may use, tried by an unprivileged
    // process (the child gives up root first, as root passes every permission check).
    fs::create_directory(at("locked"));
    ASSERT_TRUE(vardo_test::setFileMode(m_tmp.path.u8string(), 0755));
    ASSERT_TRUE(vardo_test::setFileMode(str("locked"), 0755));
    if (!vardo_test::runningAsRoot())
        GTEST_SKIP() << "the files belong to this user; an unprivileged child cannot be made";
    auto child = vardo_test::spawnSelf("SFileChild.PermissionDenied", {{"VARDO_CHILD_DIR", m_tmp.path.u8string()}});
    EXPECT_EQ(0, vardo_test::wait(child));
    EXPECT_FALSE(fs::exists(at("locked/new.txt")));
}

TEST_F(SFileTest, ShareModes)
{
    write("shared.txt", "s");
    SFile holder(wat("shared.txt"), SFile::readOnly, 0, SFile::denyWrite);
    SFile reader = open("shared.txt", SFile::readOnly);
    if (!vardo_test::onWindows()) {
        // POSIX has no share modes: the flag is accepted and has no effect.
        EXPECT_NO_THROW(open("shared.txt", SFile::writeOnly));
        return;
    }
    EXPECT_EQ(E::accessDenied, thrown([&] { open("shared.txt", SFile::writeOnly); }).DetailCode());
    holder.close();
    EXPECT_NO_THROW(open("shared.txt", SFile::writeOnly));
    reader.close();
    // denyReadAndWrite keeps out readers too.
    SFile exclusiveHolder(wat("shared.txt"), SFile::readOnly, 0, SFile::denyReadAndWrite);
    EXPECT_THROW(open("shared.txt", SFile::readOnly), E);
}

TEST_F(SFileTest, ReadLineBlocksMatchTheByteRule)
{
    const std::vector<std::string> awkward = {
        // Short mixtures of line ends come from the random files below; these are the
        // lines that span the block sizes.
        "",
        std::string(255, 'x') + "\r\n" + std::string(300, 'y') + "\n",
        std::string(256, 'x') + "\n" + std::string(511, 'y') + "\r" + "\n" + "z",
        std::string(254, 'x') + "\xC3\xA9\xC3\xA9\n",
        std::string(70000, 'l') + "\r\n" + "short\n" + std::string(20000, 'm'),
        std::string(66000, '\r') + "\n" + std::string(2000, '\n'),
    };
    for (size_t i = 0; i < awkward.size(); ++i) {
        const std::string name = "awkward" + std::to_string(i);
        write(name, awkward[i]);
        for (size_t offset : {size_t(0), awkward[i].size() / 2, awkward[i].size() + 7})
            expectSamePaths(wat(name), static_cast<int64_t>(offset), name + " from " + std::to_string(offset));
    }

    // Random files from an alphabet of awkward bytes, read from random offsets.
    std::mt19937 rng(20240611);
    const char alphabet[] = {'a', 'b', '\r', '\n', '\0', '\xC3', '\xA9', '\xFF', ' '};
    for (int round = 0; round < 150; ++round) {
        std::string content;
        const size_t length = rng() % (round < 100 ? 600 : 5000);
        for (size_t k = 0; k < length; ++k)
            content.push_back(alphabet[rng() % sizeof alphabet]);
        write("random", content);
        const int64_t offset = length ? static_cast<int64_t>(rng() % (length + 2)) : 0;
        expectSamePaths(wat("random"), offset, "random round " + std::to_string(round));
    }

    // The same failures: a file open for writing only cannot be read.
    write("wo", "abc\ndef\n");
    expectSamePaths(wat("wo"), 0, "write-only", SFile::writeOnly);
    EXPECT_EQ("failed " + std::to_string(E::readError) + "/" + std::to_string(EBADF) + "/5 @0",
              readAll(wat("wo"), 0, false, SFile::writeOnly).back());
    // An injected read failure at the first read.
    for (bool byBytes : {false, true}) {
        if (!vardo_test::faultsAvailable())
            break;
        ByteRuleFile f(wat("wo"), SFile::readOnly, 0, SFile::denyNothing);
        f.seekEx(SFile::seekBegin, 4);
        vardo_test::injectFault(vardo_test::Fault::read, EIO);
        EXPECT_EQ(EIO, thrown([&] { byBytes ? f.lineByBytes() : f.readLine(); }).getErrno());
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
    ASSERT_TRUE(vardo_test::makeFifo(str("fifo")));
    std::thread writer([&] { std::ofstream(at("fifo"), std::ios::binary) << "one\ntwo\n"; });
    {
        SFile pipe = open("fifo", SFile::readOnly);
        const E e = thrown([&] { pipe.readLine(); });
        EXPECT_EQ(E::seekError, e.ErrCode());
        EXPECT_EQ(ESPIPE, e.getErrno());
        char buf[16];
        EXPECT_GT(pipe.read(buf, sizeof buf), 0);   // nothing was consumed by the attempt
        EXPECT_EQ('o', buf[0]);
    }
    writer.join();
}
