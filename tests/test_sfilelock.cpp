// SFileLock: return codes, stamps, stale locks, the destructor rule, and mutual exclusion
// between real processes.
#include "vardo/sfilelock.h"
#include "vardo/sfile.h"

#include "child_process.h"
#include "sfile_test_support.h"

#include "text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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


std::string pathU8(const fs::path& p)
{
    auto s = p.u8string();
    return std::string(s.begin(), s.end());
}

void touch(const fs::path& p)
{
    std::ofstream out(p, std::ios::binary);
    out << "held";
}

class SFileLockTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::random_device rd;
        for (int i = 0; i < 100 && m_dir.empty(); ++i) {
            fs::path p = fs::temp_directory_path() / ("vardo_lock_" + std::to_string(rd()));
            if (fs::create_directory(p))
                m_dir = p;
        }
        ASSERT_FALSE(m_dir.empty());
        m_lock = m_dir / "the.lock";
    }
    void TearDown() override
    {
        std::error_code ec;
        fs::remove_all(m_dir, ec);
    }
    SWCharString lockPath() const { return W(pathU8(m_lock)); }

    fs::path m_dir;
    fs::path m_lock;
};

} // namespace

TEST_F(SFileLockTest, LockAndUnlock)
{
    SFileLock a(lockPath(), 100, 3, false);
    EXPECT_EQ(SFileLock::success, a.lock());
    EXPECT_NE(0u, a.getLockStamp());

    // Held: a second party gives up after its attempts (and 100 ms a poll).
    SFileLock b(lockPath(), 100, 3, true);
    EXPECT_EQ(SFileLock::gaveUp, b.lock());

    EXPECT_EQ(SFileLock::success, a.unlock());
    EXPECT_FALSE(fs::exists(m_lock));
    EXPECT_EQ(SFileLock::notOwner, a.unlock());   // gone already

    // No attempts: gives up at once without creating anything.
    SFileLock none(lockPath(), 1, 0, false);
    EXPECT_EQ(SFileLock::gaveUp, none.lock());
    EXPECT_FALSE(fs::exists(m_lock));

    // Creation fails for another reason than an existing file.
    SFileLock nowhere(W(pathU8(m_dir / "no" / "dir.lock")), 1, 5, false);
    EXPECT_EQ(SFileLock::createFailed, nowhere.lock());
    // A full disk when creating: the same, and nothing is left behind.
    if (vardo_test::injectFault(vardo_test::Fault::open, ENOSPC)) {
        SFileLock full(lockPath(), 1, 5, false);
        EXPECT_EQ(SFileLock::createFailed, full.lock());
        EXPECT_FALSE(fs::exists(m_lock));
    }

    // Copies carry every field, the stamp and released flag included.
    SFileLock c(lockPath(), 7, 9, false);
    ASSERT_EQ(SFileLock::success, c.lock());
    EXPECT_EQ(c.getLockStamp(), SFileLock(c).getLockStamp());
    SFileLock assigned(SWCharString(), 0, 0, false);
    assigned = c;
    EXPECT_EQ(SFileLock::success, assigned.unlock());
    EXPECT_FALSE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, StaleLimitCountsEveryPollThatSawTheFile)
{
    // The stale-poll limit is the number of polls that see the same lock file, the first
    // one included: the poll that reaches it breaks the lock, and the next attempt takes
    // it. So limit + 1 attempts recover from a dead holder; limit attempts do not.
    for (uint16_t limit : {1, 2, 3}) {
        touch(m_lock);
        SFileLock enough(lockPath(), limit, static_cast<uint16_t>(limit + 1), false);
        EXPECT_EQ(SFileLock::staleLockRemoved, enough.lock()) << "limit " << limit;
        EXPECT_NE(0u, enough.getLockStamp());
        EXPECT_EQ(SFileLock::success, enough.unlock());

        touch(m_lock);
        SFileLock tooFew(lockPath(), limit, limit, false);
        EXPECT_EQ(SFileLock::gaveUp, tooFew.lock()) << "limit " << limit;
        std::error_code ec;
        fs::remove(m_lock, ec);
    }
    // A limit the attempts cannot reach never breaks a held lock.
    touch(m_lock);
    SFileLock patient(lockPath(), 3, 2, false);
    EXPECT_EQ(SFileLock::gaveUp, patient.lock());
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, ADirectoryIsNoLockToWaitFor)
{
    // A directory at the lock file's path is reported at once, not polled as a held
    // lock until the attempts run out, and it is left alone.
    fs::create_directory(m_lock);
    SFileLock l(lockPath(), 300, 50, true);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(SFileLock::createFailed, l.lock());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(fs::is_directory(m_lock));
    // Not even a stale limit of one poll touches it.
    SFileLock hasty(lockPath(), 1, 5, false);
    EXPECT_EQ(SFileLock::createFailed, hasty.lock());
    EXPECT_TRUE(fs::is_directory(m_lock));
}

