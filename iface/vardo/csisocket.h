// CSISocket: the socket layer as static functions: start-up and shut-down, thin wrappers
// over the socket calls, host-name resolution, readiness tests with a time limit, and a
// connect that retries a refused connection.
//
// Platforms: Winsock on Windows; BSD sockets on Linux behind the same functions. Error
// numbers are Winsock's on both (getLastError() gives 10061 for a refused connection,
// 10060 for a timed-out one, 11001 for an unknown host ...), so callers test one set of
// numbers. Socket handles are unsigned 32-bit numbers, 0xFFFFFFFF when invalid; every
// socket these functions create or accept is non-inheritable. The pass-through functions
// take the platform's own constants (AF_INET, SOCK_STREAM, ...) and address layouts.
//
// Time limits are whole seconds; -1 waits without limit. Addresses given or returned as
// numbers (unsigned long) are IPv4 values in host byte order (127.0.0.1 is 0x7F000001).
// Name resolution uses the thread-safe resolver (getaddrinfo).
//
// Failures are reported by results (false, -1, 0) and trace lines; nothing here throws
// except std::bad_alloc. Thread-safety: no function keeps state; all may be used from
// any thread.
#ifndef VARDO_CSISOCKET_H
#define VARDO_CSISOCKET_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"

struct sockaddr;
struct timeval;

namespace Vardo400 {

class VARDO_API CSISocket {
public:
    // The invalid socket.
    enum : unsigned int { invalidSocket = 0xFFFFFFFFu };

    // A server for ping(): host name or dotted address, and port.
    struct ServerToPing {
        SWCharString host;
        int port;
        ServerToPing() : port(0) {}
        ServerToPing(const SWCharString& h, int p) : host(h), port(p) {}
    };

    // Starts Winsock asking for version 2.0, then 1.1 (tracing "Couldn't initialize
    // winsocks using Version 2" and "Couldn't initialize winsocks using Version 1.1" on
    // the failures). False when neither starts. Always true on Linux.
    static bool initialize();
    // Cleans Winsock up, cancelling a blocking call in progress (10036) and retrying;
    // stops at "not initialised" (10093), and after 1000 failed attempts.
    static void uninitialize();

    // Creates a socket, non-inheritable. invalidSocket on failure.
    static unsigned int socket(int family, int type, int protocol);
    // Accepts a connection, retrying while the call fails with the C run-time's errno 4
    // (interrupted). The new socket is non-inheritable. invalidSocket on failure.
    static unsigned int accept(unsigned int s, sockaddr* address, int* length);
    // Pass-through calls: 0 (or a count) on success, -1 on failure (getLastError()).
    static int listen(unsigned int s, int backlog);
    static int connect(unsigned int s, const sockaddr* address, int length);
    static int bind(unsigned int s, const sockaddr* address, int length);
    // The platform's select; the sets are the platform's fd_set (on Linux only
    // descriptors below 1024 fit: use isReadable/isWriteable, which have no such bound).
    static int select(int count, void* readSet, void* writeSet, void* exceptSet, timeval* timeout);
    static int recv(unsigned int s, char* buffer, int length, int flags);
    // Never raises SIGPIPE on Linux.
    static int send(unsigned int s, const char* buffer, int length, int flags);
    static int shutdown(unsigned int s, int how);
    // Closes the socket.
    static int close(unsigned int s);
    static int getsockname(unsigned int s, sockaddr* address, int* length);

    // The Winsock error number of the calling thread's last failing socket call.
    static int getLastError();
    // "WSA" followed by getLastError() in decimal, e.g. "WSA10061".
    static SWCharString getLastErrorStr();

    // 1 when the socket becomes readable (writable) within seconds, 0 when the limit
    // passes, -1 on error. Interrupted, in-progress and would-block failures wait again
    // with the same limit. Works for any descriptor number.
    static int isReadable(unsigned int s, long seconds);
    static int isWriteable(unsigned int s, long seconds);

    // Resolves host (dotted address first, then the name's first IPv4 address) and
    // connects the socket to it. 0 on success; -1 when the host does not resolve (traced
    // "CSISocket::connectEx: Cannot gethostbyname for %1") or the connect fails.
    static int connectEx(unsigned int s, const SWCharString& host, unsigned short port);
    // Connects, retrying a refused or interrupted attempt after one second each, up to
    // retries times (-1: without end). A would-block or in-progress connect waits up to
    // seconds for the socket to become writable. True when connected. Traces
    // "CSISocket::connectNonBlocking failing: %s" and "CSISocket::connectNonBlocking()
    // connection refused '%s' and doing retry number %d".
    static bool connectNonBlocking(unsigned int s, sockaddr* address, int length, short seconds,
                                   short retries);

    // Appends every IPv4 address of name, in the resolver's order. True when at least one.
    static bool gethostbyname(const SWCharString& name, SIArray<unsigned long>& addresses);
    // The name's first IPv4 address. False when it has none.
    static bool gethostbyname(const SWCharString& name, unsigned long& address);
    // The name's canonical name. False when it does not resolve.
    static bool gethostbyname(const SWCharString& name, SWCharString& canonicalName);
    // The name of an IPv4 address (reverse look-up). False when it has none.
    static bool gethostbyaddr(unsigned long address, SWCharString& name);
    // The n-th (from 0) IPv4 address of the local machine, non-loopback addresses first,
    // as a number or as dotted text. False when there are not that many.
    static bool getnthipnumeric(unsigned short n, unsigned long& address);
    static bool getnthipstring(unsigned short n, SWCharString& address);

    // The port of service (protocol "tcp") from the services database, else defaultPort
    // (a 16-bit port in a short: ports above 32767 come back negative).
    static short getportbyname(const char* service, short defaultPort);
    // Whether a port is taken: the service's port when service is named and known, else
    // port (read as an unsigned 16-bit number, so ports above 32767 may be passed as
    // their short value). Port 0 is never in use. Otherwise binds a fresh TCP socket to that
    // port on all interfaces, closes it, and answers true when the bind failed.
    static bool is_port_in_use(const char* service, short port);
    // Whether text is a strict dotted IPv4 address; *value (if given) gets it.
    static bool isValidIPAddrString(const SWCharString& text, unsigned long* value);
    // Splits "name:port" (also "[v6-address]:port") into name and port. Without a port
    // part name is the whole text and port is unchanged. False when the port part is not
    // a number from 0 to 65535 (name and port then unchanged).
    static bool splitNamePort(const SWCharString& text, SWCharString& name, int& port);
    // Whether two host texts name the same machine: equal ignoring case, or, when resolve
    // is non-zero, sharing an IPv4 address. *unresolved (if given) is set when a name did
    // not resolve.
    static bool matchhosts(const SWCharString& host1, const SWCharString& host2, int resolve,
                           bool* unresolved);
    // Tries a TCP connection to each server in order, each within seconds (-1: no
    // limit), and returns the index of the first that accepts, -1 when none. Traces
    // "CSISocket::ping - Couldn't resolve hostname for %1" and "Failed to create local
    // socket.". Names resolving only to IPv6 are tried over IPv6.
    static int ping(SIArray<ServerToPing>& servers, short seconds);
};

} // namespace Vardo400

#endif
