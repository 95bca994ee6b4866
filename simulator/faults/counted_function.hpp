// The calls that a scenario makes fail, and the count of all calls.
#pragma once

#include "simulator/MobileDevice/scenario.hpp"

#include <atomic>
#include <cstdint>
#include <span>

namespace faults {

// A function that the tool imports.
struct counted_function {
    char const * name;
    std::atomic<std::int64_t> calls{0};

    // Counts a call, at its beginning; returns the fault that the call has, or null.
    mobile_device::scripted_fault const * begin_call();
};

// Returns all of them.
std::span<counted_function * const> counted_functions();

} // namespace faults
