#include "QNRescue/wait_in_slices.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace {

using namespace std::chrono_literals;
using qnrescue::wait_in_slices;
using clock_type = std::chrono::steady_clock;

// The most that Windows waits for in one go without cutting the number: 2^31 - 1 milliseconds.
constexpr auto longest_safe_wait =
    std::chrono::milliseconds(std::numeric_limits<std::int32_t>::max());

TEST(WaitInSlices, NoSliceIsTooLongForThePlatform) {
    for (std::int64_t const seconds :
         {7200LL, 2147483LL, 2147484LL, 4294967LL, 4294968LL, 4294967295LL}) {
        constexpr int enough = 100;
        int slices = 0;
        bool const came = wait_in_slices(std::chrono::seconds(seconds), [&](auto slice_end) {
            auto const length = slice_end - clock_type::now();
            EXPECT_GT(length, 30min) << seconds;
            EXPECT_LT(length, longest_safe_wait) << seconds;
            return ++slices == enough;
        });
        // None of the slices has really been waited for, so the end is as far away as ever.
        EXPECT_TRUE(came) << seconds;
        EXPECT_EQ(slices, enough) << seconds;
    }
}

TEST(WaitInSlices, AShortWaitIsOneSlice) {
    std::vector<clock_type::time_point> ends;
    auto const before = clock_type::now();
    EXPECT_FALSE(wait_in_slices(10min, [&](auto slice_end) {
        ends.push_back(slice_end);
        return false;
    }));
    auto const after = clock_type::now();
    ASSERT_EQ(ends.size(), 1U);
    EXPECT_GE(ends[0], before + 10min);
    EXPECT_LE(ends[0], after + 10min);
}

TEST(WaitInSlices, EndsAsSoonAsItCame) {
    int slices = 0;
    EXPECT_TRUE(wait_in_slices(10min, [&](auto) {
        ++slices;
        return true;
    }));
    EXPECT_EQ(slices, 1);
}

TEST(WaitInSlices, WithoutATimeLooksOnce) {
    for (std::chrono::nanoseconds const timeout : {0ns, -1ns, std::chrono::nanoseconds(-5min)}) {
        int looks = 0;
        EXPECT_FALSE(wait_in_slices(timeout, [&](auto slice_end) {
            ++looks;
            EXPECT_LE(slice_end, clock_type::now());
            return false;
        }));
        EXPECT_EQ(looks, 1);
        EXPECT_TRUE(wait_in_slices(timeout, [](auto) { return true; }));
    }
}

} // namespace
