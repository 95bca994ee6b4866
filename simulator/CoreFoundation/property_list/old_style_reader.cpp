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

// What a letter behind a backslash stands for; any other unit stands for itself.
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

class OldStyleReader {
public:
    OldStyleReader(StringContents const & text, PropertyListOptions options)
        : text_{text}
        , options_{options}
        , strings_{options} {}

    OwnedReference read() {
        skip_space();
        if (at_end()) {
            return OwnedReference{create_object_dictionary(0, Mutability::is_mutable)};
        }
        auto const begin = at_;
        auto root = read_object();
        skip_space();
        if (at_end()) {
            return root;
        }
        if (!is<__CFString>(root.get())) {
            fail("Junk after plist at line");
        }
        at_ = begin; // of a strings file: entries without braces
        return read_entries();
    }

private:
    bool at_end() const { return at_ == text_.length(); }
    char16_t peek() const { return text_[at_]; }
    bool is_at(char16_t first, char16_t second) const {
        return text_.length() - at_ >= 2 && text_[at_] == first && text_[at_ + 1] == second;
    }
    bool next_is(char16_t unit) {
        skip_space();
        return !at_end() && peek() == unit;
    }
    bool skip_if(char16_t unit) {
        auto const found = next_is(unit);
        at_ += found ? 1U : 0U;
        return found;
    }

    std::size_t line_of(std::size_t position) const;
    [[noreturn]] void fail(std::string_view text) const;
    [[noreturn]] void fail_at_object() const;
    [[noreturn]] void fail_in_data(std::string_view why) const;

    void skip_space();
    bool skip_comment();
    bool begins_container();
    OwnedReference read_object();
    OwnedReference read_optional_object();
    OwnedReference read_container();
    OwnedReference read_array();
    OwnedReference read_dictionary();
    OwnedReference read_entries();
    std::size_t most_bytes_of_data() const;
    OwnedReference read_data();
    OwnedReference read_optional_string();
    CFStringRef string_of(std::size_t begin, std::size_t end);
    CFStringRef read_quoted_string();
    void read_escape(std::u16string & text);
    char16_t read_digits(std::size_t most, unsigned base);

    StringContents text_;
    PropertyListOptions options_;
    PropertyListStrings strings_;
    std::size_t at_ = 0;
    std::size_t depth_ = 0;
};

std::size_t OldStyleReader::line_of(std::size_t position) const {
    std::size_t line = 1;
    for (std::size_t index = 0; index < position; ++index) {
        auto const is_first_of_two =
            text_[index] == '\r' && index + 1 < text_.length() && text_[index + 1] == '\n';
        line += is_end_of_line(text_[index]) && !is_first_of_two ? 1U : 0U;
    }
    return line;
}

void OldStyleReader::fail(std::string_view text) const {
    throw PropertyListSyntaxError{fmt::format("{} {}", text, line_of(at_))};
}

void OldStyleReader::fail_at_object() const {
    if (at_end()) {
        throw PropertyListSyntaxError{"Unexpected EOF"};
    }
    throw PropertyListSyntaxError{fmt::format("Unexpected character '0x{:x}' at line {}",
                                              static_cast<unsigned>(peek()), line_of(at_))};
}

void OldStyleReader::fail_in_data(std::string_view why) const {
    throw PropertyListSyntaxError{
        fmt::format("Malformed data byte group at line {}; {}", line_of(at_), why)};
}

bool OldStyleReader::skip_comment() {
    auto const is_line = is_at('/', '/');
    if (!is_line && !is_at('/', '*')) {
        return false;
    }
    at_ += 2;
    while (!at_end() && !(is_line ? is_end_of_line(peek()) : is_at('*', '/'))) {
        ++at_;
    }
    at_ += is_line || at_end() ? 0U : 2U;
    return true;
}

void OldStyleReader::skip_space() {
    do {
        while (!at_end() && is_space(peek())) {
            ++at_;
        }
    } while (skip_comment());
}

bool OldStyleReader::begins_container() {
    return next_is('{') || next_is('(');
}

// The object that has to stand here.
OwnedReference OldStyleReader::read_object() {
    if (begins_container() && depth_ == deepest_property_list) {
        fail("Too many nested arrays or dictionaries at line");
    }
    auto object = read_optional_object();
    if (object == nullptr) {
        fail_at_object();
    }
    return object;
}

// Null if no object stands here, or one that would nest too deeply.
OwnedReference OldStyleReader::read_optional_object() {
    if (begins_container()) {
        return depth_ == deepest_property_list ? nullptr : read_container();
    }
    return next_is('<') ? read_data() : read_optional_string();
}

OwnedReference OldStyleReader::read_container() {
    ++depth_;
    auto container = peek() == '(' ? read_array() : read_dictionary();
    --depth_;
    return container;
}

