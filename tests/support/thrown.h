// The exception a call throws, for tests that go on to check its code and texts.
#ifndef VARDO_TEST_THROWN_H
#define VARDO_TEST_THROWN_H

#include <gtest/gtest.h>

namespace vardo_test {

// The E that call throws; a test failure (and a default E) when it throws none.
template <class E, class F>
E thrownBy(F&& call, const char* what)
{
    try {
        call();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "no " << what;
    return E();
}

} // namespace vardo_test

#endif
