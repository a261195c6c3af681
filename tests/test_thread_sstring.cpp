// Strings that share a buffer across threads: the count is atomic, writes copy first.
#include <vardo/sstring.h>

#include "vardo_gtest.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Vardo400;

TEST(SStringThreads, SharedBuffersSurviveConcurrentCopiesAndWrites)
{
    const unsigned short* const text = reinterpret_cast<const unsigned short*>(u"shared between threads");
    const SWCharString original(text);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&original, t] {
            for (int i = 0; i < 20000; ++i) {
                SWCharString copy(original), again;
                again = copy;
                ASSERT_EQ(again, original);
                if (i % 7 == 0) {
                    again += SWChar(static_cast<unsigned short>('0' + t));
                    ASSERT_EQ(again.getRefCount(), 1);
                }
            }
        });
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(original.getRefCount(), 1);
    EXPECT_EQ(original, SWCharString(text));
}
