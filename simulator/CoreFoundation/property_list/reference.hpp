// The owner of one reference to an object, for the property-list readers and writers.
#pragma once

#include "platform/cf_ownership.hpp"
#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

using owned_reference = qnrescue::cf_owner<CFTypeRef>;

} // namespace cf
