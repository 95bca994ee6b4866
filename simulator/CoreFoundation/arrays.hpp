// How arrays are stored.
#pragma once

#include "simulator/CoreFoundation/element_callbacks.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <span>
#include <vector>

struct __CFArray : cf::object {
    static cf::object_type const class_type;

    cf::element_callbacks callbacks;
    std::vector<void const *> values;
    bool is_mutable;
    bool can_grow = true; // an immutable one does too, unless it was read from a binary document

    __CFArray(cf::element_callbacks const & its_callbacks, cf::mutability wanted)
        : object{class_type}
        , callbacks{its_callbacks}
        , is_mutable{wanted == cf::mutability::is_mutable} {}
};

namespace cf {

inline std::span<void const * const> values_of(CFArrayRef array) {
    return array->values;
}

// Creates an array of objects that takes over the caller's reference to each of them.
__CFArray * create_array_adopting(std::span<CFTypeRef const> objects, mutability wanted);

} // namespace cf
