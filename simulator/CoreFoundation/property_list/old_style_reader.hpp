// Property lists in the old style without XML, and files of strings.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

namespace cf {

// The root object; a text of nothing but white space and comments is an empty dictionary. Throws
// property_list_syntax_error.
owned_reference read_old_style_property_list(string_contents text, property_list_options options);

} // namespace cf
