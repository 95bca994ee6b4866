// The strings of one document: equal texts become one object, unless they are mutable.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"

#include <vector>

namespace cf {

class property_list_strings {
public:
    explicit property_list_strings(property_list_options options)
        : wanted{options.of_leaf()} {}
    property_list_strings(property_list_strings const &) = delete;
    property_list_strings & operator=(property_list_strings const &) = delete;
    ~property_list_strings();

    // Returns the string with this text, one reference of it owned by the caller; null if the text
    // is not valid UTF-8.
    CFStringRef from_utf8(std::string_view text);
    CFStringRef from_utf16(std::u16string_view text);

private:
    struct string_slot {
        CFHashCode hash = 0;
        CFStringRef string = nullptr; // null: the slot is free
    };

    template <typename Text>
    string_slot & slot_of(Text text, CFHashCode hash);
    CFStringRef only(CFStringRef string);
    CFStringRef add(string_slot & slot, CFStringRef string, CFHashCode hash);
    CFStringRef from_ascii(std::string_view text);
    void grow();

    mutability wanted;
    std::size_t taken = 0;
    std::vector<string_slot> table; // a power of two of them, at most half of them taken
};

} // namespace cf
