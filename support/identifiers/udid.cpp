#include "support/identifiers/udid.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace QN {

bool is_udid(std::string_view text) {
    return std::ranges::all_of(text,
                               [](unsigned char c) { return c == '-' || std::isxdigit(c) != 0; });
}

udid::udid(std::string identifier)
    : text(std::move(identifier)) {
    constexpr std::size_t length_without_dash = 24;
    constexpr std::size_t dash_position = 8;
    if (text.size() == length_without_dash) {
        text.insert(dash_position, 1, '-');
    }
    if (!is_udid(text)) {
        throw std::invalid_argument("Invalid UDID '" + text + "'");
    }
}

udid::udid(std::string_view identifier)
    : udid(std::string(identifier)) {}

} // namespace QN
