// Conversions between C++ values and CoreFoundation objects.
#pragma once

#include "simulator/MobileDevice/reference.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mobile_device {

// The whole text in UTF-8; nothing for a string that UTF-8 cannot hold (a lone surrogate).
std::optional<std::string> to_utf8(CFStringRef string);

// Null for bytes that are not UTF-8.
reference<CFStringRef> make_string(std::string_view utf8);

reference<CFNumberRef> make_number(std::int64_t value);

// An error whose user info holds those of the two texts that are not null.
reference<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description,
                                 CFStringRef failure_reason);

// An empty dictionary that retains its keys and values.
reference<CFMutableDictionaryRef> make_dictionary();

} // namespace mobile_device
