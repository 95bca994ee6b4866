#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {
namespace {

// Returns the bytes of a UTF-16 unit in UTF-8; a surrogate has half of those of its pair.
std::size_t utf8_size(UniChar unit) {
    bool const surrogate = (unit & 0xF800) == 0xD800;
    return unit < 0x80 ? 1 : unit < 0x800 || surrogate ? 2 : 3;
}

} // namespace

std::optional<std::string> whole_text(CFStringRef string) {
    std::size_t size = 0; // counted, as a NUL may be part of the text
    for (CFIndex index = 0; index < CFStringGetLength(string); ++index) {
        size += utf8_size(CFStringGetCharacterAtIndex(string, index));
    }
    std::string result(size, '\0');
    if (!CFStringGetCString(string, result.data(), static_cast<CFIndex>(size) + 1,
                            kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    return result;
}

cf_owner<CFNumberRef> make_number(std::int64_t value) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

cf_owner<CFPropertyListRef> parse_property_list(std::span<std::uint8_t const> bytes) {
    auto const data =
        adopt(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
    CFPropertyListFormat format = 0;
    auto root = adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                                   kCFPropertyListImmutable, &format, nullptr));
    bool const known =
        format == kCFPropertyListXMLFormat_v1_0 || format == kCFPropertyListBinaryFormat_v1_0;
    return known ? std::move(root) : cf_owner<CFPropertyListRef>{};
}

cf_owner<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description,
                                CFStringRef failure_reason) {
    auto const info = make_mutable_dictionary();
    if (description) {
        CFDictionarySetValue(info.get(), kCFErrorLocalizedDescriptionKey, description);
    }
    if (failure_reason) {
        CFDictionarySetValue(info.get(), kCFErrorLocalizedFailureReasonKey, failure_reason);
    }
    return adopt(CFErrorCreate(kCFAllocatorDefault, domain, code, info.get()));
}

} // namespace mobile_device
