// What may be written as a property list in XML.
#pragma once

#include "platform/CoreFoundation.h"

#include <optional>
#include <string>

namespace cf {

// Returns what forbids to write the object in XML, or nothing.
std::optional<std::string> property_list_fault(CFPropertyListRef root);

} // namespace cf
