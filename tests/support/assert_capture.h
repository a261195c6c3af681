// Recording the assertions the library raises, through its assertion observer.
#ifndef VARDO_TEST_ASSERT_CAPTURE_H
#define VARDO_TEST_ASSERT_CAPTURE_H

#include <string>
#include <vector>

namespace vardo_test {

// While an object lives, every assertion's expression text is appended to seen()
// (which the constructor clears). One capture at a time.
class AssertCapture {
public:
    AssertCapture();
    ~AssertCapture();
    static std::vector<std::string>& seen();
};

} // namespace vardo_test

#endif