TEST_F(SFileLockTest, UnlockLeavesAReplacedLockFile)
{
    SFileLock mine(lockPath(), 100, 5, true);
    ASSERT_EQ(SFileLock::success, mine.lock());
    // Someone breaks the lock and creates their own, with a later creation time.
    fs::remove(m_lock);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    touch(m_lock);
    EXPECT_EQ(SFileLock::notOwner, mine.unlock());
    EXPECT_TRUE(mine.isReleased());
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, DestructorRule)
{
    // Unlock on destruction even without having locked: an existing lock file goes.
    touch(m_lock);
    { SFileLock l(lockPath(), 1, 1, true); }
    EXPECT_FALSE(fs::exists(m_lock));
    // Without the flag it stays.
    touch(m_lock);
    { SFileLock l(lockPath(), 1, 1, false); }
    EXPECT_TRUE(fs::exists(m_lock));
    fs::remove(m_lock);
    // A held lock is released by the destructor; a released one is not touched again.
    {
        SFileLock l(lockPath(), 1, 1, true);
        ASSERT_EQ(SFileLock::success, l.lock());
    }
    EXPECT_FALSE(fs::exists(m_lock));
    {
        SFileLock l(lockPath(), 1, 1, true);
        ASSERT_EQ(SFileLock::success, l.lock());
        ASSERT_EQ(SFileLock::success, l.unlock());
        touch(m_lock);
    }
    EXPECT_TRUE(fs::exists(m_lock));
}

// ---- between processes --------------------------------------------------------------------

namespace {

// Reads, increments and rewrites the ten-digit counter in file.
void incrementCounter(const SWCharString& file)
{
    SFile f(file, SFile::readAndWrite, 0, SFile::denyNothing);
    char digits[32] = {};
    ASSERT_EQ(10, f.read(digits, 10));
    long value = std::strtol(digits, nullptr, 10);
    std::snprintf(digits, sizeof digits, "%010ld", value + 1);
    f.seekToBegin();
    ASSERT_EQ(10, f.write(digits, 10));
}

long readCounter(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::string s;
    in >> s;
    return std::strtol(s.c_str(), nullptr, 10);
}

} // namespace

TEST(SFileLockChild, IncrementUnderLock)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SWCharString lock = W(vardo_test::childArg("VARDO_CHILD_LOCK"));
    SWCharString counter = W(vardo_test::childArg("VARDO_CHILD_COUNTER"));
    int rounds = std::atoi(vardo_test::childArg("VARDO_CHILD_ROUNDS"));
    // Start together, so that the children really compete: report ready, wait for go.
    touch(fs::u8path(vardo_test::childArg("VARDO_CHILD_READY")));
    const fs::path go = fs::u8path(vardo_test::childArg("VARDO_CHILD_GO"));
    for (int i = 0; i < 600000 && !fs::exists(go); ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    for (int i = 0; i < rounds; ++i) {
        // A stale limit far above any hold time here, so no live lock is ever broken.
        SFileLock l(lock, 300, 60000, true);
        ASSERT_EQ(SFileLock::success, l.lock());
        incrementCounter(counter);
        ASSERT_EQ(SFileLock::success, l.unlock());
    }
}

