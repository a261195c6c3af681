// The fault points of os_faults.h, compiled only into a test build of the library.
#include "os/os_faults.h"

#if defined(VARDO_TEST_HOOKS)

#include <atomic>

namespace Vardo400 {
namespace os {

namespace {

struct Armed {
    std::atomic<int> errorNumber{0};
    std::atomic<uint64_t> after{0};
};

Armed g_points[faultPointCount];

} // namespace

void injectFault(FaultPoint p, int errorNumber, uint64_t after)
{
    if (p < 0 || p >= faultPointCount)
        return;
    Armed& a = g_points[p];
    a.errorNumber.store(0);
    a.after.store(after);
    a.errorNumber.store(errorNumber);
}

uint64_t faultPass(FaultPoint p, uint64_t wanted, OsError& err)
{
    if (p < 0 || p >= faultPointCount)
        return wanted;
    Armed& a = g_points[p];
    if (a.errorNumber.load(std::memory_order_relaxed) == 0)
        return wanted;
    uint64_t left = a.after.load();
    while (left >= wanted) {
        if (a.after.compare_exchange_weak(left, left - wanted))
            return wanted;
    }
    // Fewer units remain than asked for: those pass, then the fault fires once.
    const int e = a.errorNumber.exchange(0);
    if (e == 0)
        return wanted;
    a.after.store(0);
    err.setCrt(e);
    return left;
}

} // namespace os
} // namespace Vardo400

#endif
