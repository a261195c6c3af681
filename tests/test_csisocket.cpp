// CSISocket and CSITcpSocket against scripted loopback peers (127.0.0.1 and ::1).
#include "vardo/csisocket.h"
#include "vardo/csitcpsocket.h"

#include "socket_peer.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace Vardo400;
using vardo_test::nowMs;
using vardo_test::PeerConn;
using vardo_test::ScriptedPeer;
using vardo_test::W;

namespace {

// AF_INET and SOCK_STREAM have these values on every platform the library builds for.
const int kInet = 2;
const int kStream = 1;

class SocketTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(CSISocket::initialize()); }
    void TearDown() override { CSISocket::uninitialize(); }
};

} // namespace

TEST_F(SocketTest, StaticHelpers)
{
    unsigned long v = 0;
    EXPECT_TRUE(CSISocket::isValidIPAddrString(W("127.0.0.1"), &v));
    EXPECT_EQ(0x7F000001ul, v);
    for (const char* bad : {"127.1", "256.0.0.1", ""})
        EXPECT_FALSE(CSISocket::isValidIPAddrString(W(bad), nullptr)) << bad;

    SWCharString name;
    int port = 7;
    EXPECT_TRUE(CSISocket::splitNamePort(W("[::1]:25"), name, port));
    EXPECT_EQ(W("::1"), name);
    EXPECT_EQ(25, port);
    EXPECT_TRUE(CSISocket::splitNamePort(W("plainhost"), name, port));
    EXPECT_EQ(W("plainhost"), name);
    EXPECT_FALSE(CSISocket::splitNamePort(W("h:99999"), name, port));
    EXPECT_FALSE(CSISocket::splitNamePort(W("h:x1"), name, port));

    SIArray<unsigned long> addrs;
    EXPECT_TRUE(CSISocket::gethostbyname(W("localhost"), addrs));
    EXPECT_NE(addrs.end(), std::find(addrs.begin(), addrs.end(), 0x7F000001ul));
    EXPECT_FALSE(CSISocket::gethostbyname(W("no-such-host.invalid"), v));

    bool unresolved = true;
    EXPECT_TRUE(CSISocket::matchhosts(W("LocalHost"), W("localhost"), 0, &unresolved));
    EXPECT_FALSE(unresolved);
    EXPECT_TRUE(CSISocket::matchhosts(W("localhost"), W("127.0.0.1"), 1, &unresolved));
    EXPECT_FALSE(CSISocket::matchhosts(W("localhost"), W("127.0.0.1"), 0, nullptr));
    EXPECT_FALSE(CSISocket::matchhosts(W("no-such-host.invalid"), W("127.0.0.1"), 1, &unresolved));
    EXPECT_TRUE(unresolved);

    EXPECT_EQ(25, CSISocket::getportbyname("smtp", 99));
    EXPECT_EQ(99, CSISocket::getportbyname("no-such-service", 99));
    EXPECT_FALSE(CSISocket::is_port_in_use(nullptr, 0));

    // A listening port is in use; every socket, accepted ones too, is not inheritable.
    unsigned int listener = CSISocket::socket(kInet, kStream, 0);
    ASSERT_NE(CSISocket::invalidSocket, listener);
    EXPECT_EQ(0, vardo_test::socketInheritable(listener));
    std::string bound = vardo_test::loopbackSockaddr(0);
    ASSERT_EQ(0, CSISocket::bind(listener, (const sockaddr*)bound.data(), (int)bound.size()));
    ASSERT_EQ(0, CSISocket::listen(listener, 4));
    int len = (int)bound.size();
    ASSERT_EQ(0, CSISocket::getsockname(listener, (sockaddr*)&bound[0], &len));
    unsigned short listenPort = (unsigned short)(((unsigned char)bound[2] << 8) | (unsigned char)bound[3]);
    EXPECT_TRUE(CSISocket::is_port_in_use(nullptr, (short)listenPort));
    CSITcpSocket client("127.0.0.1", listenPort);
    ASSERT_TRUE(client.TcpOpen());
    EXPECT_EQ(0, vardo_test::socketInheritable(client.GetSocket()));
    unsigned int accepted = CSISocket::accept(listener, nullptr, nullptr);
    ASSERT_NE(CSISocket::invalidSocket, accepted);
    EXPECT_EQ(0, vardo_test::socketInheritable(accepted));
    CSISocket::close(accepted);
    CSISocket::close(listener);
}

