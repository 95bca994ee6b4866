#pragma once

#include "QNRescue/cf_ownership.hpp"

namespace qnrescue {

// What to do with a part that no property list can hold.
enum class on_error : int {
    skip = 0,  // leave the element or entry out
    raise = 1, // throw; any other value: answer null
};

// A value of property-list types alone: the value itself where it is no container, else a converted
// copy in which errors have become their dictionaries. Null where the value cannot be converted;
// with raise, std::runtime_error is thrown instead.
cf_owner<CFTypeRef> sanitize_for_xml(CFTypeRef value, on_error mode);

} // namespace qnrescue
