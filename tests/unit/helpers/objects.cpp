#include "tests/unit/helpers/objects.hpp"

#include "QNRescue/error_domain.hpp"
#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"

#include <ostream>
#include <stdexcept>

namespace tests {

using qnrescue::adopt;

cf_owner<CFTypeRef> read_plist(std::string_view bytes) {
    auto const data =
        adopt(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(bytes.data()),
                           static_cast<CFIndex>(bytes.size())));
    return adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                              kCFPropertyListImmutable, nullptr, nullptr));
}

cf_owner<CFTypeRef> plist(std::string_view element) {
    auto const text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
                      std::string(element) + "</plist>";
    auto value = read_plist(text);
    if (!value) {
        throw std::invalid_argument("no property list: " + text);
    }
    return value;
}

cf_owner<CFDictionaryRef> plist_dictionary(std::string_view element) {
    return adopt(static_cast<CFDictionaryRef>(plist(element).release()));
}

bool equal(CFTypeRef left, CFTypeRef right) {
    return left == nullptr || right == nullptr ? left == right : CFEqual(left, right) != 0;
}

cf_owner<CFStringRef> make_string(std::string_view text) {
    return qnrescue::make_cfstring(text);
}

cf_owner<CFNumberRef> make_number(std::int64_t number) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &number));
}

cf_owner<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description,
                                CFStringRef failure_reason) {
    auto const user_info = qnrescue::make_mutable_dictionary();
    if (description != nullptr) {
        CFDictionarySetValue(user_info.get(), kCFErrorLocalizedDescriptionKey, description);
    }
    if (failure_reason != nullptr) {
        CFDictionarySetValue(user_info.get(), kCFErrorLocalizedFailureReasonKey, failure_reason);
    }
    return adopt(CFErrorCreate(kCFAllocatorDefault, domain, code, user_info.get()));
}

cf_owner<CFArrayRef> make_array(std::initializer_list<CFTypeRef> values) {
    auto array = qnrescue::make_mutable_array();
    for (auto const value : values) {
        CFArrayAppendValue(array.get(), value);
    }
    return array;
}

cf_owner<CFSetRef> make_set(std::initializer_list<CFTypeRef> values) {
    auto set = adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    for (auto const value : values) {
        CFSetAddValue(set.get(), value);
    }
    return set;
}

cf_owner<CFDictionaryRef> make_dictionary(std::initializer_list<entry> entries) {
    auto dictionary = qnrescue::make_mutable_dictionary();
    for (auto const & [key, value] : entries) {
        CFDictionarySetValue(dictionary.get(), key, value);
    }
    return dictionary;
}

tool_error said_by(qnrescue::error_owner const & error) {
    if (!error) {
        return {0, ""};
    }
    return {CFErrorGetCode(error.get()),
            qnrescue::MakeString(adopt(CFErrorCopyFailureReason(error.get())).get())};
}

std::ostream & operator<<(std::ostream & stream, tool_error const & error) {
    return stream << error.code << ' ' << error.reason;
}

cf_owner<CFStringRef> make_lone_surrogate() {
    UniChar const unit = 0xD800;
    return adopt(CFStringCreateWithBytes(kCFAllocatorDefault,
                                         reinterpret_cast<UInt8 const *>(&unit), sizeof unit,
                                         kCFStringEncodingUTF16, false));
}

} // namespace tests
