// Helpers shared by the socket and mail sources; not installed.
#ifndef VARDO_NET_INTERNAL_H
#define VARDO_NET_INTERNAL_H

#include "vardo/sstring.h"
#include "os/os_socket.h"

#include <string>
#include <vector>

namespace Vardo400 {
namespace net {

// UTF-16 text as UTF-8 bytes; a lone surrogate becomes U+FFFD.
std::string Utf8(const SWCharString& s);
// UTF-8 (or 7-bit) bytes as UTF-16 text; invalid bytes become U+FFFD.
SWCharString FromUtf8(const std::string& s);

// The addresses a TCP client tries for host and port: a dotted IPv4 address or an IPv6
// literal (brackets allowed) alone; for a name its IPv4 addresses in the resolver's
// order, or, when it has none, its IPv6 addresses. 0, or the resolver's Winsock error
// (the list may be empty on success).
int ClientAddresses(const std::string& host, uint16_t port, std::vector<os::Address>& out);

// Connects s to a within ms milliseconds (-1: no limit), leaving s blocking again.
// 0 on success, else the Winsock error (10060 when the time passed).
int ConnectWithin(os::Socket s, const os::Address& a, int64_t ms);

} // namespace net
} // namespace Vardo400

#endif
