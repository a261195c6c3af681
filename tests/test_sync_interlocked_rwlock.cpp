// Interlocked counters, CS_Wrapper and the fair reader/writer lock with its lockers.
#include "vardo/cs_wrapper.h"
#include "vardo/interlocked.h"
#include "vardo/rwlock.h"
#include "vardo/strace.h"

#include "assert_capture.h"

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

// ---- helpers -------------------------------------------------------------------------------

using vardo_test::AssertCapture;
std::vector<std::string>& g_asserts = AssertCapture::seen();

std::string narrow(const SWCharString& s)
{
    std::string out;
    for (unsigned int i = 0; i < s.getLength(); ++i)
        out += static_cast<char>(s.data()[i]);
    return out;
}

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

typedef std::vector<std::pair<int, long>> Queue;

Queue queueOf(const CRWLock& lock)
{
    Queue q;
    for (const CRWLock::QueueEntry& e : lock.getQueueSnapshot())
        q.push_back(std::make_pair(static_cast<int>(e.m_waiterType), e.m_nThreads));
    return q;
}

const int R = CRWLock::Reader;
const int W = CRWLock::Writer;

} // namespace

// ---- interlocked counters -------------------------------------------------------------------

TEST(Interlocked, PrimitivesOverALongCell)
{
    long cell = 5;
    EXPECT_EQ(5, SInterlockedBase::asmExchangeAdd(&cell, 3));
    EXPECT_EQ(8, cell);
    EXPECT_EQ(8, SInterlockedBase::asmExchange(&cell, -2));
    EXPECT_EQ(-2, cell);
    SInterlockedBase::asmInitLock(&cell);
    EXPECT_EQ(0, cell);
    EXPECT_EQ(0, SInterlockedBase::asmAcquireLock(&cell));   // taken
    EXPECT_EQ(1, SInterlockedBase::asmAcquireLock(&cell));   // already held
    SInterlockedBase::asmUnlock(&cell);
    EXPECT_EQ(0, cell);
}

TEST(Interlocked, SignedCounterOperations)
{
    SInterlockedInt32s v(10);
    EXPECT_EQ(10, v.exchangeAdd(5));
    EXPECT_EQ(15, v.exchange(7));
    EXPECT_EQ(7, v.read());
    EXPECT_EQ(8, ++v);
    EXPECT_EQ(8, v++);
    EXPECT_EQ(9, v.read());
    EXPECT_EQ(8, --v);
    EXPECT_EQ(8, v--);
    EXPECT_EQ(7, v.nonInterlockedRead());
    EXPECT_EQ(7, v.nonInterlockedSet(-3));
    EXPECT_EQ(-3, v.read());
    v.initialize(42);

    SInterlockedInt32s copy(v);
    EXPECT_EQ(42, copy.read());
    EXPECT_TRUE(copy == v);
    SInterlockedInt32s other(1);
    EXPECT_FALSE(other == v);
    other = v;
    EXPECT_EQ(42, other.read());

    EXPECT_EQ(42, SInterlockedExchangeAdd(&v, 1));
    EXPECT_EQ(43, SInterlockedExchange(&v, 100));
    EXPECT_EQ(100, SNonInterlockedRead(&v));
    EXPECT_EQ(100, SNonInterlockedSet(&v, 1));
    EXPECT_EQ(1, v.read());
}

