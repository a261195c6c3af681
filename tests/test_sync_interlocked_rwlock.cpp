// Interlocked counters, CS_Wrapper and the fair reader/writer lock with its lockers.
#include "vardo/cs_wrapper.h"
#include "vardo/interlocked.h"
#include "vardo/rwlock.h"

#include "assert_capture.h"

#include "text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

const auto& narrow = vardo_test::U;

using vardo_test::AssertCapture;
std::vector<std::string>& g_asserts = AssertCapture::seen();

// Polls until pred holds; false after a minute (a hang, not a slow machine).
template <class Pred>
bool eventually(Pred pred)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Threads queued on the lock, holders included: only to know that a thread has arrived,
// so that arrival order is deterministic.
size_t arrivals(const CRWLock& lock)
{
    size_t n = 0;
    for (const CRWLock::QueueEntry& e : lock.getQueueSnapshot())
        n += static_cast<size_t>(e.m_nThreads);
    return n;
}

// Who holds the lock right now, as "free", "read N" or "write".
std::string holder(const CRWLock& lock)
{
    std::vector<CRWLock::QueueEntry> q = lock.getQueueSnapshot();
    if (q.empty())
        return "free";
    return q[0].m_waiterType == CRWLock::Writer ? "write" : "read " + std::to_string(q[0].m_nThreads);
}

} // namespace

// ---- interlocked counters -------------------------------------------------------------------

TEST(Interlocked, CountersAreThirtyTwoBitsAndReturnTheOldValue)
{
    long cell = 5;
    SInterlockedBase::asmInitLock(&cell);
    EXPECT_EQ(0, SInterlockedBase::asmAcquireLock(&cell));   // taken
    EXPECT_EQ(1, SInterlockedBase::asmAcquireLock(&cell));   // already held
    SInterlockedBase::asmUnlock(&cell);
    EXPECT_EQ(0, SInterlockedBase::asmAcquireLock(&cell));

    SInterlockedInt32s s(0x7FFFFFFFL);
    EXPECT_EQ(static_cast<long>(INT32_MIN), ++s);           // wraps like a 32-bit int
    EXPECT_EQ(static_cast<long>(INT32_MIN), s--);
    EXPECT_EQ(0x7FFFFFFFL, s.exchange(-1));
    EXPECT_EQ(-1, s.exchangeAdd(1));
    EXPECT_EQ(0, s.read());

    SInterlockedInt32u u(0xFFFFFFFFUL);
    EXPECT_EQ(0UL, ++u);
    EXPECT_EQ(0xFFFFFFFFUL, --u);
    EXPECT_EQ(0xFFFFFFFFUL, u.exchangeAdd(2));
    EXPECT_EQ(1UL, u.exchangeAdd(-1));
    EXPECT_EQ(0UL, u.read());
}

// ---- CS_Wrapper ------------------------------------------------------------------------------------

TEST(CSWrapper, IsRecursiveAndExclusiveAndCountersLoseNothing)
{
    CS_Wrapper cs;
    cs.Lock();
    cs.Lock();      // the owner may enter again
    cs.Unlock();
    cs.Unlock();

    long counter = 0;   // plain: the section is the only guard
    SInterlockedInt32s s(0);
    SInterlockedInt32u u(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                ++s;
                u.exchangeAdd(2);
                s--;
                ++s;
                cs.Lock();
                long v = counter;
                if ((i & 63) == 0)
                    std::this_thread::yield();
                counter = v + 1;
                cs.Unlock();
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(20000, counter);
    EXPECT_EQ(20000, s.read());
    EXPECT_EQ(40000UL, u.read());
}

// ---- CRWLock ---------------------------------------------------------------------------------------

TEST(RWLock, GrantsInArrivalOrderWritersOneByOneReadersGrouped)
{
    CRWLock lock;
    std::mutex journalMutex;   // an ordered record of what the threads did
    std::vector<std::string> journal;
    auto note = [&](const std::string& what) {
        std::lock_guard<std::mutex> g(journalMutex);
        journal.push_back(what);
    };
    auto events = [&] {
        std::lock_guard<std::mutex> g(journalMutex);
        return journal;
    };
    std::atomic<int> lateReadersInside(0);
    std::atomic<int> lateReadersTogether(0);
    std::vector<std::thread> threads;
    // Each thread starts only when the previous one has queued, so arrival order is known.
    auto arrive = [&](size_t queued, std::function<void()> body) {
        threads.emplace_back(body);
        return eventually([&] { return arrivals(lock) == queued; });
    };

    lock.AquireReadLock();
    // A reader that arrives while only readers hold the lock joins them at once.
    std::thread([&] {
        lock.AquireReadLock();
        note("early reader");
    }).join();

    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(arrive(3 + i, [&, i] {
            lock.AquireWriteLock();
            note("writer " + std::to_string(i) + " in");
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            note("writer " + std::to_string(i) + " out");
            lock.ReleaseWriteLock();
        }));
    }
    // Readers arriving behind waiting writers do not slip past them into the owning group:
    // they wait, and then enter together.
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(arrive(5 + i, [&] {
            lock.AquireReadLock();
            note("late reader");
            ++lateReadersInside;
            if (eventually([&] { return lateReadersInside.load() == 2; }))
                ++lateReadersTogether;
            lock.ReleaseReadLock();
        }));
    }
    EXPECT_EQ((std::vector<std::string>{"early reader"}), events());

    lock.ReleaseReadLock();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ((std::vector<std::string>{"early reader"}), events());   // one share left
    // No ownership check: this thread may release the other reader's share.
    lock.ReleaseReadLock();
    for (std::thread& t : threads)
        t.join();

    EXPECT_EQ((std::vector<std::string>{"early reader", "writer 0 in", "writer 0 out", "writer 1 in",
                                        "writer 1 out", "late reader", "late reader"}),
              events());
    EXPECT_EQ(2, lateReadersTogether.load());
    EXPECT_EQ("free", holder(lock));
}

