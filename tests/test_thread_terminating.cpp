// The thread library layer, TerminatingThread, the COM message pump and the process facts.
#include "vardo/csiprocess.h"
#include "vardo/hackedcompump.h"
#include "vardo/ssystem.h"
#include "vardo/termthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

using namespace Vardo400;
using namespace Etc1001204;

namespace {

typedef std::chrono::steady_clock Clock;

long long msSince(Clock::time_point t)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count();
}

// Polls until pred holds; false after a minute (a hang, not a slow machine).
template <class Pred>
bool eventually(Pred pred)
{
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (!pred()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

const long Forever = 3600L * 1000;   // an hour: any wait this long means a fault
const long Long = 20 * 1000;         // a sleep that must be cut short well before its end

// Sleeps in a loop as a real worker does, counting the wake-ups that were not stops.
class Worker : public TerminatingThread {
public:
    explicit Worker(const char* name) : TerminatingThread(name) {}
    void run() override
    {
        self = JTCThread::currentThread();
        started.set_value();
        while (!sleep_with_stop_alarm(Long))
            ++wakeups;
    }
    std::promise<void> started;
    std::atomic<int> wakeups{0};
    std::atomic<JTCThread*> self{nullptr};
};

// Not started: only its flags and its sleep are used.
class Idle : public TerminatingThread {
public:
    void run() override {}
};

} // namespace

// ---- TerminatingThread ------------------------------------------------------------------------------

TEST(TerminatingThread, SleepEndsOnStopForGoodAndOnAwakeOnce)
{
    JTCHandleT<TerminatingThread> t(new Idle());
    t->awake();
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(t->sleep_with_stop_alarm(Long));  // cut short, not stopped
    EXPECT_LT(msSince(start), Long / 2);

    // The flag was used up: the next sleep runs its full time.
    start = Clock::now();
    EXPECT_FALSE(t->sleep_with_stop_alarm(60));
    EXPECT_GE(msSince(start), 40);   // allows for a coarse system tick
    EXPECT_FALSE(t->sleep_with_stop_alarm(-5));

    EXPECT_FALSE(t->isStopped());
    t->stop();
    EXPECT_TRUE(t->isStopped());
    start = Clock::now();
    EXPECT_TRUE(t->sleep_with_stop_alarm(Long));
    EXPECT_TRUE(t->sleep_with_stop_alarm(Long));   // the stop flag stays set
    EXPECT_TRUE(t->sleep_with_stop_alarm(0));
    EXPECT_LT(msSince(start), Long / 2);
}

TEST(TerminatingThread, RunsUntilStoppedAndWakesOnAwake)
{
    Worker* raw = new Worker("worker");
    JTCHandleT<Worker> w(raw);
    std::future<void> started = w->started.get_future();
    w->join();                  // never started: nothing to wait for
    EXPECT_FALSE(w->isAlive());
    w->start();
    EXPECT_THROW(w->start(), JTCIllegalThreadStateException);
    started.wait();
    EXPECT_EQ(static_cast<JTCThread*>(raw), w->self.load());
    EXPECT_EQ(nullptr, JTCThread::currentThread());   // this thread is not the library's
    EXPECT_EQ(2, w->_refCount());   // the running thread keeps its object alive

    Clock::time_point start = Clock::now();
    w->awake();
    ASSERT_TRUE(eventually([&] { return w->wakeups.load() == 1; }));
    EXPECT_TRUE(w->isAlive());
    EXPECT_FALSE(w->join(1));

    w->stop();
    w->join();
    EXPECT_LT(msSince(start), Long / 2);   // both cut a sleep short
    EXPECT_FALSE(w->isAlive());
    EXPECT_EQ(1, w->wakeups.load());
    EXPECT_TRUE(w->join(0));    // joining again returns at once
    EXPECT_THROW(w->start(), JTCIllegalThreadStateException);
    EXPECT_EQ(1, w->_refCount());   // the finished thread gave its reference back
}

// ---- the thread library ---------------------------------------------------------------------------

TEST(JTC, MonitorIsRecursiveAndWaitGivesItUpWhole)
{
    JTCMonitor m;
    EXPECT_THROW(m.wait(), JTCIllegalMonitorStateException);
    EXPECT_THROW(m.notify(), JTCIllegalMonitorStateException);
    EXPECT_THROW(m.unlock(), JTCIllegalMonitorStateException);

    bool ready = false;         // guarded by the monitor
    int waiting = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            JTCSynchronized outer(m);
            JTCSynchronized inner(m);   // two levels held
            ++waiting;
            while (!ready)
                m.wait(Forever);
        });
    }
    // Only possible if each wait released both levels.
    ASSERT_TRUE(eventually([&] { JTCSynchronized sync(m); return waiting == 3; }));
    {
        JTCSynchronized sync(m);
        ready = true;
        m.notifyAll();
    }
    for (std::thread& t : threads)
        t.join();
    m.lock();
    m.wait(1);                  // a limited wait returns by itself
    m.wait(0);
    m.unlock();
    EXPECT_THROW(m.unlock(), JTCIllegalMonitorStateException);
}

// ---- COM message pump -------------------------------------------------------------------------------

TEST(HackedCOMMessagePump, StartsAndStops)
{
    HackedCOMMessagePump pump;
    pump.abort();               // not running: nothing to do
    EXPECT_TRUE(pump.init());
    EXPECT_TRUE(pump.init());   // already running
    pump.abort();
    {
        HackedCOMMessagePump running;
        EXPECT_TRUE(running.init());
    }                           // the destructor stops it
}

// ---- process and system facts -------------------------------------------------------------------------

TEST(ProcessFacts, IdsSleepsAndProcessors)
{
    const uint32_t tid = CSIProcess::GetCurrentThreadId();
    uint32_t otherPid = 0, otherTid = 0;
    std::thread([&] {
        otherPid = CSIProcess::GetCurrentProcessId();
        otherTid = CSIProcess::GetCurrentThreadId();
    }).join();
    EXPECT_EQ(CSIProcess::GetCurrentProcessId(), otherPid);
    EXPECT_NE(tid, otherTid);

    Clock::time_point start = Clock::now();
    CSIProcess::MilliSleep(0);
    CSIProcess::MilliSleep(30);
    EXPECT_GE(msSince(start), 20);
    start = Clock::now();
    CSIProcess::SecSleep(1);
    EXPECT_GE(msSince(start), 900);

    EXPECT_GE(SSystem::GetNumberOfProcessors(), 1u);
}
