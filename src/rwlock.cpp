// CRWLock and its lockers.
#include "vardo/rwlock.h"

#include "vardo/interlocked.h"
#include "vardo/ssystem.h"
#include "vardo/strace.h"
#include "os/os_sync.h"

#include <cstdio>
#include <new>

namespace Vardo400 {

namespace {

// Raises an assertion whose text is a fixed prefix and a number.
void assertWithNumber(const char* file, int line, const char* prefix, long number)
{
    if (!ShouldAssert())
        return;
    char text[96];
    snprintf(text, sizeof text, "%s%ld", prefix, number);
    SAssert(file, line, text);
}

SWCharString asciiText(const char* s)
{
    SWCharString w;
    w.fromAscii(s);
    return w;
}

} // namespace

// ---- CRWLock::Exception ----------------------------------------------------------------

CRWLock::Exception::Exception(long error) : m_lError(error)
{
    assertWithNumber(__FILE__, __LINE__, "CRWLock::Exception: Error Number ", error);
}

SWCharString CRWLock::Exception::toString() const
{
    char text[96];
    snprintf(text, sizeof text, "CRWLock::Exception: Error Number %ld", m_lError);
    return asciiText(text);
}

SWCharString CRWLock::Exception::summary() const
{
    char text[32];
    snprintf(text, sizeof text, ":%ld", m_lError);
    return toString() + asciiText(text);
}

// ---- CRWLock -----------------------------------------------------------------------------

CRWLock::CRWLock()
    : m_lSpinLock(0), m_lSpinCount(SSystem::GetNumberOfProcessors() > 1 ? 100 : 1)
{
    SInterlockedBase::asmInitLock(&m_lSpinLock);
}

CRWLock::~CRWLock()
{
    for (std::list<void*>::iterator i = m_freeEvents.begin(); i != m_freeEvents.end(); ++i) {
        if (!os::closeHandle(*i))
            VARDO_ASSERT_TEXT("CloseHandle( *i )");
    }
    // Events of entries still queued are left alone: somebody may still wait on them.
    VARDO_ASSERT(m_waitingThreads.empty());
}

// Spin cell: exchange with 1 until the old value is 0; between tries spin on plain reads
// with a processor pause, and after the spin count give the time slice away once.
class CRWLock::SpinScope {
public:
    explicit SpinScope(const CRWLock& l) : m_pCell(&l.m_lSpinLock)
    {
        if (SInterlockedBase::asmAcquireLock(m_pCell) == 0)
            return;
        const long spinCount = l.m_lSpinCount;
        for (;;) {
            long n = 0;
            while (__atomic_load_n(m_pCell, __ATOMIC_RELAXED) != 0) {
                os::cpuPause();
                if (n == spinCount) {
                    os::yieldThread();
                    break;
                }
                ++n;
            }
            if (SInterlockedBase::asmAcquireLock(m_pCell) == 0)
                return;
        }
    }
    ~SpinScope() { SInterlockedBase::asmUnlock(m_pCell); }
private:
    SpinScope(const SpinScope&) = delete;
    SpinScope& operator=(const SpinScope&) = delete;
    long* m_pCell;
};

void* CRWLock::GetEventHandle(_WaiterType wt)
{
    SpinScope spin(*this);
    // A reader joins the youngest reader group; it never passes a writer queued earlier.
    if (wt == Reader && !m_waitingThreads.empty() && m_waitingThreads.back().m_waiterType == Reader) {
        _WaiterInfo& last = m_waitingThreads.back();
        ++last.m_nThreads;
        return last.m_hEvent;
    }

    void* hEvent;
    bool bReused = false;
    if (!m_freeEvents.empty()) {
        hEvent = m_freeEvents.front();
        m_spareNodes.splice(m_spareNodes.begin(), m_freeEvents, m_freeEvents.begin());
        bReused = true;
        // A free event is private to the holder of the spin cell.
        os::resetPrivateEvent(hEvent);
    } else {
        hEvent = os::createEvent(true, false);
        if (!hEvent) {
            VARDO_ASSERT_TEXT("RWLOCK: Could not create event");
            throw std::bad_alloc();
        }
    }

    // Not queued yet, so still private: nobody can be waiting on it.
    if (m_waitingThreads.empty()) {
        if (!os::setPrivateEvent(hEvent))
            VARDO_ASSERT_TEXT("SetEvent( hEvent )");
    }

    try {
        m_waitingThreads.emplace_back();
        _WaiterInfo& wi = m_waitingThreads.back();
        wi.m_waiterType = wt;
        wi.m_hEvent = hEvent;
        wi.m_nThreads = 1;
    } catch (...) {
        // Out of memory for the queue: keep the event for later and let the caller fail.
        if (bReused) {
            m_spareNodes.front() = hEvent;
            m_freeEvents.splice(m_freeEvents.begin(), m_spareNodes, m_spareNodes.begin());
        } else {
            os::closeHandle(hEvent);
        }
        throw;
    }
    return hEvent;
}

void CRWLock::ReleaseLock(_WaiterType wt)
{
    SpinScope spin(*this);
    if (m_waitingThreads.empty()) {
        // Released more often than taken: nothing holds the lock.
        VARDO_ASSERT_TEXT("!m_waitingThreads.empty()");
        return;
    }
    _WaiterInfo& wi = m_waitingThreads.front();
    VARDO_ASSERT(wi.m_waiterType == wt);
    VARDO_ASSERT(wi.m_nThreads > 0);
    if (--wi.m_nThreads > 0)
        return;   // other readers of the group still hold the lock

    void* hEvent = wi.m_hEvent;
    if (!m_spareNodes.empty()) {
        m_spareNodes.front() = hEvent;
        m_freeEvents.splice(m_freeEvents.begin(), m_spareNodes, m_spareNodes.begin());
    } else {
        try {
            m_freeEvents.push_front(hEvent);
        } catch (...) {
            // No memory to keep it: the event is simply not reused.
            os::closeHandle(hEvent);
        }
    }
    m_waitingThreads.pop_front();
    // Wake the whole next group at once.
    if (!m_waitingThreads.empty()) {
        if (!os::setEvent(m_waitingThreads.front().m_hEvent))
            VARDO_ASSERT_TEXT("SetEvent( m_waitingThreads.front().m_hEvent )");
    }
}

void CRWLock::AquireReadLock()
{
    void* hEvent = GetEventHandle(Reader);
    uint32_t ret = os::waitFor(hEvent, os::WaitInfinite);
    if (ret != os::WaitSignalled) {
        long error = (long)(int32_t)ret;
        assertWithNumber(__FILE__, __LINE__, "Error waiting for read lock: ", error);
        throw Exception(error);
    }
}

void CRWLock::AquireWriteLock()
{
    void* hEvent = GetEventHandle(Writer);
    uint32_t ret = os::waitFor(hEvent, os::WaitInfinite);
    if (ret != os::WaitSignalled) {
        long error = (long)(int32_t)ret;
        assertWithNumber(__FILE__, __LINE__, "Error waiting for write lock: ", error);
        throw Exception(error);
    }
}

void CRWLock::ReleaseReadLock()
{
    ReleaseLock(Reader);
}

void CRWLock::ReleaseWriteLock()
{
    ReleaseLock(Writer);
}

std::vector<CRWLock::QueueEntry> CRWLock::getQueueSnapshot() const
{
    std::vector<QueueEntry> result;
    result.reserve(8);
    SpinScope spin(*this);
    for (std::deque<_WaiterInfo>::const_iterator i = m_waitingThreads.begin(); i != m_waitingThreads.end(); ++i) {
        QueueEntry e;
        e.m_waiterType = i->m_waiterType;
        e.m_nThreads = i->m_nThreads;
        result.push_back(e);
    }
    return result;
}

size_t CRWLock::getFreeEventCount() const
{
    SpinScope spin(*this);
    return m_freeEvents.size();
}

// ---- plain lockers -------------------------------------------------------------------------

CReadLocker::CReadLocker(CRWLock* pRWLock) : m_pRWLock(pRWLock)
{
    VARDO_ASSERT(m_pRWLock != NULL);
    if (m_pRWLock)
        m_pRWLock->AquireReadLock();
}

CReadLocker::~CReadLocker()
{
    VARDO_ASSERT(m_pRWLock != NULL);
    if (m_pRWLock)
        m_pRWLock->ReleaseReadLock();
}

CWriteLocker::CWriteLocker(CRWLock* pRWLock) : m_pRWLock(pRWLock)
{
    VARDO_ASSERT(m_pRWLock != NULL);
    if (m_pRWLock)
        m_pRWLock->AquireWriteLock();
}

CWriteLocker::~CWriteLocker()
{
    VARDO_ASSERT(m_pRWLock != NULL);
    if (m_pRWLock)
        m_pRWLock->ReleaseWriteLock();
}

CNullableReadLocker::CNullableReadLocker(CRWLock* pRWLock) : m_pRWLock(pRWLock)
{
    if (m_pRWLock)
        m_pRWLock->AquireReadLock();
}

CNullableReadLocker::~CNullableReadLocker()
{
    if (m_pRWLock)
        m_pRWLock->ReleaseReadLock();
}

CNullableWriteLocker::CNullableWriteLocker(CRWLock* pRWLock) : m_pRWLock(pRWLock)
{
    if (m_pRWLock)
        m_pRWLock->AquireWriteLock();
}

CNullableWriteLocker::~CNullableWriteLocker()
{
    if (m_pRWLock)
        m_pRWLock->ReleaseWriteLock();
}

// ---- smart lockers -------------------------------------------------------------------------

SWCharString CSmartReadLocker::Exception::toString() const
{
    return asciiText("CSmartReadLocker::Exception");
}

SWCharString CSmartReadLocker::Exception::summary() const
{
    return toString() + asciiText(":lock state mismatch");
}

CSmartReadLocker::CSmartReadLocker(CRWLock& rwLock) : m_rwLock(rwLock), m_bIsLocked(false)
{
    m_rwLock.AquireReadLock();
    m_bIsLocked = true;
}

CSmartReadLocker::~CSmartReadLocker()
{
    if (m_bIsLocked) {
        try {
            m_rwLock.ReleaseReadLock();
        } catch (...) {
        }
    }
}

void CSmartReadLocker::Lock()
{
    VARDO_ASSERT(!m_bIsLocked);
    if (!m_bIsLocked) {
        m_bIsLocked = true;
        m_rwLock.AquireReadLock();
    }
}

void CSmartReadLocker::Unlock()
{
    VARDO_ASSERT(m_bIsLocked);
    if (m_bIsLocked) {
        m_bIsLocked = false;
        m_rwLock.ReleaseReadLock();
    }
}

void CSmartReadLocker::VerifyLocked() const
{
    if (!m_bIsLocked)
        throw Exception();
}

void CSmartReadLocker::VerifyUnlocked() const
{
    if (m_bIsLocked)
        throw Exception();
}

SWCharString CSmartWriteLocker::Exception::toString() const
{
    return asciiText("CSmartWriteLocker::Exception");
}

SWCharString CSmartWriteLocker::Exception::summary() const
{
    return toString() + asciiText(":lock state mismatch");
}

CSmartWriteLocker::CSmartWriteLocker(CRWLock& rwLock) : m_rwLock(rwLock), m_bIsLocked(false)
{
    m_rwLock.AquireWriteLock();
    m_bIsLocked = true;
}

CSmartWriteLocker::~CSmartWriteLocker()
{
    if (m_bIsLocked) {
        try {
            m_rwLock.ReleaseWriteLock();
        } catch (...) {
        }
    }
}

void CSmartWriteLocker::Lock()
{
    VARDO_ASSERT(!m_bIsLocked);
    if (!m_bIsLocked) {
        m_bIsLocked = true;
        m_rwLock.AquireWriteLock();
    }
}

void CSmartWriteLocker::Unlock()
{
    VARDO_ASSERT(m_bIsLocked);
    if (m_bIsLocked) {
        m_bIsLocked = false;
        m_rwLock.ReleaseWriteLock();
    }
}

void CSmartWriteLocker::VerifyLocked() const
{
    if (!m_bIsLocked)
        throw Exception();
}

void CSmartWriteLocker::VerifyUnlocked() const
{
    if (m_bIsLocked)
        throw Exception();
}

} // namespace Vardo400
