// What the tests of the CoreFoundation functions share: an owner of references, texts in UTF-8 and
// objects made in one expression.
#pragma once

#include "platform/CoreFoundation.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

struct Releaser {
    void operator()(void const * object) const { CFRelease(object); }
};

// Owns one reference; null is allowed.
template <class Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Releaser>;

template <class Reference>
Owned<Reference> own(Reference reference) {
    return Owned<Reference>{reference};
}

inline Owned<CFStringRef> string(std::string_view utf8) {
    return own(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

inline Owned<CFStringRef> string(std::u16string_view units) {
    return own(CFStringCreateWithBytes(
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
    if (text == nullptr) {
        return "(null)";
    }
    auto const size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(static_cast<std::size_t>(size));
    return CFStringGetCString(text, buffer.data(), size, kCFStringEncodingUTF8) ? buffer.data()
                                                                                : "(unreadable)";
}

inline std::string utf8(Owned<CFStringRef> const & text) {
    return utf8(text.get());
}

template <class Value>
Owned<CFNumberRef> number(CFNumberType type, Value value) {
    return own(CFNumberCreate(kCFAllocatorDefault, type, &value));
}

inline Owned<CFNumberRef> integer(std::int64_t value) {
    return number(kCFNumberSInt64Type, value);
}

inline Owned<CFNumberRef> real(double value) {
    return number(kCFNumberFloat64Type, value);
}

// An integer of 128 bits, whose type has no public name.
inline Owned<CFNumberRef> wide_integer(std::int64_t high, std::uint64_t low) {
    constexpr CFNumberType kCFNumberSInt128Type = 17;
    struct {
        std::int64_t high;
        std::uint64_t low;
    } const value{high, low};
    return number(kCFNumberSInt128Type, value);
}

inline Owned<CFMutableDictionaryRef> dictionary() {
    return own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                         &kCFTypeDictionaryValueCallBacks));
}

inline Owned<CFMutableArrayRef> array() {
    return own(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
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
    return without_addresses(utf8(own(CFCopyDescription(object))));
}
