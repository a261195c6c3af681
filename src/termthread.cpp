// TerminatingThread.
#include "vardo/termthread.h"

#include "vardo/strace.h"
#include "os/os_sync.h"

#include <string>

using namespace Etc1001204;

namespace Vardo400 {

TerminatingThread::TerminatingThread() : m_bStop(false), m_bAwake(false)
{
}

TerminatingThread::TerminatingThread(const char* name) : JTCThread(name), m_bStop(false), m_bAwake(false)
{
}

TerminatingThread::~TerminatingThread()
{
}

bool TerminatingThread::isStopped()
{
    JTCSynchronized sync(*this);
    return m_bStop;
}

void TerminatingThread::stop()
{
    JTCSynchronized sync(*this);
    m_bStop = true;
    notify();
}

void TerminatingThread::awake()
{
    JTCSynchronized sync(*this);
    m_bAwake = true;
    notify();
}

bool TerminatingThread::sleep_with_stop_alarm(long ms)
{
    JTCSynchronized sync(*this);
    const uint32_t start = os::tickCount();
    long long elapsed = 0;
    bool bFailed = false;
    while (!m_bStop && !m_bAwake && !bFailed && (long long)ms > elapsed) {
        try {
            wait((long)((long long)ms - elapsed));
        } catch (const JTCException& e) {
            bFailed = true;
            if (ShouldAssert()) {
                std::string text = std::string(e.getType()) + ": " + e.getMessage();
                SAssert(__FILE__, __LINE__, "false", text.c_str());
            }
        } catch (...) {
            bFailed = true;
            VARDO_ASSERT_TEXT("Unknown exception in sleep_with_stop_alarm wait");
        }
        elapsed = (long long)os::tickCount() - (long long)start;
        // The 32-bit tick counter wrapped: take the whole time as spent.
        if (elapsed < 0)
            elapsed = ms;
    }
    // One awake() wakes one sleep only.
    m_bAwake = false;
    return m_bStop;
}

} // namespace Vardo400
