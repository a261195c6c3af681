// Stacks on Linux: program counters from the compiler's unwinder (the same call-frame
// tables exceptions use), descriptions from elfutils' libdwfl over the process's own
// mappings: module, symbol (symbol table or dynamic symbols) and source line (DWARF).
#include "os/os_stack.h"

#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace Vardo400 {
namespace os {

namespace {

struct CaptureState {
    uintptr_t* pcs;
    int max;
    int skip;   // frames still to leave out
    int count;
};

_Unwind_Reason_Code captureFrame(struct _Unwind_Context* context, void* arg)
{
    CaptureState* s = static_cast<CaptureState*>(arg);
    int beforeInsn = 0;
    uintptr_t pc = static_cast<uintptr_t>(_Unwind_GetIPInfo(context, &beforeInsn));
    if (s->skip > 0) {
        --s->skip;
        return _URC_NO_REASON;
    }
    if (pc == 0)
        return _URC_NO_REASON;
    if (s->count >= s->max)
        return _URC_END_OF_STACK;
    s->pcs[s->count++] = pc;
    return _URC_NO_REASON;
}

// The libdwfl session of the process, made once and kept until released.
Dwfl* g_pDwfl = 0;

// Opens module files ourselves so that their descriptors are close-on-exec from the
// start; anything that is not a plain path ("[vdso: N]") goes to the standard callback.
int findElf(Dwfl_Module* mod, void** userdata, const char* moduleName, Dwarf_Addr base,
            char** fileName, Elf** elfp)
{
    if (moduleName && moduleName[0] == '/') {
        int fd = ::open(moduleName, O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return -1;
        *fileName = ::strdup(moduleName);
        *elfp = 0;
        return fd;
    }
    return dwfl_linux_proc_find_elf(mod, userdata, moduleName, base, fileName, elfp);
}

// Separate debugging files (build-id or debuglink under the standard path); whatever
// descriptor the standard search opens is made close-on-exec before it is kept.
int findDebuginfo(Dwfl_Module* mod, void** userdata, const char* moduleName, Dwarf_Addr base,
                  const char* fileName, const char* debuglinkFile, GElf_Word debuglinkCrc,
                  char** debuginfoFileName)
{
    int fd = dwfl_standard_find_debuginfo(mod, userdata, moduleName, base, fileName,
                                          debuglinkFile, debuglinkCrc, debuginfoFileName);
    if (fd >= 0)
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    return fd;
}

char* g_debuginfoPath = 0;
const Dwfl_Callbacks g_callbacks = {findElf, findDebuginfo, 0, &g_debuginfoPath};

// (Re)reads the process's mappings into the session; modules seen before are kept.
bool reportModules(bool add)
{
    FILE* maps = std::fopen("/proc/self/maps", "re");
    if (!maps)
        return false;
    if (add)
        dwfl_report_begin_add(g_pDwfl);
    else
        dwfl_report_begin(g_pDwfl);
    int rc = dwfl_linux_proc_maps_report(g_pDwfl, maps);
    std::fclose(maps);
    dwfl_report_end(g_pDwfl, 0, 0);
    return rc == 0;
}

} // namespace

int stackCapture(uintptr_t* pcs, int max, int skip)
{
    if (!pcs || max <= 0)
        return 0;
    // The first frame the unwinder reports is this function's own.
    CaptureState s = {pcs, max, (skip > 0 ? skip : 0) + 1, 0};
    _Unwind_Backtrace(captureFrame, &s);
    return s.count;
}

int stackCaptureContext(void* exceptionPointers, uintptr_t* pcs, int max, int skip)
{
    if (!exceptionPointers || !pcs || max <= 0)
        return -1;
    const ucontext_t* uc = static_cast<const ucontext_t*>(exceptionPointers);
    uintptr_t faulting = 0;
#if defined(__x86_64__)
    faulting = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RIP]);
#elif defined(__i386__)
    faulting = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_EIP]);
#elif defined(__aarch64__)
    faulting = static_cast<uintptr_t>(uc->uc_mcontext.pc);
#else
    (void)uc;
#endif
    if (faulting == 0)
        return -1;
    // A context handed to a signal handler lies on the current stack, behind the signal
    // frame: walk the current stack and start at the faulting instruction. A context
    // from anywhere else yields its faulting frame alone.
    const int room = max + 64;
    std::vector<uintptr_t> all(static_cast<size_t>(room));
    CaptureState s = {all.data(), room, 1, 0};
    _Unwind_Backtrace(captureFrame, &s);
    int start = -1;
    for (int i = 0; i < s.count; ++i)
        if (all[static_cast<size_t>(i)] == faulting) {
            start = i;
            break;
        }
    int n = 0;
    if (start < 0) {
        if (skip <= 0)
            pcs[n++] = faulting;
        return n;
    }
    for (int i = start + (skip > 0 ? skip : 0); i < s.count && n < max; ++i)
        pcs[n++] = all[static_cast<size_t>(i)];
    return n;
}

bool stackSymbolsInit()
{
    if (g_pDwfl)
        return true;
    g_pDwfl = dwfl_begin(&g_callbacks);
    if (!g_pDwfl)
        return false;
    if (!reportModules(false)) {
        dwfl_end(g_pDwfl);
        g_pDwfl = 0;
        return false;
    }
    return true;
}

void stackSymbolsRelease()
{
    if (g_pDwfl) {
        dwfl_end(g_pDwfl);
        g_pDwfl = 0;
    }
}

void stackDescribe(uintptr_t pc, bool returnAddress, StackAddressInfo& info)
{
    info = StackAddressInfo();
    if (!g_pDwfl || pc == 0)
        return;
    // A return address points behind the call; the call itself decides symbol and line.
    const Dwarf_Addr lookup = returnAddress ? pc - 1 : pc;
    Dwfl_Module* mod = dwfl_addrmodule(g_pDwfl, lookup);
    if (!mod) {
        // A library loaded since the mappings were read: read them again.
        if (reportModules(true))
            mod = dwfl_addrmodule(g_pDwfl, lookup);
        if (!mod)
            return;
    }
    const char* name = dwfl_module_info(mod, 0, 0, 0, 0, 0, 0, 0);
    if (name) {
        info.hasModule = true;
        info.module = name;
    }
    GElf_Off offset = 0;
    GElf_Sym sym;
    std::memset(&sym, 0, sizeof sym);
    const char* symbol = dwfl_module_addrinfo(mod, lookup, &offset, &sym, 0, 0, 0);
    if (symbol && *symbol) {
        info.hasSymbol = true;
        info.symbol = symbol;
        info.symbolOffset = static_cast<uint64_t>(pc - (lookup - offset));
    }
    Dwfl_Line* line = dwfl_module_getsrc(mod, lookup);
    if (line) {
        Dwarf_Addr lineAddress = 0;
        int lineNumber = 0;
        const char* file = dwfl_lineinfo(line, &lineAddress, &lineNumber, 0, 0, 0);
        if (file && *file) {
            info.hasLine = true;
            info.file = file;
            info.line = lineNumber;
            info.lineOffset = lineAddress <= pc ? static_cast<uint64_t>(pc - lineAddress) : 0;
        }
    }
}

} // namespace os
} // namespace Vardo400
