// HackedCOMMessagePump: a thread that pumps window messages so that single-threaded COM
// objects created on it can be called.
#ifndef VARDO_HACKEDCOMPUMP_H
#define VARDO_HACKEDCOMPUMP_H

#include "vardodefs.h"

namespace Vardo400 {

// init() starts the pump thread and returns once it pumps; abort() ends and joins it.
// On Windows the thread joins a single-threaded COM apartment and dispatches its
// messages until message 1025 (WM_USER) arrives. On Linux there is no COM: the thread
// only waits for abort(), so owners keep one life cycle on both systems.
// One object is not safe for concurrent use.
class VARDO_API HackedCOMMessagePump {
public:
    HackedCOMMessagePump();
    // Aborts the pump thread if it still runs.
    ~HackedCOMMessagePump();
    // Starts the pump thread and waits (without limit) until it runs; returns true. If
    // COM cannot be initialised on the thread the wait never ends. When the pump already
    // runs, returns true at once. Returns false only when the event or the thread cannot
    // be created.
    bool init();
    // Posts message 1025 to the pump thread, waits for it to end and forgets it. Nothing
    // happens when no pump runs.
    void abort();
    // The pump thread's body; arg is the event to set once the thread pumps.
    static unsigned int thread_function(void* arg);

private:
    HackedCOMMessagePump(const HackedCOMMessagePump&) = delete;
    HackedCOMMessagePump& operator=(const HackedCOMMessagePump&) = delete;
    void* m_hThread;
    uint32_t m_threadId;
};

} // namespace Vardo400

#endif
