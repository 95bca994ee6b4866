// Property lists from XML.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

namespace cf {

// The root object of the document, which is UTF-8 without a byte-order mark. Whatever follows its
// first element is ignored. Throws PropertyListSyntaxError.
OwnedReference read_xml_property_list(std::string_view document, PropertyListOptions options);

} // namespace cf
