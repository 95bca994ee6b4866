#include "QNRescue/wait_in_slices.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

using namespace std::chrono_literals;
using qnrescue::wait_in_slices;

// Stands still until a test moves it.
struct fake_clock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<fake_clock>;
    static constexpr bool is_steady = true;

    static time_point now() { return current; }
    static inline time_point current{1234h};
};

// The most that Windows waits for in one go without cutting the number: 2^31 - 1 milliseconds.
constexpr auto longest_safe_wait =
    std::chrono::milliseconds(std::numeric_limits<std::int32_t>::max());

// The lengths of the slices of a wait for something that never comes. Each slice takes its time,
// and the given time more.
std::vector<std::chrono::nanoseconds> slices_in_vain(std::chrono::nanoseconds timeout,
                                                     std::chrono::nanoseconds delay = 0ns) {
    constexpr std::size_t endless = 2'000'000;
    std::vector<std::chrono::nanoseconds> slices;
    bool const came = wait_in_slices<fake_clock>(timeout, [&](auto slice_end) {
        slices.push_back(slice_end - fake_clock::current);
        fake_clock::current = slice_end + delay;
        return slices.size() == endless;
    });
    EXPECT_FALSE(came);
    return slices;
}

TEST(WaitInSlices, EndsAtItsDeadlineAfterAnyNumberOfHours) {
    for (std::chrono::nanoseconds const timeout :
         {std::chrono::nanoseconds(59min), std::chrono::nanoseconds(1h), 1h + 1ns, 2h - 1ns,
          std::chrono::nanoseconds(2h), std::chrono::nanoseconds(25h + 30min),
          std::chrono::nanoseconds(2147484s), std::chrono::nanoseconds(4294967295s)}) {
        auto const start = fake_clock::current;
        auto const slices = slices_in_vain(timeout);
        EXPECT_EQ(fake_clock::current - start, timeout);
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
        int slices = 0;
        EXPECT_TRUE(wait_in_slices<fake_clock>(100h, [&](auto slice_end) {
            fake_clock::current = slice_end;
            return ++slices == slice;
        }));
        EXPECT_EQ(slices, slice);
    }
}

TEST(WaitInSlices, WithoutATimeLooksOnce) {
    for (std::chrono::nanoseconds const timeout : {0ns, -1ns, std::chrono::nanoseconds(-5min)}) {
        EXPECT_EQ(slices_in_vain(timeout), std::vector{timeout});
        EXPECT_TRUE(wait_in_slices<fake_clock>(timeout, [](auto) { return true; }));
    }
}

TEST(WaitInSlices, GoesByTheSteadyClock) {
    using clock = std::chrono::steady_clock;
    auto const before = clock::now();
    clock::time_point end;
    EXPECT_FALSE(wait_in_slices(10min, [&](clock::time_point slice_end) {
        end = slice_end;
        return false;
    }));
    EXPECT_GE(end, before + 10min);
    EXPECT_LE(end, clock::now() + 10min);
}

} // namespace
