// What the tests of property lists share: reading and writing in one expression, and a short
// notation of objects.
#pragma once

#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline cf_owner<CFDataRef> data_of(std::string_view bytes) {
    return adopt(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(bytes.data()),
                              static_cast<CFIndex>(bytes.size())));
}

inline std::string bytes_of(CFDataRef some_data) {
    return {reinterpret_cast<char const *>(CFDataGetBytePtr(some_data)),
            static_cast<std::size_t>(CFDataGetLength(some_data))};
}

inline std::string hexadecimal(std::string_view bytes) {
    std::string digits;
    for (auto const byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return digits;
}

inline std::string from_hexadecimal(std::string_view digits) {
    std::string bytes;
    std::string pair;
    for (auto const digit : digits) {
        if (digit != ' ') {
            pair += digit;
        }
        if (pair.size() == 2) {
            bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
            pair.clear();
        }
    }
    return bytes;
}

std::string notation(CFTypeRef object);

inline std::string number_notation(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return fmt::format(
            "{}{}", CFNumberGetType(number) == kCFNumberFloat32Type ? "float " : "real ", value);
    }
    auto const text = description(number);
    auto const value = text.substr(text.find("value = ") + 8);
    return value.substr(value.starts_with('+') ? 1 : 0,
                        value.find(',') - (value.starts_with('+') ? 1 : 0));
}

inline std::string dictionary_notation(CFDictionaryRef dictionary) {
    std::map<std::string, std::string> entries;
    CFDictionaryApplyFunction(
        dictionary,
        [](void const * key, void const * value, void * context) {
            static_cast<decltype(entries) *>(context)->emplace(notation(key), notation(value));
        },
        &entries);
    std::vector<std::string> parts;
    for (auto const & [key, value] : entries) {
        parts.push_back(key + ": " + value);
    }
    return fmt::format("{{{}}}", fmt::join(parts, ", "));
}

// Strings in quotation marks (one with a lone surrogate as "(unreadable)"), reals with their type,
// data in <>, dates as @seconds, dictionaries sorted by key, any other object as its description.
inline std::string notation(CFTypeRef object) {
    if (object == nullptr) {
        return "nothing";
    }
    auto const type = CFGetTypeID(object);
    std::vector<std::string> parts;
    auto const collect = [](void const * element, void * context) {
        static_cast<decltype(parts) *>(context)->push_back(notation(element));
    };
    if (type == CFStringGetTypeID()) {
        return fmt::format("\"{}\"", utf8(static_cast<CFStringRef>(object)));
    }
    if (type == CFNumberGetTypeID()) {
        return number_notation(static_cast<CFNumberRef>(object));
    }
    if (type == CFDictionaryGetTypeID()) {
        return dictionary_notation(static_cast<CFDictionaryRef>(object));
    }
    if (type == CFArrayGetTypeID()) {
        auto const elements = static_cast<CFArrayRef>(object);
        CFArrayApplyFunction(elements, {0, CFArrayGetCount(elements)}, collect, &parts);
        return fmt::format("[{}]", fmt::join(parts, ", "));
    }
    if (type == CFSetGetTypeID()) {
        CFSetApplyFunction(static_cast<CFSetRef>(object), collect, &parts);
        return fmt::format("set({})", fmt::join(parts, ", "));
    }
    if (type == CFDataGetTypeID()) {
        return fmt::format("<{}>", hexadecimal(bytes_of(static_cast<CFDataRef>(object))));
    }
    if (type == CFDateGetTypeID()) {
        return fmt::format("@{}", CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)));
    }
    if (type == CFBooleanGetTypeID()) {
        return object == kCFBooleanTrue ? "true" : "false";
    }
    return object == kCFNull ? "null" : description(object);
}

// The debugging text of an error, and that of the old-style parser's error inside it.
inline std::string debug_text(CFErrorRef error, bool of_old_style = false) {
    auto const info = adopt(CFErrorCopyUserInfo(error));
    auto const * const nested = static_cast<CFErrorRef>(const_cast<void *>(
        CFDictionaryGetValue(info.get(), CFSTR("kCFPropertyListOldStyleParsingError"))));
    if (of_old_style) {
        return nested == nullptr ? "" : debug_text(const_cast<CFErrorRef>(nested));
    }
    return utf8(
        static_cast<CFStringRef>(CFDictionaryGetValue(info.get(), CFSTR("NSDebugDescription"))));
}

struct reading_result {
    cf_owner<CFPropertyListRef> root;
    CFPropertyListFormat format = -1;
    cf_owner<CFErrorRef> error;

    std::string text() const { return debug_text(error.get()); }
    std::string old_style_text() const { return debug_text(error.get(), true); }
};

inline reading_result read(std::string_view document,
                           CFOptionFlags options = kCFPropertyListImmutable) {
    reading_result reading;
    CFErrorRef error = nullptr;
    reading.root = adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data_of(document).get(),
                                                      options, &reading.format, &error));
    reading.error = adopt(error);
    return reading;
}

inline std::string read_notation(std::string_view document) {
    return notation(read(document).root.get());
}

struct writing_result {
    cf_owner<CFDataRef> document;
    cf_owner<CFErrorRef> error;

    std::string text() const { return debug_text(error.get()); }
};

inline writing_result write(CFTypeRef root,
                            CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0) {
    CFErrorRef error = nullptr;
    auto * const document = CFPropertyListCreateData(kCFAllocatorDefault, root, format, 0, &error);
    return {adopt(document), adopt(error)};
}

inline constexpr std::string_view xml_opening =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
    "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";
inline constexpr std::string_view xml_closing = "</plist>\n";

// Returns what is between the opening and the closing; all of the text without them.
inline std::string xml_body(CFTypeRef root) {
    auto const writing = write(root);
    if (writing.document == nullptr) {
        return writing.text();
    }
    auto text = bytes_of(writing.document.get());
    if (!text.starts_with(xml_opening) || !text.ends_with(xml_closing)) {
        return text;
    }
    return text.substr(xml_opening.size(), text.size() - xml_opening.size() - xml_closing.size());
}

// The object wrapped in that many arrays, itself being the innermost.
inline cf_owner<CFTypeRef> nested(std::size_t arrays, cf_owner<CFTypeRef> object) {
    for (; arrays > 0; --arrays) {
        auto outer = array();
        CFArrayAppendValue(outer.get(), object.get());
        object = std::move(outer);
    }
    return object;
}

inline std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    for (; count > 0; --count) {
        result += text;
    }
    return result;
}
