#include "benchmarks/report_calls.hpp"

#include "QNRescue/qnrescue.h"
#include "platform/cf_collections.hpp"

#include <stdexcept>
#include <vector>

namespace benchmarks {

namespace {

using namespace qnrescue;

void require(bool done, char const * what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

std::string text_of(CFStringRef string) {
    auto const size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(size), '\0');
    require(CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8),
            "a string cannot be converted");
    text.resize(text.find('\0'));
    text.shrink_to_fit();
    return text;
}

CFTypeRef value_of(CFDictionaryRef dictionary, CFStringRef key, CFTypeID type) {
    auto const value = CFDictionaryGetValue(dictionary, key);
    require(is_a(value, type), "a report lacks a value");
    return value;
}

template <typename Number>
Number number_of(CFDictionaryRef dictionary, CFStringRef key, CFNumberType type) {
    Number number = 0;
    auto const value = value_of(dictionary, key, CFNumberGetTypeID());
    require(CFNumberGetValue(static_cast<CFNumberRef>(value), type, &number),
            "a number cannot be converted");
    return number;
}

bool is_leaf(CFTypeID type) {
    return type == CFStringGetTypeID() || type == CFNumberGetTypeID() ||
           type == CFBooleanGetTypeID() || type == CFDateGetTypeID() || type == CFDataGetTypeID();
}

cf_owner<CFTypeRef> copy_for_xml(CFTypeRef value);

cf_owner<CFTypeRef> copy_for_xml(CFArrayRef array) {
    auto copy = make_mutable_array();
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        if (auto const member = copy_for_xml(CFArrayGetValueAtIndex(array, i))) {
            CFArrayAppendValue(copy.get(), member.get());
        }
    }
    return copy;
}

cf_owner<CFTypeRef> copy_for_xml(CFDictionaryRef dictionary) {
    auto copy = make_mutable_dictionary();
    auto const count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<void const *> keys(count);
    std::vector<void const *> members(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), members.data());
    for (std::size_t i = 0; i < count; ++i) {
        auto const member = is_a(keys[i], CFStringGetTypeID()) ? copy_for_xml(members[i]) : nullptr;
        if (member) {
            CFDictionarySetValue(copy.get(), keys[i], member.get());
        }
    }
    return copy;
}

// Null where XML cannot hold the value.
cf_owner<CFTypeRef> copy_for_xml(CFTypeRef value) {
    auto const type = CFGetTypeID(value);
    if (is_leaf(type)) {
        return retain(value);
    }
    if (type == CFDictionaryGetTypeID()) {
        return copy_for_xml(static_cast<CFDictionaryRef>(value));
    }
    return type == CFArrayGetTypeID() ? copy_for_xml(static_cast<CFArrayRef>(value)) : nullptr;
}

bool is_valid(CFTypeRef value) {
    bool valid = true;
    auto const type = CFGetTypeID(value);
    if (type == CFDictionaryGetTypeID()) {
        CFDictionaryApplyFunction(
            static_cast<CFDictionaryRef>(value),
            [](void const * key, void const * member, void * context) {
                auto & all_valid = *static_cast<bool *>(context);
                all_valid = is_a(key, CFStringGetTypeID()) && is_valid(member) && all_valid;
            },
            &valid);
        return valid;
    }
    if (type == CFArrayGetTypeID()) {
        auto const array = static_cast<CFArrayRef>(value);
        CFArrayApplyFunction(
            array, CFRange{0, CFArrayGetCount(array)},
            [](void const * member, void * context) {
                auto & all_valid = *static_cast<bool *>(context);
                all_valid = is_valid(member) && all_valid;
            },
            &valid);
        return valid;
    }
    return is_leaf(type);
}

cf_owner<CFNumberRef> number(std::int32_t value) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

} // namespace

cf_owner<CFMutableDictionaryRef> make_report() {
    auto report = make_mutable_dictionary();
    CFDictionarySetValue(report.get(), CFSTR("Status"), CFSTR("Restoring"));
    CFDictionarySetValue(report.get(), CFSTR("Operation"), number(13).get());
    CFDictionarySetValue(report.get(), CFSTR("Progress"), number(48).get());
    return report;
}

report_fields read_report(CFDictionaryRef report) {
    auto const status = value_of(report, CFSTR("Status"), CFStringGetTypeID());
    return {text_of(static_cast<CFStringRef>(status)),
            number_of<std::int32_t>(report, CFSTR("Operation"), kCFNumberSInt32Type),
            number_of<std::int64_t>(report, CFSTR("Progress"), kCFNumberSInt64Type)};
}

std::string document_text(CFStringRef type, CFTypeRef value) {
    require(is_valid(value), "a value is not valid for XML");
    auto const document = make_mutable_dictionary();
    CFDictionarySetValue(document.get(), CFSTR("Type"), type);
    CFDictionarySetValue(document.get(), CFSTR("Value"), value);
    auto const data = adopt(CFPropertyListCreateData(kCFAllocatorDefault, document.get(),
                                                     kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    require(data != nullptr, "a document cannot be serialised");
    auto const text =
        adopt(CFStringCreateWithBytes(kCFAllocatorDefault, CFDataGetBytePtr(data.get()),
                                      CFDataGetLength(data.get()), kCFStringEncodingUTF8, false));
    require(text != nullptr, "a document is not UTF-8");
    return text_of(text.get());
}

std::string report_text(CFDictionaryRef report, std::int32_t operation) {
    auto const printable = copy_for_xml(report);
    auto const copy = adopt(CFDictionaryCreateMutableCopy(
        kCFAllocatorDefault, 0, static_cast<CFDictionaryRef>(printable.get())));
    if (operation != 0) {
        auto const name = adopt(AMRLocalizedCopyStringForAMROperation(operation));
        CFDictionarySetValue(copy.get(), CFSTR("QN_OperationName"), name.get());
    }
    return document_text(CFSTR("RestoreStatus"), copy.get());
}

} // namespace benchmarks
