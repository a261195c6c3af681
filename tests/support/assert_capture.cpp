#include "assert_capture.h"

#include <vardo/strace.h>

#include <mutex>

namespace vardo_test {

static std::mutex g_lock;

std::vector<std::string>& AssertCapture::seen()
{
    static std::vector<std::string> all;
    return all;
}

static void record(const char*, int, const char* expression, const Vardo400::SWCharString&)
{
    std::lock_guard<std::mutex> hold(g_lock);
    AssertCapture::seen().push_back(expression ? expression : "");
}

AssertCapture::AssertCapture()
{
    seen().clear();
    Vardo400::SetAssertObserver(record);
}

AssertCapture::~AssertCapture() { Vardo400::SetAssertObserver(nullptr); }

} // namespace vardo_test