TEST_F(SocketTest, RefusedConnectionsUseWinsockNumbersAndRetryOncePerSecond)
{
    uint16_t port = vardo_test::refusedPort();
    std::string addr = vardo_test::loopbackSockaddr(port);
    for (short retries : {(short)0, (short)2}) {
        unsigned int s = CSISocket::socket(kInet, kStream, 0);
        int64_t t0 = nowMs();
        EXPECT_FALSE(CSISocket::connectNonBlocking(s, (sockaddr*)&addr[0], (int)addr.size(), 2, retries));
        int64_t spent = nowMs() - t0;
        EXPECT_EQ(W("WSA10061"), CSISocket::getLastErrorStr());
        // One second per attempt: retries 0 sleeps once, retries 2 three times.
        EXPECT_GE(spent, (retries + 1) * 1000 - 50) << "retries " << retries;
        EXPECT_LT(spent, (retries + 1) * 1000 + 1000) << "retries " << retries;
        CSISocket::close(s);
    }

    CSITcpSocket sock("127.0.0.1", port);
    EXPECT_FALSE(sock.TcpOpen());
    EXPECT_EQ(10061, CSISocket::getLastError());
    unsigned int s = CSISocket::socket(kInet, kStream, 0);
    EXPECT_EQ(-1, CSISocket::connectEx(s, W("no-such-host.invalid"), port));
    EXPECT_EQ(-1, CSISocket::connectEx(s, W("127.0.0.1"), port));
    CSISocket::close(s);

    // ping: the unresolved and the refused server are skipped, the listening one answers.
    ScriptedPeer peer([](PeerConn&) {});
    SIArray<CSISocket::ServerToPing> servers;
    servers.push_back(CSISocket::ServerToPing(W("no-such-host.invalid"), 25));
    servers.push_back(CSISocket::ServerToPing(W("127.0.0.1"), port));
    servers.push_back(CSISocket::ServerToPing(W("localhost"), peer.port()));
    EXPECT_EQ(2, CSISocket::ping(servers, 2));
    servers.pop_back();
    EXPECT_EQ(-1, CSISocket::ping(servers, 2));
}

