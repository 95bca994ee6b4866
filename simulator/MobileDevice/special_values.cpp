#include "simulator/MobileDevice/special_values.hpp"

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {
namespace {

using object = cf_owner<CFTypeRef>;

object read_value(node const & value);

object read_error_value(node const & value) {
    return read_error(
        {value, {"$type", "Domain", "Code", "Description", "FailureReason", "UserInfo"}});
}

object read_set(node const & value) {
    dictionary_node const description{value, {"$type", "Values"}};
    auto set = adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    for (auto const & element : description.at("Values").elements()) {
        CFSetAddValue(set.get(), read_value(element).get());
    }
    return set;
}

object read_dictionary(node const & value) {
    dictionary_node const description{value, {"$type", "Entries"}};
    auto dictionary = make_mutable_dictionary();
    for (auto const & element : description.at("Entries").elements()) {
        dictionary_node const entry{element, {"Key", "Value"}};
        CFDictionarySetValue(dictionary.get(), read_value(entry.at("Key")).get(),
                             read_value(entry.at("Value")).get());
    }
    return dictionary;
}

object read_null(node const & value) {
    dictionary_node const description{value, {"$type"}};
    return retain<CFTypeRef>(kCFNull);
}

object read_text(node const & value) {
    return value.string();
}

struct special_type {
    std::string_view name;
    object (*read)(node const & value);
};

constexpr special_type special_types[] = {
    {"error", read_error_value}, {"set", read_set},   {"dictionary", read_dictionary},
    {"text", read_text},         {"null", read_null},
};

object read_special(node const & value, node const & type) {
    auto const name = type.text();
    for (auto const & special : special_types) {
        if (special.name == name) {
            return special.read(value);
        }
    }
    type.fail("must be error, set, dictionary, text or null");
}

object read_plain_dictionary(dictionary_node const & value) {
    auto dictionary = make_mutable_dictionary();
    for (auto const & entry : value.entries()) {
        CFDictionarySetValue(dictionary.get(), entry.key, read_value(entry.value).get());
    }
    return dictionary;
}

object read_array(node const & value) {
    auto array = adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (auto const & element : value.elements()) {
        CFArrayAppendValue(array.get(), read_value(element).get());
    }
    return array;
}

object read_value(node const & value) {
    if (value.is_array()) {
        return read_array(value);
    }
    if (!value.is_dictionary()) {
        return retain(value.value());
    }
    dictionary_node const dictionary{value};
    auto const type = dictionary.find("$type");
    return type ? read_special(value, *type) : read_plain_dictionary(dictionary);
}

cf_owner<CFMutableDictionaryRef> read_user_info(node const & value) {
    auto const held = read_value(value);
    if (!is_a(held.get(), CFDictionaryGetTypeID())) {
        value.fail("must be a dictionary");
    }
    return adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0,
                                               static_cast<CFDictionaryRef>(held.get())));
}

} // namespace

cf_owner<CFDictionaryRef> read_status(node const & status) {
    dictionary_node const dictionary{status};
    if (auto const type = dictionary.find("$type")) {
        auto const name = type->text();
        if (name == "error" || name == "set" || name == "text") {
            type->fail("a whole status can only be dictionary or null");
        }
        if (name == "null") {
            read_special(status, *type);
            return {};
        }
    }
    return adopt(static_cast<CFDictionaryRef>(read_value(status).release()));
}

bool is_null(node const & value) {
    auto const type = value.is_dictionary() ? dictionary_node{value}.find("$type") : std::nullopt;
    if (!type || type->text() == "text") {
        return false;
    }
    if (type->text() != "null") {
        type->fail("can only be text or null here");
    }
    read_null(value);
    return true;
}

cf_owner<CFErrorRef> read_error(dictionary_node const & description) {
    auto const domain = description.at("Domain").string();
    auto const code = description.at("Code").integer<CFIndex>();
    auto const more = description.find("UserInfo");
    auto const info = more ? read_user_info(*more) : make_mutable_dictionary();
    auto const add_text = [&](std::string_view key, CFStringRef key_of_info) {
        if (auto const value = description.find(key)) {
            CFDictionarySetValue(info.get(), key_of_info, value->string().get());
        }
    };
    add_text("Description", kCFErrorLocalizedDescriptionKey);
    add_text("FailureReason", kCFErrorLocalizedFailureReasonKey);
    return adopt(CFErrorCreate(kCFAllocatorDefault, domain.get(), code, info.get()));
}

} // namespace mobile_device