OwnedReference OldStyleReader::read_array() {
    ++at_;
    std::vector<OwnedReference> elements;
    for (auto element = read_optional_object(); element != nullptr;
         element = skip_if(',') ? read_optional_object() : nullptr) {
        elements.push_back(std::move(element));
    }
    if (!skip_if(')')) {
        fail("Expected terminating ')' for array at line");
    }
    std::vector<CFTypeRef> references(elements.size());
    std::ranges::transform(elements, references.begin(),
                           [](OwnedReference & element) { return element.release(); });
    return OwnedReference{create_array_adopting(references, Mutability::is_mutable)};
}

OwnedReference OldStyleReader::read_dictionary() {
    ++at_;
    auto entries = read_entries();
    if (!skip_if('}')) {
        fail("Expected terminating '}' for dictionary at line");
    }
    return entries;
}

// Entries `key = value;` or `key;`, which is its own value, up to what begins no key. Of equal keys
// the last one stays.
OwnedReference OldStyleReader::read_entries() {
    std::vector<OwnedReference> keys_and_values;
    while (auto key = read_optional_string()) {
        OwnedReference value;
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
        create_object_dictionary(static_cast<CFIndex>(count), Mutability::is_mutable);
    for (std::size_t entry = 0; entry < count; ++entry) {
        set_adopting(dictionary, keys_and_values[2 * entry].release(),
                     keys_and_values[2 * entry + 1].release());
    }
    return OwnedReference{dictionary};
}

std::size_t OldStyleReader::most_bytes_of_data() const {
    auto end = at_;
    while (end < text_.length() && text_[end] != '>') {
        ++end;
    }
    return (end - at_) / 2;
}

OwnedReference OldStyleReader::read_data() {
    ++at_;
    DataBytes bytes{most_bytes_of_data()};
    for (; !at_end() && peek() != '>'; ++at_) {
        if (is_space(peek())) {
            continue;
        }
        auto const upper = hexadecimal_value(peek());
        if (!upper) {
            fail_in_data("invalid hex");
        }
        ++at_;
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
    ++at_;
    auto const mutability = options_.of_data(bytes.size() == 0);
    return OwnedReference{create_data(std::move(bytes), mutability)};
}

OwnedReference OldStyleReader::read_optional_string() {
    skip_space();
    if (at_end()) {
        return nullptr;
    }
    if (peek() == '"' || peek() == '\'') {
        return OwnedReference{read_quoted_string()};
    }
    auto const begin = at_;
    while (!at_end() && is_word(peek())) {
        ++at_;
    }
    return OwnedReference{at_ == begin ? nullptr : string_of(begin, at_)};
}

CFStringRef OldStyleReader::string_of(std::size_t begin, std::size_t end) {
    return text_.is_wide() ? strings_.from_utf16(text_.utf16().substr(begin, end - begin))
                           : strings_.from_utf8(text_.ascii().substr(begin, end - begin));
}

CFStringRef OldStyleReader::read_quoted_string() {
    auto const begin = at_;
    auto const quote = peek();
    for (++at_; !at_end() && peek() != quote && peek() != '\\';) {
        ++at_;
    }
    if (!at_end() && peek() == quote) {
        return string_of(begin + 1, at_++);
    }
    std::u16string text;
    for (at_ = begin + 1; !at_end() && peek() != quote;) {
        if (peek() == '\\') {
            read_escape(text);
        } else {
            text.push_back(text_[at_++]);
        }
    }
    if (at_end()) {
        at_ = begin;
        fail("Unterminated quoted string starting on line");
    }
    ++at_;
    return strings_.from_utf16(text);
}

// An escape is \ooo with up to three octal digits for a byte in the NeXTSTEP encoding, \Uxxxx with
// up to four hexadecimal ones for a code unit, or one character.
void OldStyleReader::read_escape(std::u16string & text) {
    ++at_;
    if (at_end()) {
        return;
    }
    if (is_octal_digit(peek())) {
        text.push_back(next_step_character(static_cast<unsigned char>(read_digits(3, 8))));
    } else if (peek() == 'U') {
        ++at_;
        text.push_back(read_digits(4, 16));
    } else {
        text.push_back(escaped(text_[at_++]));
    }
}

char16_t OldStyleReader::read_digits(std::size_t most, unsigned base) {
    unsigned value = 0;
    for (std::size_t digits = 0; digits < most && !at_end(); ++digits, ++at_) {
        auto const digit = hexadecimal_value(peek());
        if (!digit || *digit >= base) {
            break;
        }
        value = value * base + *digit;
    }
    return static_cast<char16_t>(value);
}

} // namespace

OwnedReference read_old_style_property_list(StringContents text, PropertyListOptions options) {
    return OldStyleReader{text, options}.read();
}

} // namespace cf
