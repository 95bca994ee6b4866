#include "simulator/CoreFoundation/property_list/xml_scanner.hpp"

#include "simulator/CoreFoundation/encodings.hpp"
#include "simulator/CoreFoundation/property_list/error.hpp"
#include "simulator/CoreFoundation/property_list/utf8.hpp"

#include <algorithm>

namespace cf {

std::size_t xml_scanner::line() const {
    std::size_t lines = 1;
    for (auto const * character = begin; character != current; ++character) {
        auto const ends_line =
            *character == '\n' ||
            (*character == '\r' && (character + 1 == end || character[1] != '\n'));
        lines += ends_line ? 1 : 0;
    }
    return lines;
}

std::string xml_scanner::character() const {
    for (std::size_t length = 1; length <= std::min<std::size_t>(left(), 4); ++length) {
        std::u16string units;
        if (append_utf8(units, rest().substr(0, length))) {
            return std::string{rest().substr(0, length)};
        }
    }
    std::string text;
    append_code_point(text, at_end() ? U'\0' : static_cast<unsigned char>(peek()));
    return text;
}

void xml_scanner::fail(std::string text) const {
    throw property_list_syntax_error{std::move(text)};
}

void xml_scanner::fail_on_line(std::string_view text) const {
    fail(fmt::format("{} {}", text, line()));
}

void xml_scanner::fail_at_end() const {
    fail("Encountered unexpected EOF");
}

} // namespace cf
