// Allocations of the tool's own code: how much they are, and that they fail in turn.
#pragma once

#include <cstddef>
#include <functional>

namespace tests {

// A thread is inside the platform libraries, or the test's own code, as long as one of these lives:
// its allocations do not fail there.
class outside_the_tool {
public:
    outside_the_tool();
    ~outside_the_tool();
    outside_the_tool(outside_the_tool const &) = delete;
    outside_the_tool & operator=(outside_the_tool const &) = delete;
};

// Returns how many bytes the tool's code of this thread has allocated so far, freed ones included.
std::size_t allocated_bytes();

// Runs one action, one of whose allocations fails.
class trial {
public:
    explicit trial(std::size_t number)
        : failing(number) {}

    // Runs the action and returns whether it came to its end; else it threw std::bad_alloc. Call it
    // once.
    bool completes(std::function<void()> const & action);

    // Whether the action made enough allocations for one to fail.
    bool met_failure() const { return met; }
    bool completed() const { return came_to_end; }

private:
    std::size_t failing; // counted from 1
    bool met = false;
    bool came_to_end = true;
};

struct trial_counts {
    std::size_t completed = 0;
    std::size_t threw = 0; // std::bad_alloc
    std::size_t ended = 0; // the process, by std::terminate
    std::size_t wrong = 0; // the function found a fault, leaked or ended in any other way

    std::size_t all() const { return completed + threw + ended + wrong; }
};

// Makes the allocations of the function's action fail one by one, each in a separate process. The
// function prepares the action, runs it with trial::completes() and returns whether all is as it
// should be then. Where QNRESCUE_ALLOCATION_STEP is n, only the first of each n allocations fails.
trial_counts fail_each_allocation(std::function<bool(trial & run)> const & function);

} // namespace tests
