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

// Returns the line number in the message; empty if it has none.
inline std::string line_number(std::string const & message) {
    auto const first = message.find(':') + 1;
    auto const length = message.find(':', first) - first;
    if (first == 0 || length > message.size() || !is_number(message.substr(first, length))) {
        return "";
    }
    return message.substr(first, length);
}

// Expects the action to break the assertion with this message, in which "LINE" is the line number.
// Returns the number.
template <typename Action>
std::string expect_assertion(std::string const & message, Action && action) {
    try {
        action();
        ADD_FAILURE() << message;
    } catch (std::invalid_argument const & exception) {
        std::string text = exception.what();
        auto line = line_number(text);
        EXPECT_NE(line, "");
        EXPECT_EQ(text.replace(text.find(':') + 1, line.size(), "LINE"), message);
        return line;
    }
    return "";
}

} // namespace tests
