// The object that a keyed archive refers to others with: a number of its own type.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

struct KeyedArchiverUid : Object {
    static Type const class_type;

    UInt32 value;

    explicit KeyedArchiverUid(UInt32 its_value)
        : Object{class_type}
        , value{its_value} {}
};

} // namespace cf
