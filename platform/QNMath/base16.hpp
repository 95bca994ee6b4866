#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN::Math {

// Two upper-case hexadecimal digits for each byte.
std::string base16_encode(std::span<std::uint8_t const> bytes);

// The bytes that pairs of hexadecimal digits of either case stand for. Throws
// boost::algorithm::hex_decode_error for any other character and for an odd number of digits.
std::vector<std::uint8_t> base16_decode(std::string_view text);

} // namespace QN::Math
