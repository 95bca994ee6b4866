#pragma once

#include "QNRescue/wait_clock.hpp"

#include <algorithm>
#include <chrono>

namespace qnrescue {

// Waits for at most the timeout by calling wait(slice_end), which waits until that time of the
// clock and returns whether what it waits for has come. Returns whether it came in time.
// Windows counts a wait in 32 bits of milliseconds and cuts a longer one, hence the slices.
template <typename Wait>
bool wait_in_slices(wait_clock const & clock, std::chrono::nanoseconds timeout, Wait && wait) {
    constexpr auto longest_slice = std::chrono::hours(1);
    wait_clock::time_point const deadline = clock.now() + timeout;
    for (;;) {
        wait_clock::time_point const slice_end = std::min(deadline, clock.now() + longest_slice);
        if (wait(slice_end)) {
            return true;
        }
        if (slice_end == deadline) {
            return false;
        }
    }
}

} // namespace qnrescue
