// SFileLock: a lock file created exclusively, polled while someone else holds it, and
// broken when it stays unchanged for the stale-poll limit.
#include "vardo/sfilelock.h"

#include "vardo/strace.h"

#include "os/os_file.h"

#include <cerrno>
#include <chrono>
#include <thread>

namespace Vardo400 {

namespace {

// Exclusive creation (create + exclusive) with owner read and write permission.
const int kLockOpenFlags = 0x500;
const int kLockPermissions = 0x180;
const int kDenyNothing = 0x40;
const int kPollMilliseconds = 100;

void pollPause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
}

} // namespace

SFileLock::SFileLock(const SWCharString& lockFile, uint16_t stalePolls, uint16_t maxAttempts,
                     bool unlockOnDestruction)
    : m_bReleased(false), m_bUnlockOnDestruction(unlockOnDestruction), m_lockFile(lockFile),
      m_nStalePolls(stalePolls), m_nMaxAttempts(maxAttempts), m_nLockStamp(0)
{
}

SFileLock::SFileLock(const SFileLock& o)
    : m_bReleased(o.m_bReleased), m_bUnlockOnDestruction(o.m_bUnlockOnDestruction),
      m_lockFile(o.m_lockFile), m_nStalePolls(o.m_nStalePolls), m_nMaxAttempts(o.m_nMaxAttempts),
      m_nLockStamp(o.m_nLockStamp)
{
}

SFileLock& SFileLock::operator=(const SFileLock& o)
{
    m_bReleased = o.m_bReleased;
    m_bUnlockOnDestruction = o.m_bUnlockOnDestruction;
    m_lockFile = o.m_lockFile;
    m_nStalePolls = o.m_nStalePolls;
    m_nMaxAttempts = o.m_nMaxAttempts;
    m_nLockStamp = o.m_nLockStamp;
    return *this;
}

SFileLock::~SFileLock()
{
    if (m_bUnlockOnDestruction && !m_bReleased)
        unlock();
}

SFileLock::ErrorCodes SFileLock::lock()
{
    unsigned int attempts = 0;
    // Consecutive polls that saw the same lock file, the one that first saw it included.
    unsigned int sightings = 0;
    int64_t lastSeen = 0;
    bool staleRemoved = false;
    os::OsError err;
    if (m_nMaxAttempts != 0) {
        do {
            err.clear();
            int fd = os::fileOpen(m_lockFile, kLockOpenFlags, kDenyNothing, kLockPermissions, err);
            if (fd != -1) {
                os::fileClose(fd, err);
                m_bReleased = false;
                int64_t created = 0;
                if (os::fileStatCreationTime(m_lockFile, created, err) == 0)
                    m_nLockStamp = static_cast<uint32_t>(created);
                return staleRemoved ? staleLockRemoved : success;
            }
            // Only an existing lock file is worth waiting for; anything else (a directory
            // in the way included) is reported at once.
            if (err.crtNumber() != EEXIST)
                return createFailed;

            int64_t created = 0;
            ++attempts;
            if (os::fileStatCreationTime(m_lockFile, created, err) != 0) {
                // Gone between the create and the status query: someone released it.
                ++sightings;
                pollPause();
                continue;
            }
            if (created != lastSeen || sightings == 0) {
                // A new holder: start counting again, with this poll.
                lastSeen = created;
                sightings = 1;
            } else {
                ++sightings;
            }
            if (sightings >= m_nStalePolls) {
                // Seen unchanged by the whole limit of polls: the holder is presumed dead.
                if (ShouldTrace(0, __FILE__))
                    STrace("SFileLock::lockFile: Timeout waiting for file lock");
                staleRemoved = true;
                os::fileRemove(m_lockFile, err);
            } else {
                pollPause();
            }
        } while (attempts < m_nMaxAttempts);
    }
    if (ShouldTrace(0, __FILE__))
        STrace("SFileLock::lockFile: Giving up on waiting for file.");
    return gaveUp;
}

SFileLock::ErrorCodes SFileLock::unlock()
{
    if (m_lockFile.isEmpty()) {
        m_bReleased = true;
        return success;
    }
    os::OsError err;
    int64_t created = 0;
    if (os::fileStatCreationTime(m_lockFile, created, err) != 0)
        return err.crtNumber() == ENOENT ? notOwner : systemError;
    if (m_nLockStamp != 0 && m_nLockStamp != static_cast<uint32_t>(created)) {
        // Someone else's lock file now: leave it alone.
        m_bReleased = true;
        return notOwner;
    }
    if (os::fileRemove(m_lockFile, err) != 0)
        return systemError;
    m_bReleased = true;
    return success;
}

} // namespace Vardo400
