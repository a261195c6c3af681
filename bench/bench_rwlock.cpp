// CRWLock against std::shared_mutex: the uncontended read lock, and how long a writer
// waits while readers keep the lock busy.
#include "vardo/rwlock.h"

#include "ratio.h"

#include <atomic>
#include <chrono>
#include <shared_mutex>
#include <thread>
#include <vector>

using namespace Vardo400;

namespace {

struct OurLock {
    CRWLock m_lock;
    void lock_shared() { m_lock.AquireReadLock(); }
    void unlock_shared() { m_lock.ReleaseReadLock(); }
    void lock() { m_lock.AquireWriteLock(); }
    void unlock() { m_lock.ReleaseWriteLock(); }
};

struct StdLock {
    std::shared_mutex m_lock;
    void lock_shared() { m_lock.lock_shared(); }
    void unlock_shared() { m_lock.unlock_shared(); }
    void lock() { m_lock.lock(); }
    void unlock() { m_lock.unlock(); }
};

template <class Lock>
void readLockRelease(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.lock_shared();
        benchmark::ClobberMemory();
        lock.unlock_shared();
    }
}

void BM_CRWLock_ReadLockRelease(benchmark::State& state) { readLockRelease<OurLock>(state); }
void BM_SharedMutex_ReadLockRelease(benchmark::State& state) { readLockRelease<StdLock>(state); }
BENCHMARK(BM_CRWLock_ReadLockRelease);
BENCHMARK(BM_SharedMutex_ReadLockRelease);

// One writer takes the lock repeatedly while readers, whose read sections overlap, keep
// it busy all the time. The time column is the writer's mean wait for the lock (manual
// time, so no ratio line: the pairs compare CPU time), worst_wait_us its longest wait.
// Readers give up after a while so that a lock that starves writers still finishes.
template <class Lock>
void writerWaitUnderReaders(benchmark::State& state)
{
    const int nReaders = 2;
    Lock lock;
    std::atomic<bool> stop(false);
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::vector<std::thread> readers;
    for (int i = 0; i < nReaders; ++i) {
        readers.emplace_back([&] {
            unsigned n = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                lock.lock_shared();
                for (int k = 0; k < 200; ++k)
                    benchmark::DoNotOptimize(++n);
                lock.unlock_shared();
                if ((n & 0xFFFF) == 0 && std::chrono::steady_clock::now() > giveUp)
                    break;
            }
        });
    }
    double worst = 0;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        auto t0 = std::chrono::steady_clock::now();
        lock.lock();
        auto t1 = std::chrono::steady_clock::now();
        lock.unlock();
        double s = std::chrono::duration<double>(t1 - t0).count();
        if (s > worst)
            worst = s;
        state.SetIterationTime(s);
    }
    stop = true;
    for (std::thread& t : readers)
        t.join();
    state.counters["worst_wait_us"] = worst * 1e6;
}

void BM_CRWLock_WriterWait(benchmark::State& state) { writerWaitUnderReaders<OurLock>(state); }
void BM_SharedMutex_WriterWait(benchmark::State& state) { writerWaitUnderReaders<StdLock>(state); }
BENCHMARK(BM_CRWLock_WriterWait)->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SharedMutex_WriterWait)->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);

struct Pairs {
    Pairs()
    {
        vardo_bench::addPair("BM_CRWLock_ReadLockRelease", "BM_SharedMutex_ReadLockRelease");
    }
} g_pairs;

} // namespace

VARDO_BENCH_MAIN()
