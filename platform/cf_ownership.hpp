// Ownership of references to CoreFoundation objects.
#pragma once

#include "platform/CoreFoundation.h"

#include <memory>
#include <type_traits>

namespace qnrescue {

// Releases the reference that a smart pointer holds.
struct CFTypeDeleter {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

// Owns one reference to an object, or nothing.
template <typename Ref>
using cf_owner = std::unique_ptr<std::remove_pointer_t<Ref>, CFTypeDeleter>;

// Shares one reference among its copies; made from a cf_owner.
template <typename Ref>
using cf_share = std::shared_ptr<std::remove_pointer_t<Ref>>;

// Takes over the reference that a Create or Copy function returned; null is allowed.
template <typename Ref>
cf_owner<Ref> adopt(Ref object) {
    return cf_owner<Ref>(object);
}

// Adds a reference to a borrowed object; null is allowed.
template <typename Ref>
cf_owner<Ref> retain(Ref object) {
    return cf_owner<Ref>(
        object == nullptr ? nullptr : static_cast<Ref>(const_cast<void *>(CFRetain(object))));
}

// Returns whether the object is not null and of this type.
inline bool is_a(CFTypeRef object, CFTypeID type) {
    return object != nullptr && CFGetTypeID(object) == type;
}

} // namespace qnrescue
