#include "simulator/CoreFoundation/property_list/error.hpp"

#include "simulator/CoreFoundation/property_list/reference.hpp"
#include "simulator/CoreFoundation/strings.hpp"

namespace cf {

namespace {

owned_reference message_string(std::string const & text) {
    if (auto const * const string = create_utf8_string(text)) {
        return owned_reference{string};
    }
    std::u16string units;
    for (auto const character : text) {
        units.push_back(static_cast<unsigned char>(character));
    }
    return owned_reference{create_string(units)};
}

} // namespace

CFErrorRef create_property_list_error(CFIndex code, std::string const & text,
                                      std::optional<std::string> const & old_style) {
    auto const debug_text = message_string(text);
    void const * keys[2] = {CFSTR("NSDebugDescription"),
                            CFSTR("kCFPropertyListOldStyleParsingError")};
    void const * values[2] = {debug_text.get(), nullptr};
    owned_reference old_style_error;
    if (old_style) {
        old_style_error.reset(create_property_list_error(code, *old_style));
        values[1] = old_style_error.get();
    }
    owned_reference const user_info{
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, old_style ? 2 : 1,
                           &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks)};
    return CFErrorCreate(kCFAllocatorDefault, CFSTR("NSCocoaErrorDomain"), code,
                         static_cast<CFDictionaryRef>(user_info.get()));
}

} // namespace cf
