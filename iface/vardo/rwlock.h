// CRWLock: a fair reader/writer lock, and its scoped lockers.
//
// Threads are served in arrival order by groups: a writer is a group of one; readers that
// arrive one after another form one group and hold the lock together. A reader never
// overtakes a writer that came before it, so writers do not starve under a stream of
// readers. The lock is not recursive (asking again while holding it deadlocks as soon as
// somebody waits in between) and does not check ownership (any thread may release).
// All members are safe from any thread.
#ifndef VARDO_RWLOCK_H
#define VARDO_RWLOCK_H

#include "vardodefs.h"
#include "sexception.h"
#include "sstring.h"

#include <deque>
#include <list>
#include <vector>

namespace Vardo400 {

class VARDO_API CRWLock {
public:
    // What a queue entry stands for.
    enum _WaiterType { Reader = 0, Writer = 1 };

    // Thrown when waiting for the lock fails; carries the wait's result code. Building one
    // raises the assertion "CRWLock::Exception: Error Number " plus the code.
    class VARDO_API Exception : public SException {
    public:
        explicit Exception(long error);
        long getError() const { return m_lError; }
        // "CRWLock::Exception: Error Number " plus the code.
        SWCharString toString() const override;
        // toString() + ":" + the code in decimal.
        SWCharString summary() const override;
    private:
        long m_lError;
    };

    // One entry of the queue as seen by getQueueSnapshot().
    struct QueueEntry {
        _WaiterType m_waiterType;
        long m_nThreads;
    };

    // Takes the processor count once to size the spin of the bookkeeping cell.
    CRWLock();
    // Closes the kept events. The lock must be free (asserts otherwise).
    ~CRWLock();

    // Block until the calling thread shares the lock with its reader group. Throws
    // std::bad_alloc when no event can be had, CRWLock::Exception when the wait fails.
    void AquireReadLock();
    // Block until the calling thread holds the lock alone. Same errors.
    void AquireWriteLock();
    // Leave the lock taken with AquireReadLock / AquireWriteLock. Releasing the last
    // holder of the front group wakes every thread of the next group at once.
    void ReleaseReadLock();
    void ReleaseWriteLock();

    // Inspection for diagnostics and tests: the queue from the owning group to the last
    // waiter, and the number of events kept for reuse. A snapshot only.
    std::vector<QueueEntry> getQueueSnapshot() const;
    size_t getFreeEventCount() const;

private:
    CRWLock(const CRWLock&) = delete;
    CRWLock& operator=(const CRWLock&) = delete;

    struct _WaiterInfo {
        _WaiterType m_waiterType;
        void* m_hEvent;
        long m_nThreads;
    };

    void* GetEventHandle(_WaiterType wt);
    void ReleaseLock(_WaiterType wt);
    // Holds the spin cell for a scope.
    class SpinScope;
    friend class SpinScope;

    // Events of earlier groups, kept for reuse and closed only by the destructor.
    std::list<void*> m_freeEvents;
    // The owning group at the front, then the waiters in arrival order.
    std::deque<_WaiterInfo> m_waitingThreads;
    // Spin cell guarding the two containers: 0 free, 1 held.
    mutable long m_lSpinLock;
    // Turns to spin before yielding: 100 with several processors, 1 with one.
    long m_lSpinCount;
    // List nodes not currently holding a free event, so moving events back and forth
    // does not allocate.
    std::list<void*> m_spareNodes;
};

// Holds a read lock for its lifetime. The pointer must not be null (asserts
// "m_pRWLock != NULL" and then does nothing).
class VARDO_API CReadLocker {
public:
    explicit CReadLocker(CRWLock* pRWLock);
    ~CReadLocker();
private:
    CReadLocker(const CReadLocker&) = delete;
    CReadLocker& operator=(const CReadLocker&) = delete;
    CRWLock* m_pRWLock;
};

// Holds a write lock for its lifetime; as CReadLocker.
class VARDO_API CWriteLocker {
public:
    explicit CWriteLocker(CRWLock* pRWLock);
    ~CWriteLocker();
private:
    CWriteLocker(const CWriteLocker&) = delete;
    CWriteLocker& operator=(const CWriteLocker&) = delete;
    CRWLock* m_pRWLock;
};

// Holds a read lock for its lifetime when given a lock; a null pointer means "no locking".
class VARDO_API CNullableReadLocker {
public:
    explicit CNullableReadLocker(CRWLock* pRWLock);
    ~CNullableReadLocker();
private:
    CNullableReadLocker(const CNullableReadLocker&) = delete;
    CNullableReadLocker& operator=(const CNullableReadLocker&) = delete;
    CRWLock* m_pRWLock;
};

// Holds a write lock for its lifetime when given a lock; a null pointer means "no locking".
class VARDO_API CNullableWriteLocker {
public:
    explicit CNullableWriteLocker(CRWLock* pRWLock);
    ~CNullableWriteLocker();
private:
    CNullableWriteLocker(const CNullableWriteLocker&) = delete;
    CNullableWriteLocker& operator=(const CNullableWriteLocker&) = delete;
    CRWLock* m_pRWLock;
};

// A read locker that can be unlocked and locked again within its scope. Takes the lock
// at construction; releases it at destruction when still locked (an exception from the
// release is swallowed).
class VARDO_API CSmartReadLocker {
public:
    // Thrown by VerifyLocked / VerifyUnlocked when the locker is not in that state.
    class VARDO_API Exception : public SException {
    public:
        Exception() {}
        // "CSmartReadLocker::Exception"
        SWCharString toString() const override;
        // toString() + ":" + "lock state mismatch"
        SWCharString summary() const override;
    };

    explicit CSmartReadLocker(CRWLock& rwLock);
    ~CSmartReadLocker();
    // Takes the lock unless held (asserts "!m_bIsLocked" when it is).
    void Lock();
    // Releases the lock if held (asserts "m_bIsLocked" when it is not).
    void Unlock();
    // Throw CSmartReadLocker::Exception unless locked / unless unlocked.
    void VerifyLocked() const;
    void VerifyUnlocked() const;
private:
    CSmartReadLocker(const CSmartReadLocker&) = delete;
    CSmartReadLocker& operator=(const CSmartReadLocker&) = delete;
    CRWLock& m_rwLock;
    bool m_bIsLocked;
};

// The write-lock counterpart of CSmartReadLocker.
class VARDO_API CSmartWriteLocker {
public:
    class VARDO_API Exception : public SException {
    public:
        Exception() {}
        // "CSmartWriteLocker::Exception"
        SWCharString toString() const override;
        // toString() + ":" + "lock state mismatch"
        SWCharString summary() const override;
    };

    explicit CSmartWriteLocker(CRWLock& rwLock);
    ~CSmartWriteLocker();
    void Lock();
    void Unlock();
    void VerifyLocked() const;
    void VerifyUnlocked() const;
private:
    CSmartWriteLocker(const CSmartWriteLocker&) = delete;
    CSmartWriteLocker& operator=(const CSmartWriteLocker&) = delete;
    CRWLock& m_rwLock;
    bool m_bIsLocked;
};

} // namespace Vardo400

#endif
