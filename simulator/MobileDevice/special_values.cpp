#include "simulator/MobileDevice/special_values.hpp"

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {
namespace {

using object = reference<CFTypeRef>;

object read_value(node const & value);

object share(CFTypeRef borrowed) {
    return object::retain(borrowed);
}

object read_error_value(node const & value) {
    return object::adopt(
        read_error({value, {"$type", "Domain", "Code", "Description", "FailureReason"}}).release());
}

object read_set(node const & value) {
    dictionary_node const description{value, {"$type", "Values"}};
    auto const set = reference<CFMutableSetRef>::adopt(
        CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    for (auto const & element : description.at("Values").elements()) {
        CFSetAddValue(set.get(), read_value(element).get());
    }
    return share(set.get());
}

object read_dictionary(node const & value) {
    dictionary_node const description{value, {"$type", "Entries"}};
    auto const dictionary = make_dictionary();
    for (auto const & element : description.at("Entries").elements()) {
        dictionary_node const entry{element, {"Key", "Value"}};
        CFDictionarySetValue(dictionary.get(), read_value(entry.at("Key")).get(),
                             read_value(entry.at("Value")).get());
    }
    return share(dictionary.get());
}

object read_null(node const & value) {
    dictionary_node const description{value, {"$type"}};
    return share(kCFNull);
}

struct special_type {
    std::string_view name;
    object (*read)(node const & value);
};

constexpr special_type special_types[] = {
    {"error", read_error_value},
    {"set", read_set},
    {"dictionary", read_dictionary},
    {"null", read_null},
};

object read_special(node const & value, node const & type) {
    auto const name = type.text();
    for (auto const & special : special_types) {
        if (special.name == name) {
            return special.read(value);
        }
    }
    type.fail("must be error, set, dictionary or null");
}

object read_plain_dictionary(dictionary_node const & value) {
    auto const dictionary = make_dictionary();
    for (auto const & entry : value.entries()) {
        CFDictionarySetValue(dictionary.get(), entry.key, read_value(entry.value).get());
    }
    return share(dictionary.get());
}

object read_array(node const & value) {
    auto const array = reference<CFMutableArrayRef>::adopt(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (auto const & element : value.elements()) {
        CFArrayAppendValue(array.get(), read_value(element).get());
    }
    return share(array.get());
}

object read_value(node const & value) {
    if (value.is_array()) {
        return read_array(value);
    }
    if (!value.is_dictionary()) {
        return share(value.value());
    }
    dictionary_node const dictionary{value};
    auto const type = dictionary.find("$type");
    return type ? read_special(value, *type) : read_plain_dictionary(dictionary);
}

} // namespace

reference<CFDictionaryRef> read_status(node const & status) {
    dictionary_node const dictionary{status};
    if (auto const type = dictionary.find("$type")) {
        auto const name = type->text();
        if (name == "error" || name == "set") {
            type->fail("a whole status can only be dictionary or null");
        }
        if (name == "null") {
            read_special(status, *type);
            return {};
        }
    }
    return reference<CFDictionaryRef>::adopt(
        static_cast<CFDictionaryRef>(read_value(status).release()));
}

reference<CFErrorRef> read_error(dictionary_node const & description) {
    auto const domain = description.at("Domain").string();
    auto const code = description.at("Code").integer<CFIndex>();
    auto const optional_string = [&](std::string_view key) {
        auto const value = description.find(key);
        return value ? value->string() : reference<CFStringRef>{};
    };
    return make_error(domain.get(), code, optional_string("Description").get(),
                      optional_string("FailureReason").get());
}

} // namespace mobile_device
