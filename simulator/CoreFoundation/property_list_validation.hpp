// What may be written as a property list.
#pragma once

#include "platform/CoreFoundation.h"

#include <optional>
#include <string>

namespace cf {

// What forbids to write the object in the format, or nothing.
std::optional<std::string> property_list_fault(CFPropertyListRef root, CFPropertyListFormat format);

} // namespace cf
