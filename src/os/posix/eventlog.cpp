// The system's event log on Linux: syslog. Lines go straight to the syslog socket (as
// the C library's syslog() sends them) so that every source keeps its own identity;
// openlog() would make it one per process.
#include "os/os_eventlog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Vardo400 {
namespace os {

namespace {

const char kDefaultSocket[] = "/dev/log";
// Facility "user", as syslog() uses when none is chosen.
const int kFacilityUser = 1 << 3;

std::mutex& socketPathLock()
{
    static std::mutex m;
    return m;
}

std::string& socketPath()
{
    static std::string path(kDefaultSocket);
    return path;
}

struct SyslogSource {
    int fd = -1;
    std::string ident;
    std::string path;
};

std::string toUtf8(const SWCharString& s)
{
    unsigned int bound = s.getNBytesForUTF8();
    if (bound == 0xFFFFFFFFu)
        return std::string();
    std::vector<unsigned char> buf(static_cast<size_t>(bound) + 1, 0);
    unsigned int n = s.toUTF8(buf.data(), bound + 1);
    if (n == 0xFFFFFFFFu)
        return std::string();
    if (n > bound)
        n = bound;
    return std::string(reinterpret_cast<const char*>(buf.data()), n);
}

bool connectSource(SyslogSource& src)
{
    if (src.fd >= 0) {
        ::close(src.fd);
        src.fd = -1;
    }
    sockaddr_un addr;
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (src.path.empty() || src.path.size() >= sizeof addr.sun_path)
        return false;
    std::memcpy(addr.sun_path, src.path.data(), src.path.size());
    int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return false;
    }
    src.fd = fd;
    return true;
}

int severityOf(unsigned short type)
{
    switch (type) {
    case 0x0001: return 3;   // error: LOG_ERR
    case 0x0002: return 4;   // warning: LOG_WARNING
    case 0x0008: return 5;   // audit success: LOG_NOTICE
    case 0x0010: return 4;   // audit failure: LOG_WARNING
    case 0x0100: return 7;   // debug: LOG_DEBUG
    default: return 6;       // information (and anything unknown): LOG_INFO
    }
}

} // namespace

bool eventLogIsNT() { return false; }

void* eventSourceOpen(const SWCharString& serverName, const SWCharString& sourceName)
{
    (void)serverName;   // syslog is always this machine's
    std::unique_ptr<SyslogSource> src(new SyslogSource);
    src->ident = toUtf8(sourceName);
    // The identity ends at the first character syslog would read as its end.
    size_t cut = src->ident.find_first_of(": []\n");
    if (cut != std::string::npos)
        src->ident.erase(cut);
    {
        std::lock_guard<std::mutex> lock(socketPathLock());
        src->path = socketPath();
    }
    if (src->ident.empty() || !connectSource(*src))
        return 0;
    return src.release();
}

void eventSourceClose(void* source)
{
    std::unique_ptr<SyslogSource> src(static_cast<SyslogSource*>(source));
    if (src && src->fd >= 0)
        ::close(src->fd);
}

bool eventSourceReport(void* source, unsigned short type, unsigned short category,
                       uint32_t eventId, const void* userSid, const SWCharString& message,
                       uint32_t dataSize, const void* data)
{
    (void)userSid;
    (void)dataSize;
    (void)data;
    SyslogSource* src = static_cast<SyslogSource*>(source);
    if (!src)
        return false;
    // "<PRI>Mmm dd hh:mm:ss ident[pid]: text", the layout syslog() writes.
    char head[128];
    time_t now = ::time(0);
    struct tm local;
    ::localtime_r(&now, &local);
    char stamp[32];
    if (::strftime(stamp, sizeof stamp, "%h %e %T", &local) == 0)
        stamp[0] = 0;
    std::snprintf(head, sizeof head, "<%d>%s ", kFacilityUser | severityOf(type), stamp);
    std::string line(head);
    line += src->ident;
    std::snprintf(head, sizeof head, "[%ld]: ", static_cast<long>(::getpid()));
    line += head;
    if (category != 0 || eventId != 0) {
        std::snprintf(head, sizeof head, "[category %u, event %lu] ",
                      static_cast<unsigned>(category), static_cast<unsigned long>(eventId));
        line += head;
    }
    line += toUtf8(message);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (src->fd >= 0 && ::send(src->fd, line.data(), line.size(), MSG_NOSIGNAL) >= 0)
            return true;
        if (src->fd >= 0 && errno == EMSGSIZE && line.size() > 2048) {
            // Longer than the socket takes in one datagram: keep the start.
            line.resize(2048);
            continue;
        }
        // The syslog daemon may have restarted: connect again once.
        if (attempt == 0 && !connectSource(*src))
            return false;
    }
    return false;
}

} // namespace os

namespace Testing {

void EventLogSetSyslogSocket(const char* path)
{
    std::lock_guard<std::mutex> lock(os::socketPathLock());
    os::socketPath() = (path && *path) ? path : os::kDefaultSocket;
}

} // namespace Testing

} // namespace Vardo400
