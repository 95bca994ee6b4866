// Values that a property list cannot hold and a scenario spells as dictionaries with "$type".
#pragma once

#include "simulator/MobileDevice/node.hpp"
#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

// The status dictionary that a restore report carries, with every spelled-out value inside
// replaced by what it stands for; null where the report carries a null pointer. Throws
// scenario_fault.
cf_owner<CFDictionaryRef> read_status(node const & status);

// The error that a dictionary of Domain, Code, Description and FailureReason describes; the last
// two are optional. Throws scenario_fault.
cf_owner<CFErrorRef> read_error(dictionary_node const & description);

} // namespace mobile_device
