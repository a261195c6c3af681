// Stacks on Windows: dbghelp walks the frames (StackWalk64 over the unwind data or the
// frame chain) and names modules, symbols and source lines (SymFromAddr,
// SymGetLineFromAddr64). dbghelp is not thread-safe; the caller holds the walker's lock.
#include "os/os_stack.h"

#include <windows.h>
#include <dbghelp.h>

#include <cstring>
#include <vector>

namespace Vardo400 {
namespace os {

namespace {

bool g_bSymbols = false;

#if defined(_M_X64) || defined(__x86_64__)
const DWORD kMachine = IMAGE_FILE_MACHINE_AMD64;
void framesFromContext(const CONTEXT& c, STACKFRAME64& f)
{
    f.AddrPC.Offset = c.Rip;
    f.AddrFrame.Offset = c.Rbp;
    f.AddrStack.Offset = c.Rsp;
}
#else
const DWORD kMachine = IMAGE_FILE_MACHINE_I386;
void framesFromContext(const CONTEXT& c, STACKFRAME64& f)
{
    f.AddrPC.Offset = c.Eip;
    f.AddrFrame.Offset = c.Ebp;
    f.AddrStack.Offset = c.Esp;
}
#endif

// Walks from context (which StackWalk64 may change), leaving out skip frames.
int walk(CONTEXT& context, uintptr_t* pcs, int max, int skip)
{
    STACKFRAME64 frame;
    std::memset(&frame, 0, sizeof frame);
    framesFromContext(context, frame);
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrFrame.Mode = AddrModeFlat;
    frame.AddrStack.Mode = AddrModeFlat;
    HANDLE process = GetCurrentProcess();
    HANDLE thread = GetCurrentThread();
    int n = 0;
    // The walk's length is bounded by the frames wanted plus the ones left out.
    for (int walked = 0; n < max && walked < max + skip; ++walked) {
        if (!StackWalk64(kMachine, process, thread, &frame, &context, NULL,
                         SymFunctionTableAccess64, SymGetModuleBase64, NULL))
            break;
        if (walked < skip)
            continue;
        if (frame.AddrPC.Offset == 0)
            continue;
        pcs[n++] = static_cast<uintptr_t>(frame.AddrPC.Offset);
    }
    return n;
}

std::string utf8Of(const wchar_t* s)
{
    int n = WideCharToMultiByte(CP_UTF8, 0, s, -1, NULL, 0, NULL, NULL);
    if (n <= 1)
        return std::string();
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, s, -1, &out[0], n, NULL, NULL);
    out.resize(static_cast<size_t>(n - 1));
    return out;
}

} // namespace

int stackCapture(uintptr_t* pcs, int max, int skip)
{
    if (!pcs || max <= 0)
        return 0;
    stackSymbolsInit();   // the walk needs the module list for unwind data
    CONTEXT context;
    std::memset(&context, 0, sizeof context);
    RtlCaptureContext(&context);
    // The captured context is this function's own frame.
    return walk(context, pcs, max, (skip > 0 ? skip : 0) + 1);
}

int stackCaptureContext(void* exceptionPointers, uintptr_t* pcs, int max, int skip)
{
    EXCEPTION_POINTERS* ep = static_cast<EXCEPTION_POINTERS*>(exceptionPointers);
    if (!ep || !ep->ContextRecord || !pcs || max <= 0)
        return -1;
    stackSymbolsInit();
    CONTEXT context = *ep->ContextRecord;
    return walk(context, pcs, max, skip > 0 ? skip : 0);
}

bool stackSymbolsInit()
{
    if (g_bSymbols)
        return true;
    SymSetOptions(SymGetOptions() | SYMOPT_LOAD_LINES | SYMOPT_DEFERRED_LOADS | SYMOPT_UNDNAME |
                  SYMOPT_FAIL_CRITICAL_ERRORS | SYMOPT_NO_PROMPTS);
    g_bSymbols = SymInitializeW(GetCurrentProcess(), NULL, TRUE) != FALSE;
    return g_bSymbols;
}

void stackSymbolsRelease()
{
    if (g_bSymbols) {
        SymCleanup(GetCurrentProcess());
        g_bSymbols = false;
    }
}

void stackDescribe(uintptr_t pc, bool returnAddress, StackAddressInfo& info)
{
    info = StackAddressInfo();
    if (pc == 0)
        return;
    const DWORD64 lookup = returnAddress ? pc - 1 : pc;
    HMODULE module = NULL;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                               GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<LPCWSTR>(static_cast<uintptr_t>(lookup)), &module) &&
        module) {
        std::vector<wchar_t> path(32768);
        DWORD n = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (n > 0 && n < path.size()) {
            info.hasModule = true;
            info.module = utf8Of(path.data());
        }
    }
    if (!g_bSymbols)
        return;
    HANDLE process = GetCurrentProcess();
    if (info.hasModule && SymGetModuleBase64(process, lookup) == 0) {
        // A module loaded after the symbol handler started: tell it about the module.
        SymRefreshModuleList(process);
    }
    alignas(SYMBOL_INFO) char buffer[sizeof(SYMBOL_INFO) + 1024];
    std::memset(buffer, 0, sizeof buffer);
    SYMBOL_INFO* symbol = reinterpret_cast<SYMBOL_INFO*>(buffer);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol->MaxNameLen = 1024 - 1;
    DWORD64 displacement = 0;
    if (SymFromAddr(process, lookup, &displacement, symbol) && symbol->Name[0]) {
        info.hasSymbol = true;
        info.symbol.assign(symbol->Name, strnlen(symbol->Name, symbol->MaxNameLen));
        info.symbolOffset = static_cast<uint64_t>(pc - (lookup - displacement));
    }
    IMAGEHLP_LINE64 line;
    std::memset(&line, 0, sizeof line);
    line.SizeOfStruct = sizeof line;
    DWORD lineDisplacement = 0;
    if (SymGetLineFromAddr64(process, lookup, &lineDisplacement, &line) && line.FileName) {
        info.hasLine = true;
        info.file = line.FileName;
        info.line = static_cast<int>(line.LineNumber);
        info.lineOffset = static_cast<uint64_t>(pc - (lookup - lineDisplacement));
    }
}

} // namespace os
} // namespace Vardo400
