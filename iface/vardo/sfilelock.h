// SFileLock: a cooperative lock between processes (and threads), held as the existence
// of a lock file that only one party can create.
//
// lock() creates the lock file exclusively. While another party holds it, lock() polls
// every 100 ms. A lock file whose creation time (whole seconds, as the file status
// gives it; on Linux the status-change time, which a lock file keeps from its creation)
// is the same at the stale-poll limit of consecutive polls (the poll that first saw it
// counts) is taken to belong to a dead holder: that poll deletes it and lock() tries
// again at once, as its next attempt. So stale polls + 1 attempts are enough to break a
// stale lock and take it. A holder must therefore release the lock within about
// stale polls x 100 ms, or others will break it. The longest wait is about maximum
// attempts x 100 ms. A directory at the lock file's path is no lock: lock() returns
// createFailed at once.
//
// No member throws for file-system conditions; results are ErrorCodes. Thread-safety: one
// object belongs to one thread at a time; separate objects on the same path exclude
// each other across threads and processes.
#ifndef VARDO_SFILELOCK_H
#define VARDO_SFILELOCK_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

class VARDO_API SFileLock {
public:
    enum ErrorCodes {
        success = 0,             // lock taken, or unlock done
        gaveUp = 2,              // lock: every attempt used
        systemError = 3,         // unlock: status query or delete failed
        staleLockRemoved = 4,    // lock taken after deleting a stale lock file
        notOwner = 5,            // unlock: the file is gone or belongs to another holder
        createFailed = 6         // lock: creating the file failed other than by existing
    };

    // lockFile: the file whose existence is the lock. stalePolls: consecutive polls that
    // must see the same lock file before it is declared stale (0 and 1: the first). maxAttempts: attempts lock()
    // makes (0: it gives up at once). unlockOnDestruction: the destructor calls unlock()
    // unless the object is already released.
    SFileLock(const SWCharString& lockFile, uint16_t stalePolls, uint16_t maxAttempts,
              bool unlockOnDestruction);
    // Copies every field, including the stamp and the released flag.
    SFileLock(const SFileLock& other);
    SFileLock& operator=(const SFileLock& other);
    // Calls unlock() when unlockOnDestruction is set and the object is not released. An
    // object that never locked therefore still deletes an existing lock file here.
    ~SFileLock();

    // Takes the lock: success, staleLockRemoved, gaveUp or createFailed. Blocks while
    // polling (100 ms a poll). On success the object records the lock file's creation
    // time as its stamp.
    ErrorCodes lock();
    // Releases the lock by deleting the lock file: success (also for an empty path),
    // notOwner when the file is gone or its creation time differs from the stamp (it is
    // then left in place), systemError when the status query or the delete fails.
    ErrorCodes unlock();

    const SWCharString& getLockFile() const { return m_lockFile; }
    // Creation time recorded by the last successful lock(); 0 before.
    uint32_t getLockStamp() const { return m_nLockStamp; }
    bool isReleased() const { return m_bReleased; }

private:
    bool m_bReleased;
    bool m_bUnlockOnDestruction;
    SWCharString m_lockFile;
    uint16_t m_nStalePolls;
    uint16_t m_nMaxAttempts;
    uint32_t m_nLockStamp;
};

} // namespace Vardo400

#endif
