#include "simulator/CoreFoundation/encodings.hpp"

#include "simulator/CoreFoundation/property_list/utf8.hpp"

#include <boost/locale/utf.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

namespace cf {

namespace {

using boost::locale::utf::code_point;
using boost::locale::utf::is_valid_codepoint;
using boost::locale::utf::utf_traits;

// The characters of the bytes 0x80 to 0xff.
using upper_half_table = std::array<char16_t, 128>;

// clang-format off
constexpr upper_half_table mac_roman{
    0x00c4, 0x00c5, 0x00c7, 0x00c9, 0x00d1, 0x00d6, 0x00dc, 0x00e1,
    0x00e0, 0x00e2, 0x00e4, 0x00e3, 0x00e5, 0x00e7, 0x00e9, 0x00e8,
    0x00ea, 0x00eb, 0x00ed, 0x00ec, 0x00ee, 0x00ef, 0x00f1, 0x00f3,
    0x00f2, 0x00f4, 0x00f6, 0x00f5, 0x00fa, 0x00f9, 0x00fb, 0x00fc,
    0x2020, 0x00b0, 0x00a2, 0x00a3, 0x00a7, 0x2022, 0x00b6, 0x00df,
    0x00ae, 0x00a9, 0x2122, 0x00b4, 0x00a8, 0x2260, 0x00c6, 0x00d8,
    0x221e, 0x00b1, 0x2264, 0x2265, 0x00a5, 0x00b5, 0x2202, 0x2211,
    0x220f, 0x03c0, 0x222b, 0x00aa, 0x00ba, 0x03a9, 0x00e6, 0x00f8,
    0x00bf, 0x00a1, 0x00ac, 0x221a, 0x0192, 0x2248, 0x2206, 0x00ab,
    0x00bb, 0x2026, 0x00a0, 0x00c0, 0x00c3, 0x00d5, 0x0152, 0x0153,
    0x2013, 0x2014, 0x201c, 0x201d, 0x2018, 0x2019, 0x00f7, 0x25ca,
    0x00ff, 0x0178, 0x2044, 0x20ac, 0x2039, 0x203a, 0xfb01, 0xfb02,
    0x2021, 0x00b7, 0x201a, 0x201e, 0x2030, 0x00c2, 0x00ca, 0x00c1,
    0x00cb, 0x00c8, 0x00cd, 0x00ce, 0x00cf, 0x00cc, 0x00d3, 0x00d4,
    0xf8ff, 0x00d2, 0x00da, 0x00db, 0x00d9, 0x0131, 0x02c6, 0x02dc,
    0x00af, 0x02d8, 0x02d9, 0x02da, 0x00b8, 0x02dd, 0x02db, 0x02c7,
};

constexpr upper_half_table windows_latin1{
    0x20ac, 0x0081, 0x201a, 0x0192, 0x201e, 0x2026, 0x2020, 0x2021,
    0x02c6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008d, 0x017d, 0x008f,
    0x0090, 0x2018, 0x2019, 0x201c, 0x201d, 0x2022, 0x2013, 0x2014,
    0x02dc, 0x2122, 0x0161, 0x203a, 0x0153, 0x009d, 0x017e, 0x0178,
    0x00a0, 0x00a1, 0x00a2, 0x00a3, 0x00a4, 0x00a5, 0x00a6, 0x00a7,
    0x00a8, 0x00a9, 0x00aa, 0x00ab, 0x00ac, 0x00ad, 0x00ae, 0x00af,
    0x00b0, 0x00b1, 0x00b2, 0x00b3, 0x00b4, 0x00b5, 0x00b6, 0x00b7,
    0x00b8, 0x00b9, 0x00ba, 0x00bb, 0x00bc, 0x00bd, 0x00be, 0x00bf,
    0x00c0, 0x00c1, 0x00c2, 0x00c3, 0x00c4, 0x00c5, 0x00c6, 0x00c7,
    0x00c8, 0x00c9, 0x00ca, 0x00cb, 0x00cc, 0x00cd, 0x00ce, 0x00cf,
    0x00d0, 0x00d1, 0x00d2, 0x00d3, 0x00d4, 0x00d5, 0x00d6, 0x00d7,
    0x00d8, 0x00d9, 0x00da, 0x00db, 0x00dc, 0x00dd, 0x00de, 0x00df,
    0x00e0, 0x00e1, 0x00e2, 0x00e3, 0x00e4, 0x00e5, 0x00e6, 0x00e7,
    0x00e8, 0x00e9, 0x00ea, 0x00eb, 0x00ec, 0x00ed, 0x00ee, 0x00ef,
    0x00f0, 0x00f1, 0x00f2, 0x00f3, 0x00f4, 0x00f5, 0x00f6, 0x00f7,
    0x00f8, 0x00f9, 0x00fa, 0x00fb, 0x00fc, 0x00fd, 0x00fe, 0x00ff,
};

constexpr upper_half_table next_step{
    0x00a0, 0x00c0, 0x00c1, 0x00c2, 0x00c3, 0x00c4, 0x00c5, 0x00c7,
    0x00c8, 0x00c9, 0x00ca, 0x00cb, 0x00cc, 0x00cd, 0x00ce, 0x00cf,
    0x00d0, 0x00d1, 0x00d2, 0x00d3, 0x00d4, 0x00d5, 0x00d6, 0x00d9,
    0x00da, 0x00db, 0x00dc, 0x00dd, 0x00de, 0x00b5, 0x00d7, 0x00f7,
    0x00a9, 0x00a1, 0x00a2, 0x00a3, 0x2044, 0x00a5, 0x0192, 0x00a7,
    0x00a4, 0x2019, 0x201c, 0x00ab, 0x2039, 0x203a, 0xfb01, 0xfb02,
    0x00ae, 0x2013, 0x2020, 0x2021, 0x00b7, 0x00a6, 0x00b6, 0x2022,
    0x201a, 0x201e, 0x201d, 0x00bb, 0x2026, 0x2030, 0x00ac, 0x00bf,
    0x00b9, 0x02cb, 0x00b4, 0x02c6, 0x02dc, 0x00af, 0x02d8, 0x02d9,
    0x00a8, 0x00b2, 0x02da, 0x00b8, 0x00b3, 0x02dd, 0x02db, 0x02c7,
    0x2014, 0x00b1, 0x00bc, 0x00bd, 0x00be, 0x00e0, 0x00e1, 0x00e2,
    0x00e3, 0x00e4, 0x00e5, 0x00e7, 0x00e8, 0x00e9, 0x00ea, 0x00eb,
    0x00ec, 0x00c6, 0x00ed, 0x00aa, 0x00ee, 0x00ef, 0x00f0, 0x00f1,
    0x0141, 0x00d8, 0x0152, 0x00ba, 0x00f2, 0x00f3, 0x00f4, 0x00f5,
    0x00f6, 0x00e6, 0x00f9, 0x00fa, 0x00fb, 0x0131, 0x00fc, 0x00fd,
    0x0142, 0x00f8, 0x0153, 0x00df, 0x00fe, 0x00ff, 0xfffd, 0xfffd,
};
// clang-format on

constexpr upper_half_table iso_latin1 = [] {
    upper_half_table half{};
    for (std::size_t i = 0; i < half.size(); ++i) {
        half[i] = static_cast<char16_t>(0x80 + i);
    }
    return half;
}();

upper_half_table const * upper_half_for_decoding(CFStringEncoding encoding) {
    switch (encoding) {
    case kCFStringEncodingMacRoman:
        return &mac_roman;
    case windows_latin1_encoding:
        return &windows_latin1;
    case kCFStringEncodingISOLatin1:
    case kCFStringEncodingASCII: // tolerates Latin-1
        return &iso_latin1;
    default:
        return nullptr;
    }
}

// Returns null for an encoding without characters beyond ASCII or not of 8 bits.
upper_half_table const * upper_half_for_encoding(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingASCII ? nullptr : upper_half_for_decoding(encoding);
}

std::u16string decode_8_bit(std::string_view bytes, upper_half_table const & upper_half) {
    std::u16string text(bytes.size(), u'\0');
    std::ranges::transform(bytes, text.begin(), [&](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte < 0x80 ? static_cast<char16_t>(byte) : upper_half[byte - 0x80u];
    });
    return text;
}

// One unit of Size bytes.
template <std::size_t Size>
std::uint32_t unit_at(std::string_view bytes, std::endian order) {
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < Size; ++i) {
        auto const byte = static_cast<unsigned char>(bytes[i]);
        unit |= static_cast<std::uint32_t>(byte)
                << (8 * (order == std::endian::little ? i : Size - 1 - i));
    }
    return unit;
}

// Drops the byte-order mark and returns the byte order that it means; big-endian without a mark.
template <std::size_t Size>
std::endian take_byte_order(std::string_view & bytes) {
    constexpr std::uint32_t mark = 0xfeff;
    for (auto const order : {std::endian::little, std::endian::big}) {
        if (bytes.size() >= Size && unit_at<Size>(bytes, order) == mark) {
            bytes.remove_prefix(Size);
            return order;
        }
    }
    return std::endian::big;
}

// Calls visit(unit) for each whole unit while that returns true; an incomplete last one is dropped.
template <std::size_t Size, typename Visit>
bool for_each_unit(std::string_view bytes, std::endian order, Visit visit) {
    for (; bytes.size() >= Size; bytes.remove_prefix(Size)) {
        if (!visit(unit_at<Size>(bytes, order))) {
            return false;
        }
    }
    return true;
}

std::u16string decode_utf16(std::string_view bytes, std::endian order) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for_each_unit<2>(bytes, order, [&](std::uint32_t unit) {
        text += static_cast<char16_t>(unit);
        return true;
    });
    return text;
}

