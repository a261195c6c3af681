// CSISocket: the retry rules, resolution shapes and traces of the socket layer, written
// once above the platform's socket calls.
#include "vardo/csisocket.h"
#include "vardo/strace.h"

#include "net_internal.h"
#include "os/os_socket.h"
#include "os/os_sync.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Vardo400 {

// ---- shared helpers ------------------------------------------------------------------------
namespace net {

std::string Utf8(const SWCharString& s)
{
    std::string out;
    out.reserve(s.getLength());
    const unsigned short* p = s.data();
    const unsigned short* end = p + s.getLength();
    while (p < end) {
        uint32_t c = *p++;
        if (c >= 0xD800 && c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF)
            c = 0x10000 + ((c - 0xD800) << 10) + (*p++ - 0xDC00);
        else if (c >= 0xD800 && c <= 0xDFFF)
            c = 0xFFFD;
        if (c < 0x80) {
            out += (char)c;
        } else if (c < 0x800) {
            out += (char)(0xC0 | (c >> 6));
            out += (char)(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += (char)(0xE0 | (c >> 12));
            out += (char)(0x80 | ((c >> 6) & 0x3F));
            out += (char)(0x80 | (c & 0x3F));
        } else {
            out += (char)(0xF0 | (c >> 18));
            out += (char)(0x80 | ((c >> 12) & 0x3F));
            out += (char)(0x80 | ((c >> 6) & 0x3F));
            out += (char)(0x80 | (c & 0x3F));
        }
    }
    return out;
}

SWCharString FromUtf8(const std::string& s)
{
    SWCharString r;
    if (s.empty())
        return r;
    if (!r.fromUTF8(reinterpret_cast<const unsigned char*>(s.data()), (unsigned int)s.size())) {
        // Byte by byte: 7-bit bytes as they are, anything else as U+FFFD.
        r.empty();
        for (unsigned char c : s)
            r += SWCharString::Char((unsigned short)(c < 0x80 ? c : 0xFFFD));
    }
    return r;
}

int ClientAddresses(const std::string& host, uint16_t port, std::vector<os::Address>& out)
{
    uint32_t v4 = 0;
    if (os::parseIPv4(host.c_str(), v4)) {
        out.push_back(os::ipv4Address(v4, port));
        return 0;
    }
    std::string literal = host;
    if (literal.size() > 2 && literal.front() == '[' && literal.back() == ']')
        literal = literal.substr(1, literal.size() - 2);
    os::Address a;
    if (os::parseIPv6(literal.c_str(), port, a)) {
        out.push_back(a);
        return 0;
    }
    if (host.empty())
        return os::WsaHostNotFound;
    std::vector<os::Address> all;
    int rc = os::resolve(host.c_str(), port, 0, all);
    if (rc != 0)
        return rc;
    for (const os::Address& x : all)
        if (x.family == 4)
            out.push_back(x);
    if (out.empty())
        out = all;
    return 0;
}

int ConnectWithin(os::Socket s, const os::Address& a, int64_t ms)
{
    if (ms < 0)
        return os::socketConnect(s, a.bytes, a.length) == 0 ? 0 : os::lastError();
    if (os::socketSetNonBlocking(s, true) != 0)
        return os::lastError();
    int result = 0;
    if (os::socketConnect(s, a.bytes, a.length) != 0) {
        result = os::lastError();
        if (result == os::WsaWouldBlock || result == os::WsaInProgress) {
            uint32_t start = os::tickCount();
            for (;;) {
                uint32_t spent = os::tickCount() - start;
                int64_t left = ms > (int64_t)spent ? ms - (int64_t)spent : 0;
                int ready = os::waitReady(s, true, left);
                if (ready < 0 && os::lastError() == os::WsaInterrupted)
                    continue;
                if (ready < 0)
                    result = os::lastError();
                else if (ready == 0)
                    result = 10060;   // WSAETIMEDOUT
                else
                    result = os::socketPendingError(s);
                break;
            }
        }
    }
    os::socketSetNonBlocking(s, false);
    return result;
}

} // namespace net

namespace {

bool traceOn()
{
    return ShouldTrace(0, __FILE__);
}

int64_t secondsToMs(long seconds)
{
    return seconds < 0 ? -1 : (int64_t)seconds * 1000;
}

int readiness(unsigned int s, long seconds, bool forWriting)
{
    for (;;) {
        int rc = os::waitReady(s, forWriting, secondsToMs(seconds));
        if (rc >= 0)
            return rc;
        int e = os::lastError();
        if (e != os::WsaInterrupted && e != os::WsaInProgress && e != os::WsaWouldBlock)
            return -1;
    }
}

} // namespace

bool CSISocket::initialize()
{
    if (os::startup(2, 0))
        return true;
    if (traceOn())
        STrace("Couldn't initialize winsocks using Version 2");
    if (os::startup(1, 1))
        return true;
    if (traceOn())
        STrace("Couldn't initialize winsocks using Version 1.1");
    return false;
}

void CSISocket::uninitialize()
{
    // A clean-up that keeps failing for another reason is given up after a while rather
    // than retried without end.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        int e = os::cleanup();
        if (e == 0 || e == os::WsaNotInitialised)
            return;
        if (e == os::WsaInProgress)
            os::cancelBlockingCall();
    }
}

