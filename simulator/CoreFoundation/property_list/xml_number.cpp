#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include "simulator/CoreFoundation/numbers.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

namespace cf {

namespace {

// Whether a decimal number beyond the range of double is large, rather than small.
bool is_large(std::string_view number) {
    auto const exponent_at = std::min(number.find_first_of("eE"), number.size());
    auto const mantissa = number.substr(0, exponent_at);
    auto const point = std::min(mantissa.find('.'), mantissa.size());
    auto const first_digit = mantissa.find_first_of("123456789");
    auto const is_negative_exponent =
        number.substr(exponent_at).find('-') != std::string_view::npos;
    long exponent = 0;
    if (exponent_at < number.size()) {
        auto const digits = number.substr(
            exponent_at + 1 + (number.find_first_of("+-", exponent_at) != std::string_view::npos));
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
    struct special {
        std::string_view name;
        double value;
    };
    constexpr special specials[] = {
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
    if (text.find_first_not_of("0123456789.eE+-") != std::string_view::npos) {
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

[[noreturn]] void fail_at_integer_character(xml_scanner const & scanner) {
    scanner.fail(fmt::format("Unknown character '{}' (0x{:x}) in <integer> on line {}",
                             scanner.character(), static_cast<unsigned char>(scanner.peek()),
                             scanner.line()));
}

// The digits up to the next tag.
std::uint64_t read_magnitude(xml_scanner & scanner, bool is_negative) {
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

CFNumberRef read_xml_integer(xml_scanner & scanner) {
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

CFNumberRef read_xml_real(xml_scanner & scanner) {
    scanner.skip_space();
    auto const value = real_value(scanner.take_until('<'));
    if (!value) {
        scanner.fail_on_line("Encountered misformatted real on line");
    }
    return create_real(*value);
}

} // namespace cf
