#include "platform/QNMath/base16.hpp"

#include <boost/algorithm/hex.hpp>

#include <iterator>

namespace QN::Math {

std::string base16_encode(std::span<std::uint8_t const> bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    boost::algorithm::hex(bytes.begin(), bytes.end(), std::back_inserter(text));
    return text;
}

std::vector<std::uint8_t> base16_decode(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    boost::algorithm::unhex(text.begin(), text.end(), std::back_inserter(bytes));
    return bytes;
}

} // namespace QN::Math
