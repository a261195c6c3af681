// SStackWalk: the call stack of the current thread (or of an exception context) as text.
#ifndef VARDO_SSTACKWALK_H
#define VARDO_SSTACKWALK_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

class CS_Wrapper;

// Renders a call stack frame after frame. Each frame is described as
//   "0x%08X " the program counter (upper-case hexadecimal, at least eight digits: a
//            64-bit address wider than that shows all its digits),
//   the module's file name without directory and extension, then ": ",
//            or "<unknown module>: ",
//   the symbol, with " + N bytes" when the address lies N bytes past its start,
//            or "<unknown symbol>" (and nothing more for that frame),
//   "\n\t\t" source file ", Line " line number, with " + N bytes" when the address lies
//            N bytes past the line's first instruction, when line information exists.
// Descriptions follow one another without a separator of their own (at most 520
// characters each; symbol names are cut at 260 characters). At most 512 frames are
// walked.
//
// Linux captures with the unwinder and resolves modules, symbols and lines with elfutils
// (libdw) from the binaries' debugging information; Windows uses dbghelp. Symbols need
// the binary's symbol table or debugging information; source lines need the latter.
//
// Thread-safety: every walk of the process is serialised by one process-wide lock
// (m_lockCS), because the platforms' symbol handlers are not thread-safe. Any thread may
// walk at any time, with or without an SStackWalk object.
class VARDO_API SStackWalk {
public:
    // Prepares the process's symbol handling (shared by all objects; the symbol tables
    // are read once and kept while an object lives).
    SStackWalk();
    // Releases the symbol handling when the last object goes.
    ~SStackWalk();

    // Walks the calling thread's stack and appends the frames' descriptions to out.
    // skip frames are left out from the top; the first frame is the caller of
    // StackWalkAll (the walker's own frames are never shown). A skip larger than the
    // stack, or a negative one treated as 0, gives no text. False when the stack could
    // not be captured (out unchanged).
    static bool StackWalkAll(SWCharString& out, int skip);
    // Walks the context recorded in an exception and appends as above, skipping skip
    // frames from the faulting one. exceptionPointers is an EXCEPTION_POINTERS* on
    // Windows and a ucontext_t* (a signal handler's third argument) on Linux. False, out
    // unchanged, for a null pointer or when the context cannot be walked.
    static bool StackWalkAll(void* exceptionPointers, SWCharString& out, int skip);

    // The description of one address, as a walk shows it (for a frame's program counter;
    // callers with a return address pass it unchanged).
    static SWCharString DescribeAddress(uintptr_t address);

private:
    SStackWalk(const SStackWalk&) = delete;
    SStackWalk& operator=(const SStackWalk&) = delete;

    // Serialises every walk and the symbol handler's set-up and release.
    static CS_Wrapper m_lockCS;
};

} // namespace Vardo400

#endif
