// The strings of one document: equal texts become one object, unless they are to be mutable.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"

#include <vector>

namespace cf {

class PropertyListStrings {
public:
    explicit PropertyListStrings(PropertyListOptions options)
        : mutability_{options.of_leaf()} {}
    PropertyListStrings(PropertyListStrings const &) = delete;
    PropertyListStrings & operator=(PropertyListStrings const &) = delete;
    ~PropertyListStrings();

    // The string with this text, one reference of it owned by the caller; null if the text is not
    // valid UTF-8.
    CFStringRef from_utf8(std::string_view text);
    CFStringRef from_utf16(std::u16string_view text);

private:
    struct Slot {
        CFHashCode hash = 0;
        CFStringRef string = nullptr; // null: the slot is free
    };

    template <class Text>
    Slot & slot_of(Text text, CFHashCode hash);
    CFStringRef only(CFStringRef string);
    CFStringRef add(Slot & slot, CFStringRef string, CFHashCode hash);
    CFStringRef from_ascii(std::string_view text);
    void grow();

    Mutability mutability_;
    std::size_t count_ = 0;
    std::vector<Slot> slots_; // a power of two of them, at most half of them taken
};

} // namespace cf