TEST(RWLock, WritersAreExclusiveAndReadersSeeConsistentState)
{
    CRWLock lock;
    long a = 0, b = 0;           // plain: the lock is the only guard
    std::atomic<int> torn(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 5; ++t) {
        const bool writer = t < 3;
        threads.emplace_back([&, writer] {
            for (int i = 0; i < 1500; ++i) {
                if (writer) {
                    CWriteLocker w(&lock);
                    long v = a;
                    if ((i & 31) == 0)
                        std::this_thread::yield();
                    a = v + 1;
                    b = v + 1;
                } else {
                    CReadLocker r(&lock);
                    if (a != b)
                        ++torn;
                }
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(4500, a);
    EXPECT_EQ(a, b);
    EXPECT_EQ(0, torn.load());
}

TEST(RWLock, MisuseIsReportedAndSurvived)
{
    AssertCapture capture;
    CRWLock lock;
    lock.AquireReadLock();
    lock.ReleaseWriteLock();   // wrong type: reported, released all the same
    lock.ReleaseReadLock();    // nothing held
    EXPECT_EQ((std::vector<std::string>{"wi.m_waiterType == wt", "!m_waitingThreads.empty()"}), g_asserts);
    EXPECT_EQ("free", holder(lock));

    g_asserts.clear();
    CRWLock::Exception e(258);
    EXPECT_EQ((std::vector<std::string>{"CRWLock::Exception: Error Number 258"}), g_asserts);
    const SException& base = e;
    EXPECT_EQ("CRWLock::Exception: Error Number 258", narrow(base.toString()));
    EXPECT_EQ("CRWLock::Exception: Error Number 258:258", narrow(base.summary()));
}

// ---- lockers --------------------------------------------------------------------------------------

TEST(RWLockLockers, PlainAndNullableLockers)
{
    AssertCapture capture;
    CRWLock lock;
    {
        CNullableReadLocker r1(&lock);
        CNullableWriteLocker none(nullptr);   // no lock, no complaint
        ASSERT_EQ("read 1", holder(lock));    // (the next locker would wait for ever)
        CReadLocker r2(&lock);
        EXPECT_EQ("read 2", holder(lock));
    }
    {
        CWriteLocker w(&lock);
        EXPECT_EQ("write", holder(lock));
    }
    {
        CNullableWriteLocker w(&lock);
        CNullableReadLocker none(nullptr);
        EXPECT_EQ("write", holder(lock));
    }
    EXPECT_EQ("free", holder(lock));
    EXPECT_TRUE(g_asserts.empty());

    {
        CReadLocker bad(nullptr);
        CWriteLocker worse(nullptr);
    }
    // Constructor and destructor of each.
    EXPECT_EQ(std::vector<std::string>(4, "m_pRWLock != NULL"), g_asserts);
}

// The read and the write smart locker behave alike; held is what holder() shows for one.
template <class Locker>
void checkSmartLocker(const std::string& held, const std::string& name)
{
    SCOPED_TRACE(name);
    AssertCapture capture;
    CRWLock lock;
    {
        Locker l(lock);
        EXPECT_NO_THROW(l.VerifyLocked());
        l.Lock();   // already locked: reported, nothing taken
        EXPECT_EQ(held, holder(lock));
        l.Unlock();
        EXPECT_EQ("free", holder(lock));
        EXPECT_NO_THROW(l.VerifyUnlocked());
        EXPECT_THROW(l.VerifyLocked(), typename Locker::Exception);
        l.Unlock();   // not locked: reported, nothing released
        l.Lock();
        EXPECT_EQ(held, holder(lock));
        EXPECT_THROW(l.VerifyUnlocked(), typename Locker::Exception);
    }
    EXPECT_EQ("free", holder(lock));   // the destructor released it
    EXPECT_EQ((std::vector<std::string>{"!m_bIsLocked", "m_bIsLocked"}), g_asserts);
    const SException& e = typename Locker::Exception();
    EXPECT_EQ(name, narrow(e.toString()));
    EXPECT_EQ(name + ":lock state mismatch", narrow(e.summary()));
}

TEST(RWLockLockers, SmartLockersTrackTheirState)
{
    checkSmartLocker<CSmartReadLocker>("read 1", "CSmartReadLocker::Exception");
    checkSmartLocker<CSmartWriteLocker>("write", "CSmartWriteLocker::Exception");
}
