// How errors are stored.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

struct __CFError : cf::object {
    static cf::object_type const class_type;

    CFStringRef domain;
    CFIndex code;
    CFDictionaryRef user_info; // null: empty

    __CFError(CFStringRef its_domain, CFIndex its_code, CFDictionaryRef its_user_info)
        : object{class_type}
        , domain{its_domain}
        , code{its_code}
        , user_info{its_user_info} {}
};
