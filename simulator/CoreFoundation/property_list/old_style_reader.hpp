// Property lists in the old style without XML, and files of strings.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

namespace cf {

// Returns the root object; a text of white space and comments alone is an empty dictionary. Throws
// property_list_syntax_error.
owned_reference read_old_style_property_list(string_contents text, property_list_options options);

} // namespace cf
