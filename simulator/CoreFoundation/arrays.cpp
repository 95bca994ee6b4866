#include "simulator/CoreFoundation/arrays.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace cf {

namespace {

__CFArray const & array_of(object const & object) {
    return static_cast<__CFArray const &>(object);
}

void destroy_array(object & object, doomed_objects & doomed) {
    auto const & array = array_of(object);
    for (auto const * const value : array.values) {
        array.callbacks.release(value, doomed);
    }
    destroy<__CFArray>(object, doomed);
}

bool equal_arrays(object const & left, object const & right) {
    auto const & callbacks = array_of(left).callbacks;
    return std::ranges::equal(
        array_of(left).values, array_of(right).values,
        [&](void const * one, void const * other) { return callbacks.equal(one, other); });
}

CFHashCode hash_array(object const & object) {
    return array_of(object).values.size();
}

void describe_array(object const & object, std::u16string & text) {
    auto const & array = array_of(object);
    append_heading(text, object, "CFArray");
    append_ascii(text, array.is_mutable ? "{type = mutable-small" : "{type = immutable");
    append_ascii(text, ", count = " + std::to_string(array.values.size()) + ", values = (");
    for (std::size_t i = 0; i < array.values.size(); ++i) {
        append_ascii(text, fmt::format("\n\t{} : ", i));
        array.callbacks.describe(array.values[i], text);
    }
    append_ascii(text, array.values.empty() ? ")}" : "\n)}");
}

void append_value(__CFArray & array, void const * value, char const * function) {
    array.callbacks.require(value, function);
    guarded([&] { array.values.push_back(array.callbacks.retain(value)); }, function);
}

void require_range(__CFArray const & array, CFRange range, char const * function) {
    auto const count = static_cast<CFIndex>(array.values.size());
    if (range.location < 0 || range.length < 0 || range.location > count ||
        range.length > count - range.location) {
        trap(function, "the range " + std::to_string(range.location) + "+" +
                           std::to_string(range.length) + " is outside an array of " +
                           std::to_string(count));
    }
}

} // namespace

__CFArray * create_array_adopting(std::span<CFTypeRef const> objects, mutability wanted) {
    auto * const array = create<__CFArray>(object_callbacks(), wanted);
    array->values.assign(objects.begin(), objects.end());
    return array;
}

} // namespace cf

constinit cf::object_type const __CFArray::class_type{
    .id = 19,
    .name = "CFArray",
    .destroy = cf::destroy_array,
    .equal = cf::equal_arrays,
    .hash = cf::hash_array,
    .describe = cf::describe_array,
};

CFTypeID CFArrayGetTypeID() {
    return __CFArray::class_type.id;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, void const ** values, CFIndex count,
                         CFArrayCallBacks const * callbacks) {
    auto * const array =
        cf::create<__CFArray>(cf::element_callbacks::from(callbacks), cf::mutability::immutable);
    cf::guarded(
        [&] { array->values.reserve(static_cast<std::size_t>(std::max<CFIndex>(count, 0))); });
    for (CFIndex i = 0; i < count; ++i) {
        cf::append_value(*array, values[i], "CFArrayCreate");
    }
    return array;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex,
                                       CFArrayCallBacks const * callbacks) {
    return cf::create<__CFArray>(cf::element_callbacks::from(callbacks),
                                 cf::mutability::is_mutable);
}

CFIndex CFArrayGetCount(CFArrayRef array) {
    return static_cast<CFIndex>(cf::checked<__CFArray>(array).values.size());
}

void const * CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
    auto const & values = cf::checked<__CFArray>(array).values;
    if (index < 0 || static_cast<std::size_t>(index) >= values.size()) {
        cf::trap("CFArrayGetValueAtIndex", "the index " + std::to_string(index) +
                                               " is outside an array of " +
                                               std::to_string(values.size()));
    }
    return values[static_cast<std::size_t>(index)];
}

void CFArrayAppendValue(CFMutableArrayRef array, void const * value) {
    auto & checked = cf::checked(array);
    if (!checked.can_grow) {
        cf::trap("CFArrayAppendValue", "the array is immutable");
    }
    cf::append_value(checked, value, "CFArrayAppendValue");
}

void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier,
                          void * context) {
    auto const & checked = cf::checked<__CFArray>(array);
    cf::require_range(checked, range, "CFArrayApplyFunction");
    for (CFIndex i = 0; i < range.length; ++i) {
        applier(checked.values[static_cast<std::size_t>(range.location + i)], context);
    }
}
