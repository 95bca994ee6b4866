#include "simulator/MobileDevice/values.hpp"

#include <vector>

namespace mobile_device {

std::optional<std::string> to_utf8(CFStringRef string) {
    auto const size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(static_cast<std::size_t>(size));
    if (!CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    return std::string{buffer.data()};
}

reference<CFStringRef> make_string(std::string_view utf8) {
    return reference<CFStringRef>::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

reference<CFNumberRef> make_number(std::int64_t value) {
    return reference<CFNumberRef>::adopt(
        CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

reference<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description,
                                 CFStringRef failure_reason) {
    auto const info = make_dictionary();
    if (description) {
        CFDictionarySetValue(info.get(), kCFErrorLocalizedDescriptionKey, description);
    }
    if (failure_reason) {
        CFDictionarySetValue(info.get(), kCFErrorLocalizedFailureReasonKey, failure_reason);
    }
    return reference<CFErrorRef>::adopt(
        CFErrorCreate(kCFAllocatorDefault, domain, code, info.get()));
}

reference<CFMutableDictionaryRef> make_dictionary() {
    return reference<CFMutableDictionaryRef>::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

} // namespace mobile_device
