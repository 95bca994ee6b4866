// Reads the values that no property list can hold, which a scenario writes as dictionaries with the
// key "$type".
#pragma once

#include "simulator/MobileDevice/node.hpp"
#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

// Returns the status dictionary of a restore report, in which every dictionary with "$type" is
// replaced by the value that it means; null if the report is a null pointer. Throws scenario_fault.
cf_owner<CFDictionaryRef> read_status(node const & status);

// Returns whether the value is the dictionary that means null. Throws scenario_fault for one whose
// "$type" is neither that nor text.
bool is_null(node const & value);

// Returns the error that a dictionary of Domain, Code, Description, FailureReason and UserInfo
// describes; the last three are optional. Throws scenario_fault.
cf_owner<CFErrorRef> read_error(dictionary_node const & description);

} // namespace mobile_device
