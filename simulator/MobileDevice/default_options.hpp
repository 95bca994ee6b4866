// The restore options of the platform.
#pragma once

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

cf_owner<CFMutableDictionaryRef> make_default_options();

} // namespace mobile_device