TEST(Interlocked, ValuesAreThirtyTwoBitsWide)
{
    SInterlockedInt32s s(0x7FFFFFFFL);
    EXPECT_EQ(static_cast<long>(INT32_MIN), ++s);           // wraps like a 32-bit int
    EXPECT_EQ(0x7FFFFFFFL, --s);
    s.initialize(-1);
    EXPECT_EQ(-1, s.exchangeAdd(1));
    EXPECT_EQ(0, s.read());

    SInterlockedInt32u u(0xFFFFFFFFUL);
    EXPECT_EQ(0UL, ++u);
    EXPECT_EQ(0xFFFFFFFFUL, --u);
    EXPECT_EQ(0xFFFFFFFFUL, u.exchangeAdd(2));
    EXPECT_EQ(1UL, u.read());
    EXPECT_EQ(1UL, u.exchangeAdd(-1));
    EXPECT_EQ(0UL, u.read());
    EXPECT_EQ(0UL, SNonInterlockedSet(&u, 7));
    EXPECT_EQ(7UL, SNonInterlockedRead(&u));
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

TEST(RWLock, TwoReadersOnAFreeLockShareOneEntry)
{
    CRWLock lock;
    EXPECT_TRUE(queueOf(lock).empty());
    lock.AquireReadLock();
    std::thread second([&] { lock.AquireReadLock(); });   // passes at once
    second.join();
    EXPECT_EQ((Queue{{R, 2}}), queueOf(lock));
    // No ownership check: this thread may release the other reader's share.
    lock.ReleaseReadLock();
    EXPECT_EQ((Queue{{R, 1}}), queueOf(lock));
    lock.ReleaseReadLock();
    EXPECT_TRUE(queueOf(lock).empty());
    EXPECT_EQ(1u, lock.getFreeEventCount());

    // The freed event serves the next group instead of a new one.
    lock.AquireWriteLock();
    EXPECT_EQ((Queue{{W, 1}}), queueOf(lock));
    EXPECT_EQ(0u, lock.getFreeEventCount());
    lock.ReleaseWriteLock();
    EXPECT_EQ(1u, lock.getFreeEventCount());
}

TEST(RWLock, ReaderBehindAWaitingWriterWaitsForIt)
{
    CRWLock lock;
    std::atomic<bool> writerIn(false), writerOut(false), reader2In(false), reader2AfterWriter(false);
    std::promise<void> letWriterGo;
    std::shared_future<void> writerMayLeave = letWriterGo.get_future().share();

    lock.AquireReadLock();
    std::thread writer([&] {
        lock.AquireWriteLock();
        writerIn = true;
        writerMayLeave.wait();
        writerOut = true;
        lock.ReleaseWriteLock();
    });
    ASSERT_TRUE(eventually([&] { return queueOf(lock).size() == 2; }));

    std::thread reader2([&] {
        lock.AquireReadLock();
        reader2In = true;
        reader2AfterWriter = writerOut.load();   // the writer came first and is gone
        lock.ReleaseReadLock();
    });
    ASSERT_TRUE(eventually([&] { return queueOf(lock).size() == 3; }));
    // The newcomer did not join the owning reader group: it queues behind the writer.
    EXPECT_EQ((Queue{{R, 1}, {W, 1}, {R, 1}}), queueOf(lock));
    EXPECT_FALSE(writerIn.load());
    EXPECT_FALSE(reader2In.load());

    lock.ReleaseReadLock();
    ASSERT_TRUE(eventually([&] { return writerIn.load(); }));
    EXPECT_EQ((Queue{{W, 1}, {R, 1}}), queueOf(lock));
    EXPECT_FALSE(reader2In.load());

    letWriterGo.set_value();
    writer.join();
    reader2.join();
    EXPECT_TRUE(reader2In.load());
    EXPECT_TRUE(reader2AfterWriter.load());
    EXPECT_TRUE(queueOf(lock).empty());
    EXPECT_EQ(3u, lock.getFreeEventCount());   // one per group, kept for reuse
}

TEST(RWLock, AReaderGroupWakesTogether)
{
    CRWLock lock;
    const int nReaders = 3;
    std::atomic<int> holding(0);
    std::atomic<int> sawAllTogether(0);

    lock.AquireWriteLock();
    std::vector<std::thread> readers;
    for (int i = 0; i < nReaders; ++i) {
        readers.emplace_back([&] {
            lock.AquireReadLock();
            ++holding;
            // Only possible if every reader of the group holds the lock at the same time.
            if (eventually([&] { return holding.load() == nReaders; }))
                ++sawAllTogether;
            lock.ReleaseReadLock();
        });
    }
    ASSERT_TRUE(eventually([&] { return queueOf(lock) == Queue{{W, 1}, {R, nReaders}}; }));
    EXPECT_EQ(0, holding.load());
    lock.ReleaseWriteLock();
    for (std::thread& t : readers)
        t.join();
    EXPECT_EQ(nReaders, sawAllTogether.load());
    EXPECT_TRUE(queueOf(lock).empty());
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
    EXPECT_TRUE(queueOf(lock).empty());
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
    ASSERT_TRUE(eventually([&] { return !queueOf(lock).empty(); }));
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
    EXPECT_TRUE(queueOf(lock).empty());

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
        EXPECT_EQ((Queue{{R, 2}}), queueOf(lock));
    }
    {
        CWriteLocker w(&lock);
        EXPECT_EQ((Queue{{W, 1}}), queueOf(lock));
    }
    {
        CNullableReadLocker r(&lock);
        CNullableWriteLocker none(nullptr);   // no lock, no complaint
        EXPECT_EQ((Queue{{R, 1}}), queueOf(lock));
    }
    {
        CNullableWriteLocker w(&lock);
        CNullableReadLocker none(nullptr);
        EXPECT_EQ((Queue{{W, 1}}), queueOf(lock));
    }
    EXPECT_TRUE(queueOf(lock).empty());
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
        EXPECT_EQ((Queue{{W, 1}}), queueOf(lock));

        w.Unlock();
        EXPECT_TRUE(queueOf(lock).empty());
        EXPECT_THROW(w.VerifyLocked(), CSmartWriteLocker::Exception);
        w.Unlock();   // not locked: reported, nothing released
        ASSERT_EQ(2u, g_asserts.size());
        EXPECT_EQ("m_bIsLocked", g_asserts[1]);
        w.Lock();
        EXPECT_EQ((Queue{{W, 1}}), queueOf(lock));
    }
    EXPECT_TRUE(queueOf(lock).empty());   // the destructor released it
    {
        CSmartReadLocker r(lock);
        CSmartReadLocker r2(lock);
        EXPECT_EQ((Queue{{R, 2}}), queueOf(lock));
        r.Unlock();
        EXPECT_THROW(r.VerifyLocked(), CSmartReadLocker::Exception);
        EXPECT_NO_THROW(r.VerifyUnlocked());
        EXPECT_EQ((Queue{{R, 1}}), queueOf(lock));
    }
    EXPECT_TRUE(queueOf(lock).empty());
    EXPECT_EQ(2u, g_asserts.size());

    try {
        CSmartReadLocker r(lock);
        r.VerifyUnlocked();
        FAIL() << "no exception";
    } catch (const SException& e) {
        EXPECT_EQ("CSmartReadLocker::Exception", narrow(e.toString()));
        EXPECT_EQ("CSmartReadLocker::Exception:lock state mismatch", narrow(e.summary()));
    }
    EXPECT_TRUE(queueOf(lock).empty());
}
