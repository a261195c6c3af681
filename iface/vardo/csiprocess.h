// CSIProcess: facts about the running process and simple sleeps.
#ifndef VARDO_CSIPROCESS_H
#define VARDO_CSIPROCESS_H

#include "vardodefs.h"

namespace Vardo400 {

// All members are static and safe from any thread.
class VARDO_API CSIProcess {
public:
    // Identifier of the calling process, as the system numbers it.
    static uint32_t GetCurrentProcessId();
    // Identifier of the calling thread, as the system numbers it (the kernel thread id on
    // Linux), unique among the threads that run at the same time.
    static uint32_t GetCurrentThreadId();
    // Blocks the calling thread for ms milliseconds (0 yields the rest of the time slice).
    static void MilliSleep(uint32_t ms);
    // Blocks the calling thread for s seconds.
    static void SecSleep(uint32_t s);
};

} // namespace Vardo400

#endif
