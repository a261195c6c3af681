// Linux events and semaphores with Win32 semantics, built on one atomic word each and the
// futex system call: waiters block in the kernel on the word, signallers wake them.
// Unlike a mutex and condition variable pair, a signaller never touches the object after
// the store that releases a waiter, so a waiter may close the handle as soon as it wakes
// (as it may with a kernel handle).
#include "os/os_sync.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <mutex>
#include <new>
#include <thread>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace Vardo400 {
namespace os {

namespace {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "futex word must be plain");

enum Kind : uint32_t { KindEvent = 0x45564e54u, KindSemaphore = 0x53454d41u };

// Common head: the kind tag lets waitFor and closeHandle tell events from semaphores.
struct SyncObject {
    explicit SyncObject(Kind k) : m_kind(k) {}
    const Kind m_kind;
};

// State word: bit 0 set when the event is signalled; the rest counts blocked waiters
// in steps of 2.
struct Event : SyncObject {
    Event(bool manual, bool set) : SyncObject(KindEvent), m_bManualReset(manual), m_state(set ? 1u : 0u) {}
    const bool m_bManualReset;
    std::atomic<uint32_t> m_state;
};

struct Semaphore : SyncObject {
    Semaphore(int32_t initial, int32_t maximum)
        : SyncObject(KindSemaphore), m_maximum(maximum), m_count(initial), m_waiters(0) {}
    const int32_t m_maximum;
    std::atomic<int32_t> m_count;      // the futex word
    std::atomic<int32_t> m_waiters;    // threads blocked or about to block
};

template <class T>
int futexWait(std::atomic<T>* word, T expected, const struct timespec* relative)
{
    return (int)syscall(SYS_futex, reinterpret_cast<T*>(word), FUTEX_WAIT_PRIVATE, expected, relative, nullptr, 0);
}

template <class T>
void futexWake(std::atomic<T>* word, int count)
{
    syscall(SYS_futex, reinterpret_cast<T*>(word), FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

typedef std::chrono::steady_clock Clock;

// Blocks on word while it holds expected, up to the deadline (none when infinite).
// Returns false once the deadline has passed.
template <class T>
bool blockOn(std::atomic<T>* word, T expected, bool infinite, Clock::time_point deadline)
{
    if (infinite) {
        futexWait(word, expected, nullptr);
        return true;
    }
    Clock::time_point now = Clock::now();
    if (now >= deadline)
        return false;
    auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - now).count();
    struct timespec ts;
    ts.tv_sec = (time_t)(left / 1000000000);
    ts.tv_nsec = (long)(left % 1000000000);
    futexWait(word, expected, &ts);
    return true;
}

// One attempt to take a signalled event: true when the caller may go on.
bool tryTakeEvent(Event* e, uint32_t s)
{
    if (!(s & 1u))
        return false;
    if (e->m_bManualReset)
        return true;
    return e->m_state.compare_exchange_strong(s, s & ~1u, std::memory_order_acquire);
}

uint32_t waitEvent(Event* e, uint32_t ms)
{
    for (;;) {
        uint32_t s = e->m_state.load(std::memory_order_acquire);
        if (!(s & 1u))
            break;
        if (tryTakeEvent(e, s))
            return WaitSignalled;
    }
    if (ms == 0)
        return WaitTimeout;
    const bool infinite = ms == WaitInfinite;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(infinite ? 0 : ms);
    e->m_state.fetch_add(2u, std::memory_order_seq_cst);
    uint32_t result = WaitTimeout;
    for (;;) {
        uint32_t s = e->m_state.load(std::memory_order_acquire);
        if (s & 1u) {
            if (tryTakeEvent(e, s)) {
                result = WaitSignalled;
                break;
            }
            continue;
        }
        if (!blockOn(&e->m_state, s, infinite, deadline))
            break;
    }
    e->m_state.fetch_sub(2u, std::memory_order_relaxed);
    return result;
}

uint32_t waitSemaphore(Semaphore* sem, uint32_t ms)
{
    const bool infinite = ms == WaitInfinite;
    Clock::time_point deadline;
    bool registered = false;
    uint32_t result = WaitTimeout;
    for (;;) {
        int32_t c = sem->m_count.load(std::memory_order_acquire);
        if (c > 0) {
            if (sem->m_count.compare_exchange_weak(c, c - 1, std::memory_order_acquire)) {
                result = WaitSignalled;
                break;
            }
            continue;
        }
        if (ms == 0)
            break;
        if (!registered) {
            registered = true;
            deadline = Clock::now() + std::chrono::milliseconds(infinite ? 0 : ms);
            sem->m_waiters.fetch_add(1, std::memory_order_seq_cst);
            continue;      // look at the count again now that releasers can see us
        }
        if (!blockOn(&sem->m_count, 0, infinite, deadline))
            break;
    }
    if (registered)
        sem->m_waiters.fetch_sub(1, std::memory_order_relaxed);
    return result;
}

} // namespace

SyncHandle createEvent(bool manualReset, bool initiallySet)
{
    // Nothing here can leak into a child process: the object is plain memory.
    return new (std::nothrow) Event(manualReset, initiallySet);
}

bool setEvent(SyncHandle h)
{
    Event* e = static_cast<Event*>(h);
    if (!e || e->m_kind != KindEvent)
        return false;
    const int wake = e->m_bManualReset ? INT_MAX : 1;
    uint32_t old = e->m_state.fetch_or(1u, std::memory_order_seq_cst);
    // From here on the event may already be gone (a woken waiter may close it); the wake
    // only names the address, which the kernel tolerates.
    if ((old >> 1) != 0 && !(old & 1u))
        futexWake(&e->m_state, wake);
    return true;
}

bool resetEvent(SyncHandle h)
{
    Event* e = static_cast<Event*>(h);
    if (!e || e->m_kind != KindEvent)
        return false;
    e->m_state.fetch_and(~1u, std::memory_order_relaxed);
    return true;
}

// Nobody waits, so the waiter count is 0 and a plain store of the whole word will do; the
// release order still publishes what the owner wrote before.
bool setPrivateEvent(SyncHandle h)
{
    Event* e = static_cast<Event*>(h);
    if (!e || e->m_kind != KindEvent)
        return false;
    e->m_state.store(1u, std::memory_order_release);
    return true;
}

bool resetPrivateEvent(SyncHandle h)
{
    Event* e = static_cast<Event*>(h);
    if (!e || e->m_kind != KindEvent)
        return false;
    e->m_state.store(0u, std::memory_order_relaxed);
    return true;
}

SyncHandle createSemaphore(int32_t initialCount, int32_t maximumCount)
{
    if (maximumCount < 1 || initialCount < 0 || initialCount > maximumCount)
        return nullptr;
    return new (std::nothrow) Semaphore(initialCount, maximumCount);
}

bool releaseSemaphore(SyncHandle h, int32_t count, int32_t* previous)
{
    Semaphore* sem = static_cast<Semaphore*>(h);
    if (!sem || sem->m_kind != KindSemaphore || count < 1)
        return false;
    int32_t c = sem->m_count.load(std::memory_order_relaxed);
    do {
        if (count > sem->m_maximum - c)
            return false;
    } while (!sem->m_count.compare_exchange_weak(c, c + count, std::memory_order_seq_cst));
    if (previous)
        *previous = c;
    if (sem->m_waiters.load(std::memory_order_seq_cst) > 0)
        futexWake(&sem->m_count, count);
    return true;
}

uint32_t waitFor(SyncHandle h, uint32_t ms)
{
    SyncObject* o = static_cast<SyncObject*>(h);
    if (!o)
        return WaitFailed;
    if (o->m_kind == KindEvent)
        return waitEvent(static_cast<Event*>(o), ms);
    if (o->m_kind == KindSemaphore)
        return waitSemaphore(static_cast<Semaphore*>(o), ms);
    return WaitFailed;
}

bool closeHandle(SyncHandle h)
{
    SyncObject* o = static_cast<SyncObject*>(h);
    if (!o)
        return false;
    if (o->m_kind == KindEvent) {
        delete static_cast<Event*>(o);
        return true;
    }
    if (o->m_kind == KindSemaphore) {
        delete static_cast<Semaphore*>(o);
        return true;
    }
    return false;
}

static_assert(sizeof(std::recursive_mutex) <= CriticalSectionStorage, "critical section storage too small");
static_assert(alignof(std::recursive_mutex) <= alignof(void*), "critical section storage misaligned");

void initCriticalSection(void* storage)
{
    new (storage) std::recursive_mutex();
}

void deleteCriticalSection(void* storage)
{
    static_cast<std::recursive_mutex*>(storage)->~recursive_mutex();
}

void enterCriticalSection(void* storage)
{
    static_cast<std::recursive_mutex*>(storage)->lock();
}

void leaveCriticalSection(void* storage)
{
    static_cast<std::recursive_mutex*>(storage)->unlock();
}

uint32_t tickCount()
{
    struct timespec ts;
    // Boot time counts suspended periods too, as the Windows tick count does.
    if (clock_gettime(CLOCK_BOOTTIME, &ts) != 0)
        clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = (uint64_t)ts.tv_sec * 1000u + (uint64_t)ts.tv_nsec / 1000000u;
    return (uint32_t)ms;
}

void sleepMs(uint32_t ms)
{
    struct timespec ts;
    ts.tv_sec = (time_t)(ms / 1000u);
    ts.tv_nsec = (long)(ms % 1000u) * 1000000L;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

void yieldThread()
{
    std::this_thread::yield();
}

uint32_t currentProcessId()
{
    return (uint32_t)getpid();
}

uint32_t currentThreadId()
{
    return (uint32_t)syscall(SYS_gettid);
}

uint32_t processorCount()
{
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? (uint32_t)n : 1u;
}

} // namespace os
} // namespace Vardo400
