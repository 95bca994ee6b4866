// How the messages of broken assertions are checked.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
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

// The action is to break the assertion with this message, which has "LINE" for the line number.
template <typename Action>
void expect_assertion(std::string const & message, Action && action) {
    try {
        action();
        FAIL() << message;
    } catch (std::invalid_argument const & exception) {
        EXPECT_EQ(without_line_number(exception.what()), message);
    }
}

} // namespace tests
