// Dates inside.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFDate : cf::Object {
    static cf::Type const class_type;

    CFAbsoluteTime time;

    explicit __CFDate(CFAbsoluteTime its_time)
        : Object{class_type}
        , time{its_time} {}
};
