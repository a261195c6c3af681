// Platform facts and set-ups that the file tests need and that the library does not
// offer: which platform runs, privileges, FIFOs, fault injection.
#ifndef VARDO_TEST_SFILE_TEST_SUPPORT_H
#define VARDO_TEST_SFILE_TEST_SUPPORT_H

#include <string>

namespace vardo_test {

// True in the Windows build (also under Wine).
bool onWindows();
// True when the process may bypass file permissions (root on Linux; never on Windows).
bool runningAsRoot();
// Linux: gives up root for good (user and group 65534, "nobody"); true when the process
// runs unprivileged afterwards. False on Windows.
bool dropPrivileges();
// Linux: creates a FIFO at path (UTF-8). False on Windows or on failure.
bool makeFifo(const std::string& path);
// Sets the file's POSIX permission bits (on Windows only the owner write bit counts, as
// the read-only attribute). True on success.
bool setFileMode(const std::string& path, int mode);

// Fault injection into the library's system calls. Without the library's test hooks
// (VARDO_TEST_HOOKS) each returns false and does nothing; tests then skip what needs it.
enum class Fault { open, read, write, commit, copyBytes };
// The call (for copyBytes the byte) after `after` good ones fails once with errorNumber;
// errorNumber 0 disarms.
bool injectFault(Fault point, int errorNumber, unsigned long long after = 0);
bool faultsAvailable();
// Linux: points the library's syslog sources at the datagram socket path (UTF-8) instead
// of "/dev/log"; null goes back.
bool redirectSyslog(const char* path);

} // namespace vardo_test

#endif
