// The small shared facilities: containers, SResString, SEnv, SSimpleBuffer,
// CSharedLibrary and the version texts.
#include "vardo/DllWrap.h"
#include "vardo/containers.h"
#include "vardo/senv.h"
#include "vardo/simplebuffer.h"
#include "vardo/sresstring.h"
#include "vardo/version.h"

#include "text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

using vardo_test::W;
const auto& A = vardo_test::U;

bool onWindows() { return std::strncmp(LibraryPlatform(), "Windows", 7) == 0; }

} // namespace

// ---- SResString ----------------------------------------------------------------------------

TEST(SResString, FillsPlaceholdersByPosition)
{
    const struct {
        const char* format;
        std::vector<const char*> args;
        const char* expected;
    } cases[] = {
        {"%2 before %1, %2 again", {"one", "two"}, "two before one, two again"},
        {"plain", {"unused"}, "plain"},
        {"%12 %11 %10 %9 %1", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12"}, "12 11 10 9 1"},
        {"%10|%1", {"a"}, "%10|a"},  // placeholder 10 without its argument, not %1 and "0"
        {"%1 %2 %3", {"x"}, "x %2 %3"},
        {"100%%%% %0 %x %", {}, "100%% %0 %x %"},  // doubled marks give one; stray marks stay
        {"%1%% done", {"100"}, "100% done"},
        {"%1 %2", {"%2", "b"}, "%2 b"},  // arguments are not scanned again
    };
    for (const auto& c : cases) {
        SResString r(c.format);
        for (const char* arg : c.args)
            r << arg;
        EXPECT_EQ(c.expected, A(r.format())) << c.format;
    }

    // The trace formatter's shape, with numbers and another mark.
    SResString a("assert failure: (%1:%2). (%3 : %4).");
    a << "file.cpp" << 42 << W("x != 0") << W("");
    EXPECT_EQ("assert failure: (file.cpp:42). (x != 0 : ).", A(a));
    SResString n(W("$1 $2 $3 (not %1) $$"), '$');
    n << (-9223372036854775807LL - 1) << 18446744073709551615ULL << 0u;
    EXPECT_EQ("-9223372036854775808 18446744073709551615 0 (not %1) $", A(n.format()));
    SIArray<SWCharString> args{W("a"), W("b")};
    EXPECT_EQ("b-a", A(SResString::Format(W("%2-%1"), args)));
}

// ---- SEnv ----------------------------------------------------------------------------------

TEST(SEnv, SetReadUnsetAndInvalidNames)
{
    const SWCharString name = W("VARDO_TEST_SENV_VALUE");
    // Text beyond 7 bits survives the round trip (UTF-8 on Linux, UTF-16 on Windows).
    const unsigned short wide[] = {'x', 0x00E9, 0x4E2D, 0xD83D, 0xDE00, 0};
    ASSERT_TRUE(SEnv::set(name, SWCharString(wide)));
    EXPECT_TRUE(SEnv::isSet(name));
    EXPECT_TRUE(SEnv::get(name) == SWCharString(wide)) << A(SEnv::get(name));

    // A long value (beyond any first guess of a buffer size).
    const SWCharString longValue = W(std::string(10000, 'v'));
    ASSERT_TRUE(SEnv::set(name, longValue));
    EXPECT_TRUE(SEnv::get(name) == longValue);

    ASSERT_TRUE(SEnv::unset(name));
    EXPECT_FALSE(SEnv::isSet(name));
    EXPECT_TRUE(SEnv::get(name).isEmpty());
    EXPECT_TRUE(SEnv::unset(name));  // removing an absent variable is fine

    EXPECT_FALSE(SEnv::set(W(""), W("x")));
    EXPECT_FALSE(SEnv::set(W("A=B"), W("x")));
    EXPECT_TRUE(SEnv::get(W("A=B")).isEmpty());
    EXPECT_FALSE(SEnv::isSet(W("")));
}

// ---- SSimpleBuffer -------------------------------------------------------------------------

TEST(SSimpleBuffer, GrowsAndKeepsContent)
{
    SSimpleBuffer b;
    for (int i = 0; i < 100000; ++i)
        b.append(static_cast<unsigned char>(i & 0xFF));
    ASSERT_EQ(100000u, b.size());
    for (int i = 0; i < 100000; ++i)
        ASSERT_EQ(i & 0xFF, b.data()[i]) << i;
    b.append("xyz", 3);
    b.append(nullptr, 0);
    EXPECT_EQ(0, std::memcmp(b.data() + 99999, "\x9Fxyz", 4));

    // Appending itself, even when that reallocates: the copy comes from the new block.
    SSimpleBuffer self("abcd", 4);
    size_t cap = self.capacity();
    while (self.size() <= cap)
        self.append(self.data(), self.size());
    EXPECT_EQ(0, std::memcmp(self.data() + self.size() / 2, "abcdabcdabcdabcd", 16));

    b.grow(2)[1] = 'K';
    EXPECT_EQ(100005u, b.size());
    EXPECT_EQ('K', b.data()[100004]);
    EXPECT_EQ(nullptr, b.grow(0));

    b.clear();
    b.resize(3);
    EXPECT_EQ(0, b.data()[0] | b.data()[1] | b.data()[2]);
    b.release();
    EXPECT_EQ(0u, b.capacity());
}

TEST(SSimpleBuffer, CopyMoveAttach)
{
    SSimpleBuffer a("hello", 5);
    SSimpleBuffer b(a);
    b.append('!');
    EXPECT_TRUE(a == SSimpleBuffer("hello", 5));
    SSimpleBuffer c(std::move(b));
    EXPECT_EQ(6u, c.size());
    EXPECT_EQ(0u, b.size());

    unsigned char* block = SSimpleBuffer::alloc(16);
    ASSERT_NE(nullptr, block);
    std::memcpy(block, "0123456789", 10);
    SSimpleBuffer owner;
    owner.attach(block, 10, 16);
    owner.append("ab", 2);
    EXPECT_EQ(0, std::memcmp(owner.data(), "0123456789ab", 12));
    SSimpleBuffer::dealloc(owner.detach());
    EXPECT_EQ(nullptr, owner.data());

    EXPECT_THROW(owner.reserve(static_cast<size_t>(-1)), std::bad_alloc);
    owner.append("x", 1);
    EXPECT_THROW(owner.grow(static_cast<size_t>(-1)), std::bad_alloc);
    EXPECT_FALSE(owner.setSize(static_cast<size_t>(-1)));
    EXPECT_EQ(1u, owner.size());
    EXPECT_EQ(nullptr, SSimpleBuffer::alloc(static_cast<size_t>(-1)));
    EXPECT_TRUE(owner.setSize(5));
    EXPECT_EQ(5u, owner.size());
}

// ---- CSharedLibrary ------------------------------------------------------------------------

TEST(CSharedLibrary, LoadsAndResolves)
{
    const char* lib = onWindows() ? "kernel32.dll" : "libm.so.6";
    const char* entry = onWindows() ? "GetTickCount" : "cos";
    CSharedLibrary l(W(lib));
    EXPECT_NE(nullptr, l.getProcAddress(entry));

    EXPECT_EQ(nullptr, l.findProcAddress("vardo_no_such_entry_point"));
    try {
        l.getProcAddress("vardo_no_such_entry_point");
        FAIL() << "no exception";
    } catch (const CSharedLibraryException& e) {
        EXPECT_EQ(CSharedLibraryException::SymbolNotFound, e.ErrCode());
        EXPECT_EQ(std::string("Unable to find the entry point vardo_no_such_entry_point in the shared library ") +
                      lib + ".",
                  A(e.toString()));
    }

    CSharedLibrary moved(std::move(l));
    EXPECT_FALSE(l.isLoaded());
    EXPECT_NE(nullptr, moved.findProcAddress(entry));
    moved.unload();
    EXPECT_FALSE(moved.isLoaded());
    EXPECT_TRUE(moved.getName().isEmpty());
    EXPECT_EQ(nullptr, moved.findProcAddress(entry));
    try {
        moved.getProcAddress(entry);
        FAIL() << "no exception";
    } catch (const CSharedLibraryException& e) {
        EXPECT_EQ(CSharedLibraryException::NotLoaded, e.ErrCode());
    }

    // Without an extension the platform's is appended (Windows: "kernel32" loads
    // kernel32.dll; Linux: "m" tries m.so, then libm.so).
    if (onWindows()) {
        CSharedLibrary k(W("kernel32"));
        EXPECT_NE(nullptr, k.findProcAddress("GetTickCount"));
    }
}

TEST(CSharedLibrary, MissingLibraryThrows)
{
    CSharedLibrary l;
    try {
        l.load(W("vardo_no_such_library_4711"));
        FAIL() << "no exception";
    } catch (const CSharedLibraryException& e) {
        EXPECT_EQ(CSharedLibraryException::LoadFailed, e.ErrCode());
        EXPECT_EQ("Unable to load the shared library vardo_no_such_library_4711.", A(e.toString()));
        EXPECT_FALSE(e.getReason().isEmpty());
        EXPECT_EQ(A(e.toString()) + ":" + A(e.getReason()), A(e.summary()));
    }
    EXPECT_FALSE(l.isLoaded());
    EXPECT_THROW({ CSharedLibrary x(W("")); }, CSharedLibraryException);
    EXPECT_THROW({ CSharedLibrary x(W("/no/such/dir/x.so")); }, CSharedLibraryException);
}

TEST(CSharedLibrary, FileName2DllName)
{
    EXPECT_EQ("log_xn_system", A(CSharedLibrary::FileName2DllName(W("C:\\plugins\\log_xn_system.DLL"))));
    EXPECT_EQ("log_xn_system", A(CSharedLibrary::FileName2DllName(W("/opt/q/plugins/log_xn_system.so"))));
    EXPECT_EQ("libm", A(CSharedLibrary::FileName2DllName(W("/lib/libm.so.6"))));
    EXPECT_EQ("notes.txt", A(CSharedLibrary::FileName2DllName(W("d/notes.txt"))));
    EXPECT_EQ("a.b", A(CSharedLibrary::FileName2DllName(W("a.b.dll"))));
    EXPECT_EQ(".dll", A(CSharedLibrary::FileName2DllName(W("dir/.dll"))));
    EXPECT_EQ("", A(CSharedLibrary::FileName2DllName(W("dir/"))));
}

// ---- version -------------------------------------------------------------------------------

TEST(Version, Texts)
{
    std::string platform = LibraryPlatform();
    EXPECT_TRUE(platform.rfind("Windows ", 0) == 0 || platform.rfind("Linux ", 0) == 0) << platform;
}
