// The UTF converter core under the escape-bytes policy (names on disk): bad bytes are
// kept as U+DC80..U+DCFF and written back as the same bytes.
// Compared with the per-character rules in both directions; see utf_policy_fuzz.h.
#include "utf_policy_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return utf_fuzz::run(data, size, utf_fuzz::Policy::escapeBytes);
}
