#pragma once

#include "platform/CoreFoundation.h"

#include <memory>
#include <string_view>
#include <type_traits>

namespace qnrescue {

struct CFTypeDeleter {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

// The owner of one reference to a CoreFoundation object, or of none.
template <typename Ref>
using cf_owner = std::unique_ptr<std::remove_pointer_t<Ref>, CFTypeDeleter>;

// Takes over the reference that a Create or Copy function answered.
template <typename Ref>
cf_owner<Ref> adopt(Ref object) {
    return cf_owner<Ref>(object);
}

// Adds a reference to a borrowed object.
template <typename Ref>
cf_owner<Ref> retain(Ref object) {
    return cf_owner<Ref>(
        object == nullptr ? nullptr : static_cast<Ref>(const_cast<void *>(CFRetain(object))));
}

// Whether the object is there and of this type.
inline bool is_a(CFTypeRef object, CFTypeID type) {
    return object != nullptr && CFGetTypeID(object) == type;
}

// How the tool throws and hands over its errors.
using error_owner = cf_owner<CFErrorRef>;

// A string from UTF-8; null where the text is not valid UTF-8.
inline cf_owner<CFStringRef> make_cfstring(std::string_view text) {
    return adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

inline cf_owner<CFMutableDictionaryRef> make_mutable_dictionary(CFIndex capacity = 0) {
    return adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, capacity,
                                           &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

inline cf_owner<CFMutableArrayRef> make_mutable_array(CFIndex capacity = 0) {
    return adopt(CFArrayCreateMutable(kCFAllocatorDefault, capacity, &kCFTypeArrayCallBacks));
}

} // namespace qnrescue
