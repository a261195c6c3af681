// SStackWalk: frames of the current thread with module, symbol and source line.
#include "vardo/sstackwalk.h"
#include "vardo/DllWrap.h"

#include "sfile_test_support.h"
#include "text.h"
#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <csignal>
#endif

using namespace Vardo400;
using vardo_test::W;
using vardo_test::ascii;

namespace {

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

TEST(SStackWalk, WalkAndAddressNameTheCallerItsModuleAndSourceLine)
{
    SStackWalk walker;
    SWCharString out = W("before:");   // the walk appends
    ASSERT_TRUE(VardoProbeOuter(out, 0));
    std::string text = ascii(out);
    // The walker's own frames are left out: the first frame is the caller.
    ASSERT_EQ(0u, text.find("before:0x")) << text;
    EXPECT_LT(text.find("VardoProbeInner"), text.find("VardoProbeOuter")) << text;
    EXPECT_NE(std::string::npos, text.find("VardoProbeOuter")) << text;
    EXPECT_EQ(std::string::npos, text.find("StackWalkAll")) << text;
    // The first frame: address, module (no directory, no extension), symbol, line.
    std::string first = text.substr(7, text.find("0x", 9) - 7);
    EXPECT_NE(std::string::npos, first.find(" test_sstackwalk: VardoProbeInner + ")) << first;
    EXPECT_NE(std::string::npos, first.find(" bytes\n\t\t")) << first;
    EXPECT_NE(std::string::npos, first.find("test_sstackwalk.cpp, Line ")) << first;

    // One address alone, outside every module or at a symbol's first byte (no displacement).
    EXPECT_EQ("0x00001000 <unknown module>: <unknown symbol>", ascii(SStackWalk::DescribeAddress(0x1000)));
    std::string own = ascii(SStackWalk::DescribeAddress(reinterpret_cast<uintptr_t>(&VardoProbeInner)));
    EXPECT_NE(std::string::npos, own.find("test_sstackwalk: VardoProbeInner")) << own;
    EXPECT_EQ(std::string::npos, own.find("VardoProbeInner + ")) << own;
    // No context: nothing walked, the text untouched.
    EXPECT_FALSE(SStackWalk::StackWalkAll(nullptr, out, 0));
    EXPECT_EQ(text, ascii(out));
}

TEST(SStackWalk, SkipLeavesOutFramesFromTheTop)
{
    SWCharString one, huge, negative;
    ASSERT_TRUE(VardoProbeOuter(one, 1));
    std::string b = ascii(one);
    EXPECT_EQ(std::string::npos, b.find("VardoProbeInner")) << b;
    EXPECT_NE(std::string::npos, b.substr(0, b.find("0x", 2)).find("VardoProbeOuter")) << b;
    // More frames than the stack holds: nothing, and still success.
    ASSERT_TRUE(VardoProbeOuter(huge, 100000));
    EXPECT_TRUE(huge.isEmpty());
    // A negative count skips nothing.
    ASSERT_TRUE(VardoProbeOuter(negative, -5));
    EXPECT_EQ(0u, ascii(negative).find("0x"));
    EXPECT_NE(std::string::npos, ascii(negative).find("VardoProbeInner"));

    // A deep stack: at most 512 frames.
    SWCharString deep;
    ASSERT_EQ(1, recurse(700, deep));
    std::string text = ascii(deep);
    const std::regex frame("0x[0-9A-F]{8,16} ");
    EXPECT_EQ(512, std::distance(std::sregex_iterator(text.begin(), text.end(), frame), std::sregex_iterator()));
}

#if defined(__linux__)
namespace {
SWCharString g_signalWalk;
bool g_signalWalkOk = false;

void onSignal(int, siginfo_t*, void* context)
{
    g_signalWalkOk = SStackWalk::StackWalkAll(context, g_signalWalk, 0);
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
    struct sigaction sa = {}, old = {};
    sa.sa_sigaction = onSignal;
    sa.sa_flags = SA_SIGINFO;
    ASSERT_EQ(0, sigaction(SIGUSR1, &sa, &old));
    VardoRaisingFunction();
    sigaction(SIGUSR1, &old, nullptr);
    ASSERT_TRUE(g_signalWalkOk);
    std::string text = ascii(g_signalWalk);
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
                    results[static_cast<size_t>(t)] = ascii(out);
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
    SWCharString before;
    ASSERT_TRUE(VardoProbeOuter(before, 0));   // the symbols are loaded before the library
    uintptr_t address = 0;
    {
        CSharedLibrary lib(W(path));
        address = reinterpret_cast<uintptr_t>(lib.getProcAddress("GetDLLVersion"));
        std::string text = ascii(SStackWalk::DescribeAddress(address));
        EXPECT_NE(std::string::npos, text.find(" log_xn_system: GetDLLVersion")) << text;
    }
    // Gone: its address names no module any more (unless something else took its place).
    EXPECT_EQ(std::string::npos, ascii(SStackWalk::DescribeAddress(address)).find("log_xn_system"));
}
