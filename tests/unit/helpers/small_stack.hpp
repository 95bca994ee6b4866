#pragma once

#include <functional>

namespace tests {

// Runs the action on a new thread whose stack has 1 MiB, and waits for its end.
void run_on_small_stack(std::function<void()> action);

} // namespace tests
