// Decides what may be written as a property list in XML.
#pragma once

#include "platform/CoreFoundation.h"

#include <optional>
#include <string>

namespace cf {

// Returns why the object cannot be written in XML, or nothing.
std::optional<std::string> property_list_fault(CFPropertyListRef root);

} // namespace cf
