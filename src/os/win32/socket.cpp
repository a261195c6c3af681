// Winsock 2 sockets. Numbers are Winsock's own; sockets are made non-inheritable at once.
#include "os/os_socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstring>

namespace Vardo400 {
namespace os {

namespace {

// The error of the thread's last failing socket call, kept apart from GetLastError,
// which any later Win32 call may overwrite.
thread_local int t_lastError = 0;

int fail()
{
    t_lastError = WSAGetLastError();
    return -1;
}

Socket failedSocket()
{
    t_lastError = WSAGetLastError();
    return InvalidSocket;
}

Address fromNative(const sockaddr* sa, int len)
{
    Address a;
    std::memset(&a, 0, sizeof a);
    a.family = sa->sa_family == AF_INET6 ? 6 : 4;
    a.length = len < (int)sizeof a.bytes ? len : (int)sizeof a.bytes;
    std::memcpy(a.bytes, sa, (size_t)a.length);
    return a;
}

Socket notInheritable(SOCKET s)
{
    if (s == INVALID_SOCKET)
        return failedSocket();
    SetHandleInformation((HANDLE)s, HANDLE_FLAG_INHERIT, 0);
    return (Socket)s;
}

int resolverFailed(int rc)
{
    t_lastError = rc;
    return rc;
}

// Name resolution needs Winsock started; callers of the resolution functions may not
// have started it, so these take their own reference for the call.
struct ScopedStartup {
    ScopedStartup()
    {
        WSADATA data;
        m_bStarted = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    ~ScopedStartup()
    {
        if (m_bStarted)
            WSACleanup();
    }
    bool m_bStarted;
};

} // namespace

bool startup(int major, int minor)
{
    WSADATA data;
    return WSAStartup(MAKEWORD(major, minor), &data) == 0;
}

int cleanup()
{
    if (WSACleanup() == 0)
        return 0;
    fail();
    return t_lastError;
}

void cancelBlockingCall()
{
    WSACancelBlockingCall();
}

int lastError() { return t_lastError; }

Socket socketCreate(int family, int type, int protocol)
{
    return notInheritable(::WSASocketW(family, type, protocol, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT));
}

Socket socketAccept(Socket s, void* address, int* length)
{
    return notInheritable(::accept((SOCKET)s, (sockaddr*)address, length));
}

int socketConnect(Socket s, const void* address, int length)
{
    if (::connect((SOCKET)s, (const sockaddr*)address, length) == 0)
        return 0;
    fail();
    // A socket whose connect was refused cannot connect again; Winsock reports the later
    // attempts as aborted. They stem from the refusal, and the retry rules treat them so.
    if (t_lastError == WSAECONNABORTED)
        t_lastError = WSAECONNREFUSED;
    return -1;
}

int socketBind(Socket s, const void* address, int length)
{
    return ::bind((SOCKET)s, (const sockaddr*)address, length) == 0 ? 0 : fail();
}

int socketListen(Socket s, int backlog)
{
    return ::listen((SOCKET)s, backlog) == 0 ? 0 : fail();
}

int socketSelect(int count, void* readSet, void* writeSet, void* exceptSet, void* timeout)
{
    int rc = ::select(count, (fd_set*)readSet, (fd_set*)writeSet, (fd_set*)exceptSet, (timeval*)timeout);
    return rc == SOCKET_ERROR ? fail() : rc;
}

int socketRecv(Socket s, char* buffer, int length, int flags)
{
    int n = ::recv((SOCKET)s, buffer, length, flags);
    return n == SOCKET_ERROR ? fail() : n;
}

int socketSend(Socket s, const char* buffer, int length, int flags)
{
    int n = ::send((SOCKET)s, buffer, length, flags);
    return n == SOCKET_ERROR ? fail() : n;
}

int socketShutdown(Socket s, int how)
{
    return ::shutdown((SOCKET)s, how) == 0 ? 0 : fail();
}

int socketClose(Socket s)
{
    return ::closesocket((SOCKET)s) == 0 ? 0 : fail();
}

int socketGetsockname(Socket s, void* address, int* length)
{
    return ::getsockname((SOCKET)s, (sockaddr*)address, length) == 0 ? 0 : fail();
}

int socketSetNonBlocking(Socket s, bool on)
{
    u_long mode = on ? 1 : 0;
    return ::ioctlsocket((SOCKET)s, FIONBIO, &mode) == 0 ? 0 : fail();
}

int socketSetNoDelay(Socket s)
{
    BOOL on = TRUE;
    return ::setsockopt((SOCKET)s, IPPROTO_TCP, TCP_NODELAY, (const char*)&on, sizeof on) == 0 ? 0 : fail();
}

int socketPendingError(Socket s)
{
    int err = 0;
    int len = sizeof err;
    if (::getsockopt((SOCKET)s, SOL_SOCKET, SO_ERROR, (char*)&err, &len) != 0) {
        fail();
        return t_lastError;
    }
    return err;
}

int nativeFamily(int family) { return family == 6 ? AF_INET6 : AF_INET; }
int streamType() { return SOCK_STREAM; }
int tcpProtocol() { return IPPROTO_TCP; }
int shutdownSend() { return SD_SEND; }

int waitReady(Socket s, bool forWriting, int64_t ms)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET((SOCKET)s, &set);
    fd_set errors;
    FD_ZERO(&errors);
    FD_SET((SOCKET)s, &errors);
    timeval tv;
    timeval* limit = nullptr;
    if (ms >= 0) {
        int64_t seconds = ms / 1000;
        tv.tv_sec = seconds > 0x7FFFFFFF ? 0x7FFFFFFF : (long)seconds;
        tv.tv_usec = (long)((ms % 1000) * 1000);
        limit = &tv;
    }
    // A failed connect shows in the error set; report it as ready so the caller's next
    // call sees the failure, as on POSIX.
    int rc = ::select(0, forWriting ? nullptr : &set, forWriting ? &set : nullptr, &errors, limit);
    if (rc == SOCKET_ERROR)
        return fail();
    return rc > 0 ? 1 : 0;
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
    out = fromNative((const sockaddr*)&sa, (int)sizeof sa);
    return true;
}

Address ipv4Address(uint32_t hostOrder, uint16_t port)
{
    sockaddr_in sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(hostOrder);
    return fromNative((const sockaddr*)&sa, (int)sizeof sa);
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
    char text[64] = {0};
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
    ScopedStartup started;
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
        Address a = fromNative(p->ai_addr, (int)p->ai_addrlen);
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
    ScopedStartup started;
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
    ScopedStartup started;
    char host[NI_MAXHOST] = {0};
    int rc = ::getnameinfo((const sockaddr*)a.bytes, a.length, host, sizeof host, nullptr, 0, NI_NAMEREQD);
    if (rc != 0)
        return resolverFailed(rc);
    name = host;
    return 0;
}

int hostName(std::string& name)
{
    ScopedStartup started;
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
    std::string name;
    if (hostName(name) != 0)
        return false;
    std::vector<Address> list;
    if (resolve(name.c_str(), 0, 4, list) != 0)
        return false;
    std::vector<uint32_t> loopback;
    for (const Address& a : list) {
        uint32_t v = ipv4Value(a);
        ((v >> 24) == 127 ? loopback : out).push_back(v);
    }
    out.insert(out.end(), loopback.begin(), loopback.end());
    return true;
}

int servicePort(const char* name, const char* protocol)
{
    if (!name || !*name)
        return -1;
    ScopedStartup started;
    // Winsock keeps the result in storage of the calling thread.
    servent* entry = ::getservbyname(name, protocol);
    return entry ? ntohs((u_short)entry->s_port) : -1;
}

} // namespace os
} // namespace Vardo400
