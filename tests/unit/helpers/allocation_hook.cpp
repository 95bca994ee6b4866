#include "tests/unit/helpers/allocation_hook.hpp"

#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::size_t awaited = 0; // none
std::function<void()> to_run;

void * allocate(std::size_t size) {
    if (awaited != 0 && size >= awaited) {
        awaited = 0;
        to_run();
    }
    if (auto const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

allocation_hook::allocation_hook(std::size_t size, std::function<void()> function) {
    to_run = std::move(function);
    awaited = size;
}

allocation_hook::~allocation_hook() {
    awaited = 0;
    to_run = nullptr;
}

bool allocation_hook::has_run() const {
    return awaited == 0;
}

void * operator new(std::size_t size) {
    return allocate(size);
}

void operator delete(void * memory) noexcept {
    std::free(memory);
}

void operator delete(void * memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
