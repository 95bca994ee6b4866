// Values of a property list that hold no CoreFoundation object, so that a recording keeps nothing
// of the session alive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace recorder {

// An XML element without children, complete with its tags.
struct element {
    std::string xml;
};

struct entry;
struct value;
using array = std::vector<value>;
using dictionary = std::vector<entry>;

// A text is in UTF-8, in which a lone surrogate has three bytes, too.
struct value {
    std::variant<element, std::string, array, dictionary> held;
};

struct entry {
    std::string key;
    value content;
};

bool operator==(value const & left, value const & right);

value make_integer(std::int64_t number);
value make_integer(std::uint64_t number);
value make_real(double number);
value make_boolean(bool truth);
value make_string(std::string_view text);

// Returns the form in which a scenario writes the null object and a null pointer.
value make_null();

// Returns whether XML can hold all characters of the text.
bool is_xml_text(std::string_view text);

// Returns the value as a whole XML property list. A text that XML cannot hold becomes a dictionary
// with the key "$type"; keys must be texts that it can hold.
std::string write_property_list(value const & root);

} // namespace recorder
