// How values leave through the output channel: as XML property-list documents.
#include "QNRescue/error_domain.hpp"
#include "QNRescue/output_state.hpp"
#include "QNRescue/property_list_validation.hpp"
#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"

#include <fmt/format.h>

namespace qnrescue {

namespace {

CFStringRef const type_key = CFSTR("Type");
CFStringRef const value_key = CFSTR("Value");

} // namespace

void output_str_state::print_value(CFStringRef type, CFTypeRef value) {
    if (type == nullptr || CFStringGetLength(type) == 0 || value == nullptr) {
        print_debug(fmt::format("{}: invalid argument", __func__));
        return;
    }
    if (!is_valid_property_list(value, kCFPropertyListXMLFormat_v1_0)) {
        print_debug(fmt::format("{}: object not valid for XML plist", __func__));
        return;
    }
    auto const document = make_mutable_dictionary();
    if (document) {
        CFDictionarySetValue(document.get(), type_key, type);
        CFDictionarySetValue(document.get(), value_key, value);
    }

    CFErrorRef failure = nullptr;
    auto const data = adopt(CFPropertyListCreateData(kCFAllocatorDefault, document.get(),
                                                     kCFPropertyListXMLFormat_v1_0, 0, &failure));
    if (!data) {
        auto const error = adopt(failure);
        print_debug(fmt::format("{}: CFPropertyListCreateData failed - {}", __func__,
                                error ? MakeDescription(error.get()) : "unknown"));
        return;
    }
    auto const text =
        adopt(CFStringCreateWithBytes(kCFAllocatorDefault, CFDataGetBytePtr(data.get()),
                                      CFDataGetLength(data.get()), kCFStringEncodingUTF8, false));
    if (!text) {
        print_debug(fmt::format("{}: CFStringCreateWithBytes failed - unknown", __func__));
        return;
    }
    print(MakeString(text.get()));
}

void output_str_state::print_value(message_type const & message) {
    auto const type = make_cfstring(message.type);
    print_value(type.get(), message.value.get());
}

void output_str_state::print_formatted_error(CFErrorRef error) {
    if (error == nullptr) {
        print_debug(fmt::format("{}: invalid argument", __func__));
        return;
    }
    auto const dictionary = DictionaryFromError(error);
    if (!dictionary) {
        print_debug(fmt::format("{}: could not create error dict", __func__));
        return;
    }
    print_value(CFSTR("InternalError"), dictionary.get());
}

} // namespace qnrescue
