// SStackWalk: frames of the current thread with module, symbol and source line.
#include "vardo/sstackwalk.h"
#include "vardo/DllWrap.h"

#include "sfile_test_support.h"

#include "vardo_gtest.h"

#include "text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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

const auto& utf8 = vardo_test::ascii;

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

std::atomic<int> g_sink(0);   // work after each call keeps it from becoming a jump

extern "C" __attribute__((noinline)) bool VardoProbeInner(SWCharString& out, int skip)
{
    bool ok = SStackWalk::StackWalkAll(out, skip);
    g_sink.fetch_add(1, std::memory_order_relaxed);
    return ok;
}

extern "C" __attribute__((noinline)) bool VardoProbeOuter(SWCharString& out, int skip)
{
    bool ok = VardoProbeInner(out, skip);
    g_sink.fetch_add(1, std::memory_order_relaxed);
    return ok;
}

__attribute__((noinline)) int recurse(int depth, SWCharString& out)
{
    int r = depth == 0 ? (SStackWalk::StackWalkAll(out, 0) ? 1 : 0) : recurse(depth - 1, out);
    g_sink.fetch_add(1, std::memory_order_relaxed);
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
    SWCharString one, huge, negative;
    ASSERT_TRUE(VardoProbeOuter(one, 1));
    std::string b = utf8(one);
    EXPECT_EQ(std::string::npos, b.find("VardoProbeInner")) << b;
    EXPECT_NE(std::string::npos, b.substr(0, b.find("0x", 2)).find("VardoProbeOuter")) << b;
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

TEST(SStackWalk, DescribeAddressAndANullContext)
{
    EXPECT_EQ("0x00001000 <unknown module>: <unknown symbol>", utf8(SStackWalk::DescribeAddress(0x1000)));
    std::string own = utf8(SStackWalk::DescribeAddress(reinterpret_cast<uintptr_t>(&VardoProbeInner)));
    EXPECT_NE(std::string::npos, own.find("test_sstackwalk: VardoProbeInner")) << own;
    // At the symbol's first byte no displacement is shown.
    EXPECT_EQ(std::string::npos, own.find("VardoProbeInner + ")) << own;
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
    g_sink.fetch_add(1, std::memory_order_relaxed);
}
} // namespace

TEST(SStackWalk, WalksTheContextOfASignal)
{
#if defined(__SANITIZE_THREAD__)
    // The walk allocates and locks, which ThreadSanitizer rightly reports inside a
    // signal handler; the walk from a handler is for crash reports, not for this run.
    GTEST_SKIP() << "walking in a signal handler is not async-signal-safe";
#endif
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

#ifndef VARDO_TEST_PLUGIN
#define VARDO_TEST_PLUGIN ""
#endif

TEST(SStackWalk, LibrariesLoadedAndUnloadedBetweenWalks)
{
    std::string path = VARDO_TEST_PLUGIN;
    if (path.empty())
        GTEST_SKIP() << "built without the plug-ins";
    if (vardo_test::onWindows()) {   // the build tree as Wine's drive Z: shows it
        std::replace(path.begin(), path.end(), '/', '\\');
        path = "Z:" + path;
    }
    SStackWalk walker;
    SWCharString before;
    ASSERT_TRUE(VardoProbeOuter(before, 0));   // the symbols are loaded before the library
    uintptr_t address = 0;
    {
        CSharedLibrary lib(ascii(path.c_str()));
        address = reinterpret_cast<uintptr_t>(lib.getProcAddress("GetDLLVersion"));
        std::string text = utf8(SStackWalk::DescribeAddress(address));
        EXPECT_NE(std::string::npos, text.find(" log_xn_system: GetDLLVersion")) << text;
    }
    // Gone: its address names no module any more (unless something else took its place).
    std::string text = utf8(SStackWalk::DescribeAddress(address));
    EXPECT_EQ(std::string::npos, text.find("log_xn_system")) << text;
}
