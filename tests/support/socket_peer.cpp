// Scripted loopback peers over the platform's own sockets.
#include "socket_peer.h"

#include <chrono>
#include <cstring>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
typedef int socklen_t;
#define PEER_CLOSE closesocket
#define PEER_NOSIGNAL 0
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#define PEER_CLOSE ::close
#define PEER_NOSIGNAL MSG_NOSIGNAL
#endif

namespace vardo_test {

namespace {

#ifdef _WIN32
struct WinsockStarted {
    WinsockStarted()
    {
        WSADATA d;
        WSAStartup(MAKEWORD(2, 2), &d);
    }
};
void ensureStarted()
{
    static WinsockStarted started;
}
#else
void ensureStarted() {}
#endif

// 1 readable, 0 time passed, -1 error.
int waitReadable(intptr_t fd, int ms)
{
#ifdef _WIN32
    fd_set set;
    FD_ZERO(&set);
    FD_SET((SOCKET)fd, &set);
    timeval tv;
    tv.tv_sec = ms / 1000;
    tv.tv_usec = (ms % 1000) * 1000;
    int rc = select(0, &set, nullptr, nullptr, &tv);
    return rc < 0 ? -1 : rc > 0 ? 1 : 0;
#else
    pollfd p;
    p.fd = (int)fd;
    p.events = POLLIN;
    p.revents = 0;
    int rc = poll(&p, 1, ms);
    return rc < 0 ? -1 : rc > 0 ? 1 : 0;
#endif
}

// Binds s to the loopback address on an ephemeral port; returns the port.
uint16_t bindLoopback(intptr_t s, bool ipv6)
{
    sockaddr_in6 a6;
    sockaddr_in a4;
    std::memset(&a6, 0, sizeof a6);
    std::memset(&a4, 0, sizeof a4);
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

PeerConn::~PeerConn()
{
    close();
}

void PeerConn::close()
{
    if (m_fd >= 0)
        PEER_CLOSE(m_fd);
    m_fd = -1;
}

bool PeerConn::send(const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        size_t piece = bytes.size() - done;
        if (piece > (1u << 20))
            piece = 1u << 20;
        int n = (int)::send(m_fd, bytes.data() + done, (int)piece, PEER_NOSIGNAL);
        if (n <= 0)
            return false;
        done += (size_t)n;
    }
    return true;
}

std::string PeerConn::recvSome(int ms)
{
    if (!m_pending.empty()) {
        std::string r;
        r.swap(m_pending);
        return r;
    }
    if (m_fd < 0 || waitReadable(m_fd, ms) != 1)
        return std::string();
    char buffer[65536];
    int n = (int)::recv(m_fd, buffer, (int)sizeof buffer, 0);
    return n > 0 ? std::string(buffer, (size_t)n) : std::string();
}

std::string PeerConn::recvLine(int ms)
{
    int64_t end = nowMs() + ms;
    std::string line;
    for (;;) {
        size_t nl = m_pending.find('\n');
        if (nl != std::string::npos) {
            line += m_pending.substr(0, nl + 1);
            m_pending.erase(0, nl + 1);
            return line;
        }
        line += m_pending;
        m_pending.clear();
        int64_t left = end - nowMs();
        if (left <= 0)
            return line;
        std::string more = recvSome((int)left);
        if (more.empty())
            return line;
        m_pending = more;
    }
}

std::string PeerConn::recvExact(size_t n, int ms)
{
    int64_t end = nowMs() + ms;
    std::string all;
    while (all.size() < n) {
        int64_t left = end - nowMs();
        if (left <= 0)
            break;
        std::string more = recvSome((int)left);
        if (more.empty())
            break;
        all += more;
    }
    if (all.size() > n) {
        m_pending = all.substr(n) + m_pending;
        all.resize(n);
    }
    return all;
}

ScriptedPeer::ScriptedPeer(PeerScript script, bool ipv6, int connections)
    : m_listener(-1), m_port(0), m_nConnections(connections), m_script(std::move(script))
{
    ensureStarted();
    m_listener = (intptr_t)::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
    m_port = bindLoopback(m_listener, ipv6);
    listen(m_listener, 16);
    m_acceptThread = std::thread([this] { run(); });
}

void ScriptedPeer::run()
{
    while (!m_stop.load() && m_accepted.load() < m_nConnections) {
        if (waitReadable(m_listener, 50) != 1)
            continue;
        intptr_t fd = (intptr_t)::accept(m_listener, nullptr, nullptr);
        if (fd < 0)
            continue;
        ++m_accepted;
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
    sockaddr_in a;
    std::memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    return std::string((const char*)&a, sizeof a);
}

int socketInheritable(unsigned int socket)
{
#ifdef _WIN32
    DWORD flags = 0;
    if (!GetHandleInformation((HANDLE)(uintptr_t)socket, &flags))
        return -1;
    return (flags & HANDLE_FLAG_INHERIT) ? 1 : 0;
#else
    int flags = fcntl((int)socket, F_GETFD);
    if (flags < 0)
        return -1;
    return (flags & FD_CLOEXEC) ? 0 : 1;
#endif
}

bool socketsAreDescriptors()
{
#ifdef _WIN32
    return false;
#else
    return true;
#endif
}

} // namespace vardo_test
