// CSITcpSocket: one client connection with its receive buffer and line reader.
#include "vardo/csitcpsocket.h"
#include "vardo/csisocket.h"
#include "vardo/strace.h"

#include "net_internal.h"
#include "os/os_socket.h"
#include "os/os_sync.h"

#include <cstring>
#include <new>

namespace Vardo400 {

CSITcpSocket::CSITcpSocket(const SAnsiString& host, unsigned short port)
    : m_host(host), m_nPort(port), m_nSocket(os::InvalidSocket), m_nUnread(0), m_pCursor(nullptr)
{
}

CSITcpSocket::~CSITcpSocket()
{
    closeNow();
}

void CSITcpSocket::closeNow()
{
    if (m_nSocket != os::InvalidSocket)
        os::socketClose(m_nSocket);
    m_nSocket = os::InvalidSocket;
    m_nUnread = 0;
    m_pCursor = nullptr;
    m_pBuffer.reset();
}

bool CSITcpSocket::TcpOpen()
{
    if (!m_pBuffer) {
        m_pBuffer.reset(new (std::nothrow) char[bufferSize]);
        if (!m_pBuffer) {
            VARDO_ASSERT_TEXT("out of memory");
            return false;
        }
    }
    if (m_nSocket != os::InvalidSocket) {
        // Opening an open object starts over with a new connection.
        os::socketClose(m_nSocket);
        m_nSocket = os::InvalidSocket;
    }
    std::string host(m_host.data(), m_host.getLength());
    std::vector<os::Address> list;
    if (net::ClientAddresses(host, m_nPort, list) != 0 || list.empty())
        return false;
    for (const os::Address& a : list) {
        os::Socket s = os::socketCreate(os::nativeFamily(a.family), os::streamType(), os::tcpProtocol());
        if (s == os::InvalidSocket)
            return false;
        bool connected = os::socketConnect(s, a.bytes, a.length) == 0;
        if (!connected && os::lastError() == os::WsaInterrupted) {
            // An interrupted blocking connect goes on in the background: wait for it.
            int ready;
            do {
                ready = os::waitReady(s, true, -1);
            } while (ready < 0 && os::lastError() == os::WsaInterrupted);
            connected = ready == 1 && os::socketPendingError(s) == 0;
        }
        if (connected) {
            // Commands and pieces go out whole: no waiting for the peer's acknowledgement
            // before a short write.
            os::socketSetNoDelay(s);
            m_nSocket = s;
            m_nUnread = 0;
            m_pCursor = m_pBuffer.get();
            return true;
        }
        // Keep the connect's error for the caller across the close.
        os::socketClose(s);
    }
    return false;
}

bool CSITcpSocket::TcpOpen(const char* service)
{
    int port = os::servicePort(service, "tcp");
    if (port < 0)
        return false;
    m_nPort = (uint16_t)port;
    return TcpOpen();
}

bool CSITcpSocket::Send(const char* data, unsigned long length, long seconds)
{
    if (m_nSocket == os::InvalidSocket)
        return false;
    if (length == 0)
        return true;
    if (!data) {
        AbortSocket();
        return false;
    }
    unsigned long done = 0;
    while (done < length) {
        if (CSISocket::isWriteable(m_nSocket, seconds) != 1) {
            AbortSocket();
            return false;
        }
        unsigned long rest = length - done;
        int piece = rest > 0x40000000ul ? 0x40000000 : (int)rest;
        int sent;
        for (;;) {
            sent = os::socketSend(m_nSocket, data + done, piece, 0);
            if (sent >= 0 || os::lastError() != os::WsaInterrupted)
                break;
        }
        if (sent < 0) {
            // A full send buffer after a readiness report is not an error: wait again.
            if (os::lastError() == os::WsaWouldBlock)
                continue;
            AbortSocket();
            return false;
        }
        done += (unsigned long)sent;
    }
    return true;
}

bool CSITcpSocket::SendString(const char* text, long seconds)
{
    return Send(text, text ? (unsigned long)std::strlen(text) : 0, seconds);
}

bool CSITcpSocket::GetData(long seconds, bool abortOnTimeout)
{
    if (m_nSocket == os::InvalidSocket)
        return false;
    if (m_nUnread > 0)
        return true;
    if (CSISocket::isReadable(m_nSocket, seconds) != 1) {
        if (abortOnTimeout)
            AbortSocket();
        return false;
    }
    int n;
    for (;;) {
        n = os::socketRecv(m_nSocket, m_pBuffer.get(), bufferSize, 0);
        if (n >= 0 || os::lastError() != os::WsaInterrupted)
            break;
    }
    if (n <= 0) {
        AbortSocket();
        return false;
    }
    m_nUnread = n;
    m_pCursor = m_pBuffer.get();
    return true;
}

bool CSITcpSocket::GetBuffer(unsigned long count, void* destination, long seconds)
{
    char* out = static_cast<char*>(destination);
    if (!out)
        return false;
    unsigned long done = 0;
    while (done < count) {
        if (!GetData(seconds, true))
            return false;
        unsigned long take = count - done;
        if (take > (unsigned long)m_nUnread)
            take = (unsigned long)m_nUnread;
        std::memcpy(out + done, m_pCursor, take);
        m_pCursor += take;
        m_nUnread -= (int32_t)take;
        done += take;
    }
    out[count] = 0;
    return true;
}

bool CSITcpSocket::GetLine(char* destination, long seconds)
{
    if (!destination)
        return false;
    if (!GetData(seconds, true))
        return false;
    int count = 0;          // bytes of the line taken so far, across chunks
    int copied = 0;         // bytes already in destination
    bool lastWasCR = false;
    bool crEndedChunk = false;
    for (;;) {
        while (m_nUnread > 0) {
            char c = *m_pCursor++;
            --m_nUnread;
            ++count;
            if (c == '\n' && lastWasCR) {
                // A carriage return that ended the previous chunk is not returned.
                if (crEndedChunk)
                    --copied;
                destination[copied] = 0;
                return true;
            }
            if (count >= maxLineLength) {
                AbortSocket();
                return false;
            }
            destination[copied++] = c;
            lastWasCR = c == '\r';
            crEndedChunk = false;
        }
        crEndedChunk = lastWasCR;
        if (!GetData(seconds, true))
            return false;
    }
}

void CSITcpSocket::AbortSocket()
{
    if (m_nSocket != os::InvalidSocket) {
        os::socketShutdown(m_nSocket, os::shutdownSend());
        // Read what the peer still sends so the close is orderly, but never wait on a
        // peer that neither sends nor closes for longer than the drain bound.
        char scratch[256];
        int drained = 0;
        uint32_t start = os::tickCount();
        for (;;) {
            uint32_t spent = os::tickCount() - start;
            if (spent >= (uint32_t)abortDrainMilliseconds || drained >= abortDrainBytes)
                break;
            int ready = os::waitReady(m_nSocket, false, abortDrainMilliseconds - (int64_t)spent);
            if (ready < 0 && os::lastError() == os::WsaInterrupted)
                continue;
            if (ready != 1)
                break;
            int n = os::socketRecv(m_nSocket, scratch, (int)sizeof scratch, 0);
            if (n < 0 && os::lastError() == os::WsaInterrupted)
                continue;
            if (n <= 0)
                break;
            drained += n;
        }
    }
    closeNow();
}

} // namespace Vardo400
