// What the tests of the CoreFoundation functions share: texts in UTF-8 and objects made in one
// expression.
#pragma once

#include "platform/cf_collections.hpp"
#include "platform/cf_ownership.hpp"
#include "platform/cf_strings.hpp"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

using qnrescue::adopt;
using qnrescue::cf_owner;

inline cf_owner<CFStringRef> string(std::string_view utf8) {
    return qnrescue::make_cfstring(utf8);
}

inline cf_owner<CFStringRef> string(std::u16string_view units) {
    return adopt(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(units.data()),
        static_cast<CFIndex>(units.size() * 2), kCFStringEncodingUTF16, false));
}

// The units of a string, or of `(null)`.
inline std::u16string units(CFStringRef text) {
    if (text == nullptr) {
        return u"(null)";
    }
    std::u16string result;
    for (CFIndex i = 0; i < CFStringGetLength(text); ++i) {
        result += static_cast<char16_t>(CFStringGetCharacterAtIndex(text, i));
    }
    return result;
}

inline std::string utf8(CFStringRef text) {
    return text == nullptr ? "(null)" : qnrescue::to_utf8(text).value_or("(unreadable)");
}

inline std::string utf8(cf_owner<CFStringRef> const & text) {
    return utf8(text.get());
}

template <class Value>
cf_owner<CFNumberRef> number(CFNumberType type, Value value) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, type, &value));
}

inline cf_owner<CFNumberRef> integer(std::int64_t value) {
    return number(kCFNumberSInt64Type, value);
}

inline cf_owner<CFNumberRef> real(double value) {
    return number(kCFNumberFloat64Type, value);
}

// An integer of 128 bits, whose type has no public name.
inline cf_owner<CFNumberRef> wide_integer(std::int64_t high, std::uint64_t low) {
    constexpr CFNumberType wide_integer_type = 17;
    struct {
        std::int64_t high;
        std::uint64_t low;
    } const value{high, low};
    return number(wide_integer_type, value);
}

inline cf_owner<CFMutableDictionaryRef> dictionary() {
    return qnrescue::make_mutable_dictionary();
}

inline cf_owner<CFMutableArrayRef> array() {
    return qnrescue::make_mutable_array();
}

// A description without what differs from run to run: every address becomes PTR.
inline std::string without_addresses(std::string_view text) {
    constexpr std::string_view prefix{"0x"};
    constexpr std::string_view before_bytes_of_data{"= "};
    std::string result;
    while (!text.empty()) {
        if (text.starts_with(prefix) && !result.ends_with(before_bytes_of_data)) {
            text.remove_prefix(prefix.size());
            auto const end = text.find_first_not_of("0123456789abcdef");
            text.remove_prefix(end == std::string_view::npos ? text.size() : end);
            result += "PTR";
        } else {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

inline std::string description(CFTypeRef object) {
    return without_addresses(utf8(adopt(CFCopyDescription(object))));
}
