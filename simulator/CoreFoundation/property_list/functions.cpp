// Writing property lists in XML and reading them in all formats.
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/encodings.hpp"
#include "simulator/CoreFoundation/property_list/binary_reader.hpp"
#include "simulator/CoreFoundation/property_list/error.hpp"
#include "simulator/CoreFoundation/property_list/old_style_reader.hpp"
#include "simulator/CoreFoundation/property_list/utf8.hpp"
#include "simulator/CoreFoundation/property_list/validation.hpp"
#include "simulator/CoreFoundation/property_list/xml_encoding.hpp"
#include "simulator/CoreFoundation/property_list/xml_reader.hpp"
#include "simulator/CoreFoundation/property_list/xml_writer.hpp"

namespace cf {

namespace {

struct read_result {
    owned_reference root;
    CFPropertyListFormat format;
};

// Thrown when no reader understands the document.
struct unreadable {
    std::string text;
    std::optional<std::string> old_style; // the old-style reader's text
};

std::string_view characters_of(std::span<UInt8 const> bytes) {
    return {reinterpret_cast<char const *>(bytes.data()), bytes.size()};
}

// Returns the whole document as UTF-16; throws property_list_syntax_error.
std::u16string decoded(std::string_view document, document_encoding const & encoding) {
    auto text = decode(document.substr(encoding.skipped), encoding.encoding, encoding.external);
    if (!text) {
        throw property_list_syntax_error{"Conversion of string failed."};
    }
    return std::move(*text);
}

owned_reference read_xml(std::string_view document, document_encoding const & encoding,
                         property_list_options options) {
    if (encoding.encoding == kCFStringEncodingUTF8) {
        return read_xml_property_list(document.substr(encoding.skipped), options);
    }
    std::string utf8;
    if (!append_utf16(utf8, decoded(document, encoding))) {
        throw property_list_syntax_error{"Unable to convert string to correct encoding"};
    }
    return read_xml_property_list(utf8, options);
}

owned_reference read_old_style(std::string_view document, document_encoding const & encoding,
                               property_list_options options) {
    auto const bytes = document.substr(encoding.skipped);
    auto const is_plain = extends_ascii(encoding.encoding) && is_ascii(bytes);
    auto const units = is_plain ? std::u16string{} : decoded(document, encoding);
    auto const text = is_plain ? string_contents{bytes} : string_contents{units};
    if (text.length() == 0) {
        throw property_list_syntax_error{"Conversion of string failed. The string is empty."};
    }
    return read_old_style_property_list(text, options);
}

read_result read_text(std::string_view document, property_list_options options) {
    document_encoding encoding{};
    try {
        encoding = find_encoding(document);
    } catch (property_list_syntax_error & error) {
        throw unreadable{std::move(error.text), {}};
    }
    std::string xml_fault;
    try {
        return {read_xml(document, encoding, options), kCFPropertyListXMLFormat_v1_0};
    } catch (property_list_syntax_error & error) {
        xml_fault = std::move(error.text);
    }
    try {
        return {read_old_style(document, encoding, options), kCFPropertyListOpenStepFormat};
    } catch (property_list_syntax_error & error) {
        throw unreadable{std::move(xml_fault), std::move(error.text)};
    }
}

read_result read(CFDataRef data, property_list_options options) {
    if (data == nullptr || CFDataGetLength(data) == 0) {
        throw unreadable{"Cannot parse a NULL or zero-length data", {}};
    }
    auto const bytes = bytes_of(data);
    if (auto root = read_binary_property_list(bytes, options)) {
        return {std::move(root), kCFPropertyListBinaryFormat_v1_0};
    }
    return read_text(characters_of(bytes), options);
}

void store(CFErrorRef * error, CFIndex code, std::string const & text,
           std::optional<std::string> const & old_style = {}) {
    if (error != nullptr) {
        *error = create_property_list_error(code, text, old_style);
    }
}

// The document is mutable data.
CFDataRef write(CFPropertyListRef value, CFPropertyListFormat format, CFErrorRef * error) {
    if (format == kCFPropertyListOpenStepFormat) {
        write_error_line(
            "Property list format kCFPropertyListOpenStepFormat not supported for writing");
        return nullptr;
    }
    if (format == kCFPropertyListBinaryFormat_v1_0) {
        store(error, kCFPropertyListWriteStreamError,
              "The simulator does not write kCFPropertyListBinaryFormat_v1_0 property lists");
        return nullptr;
    }
    if (format != kCFPropertyListXMLFormat_v1_0) {
        write_error_line("Unknown format option");
        return nullptr;
    }
    if (auto const fault = property_list_fault(value)) {
        store(error, kCFPropertyListWriteStreamError, *fault);
        return nullptr;
    }
    auto const document = write_xml_property_list(value);
    return create_data({reinterpret_cast<UInt8 const *>(document.data()), document.size()},
                       mutability::is_mutable);
}

CFPropertyListRef read(CFDataRef data, property_list_options options, CFPropertyListFormat * format,
                       CFErrorRef * error) {
    try {
        auto result = read(data, options);
        if (format != nullptr) {
            *format = result.format;
        }
        return result.root.release();
    } catch (unreadable const & failure) {
        store(error, kCFPropertyListReadCorruptError, failure.text, failure.old_style);
        return nullptr;
    }
}

} // namespace

} // namespace cf

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef value,
                                   CFPropertyListFormat format, CFOptionFlags, CFErrorRef * error) {
    return cf::guarded([&] { return cf::write(value, format, error); });
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat * format,
                                               CFErrorRef * error) {
    return cf::guarded([&] { return cf::read(data, {options}, format, error); });
}
