// The object that a keyed archive refers to others with: a number of its own type.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFKeyedArchiverUID : cf::Object {
    static cf::Type const class_type;

    UInt32 value;

    explicit __CFKeyedArchiverUID(UInt32 its_value)
        : Object{class_type}
        , value{its_value} {}
};
