// Scripted loopback peers for the socket and mail tests: a listener on 127.0.0.1 or ::1
// (an ephemeral port) whose accepted connections each run a script in their own thread.
// The peer uses the platform's sockets directly, not the library, so it stays an
// independent party to the conversation.
#ifndef VARDO_TEST_SOCKET_PEER_H
#define VARDO_TEST_SOCKET_PEER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vardo_test {

// One accepted connection, seen from the peer's side.
class PeerConn {
public:
    explicit PeerConn(intptr_t fd) : m_fd(fd) {}
    ~PeerConn();
    PeerConn(const PeerConn&) = delete;
    PeerConn& operator=(const PeerConn&) = delete;

    // Sends all bytes; false when the connection failed.
    bool send(const std::string& bytes);
    // Receives what is there (waiting up to ms); empty at end of stream or time-out.
    std::string recvSome(int ms = 10000);
    // Receives up to and including the next "\n" (waiting up to ms in all); what came
    // when the stream ended or the time passed otherwise.
    std::string recvLine(int ms = 10000);
    // Receives exactly n bytes (less at end of stream or time-out).
    std::string recvExact(size_t n, int ms = 10000);
    // Receives until the peer closes or ms pass; returns everything.
    std::string recvAll(int ms = 10000) { return recvExact(std::string::npos, ms); }
    // Closes the connection now.
    void close();

private:
    intptr_t m_fd;
    std::string m_pending;
};

typedef std::function<void(PeerConn&)> PeerScript;

class ScriptedPeer {
public:
    // Listens on 127.0.0.1 (ipv6 false) or ::1 and runs script for each of up to
    // connections accepted connections, one thread each.
    explicit ScriptedPeer(PeerScript script, bool ipv6 = false, int connections = 1);
    // Stops listening and joins the script threads.
    ~ScriptedPeer();
    uint16_t port() const { return m_port; }

private:
    void run();
    intptr_t m_listener;
    uint16_t m_port;
    int m_nConnections;
    PeerScript m_script;
    std::atomic<int> m_accepted{0};
    std::atomic<bool> m_stop{false};
    std::thread m_acceptThread;
    std::vector<std::thread> m_threads;
};

// A loopback port on which nothing listens (a connect is refused).
uint16_t refusedPort();
// Milliseconds from a steady clock.
int64_t nowMs();
// The bytes of a native IPv4 socket address for 127.0.0.1 and port.
std::string loopbackSockaddr(uint16_t port);
// Whether a child process would inherit the socket: 1 yes, 0 no, -1 unknown.
int socketInheritable(unsigned int socket);
// True where sockets are small descriptor numbers (POSIX), so a number above 1023
// can be asked for.
bool socketsAreDescriptors();

} // namespace vardo_test

#endif
