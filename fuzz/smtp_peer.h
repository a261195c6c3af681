// Loopback SMTP peers for the mail fuzzers (POSIX sockets; the fuzzers build on Linux).
// One listener on 127.0.0.1 serves one connection per call, in a thread of its own.
#ifndef VARDO_FUZZ_SMTP_PEER_H
#define VARDO_FUZZ_SMTP_PEER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

namespace fuzz_smtp {

class Listener {
public:
    Listener()
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a;
        std::memset(&a, 0, sizeof a);
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, (sockaddr*)&a, sizeof a);
        socklen_t len = sizeof a;
        ::getsockname(m_fd, (sockaddr*)&a, &len);
        m_port = ntohs(a.sin_port);
        ::listen(m_fd, 8);
    }
    uint16_t port() const { return m_port; }
    // The next connection within ms, or -1.
    int accept(int ms)
    {
        pollfd p = {m_fd, POLLIN, 0};
        if (::poll(&p, 1, ms) != 1)
            return -1;
        return ::accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
    }

private:
    int m_fd;
    uint16_t m_port;
};

inline void sendAll(int fd, const std::string& s)
{
    size_t done = 0;
    while (done < s.size()) {
        ssize_t n = ::send(fd, s.data() + done, s.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        done += (size_t)n;
    }
}

// Reads until the peer closes or ms pass without data; returns what came.
inline std::string drain(int fd, int ms)
{
    std::string all;
    char buf[65536];
    for (;;) {
        pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, ms) != 1)
            return all;
        ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0)
            return all;
        all.append(buf, (size_t)n);
    }
}

// Reads one line ending in "\n" (what came when the peer closes or ms pass); *closed
// (if given) is set when the peer closed its side.
inline std::string readLine(int fd, std::string& pending, int ms = 5000, bool* closed = nullptr)
{
    char buf[65536];
    for (;;) {
        size_t nl = pending.find('\n');
        if (nl != std::string::npos) {
            std::string line = pending.substr(0, nl + 1);
            pending.erase(0, nl + 1);
            return line;
        }
        pollfd p = {fd, POLLIN, 0};
        if (::poll(&p, 1, ms) != 1)
            break;
        ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) {
            if (closed)
                *closed = true;
            break;
        }
        pending.append(buf, (size_t)n);
    }
    std::string rest;
    rest.swap(pending);
    return rest;
}

// A well-behaved server that accepts everything and returns the message data (what
// came between DATA's 354 and the final "\r\n.\r\n", still dot-stuffed).
inline std::string sink(int fd)
{
    std::string pending, data;
    sendAll(fd, "220 sink ESMTP\r\n");
    for (;;) {
        std::string line = readLine(fd, pending);
        if (line.empty())
            break;
        if (line.compare(0, 4, "EHLO") == 0) {
            sendAll(fd, "250-sink\r\n250 8BITMIME\r\n");
        } else if (line.compare(0, 4, "DATA") == 0) {
            sendAll(fd, "354 go\r\n");
            char buf[65536];
            data.swap(pending);
            while (data.size() < 5 || data.compare(data.size() - 5, 5, "\r\n.\r\n") != 0) {
                pollfd p = {fd, POLLIN, 0};
                if (::poll(&p, 1, 5000) != 1)
                    break;
                ssize_t n = ::recv(fd, buf, sizeof buf, 0);
                if (n <= 0)
                    break;
                data.append(buf, (size_t)n);
            }
            sendAll(fd, "250 accepted\r\n");
        } else if (line.compare(0, 4, "QUIT") == 0) {
            sendAll(fd, "221 bye\r\n");
            break;
        } else {
            sendAll(fd, "250 ok\r\n");
        }
    }
    drain(fd, 2000);
    ::close(fd);
    return data;
}

} // namespace fuzz_smtp

#endif
