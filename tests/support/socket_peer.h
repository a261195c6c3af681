// Scripted loopback peers for the socket and mail tests: a listener on 127.0.0.1 or ::1
// whose accepted connections each run a script in their own thread. The peer uses the
// platform's sockets, not the library, so it stays an independent party.
#ifndef VARDO_TEST_SOCKET_PEER_H
#define VARDO_TEST_SOCKET_PEER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace vardo_test {

// One accepted connection, seen from the peer's side. Every receive waits at most ms.
class PeerConn {
public:
    explicit PeerConn(intptr_t fd) : m_fd(fd) {}
    ~PeerConn() { close(); }
    PeerConn(const PeerConn&) = delete;
    PeerConn& operator=(const PeerConn&) = delete;

    // Sends all bytes; false when the connection failed.
    bool send(const std::string& bytes);
    // What is there; empty at end of stream or time-out.
    std::string recvSome(int ms = 10000);
    // Up to and including the next `end`, or what came before the end or the time-out.
    std::string recvUntil(const std::string& end, int ms = 10000);
    std::string recvLine(int ms = 10000) { return recvUntil("\n", ms); }
    // Exactly n bytes, fewer at end of stream or time-out.
    std::string recvExact(size_t n, int ms = 10000);
    // Everything until the peer closes.
    std::string recvAll(int ms = 10000) { return recvExact(std::string::npos, ms); }
    void close();

private:
    // Receives into m_pending until enough() holds, the stream ends or ms pass.
    void fill(const std::function<bool()>& enough, int ms);
    std::string take(size_t n);
    intptr_t m_fd;
    std::string m_pending;
};

typedef std::function<void(PeerConn&)> PeerScript;

class ScriptedPeer {
public:
    // Listens on an ephemeral port of 127.0.0.1 (or ::1) and runs script for each of up
    // to `connections` accepted connections.
    explicit ScriptedPeer(PeerScript script, bool ipv6 = false, int connections = 1);
    // Stops listening and joins the script threads.
    ~ScriptedPeer();
    uint16_t port() const { return m_port; }

private:
    void run();
    intptr_t m_listener = -1;
    uint16_t m_port = 0;
    int m_nConnections;
    PeerScript m_script;
    std::atomic<bool> m_stop{false};
    std::thread m_acceptThread;
    std::vector<std::thread> m_threads;
};

// A loopback port on which nothing listens.
uint16_t refusedPort();
// Milliseconds from a steady clock.
int64_t nowMs();
// The bytes of a native IPv4 socket address for 127.0.0.1 and port.
std::string loopbackSockaddr(uint16_t port);
// Whether a child process would inherit the socket: 1 yes, 0 no, -1 unknown.
int socketInheritable(unsigned int socket);

} // namespace vardo_test

#endif
