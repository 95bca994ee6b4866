// Reads what is between an open tag and its close tag, for elements without children.
#pragma once

#include "simulator/CoreFoundation/property_list/strings.hpp"
#include "simulator/CoreFoundation/property_list/xml_scanner.hpp"

#include <optional>

namespace cf {

// Returns the value of a digit of the base, or nothing.
inline std::optional<unsigned> digit_value(char character, unsigned base) {
    unsigned value = base;
    if (character >= '0' && character <= '9') {
        value = static_cast<unsigned>(character - '0');
    } else if (character >= 'a' && character <= 'f') {
        value = static_cast<unsigned>(character - 'a') + 10;
    } else if (character >= 'A' && character <= 'F') {
        value = static_cast<unsigned>(character - 'A') + 10;
    }
    return value < base ? std::optional{value} : std::nullopt;
}

// Each reads up to the next tag and returns a new object, owned by the caller. They throw
// property_list_syntax_error.
CFStringRef read_xml_string(xml_scanner & scanner, property_list_strings & strings);
CFDataRef read_xml_data(xml_scanner & scanner, property_list_options options);
CFDateRef read_xml_date(xml_scanner & scanner);
CFNumberRef read_xml_integer(xml_scanner & scanner);
CFNumberRef read_xml_real(xml_scanner & scanner);

} // namespace cf
