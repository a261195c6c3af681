// Interlocked counters, CS_Wrapper and the fair reader/writer lock with its lockers.
#include "vardo/cs_wrapper.h"
#include "vardo/interlocked.h"
#include "vardo/rwlock.h"
#include "vardo/strace.h"

#include "assert_capture.h"

#include "text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

const auto& narrow = vardo_test::U;

// ---- helpers -------------------------------------------------------------------------------

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

// Threads waiting in the lock's queue (the holders' entry included): only to know that a
// thread has arrived, so that arrival order is deterministic.
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
    if (q[0].m_waiterType == CRWLock::Writer)
        return "write";
    return "read " + std::to_string(q[0].m_nThreads);
}

// An ordered record of what the threads did, shared between them.
class Journal {
public:
    void add(const std::string& what)
    {
        std::lock_guard<std::mutex> g(m_mutex);
        m_events.push_back(what);
    }
    std::vector<std::string> events()
    {
        std::lock_guard<std::mutex> g(m_mutex);
        return m_events;
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_events;
};

} // namespace

// ---- interlocked counters -------------------------------------------------------------------

TEST(Interlocked, SpinCellIsTakenOnce)
{
    long cell = 5;
    SInterlockedBase::asmInitLock(&cell);
    EXPECT_EQ(0, SInterlockedBase::asmAcquireLock(&cell));   // taken
    EXPECT_EQ(1, SInterlockedBase::asmAcquireLock(&cell));   // already held
    SInterlockedBase::asmUnlock(&cell);
    EXPECT_EQ(0, SInterlockedBase::asmAcquireLock(&cell));
}

TEST(Interlocked, CountersAreThirtyTwoBitsAndReturnTheOldValue)
{
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

TEST(Interlocked, ConcurrentIncrementsAreNotLost)
{
    SInterlockedInt32s s(0);
    SInterlockedInt32u u(0);
    const int nThreads = 4, nLoops = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < nThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < nLoops; ++i) {
                ++s;
                u.exchangeAdd(2);
                s--;
                ++s;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(nThreads * nLoops, s.read());
    EXPECT_EQ(static_cast<unsigned long>(2 * nThreads * nLoops), u.read());
}

// ---- CS_Wrapper ------------------------------------------------------------------------------------

TEST(CSWrapper, IsRecursiveAndExclusive)
{
    CS_Wrapper cs;
    cs.Lock();
    cs.Lock();      // the owner may enter again
    cs.Unlock();
    cs.Unlock();

    long counter = 0;   // plain: the section is the only guard
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
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
    EXPECT_EQ(15000, counter);
}

// ---- CRWLock: queue behaviour ------------------------------------------------------------------

TEST(RWLock, GrantsInArrivalOrderWithReadersGrouped)
{
    CRWLock lock;
    Journal journal;
    std::promise<void> letWriterGo;
    std::shared_future<void> writerMayLeave = letWriterGo.get_future().share();
    std::atomic<int> lateReadersInside(0);
    std::atomic<int> lateReadersTogether(0);

    lock.AquireReadLock();
    // A reader that arrives while only readers hold the lock joins them at once.
    std::thread early([&] {
        lock.AquireReadLock();
        journal.add("early reader");
    });
    early.join();
    EXPECT_EQ("read 2", holder(lock));

    std::thread writer([&] {
        lock.AquireWriteLock();
        journal.add("writer");
        writerMayLeave.wait();
        journal.add("writer leaves");
        lock.ReleaseWriteLock();
    });
    ASSERT_TRUE(eventually([&] { return arrivals(lock) == 3; }));

    // Readers arriving behind a waiting writer do not slip past it into the owning
    // group: they wait, and then enter together.
    std::vector<std::thread> late;
    for (int i = 0; i < 2; ++i) {
        late.emplace_back([&] {
            lock.AquireReadLock();
            journal.add("late reader");
            ++lateReadersInside;
            if (eventually([&] { return lateReadersInside.load() == 2; }))
                ++lateReadersTogether;
            lock.ReleaseReadLock();
        });
    }
    ASSERT_TRUE(eventually([&] { return arrivals(lock) == 5; }));
    EXPECT_EQ((std::vector<std::string>{"early reader"}), journal.events());

    lock.ReleaseReadLock();
    EXPECT_EQ((std::vector<std::string>{"early reader"}), journal.events());   // one share left
    // No ownership check: this thread may release the other reader's share.
    lock.ReleaseReadLock();
    ASSERT_TRUE(eventually([&] { return journal.events().size() == 2; }));
    EXPECT_EQ("write", holder(lock));
    letWriterGo.set_value();
    writer.join();
    for (std::thread& t : late)
        t.join();

    EXPECT_EQ((std::vector<std::string>{"early reader", "writer", "writer leaves", "late reader", "late reader"}),
              journal.events());
    EXPECT_EQ(2, lateReadersTogether.load());
    EXPECT_EQ("free", holder(lock));
}

TEST(RWLock, WritersQueuedBehindEachOtherEnterOneByOneInOrder)
{
    CRWLock lock;
    Journal journal;
    lock.AquireWriteLock();
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        // Start each only when the previous one is queued, so arrival order is known.
        writers.emplace_back([&, i] {
            lock.AquireWriteLock();
            journal.add("in " + std::to_string(i));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            journal.add("out " + std::to_string(i));
            lock.ReleaseWriteLock();
        });
        ASSERT_TRUE(eventually([&] { return arrivals(lock) == static_cast<size_t>(i + 2); }));
    }
    lock.ReleaseWriteLock();
    for (std::thread& t : writers)
        t.join();
    EXPECT_EQ((std::vector<std::string>{"in 0", "out 0", "in 1", "out 1", "in 2", "out 2"}), journal.events());
    EXPECT_EQ("free", holder(lock));
}

