#pragma once

#include "QNRescue/wait_clock.hpp"

#include <algorithm>
#include <chrono>

namespace qnrescue {

// Waits for an event, but no longer than the timeout, and returns whether it came in time. Calls
// wait(slice_end) as often as needed, which waits until that time of the clock at most and returns
// whether the event has come. Windows cuts a wait to 32 bits of milliseconds, hence the slices.
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
