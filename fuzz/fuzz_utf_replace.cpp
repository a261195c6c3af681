// The UTF converter core under the replace policy (registry store names, code sets):
// each bad byte or lone surrogate unit becomes U+FFFD or "?" and the conversion goes on.
// Compared with the per-character rules in both directions; see utf_policy_fuzz.h.
#include "utf_policy_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return utf_fuzz::run(data, size, utf_fuzz::Policy::replace);
}
