// A fuzz target's own assertion. A failed check crashes, so that libFuzzer keeps the input
// and the corpus replay under ctest fails.
#ifndef VARDO_FUZZ_CHECK_H
#define VARDO_FUZZ_CHECK_H

#define FUZZ_CHECK(x)                                                                     \
    do {                                                                                  \
        if (!(x))                                                                         \
            __builtin_trap();                                                             \
    } while (0)

#endif
