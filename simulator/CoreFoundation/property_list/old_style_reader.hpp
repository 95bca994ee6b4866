// Property lists in the old style without XML, and files of strings.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

namespace cf {

// The root object; a text of nothing but white space and comments is an empty dictionary. Throws
// PropertyListSyntaxError.
OwnedReference read_old_style_property_list(StringContents text, PropertyListOptions options);

} // namespace cf
