// Windows events, semaphores and critical sections: the kernel objects themselves.
#include "os/os_sync.h"

#include <windows.h>

namespace Vardo400 {
namespace os {

namespace {

HANDLE notInheritable(HANDLE h)
{
    if (h)
        SetHandleInformation(h, HANDLE_FLAG_INHERIT, 0);
    return h;
}

} // namespace

SyncHandle createEvent(bool manualReset, bool initiallySet)
{
    return notInheritable(CreateEventW(NULL, manualReset ? TRUE : FALSE, initiallySet ? TRUE : FALSE, NULL));
}

bool setEvent(SyncHandle h)
{
    return h && SetEvent((HANDLE)h) != FALSE;
}

bool resetEvent(SyncHandle h)
{
    return h && ResetEvent((HANDLE)h) != FALSE;
}

bool setPrivateEvent(SyncHandle h)
{
    return setEvent(h);
}

bool resetPrivateEvent(SyncHandle h)
{
    return resetEvent(h);
}

SyncHandle createSemaphore(int32_t initialCount, int32_t maximumCount)
{
    return notInheritable(CreateSemaphoreW(NULL, (LONG)initialCount, (LONG)maximumCount, NULL));
}

bool releaseSemaphore(SyncHandle h, int32_t count, int32_t* previous)
{
    LONG prev = 0;
    if (!h || !ReleaseSemaphore((HANDLE)h, (LONG)count, &prev))
        return false;
    if (previous)
        *previous = (int32_t)prev;
    return true;
}

uint32_t waitFor(SyncHandle h, uint32_t ms)
{
    if (!h)
        return WaitFailed;
    return (uint32_t)WaitForSingleObject((HANDLE)h, (DWORD)ms);
}

bool closeHandle(SyncHandle h)
{
    return h && CloseHandle((HANDLE)h) != FALSE;
}

static_assert(sizeof(CRITICAL_SECTION) <= CriticalSectionStorage, "critical section storage too small");
static_assert(alignof(CRITICAL_SECTION) <= alignof(void*), "critical section storage misaligned");

void initCriticalSection(void* storage)
{
    InitializeCriticalSection(static_cast<CRITICAL_SECTION*>(storage));
}

void deleteCriticalSection(void* storage)
{
    DeleteCriticalSection(static_cast<CRITICAL_SECTION*>(storage));
}

void enterCriticalSection(void* storage)
{
    EnterCriticalSection(static_cast<CRITICAL_SECTION*>(storage));
}

void leaveCriticalSection(void* storage)
{
    LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(storage));
}

uint32_t tickCount()
{
    return (uint32_t)GetTickCount();
}

void sleepMs(uint32_t ms)
{
    Sleep((DWORD)ms);
}

void yieldThread()
{
    Sleep(0);
}

uint32_t currentProcessId()
{
    return (uint32_t)GetCurrentProcessId();
}

uint32_t currentThreadId()
{
    return (uint32_t)GetCurrentThreadId();
}

uint32_t processorCount()
{
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    return si.dwNumberOfProcessors > 0 ? (uint32_t)si.dwNumberOfProcessors : 1u;
}

} // namespace os
} // namespace Vardo400
