// Etc1001204: the thread library the stoppable threads are built on. A thin layer over
// the C++ standard threads: reference-counted thread objects held by handles, and
// Java-style monitors (a recursive lock with one condition).
#ifndef VARDO_JTC_H
#define VARDO_JTC_H

#include "vardodefs.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace Etc1001204 {

// Base of the thread library's exceptions: a type name and a message.
class VARDO_API JTCException {
public:
    explicit JTCException(const char* message = "");
    virtual ~JTCException();
    // The class's name, e.g. "JTCIllegalMonitorStateException".
    virtual const char* getType() const;
    const char* getMessage() const { return m_message.c_str(); }
private:
    std::string m_message;
};

// A monitor operation was called by a thread that does not hold the monitor.
class VARDO_API JTCIllegalMonitorStateException : public JTCException {
public:
    explicit JTCIllegalMonitorStateException(const char* message = "") : JTCException(message) {}
    const char* getType() const override;
};

// A thread operation does not fit the thread's state (start twice, join itself).
class VARDO_API JTCIllegalThreadStateException : public JTCException {
public:
    explicit JTCIllegalThreadStateException(const char* message = "") : JTCException(message) {}
    const char* getType() const override;
};

// The system refused a thread operation (no thread could be created).
class VARDO_API JTCSystemCallException : public JTCException {
public:
    explicit JTCSystemCallException(const char* message = "") : JTCException(message) {}
    const char* getType() const override;
};

// Reference count of the library's shared objects. A new object has count 0: the first
// JTCHandleT to hold it makes it 1, and the handle that drops the last reference deletes
// it. The count is atomic; safe from any thread.
class VARDO_API JTCRefCount {
public:
    JTCRefCount() : m_refCount(0) {}
    virtual ~JTCRefCount();
    void _incRef() const;
    // Drops a reference and deletes the object at 0.
    void _decRef() const;
    long _refCount() const;
private:
    JTCRefCount(const JTCRefCount&) = delete;
    JTCRefCount& operator=(const JTCRefCount&) = delete;
    mutable std::atomic<long> m_refCount;
};

// Counted handle of a T derived (possibly virtually) from JTCRefCount: holds one
// reference while it points at the object. One handle is not safe for concurrent use.
template <class T>
class JTCHandleT {
public:
    JTCHandleT(T* p = 0) : m_p(p) { incRef(m_p); }
    JTCHandleT(const JTCHandleT& o) : m_p(o.m_p) { incRef(m_p); }
    template <class U>
    JTCHandleT(const JTCHandleT<U>& o) : m_p(o.get()) { incRef(m_p); }
    ~JTCHandleT() { decRef(m_p); }
    JTCHandleT& operator=(const JTCHandleT& o) { return assign(o.m_p); }
    JTCHandleT& operator=(T* p) { return assign(p); }
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != 0; }
    bool operator==(const JTCHandleT& o) const { return m_p == o.m_p; }
    bool operator!=(const JTCHandleT& o) const { return m_p != o.m_p; }
private:
    // Kept out of line: inlined copies of these for different T look alike, and some
    // compilers then misjudge the object size behind the virtual base.
    __attribute__((noinline)) static void incRef(T* p) { if (p) p->_incRef(); }
    __attribute__((noinline)) static void decRef(T* p) { if (p) p->_decRef(); }
    JTCHandleT& assign(T* p)
    {
        incRef(p);
        T* old = m_p;
        m_p = p;
        decRef(old);
        return *this;
    }
    T* m_p;
};

// A monitor: a recursive lock plus one condition. wait() and notify() need the lock;
// called without it they throw JTCIllegalMonitorStateException. wait() gives up every
// level of the lock while it waits and takes them all back before it returns; it may
// return without a notify, so callers wait in a loop on their own condition.
class VARDO_API JTCMonitor {
public:
    JTCMonitor();
    virtual ~JTCMonitor();
    void lock() const;
    void unlock() const;
    // Waits for a notify.
    void wait() const;
    // Waits for a notify or until ms milliseconds have passed (ms <= 0: just lets
    // other threads in once).
    void wait(long ms) const;
    // Wakes one / every waiting thread; they run once the notifier leaves the monitor.
    void notify() const;
    void notifyAll() const;
private:
    JTCMonitor(const JTCMonitor&) = delete;
    JTCMonitor& operator=(const JTCMonitor&) = delete;
    void checkOwner(const char* operation) const;
    void waitImpl(bool timed, long ms) const;

    mutable std::mutex m_mutex;                 // guards the fields below
    mutable std::condition_variable m_free;     // the monitor was left
    mutable std::condition_variable m_cond;     // the monitor's condition
    mutable std::thread::id m_owner;
    mutable unsigned long m_nLocks;
};

// Holds a monitor for a scope.
class JTCSynchronized {
public:
    explicit JTCSynchronized(const JTCMonitor& m) : m_monitor(m) { m_monitor.lock(); }
    ~JTCSynchronized() { m_monitor.unlock(); }
private:
    JTCSynchronized(const JTCSynchronized&) = delete;
    JTCSynchronized& operator=(const JTCSynchronized&) = delete;
    const JTCMonitor& m_monitor;
};

class JTCThread;
typedef JTCHandleT<JTCThread> JTCThreadHandle;

// A thread of the library: subclasses override run(); start() runs it on a new thread.
// The thread holds a reference to its own object while it runs, so a handle may be
// dropped at any time. An exception escaping run() ends the thread quietly.
class VARDO_API JTCThread : public virtual JTCRefCount {
public:
    JTCThread();
    // name names the thread for diagnostics (getName()); null means a generated name.
    explicit JTCThread(const char* name);
    ~JTCThread() override;

    // The thread's body. The default does nothing.
    virtual void run();
    // Starts the thread. Throws JTCIllegalThreadStateException when already started,
    // JTCSystemCallException when no thread can be created.
    void start();
    // Waits until run() has returned (at once when never started). Throws
    // JTCIllegalThreadStateException when called by the thread itself.
    void join();
    // As join(), at most ms milliseconds. Returns whether the thread has ended.
    bool join(long ms);
    // True from start() until run() has returned.
    bool isAlive() const;
    const char* getName() const { return m_name.c_str(); }

    // The thread object of the calling thread; null for threads the library did not start.
    static JTCThread* currentThread();
    // Pauses the calling thread.
    static void sleep(long ms);
    static void yield();

private:
    JTCThread(const JTCThread&) = delete;
    JTCThread& operator=(const JTCThread&) = delete;
    static void entry(JTCThread* self);
    bool waitEnded(bool timed, long ms);

    enum State { Created, Running, Ended };
    std::string m_name;
    mutable std::mutex m_stateMutex;
    std::condition_variable m_stateChanged;
    State m_state;
    std::thread m_thread;
};

} // namespace Etc1001204

#endif
