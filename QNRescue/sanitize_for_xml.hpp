#pragma once

#include "platform/cf_ownership.hpp"

namespace qnrescue {

// What to do with a part that no property list can hold.
enum class on_error : int {
    skip = 0,  // leave the element or entry out
    raise = 1, // throw; any other value: return null
};

// Returns the value in property-list types only: a string, number, boolean, date or data unchanged,
// a converted copy of a container, the dictionary of an error. Where the value cannot be converted,
// returns null, or throws std::runtime_error with raise. The value must not contain itself.
cf_owner<CFTypeRef> sanitize_for_xml(CFTypeRef value, on_error mode);

} // namespace qnrescue
