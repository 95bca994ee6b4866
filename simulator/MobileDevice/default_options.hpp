// The restore options of the platform.
#pragma once

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

// Returns a copy of the scripted options, or the usual ones where that is null.
cf_owner<CFMutableDictionaryRef> make_default_options(CFDictionaryRef scripted = nullptr);

} // namespace mobile_device
