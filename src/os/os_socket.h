// TCP/IP sockets with the Winsock conventions: a socket is an unsigned 32-bit number
// (all ones when invalid), a failing call returns -1 (or the invalid socket) and leaves
// a Winsock error number (10004 interrupted, 10035 would block, 10061 refused, 11001
// host not found ...) that lastError() gives back on the same thread. The POSIX
// implementation maps errno and the resolver's codes onto those numbers, so the portable
// code tests one set of numbers. Every socket is created non-inheritable. No call here
// retries an interrupted call; the portable code above owns the retry rules. Not
// installed.
#ifndef VARDO_OS_SOCKET_H
#define VARDO_OS_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vardo400 {
namespace os {

typedef uint32_t Socket;
const Socket InvalidSocket = 0xFFFFFFFFu;

// Winsock error numbers the portable code tests.
const int WsaInterrupted = 10004;       // WSAEINTR
const int WsaWouldBlock = 10035;        // WSAEWOULDBLOCK
const int WsaInProgress = 10036;        // WSAEINPROGRESS
const int WsaConnRefused = 10061;       // WSAECONNREFUSED
const int WsaNotInitialised = 10093;    // WSANOTINITIALISED
const int WsaHostNotFound = 11001;      // WSAHOST_NOT_FOUND

// A socket address of either family, in the platform's own layout.
struct Address {
    int family;                  // 4 or 6
    int length;                  // bytes of the native address in use
    alignas(8) unsigned char bytes[128];
};

// Winsock start-up asking for version major.minor; true when it started. POSIX: true.
bool startup(int major, int minor);
// Winsock clean-up: 0, or the Winsock error. POSIX: 0.
int cleanup();
// Cancels a blocking call in progress (Winsock 1.1). POSIX: nothing to do.
void cancelBlockingCall();

// The Winsock error of the calling thread's last failing call here.
int lastError();

// Socket calls; the arguments are the platform's own constants and address layouts.
Socket socketCreate(int family, int type, int protocol);
// Accepts one connection. On failure errno (the C run-time's number) is left as the
// system set it on POSIX, untouched on Windows.
Socket socketAccept(Socket s, void* address, int* length);
int socketConnect(Socket s, const void* address, int length);
int socketBind(Socket s, const void* address, int length);
int socketListen(Socket s, int backlog);
int socketSelect(int count, void* readSet, void* writeSet, void* exceptSet, void* timeout);
int socketRecv(Socket s, char* buffer, int length, int flags);
// Never raises SIGPIPE.
int socketSend(Socket s, const char* buffer, int length, int flags);
int socketShutdown(Socket s, int how);
int socketClose(Socket s);
int socketGetsockname(Socket s, void* address, int* length);
// Non-blocking mode on or off: 0, or -1.
int socketSetNonBlocking(Socket s, bool on);
// Sends small writes at once (TCP_NODELAY): 0, or -1.
int socketSetNoDelay(Socket s);
// The pending error of the socket (SO_ERROR) as a Winsock number, 0 when none.
int socketPendingError(Socket s);

// The native constants for a stream socket of an address family (4 or 6).
int nativeFamily(int family);
int streamType();
int tcpProtocol();
// Shut-down direction "sending".
int shutdownSend();

// Waits until the socket is readable (or writable) for at most ms milliseconds (-1: no
// limit). 1 ready, 0 time passed, -1 failure (lastError set; 10004 when interrupted).
// Works for any descriptor number.
int waitReady(Socket s, bool forWriting, int64_t ms);

// Strict dotted IPv4 text ("a.b.c.d", each 0..255) to its value in host byte order.
bool parseIPv4(const char* text, uint32_t& hostOrder);
// IPv6 literal text (no brackets) to an address with the port; false when not one.
bool parseIPv6(const char* text, uint16_t port, Address& out);
// IPv4 address (host byte order) and port as a native address.
Address ipv4Address(uint32_t hostOrder, uint16_t port);
// The IPv4 value (host byte order) of an IPv4 address.
uint32_t ipv4Value(const Address& a);
// Numeric text of an address ("1.2.3.4" or "::1").
std::string addressText(const Address& a);

// Resolves name (thread-safe resolver) for stream sockets: family 4, 6 or 0 (both), in
// the resolver's order. 0 on success (out may be empty), else a Winsock error
// (11001 not found, 11002 try again, 11003 unrecoverable, 11004 no data).
int resolve(const char* name, uint16_t port, int family, std::vector<Address>& out);
// The canonical name of name. 0 or a Winsock error.
int canonicalName(const char* name, std::string& out);
// The name of an address (reverse look-up). 0 or a Winsock error.
int reverseLookup(const Address& a, std::string& name);
// The local machine's name. 0 or a Winsock error.
int hostName(std::string& name);
// The IPv4 addresses of the local machine (host byte order), loopback last.
bool localIPv4Addresses(std::vector<uint32_t>& out);
// The port (host byte order) of a service in the services database, -1 when unknown.
int servicePort(const char* name, const char* protocol);

} // namespace os
} // namespace Vardo400

#endif
