#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN::Math {

// Returns two upper-case hexadecimal digits for each byte.
std::string base16_encode(std::span<std::uint8_t const> bytes);

// Returns the bytes that pairs of hexadecimal digits, of either case, represent. Throws
// boost::algorithm::hex_decode_error for any other character and for an odd number of digits.
std::vector<std::uint8_t> base16_decode(std::string_view text);

} // namespace QN::Math
