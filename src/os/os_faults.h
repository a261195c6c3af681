// Fault injection for the library's own tests: failures a test machine cannot produce on
// demand (a full disk, a failing read or commit). One mechanism serves every fault point:
// a fault is armed with an error number and a count of units (calls, or bytes for the
// copy) that still succeed; the unit after them fails with that error, once.
//
// The arming function exists only in a library built with VARDO_TEST_HOOKS (the test
// presets); there it is exported for the test programs. A release library has no hooks:
// faultPass is then an inline function that lets everything through. Not installed.
#ifndef VARDO_OS_FAULTS_H
#define VARDO_OS_FAULTS_H

#include "os/os_error.h"

#include <cstdint>

#if defined(VARDO_TEST_HOOKS)
#  include "vardo/vardodefs.h"
#  define VARDO_FAULTS_API VARDO_API
#endif

namespace Vardo400 {
namespace os {

enum FaultPoint {
    faultFileOpen = 0,    // os::fileOpen (units: calls)
    faultFileRead = 1,    // os::fileRead
    faultFileWrite = 2,   // os::fileWrite
    faultFileCommit = 3,  // os::fileCommit
    faultCopyBytes = 4,   // os::fsCopyFile (units: bytes written to the target)
    faultPointCount = 5
};

#if defined(VARDO_TEST_HOOKS)

// Arms point p: `after` units succeed, then the next fails with the C run-time error
// number errorNumber (the Windows file-copy path reports the matching Win32 code).
// errorNumber 0 disarms. Thread-safe; affects the whole process.
VARDO_FAULTS_API void injectFault(FaultPoint p, int errorNumber, uint64_t after);

// Asks to pass `wanted` units through p. Returns how many may pass; fewer than wanted
// means the fault fires after them: err holds the injected error and p is disarmed.
uint64_t faultPass(FaultPoint p, uint64_t wanted, OsError& err);

#else

inline uint64_t faultPass(FaultPoint, uint64_t wanted, OsError&)
{
    return wanted;
}

#endif

// One call through p: true when it must fail (err set).
inline bool faultFires(FaultPoint p, OsError& err)
{
    return faultPass(p, 1, err) == 0;
}

} // namespace os
} // namespace Vardo400

#endif
