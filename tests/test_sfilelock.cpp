// SFileLock: return codes, stamps, stale locks, the destructor rule, and mutual exclusion
// between real processes.
#include "vardo/sfilelock.h"
#include "vardo/sfile.h"

#include "child_process.h"
#include "sfile_test_support.h"
#include "t2io_files.h"
#include "text.h"

#include <gtest/gtest.h>

#include <cerrno>
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
using vardo_test::W;

namespace {

void touch(const fs::path& p) { std::ofstream(p, std::ios::binary) << "held"; }

class SFileLockTest : public ::testing::Test {
protected:
    SFileLock lockOf(uint16_t stalePolls, uint16_t maxAttempts, bool unlockOnDestruction) const
    {
        return SFileLock(W(m_tmp.str("the.lock")), stalePolls, maxAttempts, unlockOnDestruction);
    }

    vardo_test::TempDir m_tmp{"vardo_lock_"};
    const fs::path m_lock = m_tmp.path / "the.lock";
};

} // namespace

TEST_F(SFileLockTest, LockAndUnlock)
{
    SFileLock a = lockOf(100, 3, false);
    EXPECT_EQ(SFileLock::success, a.lock());
    EXPECT_NE(0u, a.getLockStamp());
    // Held: a second party gives up after its attempts (and 100 ms a poll).
    EXPECT_EQ(SFileLock::gaveUp, lockOf(100, 3, false).lock());
    EXPECT_EQ(SFileLock::success, a.unlock());
    EXPECT_FALSE(fs::exists(m_lock));
    EXPECT_EQ(SFileLock::notOwner, a.unlock());   // gone already

    // No attempts: gives up at once without creating anything.
    EXPECT_EQ(SFileLock::gaveUp, lockOf(1, 0, false).lock());
    // Creation fails for another reason than an existing file: a missing folder, a full disk.
    EXPECT_EQ(SFileLock::createFailed, SFileLock(W(m_tmp.str("no/dir.lock")), 1, 5, false).lock());
    if (vardo_test::injectFault(vardo_test::Fault::open, ENOSPC)) {
        EXPECT_EQ(SFileLock::createFailed, lockOf(1, 5, false).lock());
        // A lock file gone by the time its status is asked for was released: try again.
        vardo_test::injectFault(vardo_test::Fault::open, EEXIST);
        EXPECT_EQ(SFileLock::success, lockOf(1, 2, true).lock());
    }

    // Copies carry every field: the stamp, and the released flag that keeps a released
    // copy's destructor off a later lock file.
    SFileLock c = lockOf(7, 9, false);
    ASSERT_EQ(SFileLock::success, c.lock());
    EXPECT_EQ(c.getLockStamp(), SFileLock(c).getLockStamp());
    SFileLock released = lockOf(1, 1, true);
    ASSERT_EQ(SFileLock::success, released.unlock());   // never locked: any lock file goes
    touch(m_lock);
    {
        SFileLock assigned(SWCharString(), 0, 0, false);
        assigned = released;
        SFileLock copied(released);
    }
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, StaleLimitCountsEveryPollThatSawTheFile)
{
    // The stale-poll limit is the number of polls that see the same lock file, the first
    // one included: the poll that reaches it breaks the lock, and the next attempt takes
    // it. So limit + 1 attempts recover from a dead holder; limit attempts do not.
    for (uint16_t limit : {1, 2, 3}) {
        SCOPED_TRACE(limit);
        touch(m_lock);
        SFileLock enough = lockOf(limit, static_cast<uint16_t>(limit + 1), false);
        EXPECT_EQ(SFileLock::staleLockRemoved, enough.lock());
        EXPECT_NE(0u, enough.getLockStamp());
        EXPECT_EQ(SFileLock::success, enough.unlock());
        touch(m_lock);
        EXPECT_EQ(SFileLock::gaveUp, lockOf(limit, limit, false).lock());
        fs::remove(m_lock);
    }
    // A limit the attempts cannot reach never breaks a held lock.
    touch(m_lock);
    EXPECT_EQ(SFileLock::gaveUp, lockOf(3, 2, false).lock());
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, ADirectoryIsNoLockToWaitFor)
{
    // A directory at the lock file's path is reported at once, not polled as a held
    // lock until the attempts run out, and it is left alone; not even a stale limit of
    // one poll touches it.
    fs::create_directory(m_lock);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(SFileLock::createFailed, lockOf(300, 50, true).lock());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(SFileLock::createFailed, lockOf(1, 5, false).lock());
    EXPECT_TRUE(fs::is_directory(m_lock));
}

