#include "simulator/CoreFoundation/property_list/base64.hpp"

#include <array>

namespace cf {

namespace {

constexpr std::string_view digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char padding = '=';
constexpr UInt8 no_digit = 0xff;

constexpr auto digit_values = [] {
    std::array<UInt8, 0x80> values{};
    values.fill(no_digit);
    for (std::size_t value = 0; value < digits.size(); ++value) {
        values[static_cast<unsigned char>(digits[value])] = static_cast<UInt8>(value);
    }
    values[static_cast<unsigned char>(padding)] = 0;
    return values;
}();

} // namespace

void append_base64(std::string & text, std::span<UInt8 const> bytes) {
    while (!bytes.empty()) {
        auto const count = std::min<std::size_t>(bytes.size(), 3);
        UInt32 group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8 | (index < count ? bytes[index] : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            auto const digit = group >> (18 - 6 * index) & 0x3f;
            text.push_back(index <= count ? digits[digit] : padding);
        }
        bytes = bytes.subspan(count);
    }
}

decoded_base64 decode_base64(std::string_view text) {
    decoded_base64 result{data_bytes{text.size() / 4 * 3}, {}};
    UInt32 group = 0;
    unsigned characters = 0;
    unsigned trailing_padding = 0;
    for (std::size_t position = 0; position < text.size(); ++position) {
        auto const character = static_cast<unsigned char>(text[position]);
        if (character >= digit_values.size()) {
            result.invalid_at = position;
            break;
        }
        auto const value = digit_values[character];
        if (value == no_digit) {
            continue;
        }
        trailing_padding = character == padding ? trailing_padding + 1 : 0;
        group = group << 6 | value;
        if (++characters % 4 != 0) {
            continue;
        }
        auto const decoded = trailing_padding == 0 ? 3U : trailing_padding == 1 ? 2U : 1U;
        for (unsigned index = 0; index < decoded; ++index) {
            result.bytes.append(static_cast<UInt8>(group >> (16 - 8 * index)));
        }
    }
    return result;
}

} // namespace cf
