#include "simulator/CoreFoundation/property_list/xml_encoding.hpp"

#include "simulator/CoreFoundation/encodings.hpp"
#include "simulator/CoreFoundation/property_list/error.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

namespace cf {

namespace {

using namespace std::string_view_literals;

struct ByteOrderMark {
    std::string_view bytes;
    DocumentEncoding encoding;
};

// A longer mark stands before the one that it begins with. That of UTF-32 is known only in
// little-endian order.
constexpr ByteOrderMark byte_order_marks[] = {
    {"\xef\xbb\xbf"sv, {kCFStringEncodingUTF8, 3, false}},
    {"\xff\xfe\0\0"sv, {kCFStringEncodingUTF32, 0, true}},
    {"\xff\xfe"sv, {kCFStringEncodingUTF16, 0, true}},
    {"\xfe\xff"sv, {kCFStringEncodingUTF16, 0, true}},
};

struct EncodingName {
    std::string_view name; // in lower case
    CFStringEncoding encoding;
};

constexpr EncodingName encoding_names[] = {
    {"ascii", kCFStringEncodingASCII},
    {"cp1252", kCFStringEncodingWindowsLatin1},
    {"iso-8859-1", kCFStringEncodingISOLatin1},
    {"iso8859-1", kCFStringEncodingISOLatin1},
    {"iso_8859-1", kCFStringEncodingISOLatin1},
    {"latin1", kCFStringEncodingISOLatin1},
    {"us-ascii", kCFStringEncodingASCII},
    {"utf-16", kCFStringEncodingUTF16},
    {"utf-16be", kCFStringEncodingUTF16BE},
    {"utf-16le", kCFStringEncodingUTF16LE},
    {"utf-32", kCFStringEncodingUTF32},
    {"utf-32be", kCFStringEncodingUTF32BE},
    {"utf-32le", kCFStringEncodingUTF32LE},
    {"utf-8", kCFStringEncodingUTF8},
    {"utf8", kCFStringEncodingUTF8},
    {"windows-1252", kCFStringEncodingWindowsLatin1},
};

constexpr auto declaration = "<?xml"sv;
constexpr auto declaration_end = "?>"sv;
constexpr auto attribute = "encoding="sv;

constexpr DocumentEncoding utf8 = {kCFStringEncodingUTF8, 0, false};

DocumentEncoding named_encoding(std::string_view name) {
    std::string lower{name};
    std::ranges::transform(lower, lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                    : character;
    });
    auto const * const found = std::ranges::find(encoding_names, lower, &EncodingName::name);
    if (found == std::end(encoding_names)) {
        throw PropertyListSyntaxError{fmt::format("Encountered unknown encoding ({})", name)};
    }
    return {found->encoding, 0, true};
}

[[noreturn]] void throw_end_of_buffer() {
    throw PropertyListSyntaxError{"End of buffer while looking for encoding name"};
}

// The value of the attribute at the beginning of the text.
DocumentEncoding declared_encoding(std::string_view text) {
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

// The declaration is searched only where a whole attribute could still stand.
DocumentEncoding encoding_of_declaration(std::string_view document) {
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

DocumentEncoding find_encoding(std::string_view document) {
    for (auto const & mark : byte_order_marks) {
        if (document.starts_with(mark.bytes)) {
            return mark.encoding;
        }
    }
    if (document.size() > 2 && (document[0] == '\0' || document[1] == '\0')) {
        auto const host_order = std::endian::native == std::endian::little
                                    ? kCFStringEncodingUTF16LE
                                    : kCFStringEncodingUTF16BE;
        return {host_order, 2, false};
    }
    return document.starts_with(declaration) ? encoding_of_declaration(document) : utf8;
}

} // namespace cf
