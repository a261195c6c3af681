// The native pieces of the COM message-pump thread: a raw thread, the apartment
// initialisation and the window-message loop.
#ifndef VARDO_OS_COMPUMP_H
#define VARDO_OS_COMPUMP_H

#include <cstdint>

#include "os/os_sync.h"

namespace Vardo400 {
namespace os {

typedef unsigned int (*NativeThreadEntry)(void* arg);

// Starts a native thread running entry(arg); its handle is not inheritable. Returns the
// handle (null on failure) and stores the thread's identifier in *threadId.
void* startNativeThread(NativeThreadEntry entry, void* arg, uint32_t* threadId);
// Waits without limit for the thread to end, then closes its handle.
void joinNativeThread(void* thread);

// The message number that ends the pump (WM_USER).
const uint32_t PumpQuitMessage = 1025;

// Body of the pump thread: joins a single-threaded COM apartment (returns false at once
// when that fails, leaving ready unset), sets ready, then handles messages until the
// queue ends or PumpQuitMessage arrives, and leaves the apartment.
bool runMessagePump(SyncHandle ready);
// Posts PumpQuitMessage to the thread with this identifier. False when it has no queue.
bool postPumpQuit(uint32_t threadId);

} // namespace os
} // namespace Vardo400

#endif