TEST_F(SFileLockTest, MutualExclusionAcrossProcesses)
{
    const fs::path counter = m_dir / "counter";
    {
        std::ofstream out(counter, std::ios::binary);
        out << "0000000000";
    }
    const fs::path go = m_dir / "go";
    const int children = 4, rounds = 1000;
    auto ready = [&](int i) { return m_dir / ("ready" + std::to_string(i)); };
    std::vector<vardo_test::ChildProcess> procs;
    for (int i = 0; i < children; ++i)
        procs.push_back(vardo_test::spawnSelf("SFileLockChild.IncrementUnderLock",
                                              {{"VARDO_CHILD_LOCK", pathU8(m_lock)},
                                               {"VARDO_CHILD_COUNTER", pathU8(counter)},
                                               {"VARDO_CHILD_ROUNDS", std::to_string(rounds)},
                                               {"VARDO_CHILD_GO", pathU8(go)},
                                               {"VARDO_CHILD_READY", pathU8(ready(i))}}));
    for (int i = 0; i < children; ++i)
        for (int k = 0; k < 6000 && !fs::exists(ready(i)); ++k)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    touch(go);
    for (auto& p : procs)
        EXPECT_EQ(0, vardo_test::wait(p));
    EXPECT_EQ(children * rounds, readCounter(counter));
    EXPECT_FALSE(fs::exists(m_lock));
}

TEST(SFileLockChild, HoldForever)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SFileLock l(W(vardo_test::childArg("VARDO_CHILD_LOCK")), 300, 10, true);
    ASSERT_EQ(SFileLock::success, l.lock());
    for (;;)
        std::this_thread::sleep_for(std::chrono::seconds(1));
}

TEST(SFileLockChild, TakeAfterHolderDied)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    SFileLock l(W(vardo_test::childArg("VARDO_CHILD_LOCK")), 5, 600, false);
    SFileLock::ErrorCodes rc = l.lock();
    // Record the result where the parent finds it, then release.
    std::ofstream out(fs::u8path(vardo_test::childArg("VARDO_CHILD_RESULT")), std::ios::binary);
    out << static_cast<int>(rc);
    out.close();
    EXPECT_TRUE(rc == SFileLock::success || rc == SFileLock::staleLockRemoved) << rc;
    l.unlock();
}

TEST_F(SFileLockTest, StaleLockOfAKilledHolder)
{
    auto holder = vardo_test::spawnSelf("SFileLockChild.HoldForever", {{"VARDO_CHILD_LOCK", pathU8(m_lock)}});
    for (int i = 0; i < 600 && !fs::exists(m_lock); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(fs::exists(m_lock)) << "the holder never took the lock";
    vardo_test::kill(holder);
    ASSERT_TRUE(fs::exists(m_lock));   // a killed holder leaves its lock file

    const int waiters = 3;
    std::vector<vardo_test::ChildProcess> procs;
    for (int i = 0; i < waiters; ++i)
        procs.push_back(vardo_test::spawnSelf(
            "SFileLockChild.TakeAfterHolderDied",
            {{"VARDO_CHILD_LOCK", pathU8(m_lock)},
             {"VARDO_CHILD_RESULT", pathU8(m_dir / ("result" + std::to_string(i)))}}));
    int broke = 0;
    for (int i = 0; i < waiters; ++i) {
        EXPECT_EQ(0, vardo_test::wait(procs[i]));
        std::ifstream in(m_dir / ("result" + std::to_string(i)));
        int rc = -1;
        in >> rc;
        EXPECT_TRUE(rc == SFileLock::success || rc == SFileLock::staleLockRemoved) << rc;
        if (rc == SFileLock::staleLockRemoved)
            ++broke;
    }
    EXPECT_GE(broke, 1);
}
