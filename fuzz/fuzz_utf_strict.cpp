// The UTF converter core under the strict policy (registry files): malformed UTF-8,
// encoded surrogates and lone surrogate units stop the conversion.
// Compared with the per-character rules in both directions; see utf_policy_fuzz.h.
#include "utf_policy_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return utf_fuzz::run(data, size, utf_fuzz::Policy::strict);
}
