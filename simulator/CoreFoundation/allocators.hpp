// Allocators: all objects come from one allocator whatever a caller names; only who frees the bytes
// of data created without a copy depends on it.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFAllocator : cf::object {
    static cf::object_type const class_type;

    constexpr __CFAllocator()
        : object{class_type, cf::immortal} {}
};

namespace cf {

// The allocator that kCFAllocatorDefault, a null pointer, means.
extern __CFAllocator system_allocator;

} // namespace cf
