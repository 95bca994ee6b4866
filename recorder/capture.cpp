#include "recorder/capture.hpp"

#include "platform/cf_strings.hpp"

#include <boost/locale/utf.hpp>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace recorder {
namespace {

using qnrescue::adopt;

constexpr int deepest = 200; // what follows nested values is recursive here and in the simulator

// Returns the element that the library itself writes for an object without children.
std::optional<element> written_by_library(CFTypeRef object) {
    auto const data = adopt(CFPropertyListCreateData(kCFAllocatorDefault, object,
                                                     kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (!data) {
        return std::nullopt;
    }
    std::string_view text{reinterpret_cast<char const *>(CFDataGetBytePtr(data.get())),
                          static_cast<std::size_t>(CFDataGetLength(data.get()))};
    constexpr std::string_view opening = "<plist version=\"1.0\">\n";
    auto const begin = text.find(opening);
    auto const end = text.rfind("\n</plist>");
    if (begin == std::string_view::npos || end == std::string_view::npos) {
        return std::nullopt;
    }
    return element{std::string{text.substr(begin + opening.size(), end - begin - opening.size())}};
}

std::optional<element> capture_number(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double real = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &real);
        return std::get<element>(make_real(real).held);
    }
    std::int64_t low = 0;
    double rounded = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &low);
    CFNumberGetValue(number, kCFNumberFloat64Type, &rounded);
    return rounded == static_cast<double>(low) ? std::get<element>(make_integer(low).held)
                                               : written_by_library(number);
}

// Returns the description that every error has whose user info holds none.
std::string usual_description(CFErrorRef error, CFStringRef reason) {
    return fmt::format("The operation couldn\u2019t be completed. {}",
                       reason ? qnrescue::MakeString(reason)
                              : fmt::format("({} error {}.)",
                                            qnrescue::MakeString(CFErrorGetDomain(error)),
                                            CFErrorGetCode(error)));
}

std::vector<std::pair<CFTypeRef, CFTypeRef>> entries_of(CFDictionaryRef from) {
    auto const count = static_cast<std::size_t>(CFDictionaryGetCount(from));
    std::vector<CFTypeRef> keys(count);
    std::vector<CFTypeRef> values(count);
    CFDictionaryGetKeysAndValues(from, keys.data(), values.data());
    std::vector<std::pair<CFTypeRef, CFTypeRef>> result(count);
    for (std::size_t index = 0; index < count; ++index) {
        result[index] = {keys[index], values[index]};
    }
    return result;
}

// Returns the key if a plain dictionary of a scenario can have it.
std::optional<std::string> plain_key(CFTypeRef key) {
    if (!qnrescue::is_a(key, CFStringGetTypeID())) {
        return std::nullopt;
    }
    auto text = capture_text(static_cast<CFStringRef>(key));
    return text != "$type" && is_xml_text(text) ? std::optional{std::move(text)} : std::nullopt;
}

// One capture: its losses and how deep it is.
class capturer {
public:
    explicit capturer(std::vector<std::string> & into)
        : losses{into} {}

    value any(CFTypeRef object) {
        if (object == nullptr || CFGetTypeID(object) == CFNullGetTypeID()) {
            return make_null();
        }
        if (depth == deepest) {
            return lost(object, "is nested too deeply");
        }
        ++depth;
        auto result = existing(object);
        --depth;
        return result;
    }

private:
    value existing(CFTypeRef object) {
        auto const type = CFGetTypeID(object);
        if (type == CFStringGetTypeID()) {
            return make_string(capture_text(static_cast<CFStringRef>(object)));
        }
        if (type == CFDictionaryGetTypeID()) {
            return mapping(static_cast<CFDictionaryRef>(object));
        }
        if (type == CFArrayGetTypeID()) {
            return sequence(static_cast<CFArrayRef>(object));
        }
        if (type == CFSetGetTypeID()) {
            return set(static_cast<CFSetRef>(object));
        }
        if (type == CFErrorGetTypeID()) {
            auto error = capture_error(static_cast<CFErrorRef>(const_cast<void *>(object)), losses);
            error.insert(error.begin(), {"$type", make_string("error")});
            return {std::move(error)};
        }
        return leaf(object, type);
    }

    value leaf(CFTypeRef object, CFTypeID type) {
        std::optional<element> written;
        if (type == CFBooleanGetTypeID()) {
            return make_boolean(CFBooleanGetValue(static_cast<CFBooleanRef>(object)));
        }
        if (type == CFNumberGetTypeID()) {
            written = capture_number(static_cast<CFNumberRef>(object));
        } else if (type == CFDateGetTypeID() || type == CFDataGetTypeID()) {
            written = written_by_library(object);
        }
        return written ? value{*std::move(written)}
                       : lost(object, "has a type that no scenario can hold");
    }

