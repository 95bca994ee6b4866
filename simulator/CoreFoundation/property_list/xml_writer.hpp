// Property lists as XML.
#pragma once

#include "platform/CoreFoundation.h"

#include <string>

namespace cf {

// Returns the document. For the root, property_list_fault must return nothing.
std::string write_xml_property_list(CFPropertyListRef root);

} // namespace cf
