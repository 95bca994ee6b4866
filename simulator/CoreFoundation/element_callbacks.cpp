#include "simulator/CoreFoundation/element_callbacks.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

namespace {

void const * retain_object(CFAllocatorRef, void const * object) {
    return CFRetain(object);
}

void release_object(CFAllocatorRef, void const * object) {
    CFRelease(object);
}

} // namespace

constinit CFArrayCallBacks const kCFTypeArrayCallBacks{0, retain_object, release_object,
                                                       CFCopyDescription, CFEqual};
constinit CFSetCallBacks const kCFTypeSetCallBacks{
    0, retain_object, release_object, CFCopyDescription, CFEqual, CFHash};
constinit CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks{
    0, retain_object, release_object, CFCopyDescription, CFEqual, CFHash};
constinit CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks{
    0, retain_object, release_object, CFCopyDescription, CFEqual};

namespace cf {

bool element_callbacks::own_objects() const {
    return release_callback == release_object;
}

void element_callbacks::require(void const * element, char const * function) const {
    auto const are_objects = retain_callback == retain_object || release_callback == release_object;
    if (element == nullptr && are_objects) [[unlikely]] {
        trap(function, "a collection of objects cannot hold null");
    }
}

void const * element_callbacks::retain(void const * element) const {
    if (retain_callback == retain_object) {
        cf::retain(object_of(element));
        return element;
    }
    return retain_callback != nullptr ? retain_callback(kCFAllocatorDefault, element) : element;
}

void element_callbacks::release(void const * element) const {
    if (release_callback != nullptr) {
        release_callback(kCFAllocatorDefault, element);
    }
}

void element_callbacks::release(void const * element, doomed_objects & doomed) const {
    if (own_objects()) {
        doomed.release(object_of(element));
    } else {
        release(element);
    }
}

bool element_callbacks::equal(void const * left, void const * right) const {
    if (left == right) {
        return true;
    }
    return equal_callback != nullptr && equal_callback(left, right) != 0;
}

CFHashCode element_callbacks::hash(void const * element) const {
    return hash_callback != nullptr ? hash_callback(element)
                                    : reinterpret_cast<CFHashCode>(element);
}

void element_callbacks::describe(void const * element, std::u16string & text) const {
    auto const * const description =
        describe_callback != nullptr ? describe_callback(element) : nullptr;
    if (description != nullptr) {
        append(text, description);
        CFRelease(description);
    } else {
        append_ascii(text, "<");
        append_address(text, element);
        append_ascii(text, ">");
    }
}

element_callbacks const & object_callbacks() {
    static constinit element_callbacks const callbacks{retain_object, release_object,
                                                       CFCopyDescription, CFEqual, CFHash};
    return callbacks;
}

} // namespace cf
