// Property lists as XML.
#pragma once

#include "platform/CoreFoundation.h"

#include <string>

namespace cf {

// The document. The root must have passed property_list_fault.
std::string write_xml_property_list(CFPropertyListRef root);

} // namespace cf
