#include "tests/unit/QNRescue/allocation_failure.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

// Of the address sanitizer, where the program is built with it.
extern "C" [[gnu::weak]] int find_leaks() asm("__lsan_do_recoverable_leak_check");

// An option whose row in the table cannot be made is lost by the library, and by nobody else.
extern "C" [[gnu::visibility("default")]] char const *
suppressed_leaks() asm("__lsan_default_suppressions");
extern "C" char const * suppressed_leaks() {
    return "leak:boost::program_options::\n";
}

namespace {

thread_local std::size_t allocations_to_failure = 0; // none fails
thread_local int depth_outside = 0;
thread_local std::size_t bytes_of_the_tool = 0;

bool fails_now() {
    return allocations_to_failure != 0 && depth_outside == 0 && --allocations_to_failure == 0;
}

// What a process says of its trial.
enum exit_status { no_failure_met, completed, threw, ended, wrong };

exit_status status_of(tests::trial const & run, bool right) {
    if (!right) {
        return wrong;
    }
    if (!run.met_failure()) {
        return no_failure_met;
    }
    return run.completed() ? completed : threw;
}

[[noreturn]] void run_trial(std::size_t number,
                            std::function<bool(tests::trial & run)> const & function) {
    std::set_terminate([] { std::_Exit(ended); });
    tests::trial run(number);
    bool right = false;
    try {
        right = function(run);
    } catch (std::exception const & exception) {
        std::fprintf(stderr, "allocation %zu: %s\n", number, exception.what());
    }
    bool const leaks = find_leaks != nullptr && find_leaks() != 0;
    std::_Exit(status_of(run, right && !leaks)); // what belongs to the tests' process stays
}

int run_in_process(std::size_t number, std::function<bool(tests::trial & run)> const & function) {
    auto const child = fork();
    if (child == 0) {
        run_trial(number, function);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : wrong;
}

} // namespace

void * operator new(std::size_t size) {
    bytes_of_the_tool += depth_outside == 0 ? size : 0;
    if (!fails_now()) {
        if (auto const memory = std::malloc(size == 0 ? 1 : size)) {
            return memory;
        }
    }
    throw std::bad_alloc();
}

void operator delete(void * memory) noexcept {
    std::free(memory);
}

void operator delete(void * memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace tests {

outside_the_tool::outside_the_tool() {
    ++depth_outside;
}

outside_the_tool::~outside_the_tool() {
    --depth_outside;
}

std::size_t allocated_bytes() {
    return bytes_of_the_tool;
}

bool trial::completes(std::function<void()> const & action) {
    try {
        allocations_to_failure = failing;
        action();
    } catch (std::bad_alloc const &) {
        came_to_end = false;
    }
    met = allocations_to_failure == 0;
    allocations_to_failure = 0;
    return came_to_end;
}

namespace {

std::size_t allocation_step() {
    auto const text = std::getenv("QNRESCUE_ALLOCATION_STEP");
    return text == nullptr ? 1 : std::max(std::stoul(text), 1UL);
}

} // namespace

trial_counts fail_each_allocation(std::function<bool(trial & run)> const & function) {
    trial_counts counts;
    auto const step = allocation_step();
    for (std::size_t number = 1;; number += step) {
        switch (run_in_process(number, function)) {
        case no_failure_met:
            return counts;
        case completed:
            ++counts.completed;
            break;
        case threw:
            ++counts.threw;
            break;
        case ended:
            ++counts.ended;
            break;
        default:
            std::fprintf(stderr, "allocation %zu: wrong\n", number);
            ++counts.wrong;
            return counts;
        }
    }
}

} // namespace tests
