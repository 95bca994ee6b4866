// Short ways to make CoreFoundation objects for tests, and to compare them.
#pragma once

#include "QNRescue/error_domain.hpp"
#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>

namespace tests {

using qnrescue::cf_owner;

// Returns the property list in these bytes; null if they are not one.
cf_owner<CFTypeRef> read_plist(std::string_view bytes);
// Returns the value of an element of an XML property list, such as "<array/>". Throws
// std::invalid_argument for one that cannot be read.
cf_owner<CFTypeRef> plist(std::string_view element);
// The same for an element that is a dictionary.
cf_owner<CFDictionaryRef> plist_dictionary(std::string_view element);

// Null is equal to null alone.
bool equal(CFTypeRef left, CFTypeRef right);

// Objects of their own, no shared constants, so that their references can be counted.
cf_owner<CFStringRef> make_string(std::string_view text);
cf_owner<CFNumberRef> make_number(std::int64_t number);
cf_owner<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description = nullptr,
                                CFStringRef failure_reason = nullptr);
cf_owner<CFArrayRef> make_array(std::initializer_list<CFTypeRef> values);
cf_owner<CFSetRef> make_set(std::initializer_list<CFTypeRef> values);

struct entry {
    CFTypeRef key;
    CFTypeRef value;
};
cf_owner<CFDictionaryRef> make_dictionary(std::initializer_list<entry> entries);

// What a tool error says; {0, ""} for none.
struct tool_error {
    CFIndex code;
    std::string reason;
    bool operator==(tool_error const &) const = default;
};
tool_error said_by(qnrescue::error_owner const & error);
std::ostream & operator<<(std::ostream & stream, tool_error const & error);

// A string that cannot be converted to UTF-8.
cf_owner<CFStringRef> make_lone_surrogate();

} // namespace tests
