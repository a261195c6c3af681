// Helpers shared by the library's sources; not installed.
#ifndef VARDO_INTERNAL_H
#define VARDO_INTERNAL_H

#include <cstdint>

namespace Vardo400 {

// Throws std::bad_alloc whose what() is "bad allocation", the text callers of the
// library have always seen for memory exhaustion.
[[noreturn]] void ThrowBadAllocation();

// The atomic add on a 32-bit counter that shared buffers use: a full barrier that
// returns the value before the addition.
inline int32_t AtomicAdd32(int32_t* p, int32_t v) { return __atomic_fetch_add(p, v, __ATOMIC_SEQ_CST); }
inline int32_t AtomicRead32(const int32_t* p) { return __atomic_load_n(p, __ATOMIC_SEQ_CST); }

} // namespace Vardo400

#endif
