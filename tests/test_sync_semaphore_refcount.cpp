// SSemaphore, CRefCount and CSmartRefCountPtr.
#include "vardo/refcount.h"
#include "vardo/ssemaphore.h"
#include "vardo/strace.h"

#include "assert_capture.h"

#include "text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

const auto& narrow = vardo_test::U;

using vardo_test::AssertCapture;
std::vector<std::string>& g_asserts = AssertCapture::seen();
// Runs f and returns the message of the SSemaphoreError it throws ("" if none).
template <class F>
std::string semaphoreError(F f)
{
    try {
        f();
    } catch (const SSemaphoreError& e) {
        return narrow(e.toString());
    }
    return "";
}

// A counted object that reports its destruction.
class Counted : public CRefCount {
public:
    explicit Counted(std::atomic<int>* deaths) : m_deaths(deaths) {}
    Counted(const Counted& o) : CRefCount(o), m_deaths(o.m_deaths) {}
    Counted& operator=(const Counted& o) { CRefCount::operator=(o); m_deaths = o.m_deaths; return *this; }
    // For objects that do not live on the heap.
    void forget() { clearRefCount(); }
    ~Counted() override { ++*m_deaths; }
private:
    std::atomic<int>* m_deaths;
};

} // namespace

// ---- SSemaphore --------------------------------------------------------------------------------

TEST(Semaphore, CountsAndTimeOuts)
{
    SSemaphore empty;
    try {
        empty.wait(0);
        FAIL() << "no time-out";
    } catch (const SSemaphoreWaitTimeout& e) {
        EXPECT_EQ("Semaphore wait was abandoned", narrow(e.toString()));
        EXPECT_EQ("Semaphore wait was abandoned:SSemaphoreWaitTimeout", narrow(e.summary()));
    }

    SSemaphore s(2);
    EXPECT_NO_THROW(s.wait(0));
    EXPECT_NO_THROW(s.wait());
    EXPECT_THROW(s.wait(0), SSemaphoreWaitTimeout);
    EXPECT_EQ(0UL, s.signal(3));   // the count before
    EXPECT_EQ(3UL, s.signal(1));
    EXPECT_EQ(4UL, s.signal());
}

TEST(Semaphore, TheMaximumCountIsAThousand)
{
    SSemaphore s(999);
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { s.signal(2); }));
    EXPECT_EQ(999UL, s.signal(1));
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { s.signal(1); }));
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { s.signal(0); }));
    s.wait(0);
    EXPECT_EQ(999UL, s.signal(1));   // failed signals changed nothing

    SSemaphore tooBig(1001);           // cannot be created
    EXPECT_EQ("Semaphore not initialized", semaphoreError([&] { tooBig.wait(0); }));
    EXPECT_EQ("Semaphore not initialized", semaphoreError([&] { tooBig.signal(1); }));
}

TEST(Semaphore, TheMaximumIsUsableFromEitherSide)
{
    // Created full: every one of the thousand counts can be taken, then none more, and
    // the whole thousand can be given back at once, but not one beyond.
    SSemaphore full(1000);
    for (int i = 0; i < 1000; ++i)
        ASSERT_NO_THROW(full.wait(0)) << i;
    EXPECT_THROW(full.wait(0), SSemaphoreWaitTimeout);
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { full.signal(1001); }));
    EXPECT_EQ(0UL, full.signal(1000));
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { full.signal(1); }));
    full.wait(0);
    EXPECT_EQ(999UL, full.signal(1));

    // Created empty: filled to the maximum in one signal.
    SSemaphore empty(0);
    EXPECT_EQ(0UL, empty.signal(1000));
    empty.wait();
    EXPECT_EQ(999UL, empty.signal());
}

TEST(Semaphore, HandsCountsBetweenThreads)
{
    SSemaphore items, done;
    const int nConsumers = 3, nItems = 300;
    std::atomic<int> consumed(0);
    std::vector<std::thread> consumers;
    for (int c = 0; c < nConsumers; ++c) {
        consumers.emplace_back([&] {
            for (int i = 0; i < nItems / nConsumers; ++i) {
                items.wait();
                ++consumed;
            }
            done.signal(1);
        });
    }
    for (int i = 0; i < nItems; ++i)
        items.signal(1);
    for (int c = 0; c < nConsumers; ++c)
        done.wait();
    for (std::thread& t : consumers)
        t.join();
    EXPECT_EQ(nItems, consumed.load());
    EXPECT_THROW(items.wait(0), SSemaphoreWaitTimeout);   // every count taken exactly once
}

