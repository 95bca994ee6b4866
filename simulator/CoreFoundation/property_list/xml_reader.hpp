// Property lists from XML.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

namespace cf {

// Returns the root object of the document, which is UTF-8 without a byte-order mark. Whatever
// follows its first element is ignored. Throws property_list_syntax_error.
owned_reference read_xml_property_list(std::string_view document, property_list_options options);

} // namespace cf
