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

// A value takes up to three levels of the file, which the simulator reads to 512 levels.
constexpr int deepest = 160;

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

std::string shortened(std::string text) {
    constexpr std::size_t longest = 300; // bytes
    if (text.size() > longest) {
        auto end = longest;
        while ((text[end] & 0xC0) == 0x80) { // inside a character
            --end;
        }
        text.replace(end, std::string::npos, "...");
    }
    return text;
}

// Returns nothing for what is no text, as the user info of an error may hold that in its place.
std::optional<std::string> text_of(qnrescue::cf_owner<CFStringRef> const & object) {
    return qnrescue::is_a(object.get(), CFStringGetTypeID())
               ? std::optional{capture_text(object.get())}
               : std::nullopt;
}

// Returns the description that every error has whose user info holds no other.
std::string usual_description(CFErrorRef error, std::optional<std::string> const & reason) {
    return fmt::format("The operation couldn\u2019t be completed. {}",
                       reason ? *reason
                              : fmt::format("({} error {}.)", capture_text(CFErrorGetDomain(error)),
                                            CFErrorGetCode(error)));
}

using object_entries = std::vector<std::pair<CFTypeRef, CFTypeRef>>;

object_entries entries_of(CFDictionaryRef from) {
    auto const count = static_cast<std::size_t>(CFDictionaryGetCount(from));
    std::vector<CFTypeRef> keys(count);
    std::vector<CFTypeRef> values(count);
    CFDictionaryGetKeysAndValues(from, keys.data(), values.data());
    object_entries result(count);
    for (std::size_t index = 0; index < count; ++index) {
        result[index] = {keys[index], values[index]};
    }
    return result;
}

// Returns whether the tool reads the entry of an error's user info: it shows these if they are
// texts.
bool is_read(object_entries::value_type const & of_user_info) {
    return CFEqual(of_user_info.first, kCFErrorLocalizedDescriptionKey) ||
           CFEqual(of_user_info.first, kCFErrorLocalizedFailureReasonKey);
}

// Returns whether an error may get another description by itself because of this.
bool changes_description(object_entries::value_type const & of_user_info) {
    return CFEqual(of_user_info.first, CFSTR("NSLocalizedFailure")) ||
           CFEqual(of_user_info.first, CFSTR("NSDescription"));
}

// Returns what the user info holds beside a description and a failure reason.
object_entries further_user_info(CFErrorRef error) {
    auto const info = adopt(CFErrorCopyUserInfo(error));
    auto result = info ? entries_of(info.get()) : object_entries{};
    std::erase_if(result, [](auto const & each) {
        return is_read(each) && qnrescue::is_a(each.second, CFStringGetTypeID());
    });
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

// One capture: its losses and how deep it is. Without a list of losses, a sentence takes the place
// of what is lost.
class capturer {
public:
    explicit capturer(std::vector<std::string> * into, int already_deep = 0)
        : losses{into}
        , depth{already_deep} {}

    value any(CFTypeRef object) {
        if (object == nullptr || CFGetTypeID(object) == CFNullGetTypeID()) {
            return make_null();
        }
        if (depth >= deepest) {
            return lost(object, "is nested too deeply");
        }
        ++depth;
        auto result = existing(object);
        --depth;
        return result;
    }

    dictionary error(CFErrorRef from) {
        dictionary result{{"Domain", make_string(capture_text(CFErrorGetDomain(from)))},
                          {"Code", make_integer(static_cast<std::int64_t>(CFErrorGetCode(from)))}};
        auto const more = further_user_info(from);
        auto const description = text_of(adopt(CFErrorCopyDescription(from)));
        auto const reason = text_of(adopt(CFErrorCopyFailureReason(from)));
        bool const may_get_another = std::ranges::any_of(more, changes_description);
        if (description && (may_get_another || *description != usual_description(from, reason))) {
            result.push_back({"Description", make_string(*description)});
        }
        if (reason) {
            result.push_back({"FailureReason", make_string(*reason)});
        }
        if (!more.empty()) { // a loss matters where the tool would see it
            auto const into = std::ranges::any_of(more, is_read) ? losses : nullptr;
            result.push_back({"UserInfo", capturer{into, depth + 1}.mapping(more)});
        }
        return result;
    }

private:
    value existing(CFTypeRef object) {
        auto const type = CFGetTypeID(object);
        if (type == CFStringGetTypeID()) {
            return make_string(capture_text(static_cast<CFStringRef>(object)));
        }
        if (type == CFDictionaryGetTypeID()) {
            return mapping(entries_of(static_cast<CFDictionaryRef>(object)));
        }
        if (type == CFArrayGetTypeID()) {
            return sequence(static_cast<CFArrayRef>(object));
        }
        if (type == CFSetGetTypeID()) {
            return set(static_cast<CFSetRef>(object));
        }
        if (type == CFErrorGetTypeID()) {
            auto described = error(static_cast<CFErrorRef>(const_cast<void *>(object)));
            described.insert(described.begin(), {"$type", make_string("error")});
            return {std::move(described)};
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
        auto const text = shortened(qnrescue::MakeDescription(object));
        auto const sentence = fmt::format("A value {}: {}", why, text);
        if (losses) {
            losses->push_back(sentence);
        }
        return make_string(losses ? text : sentence);
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

    value mapping(object_entries const & from) {
        dictionary plain;
        for (auto const & [key, content] : from) {
            auto const name = plain_key(key);
            if (!name) {
                return mapping_of_any_keys(from);
            }
            plain.push_back({*name, any(content)});
        }
        std::ranges::sort(plain, {}, &entry::key);
        return {std::move(plain)};
    }

    value mapping_of_any_keys(object_entries const & from) {
        array result;
        for (auto const & [key, content] : from) {
            result.push_back({dictionary{{"Key", any(key)}, {"Value", any(content)}}});
        }
        std::ranges::sort(result, {}, write_property_list);
        return {dictionary{{"$type", make_string("dictionary")}, {"Entries", {std::move(result)}}}};
    }

    std::vector<std::string> * const losses;
    int depth;
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
    return capturer{&losses}.any(object);
}

value capture_to_read(CFTypeRef object) {
    return capturer{nullptr}.any(object);
}

dictionary capture_error(CFErrorRef error, std::vector<std::string> & losses) {
    return capturer{&losses}.error(error);
}

} // namespace recorder
