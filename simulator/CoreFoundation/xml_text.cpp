#include "simulator/CoreFoundation/xml_text.hpp"

#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list_base64.hpp"
#include "simulator/CoreFoundation/property_list_calendar.hpp"
#include "simulator/CoreFoundation/property_list_utf8.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace cf {

namespace {

constexpr std::string_view cdata_opening = "<![CDATA[";
constexpr std::string_view cdata_closing = "]]>";

struct NamedEntity {
    std::string_view name;
    char character;
};
constexpr NamedEntity named_entities[] = {
    {"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"apos;", '\''}, {"quot;", '"'}};

constexpr std::size_t longest_code_point = 8; // digits

constexpr bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

// The value of a digit of the base, or nothing.
std::optional<unsigned> digit_value(char character, unsigned base) {
    unsigned value = base;
    if (is_digit(character)) {
        value = static_cast<unsigned>(character - '0');
    } else if (character >= 'a' && character <= 'f') {
        value = static_cast<unsigned>(character - 'a') + 10;
    } else if (character >= 'A' && character <= 'F') {
        value = static_cast<unsigned>(character - 'A') + 10;
    }
    return value < base ? std::optional{value} : std::nullopt;
}

[[noreturn]] void fail_at_entity(XmlScanner const & scanner) {
    scanner.fail_on_line("Encountered unknown ampersand-escape sequence at line");
}

// Behind "&#"; no digits at all mean the code point 0.
void read_numeric_entity(XmlScanner & scanner, std::string & text) {
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

void read_entity(XmlScanner & scanner, std::string & text) {
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

void read_cdata(XmlScanner & scanner, std::string & text) {
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

bool is_markup_of_text(std::string_view rest) {
    return rest.starts_with('&') || rest.starts_with("<!");
}

// Digits of the number from the first, any amount of them; saturates where no calendar reaches.
std::optional<std::int64_t> read_year(std::string_view & text) {
    constexpr std::int64_t furthest_year = 1'000'000'000'000;
    std::int64_t year = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && is_digit(text[digits]); ++digits) {
        year = std::min(year * 10 + (text[digits] - '0'), furthest_year);
    }
    text.remove_prefix(digits);
    return digits == 0 ? std::nullopt : std::optional{year};
}

std::optional<int> read_two_digits(std::string_view & text) {
    if (text.size() < 2 || !is_digit(text[0]) || !is_digit(text[1])) {
        return {};
    }
    auto const value = (text[0] - '0') * 10 + (text[1] - '0');
    text.remove_prefix(2);
    return value;
}

// Reads YYYY-MM-DDThh:mm:ssZ with any number of year digits.
std::optional<UtcFields> read_fields(std::string_view text) {
    UtcFields fields;
    auto const is_negative = text.starts_with('-');
    text.remove_prefix(is_negative ? 1 : 0);
    auto const year = read_year(text);
    if (!year) {
        return {};
    }
    fields.year = is_negative ? -*year : *year;
    struct Part {
        char separator;
        int UtcFields::*field;
    };
    constexpr Part parts[] = {{'-', &UtcFields::month},
                              {'-', &UtcFields::day},
                              {'T', &UtcFields::hour},
                              {':', &UtcFields::minute},
                              {':', &UtcFields::second}};
    for (auto const & part : parts) {
        if (!text.starts_with(part.separator)) {
            return {};
        }
        text.remove_prefix(1);
        auto const value = read_two_digits(text);
        if (!value) {
            return {};
        }
        fields.*part.field = *value;
    }
    return text == "Z" ? std::optional{fields} : std::nullopt;
}

// Whether a decimal number beyond the range of double is large, rather than small.
bool is_large(std::string_view number) {
    auto const exponent_at = std::min(number.find_first_of("eE"), number.size());
    auto const mantissa = number.substr(0, exponent_at);
    auto const point = std::min(mantissa.find('.'), mantissa.size());
    auto const first_digit = mantissa.find_first_of("123456789");
    auto const is_negative_exponent = number.substr(exponent_at).find('-') != number.npos;
    long exponent = 0;
    if (exponent_at < number.size()) {
        auto const digits = number.substr(exponent_at + 1 +
                                          (number.find_first_of("+-", exponent_at) != number.npos));
        auto const result = std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
        if (result.ec == std::errc::result_out_of_range) {
            return !is_negative_exponent;
        }
    }
    return static_cast<long long>(point) - static_cast<long long>(first_digit) +
               (is_negative_exponent ? -exponent : exponent) >
           0;
}

std::optional<double> special_real(std::string_view text) {
    constexpr auto infinity = std::numeric_limits<double>::infinity();
    struct Special {
        std::string_view name;
        double value;
    };
    constexpr Special specials[] = {
        {"nan", std::numeric_limits<double>::quiet_NaN()},
        {"inf", infinity},
        {"+inf", infinity},
        {"-inf", -infinity},
        {"infinity", infinity},
        {"+infinity", infinity},
        {"-infinity", -infinity},
    };
    auto const same_letter = [](char given, char letter) {
        return given == letter || (given >= 'A' && given <= 'Z' && given - 'A' + 'a' == letter);
    };
    for (auto const & special : specials) {
        if (std::ranges::equal(text, special.name, same_letter)) {
            return special.value;
        }
    }
    return {};
}

std::optional<double> real_value(std::string_view text) {
    if (auto const special = special_real(text)) {
        return special;
    }
    if (text.find_first_not_of("0123456789.eE+-") != text.npos) {
        return {};
    }
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return {};
        }
    }
    double value = 0;
    auto const * const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, value);
    if (result.ptr != end || result.ec == std::errc::invalid_argument) {
        return {};
    }
    if (result.ec == std::errc::result_out_of_range) {
        auto const magnitude = is_large(text) ? std::numeric_limits<double>::infinity() : 0.0;
        return text.starts_with('-') ? -magnitude : magnitude;
    }
    return value;
}

[[noreturn]] void fail_at_integer_character(XmlScanner const & scanner) {
    scanner.fail(fmt::format("Unknown character '{}' (0x{:x}) in <integer> on line {}",
                             scanner.character(), static_cast<unsigned char>(scanner.peek()),
                             scanner.line()));
}

// The digits up to the next tag.
std::uint64_t read_magnitude(XmlScanner & scanner, bool is_negative) {
    constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
    auto const limit = is_negative ? std::uint64_t{1} << 63 : largest;
    auto const is_hexadecimal = scanner.skip_if("0x") || scanner.skip_if("0X");
    auto const base = is_hexadecimal ? 16U : 10U;
    if (!scanner.at_end() && scanner.peek() == '<') {
        scanner.fail_on_line("Encountered empty <integer> on line");
    }
    std::uint64_t magnitude = 0;
    for (; !scanner.at_end() && scanner.peek() != '<'; scanner.skip(1)) {
        auto const digit = digit_value(scanner.peek(), base);
        if (!digit) {
            fail_at_integer_character(scanner);
        }
        if (magnitude > (limit - *digit) / base) {
            scanner.fail_on_line(is_negative ? "Integer underflow in <integer> on line"
                                             : "Integer overflow in <integer> on line");
        }
        magnitude = magnitude * base + *digit;
    }
    return magnitude;
}

} // namespace

CFStringRef read_xml_string(XmlScanner & scanner, PropertyListStrings & strings) {
    auto const rest = scanner.rest();
    auto const plain = rest.substr(0, rest.find_first_of("<&"));
    scanner.skip(plain.size());
    CFStringRef string = nullptr;
    if (!is_markup_of_text(scanner.rest())) {
        string = strings.from_utf8(plain);
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
        string = strings.from_utf8(text);
    }
    if (string == nullptr) {
        scanner.fail("Unable to convert string to correct encoding");
    }
    return string;
}

CFDataRef read_xml_data(XmlScanner & scanner, PropertyListOptions options) {
    auto start = scanner;
    auto const decoded = decode_base64(scanner.take_until('<'));
    if (decoded.invalid_at) {
        start.skip(*decoded.invalid_at);
        start.fail(fmt::format("Could not interpret <data> on line {} (invalid character 0x{:02X})",
                               start.line(), static_cast<unsigned char>(start.peek())));
    }
    return create_data(decoded.bytes, options.of_data(decoded.bytes.empty()));
}

CFDateRef read_xml_date(XmlScanner & scanner) {
    auto const fields = read_fields(scanner.take_until('<'));
    if (!fields) {
        scanner.fail_on_line("Could not interpret <date> at line");
    }
    return CFDateCreate(kCFAllocatorDefault, absolute_time(*fields));
}

CFNumberRef read_xml_integer(XmlScanner & scanner) {
    scanner.skip_space();
    auto const is_negative = scanner.skip_if("-");
    if (!is_negative) {
        scanner.skip_if("+");
    }
    auto const magnitude = read_magnitude(scanner, is_negative);
    if (is_negative) {
        return create_integer(static_cast<std::int64_t>(0 - magnitude));
    }
    return magnitude > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
               ? create_wide_integer({0, magnitude})
               : create_integer(static_cast<std::int64_t>(magnitude));
}

CFNumberRef read_xml_real(XmlScanner & scanner) {
    scanner.skip_space();
    auto const value = real_value(scanner.take_until('<'));
    if (!value) {
        scanner.fail_on_line("Encountered misformatted real on line");
    }
    return create_real(*value);
}

} // namespace cf
