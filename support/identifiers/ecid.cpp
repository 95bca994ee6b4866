#include "support/identifiers/ecid.hpp"

#include "platform/QNMath/base16.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace QN {

namespace {

std::string text_of(std::uint64_t value) {
    std::array<std::uint8_t, 8> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(value >> (56 - 8 * i));
    }
    return Math::base16_encode(bytes);
}

std::uint64_t value_of(std::string_view text) {
    if (!is_ecid(text)) {
        throw std::invalid_argument("Invalid ECID '" + std::string(text) + "'");
    }
    std::uint64_t value = 0;
    for (auto const byte : Math::base16_decode(text)) {
        value = (value << 8) + byte;
    }
    return value;
}

} // namespace

bool is_ecid(std::string_view text) {
    return text.size() == 16 &&
           std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

ecid::ecid(std::uint64_t number)
    : value(number)
    , text(text_of(number)) {}

ecid::ecid(std::string_view digits)
    : ecid(value_of(digits)) {}

ecid::ecid(ecid && other) noexcept
    : value(std::exchange(other.value, 0))
    , text(std::exchange(other.text, {})) {}

ecid & ecid::operator=(ecid && other) noexcept {
    if (this != &other) {
        value = std::exchange(other.value, 0);
        text = std::exchange(other.text, {});
    }
    return *this;
}

} // namespace QN
