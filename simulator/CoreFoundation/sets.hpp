// Sets inside.
#pragma once

#include "simulator/CoreFoundation/hash_table.hpp"
#include "simulator/CoreFoundation/strings.hpp"

// The members are the keys of the table; its values are unused.
struct __CFSet : cf::Object {
    static cf::Type const class_type;

    cf::HashTable members;
    bool is_mutable;

    __CFSet(cf::ElementCallbacks const & callbacks, cf::Mutability mutability)
        : Object{class_type}
        , members{callbacks, {}}
        , is_mutable{mutability == cf::Mutability::is_mutable} {}
};
