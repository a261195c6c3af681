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
    unsigned int unchanged = 0;
    int64_t lastSeen = 0;
    bool staleRemoved = false;
    if (m_nMaxAttempts != 0) {
        do {
            int fd = os::fileOpen(m_lockFile, kLockOpenFlags, kDenyNothing, kLockPermissions);
            if (fd != -1) {
                os::fileClose(fd);
                m_bReleased = false;
                int64_t created = 0;
                if (os::fileStatCreationTime(m_lockFile, created) == 0)
                    m_nLockStamp = static_cast<uint32_t>(created);
                return staleRemoved ? staleLockRemoved : success;
            }
            if (errno != EEXIST)
                return createFailed;

            int64_t created = 0;
            if (os::fileStatCreationTime(m_lockFile, created) != 0) {
                // Gone between the create and the status query: someone released it.
                ++unchanged;
                ++attempts;
                pollPause();
            } else if (created != lastSeen) {
                // A new holder: start counting again.
                lastSeen = created;
                unchanged = 0;
                ++attempts;
                pollPause();
            } else if (++unchanged < m_nStalePolls) {
                ++attempts;
                pollPause();
            } else {
                // Unchanged for the whole limit: the holder is presumed dead.
                ++attempts;
                if (ShouldTrace(0, __FILE__))
                    STrace("SFileLock::lockFile: Timeout waiting for file lock");
                staleRemoved = true;
                os::fileRemove(m_lockFile);
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
    int64_t created = 0;
    if (os::fileStatCreationTime(m_lockFile, created) != 0)
        return errno == ENOENT ? notOwner : systemError;
    if (m_nLockStamp != 0 && m_nLockStamp != static_cast<uint32_t>(created)) {
        // Someone else's lock file now: leave it alone.
        m_bReleased = true;
        return notOwner;
    }
    if (os::fileRemove(m_lockFile) != 0)
        return systemError;
    m_bReleased = true;
    return success;
}

} // namespace Vardo400
