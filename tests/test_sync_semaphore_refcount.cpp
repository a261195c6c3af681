// SSemaphore, CRefCount and CSmartRefCountPtr.
#include "vardo/refcount.h"
#include "vardo/ssemaphore.h"

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
    // For objects that do not live on the heap.
    void forget() { clearRefCount(); }
    ~Counted() override { ++*m_deaths; }
private:
    std::atomic<int>* m_deaths;
};

} // namespace

// ---- SSemaphore --------------------------------------------------------------------------------

TEST(Semaphore, CountsTimeOutsAndRefusedSignals)
{
    SSemaphore empty;
    try {
        empty.wait(0);
        FAIL() << "no time-out";
    } catch (const SSemaphoreWaitTimeout& e) {
        EXPECT_EQ("Semaphore wait was abandoned", narrow(e.toString()));
        EXPECT_EQ("Semaphore wait was abandoned:SSemaphoreWaitTimeout", narrow(e.summary()));
    }
    // Giving back nothing is refused, even with room to spare, and changes nothing.
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { empty.signal(0); }));
    EXPECT_THROW(empty.wait(0), SSemaphoreWaitTimeout);

    SSemaphore s(2);
    EXPECT_NO_THROW(s.wait(0));
    EXPECT_NO_THROW(s.wait());
    EXPECT_THROW(s.wait(0), SSemaphoreWaitTimeout);
    EXPECT_EQ(0UL, s.signal(3));   // the count before
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { s.signal(0); }));
    EXPECT_EQ(3UL, s.signal(1));
    EXPECT_EQ(4UL, s.signal());

    SSemaphore tooBig(1001);           // cannot be created
    EXPECT_EQ("Semaphore not initialized", semaphoreError([&] { tooBig.wait(0); }));
    EXPECT_EQ("Semaphore not initialized", semaphoreError([&] { tooBig.signal(0); }));
    EXPECT_EQ("Semaphore not initialized", semaphoreError([&] { tooBig.signal(1); }));
}

TEST(Semaphore, TheMaximumOfAThousandIsUsableFromEitherSide)
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
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { full.signal(0); }));
    full.wait(0);
    EXPECT_EQ("Semaphore failed to signal", semaphoreError([&] { full.signal(2); }));
    EXPECT_EQ(999UL, full.signal(1));   // failed signals changed nothing
}

TEST(Semaphore, HandsCountsBetweenThreads)
{
    SSemaphore items;
    std::atomic<int> consumed(0);
    std::vector<std::thread> consumers;
    for (int c = 0; c < 3; ++c) {
        consumers.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                items.wait();
                ++consumed;
            }
        });
    }
    for (int i = 0; i < 300; ++i)
        items.signal(1);
    for (std::thread& t : consumers)
        t.join();
    EXPECT_EQ(300, consumed.load());
    EXPECT_THROW(items.wait(0), SSemaphoreWaitTimeout);   // every count taken exactly once
}

// ---- CRefCount --------------------------------------------------------------------------------------

TEST(RefCount, CountingCopyingAndSelfDeletion)
{
    AssertCapture capture;
    std::atomic<int> deaths(0);
    Counted* a = new Counted(&deaths);
    EXPECT_EQ(1, a->getCount());
    EXPECT_EQ(2, a->addRef());
    EXPECT_EQ(3, a->addRef());
    Counted* b = new Counted(*a);   // a new object: 1
    EXPECT_EQ(1, b->getCount());
    *b = *a;                        // the count comes along
    EXPECT_EQ(3, b->getCount());
    EXPECT_EQ(2, b->release());
    EXPECT_EQ(1, b->release());
    EXPECT_EQ(0, deaths.load());
    EXPECT_EQ(0, b->release());    // deleted through the virtual destructor
    EXPECT_EQ(1, deaths.load());
    a->release();
    a->release();
    a->release();
    EXPECT_EQ(2, deaths.load());
    EXPECT_TRUE(g_asserts.empty());

    // An object on the stack must clear its count before it dies.
    {
        Counted s(&deaths);
        s.forget();
    }
    EXPECT_TRUE(g_asserts.empty());
    {
        Counted s(&deaths);
    }
    EXPECT_EQ((std::vector<std::string>{"SNonInterlockedRead(&m_lRefCount) == 0"}), g_asserts);
}

// ---- CSmartRefCountPtr ------------------------------------------------------------------------------

TEST(SmartRefCountPtr, CopiesCountAndDropsRelease)
{
    std::atomic<int> deaths(0);
    {
        CSmartRefCountPtr<Counted> p(new Counted(&deaths));   // takes the creator's reference
        {
            CSmartRefCountPtr<Counted> q(p);
            CSmartRefCountPtr<Counted> r;
            r = q;
            EXPECT_EQ(3, p->getCount());
            CSmartRefCountPtr<Counted>& same = r;
            r = same;                                          // self-assignment is harmless
            CSmartRefCountPtr<Counted> moved(std::move(r));
            EXPECT_EQ(3, p->getCount());
            EXPECT_TRUE(r.isNull());
            EXPECT_TRUE(moved == p);
        }
        EXPECT_EQ(1, p->getCount());

        p = new Counted(&deaths);                              // overwriting releases the old target
        EXPECT_EQ(1, deaths.load());
        Counted* raw = p.get();
        CSmartRefCountPtr<Counted> extra(raw, true);           // an extra reference
        EXPECT_EQ(2, raw->getCount());
        p.reset();
        Counted* detached = extra.detach();
        EXPECT_EQ(1, detached->getCount());
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
}
