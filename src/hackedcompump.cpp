// HackedCOMMessagePump.
#include "vardo/hackedcompump.h"

#include "os/os_compump.h"
#include "os/os_sync.h"

namespace Vardo400 {

HackedCOMMessagePump::HackedCOMMessagePump() : m_hThread(0), m_threadId(0)
{
}

HackedCOMMessagePump::~HackedCOMMessagePump()
{
    abort();
}

bool HackedCOMMessagePump::init()
{
    if (m_hThread)
        return true;
    os::SyncHandle hReady = os::createEvent(false, false);
    if (!hReady)
        return false;
    uint32_t threadId = 0;
    void* hThread = os::startNativeThread(&HackedCOMMessagePump::thread_function, hReady, &threadId);
    if (!hThread) {
        os::closeHandle(hReady);
        return false;
    }
    m_hThread = hThread;
    m_threadId = threadId;
    os::waitFor(hReady, os::WaitInfinite);
    os::closeHandle(hReady);
    return true;
}

unsigned int HackedCOMMessagePump::thread_function(void* arg)
{
    // When COM cannot be initialised the event stays unset and the pump ends at once.
    os::runMessagePump(static_cast<os::SyncHandle>(arg));
    return 0;
}

void HackedCOMMessagePump::abort()
{
    if (!m_hThread)
        return;
    os::postPumpQuit(m_threadId);
    os::joinNativeThread(m_hThread);
    m_hThread = 0;
    m_threadId = 0;
}

} // namespace Vardo400
