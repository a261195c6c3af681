// TerminatingThread: a thread its owner can tell to stop, with a sleep that a stop (or a
// wake-up) cuts short.
#ifndef VARDO_TERMTHREAD_H
#define VARDO_TERMTHREAD_H

#include "vardodefs.h"
#include "jtc.h"

namespace Vardo400 {

// Derive, implement run() as a loop that ends when sleep_with_stop_alarm() returns true,
// hold the object in an Etc1001204::JTCHandleT<TerminatingThread> (or a handle of the
// subclass), start() it, and finish with stop() then join():
//
//     void MyThread::run() { do { work(); } while (!sleep_with_stop_alarm(60000)); }
//
// The stop and awake flags are read and written only under the object's own monitor, so
// every member is safe from any thread.
class VARDO_API TerminatingThread : public Etc1001204::JTCThread, public Etc1001204::JTCMonitor {
public:
    TerminatingThread();
    // name goes to the thread library's thread.
    explicit TerminatingThread(const char* name);

    // Whether stop() has been called.
    virtual bool isStopped();
    // Tells the thread to stop: sets the stop flag (for good) and wakes a sleeping
    // sleep_with_stop_alarm().
    virtual void stop();
    // Ends the current (or the next) sleep_with_stop_alarm() early, once.
    virtual void awake();
    // Sleeps up to ms milliseconds, ending early on stop() or awake(). Returns true when
    // the thread has been told to stop. Returns at once when stop() or awake() came
    // before the call. Called from the thread itself (any thread is safe).
    virtual bool sleep_with_stop_alarm(long ms);
    ~TerminatingThread() override;

private:
    bool m_bStop;
    bool m_bAwake;
};

} // namespace Vardo400

#endif
