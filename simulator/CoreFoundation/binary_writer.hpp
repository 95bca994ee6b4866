// Property lists in the binary format.
#pragma once

#include "platform/CoreFoundation.h"

#include <string>

namespace cf {

// The document. Equal leaves and identical containers are written once. The root must have passed
// property_list_fault.
std::string write_binary_property_list(CFPropertyListRef root);

} // namespace cf
