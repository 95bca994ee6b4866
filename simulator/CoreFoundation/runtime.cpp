#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

namespace {

object const & required(CFTypeRef reference, char const * function = __builtin_FUNCTION()) {
    if (reference == nullptr) [[unlikely]] {
        trap(function, "the object is null");
    }
    return object_of(reference);
}

} // namespace

// A doomed object has no use for its count any more, which becomes the link to the next one.
void doomed_objects::release(object const & doomed) noexcept {
    if (drop_reference(doomed)) {
        doomed.references.store(reinterpret_cast<std::intptr_t>(first), std::memory_order_relaxed);
        first = const_cast<object *>(&doomed);
    }
}

object * doomed_objects::next() noexcept {
    auto * const next = first;
    if (next != nullptr) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the count's place holds the link
        first = reinterpret_cast<object *>(
            static_cast<std::intptr_t>(next->references.load(std::memory_order_relaxed)));
    }
    return next;
}

void release(object const & released) {
    if (!drop_reference(released)) {
        return;
    }
    doomed_objects doomed;
    for (auto * each = const_cast<object *>(&released); each != nullptr; each = doomed.next()) {
        each->type->destroy(*each, doomed);
    }
}

bool equal(object const & left, object const & right) {
    return &left == &right || (left.type == right.type && left.type->equal != nullptr &&
                               left.type->equal(left, right));
}

CFHashCode hash(object const & object) {
    return object.type->hash != nullptr ? object.type->hash(object)
                                        : reinterpret_cast<CFHashCode>(&object) >> 4;
}

void trap_wrong_argument(CFTypeRef reference, object_type const & wanted, char const * function) {
    if (reference == nullptr) {
        trap(function, std::string{"the "} + wanted.name + " is null");
    }
    trap(function, std::string{"the argument is a "} + object_of(reference).type->name +
                       ", not a " + wanted.name);
}

} // namespace cf

CFTypeRef CFRetain(CFTypeRef object) {
    cf::retain(cf::required(object));
    return object;
}

void CFRelease(CFTypeRef object) {
    cf::release(cf::required(object));
}

CFIndex CFGetRetainCount(CFTypeRef object) {
    return static_cast<CFIndex>(cf::required(object).references.load(std::memory_order_relaxed));
}

CFTypeID CFGetTypeID(CFTypeRef object) {
    return cf::required(object).type->id;
}

Boolean CFEqual(CFTypeRef left, CFTypeRef right) {
    return cf::equal(cf::required(left), cf::required(right));
}

CFHashCode CFHash(CFTypeRef object) {
    return cf::hash(cf::required(object));
}