unsigned int CSISocket::socket(int family, int type, int protocol)
{
    return os::socketCreate(family, type, protocol);
}

unsigned int CSISocket::accept(unsigned int s, sockaddr* address, int* length)
{
    // The test is on the C run-time's errno, as it has always been: on Linux that is the
    // interrupted call; Winsock leaves errno alone.
    for (;;) {
        errno = 0;
        os::Socket r = os::socketAccept(s, address, length);
        if (r != os::InvalidSocket || errno != 4)
            return r;
    }
}

int CSISocket::listen(unsigned int s, int backlog) { return os::socketListen(s, backlog); }
int CSISocket::connect(unsigned int s, const sockaddr* address, int length) { return os::socketConnect(s, address, length); }
int CSISocket::bind(unsigned int s, const sockaddr* address, int length) { return os::socketBind(s, address, length); }
int CSISocket::select(int count, void* readSet, void* writeSet, void* exceptSet, timeval* timeout)
{
    return os::socketSelect(count, readSet, writeSet, exceptSet, timeout);
}
int CSISocket::recv(unsigned int s, char* buffer, int length, int flags) { return os::socketRecv(s, buffer, length, flags); }
int CSISocket::send(unsigned int s, const char* buffer, int length, int flags) { return os::socketSend(s, buffer, length, flags); }
int CSISocket::shutdown(unsigned int s, int how) { return os::socketShutdown(s, how); }
int CSISocket::close(unsigned int s) { return os::socketClose(s); }
int CSISocket::getsockname(unsigned int s, sockaddr* address, int* length) { return os::socketGetsockname(s, address, length); }

int CSISocket::getLastError() { return os::lastError(); }

SWCharString CSISocket::getLastErrorStr()
{
    char text[32];
    std::snprintf(text, sizeof text, "WSA%d", os::lastError());
    return SWCharString(net::FromUtf8(text));
}

int CSISocket::isReadable(unsigned int s, long seconds) { return readiness(s, seconds, false); }
int CSISocket::isWriteable(unsigned int s, long seconds) { return readiness(s, seconds, true); }

int CSISocket::connectEx(unsigned int s, const SWCharString& host, unsigned short port)
{
    unsigned long value = 0;
    if (!isValidIPAddrString(host, &value) && !gethostbyname(host, value)) {
        if (traceOn())
            STrace("CSISocket::connectEx: Cannot gethostbyname for %1", host);
        return -1;
    }
    os::Address a = os::ipv4Address((uint32_t)value, port);
    return os::socketConnect(s, a.bytes, a.length) == 0 ? 0 : -1;
}

bool CSISocket::connectNonBlocking(unsigned int s, sockaddr* address, int length, short seconds, short retries)
{
    int retry = 0;
    bool connected = false;
    for (;;) {
        bool failed = false;
        bool again = false;
        if (os::socketConnect(s, address, length) == 0) {
            connected = true;
        } else {
            int e = os::lastError();
            if (e == os::WsaInterrupted || e == os::WsaConnRefused) {
                again = true;
            } else if (e == os::WsaWouldBlock || e == os::WsaInProgress) {
                // Writable with no pending error is connected; a refusal shows as a
                // pending error on Linux, so it is retried like a refused connect.
                if (readiness(s, seconds, true) == 1 && os::socketPendingError(s) == 0)
                    connected = true;
                else
                    again = true;
            } else {
                if (traceOn())
                    STrace("CSISocket::connectNonBlocking failing: %s", getLastErrorStr());
                failed = true;
            }
        }
        if (again || failed) {
            if (traceOn())
                STrace("CSISocket::connectNonBlocking() connection refused '%s' and doing retry number %d",
                       getLastErrorStr(), retry);
            os::sleepMs(1000);
            ++retry;
        }
        if (retry > retries && retries != -1)
            return connected;
        if (connected)
            return true;
        if (failed)
            return false;
    }
}

bool CSISocket::gethostbyname(const SWCharString& name, SIArray<unsigned long>& addresses)
{
    std::vector<os::Address> list;
    if (name.isEmpty() || os::resolve(net::Utf8(name).c_str(), 0, 4, list) != 0)
        return false;
    for (const os::Address& a : list)
        addresses.push_back(os::ipv4Value(a));
    return !list.empty();
}

bool CSISocket::gethostbyname(const SWCharString& name, unsigned long& address)
{
    SIArray<unsigned long> all;
    if (!gethostbyname(name, all))
        return false;
    address = all.front();
    return true;
}

bool CSISocket::gethostbyname(const SWCharString& name, SWCharString& canonicalName)
{
    std::string canon;
    if (name.isEmpty() || os::canonicalName(net::Utf8(name).c_str(), canon) != 0)
        return false;
    canonicalName = net::FromUtf8(canon);
    return true;
}

