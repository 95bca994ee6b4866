// Empty CoreFoundation collections to be filled.
#pragma once

#include "platform/cf_ownership.hpp"

namespace qnrescue {

// Returns an empty dictionary that retains its keys and values, or null. `capacity` is the expected
// number of entries, 0 if unknown.
inline cf_owner<CFMutableDictionaryRef> make_mutable_dictionary(CFIndex capacity = 0) {
    return adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, capacity,
                                           &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

// Returns an empty array that retains its elements, or null. `capacity` is the expected number of
// elements, 0 if unknown.
inline cf_owner<CFMutableArrayRef> make_mutable_array(CFIndex capacity = 0) {
    return adopt(CFArrayCreateMutable(kCFAllocatorDefault, capacity, &kCFTypeArrayCallBacks));
}

} // namespace qnrescue
