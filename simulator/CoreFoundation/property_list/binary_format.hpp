// How binary property lists are laid out. All numbers are big-endian.
#pragma once

#include "platform/CoreFoundation.h"

#include <cstdint>
#include <string_view>

namespace cf::binary {

inline constexpr std::string_view header = "bplist00";
inline constexpr std::string_view header_to_recognise = "bplist0"; // of any minor version

// The last bytes: 6 unused ones, then these.
struct trailer {
    UInt8 offset_size;    // bytes of an entry of the offset table
    UInt8 reference_size; // bytes of a reference to an object
    std::uint64_t object_count;
    std::uint64_t root;         // the number of the root object
    std::uint64_t table_offset; // where the offset table begins
};
inline constexpr std::size_t trailer_size = 32;

// The first byte of an object: the type in the upper half, a count or size in the lower one.
enum marker : UInt8 {
    null = 0x00,
    is_false = 0x08,
    is_true = 0x09,
    integer = 0x10, // 2^count bytes
    real = 0x20,    // 2^count bytes
    date = 0x33,
    data = 0x40,
    ascii_string = 0x50,
    utf16_string = 0x60,
    uid = 0x80, // count + 1 bytes
    array = 0xa0,
    set = 0xc0,
    dictionary = 0xd0,
};

// This count says that the real one follows as an integer object.
inline constexpr unsigned count_follows = 15;

} // namespace cf::binary
