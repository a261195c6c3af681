// CSIProcess.
#include "vardo/csiprocess.h"

#include "os/os_sync.h"

namespace Vardo400 {

uint32_t CSIProcess::GetCurrentProcessId()
{
    return os::currentProcessId();
}

uint32_t CSIProcess::GetCurrentThreadId()
{
    return os::currentThreadId();
}

void CSIProcess::MilliSleep(uint32_t ms)
{
    if (ms == 0)
        os::yieldThread();
    else
        os::sleepMs(ms);
}

void CSIProcess::SecSleep(uint32_t s)
{
    // In slices that fit the millisecond sleep, whatever the number of seconds.
    const uint32_t slice = 1000000u;   // seconds per slice
    while (s > 0) {
        uint32_t n = s < slice ? s : slice;
        os::sleepMs(n * 1000u);
        s -= n;
    }
}

} // namespace Vardo400