std::optional<std::u16string> decode_utf32(std::string_view bytes, std::endian order) {
    std::u16string text;
    auto const valid = for_each_unit<4>(bytes, order, [&](std::uint32_t unit) {
        if (!is_valid_codepoint(unit)) {
            return false;
        }
        utf_traits<char16_t>::encode(unit, std::back_inserter(text));
        return true;
    });
    return valid ? std::optional{std::move(text)} : std::nullopt;
}

std::optional<std::u16string> decode_marked_utf8(std::string_view bytes) {
    constexpr std::string_view mark{"\xef\xbb\xbf"};
    if (bytes.starts_with(mark)) {
        bytes.remove_prefix(mark.size());
    }
    std::u16string text;
    return append_utf8(text, bytes) ? std::optional{std::move(text)} : std::nullopt;
}

std::optional<std::string> encode_8_bit(std::u16string_view text,
                                        upper_half_table const & upper_half) {
    std::string bytes;
    for (auto const unit : text) {
        if (unit < 0x80) {
            bytes += static_cast<char>(unit);
        } else if (auto const at = std::ranges::find(upper_half, unit); at != upper_half.end()) {
            bytes += static_cast<char>(0x80 + (at - upper_half.begin()));
        } else {
            return std::nullopt;
        }
    }
    return bytes;
}

