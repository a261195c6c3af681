// SStackWalk: frames captured and described by the platform layer, rendered here.
#include "vardo/sstackwalk.h"
#include "vardo/cs_wrapper.h"

#include "os/os_stack.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#if defined(__has_include)
#  if __has_include(<cxxabi.h>)
#    include <cxxabi.h>
#    define VARDO_HAVE_CXXABI 1
#  endif
#endif

namespace Vardo400 {

CS_Wrapper SStackWalk::m_lockCS;

namespace {

const int kMaxFrames = 512;
const unsigned int kMaxDescription = 520;
const size_t kMaxSymbol = 260;

// Objects alive; the symbol tables stay loaded while there is one (and, once a walk
// without an object has loaded them, until the process ends).
int g_nInstances = 0;

class LockHolder {
public:
    explicit LockHolder(CS_Wrapper& cs) : m_cs(cs) { m_cs.Lock(); }
    ~LockHolder() { m_cs.Unlock(); }
private:
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    CS_Wrapper& m_cs;
};

// Releases the symbol handler when the process ends, whatever loaded it.
struct SymbolsAtExit {
    ~SymbolsAtExit() { os::stackSymbolsRelease(); }
} g_symbolsAtExit;

void appendUtf8(SWCharString& out, const std::string& s)
{
    SWCharString part;
    if (!part.fromUTF8(reinterpret_cast<const unsigned char*>(s.data()),
                       static_cast<unsigned int>(s.size()))) {
        part.empty();
        for (char c : s)
            part += SWCharString::Char(static_cast<unsigned short>(
                (static_cast<unsigned char>(c) < 0x80) ? static_cast<unsigned char>(c) : '?'));
    }
    out += part;
}

void appendAscii(SWCharString& out, const char* s)
{
    out.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
}

// The file name without its directory and extension ("libc.so.6" gives "libc",
// "C:\\bin\\app.exe" gives "app").
std::string moduleBaseName(const std::string& path)
{
    size_t start = path.find_last_of("/\\");
    std::string name = start == std::string::npos ? path : path.substr(start + 1);
    size_t so = name.find(".so.");
    if (so != std::string::npos && so > 0)
        return name.substr(0, so);
    size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0)
        name.erase(dot);
    return name;
}

std::string readableSymbol(const std::string& symbol)
{
    std::string name = symbol;
    // Versioned ELF names ("memcpy@@GLIBC_2.14") are shown by their plain name.
    size_t at = name.find('@');
    if (at != std::string::npos && at > 0)
        name.erase(at);
#ifdef VARDO_HAVE_CXXABI
    if (name.size() > 2 && name[0] == '_' && name[1] == 'Z') {
        int status = 0;
        char* demangled = abi::__cxa_demangle(name.c_str(), 0, 0, &status);
        if (demangled && status == 0)
            name = demangled;
        std::free(demangled);
    }
#endif
    if (name.size() > kMaxSymbol)
        name.resize(kMaxSymbol);
    return name;
}

SWCharString describe(uintptr_t pc, bool returnAddress)
{
    os::StackAddressInfo info;
    os::stackDescribe(pc, returnAddress, info);

    char buf[64];
    std::snprintf(buf, sizeof buf, "0x%08llX ", static_cast<unsigned long long>(pc));
    SWCharString out;
    appendAscii(out, buf);
    if (info.hasModule) {
        appendUtf8(out, moduleBaseName(info.module));
        appendAscii(out, ": ");
    } else {
        appendAscii(out, "<unknown module>: ");
    }
    if (!info.hasSymbol) {
        appendAscii(out, "<unknown symbol>");
        return out;
    }
    appendUtf8(out, readableSymbol(info.symbol));
    if (info.symbolOffset != 0) {
        std::snprintf(buf, sizeof buf, " + %llu bytes",
                      static_cast<unsigned long long>(info.symbolOffset));
        appendAscii(out, buf);
    }
    if (info.hasLine) {
        appendAscii(out, "\n\t\t");
        appendUtf8(out, info.file);
        std::snprintf(buf, sizeof buf, ", Line %d", info.line);
        appendAscii(out, buf);
        if (info.lineOffset != 0) {
            std::snprintf(buf, sizeof buf, " + %llu bytes",
                          static_cast<unsigned long long>(info.lineOffset));
            appendAscii(out, buf);
        }
    }
    if (out.getLength() > kMaxDescription)
        out = out.left(kMaxDescription);
    return out;
}

// Appends the descriptions of the frames; the first is a faulting address when
// firstIsFault is set, every other one a return address.
void render(const uintptr_t* pcs, int n, bool firstIsFault, SWCharString& out)
{
    os::stackSymbolsInit();
    for (int i = 0; i < n; ++i)
        out += describe(pcs[i], !(firstIsFault && i == 0));
}

} // namespace

SStackWalk::SStackWalk()
{
    LockHolder lock(m_lockCS);
    ++g_nInstances;
    os::stackSymbolsInit();
}

SStackWalk::~SStackWalk()
{
    LockHolder lock(m_lockCS);
    if (--g_nInstances == 0)
        os::stackSymbolsRelease();
}

// Not inlined, so that the frames left out for the walker's own are always its own.
__attribute__((noinline)) bool SStackWalk::StackWalkAll(SWCharString& out, int skip)
{
    // The skipped frames count toward the bound of the walk.
    if (skip < 0)
        skip = 0;
    if (skip >= kMaxFrames)
        return true;
    LockHolder lock(m_lockCS);
    uintptr_t pcs[kMaxFrames];
    // Leave out this function's own frame as well.
    int n = os::stackCapture(pcs, kMaxFrames - skip, skip + 1);
    render(pcs, n, false, out);
    return true;
}

bool SStackWalk::StackWalkAll(void* exceptionPointers, SWCharString& out, int skip)
{
    if (!exceptionPointers)
        return false;
    if (skip < 0)
        skip = 0;
    if (skip >= kMaxFrames)
        return true;
    LockHolder lock(m_lockCS);
    uintptr_t pcs[kMaxFrames];
    int n = os::stackCaptureContext(exceptionPointers, pcs, kMaxFrames - skip, skip);
    if (n < 0)
        return false;
    // Unless frames were skipped, the first one is the faulting instruction itself.
    render(pcs, n, skip <= 0, out);
    return true;
}

SWCharString SStackWalk::DescribeAddress(uintptr_t address)
{
    LockHolder lock(m_lockCS);
    os::stackSymbolsInit();
    return describe(address, false);
}

} // namespace Vardo400
