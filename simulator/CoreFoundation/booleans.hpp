// The two booleans and the null object, all immortal.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFBoolean : cf::object {
    static cf::object_type const class_type;

    bool value;

    constexpr explicit __CFBoolean(bool its_value)
        : object{class_type, cf::immortal}
        , value{its_value} {}
};

struct __CFNull : cf::object {
    static cf::object_type const class_type;

    constexpr __CFNull()
        : object{class_type, cf::immortal} {}
};
