// SSemaphore and its exceptions.
#include "vardo/ssemaphore.h"

#include "vardo/strace.h"
#include "os/os_sync.h"

namespace Vardo400 {

namespace {

const int32_t MaximumCount = 1000;

SWCharString asciiText(const char* s)
{
    SWCharString w;
    w.fromAscii(s);
    return w;
}

[[noreturn]] void throwError(const char* message)
{
    throw SSemaphoreError(asciiText(message));
}

} // namespace

SWCharString SSemaphoreError::toString() const
{
    return m_message;
}

SWCharString SSemaphoreError::summary() const
{
    return toString() + asciiText(":SSemaphoreError");
}

SWCharString SSemaphoreWaitTimeout::toString() const
{
    return m_message;
}

SWCharString SSemaphoreWaitTimeout::summary() const
{
    return toString() + asciiText(":SSemaphoreWaitTimeout");
}

SSemaphore::SSemaphore() : m_hSemaphore(os::createSemaphore(0, MaximumCount))
{
}

SSemaphore::SSemaphore(unsigned long initialCount)
    : m_hSemaphore(initialCount <= (unsigned long)MaximumCount
                       ? os::createSemaphore((int32_t)initialCount, MaximumCount)
                       : nullptr)
{
}

SSemaphore::~SSemaphore()
{
    if (m_hSemaphore)
        os::closeHandle(m_hSemaphore);
}

void SSemaphore::wait(unsigned long ms)
{
    if (!m_hSemaphore)
        throwError("Semaphore not initialized");
    const uint32_t limit = ms >= (unsigned long)os::WaitInfinite ? os::WaitInfinite : (uint32_t)ms;
    const uint32_t ret = os::waitFor(m_hSemaphore, limit);
    // The time-out carries the "abandoned" text and the abandoned wait the "failed" one.
    if (ret == os::WaitTimeout)
        throw SSemaphoreWaitTimeout(asciiText("Semaphore wait was abandoned"));
    if (ret == os::WaitAbandoned || ret == os::WaitFailed)
        throwError("Semaphore wait failed");
    if (ret != os::WaitSignalled)
        VARDO_ASSERT_TEXT("ret==WAIT_OBJECT_0");
}

void SSemaphore::wait()
{
    wait((unsigned long)os::WaitInfinite);
}

unsigned long SSemaphore::signal(unsigned long count)
{
    if (!m_hSemaphore)
        throwError("Semaphore not initialized");
    int32_t previous = 0;
    if (count == 0 || count > (unsigned long)MaximumCount
        || !os::releaseSemaphore(m_hSemaphore, (int32_t)count, &previous))
        throwError("Semaphore failed to signal");
    return (unsigned long)previous;
}

} // namespace Vardo400
