// Text from bytes and bytes from text.
#pragma once

#include "simulator/CoreFoundation/strings.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace cf {

// Encodings without a public name here.
inline constexpr CFStringEncoding windows_latin1_encoding = 0x0500;
inline constexpr CFStringEncoding utf16be_encoding = 0x10000100;
inline constexpr CFStringEncoding utf16le_encoding = 0x14000100;
inline constexpr CFStringEncoding utf32_encoding = 0x0c000100;
inline constexpr CFStringEncoding utf32be_encoding = 0x18000100;
inline constexpr CFStringEncoding utf32le_encoding = 0x1c000100;

// Returns whether every ASCII text has the same bytes in this encoding.
bool extends_ascii(CFStringEncoding encoding);

// Returns the text in UTF-16; nothing if the bytes are invalid or the encoding is unknown.
// `external` bytes may begin with a byte-order mark that is not part of the text; UTF-8 loses its
// mark either way.
std::optional<std::u16string> decode(std::string_view bytes, CFStringEncoding encoding,
                                     bool external);

// Returns the text in an 8-bit encoding; nothing if the encoding lacks one of its characters.
std::optional<std::string> encode(string_contents text, CFStringEncoding encoding);

// Returns the character of a byte in the NeXTSTEP encoding, or U+FFFD for the two bytes without
// one.
char16_t next_step_character(unsigned char byte) noexcept;

// Returns how many units the text of UTF-8 bytes has; if they are invalid, at least as many as are
// decoded up to the first invalid byte.
std::size_t utf16_length(std::string_view bytes) noexcept;

// Writes the text of UTF-8 bytes to the units, which utf16_length counts; returns false if the
// bytes are invalid.
bool decode_utf8(std::string_view bytes, char16_t * units) noexcept;

// Appends the text of UTF-8 bytes; returns false if they are invalid.
bool append_utf8(std::u16string & text, std::string_view bytes);

} // namespace cf