bool CSISocket::gethostbyaddr(unsigned long address, SWCharString& name)
{
    std::string text;
    if (os::reverseLookup(os::ipv4Address((uint32_t)address, 0), text) != 0)
        return false;
    name = net::FromUtf8(text);
    return true;
}

bool CSISocket::getnthipnumeric(unsigned short n, unsigned long& address)
{
    std::vector<uint32_t> list;
    if (!os::localIPv4Addresses(list) || n >= list.size())
        return false;
    address = list[n];
    return true;
}

bool CSISocket::getnthipstring(unsigned short n, SWCharString& address)
{
    unsigned long v = 0;
    if (!getnthipnumeric(n, v))
        return false;
    address = net::FromUtf8(os::addressText(os::ipv4Address((uint32_t)v, 0)));
    return true;
}

short CSISocket::getportbyname(const char* service, short defaultPort)
{
    int p = os::servicePort(service, "tcp");
    return p < 0 ? defaultPort : (short)p;
}

bool CSISocket::is_port_in_use(const char* service, short port)
{
    // The short carries a 16-bit port: ports above 32767 arrive negative.
    int p = (unsigned short)port;
    if (service && *service) {
        int known = os::servicePort(service, "tcp");
        if (known >= 0)
            p = known;
    }
    if (p < 1)
        return false;
    os::Socket s = os::socketCreate(os::nativeFamily(4), os::streamType(), os::tcpProtocol());
    if (s == os::InvalidSocket)
        return false;
    os::Address any = os::ipv4Address(0, (uint16_t)p);
    bool failed = os::socketBind(s, any.bytes, any.length) != 0;
    os::socketClose(s);
    return failed;
}

bool CSISocket::isValidIPAddrString(const SWCharString& text, unsigned long* value)
{
    uint32_t v = 0;
    if (text.isEmpty() || !os::parseIPv4(net::Utf8(text).c_str(), v))
        return false;
    if (value)
        *value = v;
    return true;
}

bool CSISocket::splitNamePort(const SWCharString& text, SWCharString& name, int& port)
{
    std::string t = net::Utf8(text);
    std::string host = t, portText;
    if (!t.empty() && t[0] == '[') {
        size_t close = t.find(']');
        if (close != std::string::npos) {
            host = t.substr(1, close - 1);
            if (close + 1 < t.size()) {
                if (t[close + 1] != ':')
                    return false;
                portText = t.substr(close + 2);
                if (portText.empty())
                    return false;
            }
        }
    } else {
        size_t colon = t.rfind(':');
        // More than one colon without brackets is an IPv6 literal without a port.
        if (colon != std::string::npos && t.find(':') == colon) {
            host = t.substr(0, colon);
            portText = t.substr(colon + 1);
            if (portText.empty())
                return false;
        }
    }
    int p = port;
    if (!portText.empty()) {
        if (portText.size() > 5 || portText.find_first_not_of("0123456789") != std::string::npos)
            return false;
        p = std::atoi(portText.c_str());
        if (p > 65535)
            return false;
    }
    name = net::FromUtf8(host);
    port = p;
    return true;
}

bool CSISocket::matchhosts(const SWCharString& host1, const SWCharString& host2, int resolve, bool* unresolved)
{
    if (unresolved)
        *unresolved = false;
    if (host1.compareNoCase(host2) == 0)
        return true;
    if (!resolve)
        return false;
    SIArray<unsigned long> a, b;
    unsigned long v = 0;
    if (isValidIPAddrString(host1, &v))
        a.push_back(v);
    else
        gethostbyname(host1, a);
    if (isValidIPAddrString(host2, &v))
        b.push_back(v);
    else
        gethostbyname(host2, b);
    if ((a.empty() || b.empty()) && unresolved)
        *unresolved = true;
    for (unsigned long x : a)
        for (unsigned long y : b)
            if (x == y)
                return true;
    return false;
}

int CSISocket::ping(SIArray<ServerToPing>& servers, short seconds)
{
    for (size_t i = 0; i < servers.size(); ++i) {
        const ServerToPing& server = servers[i];
        if (server.port < 1 || server.port > 65535)
            continue;
        std::vector<os::Address> list;
        if (net::ClientAddresses(net::Utf8(server.host), (uint16_t)server.port, list) != 0 || list.empty()) {
            if (traceOn())
                STrace("CSISocket::ping - Couldn't resolve hostname for %1", server.host);
            continue;
        }
        for (const os::Address& a : list) {
            os::Socket s = os::socketCreate(os::nativeFamily(a.family), os::streamType(), os::tcpProtocol());
            if (s == os::InvalidSocket) {
                if (traceOn())
                    STrace("Failed to create local socket.");
                return -1;
            }
            int rc = net::ConnectWithin(s, a, secondsToMs(seconds));
            os::socketClose(s);
            if (rc == 0)
                return (int)i;
        }
    }
    return -1;
}

} // namespace Vardo400
