#pragma once

#include "platform/cf_ownership.hpp"

namespace qnrescue {

// What to do with a part that no property list can hold.
enum class on_error : int {
    skip = 0,  // leave the element or entry out
    raise = 1, // throw; any other value: answer null
};

// A value of property-list types alone: a string, number, boolean, date or data itself, a converted
// copy of a container, the dictionary of an error. Null where the value cannot be converted; with
// raise, std::runtime_error is thrown instead. The value must not contain itself.
cf_owner<CFTypeRef> sanitize_for_xml(CFTypeRef value, on_error mode);

} // namespace qnrescue
