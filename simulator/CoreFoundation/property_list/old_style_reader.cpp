#include "simulator/CoreFoundation/property_list/old_style_reader.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/encodings.hpp"
#include "simulator/CoreFoundation/property_list/error.hpp"
#include "simulator/CoreFoundation/property_list/strings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace cf {

namespace {

constexpr bool is_space(char16_t unit) {
    return (unit >= '\t' && unit <= '\r') || unit == ' ' || unit == 0x2028 || unit == 0x2029;
}

constexpr bool is_end_of_line(char16_t unit) {
    return unit == '\n' || unit == '\r' || unit == 0x2028 || unit == 0x2029;
}

constexpr bool is_word(char16_t unit) {
    return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z') ||
           (unit >= '0' && unit <= '9') || unit == '_' || unit == '$' || unit == '/' ||
           unit == ':' || unit == '.' || unit == '-';
}

constexpr bool is_octal_digit(char16_t unit) {
    return unit >= '0' && unit <= '7';
}

std::optional<unsigned> hexadecimal_value(char16_t unit) {
    if (unit >= '0' && unit <= '9') {
        return unit - U'0';
    }
    if (unit >= 'a' && unit <= 'f') {
        return unit - U'a' + 10;
    }
    if (unit >= 'A' && unit <= 'F') {
        return unit - U'A' + 10;
    }
    return {};
}

// Returns what a letter behind a backslash means; any other unit means itself.
constexpr char16_t escaped(char16_t unit) {
    switch (unit) {
    case 'a':
        return '\a';
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'v':
        return '\v';
    default:
        return unit;
    }
}

class old_style_reader {
public:
    old_style_reader(string_contents const & read, property_list_options wanted)
        : document{read}
        , options{wanted}
        , strings{wanted} {}

    owned_reference read() {
        skip_space();
        if (at_end()) {
            return owned_reference{create_object_dictionary(0, mutability::is_mutable)};
        }
        auto const begin = position;
        auto root = read_object();
        skip_space();
        if (at_end()) {
            return root;
        }
        if (!is<__CFString>(root.get())) {
            fail("Junk after plist at line");
        }
        position = begin; // of a strings file: entries without braces
        return read_entries();
    }

private:
    bool at_end() const { return position == document.length(); }
    char16_t peek() const { return document[position]; }
    bool is_at(char16_t first, char16_t second) const {
        return document.length() - position >= 2 && document[position] == first &&
               document[position + 1] == second;
    }
    bool next_is(char16_t unit) {
        skip_space();
        return !at_end() && peek() == unit;
    }
    bool skip_if(char16_t unit) {
        auto const found = next_is(unit);
        position += found ? 1U : 0U;
        return found;
    }

    std::size_t line_of(std::size_t end) const;
    [[noreturn]] void fail(std::string_view text) const;
    [[noreturn]] void fail_at_object() const;
    [[noreturn]] void fail_in_data(std::string_view why) const;

    void skip_space();
    bool skip_comment();
    bool begins_container();
    owned_reference read_object();
    owned_reference read_optional_object();
    owned_reference read_container();
    owned_reference read_array();
    owned_reference read_dictionary();
    owned_reference read_entries();
    std::size_t most_bytes_of_data() const;
    owned_reference read_data();
    owned_reference read_optional_string();
    CFStringRef string_of(std::size_t begin, std::size_t end);
    CFStringRef read_quoted_string();
    void read_escape(std::u16string & text);
    char16_t read_digits(std::size_t most, unsigned base);

