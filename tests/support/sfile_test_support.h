// Platform facts and set-ups that the file tests need and that the library does not
// offer: which platform runs, privileges, FIFOs.
#ifndef VARDO_TEST_SFILE_TEST_SUPPORT_H
#define VARDO_TEST_SFILE_TEST_SUPPORT_H

#include <string>

namespace vardo_test {

// True in the Windows build (also under Wine).
bool onWindows();
// True when the process may bypass file permissions (root on Linux; never on Windows).
bool runningAsRoot();
// Linux: gives up root for good (group and user 65534, "nobody"); true when the process
// runs unprivileged afterwards. False on Windows.
bool dropPrivileges();
// Linux: creates a FIFO (named pipe) at path (UTF-8). False on Windows or on failure.
bool makeFifo(const std::string& path);
// Sets the file's permission bits (POSIX mode; on Windows only the owner write bit
// counts, as the read-only attribute). True on success.
bool setFileMode(const std::string& path, int mode);

// Fault injection into the library's system calls, present only when the library was
// built with its test hooks (VARDO_TEST_HOOKS). Each returns false, doing nothing, in a
// build without them; tests then skip what needs a fault.
enum class Fault { open, read, write, commit, copyBytes };
// The call (or, for copyBytes, the byte) after `after` good ones fails with errorNumber,
// once; errorNumber 0 disarms.
bool injectFault(Fault point, int errorNumber, unsigned long long after = 0);
// True when injectFault works in this build.
bool faultsAvailable();
// Linux: points the library's syslog sources at the datagram socket path (UTF-8) instead
// of "/dev/log"; null goes back. False, doing nothing, without the test hooks.
bool redirectSyslog(const char* path);

} // namespace vardo_test

#endif
