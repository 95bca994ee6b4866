#include "simulator/CoreFoundation/allocators.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

namespace cf {

namespace {

constinit __CFAllocator null_allocator;

void describe(object const & object, std::u16string & text) {
    append_heading(text, object, "CFAllocator");
    append_ascii(text, "{info = 0x0}");
}

} // namespace

constinit __CFAllocator system_allocator;

} // namespace cf

constinit cf::object_type const __CFAllocator::class_type{
    .id = 2,
    .name = "CFAllocator",
    .destroy = nullptr, // allocators are immortal
    .equal = nullptr,
    .hash = nullptr,
    .describe = cf::describe,
};

constinit CFAllocatorRef const kCFAllocatorDefault = nullptr;
constinit CFAllocatorRef const kCFAllocatorNull = &cf::null_allocator;