TEST(RWLock, WritersAreExclusiveAndReadersSeeConsistentState)
{
    CRWLock lock;
    long a = 0, b = 0;           // plain: the lock is the only guard
    std::atomic<int> torn(0);
    const int nWriters = 3, nLoops = 1500;
    std::vector<std::thread> threads;
    for (int t = 0; t < nWriters; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < nLoops; ++i) {
                CWriteLocker w(&lock);
                long v = a;
                if ((i & 31) == 0)
                    std::this_thread::yield();
                a = v + 1;
                b = v + 1;
            }
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < nLoops; ++i) {
                CReadLocker r(&lock);
                if (a != b)
                    ++torn;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(nWriters * nLoops, a);
    EXPECT_EQ(a, b);
    EXPECT_EQ(0, torn.load());
}

TEST(RWLock, WritersDoNotStarveUnderAFloodOfReaders)
{
    CRWLock lock;
    std::atomic<bool> done(false);
    std::atomic<int> readersInside(0);
    std::atomic<int> overlaps(0);
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!done.load()) {
                CReadLocker r(&lock);
                ++readersInside;
                std::this_thread::yield();
                --readersInside;
            }
        });
    }
    // Let the readers keep the lock busy, then a writer must still get through each time.
    ASSERT_TRUE(eventually([&] { return arrivals(lock) != 0; }));
    int writes = 0;
    for (int i = 0; i < 200; ++i) {
        CWriteLocker w(&lock);
        if (readersInside.load() != 0)
            ++overlaps;
        ++writes;
    }
    done = true;
    for (std::thread& t : readers)
        t.join();
    EXPECT_EQ(200, writes);
    EXPECT_EQ(0, overlaps.load());
}

// ---- CRWLock: misuse and messages ---------------------------------------------------------------

