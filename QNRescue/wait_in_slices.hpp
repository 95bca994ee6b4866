#pragma once

#include <algorithm>
#include <chrono>

namespace qnrescue {

// Waits for at most the time-out by calling wait(slice_end), which waits until that point of the
// steady clock and answers whether what it waits for has come; answers whether it came in time.
// Windows counts a wait in 32 bits of milliseconds and cuts a longer one, hence the slices.
template <typename Wait>
bool wait_in_slices(std::chrono::nanoseconds timeout, Wait && wait) {
    using clock = std::chrono::steady_clock;
    constexpr auto longest_slice = std::chrono::hours(1);
    auto const deadline = clock::now() + timeout;
    for (;;) {
        auto const slice_end = std::min<clock::time_point>(deadline, clock::now() + longest_slice);
        if (wait(slice_end)) {
            return true;
        }
        if (slice_end == deadline) {
            return false;
        }
    }
}

} // namespace qnrescue
