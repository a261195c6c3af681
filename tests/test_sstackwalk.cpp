// SStackWalk: frames of the current thread with module, symbol and source line.
#include "vardo/sstackwalk.h"

#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <csignal>
#include <ucontext.h>
#endif

using namespace Vardo400;

namespace {

std::string utf8(const SWCharString& s)
{
    std::string out;
    for (unsigned int i = 0; i < s.getLength(); ++i) {
        unsigned short c = s.data()[i];
        out += c < 0x80 ? static_cast<char>(c) : '?';
    }
    return out;
}

SWCharString ascii(const char* s)
{
    SWCharString out;
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return out;
}

size_t countOf(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// Frames descriptions start with "0x" (the digits after it are upper case).
size_t frameCount(const std::string& walk) { return countOf(walk, "0x"); }

volatile int g_sink = 0;

extern "C" __attribute__((noinline)) bool VardoProbeInner(SWCharString& out, int skip)
{
    bool ok = SStackWalk::StackWalkAll(out, skip);
    g_sink = g_sink + 1;   // keeps the call from becoming a jump
    return ok;
}

extern "C" __attribute__((noinline)) bool VardoProbeOuter(SWCharString& out, int skip)
{
    bool ok = VardoProbeInner(out, skip);
    g_sink = g_sink + 1;
    return ok;
}

__attribute__((noinline)) int recurse(int depth, SWCharString& out)
{
    int r = depth == 0 ? (SStackWalk::StackWalkAll(out, 0) ? 1 : 0) : recurse(depth - 1, out);
    g_sink = g_sink + 1;
    return r;
}

} // namespace

TEST(SStackWalk, WalkNamesTheCallerItsModuleAndSourceLine)
{
    SStackWalk walker;
    SWCharString out;
    ASSERT_TRUE(VardoProbeOuter(out, 0));
    std::string text = utf8(out);
    // The walker's own frames are left out: the first frame is the caller.
    ASSERT_EQ(0u, text.find("0x")) << text;
    size_t inner = text.find("VardoProbeInner");
    size_t outer = text.find("VardoProbeOuter");
    ASSERT_NE(std::string::npos, inner) << text;
    ASSERT_NE(std::string::npos, outer) << text;
    EXPECT_LT(inner, outer);
    EXPECT_EQ(std::string::npos, text.find("StackWalkAll")) << text;
    // The first frame: address, module (no directory, no extension), symbol, line.
    std::string first = text.substr(0, text.find("0x", 2));
    EXPECT_NE(std::string::npos, first.find(" test_sstackwalk: VardoProbeInner + ")) << first;
    EXPECT_NE(std::string::npos, first.find(" bytes\n\t\t")) << first;
    EXPECT_NE(std::string::npos, first.find("test_sstackwalk.cpp, Line ")) << first;
    // The walk appends to what the text held.
    SWCharString more = ascii("before:");
    ASSERT_TRUE(VardoProbeOuter(more, 0));
    EXPECT_EQ(0u, utf8(more).find("before:0x"));
}

TEST(SStackWalk, SkipLeavesOutFramesFromTheTop)
{
    SWCharString none, one, huge, negative;
    ASSERT_TRUE(VardoProbeOuter(none, 0));
    ASSERT_TRUE(VardoProbeOuter(one, 1));
    std::string a = utf8(none), b = utf8(one);
    EXPECT_EQ(std::string::npos, b.find("VardoProbeInner")) << b;
    EXPECT_NE(std::string::npos, b.substr(0, b.find("0x", 2)).find("VardoProbeOuter")) << b;
    EXPECT_EQ(frameCount(a), frameCount(b) + 1);
    // More frames than the stack holds: nothing, and still success.
    ASSERT_TRUE(VardoProbeOuter(huge, 100000));
    EXPECT_TRUE(huge.isEmpty());
    // A negative count skips nothing.
    ASSERT_TRUE(VardoProbeOuter(negative, -5));
    EXPECT_NE(std::string::npos, utf8(negative).find("VardoProbeInner"));
}

TEST(SStackWalk, AtMost512Frames)
{
    SWCharString out;
    ASSERT_EQ(1, recurse(700, out));
    std::string text = utf8(out);
    EXPECT_EQ(512u, frameCount(text));
    EXPECT_GE(countOf(text, "recurse"), 500u);
}

TEST(SStackWalk, AddressOutsideEveryModule)
{
    std::string text = utf8(SStackWalk::DescribeAddress(0x1000));
    EXPECT_EQ("0x00001000 <unknown module>: <unknown symbol>", text);
    std::string own = utf8(SStackWalk::DescribeAddress(
        reinterpret_cast<uintptr_t>(&VardoProbeInner)));
    EXPECT_NE(std::string::npos, own.find("test_sstackwalk: VardoProbeInner")) << own;
    // At the symbol's first byte no displacement is shown.
    EXPECT_EQ(std::string::npos, own.find("VardoProbeInner + ")) << own;
}

TEST(SStackWalk, NullExceptionContextFails)
{
    SWCharString out = ascii("kept");
    EXPECT_FALSE(SStackWalk::StackWalkAll(nullptr, out, 0));
    EXPECT_EQ(ascii("kept"), out);
}

#if defined(__linux__)
namespace {
SWCharString* g_pSignalWalk = nullptr;
bool g_bSignalWalkOk = false;

void onSignal(int, siginfo_t*, void* context)
{
    g_bSignalWalkOk = SStackWalk::StackWalkAll(context, *g_pSignalWalk, 0);
}

extern "C" __attribute__((noinline)) void VardoRaisingFunction()
{
    std::raise(SIGUSR1);
    g_sink = g_sink + 1;
}
} // namespace

TEST(SStackWalk, WalksTheContextOfASignal)
{
    SWCharString out;
    g_pSignalWalk = &out;
    struct sigaction sa = {}, old = {};
    sa.sa_sigaction = onSignal;
    sa.sa_flags = SA_SIGINFO;
    ASSERT_EQ(0, sigaction(SIGUSR1, &sa, &old));
    VardoRaisingFunction();
    sigaction(SIGUSR1, &old, nullptr);
    ASSERT_TRUE(g_bSignalWalkOk);
    std::string text = utf8(out);
    // The walk starts where the signal was raised, not in the handler.
    EXPECT_EQ(std::string::npos, text.find("onSignal")) << text;
    EXPECT_NE(std::string::npos, text.find("VardoRaisingFunction")) << text;
    EXPECT_NE(std::string::npos, text.find("SStackWalk_WalksTheContextOfASignal")) << text;
}
#endif

TEST(SStackWalk, ConcurrentWalksAreSerialised)
{
    std::vector<std::thread> threads;
    std::vector<std::string> results(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &results] {
            for (int i = 0; i < 5; ++i) {
                SStackWalk walker;   // objects come and go while others walk
                SWCharString out;
                if (VardoProbeOuter(out, 0))
                    results[static_cast<size_t>(t)] = utf8(out);
            }
        });
    for (auto& th : threads)
        th.join();
    for (const std::string& r : results)
        EXPECT_NE(std::string::npos, r.find("VardoProbeInner")) << r;
}
