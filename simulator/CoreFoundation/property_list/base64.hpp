// Base 64 as XML property lists hold it.
#pragma once

#include "simulator/CoreFoundation/data.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace cf {

// Appends the characters for the bytes, padded, without line ends.
void append_base64(std::string & text, std::span<UInt8 const> bytes);

struct decoded_base64 {
    data_bytes bytes;
    std::optional<std::size_t> invalid_at; // where the first character beyond ASCII is
};

// Decodes the text up to its end or to a character beyond ASCII. Padding may end any group, an
// incomplete last group is dropped, other characters are skipped.
decoded_base64 decode_base64(std::string_view text);

} // namespace cf
