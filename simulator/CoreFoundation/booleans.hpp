// The two booleans and the null object, all immortal.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFBoolean : cf::Object {
    static cf::Type const class_type;

    bool value;

    constexpr explicit __CFBoolean(bool its_value)
        : Object{class_type, cf::immortal}
        , value{its_value} {}
};

struct __CFNull : cf::Object {
    static cf::Type const class_type;

    constexpr __CFNull()
        : Object{class_type, cf::immortal} {}
};