TEST(RWLock, MisuseIsReportedAndSurvived)
{
    AssertCapture capture;
    CRWLock lock;
    lock.AquireReadLock();
    lock.ReleaseWriteLock();   // wrong type: reported, released all the same
    ASSERT_EQ(1u, g_asserts.size());
    EXPECT_EQ("wi.m_waiterType == wt", g_asserts[0]);
    EXPECT_EQ("free", holder(lock));

    lock.ReleaseReadLock();    // nothing held
    ASSERT_EQ(2u, g_asserts.size());
    EXPECT_EQ("!m_waitingThreads.empty()", g_asserts[1]);
}

TEST(RWLock, ExceptionCarriesTheWaitResult)
{
    AssertCapture capture;
    CRWLock::Exception e(258);
    ASSERT_EQ(1u, g_asserts.size());
    EXPECT_EQ("CRWLock::Exception: Error Number 258", g_asserts[0]);
    EXPECT_EQ(258, e.getError());
    EXPECT_EQ("CRWLock::Exception: Error Number 258", narrow(e.toString()));
    EXPECT_EQ("CRWLock::Exception: Error Number 258:258", narrow(e.summary()));
    const SException& base = e;
    EXPECT_EQ(narrow(e.toString()), narrow(base.toString()));
}

// ---- lockers --------------------------------------------------------------------------------------

TEST(RWLockLockers, PlainAndNullableLockers)
{
    AssertCapture capture;
    CRWLock lock;
    {
        CReadLocker r1(&lock);
        CReadLocker r2(&lock);
        EXPECT_EQ("read 2", holder(lock));
    }
    {
        CWriteLocker w(&lock);
        EXPECT_EQ("write", holder(lock));
    }
    {
        CNullableReadLocker r(&lock);
        CNullableWriteLocker none(nullptr);   // no lock, no complaint
        EXPECT_EQ("read 1", holder(lock));
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
    }
    {
        CWriteLocker bad(nullptr);
    }
    ASSERT_EQ(4u, g_asserts.size());   // constructor and destructor of each
    for (const std::string& a : g_asserts)
        EXPECT_EQ("m_pRWLock != NULL", a);
}

TEST(RWLockLockers, SmartLockersTrackTheirState)
{
    AssertCapture capture;
    CRWLock lock;
    {
        CSmartWriteLocker w(lock);
        EXPECT_NO_THROW(w.VerifyLocked());
        EXPECT_THROW(w.VerifyUnlocked(), CSmartWriteLocker::Exception);
        w.Lock();   // already locked: reported, nothing taken
        ASSERT_EQ(1u, g_asserts.size());
        EXPECT_EQ("!m_bIsLocked", g_asserts[0]);
        EXPECT_EQ("write", holder(lock));

        w.Unlock();
        EXPECT_EQ("free", holder(lock));
        EXPECT_THROW(w.VerifyLocked(), CSmartWriteLocker::Exception);
        w.Unlock();   // not locked: reported, nothing released
        ASSERT_EQ(2u, g_asserts.size());
        EXPECT_EQ("m_bIsLocked", g_asserts[1]);
        w.Lock();
        EXPECT_EQ("write", holder(lock));
    }
    EXPECT_EQ("free", holder(lock));   // the destructor released it
    {
        CSmartReadLocker r(lock);
        CSmartReadLocker r2(lock);
        EXPECT_EQ("read 2", holder(lock));
        r.Unlock();
        EXPECT_THROW(r.VerifyLocked(), CSmartReadLocker::Exception);
        EXPECT_NO_THROW(r.VerifyUnlocked());
        EXPECT_EQ("read 1", holder(lock));
    }
    EXPECT_EQ("free", holder(lock));
    EXPECT_EQ(2u, g_asserts.size());

    try {
        CSmartReadLocker r(lock);
        r.VerifyUnlocked();
        FAIL() << "no exception";
    } catch (const SException& e) {
        EXPECT_EQ("CSmartReadLocker::Exception", narrow(e.toString()));
        EXPECT_EQ("CSmartReadLocker::Exception:lock state mismatch", narrow(e.summary()));
    }
    EXPECT_EQ("free", holder(lock));
}
