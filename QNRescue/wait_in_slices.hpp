#pragma once

#include <algorithm>
#include <chrono>

namespace qnrescue {

// Waits for at most the time-out by calling wait(slice_end), which waits until that point of the
// clock and returns whether what it waits for has come; returns whether it came in time.
// Windows counts a wait in 32 bits of milliseconds and cuts a longer one, hence the slices.
template <typename Clock = std::chrono::steady_clock, typename Wait>
bool wait_in_slices(std::chrono::nanoseconds timeout, Wait && wait) {
    constexpr auto longest_slice = std::chrono::hours(1);
    typename Clock::time_point const deadline = Clock::now() + timeout;
    for (;;) {
        typename Clock::time_point const next = Clock::now() + longest_slice;
        auto const slice_end = std::min(deadline, next);
        if (wait(slice_end)) {
            return true;
        }
        if (slice_end == deadline) {
            return false;
        }
    }
}

} // namespace qnrescue
