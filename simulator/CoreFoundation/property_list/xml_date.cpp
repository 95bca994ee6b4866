#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include "simulator/CoreFoundation/property_list/calendar.hpp"

#include <algorithm>

namespace cf {

namespace {

constexpr bool is_digit(char character) {
    return character >= '0' && character <= '9';
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
std::optional<utc_fields> read_fields(std::string_view text) {
    utc_fields fields;
    auto const is_negative = text.starts_with('-');
    text.remove_prefix(is_negative ? 1 : 0);
    auto const year = read_year(text);
    if (!year) {
        return {};
    }
    fields.year = is_negative ? -*year : *year;
    struct part {
        char separator;
        int utc_fields::*field;
    };
    constexpr part parts[] = {{'-', &utc_fields::month},
                              {'-', &utc_fields::day},
                              {'T', &utc_fields::hour},
                              {':', &utc_fields::minute},
                              {':', &utc_fields::second}};
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

} // namespace

CFDateRef read_xml_date(xml_scanner & scanner) {
    auto const fields = read_fields(scanner.take_until('<'));
    if (!fields) {
        scanner.fail_on_line("Could not interpret <date> at line");
    }
    return CFDateCreate(kCFAllocatorDefault, absolute_time(*fields));
}

} // namespace cf