// ---- CRefCount --------------------------------------------------------------------------------------

TEST(RefCount, CountingAndSelfDeletion)
{
    std::atomic<int> deaths(0);
    Counted* p = new Counted(&deaths);
    EXPECT_EQ(1, p->getCount());
    EXPECT_EQ(2, p->addRef());
    EXPECT_EQ(1, p->release());
    EXPECT_EQ(0, deaths.load());
    EXPECT_EQ(0, p->release());   // deleted through the virtual destructor
    EXPECT_EQ(1, deaths.load());
}

TEST(RefCount, CopyStartsAtOneAssignmentCopiesTheCount)
{
    AssertCapture capture;
    std::atomic<int> deaths(0);
    Counted* a = new Counted(&deaths);
    a->addRef();
    a->addRef();                    // 3
    Counted* b = new Counted(*a);   // a new object: 1
    EXPECT_EQ(1, b->getCount());
    EXPECT_EQ(3, a->getCount());

    *b = *a;                        // the count comes along
    EXPECT_EQ(3, b->getCount());
    b->release();
    b->release();
    EXPECT_EQ(0, deaths.load());
    b->release();
    EXPECT_EQ(1, deaths.load());
    a->release();
    a->release();
    a->release();
    EXPECT_EQ(2, deaths.load());
    EXPECT_TRUE(g_asserts.empty());
}

TEST(RefCount, StackObjectsMustClearTheirCount)
{
    AssertCapture capture;
    std::atomic<int> deaths(0);
    {
        Counted s(&deaths);
        s.forget();
    }
    EXPECT_TRUE(g_asserts.empty());
    {
        Counted s(&deaths);    // count 1 at death
    }
    ASSERT_EQ(1u, g_asserts.size());
    EXPECT_EQ("SNonInterlockedRead(&m_lRefCount) == 0", g_asserts[0]);
    EXPECT_EQ(2, deaths.load());
}

// ---- CSmartRefCountPtr ------------------------------------------------------------------------------

TEST(SmartRefCountPtr, CopiesCountAndDropsRelease)
{
    std::atomic<int> deaths(0);
    {
        CSmartRefCountPtr<Counted> p(new Counted(&deaths));   // takes the creator's reference
        EXPECT_EQ(1, p->getCount());
        {
            CSmartRefCountPtr<Counted> q(p);
            EXPECT_EQ(2, p->getCount());
            CSmartRefCountPtr<Counted> r;
            EXPECT_TRUE(r.isNull());
            r = q;
            EXPECT_EQ(3, p->getCount());
            CSmartRefCountPtr<Counted>& same = r;
            r = same;                                          // self-assignment is harmless
            EXPECT_EQ(3, p->getCount());
            CSmartRefCountPtr<Counted> moved(std::move(r));
            EXPECT_EQ(3, p->getCount());
            EXPECT_TRUE(r.isNull());
            EXPECT_TRUE(moved == p);
        }
        EXPECT_EQ(1, p->getCount());

        // Overwriting releases the old target.
        p = new Counted(&deaths);
        EXPECT_EQ(1, deaths.load());
        Counted* raw = p.get();
        CSmartRefCountPtr<Counted> extra(raw, true);           // an extra reference
        EXPECT_EQ(2, raw->getCount());
        p.reset();
        EXPECT_EQ(1, raw->getCount());
        Counted* detached = extra.detach();
        EXPECT_EQ(1, detached->getCount());
        EXPECT_EQ(1, deaths.load());
        EXPECT_EQ(0, detached->release());
    }
    EXPECT_EQ(2, deaths.load());
}

TEST(SmartRefCountPtr, SharedAcrossThreads)
{
    std::atomic<int> deaths(0);
    CSmartRefCountPtr<Counted> shared(new Counted(&deaths));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        CSmartRefCountPtr<Counted> mine(shared);
        threads.emplace_back([mine] {
            for (int i = 0; i < 5000; ++i) {
                CSmartRefCountPtr<Counted> copy(mine);
                CSmartRefCountPtr<Counted> other;
                other = copy;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(1, shared->getCount());
    EXPECT_EQ(0, deaths.load());

    // The last release may come from any thread; it deletes exactly once.
    Counted* raw = shared.detach();
    std::vector<std::thread> droppers;
    for (int t = 0; t < 3; ++t)
        raw->addRef();
    for (int t = 0; t < 4; ++t)
        droppers.emplace_back([raw] { CSmartRefCountPtr<Counted> last(raw); });
    for (std::thread& t : droppers)
        t.join();
    EXPECT_EQ(1, deaths.load());
}