    value lost(CFTypeRef object, std::string_view why) {
        auto const text = qnrescue::MakeDescription(object);
        losses.push_back(fmt::format("A value {}: {}", why, text));
        return make_string(text);
    }

    value sequence(CFArrayRef from) {
        array result;
        for (CFIndex index = 0; index < CFArrayGetCount(from); ++index) {
            result.push_back(any(CFArrayGetValueAtIndex(from, index)));
        }
        return {std::move(result)};
    }

    // Sorted, as a set has no order that two recordings would share.
    value set(CFSetRef from) {
        std::vector<CFTypeRef> members(static_cast<std::size_t>(CFSetGetCount(from)));
        CFSetGetValues(from, members.data());
        array values;
        for (auto const member : members) {
            values.push_back(any(member));
        }
        std::ranges::sort(values, {}, write_property_list);
        return {dictionary{{"$type", make_string("set")}, {"Values", {std::move(values)}}}};
    }

    value mapping(CFDictionaryRef from) {
        dictionary plain;
        for (auto const & [key, content] : entries_of(from)) {
            auto const name = plain_key(key);
            if (!name) {
                return mapping_of_any_keys(from);
            }
            plain.push_back({*name, any(content)});
        }
        std::ranges::sort(plain, {}, &entry::key);
        return {std::move(plain)};
    }

    value mapping_of_any_keys(CFDictionaryRef from) {
        array result;
        for (auto const & [key, content] : entries_of(from)) {
            result.push_back({dictionary{{"Key", any(key)}, {"Value", any(content)}}});
        }
        std::ranges::sort(result, {}, write_property_list);
        return {dictionary{{"$type", make_string("dictionary")}, {"Entries", {std::move(result)}}}};
    }

    std::vector<std::string> & losses;
    int depth = 0;
};

} // namespace

std::string capture_text(CFStringRef string) {
    using utf16 = boost::locale::utf::utf_traits<char16_t>;
    using utf8 = boost::locale::utf::utf_traits<char>;
    std::string result;
    auto const length = CFStringGetLength(string);
    auto const unit_at = [&](CFIndex index) {
        return index < length ? char16_t{CFStringGetCharacterAtIndex(string, index)} : char16_t{};
    };
    for (CFIndex index = 0; index < length; ++index) {
        auto const unit = unit_at(index);
        auto const next = unit_at(index + 1);
        bool const is_pair = utf16::is_first_surrogate(unit) && utf16::is_second_surrogate(next);
        utf8::encode(is_pair ? utf16::combine_surrogate(unit, next) : unit,
                     std::back_inserter(result));
        index += is_pair ? 1 : 0;
    }
    return result;
}

value capture(CFTypeRef object, std::vector<std::string> & losses) {
    return capturer{losses}.any(object);
}

dictionary capture_error(CFErrorRef error, std::vector<std::string> & losses) {
    dictionary result{{"Domain", make_string(capture_text(CFErrorGetDomain(error)))},
                      {"Code", make_integer(static_cast<std::int64_t>(CFErrorGetCode(error)))}};
    auto const copied_text = [](CFStringRef text) { // the user info may hold anything
        auto owned = adopt(text);
        return qnrescue::is_a(text, CFStringGetTypeID()) ? std::move(owned)
                                                         : qnrescue::cf_owner<CFStringRef>{};
    };
    auto const description = copied_text(CFErrorCopyDescription(error));
    auto const reason = copied_text(CFErrorCopyFailureReason(error));
    if (description &&
        qnrescue::MakeString(description.get()) != usual_description(error, reason.get())) {
        result.push_back({"Description", make_string(capture_text(description.get()))});
    }
    if (reason) {
        result.push_back({"FailureReason", make_string(capture_text(reason.get()))});
    }
    auto const info = adopt(CFErrorCopyUserInfo(error));
    for (auto const & [key, content] : entries_of(info.get())) {
        bool const known = CFEqual(key, kCFErrorLocalizedDescriptionKey) ||
                           CFEqual(key, kCFErrorLocalizedFailureReasonKey);
        if (!known || !qnrescue::is_a(content, CFStringGetTypeID())) {
            losses.push_back(fmt::format("An error holds more than a scenario can express: {}",
                                         qnrescue::MakeDescription(content)));
        }
    }
    return result;
}

} // namespace recorder
