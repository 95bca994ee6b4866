// Conversions between UTF-8 and CoreFoundation strings. They are inline, so that every module uses
// the CoreFoundation that it links.
#pragma once

#include "platform/cf_ownership.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qnrescue {

// Returns a string with this text, or null where it is not valid UTF-8.
inline cf_owner<CFStringRef> make_cfstring(std::string_view text) {
    return adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

// Returns the text up to its first NUL, or nothing for null and for a string that UTF-8 cannot
// hold.
inline std::optional<std::string> to_utf8(CFStringRef string) {
    if (string == nullptr) {
        return std::nullopt;
    }
    auto const size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    text.resize(text.find('\0'));
    text.shrink_to_fit(); // texts wait in the output queue
    return text;
}

// Returns the same text, or the empty string where to_utf8 returns nothing.
inline std::string MakeString(CFStringRef string) noexcept {
    return to_utf8(string).value_or(std::string());
}

// Returns CoreFoundation's description of any object, "(null)" for null or without a description.
inline std::string MakeDescription(CFTypeRef value) noexcept {
    if (value == nullptr) {
        return "(null)";
    }
    auto const description = adopt(CFCopyDescription(value));
    return description ? MakeString(description.get()) : "(null)";
}

} // namespace qnrescue
