#include "QNRescue/sanitize_for_xml.hpp"

#include "QNRescue/error_domain.hpp"

#include <stdexcept>
#include <vector>

namespace qnrescue {

namespace {

cf_owner<CFTypeRef> convert(CFTypeRef value, on_error mode);

cf_owner<CFTypeRef> convert_array(CFArrayRef array, on_error mode) {
    auto converted = make_mutable_array();
    if (!converted) {
        return nullptr;
    }
    for (CFIndex i = 0, count = CFArrayGetCount(array); i < count; ++i) {
        if (auto const element = convert(CFArrayGetValueAtIndex(array, i), mode)) {
            CFArrayAppendValue(converted.get(), element.get());
        } else if (mode != on_error::skip) {
            return nullptr;
        }
    }
    return converted;
}

cf_owner<CFTypeRef> convert_dictionary(CFDictionaryRef dictionary, on_error mode) {
    auto const count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<void const *> keys(count);
    std::vector<void const *> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());

    auto converted = make_mutable_dictionary();
    if (!converted) {
        return nullptr;
    }
    for (std::size_t i = 0; i < count; ++i) {
        auto const value = is_a(keys[i], CFStringGetTypeID()) ? convert(values[i], mode) : nullptr;
        if (value) {
            CFDictionarySetValue(converted.get(), keys[i], value.get());
        } else if (mode != on_error::skip) {
            return nullptr;
        }
    }
    return converted;
}

cf_owner<CFTypeRef> convert(CFTypeRef value, on_error mode) {
    if (value == nullptr) {
        return nullptr;
    }
    auto const type = CFGetTypeID(value);
    if (type == CFStringGetTypeID() || type == CFNumberGetTypeID() ||
        type == CFBooleanGetTypeID() || type == CFDateGetTypeID() || type == CFDataGetTypeID()) {
        return retain(value);
    }
    if (type == CFArrayGetTypeID()) {
        return convert_array(static_cast<CFArrayRef>(value), mode);
    }
    if (type == CFDictionaryGetTypeID()) {
        return convert_dictionary(static_cast<CFDictionaryRef>(value), mode);
    }
    if (type == CFErrorGetTypeID()) {
        return DictionaryFromError(static_cast<CFErrorRef>(const_cast<void *>(value)));
    }
    return nullptr;
}

} // namespace

cf_owner<CFTypeRef> sanitize_for_xml(CFTypeRef value, on_error mode) {
    auto converted = convert(value, mode);
    if (!converted && mode == on_error::raise) {
        throw std::runtime_error("Could not convert to xml plist");
    }
    return converted;
}

} // namespace qnrescue
