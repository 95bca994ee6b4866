// How the messages of broken assertions are checked.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tests {

inline bool is_number(std::string_view text) {
    return !text.empty() && text[0] != '0' &&
           std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// The message with its line number replaced by "LINE"; unchanged where it has none.
inline std::string without_line_number(std::string const & message) {
    auto const first = message.find(':') + 1;
    auto const length = message.find(':', first) - first;
    if (first == 0 || length > message.size() || !is_number(message.substr(first, length))) {
        return message;
    }
    return message.substr(0, first) + "LINE" + message.substr(first + length);
}

} // namespace tests