TEST_F(SFileLockTest, UnlockLeavesAReplacedLockFile)
{
    SFileLock mine = lockOf(100, 5, true);
    ASSERT_EQ(SFileLock::success, mine.lock());
    // Someone breaks the lock and creates their own, with a later creation time.
    fs::remove(m_lock);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    touch(m_lock);
    EXPECT_EQ(SFileLock::notOwner, mine.unlock());
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST_F(SFileLockTest, DestructorRule)
{
    // Unlock on destruction even without having locked: an existing lock file goes.
    touch(m_lock);
    lockOf(1, 1, true);
    EXPECT_FALSE(fs::exists(m_lock));
    // A held lock is released by the destructor; a released one is not touched again.
    ASSERT_EQ(SFileLock::success, lockOf(1, 1, true).lock());
    EXPECT_FALSE(fs::exists(m_lock));
    {
        SFileLock l = lockOf(1, 1, true);
        ASSERT_EQ(SFileLock::success, l.lock());
        ASSERT_EQ(SFileLock::success, l.unlock());
        touch(m_lock);
    }
    EXPECT_TRUE(fs::exists(m_lock));
}

TEST(SFileLockChild, IncrementUnderLock)
{
    if (!vardo_test::isChild())
        GTEST_SKIP() << "runs as a child process only";
    const SWCharString lock = W(vardo_test::childArg("VARDO_CHILD_LOCK"));
    const SWCharString counter = W(vardo_test::childArg("VARDO_CHILD_COUNTER"));
    const int rounds = std::atoi(vardo_test::childArg("VARDO_CHILD_ROUNDS"));
    // Start together, so that the children really compete: report ready, wait for go.
    touch(fs::u8path(vardo_test::childArg("VARDO_CHILD_READY")));
    const fs::path go = fs::u8path(vardo_test::childArg("VARDO_CHILD_GO"));
    for (int i = 0; i < 600000 && !fs::exists(go); ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    for (int i = 0; i < rounds; ++i) {
        // A stale limit far above any hold time here, so no live lock is ever broken.
        SFileLock l(lock, 300, 60000, true);
        ASSERT_EQ(SFileLock::success, l.lock());
        SFile f(counter, SFile::readAndWrite, 0, SFile::denyNothing);
        char digits[32] = {};
        ASSERT_EQ(10, f.read(digits, 10));
        std::snprintf(digits, sizeof digits, "%010ld", std::strtol(digits, nullptr, 10) + 1);
        f.seekToBegin();
        ASSERT_EQ(10, f.write(digits, 10));
        f.close();
        ASSERT_EQ(SFileLock::success, l.unlock());
    }
}

TEST_F(SFileLockTest, MutualExclusionAcrossProcesses)
{
    m_tmp.write("counter", std::string("0000000000"));
    const int children = 4, rounds = 1000;
    std::vector<vardo_test::ChildProcess> procs;
    for (int i = 0; i < children; ++i)
        procs.push_back(vardo_test::spawnSelf("SFileLockChild.IncrementUnderLock",
                                              {{"VARDO_CHILD_LOCK", m_tmp.str("the.lock")},
                                               {"VARDO_CHILD_COUNTER", m_tmp.str("counter")},
                                               {"VARDO_CHILD_ROUNDS", std::to_string(rounds)},
                                               {"VARDO_CHILD_GO", m_tmp.str("go")},
                                               {"VARDO_CHILD_READY", m_tmp.str("ready" + std::to_string(i))}}));
    for (int i = 0; i < children; ++i)
        for (int k = 0; k < 6000 && !fs::exists(m_tmp.path / ("ready" + std::to_string(i))); ++k)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    touch(m_tmp.path / "go");
    for (auto& p : procs)
        EXPECT_EQ(0, vardo_test::wait(p));
    EXPECT_EQ(children * rounds, std::stol(m_tmp.read("counter")));
    EXPECT_FALSE(fs::exists(m_lock));
}
