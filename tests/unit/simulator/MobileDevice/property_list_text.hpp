// Writes XML property lists the short way.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace property_list {

inline std::string element(std::string_view name, std::string_view content) {
    return std::string{"<"}.append(name).append(">").append(content).append("</").append(name) +
           ">";
}

inline std::string text(std::string_view value) {
    return element("string", value);
}
inline std::string integer(std::int64_t value) {
    return element("integer", std::to_string(value));
}
inline std::string real(double value) {
    return element("real", std::to_string(value));
}
inline std::string boolean(bool value) {
    return value ? "<true/>" : "<false/>";
}

inline std::string array(std::initializer_list<std::string> values) {
    std::string content;
    for (auto const & value : values) {
        content += value;
    }
    return element("array", content);
}

inline std::string
dictionary(std::initializer_list<std::pair<std::string_view, std::string>> entries) {
    std::string content;
    for (auto const & [key, value] : entries) {
        content += element("key", key) + value;
    }
    return element("dict", content);
}

inline std::string document(std::string_view root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + element("plist", root) + "\n";
}

} // namespace property_list