TEST_F(SocketTest, LinesTheirCarriageReturnQuirksAndTheirBound)
{
    // Pauses between the sends make each its own received chunk.
    ScriptedPeer peer([](PeerConn& c) {
        for (const char* chunk : {"one line\r\n", "split\r", "\nnext\r\n", "par", "tial\nstill\r\n"}) {
            c.send(chunk);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        c.send(std::string(2046, 'x') + "\r\n");   // 2048 bytes with its end: fits
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        // 2048 bytes before the line feed, then a megabyte more: refused at once.
        c.send(std::string(2047, 'y') + "\r\n" + std::string(1 << 20, 'z'));
        c.recvAll(3000);
    });
    CSITcpSocket sock("127.0.0.1", peer.port());
    ASSERT_TRUE(sock.TcpOpen());
    char line[CSITcpSocket::maxLineLength];
    // A carriage return stays unless it ended a chunk.
    for (const char* expected : {"one line\r", "split", "next\r", "partial\nstill\r"}) {
        ASSERT_TRUE(sock.GetLine(line, 5));
        EXPECT_STREQ(expected, line);
    }
    ASSERT_TRUE(sock.GetLine(line, 5));
    EXPECT_EQ(2047u, std::strlen(line));
    int64_t t0 = nowMs();
    EXPECT_FALSE(sock.GetLine(line, 5));
    EXPECT_LT(nowMs() - t0, 1500);
    EXPECT_FALSE(sock.IsOpen());
    EXPECT_FALSE(sock.GetLine(line, 5));
    EXPECT_FALSE(sock.SendString("x", 5));
}

TEST_F(SocketTest, StallingAndClosingPeers)
{
    // A peer that stalls: the limit holds within a second, and aborting does not wait
    // on a peer that neither sends nor closes.
    std::atomic<bool> done{false};
    ScriptedPeer staller(
        [&](PeerConn& c) {
            c.send("partial line without end");
            for (int64_t end = nowMs() + 15000; !done.load() && nowMs() < end;)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        },
        false, 2);
    CSITcpSocket sock("127.0.0.1", staller.port());
    ASSERT_TRUE(sock.TcpOpen());
    EXPECT_TRUE(sock.Send("abc", 0, 1));
    char line[CSITcpSocket::maxLineLength];
    int64_t t0 = nowMs();
    EXPECT_FALSE(sock.GetLine(line, 2));
    EXPECT_GE(nowMs() - t0, 1950);
    EXPECT_LT(nowMs() - t0, 3000);
    EXPECT_FALSE(sock.IsOpen());

    // GetData without abort keeps the connection; with abort it closes it.
    ASSERT_TRUE(sock.TcpOpen());
    char buf[64];
    ASSERT_TRUE(sock.GetBuffer(24, buf, 5));
    EXPECT_FALSE(sock.GetData(1, false));
    EXPECT_TRUE(sock.IsOpen());
    t0 = nowMs();
    EXPECT_FALSE(sock.GetBuffer(10, buf, 1));
    EXPECT_LT(nowMs() - t0, 2000);
    EXPECT_FALSE(sock.IsOpen());
    done = true;

    // A peer that closes early: the read fails and closes our side.
    ScriptedPeer closer([](PeerConn& c) { c.send("only ten b"); });
    CSITcpSocket early("127.0.0.1", closer.port());
    ASSERT_TRUE(early.TcpOpen());
    char big[101];
    EXPECT_FALSE(early.GetBuffer(100, big, 5));
    EXPECT_FALSE(early.IsOpen());
    EXPECT_FALSE(early.Send("abc", 0, 1));
}

TEST_F(SocketTest, SixtyFourMegabytesBothWays)
{
    const size_t n = 64u << 20;
    std::string up(n, '\0');
    uint32_t x = 1;
    for (char& c : up) {
        x = x * 1664525u + 1013904223u;
        c = (char)(x >> 24);
    }
    // The peer sends back what it received.
    ScriptedPeer peer([&](PeerConn& c) {
        c.send(c.recvExact(n, 60000));
        c.recvAll(5000);
    });
    CSITcpSocket sock("127.0.0.1", peer.port());
    ASSERT_TRUE(sock.TcpOpen());
    ASSERT_TRUE(sock.Send(up.data(), (unsigned long)up.size(), 30));
    std::string back(n + 1, '#');
    ASSERT_TRUE(sock.GetBuffer((unsigned long)n, &back[0], 30));
    EXPECT_TRUE(back == up + '\0');
    sock.AbortSocket();
}

TEST_F(SocketTest, ConnectsOverIPv4AndIPv6WithDescriptorsAbove1023)
{
    // Fill the low numbers so the connections get high ones: readiness tests must still
    // work past FD_SETSIZE.
    std::vector<unsigned int> fillers;
    for (int i = 0; i < 1100; ++i)
        fillers.push_back(CSISocket::socket(kInet, kStream, 0));
    ASSERT_EQ(fillers.end(), std::find(fillers.begin(), fillers.end(), CSISocket::invalidSocket));
    for (bool v6 : {false, true}) {
        ScriptedPeer peer(
            [](PeerConn& c) {
                c.send("echo " + c.recvLine());
                c.recvAll(2000);
            },
            v6, 2);
        for (const char* host : {v6 ? "::1" : "127.0.0.1", v6 ? "[::1]" : "localhost"}) {
            CSITcpSocket sock(host, peer.port());
            ASSERT_TRUE(sock.TcpOpen()) << host;
            EXPECT_GT(sock.GetSocket(), 1023u);
            ASSERT_TRUE(sock.SendString("ping\r\n", 5));
            char line[CSITcpSocket::maxLineLength];
            ASSERT_TRUE(sock.GetLine(line, 5)) << host;
            EXPECT_STREQ("echo ping\r", line);
            EXPECT_EQ(0, CSISocket::isReadable(sock.GetSocket(), 0));
            EXPECT_EQ(1, CSISocket::isWriteable(sock.GetSocket(), 1));
            sock.AbortSocket();
        }
    }
    for (unsigned int s : fillers)
        CSISocket::close(s);
    CSITcpSocket sock("127.0.0.1", 1);
    EXPECT_FALSE(sock.TcpOpen("no-such-service"));
}
