// CSITcpSocket: one client TCP connection with its own receive buffer.
#ifndef VARDO_CSITCPSOCKET_H
#define VARDO_CSITCPSOCKET_H

#include "vardodefs.h"
#include "sstring.h"

#include <memory>

namespace Vardo400 {

// Opens by host and port (or service name), sends all bytes with a time limit, reads a
// fixed number of bytes or one text line, and aborts. Time limits are whole seconds, -1
// without limit.
//
// Hosts: a dotted IPv4 address, an IPv6 literal ("::1", also in brackets "[::1]"), or a
// name. A name's IPv4 addresses are tried in the resolver's order; a name that resolves
// only to IPv6 addresses is tried over IPv6, in the resolver's order.
//
// Connections send each write at once (TCP_NODELAY), since callers write whole commands.
//
// Every failed send or receive, and a read through GetLine or GetBuffer that times out,
// closes the connection (AbortSocket), so the next call fails at once. Closed, the object
// may be opened again. The destructor closes an open connection at once (no drain).
//
// Thread-safety: an object belongs to one thread at a time. Not copyable.
class VARDO_API CSITcpSocket {
public:
    // Size of the receive buffer; the longest line GetLine returns.
    enum { bufferSize = 8192, maxLineLength = 2048 };
    // Bounds of the drain in AbortSocket: it waits at most this long in all and reads
    // at most this many bytes before closing.
    enum { abortDrainMilliseconds = 500, abortDrainBytes = 65536 };

    // Stores host and port; no connection yet.
    CSITcpSocket(const SAnsiString& host, unsigned short port);
    ~CSITcpSocket();

    // Connects to host and port: a dotted address with one blocking connect, a name by
    // trying its addresses in turn. True on success. Allocates the receive buffer on
    // the first open (asserting "out of memory" and returning false when it cannot).
    bool TcpOpen();
    // Looks service up for protocol "tcp"; false when unknown, else sets the port from
    // it and calls TcpOpen().
    bool TcpOpen(const char* service);

    // Sends all length bytes, waiting up to seconds for the socket to accept each part.
    // True at once for length 0 on an open connection; false on a closed one. A time-out
    // or error aborts the connection and returns false.
    bool Send(const char* data, unsigned long length, long seconds);
    // Send of text up to its terminating zero byte.
    bool SendString(const char* text, long seconds);
    // Makes sure unread bytes are in the buffer, receiving a chunk when none remain.
    // False when closed, when nothing arrives within seconds (the connection is aborted
    // if abortOnTimeout), or when the peer closed or an error occurred (aborted).
    bool GetData(long seconds, bool abortOnTimeout);
    // Reads exactly count bytes into destination and stores a zero byte after them
    // (destination holds count + 1 bytes). False, aborted, when they do not all arrive.
    bool GetBuffer(unsigned long count, void* destination, long seconds);
    // Reads one line ended by carriage return and line feed into destination (which
    // holds maxLineLength bytes): the bytes before the line feed, carriage return
    // included, then a zero byte. When the carriage return ended one received chunk and
    // the line feed began the next, the carriage return is not returned: callers ignore
    // a trailing carriage return. A line that reaches maxLineLength bytes without its
    // end aborts the connection and returns false.
    bool GetLine(char* destination, long seconds);
    // Ends the connection: shuts the sending side, drains what the peer still sends
    // (bounded by abortDrainMilliseconds and abortDrainBytes), frees the buffer and
    // closes the socket. Harmless on a closed object.
    void AbortSocket();

    const SAnsiString& GetHost() const { return m_host; }
    unsigned short GetPort() const { return m_nPort; }
    void SetPortW(unsigned short port) { m_nPort = port; }
    // Whether a connection is open.
    bool IsOpen() const { return m_nSocket != 0xFFFFFFFFu; }
    // The connected socket (0xFFFFFFFF when closed).
    unsigned int GetSocket() const { return m_nSocket; }

private:
    CSITcpSocket(const CSITcpSocket&) = delete;
    CSITcpSocket& operator=(const CSITcpSocket&) = delete;
    void closeNow();

    SAnsiString m_host;
    uint16_t m_nPort;
    uint32_t m_nSocket;
    int32_t m_nUnread;
    char* m_pCursor;
    std::unique_ptr<char[]> m_pBuffer;
};

} // namespace Vardo400

#endif
