// Fault injection for the descriptor calls of os_file.h, used by the library's tests to
// reach failures (a full disk, a failing read) that a test machine cannot produce on
// demand. Costs one relaxed atomic load per call when no fault is pending.
#include "os/os_file.h"

#include "vardo/sfile.h"

#include <atomic>
#include <cerrno>

namespace Vardo400 {

namespace {
const int kFaultOps = 4;
std::atomic<int> g_faultErrno[kFaultOps];
std::atomic<unsigned int> g_faultSkip[kFaultOps];
} // namespace

namespace Testing {
void SFileInjectFault(SFileFaultOp op, int errorNumber, unsigned int skip)
{
    int i = static_cast<int>(op);
    if (i < 0 || i >= kFaultOps)
        return;
    g_faultErrno[i].store(0);
    g_faultSkip[i].store(skip);
    g_faultErrno[i].store(errorNumber);
}
} // namespace Testing

namespace os {
bool fileFaultTriggered(int op)
{
    if (op < 0 || op >= kFaultOps || g_faultErrno[op].load(std::memory_order_relaxed) == 0)
        return false;
    unsigned int skip = g_faultSkip[op].load();
    while (skip > 0) {
        if (g_faultSkip[op].compare_exchange_weak(skip, skip - 1))
            return false;
    }
    int e = g_faultErrno[op].exchange(0);
    if (e == 0)
        return false;
    errno = e;
    return true;
}
} // namespace os

} // namespace Vardo400
