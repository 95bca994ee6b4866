// Errors inside.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFError : cf::Object {
    static cf::Type const class_type;

    CFStringRef domain;
    CFIndex code;
    CFDictionaryRef user_info; // null: empty

    __CFError(CFStringRef its_domain, CFIndex its_code, CFDictionaryRef its_user_info)
        : Object{class_type}
        , domain{its_domain}
        , code{its_code}
        , user_info{its_user_info} {}
};
