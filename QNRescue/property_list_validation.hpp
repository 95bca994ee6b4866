#pragma once

#include "platform/cf_ownership.hpp"

namespace qnrescue {

// Returns what the exported CFPropertyListValidateForSerialization does, but throws std::bad_alloc
// where memory is short: that says nothing about the value.
bool is_valid_property_list(CFTypeRef value, long format);

} // namespace qnrescue
