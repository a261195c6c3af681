// Scripted loopback peers over the platform's own sockets.
#include "socket_peer.h"

#include <algorithm>
#include <chrono>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
typedef int socklen_t;
#define PEER_CLOSE closesocket
#define PEER_NOSIGNAL 0
#define PEER_POLL WSAPoll
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#define PEER_CLOSE ::close
#define PEER_NOSIGNAL MSG_NOSIGNAL
#define PEER_POLL poll
#endif

namespace vardo_test {

namespace {

void ensureStarted()
{
#ifdef _WIN32
    static const bool started = [] {
        WSADATA d;
        return WSAStartup(MAKEWORD(2, 2), &d) == 0;
    }();
    (void)started;
#endif
}

// 1 readable, 0 time passed, -1 error. poll, not select: the peer's descriptors may be
// above FD_SETSIZE.
int waitReadable(intptr_t fd, int ms)
{
    pollfd p = {(decltype(p.fd))fd, POLLIN, 0};
    int rc = PEER_POLL(&p, 1, ms);
    return rc < 0 ? -1 : rc > 0 ? 1 : 0;
}

// Binds s to the loopback address on an ephemeral port; returns the port.
uint16_t bindLoopback(intptr_t s, bool ipv6)
{
    sockaddr_in6 a6 = {};
    sockaddr_in a4 = {};
    a6.sin6_family = AF_INET6;
    a6.sin6_addr = in6addr_loopback;
    a4.sin_family = AF_INET;
    a4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr* a = ipv6 ? (sockaddr*)&a6 : (sockaddr*)&a4;
    socklen_t len = ipv6 ? sizeof a6 : sizeof a4;
    bind(s, a, len);
    getsockname(s, a, &len);
    return ntohs(ipv6 ? a6.sin6_port : a4.sin_port);
}

} // namespace

int64_t nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void PeerConn::close()
{
    if (m_fd >= 0)
        PEER_CLOSE(m_fd);
    m_fd = -1;
}

bool PeerConn::send(const std::string& bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        int piece = (int)std::min<size_t>(bytes.size() - done, 1u << 20);
        int n = (int)::send(m_fd, bytes.data() + done, piece, PEER_NOSIGNAL);
        if (n <= 0)
            return false;
        done += (size_t)n;
    }
    return true;
}

void PeerConn::fill(const std::function<bool()>& enough, int ms)
{
    int64_t end = nowMs() + ms;
    char buffer[65536];
    while (!enough() && m_fd >= 0) {
        int64_t left = end - nowMs();
        if (left <= 0 || waitReadable(m_fd, (int)left) != 1)
            return;
        int n = (int)::recv(m_fd, buffer, (int)sizeof buffer, 0);
        if (n <= 0)
            return;
        m_pending.append(buffer, (size_t)n);
    }
}

std::string PeerConn::take(size_t n)
{
    std::string r = m_pending.substr(0, n);
    m_pending.erase(0, n);
    return r;
}

std::string PeerConn::recvSome(int ms)
{
    fill([this] { return !m_pending.empty(); }, ms);
    return take(std::string::npos);
}

std::string PeerConn::recvUntil(const std::string& end, int ms)
{
    size_t at = std::string::npos;
    fill([&] { return (at = m_pending.find(end)) != std::string::npos; }, ms);
    return take(at == std::string::npos ? at : at + end.size());
}

std::string PeerConn::recvExact(size_t n, int ms)
{
    fill([&] { return m_pending.size() >= n; }, ms);
    return take(n);
}

ScriptedPeer::ScriptedPeer(PeerScript script, bool ipv6, int connections)
    : m_nConnections(connections), m_script(std::move(script))
{
    ensureStarted();
    m_listener = (intptr_t)::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
    m_port = bindLoopback(m_listener, ipv6);
    listen(m_listener, 16);
    m_acceptThread = std::thread([this] { run(); });
}

void ScriptedPeer::run()
{
    for (int accepted = 0; !m_stop.load() && accepted < m_nConnections;) {
        if (waitReadable(m_listener, 50) != 1)
            continue;
        intptr_t fd = (intptr_t)::accept(m_listener, nullptr, nullptr);
        if (fd < 0)
            continue;
        ++accepted;
        m_threads.emplace_back([this, fd] {
            PeerConn conn(fd);
            m_script(conn);
        });
    }
}

ScriptedPeer::~ScriptedPeer()
{
    m_stop = true;
    if (m_acceptThread.joinable())
        m_acceptThread.join();
    for (std::thread& t : m_threads)
        t.join();
    PEER_CLOSE(m_listener);
}

uint16_t refusedPort()
{
    ensureStarted();
    intptr_t s = (intptr_t)::socket(AF_INET, SOCK_STREAM, 0);
    uint16_t port = bindLoopback(s, false);
    PEER_CLOSE(s);
    return port;
}

std::string loopbackSockaddr(uint16_t port)
{
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    return std::string((const char*)&a, sizeof a);
}

int socketInheritable(unsigned int socket)
{
#ifdef _WIN32
    DWORD flags = 0;
    return GetHandleInformation((HANDLE)(uintptr_t)socket, &flags) ? (flags & HANDLE_FLAG_INHERIT) != 0 : -1;
#else
    int flags = fcntl((int)socket, F_GETFD);
    return flags < 0 ? -1 : (flags & FD_CLOEXEC) == 0;
#endif
}

} // namespace vardo_test
