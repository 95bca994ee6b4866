// The object with which a keyed archive refers to others: a number of a separate type.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

struct keyed_archiver_uid : object {
    static object_type const class_type;

    UInt32 value;

    explicit keyed_archiver_uid(UInt32 its_value)
        : object{class_type}
        , value{its_value} {}
};

} // namespace cf
