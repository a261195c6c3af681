// Etc1001204: threads and monitors over the C++ standard library.
#include "vardo/jtc.h"

#include <chrono>
#include <cstdio>
#include <system_error>

namespace Etc1001204 {

namespace {

thread_local JTCThread* t_currentThread = 0;
std::atomic<unsigned long> g_threadNumber(0);

// Longest single wait: longer limits would overflow the clock arithmetic, and a wait
// may end early anyway.
const long MaximumWaitMs = 0x7FFFFFFFL;

std::string generatedName()
{
    char text[40];
    snprintf(text, sizeof text, "JTCThread-%lu", ++g_threadNumber);
    return text;
}

} // namespace

// ---- exceptions ------------------------------------------------------------------------

JTCException::JTCException(const char* message) : m_message(message ? message : "")
{
}

JTCException::~JTCException()
{
}

const char* JTCException::getType() const
{
    return "JTCException";
}

const char* JTCIllegalMonitorStateException::getType() const
{
    return "JTCIllegalMonitorStateException";
}

const char* JTCIllegalThreadStateException::getType() const
{
    return "JTCIllegalThreadStateException";
}

const char* JTCSystemCallException::getType() const
{
    return "JTCSystemCallException";
}

JTCRefCount::~JTCRefCount()
{
}

void JTCRefCount::_incRef() const
{
    m_refCount.fetch_add(1, std::memory_order_relaxed);
}

void JTCRefCount::_decRef() const
{
    if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

long JTCRefCount::_refCount() const
{
    return m_refCount.load(std::memory_order_acquire);
}

// ---- JTCMonitor ------------------------------------------------------------------------------

JTCMonitor::JTCMonitor() : m_owner(), m_nLocks(0)
{
}

JTCMonitor::~JTCMonitor()
{
}

void JTCMonitor::lock() const
{
    const std::thread::id me = std::this_thread::get_id();
    std::unique_lock<std::mutex> lk(m_mutex);
    if (m_nLocks != 0 && m_owner == me) {
        ++m_nLocks;
        return;
    }
    m_free.wait(lk, [this] { return m_nLocks == 0; });
    m_owner = me;
    m_nLocks = 1;
}

void JTCMonitor::unlock() const
{
    std::lock_guard<std::mutex> lk(m_mutex);
    if (m_nLocks == 0 || m_owner != std::this_thread::get_id())
        throw JTCIllegalMonitorStateException("unlock: the calling thread does not hold the monitor");
    if (--m_nLocks == 0) {
        m_owner = std::thread::id();
        // Under the mutex, so a thread that takes the monitor next may destroy it safely.
        m_free.notify_one();
    }
}

void JTCMonitor::waitImpl(bool timed, long ms) const
{
    const std::thread::id me = std::this_thread::get_id();
    std::unique_lock<std::mutex> lk(m_mutex);
    if (m_nLocks == 0 || m_owner != me)
        throw JTCIllegalMonitorStateException("wait: the calling thread does not hold the monitor");
    const unsigned long saved = m_nLocks;
    m_nLocks = 0;
    m_owner = std::thread::id();
    m_free.notify_one();
    if (!timed) {
        m_cond.wait(lk);
    } else if (ms > 0) {
        if (ms > MaximumWaitMs)
            ms = MaximumWaitMs;
        m_cond.wait_for(lk, std::chrono::milliseconds(ms));
    }
    m_free.wait(lk, [this] { return m_nLocks == 0; });
    m_owner = me;
    m_nLocks = saved;
}

void JTCMonitor::wait() const
{
    waitImpl(false, 0);
}

void JTCMonitor::wait(long ms) const
{
    waitImpl(true, ms);
}

void JTCMonitor::notify() const
{
    std::lock_guard<std::mutex> lk(m_mutex);
    if (m_nLocks == 0 || m_owner != std::this_thread::get_id())
        throw JTCIllegalMonitorStateException("notify: the calling thread does not hold the monitor");
    m_cond.notify_one();
}

void JTCMonitor::notifyAll() const
{
    std::lock_guard<std::mutex> lk(m_mutex);
    if (m_nLocks == 0 || m_owner != std::this_thread::get_id())
        throw JTCIllegalMonitorStateException("notifyAll: the calling thread does not hold the monitor");
    m_cond.notify_all();
}

// ---- JTCThread ---------------------------------------------------------------------------------

JTCThread::JTCThread() : m_name(generatedName()), m_state(Created)
{
}

JTCThread::JTCThread(const char* name) : m_name(name ? std::string(name) : generatedName()), m_state(Created)
{
}

JTCThread::~JTCThread()
{
    // The last reference is gone, so the thread is past its last use of this object.
    if (m_thread.joinable()) {
        // The last reference went away on the thread itself: it cannot wait for itself.
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }
}

void JTCThread::run()
{
}

void JTCThread::entry(JTCThread* self)
{
    t_currentThread = self;
    try {
        self->run();
    } catch (...) {
        // Nothing can catch it above this point; the thread ends as if run() returned.
    }
    {
        std::lock_guard<std::mutex> lk(self->m_stateMutex);
        self->m_state = Ended;
        self->m_stateChanged.notify_all();
    }
    t_currentThread = 0;
    // The reference start() took; may delete the object.
    self->_decRef();
}

void JTCThread::start()
{
    bool bFailed = false;
    {
        std::lock_guard<std::mutex> lk(m_stateMutex);
        if (m_state != Created)
            throw JTCIllegalThreadStateException("start: the thread has already been started");
        _incRef();   // the running thread's own reference
        m_state = Running;
        try {
            m_thread = std::thread(&JTCThread::entry, this);
        } catch (const std::system_error&) {
            m_state = Created;
            bFailed = true;
        }
    }
    if (bFailed) {
        _decRef();   // may delete this object: touch nothing after it
        throw JTCSystemCallException("start: no thread could be created");
    }
}

bool JTCThread::waitEnded(bool timed, long ms)
{
    if (t_currentThread == this)
        throw JTCIllegalThreadStateException("join: a thread cannot join itself");
    std::unique_lock<std::mutex> lk(m_stateMutex);
    if (m_state == Created)
        return true;
    if (!timed) {
        m_stateChanged.wait(lk, [this] { return m_state == Ended; });
    } else {
        if (ms > MaximumWaitMs)
            ms = MaximumWaitMs;
        if (ms < 0)
            ms = 0;
        if (!m_stateChanged.wait_for(lk, std::chrono::milliseconds(ms), [this] { return m_state == Ended; }))
            return false;
    }
    if (m_thread.joinable())
        m_thread.join();
    return true;
}

void JTCThread::join()
{
    waitEnded(false, 0);
}

bool JTCThread::join(long ms)
{
    return waitEnded(true, ms);
}

bool JTCThread::isAlive() const
{
    std::lock_guard<std::mutex> lk(m_stateMutex);
    return m_state == Running;
}

JTCThread* JTCThread::currentThread()
{
    return t_currentThread;
}

void JTCThread::sleep(long ms)
{
    if (ms > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(ms > MaximumWaitMs ? MaximumWaitMs : ms));
}

void JTCThread::yield()
{
    std::this_thread::yield();
}

} // namespace Etc1001204
