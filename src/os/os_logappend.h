// Appends to log files that several processes share: an exclusive append lock on an open
// descriptor, a test whether a descriptor still is the file its name leads to, and a
// rename that never replaces an existing file. Not installed.
#ifndef VARDO_OS_LOGAPPEND_H
#define VARDO_OS_LOGAPPEND_H

namespace Vardo400 {

class SWCharString;

namespace os {

// Blocks until fd holds the exclusive append lock of its file, against every other
// descriptor of the file in this process or another. Closing the descriptor releases
// it. False (errno set) when the platform refuses the lock; the caller then appends
// unlocked.
bool appendLock(int fd);

// Whether fd still is the file that path names: false once that name was renamed,
// removed or now leads to another file. True when it cannot tell.
bool appendIsCurrent(int fd, const SWCharString& path);

// Renames the file from to to, never replacing an existing to. 0, or -1 with errno:
// EEXIST when to exists, EBUSY when the platform refuses to rename a file that is open
// (Windows), ENOENT when from is gone, else the system's reason.
int renameNoReplace(const SWCharString& from, const SWCharString& to);

} // namespace os
} // namespace Vardo400

#endif
