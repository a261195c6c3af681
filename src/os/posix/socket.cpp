// BSD sockets behind the Winsock conventions: errno and resolver codes become Winsock
// numbers, kept per thread as WSAGetLastError keeps them; readiness waits use poll so any
// descriptor number works.
#include "os/os_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace Vardo400 {
namespace os {

namespace {

thread_local int t_lastError = 0;

// errno to the Winsock number. Numbers up to 34 agree between BSD and Linux, so those
// map by the Winsock rule (10000 + number); the rest by name.
int mapErrno(int e)
{
    switch (e) {
    case EWOULDBLOCK: return 10035;
    case EINPROGRESS: return 10036;
    case EALREADY: return 10037;
    case ENOTSOCK: return 10038;
    case EDESTADDRREQ: return 10039;
    case EMSGSIZE: return 10040;
    case EPROTOTYPE: return 10041;
    case ENOPROTOOPT: return 10042;
    case EPROTONOSUPPORT: return 10043;
    case ESOCKTNOSUPPORT: return 10044;
    case EOPNOTSUPP: return 10045;
    case EPFNOSUPPORT: return 10046;
    case EAFNOSUPPORT: return 10047;
    case EADDRINUSE: return 10048;
    case EADDRNOTAVAIL: return 10049;
    case ENETDOWN: return 10050;
    case ENETUNREACH: return 10051;
    case ENETRESET: return 10052;
    case ECONNABORTED: return 10053;
    case ECONNRESET: return 10054;
    case EPIPE: return 10054;        // the peer is gone: Winsock reports a reset
    case ENOBUFS: return 10055;
    case EISCONN: return 10056;
    case ENOTCONN: return 10057;
    case ESHUTDOWN: return 10058;
    case ETOOMANYREFS: return 10059;
    case ETIMEDOUT: return 10060;
    case ECONNREFUSED: return 10061;
    case ELOOP: return 10062;
    case ENAMETOOLONG: return 10063;
    case EHOSTDOWN: return 10064;
    case EHOSTUNREACH: return 10065;
    case ENOMEM: return 10055;
    default: break;
    }
    if (e > 0 && e <= 34)
        return 10000 + e;
    return 10022;   // WSAEINVAL for anything without a Winsock counterpart
}

int fail()
{
    t_lastError = mapErrno(errno);
    return -1;
}

int mapResolver(int rc)
{
    switch (rc) {
    case 0: return 0;
    case EAI_AGAIN: return 11002;
    case EAI_FAIL: return 11003;
#ifdef EAI_NODATA
    case EAI_NODATA: return 11004;
#endif
    case EAI_MEMORY: return 10055;
    case EAI_SYSTEM: return mapErrno(errno);
    default: return 11001;
    }
}

int resolverFailed(int rc)
{
    t_lastError = mapResolver(rc);
    return t_lastError;
}

Address fromNative(const sockaddr* sa, socklen_t len)
{
    Address a;
    std::memset(&a, 0, sizeof a);
    a.family = sa->sa_family == AF_INET6 ? 6 : 4;
    a.length = (int)(len < sizeof a.bytes ? len : sizeof a.bytes);
    std::memcpy(a.bytes, sa, (size_t)a.length);
    return a;
}

} // namespace

bool startup(int, int) { return true; }
int cleanup() { return 0; }
void cancelBlockingCall() {}

int lastError() { return t_lastError; }

Socket socketCreate(int family, int type, int protocol)
{
    int fd = ::socket(family, type | SOCK_CLOEXEC, protocol);
    if (fd < 0) {
        fail();
        return InvalidSocket;
    }
    return (Socket)fd;
}

Socket socketAccept(Socket s, void* address, int* length)
{
    socklen_t len = length ? (socklen_t)*length : 0;
    int fd = ::accept4((int)s, (sockaddr*)address, length ? &len : nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        int saved = errno;
        fail();
        errno = saved;
        return InvalidSocket;
    }
    if (length)
        *length = (int)len;
    return (Socket)fd;
}

int socketConnect(Socket s, const void* address, int length)
{
    return ::connect((int)s, (const sockaddr*)address, (socklen_t)length) == 0 ? 0 : fail();
}

int socketBind(Socket s, const void* address, int length)
{
    return ::bind((int)s, (const sockaddr*)address, (socklen_t)length) == 0 ? 0 : fail();
}

int socketListen(Socket s, int backlog)
{
    return ::listen((int)s, backlog) == 0 ? 0 : fail();
}

int socketSelect(int count, void* readSet, void* writeSet, void* exceptSet, void* timeout)
{
    int rc = ::select(count, (fd_set*)readSet, (fd_set*)writeSet, (fd_set*)exceptSet, (timeval*)timeout);
    return rc < 0 ? fail() : rc;
}

int socketRecv(Socket s, char* buffer, int length, int flags)
{
    ssize_t n = ::recv((int)s, buffer, length < 0 ? 0 : (size_t)length, flags);
    return n < 0 ? fail() : (int)n;
}

int socketSend(Socket s, const char* buffer, int length, int flags)
{
    ssize_t n = ::send((int)s, buffer, length < 0 ? 0 : (size_t)length, flags | MSG_NOSIGNAL);
    return n < 0 ? fail() : (int)n;
}

int socketShutdown(Socket s, int how)
{
    return ::shutdown((int)s, how) == 0 ? 0 : fail();
}

int socketClose(Socket s)
{
    // The descriptor is released even when close reports an interruption.
    return ::close((int)s) == 0 ? 0 : fail();
}

int socketGetsockname(Socket s, void* address, int* length)
{
    socklen_t len = length ? (socklen_t)*length : 0;
    if (::getsockname((int)s, (sockaddr*)address, &len) != 0)
        return fail();
    if (length)
        *length = (int)len;
    return 0;
}

int socketSetNonBlocking(Socket s, bool on)
{
    int flags = ::fcntl((int)s, F_GETFL);
    if (flags < 0)
        return fail();
    flags = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return ::fcntl((int)s, F_SETFL, flags) == 0 ? 0 : fail();
}

int socketSetNoDelay(Socket s)
{
    int on = 1;
    return ::setsockopt((int)s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 ? 0 : fail();
}

int socketPendingError(Socket s)
{
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt((int)s, SOL_SOCKET, SO_ERROR, &err, &len) != 0) {
        fail();
        return t_lastError;
    }
    return err ? mapErrno(err) : 0;
}

int nativeFamily(int family) { return family == 6 ? AF_INET6 : AF_INET; }
int streamType() { return SOCK_STREAM; }
int tcpProtocol() { return IPPROTO_TCP; }
int shutdownSend() { return SHUT_WR; }

int waitReady(Socket s, bool forWriting, int64_t ms)
{
    pollfd p;
    p.fd = (int)s;
    p.events = forWriting ? POLLOUT : POLLIN;
    p.revents = 0;
    int timeout = ms < 0 ? -1 : (ms > INT_MAX ? INT_MAX : (int)ms);
    int rc = ::poll(&p, 1, timeout);
    if (rc < 0)
        return fail();
    if (rc == 0)
        return 0;
    if (p.revents & POLLNVAL) {
        t_lastError = 10038;   // WSAENOTSOCK
        return -1;
    }
    // Errors and hang-ups make the socket "ready": the next call reports them, as
    // select does.
    return 1;
}

bool parseIPv4(const char* text, uint32_t& hostOrder)
{
    in_addr a;
    if (!text || ::inet_pton(AF_INET, text, &a) != 1)
        return false;
    hostOrder = ntohl(a.s_addr);
    return true;
}

bool parseIPv6(const char* text, uint16_t port, Address& out)
{
    sockaddr_in6 sa;
    std::memset(&sa, 0, sizeof sa);
    if (!text || ::inet_pton(AF_INET6, text, &sa.sin6_addr) != 1)
        return false;
    sa.sin6_family = AF_INET6;
    sa.sin6_port = htons(port);
    out = fromNative((const sockaddr*)&sa, sizeof sa);
    return true;
}

Address ipv4Address(uint32_t hostOrder, uint16_t port)
{
    sockaddr_in sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(hostOrder);
    return fromNative((const sockaddr*)&sa, sizeof sa);
}

uint32_t ipv4Value(const Address& a)
{
    if (a.family != 4)
        return 0;
    sockaddr_in sa;
    std::memcpy(&sa, a.bytes, sizeof sa);
    return ntohl(sa.sin_addr.s_addr);
}

std::string addressText(const Address& a)
{
    char text[INET6_ADDRSTRLEN + 1] = {0};
    if (a.family == 6) {
        sockaddr_in6 sa;
        std::memcpy(&sa, a.bytes, sizeof sa);
        ::inet_ntop(AF_INET6, &sa.sin6_addr, text, sizeof text);
    } else {
        sockaddr_in sa;
        std::memcpy(&sa, a.bytes, sizeof sa);
        ::inet_ntop(AF_INET, &sa.sin_addr, text, sizeof text);
    }
    return text;
}

int resolve(const char* name, uint16_t port, int family, std::vector<Address>& out)
{
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = family == 4 ? AF_INET : family == 6 ? AF_INET6 : AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    int rc = ::getaddrinfo(name, nullptr, &hints, &list);
    if (rc != 0)
        return resolverFailed(rc);
    for (addrinfo* p = list; p; p = p->ai_next) {
        if (p->ai_family != AF_INET && p->ai_family != AF_INET6)
            continue;
        Address a = fromNative(p->ai_addr, p->ai_addrlen);
        if (p->ai_family == AF_INET)
            ((sockaddr_in*)a.bytes)->sin_port = htons(port);
        else
            ((sockaddr_in6*)a.bytes)->sin6_port = htons(port);
        out.push_back(a);
    }
    ::freeaddrinfo(list);
    return 0;
}

int canonicalName(const char* name, std::string& out)
{
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* list = nullptr;
    int rc = ::getaddrinfo(name, nullptr, &hints, &list);
    if (rc != 0)
        return resolverFailed(rc);
    out = list && list->ai_canonname ? list->ai_canonname : name;
    ::freeaddrinfo(list);
    return 0;
}

int reverseLookup(const Address& a, std::string& name)
{
    char host[NI_MAXHOST] = {0};
    int rc = ::getnameinfo((const sockaddr*)a.bytes, (socklen_t)a.length, host, sizeof host, nullptr, 0,
                           NI_NAMEREQD);
    if (rc != 0)
        return resolverFailed(rc);
    name = host;
    return 0;
}

int hostName(std::string& name)
{
    char host[256] = {0};
    if (::gethostname(host, sizeof host - 1) != 0) {
        fail();
        return t_lastError;
    }
    name = host;
    return 0;
}

bool localIPv4Addresses(std::vector<uint32_t>& out)
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        fail();
        return false;
    }
    std::vector<uint32_t> loopback;
    for (ifaddrs* p = list; p; p = p->ifa_next) {
        if (!p->ifa_addr || p->ifa_addr->sa_family != AF_INET || !(p->ifa_flags & IFF_UP))
            continue;
        uint32_t v = ntohl(((const sockaddr_in*)p->ifa_addr)->sin_addr.s_addr);
        ((p->ifa_flags & IFF_LOOPBACK) ? loopback : out).push_back(v);
    }
    ::freeifaddrs(list);
    out.insert(out.end(), loopback.begin(), loopback.end());
    return true;
}

int servicePort(const char* name, const char* protocol)
{
    if (!name || !*name)
        return -1;
    servent entry;
    servent* result = nullptr;
    char buffer[4096];
    if (::getservbyname_r(name, protocol, &entry, buffer, sizeof buffer, &result) != 0 || !result)
        return -1;
    return ntohs((uint16_t)result->s_port);
}

} // namespace os
} // namespace Vardo400
