// Platform layer: capturing the program counters of a stack and describing an address
// (module, symbol, source line). Not installed.
//
// Every function here must be called with the stack walker's process-wide lock held:
// the platforms' symbol handlers are not thread-safe.
#ifndef VARDO_OS_STACK_H
#define VARDO_OS_STACK_H

#include <cstdint>
#include <string>

namespace Vardo400 {
namespace os {

// Program counters of the calling thread, innermost first. The frame of stackCapture
// itself is never included; skip further frames are left out after it. Frames whose
// program counter is 0 are dropped. Returns how many were stored (at most max).
int stackCapture(uintptr_t* pcs, int max, int skip);

// Program counters of the context recorded in an exception (Windows: EXCEPTION_POINTERS*;
// Linux: ucontext_t*), the faulting one first, as stackCapture stores them. -1 when the
// context cannot be walked.
int stackCaptureContext(void* exceptionPointers, uintptr_t* pcs, int max, int skip);

// What the symbol handler knows of one address. Texts are UTF-8 bytes as the platform
// gives them (symbol names may be mangled).
struct StackAddressInfo {
    bool hasModule = false;
    std::string module;          // the module's file, with its directory
    bool hasSymbol = false;
    std::string symbol;
    uint64_t symbolOffset = 0;   // address - the symbol's start
    bool hasLine = false;
    std::string file;            // the source file, with its directory
    int line = 0;
    uint64_t lineOffset = 0;     // address - the first address of the line
};

// Loads the symbol handler for the process (idempotent). False when it cannot start; the
// walk then describes addresses without modules or symbols.
bool stackSymbolsInit();
// Releases what stackSymbolsInit loaded (idempotent).
void stackSymbolsRelease();

// Describes pc. returnAddress: pc is a return address (every frame but an exception's
// faulting one), so the call instruction before it decides symbol and line; the offsets
// are still measured to pc itself.
void stackDescribe(uintptr_t pc, bool returnAddress, StackAddressInfo& info);

// The faulting frame of stackCaptureContext is its first; stackCapture's frames are all
// return addresses.

} // namespace os
} // namespace Vardo400

#endif
