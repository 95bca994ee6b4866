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

    // Counts the call that begins; answers the fault that it meets, or null.
    mobile_device::scripted_fault const * begin_call();
};

// All of them.
std::span<counted_function * const> counted_functions();

} // namespace faults
