// How dates are stored.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFDate : cf::object {
    static cf::object_type const class_type;

    CFAbsoluteTime time;

    explicit __CFDate(CFAbsoluteTime its_time)
        : object{class_type}
        , time{its_time} {}
};
