// From UTF-16 to UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace cf {

// Appends one code point, which must not be a surrogate.
void append_code_point(std::string & text, char32_t code_point);

// Appends UTF-16 text; stops and returns false at a surrogate without its other half.
bool append_utf16(std::string & text, std::u16string_view units);

constexpr bool is_high_surrogate(char32_t unit) {
    return unit >= 0xd800 && unit < 0xdc00;
}
constexpr bool is_low_surrogate(char32_t unit) {
    return unit >= 0xdc00 && unit < 0xe000;
}

} // namespace cf
