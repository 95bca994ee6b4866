#include "simulator/CoreFoundation/property_list/xml_encoding.hpp"

#include "simulator/CoreFoundation/encodings.hpp"
#include "simulator/CoreFoundation/property_list/error.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

namespace cf {

namespace {

using namespace std::string_view_literals;

struct byte_order_mark {
    std::string_view bytes;
    document_encoding encoding;
};

// A longer mark comes before the one that it begins with. That of UTF-32 is known only in
// little-endian order.
constexpr byte_order_mark byte_order_marks[] = {
    {"\xef\xbb\xbf"sv, {kCFStringEncodingUTF8, 3, false}},
    {"\xff\xfe\0\0"sv, {utf32_encoding, 0, true}},
    {"\xff\xfe"sv, {kCFStringEncodingUTF16, 0, true}},
    {"\xfe\xff"sv, {kCFStringEncodingUTF16, 0, true}},
};

struct encoding_name {
    std::string_view name; // in lower case
    CFStringEncoding encoding;
};

constexpr encoding_name encoding_names[] = {
    {"ascii", kCFStringEncodingASCII},
    {"cp1252", windows_latin1_encoding},
    {"iso-8859-1", kCFStringEncodingISOLatin1},
    {"iso8859-1", kCFStringEncodingISOLatin1},
    {"iso_8859-1", kCFStringEncodingISOLatin1},
    {"latin1", kCFStringEncodingISOLatin1},
    {"us-ascii", kCFStringEncodingASCII},
    {"utf-16", kCFStringEncodingUTF16},
    {"utf-16be", utf16be_encoding},
    {"utf-16le", utf16le_encoding},
    {"utf-32", utf32_encoding},
    {"utf-32be", utf32be_encoding},
    {"utf-32le", utf32le_encoding},
    {"utf-8", kCFStringEncodingUTF8},
    {"utf8", kCFStringEncodingUTF8},
    {"windows-1252", windows_latin1_encoding},
};

constexpr auto declaration = "<?xml"sv;
constexpr auto declaration_end = "?>"sv;
constexpr auto attribute = "encoding="sv;

constexpr document_encoding utf8 = {kCFStringEncodingUTF8, 0, false};

document_encoding named_encoding(std::string_view name) {
    std::string lower{name};
    std::ranges::transform(lower, lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                    : character;
    });
    auto const * const found = std::ranges::find(encoding_names, lower, &encoding_name::name);
    if (found == std::end(encoding_names)) {
        throw property_list_syntax_error{fmt::format("Encountered unknown encoding ({})", name)};
    }
    return {found->encoding, 0, true};
}

[[noreturn]] void throw_end_of_buffer() {
    throw property_list_syntax_error{"End of buffer while looking for encoding name"};
}

// Returns the value of the attribute at the beginning of the text.
document_encoding declared_encoding(std::string_view text) {
    text.remove_prefix(attribute.size());
    if (text.empty()) {
        throw_end_of_buffer();
    }
    auto const quote = text.front();
    if (quote != '"' && quote != '\'') {
        return utf8;
    }
    auto const end = text.find(quote, 1);
    if (end == std::string_view::npos) {
        throw_end_of_buffer();
    }
    return named_encoding(text.substr(1, end - 1));
}

// The declaration is searched only where there is still space for a whole attribute.
document_encoding encoding_of_declaration(std::string_view document) {
    auto const end = document.find(declaration_end);
    if (document == declaration || end == document.size() - declaration_end.size()) {
        return utf8; // nothing follows, so that the encoding does not matter
    }
    for (auto text = document.substr(declaration.size()); text.size() >= attribute.size();
         text.remove_prefix(1)) {
        if (text.starts_with(attribute)) {
            return declared_encoding(text);
        }
        if (text.starts_with(declaration_end)) {
            return utf8;
        }
    }
    throw_end_of_buffer();
}

} // namespace

document_encoding find_encoding(std::string_view document) {
    for (auto const & mark : byte_order_marks) {
        if (document.starts_with(mark.bytes)) {
            return mark.encoding;
        }
    }
    if (document.size() > 2 && (document[0] == '\0' || document[1] == '\0')) {
        auto const host_order =
            std::endian::native == std::endian::little ? utf16le_encoding : utf16be_encoding;
        return {host_order, 2, false};
    }
    return document.starts_with(declaration) ? encoding_of_declaration(document) : utf8;
}

} // namespace cf
