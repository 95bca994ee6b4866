// How sets are stored.
#pragma once

#include "simulator/CoreFoundation/hash_table.hpp"
#include "simulator/CoreFoundation/strings.hpp"

// The members are the keys of the table; its values are unused.
struct __CFSet : cf::object {
    static cf::object_type const class_type;

    cf::hash_table members;
    bool is_mutable;

    __CFSet(cf::element_callbacks const & callbacks, cf::mutability wanted)
        : object{class_type}
        , members{callbacks, {}}
        , is_mutable{wanted == cf::mutability::is_mutable} {}
};
