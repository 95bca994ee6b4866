// How a collection treats its elements: the five callbacks in one shape for all kinds of
// collection.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

// Null functions mean: no ownership, equality of pointers, hash of the pointer.
struct element_callbacks {
    CFCollectionRetainCallBack retain_callback = nullptr;
    CFCollectionReleaseCallBack release_callback = nullptr;
    CFCollectionCopyDescriptionCallBack describe_callback = nullptr;
    CFCollectionEqualCallBack equal_callback = nullptr;
    CFCollectionHashCallBack hash_callback = nullptr;

    // Returns the callbacks of a collection's public structure, which may be null.
    template <typename CallBacks>
    static element_callbacks from(CallBacks const * callbacks) {
        if (callbacks == nullptr) {
            return {};
        }
        element_callbacks result{callbacks->retain, callbacks->release, callbacks->copyDescription,
                                 callbacks->equal};
        if constexpr (requires { callbacks->hash; }) {
            result.hash_callback = callbacks->hash;
        }
        return result;
    }

    // Returns whether the elements are CoreFoundation objects that the collection retains.
    bool own_objects() const;

    // Traps in the name of `function` if this element is null and either callback is that of
    // objects.
    void require(void const * element, char const * function) const;

    void const * retain(void const * element) const;
    void release(void const * element) const;
    void release(void const * element, doomed_objects & doomed) const;
    bool equal(void const * left, void const * right) const;
    CFHashCode hash(void const * element) const;
    void describe(void const * element, std::u16string & text) const;
};

// Returns the callbacks of collections that hold objects.
element_callbacks const & object_callbacks();

} // namespace cf