std::optional<std::string> encode_utf8(std::u16string_view text) {
    std::string bytes;
    return append_utf16(bytes, text) ? std::optional{std::move(bytes)} : std::nullopt;
}

} // namespace

char16_t next_step_character(unsigned char byte) noexcept {
    return byte < 0x80 ? byte : next_step[byte - 0x80u];
}

std::size_t utf16_length(std::string_view bytes) noexcept {
    std::size_t units = 0;
    for (auto const character : bytes) {
        auto const byte = static_cast<unsigned char>(character);
        auto const continues = byte >= 0x80 && byte < 0xc0;
        auto const is_pair = byte >= 0xf0;
        units += (continues ? 0U : 1U) + (is_pair ? 1U : 0U);
    }
    return units;
}

bool decode_utf8(std::string_view bytes, char16_t * units) noexcept {
    for (auto at = bytes.begin(); at != bytes.end();) {
        auto const point = utf_traits<char>::decode(at, bytes.end());
        if (!is_valid_codepoint(point)) {
            return false;
        }
        units = utf_traits<char16_t>::encode(point, units);
    }
    return true;
}

bool append_utf8(std::u16string & text, std::string_view bytes) {
    auto const before = text.size();
    text.resize(before + utf16_length(bytes));
    return decode_utf8(bytes, text.data() + before);
}

bool extends_ascii(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUTF8 || upper_half_for_decoding(encoding) != nullptr;
}

std::optional<std::u16string> decode(std::string_view bytes, CFStringEncoding encoding,
                                     bool external) {
    if (auto const * const upper_half = upper_half_for_decoding(encoding)) {
        return decode_8_bit(bytes, *upper_half);
    }
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return decode_marked_utf8(bytes);
    case kCFStringEncodingUTF16: {
        auto const order = external ? take_byte_order<2>(bytes) : std::endian::native;
        return decode_utf16(bytes, order);
    }
    case utf16be_encoding:
        return decode_utf16(bytes, std::endian::big);
    case utf16le_encoding:
        return decode_utf16(bytes, std::endian::little);
    case utf32_encoding: {
        auto const order = external ? take_byte_order<4>(bytes) : std::endian::native;
        return decode_utf32(bytes, order);
    }
    case utf32be_encoding:
        return decode_utf32(bytes, std::endian::big);
    case utf32le_encoding:
        return decode_utf32(bytes, std::endian::little);
    default:
        return std::nullopt;
    }
}

std::optional<std::string> encode(string_contents text, CFStringEncoding encoding) {
    auto const * const upper_half = upper_half_for_encoding(encoding);
    auto const known = upper_half != nullptr || encoding == kCFStringEncodingUTF8 ||
                       encoding == kCFStringEncodingASCII;
    if (!known) {
        return std::nullopt;
    }
    if (!text.is_wide()) {
        return std::string{text.ascii()};
    }
    if (encoding == kCFStringEncodingUTF8) {
        return encode_utf8(text.utf16());
    }
    return upper_half != nullptr ? encode_8_bit(text.utf16(), *upper_half) : std::nullopt;
}

} // namespace cf
