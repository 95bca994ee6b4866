#include "QNRescue/wait_in_slices.hpp"

#include "tests/unit/helpers/fake_clock.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

using namespace std::chrono_literals;
using qnrescue::wait_in_slices;
using tests::fake_clock;

// The most that Windows waits for in one go without cutting the number: 2^31 - 1 milliseconds.
constexpr auto longest_safe_wait =
    std::chrono::milliseconds(std::numeric_limits<std::int32_t>::max());

// Returns the lengths of the slices of a wait for something that never comes. Each slice takes its
// time, and the given time more.
std::vector<std::chrono::nanoseconds> slices_in_vain(fake_clock & clock,
                                                     std::chrono::nanoseconds timeout,
                                                     std::chrono::nanoseconds delay = 0ns) {
    constexpr std::size_t endless = 2'000'000;
    std::vector<std::chrono::nanoseconds> slices;
    bool const came = wait_in_slices(clock, timeout, [&](auto slice_end) {
        slices.push_back(slice_end - clock.now());
        clock.sleep_until(slice_end);
        clock.delay(delay);
        return slices.size() == endless;
    });
    EXPECT_FALSE(came);
    return slices;
}

std::vector<std::chrono::nanoseconds> slices_in_vain(std::chrono::nanoseconds timeout,
                                                     std::chrono::nanoseconds delay = 0ns) {
    fake_clock clock;
    return slices_in_vain(clock, timeout, delay);
}

TEST(WaitInSlices, EndsAtItsDeadlineAfterAnyNumberOfHours) {
    for (std::chrono::nanoseconds const timeout :
         {std::chrono::nanoseconds(59min), std::chrono::nanoseconds(1h), 1h + 1ns, 2h - 1ns,
          std::chrono::nanoseconds(2h), std::chrono::nanoseconds(25h + 30min),
          std::chrono::nanoseconds(2147484s), std::chrono::nanoseconds(4294967295s)}) {
        fake_clock clock;
        auto const slices = slices_in_vain(clock, timeout);
        EXPECT_EQ(clock.passed(), timeout);
        EXPECT_EQ(slices.size(), static_cast<std::size_t>((timeout + 1h - 1ns) / 1h));
    }
}

TEST(WaitInSlices, NoSliceIsTooLongForThePlatform) {
    for (auto const slice : slices_in_vain(4294967295s)) {
        ASSERT_GT(slice, 0ns);
        ASSERT_LE(slice, 1h);
        ASSERT_LT(slice, longest_safe_wait);
    }
}

TEST(WaitInSlices, AShortWaitIsOneSlice) {
    EXPECT_EQ(slices_in_vain(10min), (std::vector<std::chrono::nanoseconds>{10min}));
}

TEST(WaitInSlices, TimeThatIsLostIsNotWaitedForAgain) {
    EXPECT_EQ(slices_in_vain(2h, 50min), (std::vector<std::chrono::nanoseconds>{1h, 10min}));
}

TEST(WaitInSlices, EndsInTheSliceInWhichItCame) {
    for (int const slice : {1, 2, 30}) {
        fake_clock clock;
        int slices = 0;
        EXPECT_TRUE(wait_in_slices(clock, 100h, [&](auto slice_end) {
            clock.sleep_until(slice_end);
            return ++slices == slice;
        }));
        EXPECT_EQ(slices, slice);
    }
}

TEST(WaitInSlices, WithoutATimeLooksOnce) {
    for (std::chrono::nanoseconds const timeout : {0ns, -1ns, std::chrono::nanoseconds(-5min)}) {
        EXPECT_EQ(slices_in_vain(timeout), std::vector{timeout});
        fake_clock const clock;
        EXPECT_TRUE(wait_in_slices(clock, timeout, [](auto) { return true; }));
    }
}

} // namespace
