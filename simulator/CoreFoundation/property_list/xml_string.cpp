#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include "simulator/CoreFoundation/property_list/utf8.hpp"

namespace cf {

namespace {

constexpr std::string_view cdata_opening = "<![CDATA[";
constexpr std::string_view cdata_closing = "]]>";

struct named_entity {
    std::string_view name;
    char character;
};
constexpr named_entity named_entities[] = {
    {"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"apos;", '\''}, {"quot;", '"'}};

constexpr std::size_t longest_code_point = 8; // digits

[[noreturn]] void fail_at_entity(xml_scanner const & scanner) {
    scanner.fail_on_line("Encountered unknown ampersand-escape sequence at line");
}

// Behind "&#"; no digits at all mean the code point 0.
void read_numeric_entity(xml_scanner & scanner, std::string & text) {
    auto const base = scanner.skip_if("x") ? 16U : 10U;
    char32_t code_point = 0;
    for (std::size_t digits = 0; !scanner.skip_if(";"); ++digits) {
        if (scanner.at_end()) {
            scanner.fail_at_end();
        }
        auto const digit = digit_value(scanner.peek(), base);
        if (!digit || digits == longest_code_point) {
            fail_at_entity(scanner);
        }
        code_point = code_point * base + *digit;
        scanner.skip(1);
    }
    if (code_point > 0x10ffff || is_high_surrogate(code_point) || is_low_surrogate(code_point)) {
        fail_at_entity(scanner);
    }
    append_code_point(text, code_point);
}

void read_entity(xml_scanner & scanner, std::string & text) {
    scanner.skip(1);
    if (scanner.skip_if("#")) {
        read_numeric_entity(scanner, text);
        return;
    }
    for (auto const & entity : named_entities) {
        if (scanner.skip_if(entity.name)) {
            text += entity.character;
            return;
        }
        if (entity.name.starts_with(scanner.rest())) {
            scanner.fail_at_end();
        }
    }
    fail_at_entity(scanner);
}

void read_cdata(xml_scanner & scanner, std::string & text) {
    if (!scanner.skip_if(cdata_opening)) {
        if (cdata_opening.starts_with(scanner.rest())) {
            scanner.fail_at_end();
        }
        scanner.fail_on_line("Encountered improper CDATA opening at line");
    }
    auto const end = scanner.rest().find(cdata_closing);
    if (end == std::string_view::npos) {
        scanner.fail_on_line("Could not find end of CDATA started on line");
    }
    text += scanner.rest().substr(0, end);
    scanner.skip(end + cdata_closing.size());
}

// Drops a byte-order mark at the beginning of the text, also one from an entity or CDATA.
CFStringRef create_text(property_list_strings & strings, std::string_view text) {
    constexpr std::string_view mark{"\xef\xbb\xbf"};
    text.remove_prefix(text.starts_with(mark) ? mark.size() : 0);
    return strings.from_utf8(text);
}

bool is_markup_of_text(std::string_view rest) {
    return rest.starts_with('&') || rest.starts_with("<!");
}

} // namespace

CFStringRef read_xml_string(xml_scanner & scanner, property_list_strings & strings) {
    auto const rest = scanner.rest();
    auto const plain = rest.substr(0, rest.find_first_of("<&"));
    scanner.skip(plain.size());
    CFStringRef string = nullptr;
    if (!is_markup_of_text(scanner.rest())) {
        string = create_text(strings, plain);
    } else {
        std::string text{plain};
        while (is_markup_of_text(scanner.rest())) {
            if (scanner.peek() == '&') {
                read_entity(scanner, text);
            } else {
                read_cdata(scanner, text);
            }
            auto const more = scanner.rest().substr(0, scanner.rest().find_first_of("<&"));
            text += more;
            scanner.skip(more.size());
        }
        string = create_text(strings, text);
    }
    if (string == nullptr) {
        scanner.fail("Unable to convert string to correct encoding");
    }
    return string;
}

} // namespace cf
