// Events, semaphores, critical sections, ticks, sleeps and ids: the kernel pieces the
// synchronisation classes stand on. Results follow the Win32 conventions so the portable
// code above states each algorithm once.
//
// Handles are opaque; null means "no object". Every handle is created non-inheritable.
#ifndef VARDO_OS_SYNC_H
#define VARDO_OS_SYNC_H

#include <cstddef>
#include <cstdint>

namespace Vardo400 {
namespace os {

typedef void* SyncHandle;

// Wait results, numerically those of WaitForSingleObject.
const uint32_t WaitSignalled = 0;             // WAIT_OBJECT_0
const uint32_t WaitAbandoned = 0x80;          // WAIT_ABANDONED
const uint32_t WaitTimeout = 258;             // WAIT_TIMEOUT
const uint32_t WaitFailed = 0xFFFFFFFFu;      // WAIT_FAILED
// Time limit meaning "no limit".
const uint32_t WaitInfinite = 0xFFFFFFFFu;    // INFINITE

// Unnamed event, manual- or auto-reset, initially set or not. Null on failure.
SyncHandle createEvent(bool manualReset, bool initiallySet);
bool setEvent(SyncHandle h);
bool resetEvent(SyncHandle h);
// The same for an event that no thread waits on or can start waiting on meanwhile (one
// still private to its owner); cheaper where the platform allows it.
bool setPrivateEvent(SyncHandle h);
bool resetPrivateEvent(SyncHandle h);

// Unnamed counting semaphore. Null on failure (also when initial > maximum or
// maximum < 1).
SyncHandle createSemaphore(int32_t initialCount, int32_t maximumCount);
// Adds count (> 0) to the semaphore unless that would pass its maximum; *previous gets
// the count before the release. False on failure, the count unchanged.
bool releaseSemaphore(SyncHandle h, int32_t count, int32_t* previous);

// Waits on an event or semaphore for ms milliseconds (WaitInfinite: no limit).
// Returns WaitSignalled, WaitTimeout or WaitFailed (bad handle).
uint32_t waitFor(SyncHandle h, uint32_t ms);
// Closes an event or semaphore. Nobody may still wait on it.
bool closeHandle(SyncHandle h);

// Recursive critical section living in caller-provided storage of at least
// CriticalSectionStorage bytes, aligned for a pointer.
const size_t CriticalSectionStorage = 8 * sizeof(void*);
void initCriticalSection(void* storage);
void deleteCriticalSection(void* storage);
void enterCriticalSection(void* storage);
void leaveCriticalSection(void* storage);

// Milliseconds since boot, as 32 bits that wrap after 49.7 days (GetTickCount).
uint32_t tickCount();
// Blocks the calling thread for ms milliseconds.
void sleepMs(uint32_t ms);
// Gives the rest of the time slice to another ready thread (Sleep(0)).
void yieldThread();
// Processor hint inside spin loops.
inline void cpuPause()
{
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}

uint32_t currentProcessId();
uint32_t currentThreadId();
// Processors the system offers (at least 1).
uint32_t processorCount();

} // namespace os
} // namespace Vardo400

#endif