    string_contents document;
    property_list_options options;
    property_list_strings strings;
    std::size_t position = 0;
    std::size_t depth = 0;
};

std::size_t old_style_reader::line_of(std::size_t end) const {
    std::size_t line = 1;
    for (std::size_t index = 0; index < end; ++index) {
        auto const is_first_of_two =
            document[index] == '\r' && index + 1 < document.length() && document[index + 1] == '\n';
        line += is_end_of_line(document[index]) && !is_first_of_two ? 1U : 0U;
    }
    return line;
}

void old_style_reader::fail(std::string_view text) const {
    throw property_list_syntax_error{fmt::format("{} {}", text, line_of(position))};
}

void old_style_reader::fail_at_object() const {
    if (at_end()) {
        throw property_list_syntax_error{"Unexpected EOF"};
    }
    throw property_list_syntax_error{fmt::format("Unexpected character '0x{:x}' at line {}",
                                                 static_cast<unsigned>(peek()), line_of(position))};
}

void old_style_reader::fail_in_data(std::string_view why) const {
    throw property_list_syntax_error{
        fmt::format("Malformed data byte group at line {}; {}", line_of(position), why)};
}

bool old_style_reader::skip_comment() {
    auto const is_line = is_at('/', '/');
    if (!is_line && !is_at('/', '*')) {
        return false;
    }
    position += 2;
    while (!at_end() && !(is_line ? is_end_of_line(peek()) : is_at('*', '/'))) {
        ++position;
    }
    position += is_line || at_end() ? 0U : 2U;
    return true;
}

void old_style_reader::skip_space() {
    do {
        while (!at_end() && is_space(peek())) {
            ++position;
        }
    } while (skip_comment());
}

bool old_style_reader::begins_container() {
    return next_is('{') || next_is('(');
}

// Reads the object that has to be here.
owned_reference old_style_reader::read_object() {
    if (begins_container() && depth == deepest_property_list) {
        fail("Too many nested arrays or dictionaries at line");
    }
    auto object = read_optional_object();
    if (object == nullptr) {
        fail_at_object();
    }
    return object;
}

// Reads an object; returns null if there is none here, or one that would nest too deeply.
owned_reference old_style_reader::read_optional_object() {
    if (begins_container()) {
        return depth == deepest_property_list ? nullptr : read_container();
    }
    return next_is('<') ? read_data() : read_optional_string();
}

owned_reference old_style_reader::read_container() {
    ++depth;
    auto container = peek() == '(' ? read_array() : read_dictionary();
    --depth;
    return container;
}

owned_reference old_style_reader::read_array() {
    ++position;
    std::vector<owned_reference> elements;
    for (auto element = read_optional_object(); element != nullptr;
         element = skip_if(',') ? read_optional_object() : nullptr) {
        elements.push_back(std::move(element));
    }
    if (!skip_if(')')) {
        fail("Expected terminating ')' for array at line");
    }
    std::vector<CFTypeRef> references(elements.size());
    std::ranges::transform(elements, references.begin(),
                           [](owned_reference & element) { return element.release(); });
    return owned_reference{create_array_adopting(references, mutability::is_mutable)};
}

owned_reference old_style_reader::read_dictionary() {
    ++position;
    auto entries = read_entries();
    if (!skip_if('}')) {
        fail("Expected terminating '}' for dictionary at line");
    }
    return entries;
}

// Entries `key = value;` or `key;`, which is its own value, up to what begins no key. Of equal keys
// the last one stays.
owned_reference old_style_reader::read_entries() {
    std::vector<owned_reference> keys_and_values;
    while (auto key = read_optional_string()) {
        owned_reference value;
        if (skip_if('=')) {
            value = read_object();
        } else if (next_is(';')) {
            value.reset(CFRetain(key.get()));
        } else {
            fail(at_end() ? "Missing ';' on line" : "Expected ';' or '=' after key at line");
        }
        if (!skip_if(';')) {
            fail("Missing ';' on line");
        }
        keys_and_values.push_back(std::move(key));
        keys_and_values.push_back(std::move(value));
    }
    auto const count = keys_and_values.size() / 2;
    auto * const dictionary =
        create_object_dictionary(static_cast<CFIndex>(count), mutability::is_mutable);
    for (std::size_t entry = 0; entry < count; ++entry) {
        set_adopting(dictionary, keys_and_values[2 * entry].release(),
                     keys_and_values[2 * entry + 1].release());
    }
    return owned_reference{dictionary};
}

std::size_t old_style_reader::most_bytes_of_data() const {
    auto end = position;
    while (end < document.length() && document[end] != '>') {
        ++end;
    }
    return (end - position) / 2;
}

owned_reference old_style_reader::read_data() {
    ++position;
    data_bytes bytes{most_bytes_of_data()};
    for (; !at_end() && peek() != '>'; ++position) {
        if (is_space(peek())) {
            continue;
        }
        auto const upper = hexadecimal_value(peek());
        if (!upper) {
            fail_in_data("invalid hex");
        }
        ++position;
        if (at_end() || is_space(peek()) || peek() == '>') {
            fail_in_data("uneven length");
        }
        auto const lower = hexadecimal_value(peek());
        if (!lower) {
            fail_in_data("invalid hex");
        }
        bytes.append(static_cast<UInt8>(*upper << 4 | *lower));
    }
    if (at_end()) {
        fail("Expected terminating '>' for data at line");
    }
    ++position;
    auto const wanted = options.of_data(bytes.size() == 0);
    return owned_reference{create_data(std::move(bytes), wanted)};
}

owned_reference old_style_reader::read_optional_string() {
    skip_space();
    if (at_end()) {
        return nullptr;
    }
    if (peek() == '"' || peek() == '\'') {
        return owned_reference{read_quoted_string()};
    }
    auto const begin = position;
    while (!at_end() && is_word(peek())) {
        ++position;
    }
    return owned_reference{position == begin ? nullptr : string_of(begin, position)};
}

CFStringRef old_style_reader::string_of(std::size_t begin, std::size_t end) {
    return document.is_wide() ? strings.from_utf16(document.utf16().substr(begin, end - begin))
                              : strings.from_utf8(document.ascii().substr(begin, end - begin));
}

CFStringRef old_style_reader::read_quoted_string() {
    auto const begin = position;
    auto const quote = peek();
    for (++position; !at_end() && peek() != quote && peek() != '\\';) {
        ++position;
    }
    if (!at_end() && peek() == quote) {
        return string_of(begin + 1, position++);
    }
    std::u16string text;
    for (position = begin + 1; !at_end() && peek() != quote;) {
        if (peek() == '\\') {
            read_escape(text);
        } else {
            text.push_back(document[position++]);
        }
    }
    if (at_end()) {
        position = begin;
        fail("Unterminated quoted string starting on line");
    }
    ++position;
    return strings.from_utf16(text);
}

// An escape is \ooo with up to three octal digits for a byte in the NeXTSTEP encoding, \Uxxxx with
// up to four hexadecimal ones for a code unit, or one character.
void old_style_reader::read_escape(std::u16string & text) {
    ++position;
    if (at_end()) {
        return;
    }
    if (is_octal_digit(peek())) {
        text.push_back(next_step_character(static_cast<unsigned char>(read_digits(3, 8))));
    } else if (peek() == 'U') {
        ++position;
        text.push_back(read_digits(4, 16));
    } else {
        text.push_back(escaped(document[position++]));
    }
}

char16_t old_style_reader::read_digits(std::size_t most, unsigned base) {
    unsigned value = 0;
    for (std::size_t digits = 0; digits < most && !at_end(); ++digits, ++position) {
        auto const digit = hexadecimal_value(peek());
        if (!digit || *digit >= base) {
            break;
        }
        value = value * base + *digit;
    }
    return static_cast<char16_t>(value);
}

} // namespace

owned_reference read_old_style_property_list(string_contents text, property_list_options options) {
    return old_style_reader{text, options}.read();
}

} // namespace cf
