#pragma once

#include <cstddef>
#include <functional>

// Runs a function in the middle of the first allocation of at least a given size; it may throw.
class allocation_hook {
public:
    allocation_hook(std::size_t size, std::function<void()> function);
    ~allocation_hook();

    allocation_hook(allocation_hook const &) = delete;
    allocation_hook & operator=(allocation_hook const &) = delete;

    bool has_run() const;
};
