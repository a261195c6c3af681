#include "sfile_test_support.h"

#if defined(VARDO_TEST_HOOKS)
#  include "os/os_eventlog.h"
#  include "os/os_faults.h"
#endif

#include <sys/stat.h>
#if defined(_WIN32)
#  include <windows.h>
#  include <io.h>
#else
#  include <grp.h>
#  include <unistd.h>
#endif

namespace vardo_test {

#if defined(_WIN32)

bool onWindows() { return true; }
bool runningAsRoot() { return false; }
bool dropPrivileges() { return false; }
bool makeFifo(const std::string&) { return false; }

bool setFileMode(const std::string& path, int mode)
{
    std::wstring w(MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, &w[0], static_cast<int>(w.size()));
    return _wchmod(w.c_str(), (mode & 0200) ? (_S_IREAD | _S_IWRITE) : _S_IREAD) == 0;
}

#else

bool onWindows() { return false; }
bool runningAsRoot() { return geteuid() == 0; }

bool dropPrivileges()
{
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
        return false;
    return geteuid() != 0;
}

bool makeFifo(const std::string& path) { return mkfifo(path.c_str(), 0600) == 0; }
bool setFileMode(const std::string& path, int mode) { return chmod(path.c_str(), static_cast<mode_t>(mode)) == 0; }

#endif

#if defined(VARDO_TEST_HOOKS)

bool faultsAvailable() { return true; }

bool redirectSyslog(const char* path)
{
    Vardo400::Testing::EventLogSetSyslogSocket(path);
    return true;
}

bool injectFault(Fault point, int errorNumber, unsigned long long after)
{
    using namespace Vardo400::os;
    static const FaultPoint kPoints[] = {faultFileOpen, faultFileRead, faultFileWrite, faultFileCommit,
                                         faultCopyBytes};
    injectFault(kPoints[static_cast<int>(point)], errorNumber, after);
    return true;
}

#else

bool faultsAvailable() { return false; }
bool injectFault(Fault, int, unsigned long long) { return false; }
bool redirectSyslog(const char*) { return false; }

#endif

} // namespace vardo_test
