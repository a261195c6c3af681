// The COM message-pump thread on Windows: a CRT thread, an STA and GetMessage.
#include "os/os_compump.h"

#include <windows.h>
#include <objbase.h>
#include <process.h>

#include <memory>
#include <new>

namespace Vardo400 {
namespace os {

namespace {

struct ThreadStart {
    NativeThreadEntry m_entry;
    void* m_arg;
};

unsigned __stdcall threadTrampoline(void* p)
{
    std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(p));
    return start->m_entry(start->m_arg);
}

} // namespace

void* startNativeThread(NativeThreadEntry entry, void* arg, uint32_t* threadId)
{
    std::unique_ptr<ThreadStart> start(new (std::nothrow) ThreadStart{entry, arg});
    if (!start)
        return NULL;
    unsigned id = 0;
    uintptr_t h = _beginthreadex(NULL, 0, &threadTrampoline, start.get(), 0, &id);
    if (h == 0)
        return NULL;
    start.release();   // the thread owns it now
    SetHandleInformation((HANDLE)h, HANDLE_FLAG_INHERIT, 0);
    if (threadId)
        *threadId = (uint32_t)id;
    return (void*)h;
}

void joinNativeThread(void* thread)
{
    if (!thread)
        return;
    WaitForSingleObject((HANDLE)thread, INFINITE);
    CloseHandle((HANDLE)thread);
}

bool runMessagePump(SyncHandle ready)
{
    if (FAILED(CoInitialize(NULL)))
        return false;
    // Make sure the thread has a message queue before anybody can post to it.
    MSG msg;
    PeekMessageW(&msg, NULL, WM_USER, WM_USER, PM_NOREMOVE);
    setEvent(ready);
    while (GetMessageW(&msg, NULL, 0, 0) > 0) {
        if (msg.message == PumpQuitMessage)
            break;
        DispatchMessageW(&msg);
    }
    CoUninitialize();
    return true;
}

bool postPumpQuit(uint32_t threadId)
{
    return PostThreadMessageW((DWORD)threadId, PumpQuitMessage, 0, 0) != FALSE;
}

} // namespace os
} // namespace Vardo400
